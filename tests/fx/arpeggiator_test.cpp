// The arpeggiator: registration, note routing, the pattern and its modes, timing from the
// host's measure, release of the last key, and its pattern in a saved patch.
#include "fx/arpeggiator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "document/block_types.h"
#include "document/patch_records.h"
#include "document/vrok_doc.h"
#include "engine/probe_blocks.h"

namespace {

using namespace probe;

constexpr int kArpType = 44;
enum : int { kSpeed = 0, kTicks = 1, kOctaves = 2, kMode = 3, kStep = 4, kOffset = 20, kChord = 36 };
constexpr float kUp = 0.2f, kDown = 0.4f, kRandom = 0.6f, kOrdered = 0.8f, kReversed = 1.0f;

// The stored value whose offset is `semitones`.
float OffsetValue(int semitones) { return 0.5f + float(semitones) / 24.0f; }

CAudioBlock* ArpOrProbe(VrokInstance& engine, int type, float rate) {
    return type == kArpType ? CreateBlock(engine, type, rate) : probe::Factory(engine, type, rate);
}

class Arpeggiator : public ::testing::Test {
protected:
    Arpeggiator() {
        Calls().clear();
        engine.SetVoiceCount(16, false);
        osc = Add(kPolySource);
        out = Add(kOutput);
        static_cast<ProbeBlock*>(engine.blocks[out])->hasOutputWork = true;
        engine.Connect(osc, out, 0);
        engine.RebuildOrder();
        int slot = Add(kArpType);
        arp = static_cast<CGlobalArpeggioBlock*>(engine.blocks[slot]);
    }
    int Add(int type) {
        int slot = -1;
        engine.InsertBlock(type, -1, &slot);
        return slot;
    }
    void Press(std::initializer_list<int> notes) {
        for (int n : notes) engine.PressKey(n, 100);
    }
    // The notes each of `ticks` steps starts, one list per step.
    std::vector<std::vector<int>> Steps(int ticks) {
        std::vector<std::vector<int>> steps;
        for (int t = 0; t < ticks; ++t) {
            arp->Tick();
            steps.push_back(arp->soundingNotes);
        }
        return steps;
    }
    // The single notes of `ticks` steps.
    std::vector<int> Notes(int ticks) {
        std::vector<int> notes;
        for (const auto& step : Steps(ticks)) notes.push_back(step.empty() ? -1 : step[0]);
        return notes;
    }
    int NoteOns() const {
        return int(std::count_if(Calls().begin(), Calls().end(),
                                 [&](const Call& c) { return c.what == "NoteOn" && c.slot == osc; }));
    }

    VrokInstance engine{ArpOrProbe};
    int osc = -1, out = -1;
    CGlobalArpeggioBlock* arp = nullptr;
};

TEST_F(Arpeggiator, RegistersAndRefusesASecondThroughTheFactory) {
    EXPECT_EQ(engine.arpeggiator, arp);
    EXPECT_TRUE(engine.arpeggiatorPresent);
    EXPECT_TRUE(engine.arpeggiatorActive) << "the default mode is up";
    EXPECT_EQ(Add(kArpType), -1);

    // One built around the factory: the later one holds the reference; deleting either
    // clears it.
    auto later = std::make_unique<CGlobalArpeggioBlock>(&engine, 44100.0f);
    EXPECT_EQ(engine.arpeggiator, later.get());
    later.reset();
    EXPECT_EQ(engine.arpeggiator, nullptr);
    EXPECT_FALSE(engine.arpeggiatorPresent);
    EXPECT_FALSE(engine.arpeggiatorActive);
}

TEST_F(Arpeggiator, KeysFillItsListsAndStartNothingUntilATick) {
    Press({64, 60, 67, 60});
    EXPECT_EQ(arp->orderList, (std::vector<int>{64, 60, 67}));
    EXPECT_EQ(arp->sortedList, (std::vector<int>{60, 64, 67}));
    EXPECT_EQ(arp->heldCount, 3) << "a key already held is dropped";
    EXPECT_EQ(NoteOns(), 0);
    arp->Tick();
    ASSERT_EQ(NoteOns(), 1);
    const auto on =
        std::find_if(Calls().begin(), Calls().end(), [](const Call& c) { return c.what == "NoteOn"; });
    EXPECT_EQ(on->value, 80.0f) << "the arpeggiator plays at its own velocity";
    EXPECT_TRUE(engine.noteHeld[60]);
    engine.PressKey(200, 100);
    engine.ReleaseKey(200);
    EXPECT_EQ(arp->heldCount, 3) << "keys outside 0..127 are ignored";
}

TEST_F(Arpeggiator, ModesWalkTheListsWithNoteAndOctaveMovingTogether) {
    struct Row {
        const char* name;
        float mode;
        std::vector<int> keys;
        float octaves;
        std::vector<int> expected;
    } rows[] = {
        {"up", kUp, {64, 60, 67}, 0.0f, {60, 64, 67, 60, 64, 67}},
        {"down", kDown, {64, 60, 67}, 0.0f, {60, 67, 64, 60, 67, 64}},
        {"ord", kOrdered, {64, 60, 67}, 0.0f, {64, 60, 67, 64, 60, 67}},
        {"rev walks the sorted list", kReversed, {64, 60, 67}, 0.0f, {60, 67, 64, 60, 67, 64}},
        {"two notes, one octave: two of four pairs", kUp, {60, 64}, 0.25f, {60, 76, 60, 76, 60, 76}},
        {"three notes, one octave", kUp, {60, 64, 67}, 0.25f, {60, 76, 67, 72, 64, 79}},
        {"down over two octaves", kDown, {60, 64}, 0.5f, {60, 88, 72, 64, 84, 76}},
    };
    for (const Row& row : rows) {
        arp->SetParameter(kMode, row.mode);
        arp->SetParameter(kOctaves, row.octaves);
        for (int n : row.keys) engine.PressKey(n, 100);
        EXPECT_EQ(Notes(int(row.expected.size())), row.expected) << row.name;
        for (int n : row.keys) engine.ReleaseKey(n);
        arp->Tick();
    }
}

TEST_F(Arpeggiator, RandomModePicksHeldNotesInTheOctaveRange) {
    arp->SetParameter(kMode, kRandom);
    arp->SetParameter(kOctaves, 0.25f);
    Press({60, 64, 67});
    std::vector<int> seen;
    for (int n : Notes(200)) seen.push_back(n);
    std::sort(seen.begin(), seen.end());
    seen.erase(std::unique(seen.begin(), seen.end()), seen.end());
    EXPECT_EQ(seen, (std::vector<int>{60, 64, 67, 72, 76, 79}));
}

TEST_F(Arpeggiator, ChordStepsRestsAndOffsets) {
    arp->SetParameter(kTicks, 3.5f / 15.0f);  // four steps
    arp->SetParameter(kChord + 1, 1.0f);
    arp->SetParameter(kOffset + 1, OffsetValue(5));
    arp->SetParameter(kStep + 2, 0.0f);
    arp->SetParameter(kOffset + 3, OffsetValue(-12));
    Press({64, 60, 67});
    const auto steps = Steps(5);
    EXPECT_EQ(steps[0], (std::vector<int>{60}));
    EXPECT_EQ(steps[1], (std::vector<int>{69, 65, 72})) << "all held notes in entry order, offset";
    EXPECT_TRUE(steps[2].empty()) << "a rest";
    EXPECT_EQ(steps[3], (std::vector<int>{52})) << "the chord and the rest did not move the note";
    EXPECT_EQ(steps[4], (std::vector<int>{67})) << "four steps, then step 0 again";
    EXPECT_FALSE(engine.noteHeld[52]) << "a new step stops the last one's notes";
    EXPECT_TRUE(engine.noteHeld[67]);
}

TEST_F(Arpeggiator, OffsetRoundsAnExactHalfDown) {
    struct Row {
        float value;
        int semitones;
    } rows[] = {{0.5f, 0}, {0.0f, -12}, {1.0f, 12}, {0.5625f, 1}, {0.4375f, -2}, {0.5f + 2.6f / 24.0f, 3}};
    for (const Row& row : rows) {
        arp->SetParameter(kOffset, row.value);
        EXPECT_EQ(arp->stepOffset[0], row.semitones) << row.value;
    }
}

TEST_F(Arpeggiator, LeastTicksPlaysOnlyStepZero) {
    arp->SetParameter(kTicks, 0.0f);
    arp->SetParameter(kOffset, OffsetValue(12));
    Press({60, 62});
    EXPECT_EQ(Notes(4), (std::vector<int>{72, 74, 72, 74}));
    EXPECT_EQ(arp->stepIndex, 0);
}

TEST_F(Arpeggiator, WithNoKeysTicksDoNothingAndThePatternStands) {
    Press({60});
    Steps(2);
    engine.ReleaseKey(60);
    arp->SetParameter(kMode, kUp);
    EXPECT_TRUE(Steps(3)[0].empty());
    EXPECT_EQ(arp->stepIndex, 0);
    EXPECT_FALSE(engine.noteHeld[60]) << "the first tick after the release stopped the note";
}

TEST_F(Arpeggiator, ReleasingTheLastKeyRestartsThePatternAtTheNextRenderCall) {
    engine.samplesPerBar = 88200;
    float left[kMaxFrames], right[kMaxFrames];
    Press({60, 64});
    for (int i = 0; i < 100; ++i) engine.Render({left, right}, kMaxFrames);
    ASSERT_GT(arp->samplesToTick, 0);
    engine.ReleaseKey(64);
    EXPECT_EQ(arp->noteIndex, 0);
    engine.ReleaseKey(60);
    EXPECT_EQ(arp->stepIndex, 0);
    EXPECT_EQ(arp->samplesToTick, 0);
    EXPECT_TRUE(engine.noteHeld[60] || engine.noteHeld[64]) << "released keys sound until the next tick";
    Press({67});
    Calls().clear();
    engine.Render({left, right}, kMaxFrames);
    EXPECT_EQ(NoteOns(), 1);
    EXPECT_TRUE(engine.noteHeld[67]);
    EXPECT_EQ(arp->stepIndex, 1);
}

TEST_F(Arpeggiator, StepsFallOnRenderCallsTimedFromTheHostMeasure) {
    struct Row {
        const char* name;
        int samplesPerBar;
        float speed;
        double period;  // frames per step
    } rows[] = {
        {"120 bpm sixteenths", 88200, 0.5f, 5512.0},
        {"90 bpm, twice as fast", 117600, 0.6f, 3675.0},
        {"140 bpm, a sixteenth of that", 75600, 0.0f, 75600.0},
        {"fastest is one step per call", 88200, 1.0f, 256.0},
    };
    for (const Row& row : rows) {
        arp->SetParameter(kSpeed, row.speed);
        engine.samplesPerBar = row.samplesPerBar;
        Press({60});
        std::vector<long> stepFrames;
        float left[kMaxFrames], right[kMaxFrames];
        for (long frame = 0; stepFrames.size() < 12; frame += kMaxFrames) {
            Calls().clear();
            engine.Render({left, right}, kMaxFrames);
            if (NoteOns() > 0) stepFrames.push_back(frame);
        }
        EXPECT_EQ(stepFrames[0], 0) << row.name << ": the first key plays at once";
        for (size_t k = 0; k < stepFrames.size(); ++k)
            EXPECT_NEAR(double(stepFrames[k]), double(k) * row.period, kMaxFrames)
                << row.name << " step " << k;
        engine.ReleaseKey(60);
    }
}

TEST_F(Arpeggiator, ModeOffStopsItsNotesAndGivesTheKeyboardBack) {
    Press({60});
    arp->Tick();
    ASSERT_TRUE(engine.noteHeld[60]);
    arp->SetParameter(kMode, 0.0f);
    EXPECT_FALSE(engine.arpeggiatorActive);
    EXPECT_FALSE(engine.noteHeld[60]);
    engine.PressKey(70, 100);
    EXPECT_TRUE(engine.noteHeld[70]) << "played directly";
    EXPECT_FALSE(arp->IsHeld(70));
}

TEST_F(Arpeggiator, ClearingThePatchWhileItPlaysIsSafe) {
    Press({60, 64});
    arp->Tick();
    engine.ClearPatch();
    EXPECT_EQ(engine.arpeggiator, nullptr);
    EXPECT_FALSE(engine.arpeggiatorActive);
    EXPECT_EQ(engine.orderCount, 0);
}

TEST_F(Arpeggiator, DescribesItsValues) {
    struct Row {
        int index;
        float value;
        const char* text;
    } rows[] = {{kSpeed, 0.5f, "100%"}, {kSpeed, 0.0f, "6%"},  {kSpeed, 1.0f, "2400%"}, {kTicks, 1.0f, "16"},
                {kTicks, 0.0f, "1"},    {kOctaves, 1.0f, "4"}, {kMode, 0.2f, "20%"}};
    for (const Row& row : rows) EXPECT_EQ(arp->DescribeValue(row.index, row.value), row.text) << row.index;
    EXPECT_EQ(arp->ParameterChoices(kMode),
              (std::vector<std::wstring>{L"off", L"up", L"down", L"rnd", L"ord", L"rev"}));
}

TEST(ArpeggiatorPatch, PatternSurvivesSavingAndLoading) {
    std::string text;
    {
        VrokDoc doc;
        PatchBlock* block = doc.AddBlock(kArpType, -1, 10, 10);
        ASSERT_NE(block, nullptr);
        doc.SetParameter(block, kMode, kOrdered);
        doc.SetParameter(block, kTicks, 5.5f / 15.0f);
        doc.SetParameter(block, kStep + 3, 0.0f);
        doc.SetParameter(block, kChord + 4, 1.0f);
        doc.SetParameter(block, kOffset + 5, OffsetValue(-7));
        text = doc.WriteXml();
    }
    VrokDoc doc;
    ASSERT_TRUE(doc.ReadXml(text));
    CGlobalArpeggioBlock* arp = doc.engine->arpeggiator;
    ASSERT_NE(arp, nullptr);
    EXPECT_EQ(arp->arpMode, CGlobalArpeggioBlock::kOrdered);
    EXPECT_EQ(arp->tickCount, 6);
    EXPECT_FALSE(arp->stepOn[3]);
    EXPECT_TRUE(arp->stepChord[4]);
    EXPECT_EQ(arp->stepOffset[5], -7);
    EXPECT_EQ(arp->stepOffset[4], 0);
}

}  // namespace
