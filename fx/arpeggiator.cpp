// The arpeggiator block: parameter table, note lists, and the pattern step.
#include "fx/arpeggiator.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>

#include "engine/value_format.h"
#include "engine/vrok_instance.h"

namespace {

enum : int {
    kSpeed,
    kTicks,
    kOctaves,
    kMode,
    kFirstStep,
    kFirstOffset = kFirstStep + kArpSteps,
    kFirstChord = kFirstOffset + kArpSteps,
    kParamCount = kFirstChord + kArpSteps
};

// Rows 4..51 are the pattern: 16 "step" switches, 16 "offset" pitches, 16 "chord" switches.
constexpr std::array<ParamRow, kParamCount> MakeRows() {
    std::array<ParamRow, kParamCount> rows{};
    rows[kSpeed] = {"Speed", ParamKind::Slider, 0.5f, ValueText::Custom};
    rows[kTicks] = {"Ticks", ParamKind::Slider, 1.0f, ValueText::Custom};
    rows[kOctaves] = {"Octaves", ParamKind::Slider, 0.0f, ValueText::Custom};
    rows[kMode] = {"Mode", ParamKind::ButtonStrip, 0.2f, ValueText::Percent};
    for (int i = 0; i < kArpSteps; ++i) {
        rows[kFirstStep + i] = {"step", ParamKind::Switch, 1.0f, ValueText::Percent};
        rows[kFirstOffset + i] = {"offset", ParamKind::Pitch, 0.5f, ValueText::Percent};
        rows[kFirstChord + i] = {"chord", ParamKind::Switch, 0.0f, ValueText::Percent};
    }
    return rows;
}
constexpr std::array<ParamRow, kParamCount> kArpRows = MakeRows();

// The arpeggiator takes no wires: it listens to keys, not to signals.
constexpr int kArpPorts = 0;

// Ticks per sixteenth of a measure; 1 (index 7) gives 16 ticks to a measure.
constexpr float kSpeeds[16] = {0.0625f, 0.125f, 0.1875f, 0.25f, 0.375f, 0.5f, 0.75f, 1.0f,
                               1.5f,    2.0f,   3.0f,    4.0f,  6.0f,   8.0f, 12.0f, 24.0f};
constexpr int kVelocity = 80;

float SpeedOf(float value) { return kSpeeds[std::clamp(int(std::floor(value * 15.5f)), 0, 15)]; }
int TicksOf(float value) { return 1 + std::clamp(int(value * 15.0f), 0, 15); }
int OctavesOf(float value) { return std::clamp(int(std::floor(value * 4.5f)), 0, 4); }

// -12..12 semitones; an exact half rounds down.
int OffsetOf(float value) {
    const float x = (value - 0.5f) * 24.0f;
    const float whole = std::floor(x);
    return int(whole) + (x - whole > 0.5f ? 1 : 0);
}

void EraseFirst(std::vector<int>& list, int note) {
    auto found = std::find(list.begin(), list.end(), note);
    if (found != list.end()) list.erase(found);
}

}  // namespace

CGlobalArpeggioBlock::CGlobalArpeggioBlock(VrokInstance* engine, float sampleRate)
    : CAudioBlock(engine, sampleRate) {
    // The lists never hold more than the 128 keys, so the audio thread never grows them.
    orderList.reserve(128);
    sortedList.reserve(128);
    soundingNotes.reserve(128);
    for (int i = 0; i < kArpSteps; ++i) {
        stepOn[i] = false;
        stepOffset[i] = 0;
        stepChord[i] = false;
    }
    engine->arpeggiator = this;
    engine->arpeggiatorPresent = true;
    ConfigureFromRows(kArpRows.data(), kParamCount, kArpPorts, kCategoryGlobalTriggers, "Arpeggiator");
}

CGlobalArpeggioBlock::~CGlobalArpeggioBlock() {
    engine->arpeggiatorPresent = false;
    engine->SetArpeggiatorActive(false);
    engine->arpeggiator = nullptr;
}

void CGlobalArpeggioBlock::ParameterChanged(int index) {
    if (index < 0 || index >= numParameters) return;
    const float value = values[index];
    switch (index) {
        case kSpeed:
            speed = SpeedOf(value);
            return;
        case kTicks:
            tickCount = TicksOf(value);
            return;
        case kOctaves:
            octaveCount = OctavesOf(value);
            return;
        case kMode:
            arpMode = int(std::nearbyint(value * 5.0f));
            engine->SetArpeggiatorActive(arpMode > kOff);
            return;
        default:
            break;
    }
    if (index < kFirstOffset)
        stepOn[index - kFirstStep] = value > 0.5f;
    else if (index < kFirstChord)
        stepOffset[index - kFirstOffset] = OffsetOf(value);
    else
        stepChord[index - kFirstChord] = value > 0.5f;
}

std::string CGlobalArpeggioBlock::DescribeValue(int index, float value) {
    switch (index) {
        case kSpeed:
            return std::to_string(int(SpeedOf(value) * 100.0f)) + "%";
        case kTicks:
            return std::to_string(TicksOf(value));
        case kOctaves:
            return std::to_string(OctavesOf(value));
        default:
            if (index < 0 || index >= kParamCount) return {};
            return DescribeRowValue(kArpRows[size_t(index)], value, sampleRate);
    }
}

std::vector<std::wstring> CGlobalArpeggioBlock::ParameterChoices(int index) {
    if (index != kMode) return {};
    return {L"off", L"up", L"down", L"rnd", L"ord", L"rev"};
}

void CGlobalArpeggioBlock::AddNote(int note) {
    if (IsHeld(note)) return;
    heldKeys[note] = true;
    orderList.push_back(note);
    sortedList.insert(std::upper_bound(sortedList.begin(), sortedList.end(), note), note);
    ++heldCount;
}

void CGlobalArpeggioBlock::NoteOff(int note) {
    if (note < 0 || note >= 128 || !heldKeys[note]) return;
    heldKeys[note] = false;
    --heldCount;
    EraseFirst(orderList, note);
    EraseFirst(sortedList, note);
    if (heldCount <= noteIndex) noteIndex = 0;
    if (heldCount == 0) {
        // The next key plays at the next render call, from step 0.
        octaveIndex = noteIndex = stepIndex = samplesToTick = 0;
    }
}

void CGlobalArpeggioBlock::Tick() {
    for (int note : soundingNotes) engine->NoteOffInternal(note);
    soundingNotes.clear();
    if (heldCount == 0) return;
    const int step = stepIndex;
    if (stepOn[step]) {
        const int offset = stepOffset[step];
        if (stepChord[step]) {
            for (int note : orderList) Start(note + offset);
        } else {
            lastNote = ChooseNote() + offset;
            Start(lastNote);
        }
    }
    // Past the end, not only at it: "Ticks" may have been lowered since the last step.
    stepIndex = step + 1 >= tickCount ? 0 : step + 1;
}

// The note position and the octave move together on every played note: the octave does
// not wait for a pass through the notes.
int CGlobalArpeggioBlock::ChooseNote() {
    const int octaves = octaveCount;
    if (noteIndex < 0 || noteIndex >= heldCount) noteIndex = 0;
    if (octaveIndex < 0 || octaveIndex > octaves) octaveIndex = 0;
    auto climb = [&](const std::vector<int>& list) {
        const int n = list[noteIndex] + 12 * octaveIndex;
        noteIndex = noteIndex + 1 >= heldCount ? 0 : noteIndex + 1;
        octaveIndex = octaveIndex + 1 > octaves ? 0 : octaveIndex + 1;
        return n;
    };
    auto fallNote = [&] { noteIndex = noteIndex - 1 < 0 ? heldCount - 1 : noteIndex - 1; };
    switch (arpMode.load()) {
        case kDown:
        case kReversed: {
            // "rev" walks the sorted list too, not the reversed order of entry.
            const int n = sortedList[noteIndex] + 12 * octaveIndex;
            fallNote();
            octaveIndex = octaveIndex - 1 < 0 ? octaves : octaveIndex - 1;
            return n;
        }
        case kRandom: {
            const int note = orderList[size_t(std::rand()) % orderList.size()];
            const int n = note + 12 * (std::rand() % (octaves + 1));
            fallNote();
            return n;
        }
        case kOrdered:
            return climb(orderList);
        default:
            return climb(sortedList);
    }
}

void CGlobalArpeggioBlock::Start(int note) {
    soundingNotes.push_back(note);
    engine->NoteOnInternal(note, kVelocity, false);
}
