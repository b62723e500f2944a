// The small control sources.
//
// [SECTION] Shared
// [SECTION] CLFOBlock
// [SECTION] CRandomBlock
// [SECTION] CKnobBlock, CExtKnobBlock
// [SECTION] CVelocityBlock
// [SECTION] CKeyTrackBlock
// [SECTION] CAftertouchBlock, CModWheelBlock
#include "blocks/lfo_values.h"

#include <algorithm>
#include <cmath>

#include "engine/value_format.h"
#include "engine/vrok_instance.h"
#include "engine/wave_tables.h"

// [SECTION] Shared

namespace {
void FillActive(CAudioBlock& block, int voice, int numSamples, float value) {
    std::fill_n(block.output[voice], numSamples, value);
    block.active[voice] = 1;
}
}  // namespace

// [SECTION] CLFOBlock

namespace {
enum : int { kFrequency, kAmp, kShape, kLfoParamCount };

constexpr ParamRow kLfoRows[kLfoParamCount] = {
    // name        kind               default  value text
    {"Frequency", ParamKind::Slider, 0.6f, ValueText::Hertz},
    {"Amp", ParamKind::Slider, 0.1f, ValueText::Percent},
    {"Shape", ParamKind::Wave, 0.5f, ValueText::Empty},
};
constexpr int kLfoPorts = 2;
constexpr int kFrequencyPort = 0, kAmpPort = 1;
// A frequency input of 1.0 adds this much to the phase each sample.
constexpr float kFrequencyModScale = 524288.0f;
}  // namespace

CLFOBlock::CLFOBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    ConfigureFromRows(kLfoRows, kLfoPorts, kCategoryControllers, "LFO");
}

void CLFOBlock::ParameterChanged(int index) {
    const float v = values[index];
    if (index == kFrequency) {
        const double octaves = double(v * 60.0f * (1.0f / 12.0f));
        const double increment = std::pow(2.0, octaves) * 0.4296875 / double(sampleRate) * 4294967296.0 * 0.5;
        phaseIncrement.store(uint32_t(increment), std::memory_order_relaxed);
    } else if (index == kAmp) {
        amplitude.store(v * v, std::memory_order_relaxed);
    } else if (index == kShape) {
        waveform.store(std::clamp(int(std::nearbyint(v * 3.0f)), 0, kNumWaveforms - 1),
                       std::memory_order_relaxed);
    }
}

std::string CLFOBlock::DescribeValue(int index, float value) {
    return DescribeRowValue(kLfoRows, index, value, sampleRate);
}

void CLFOBlock::Work(int voice, int numSamples) {
    active[voice] = 1;
    const float amp = amplitude.load(std::memory_order_relaxed);
    if (amp == 0.0f) {
        active[voice] = 0;
        return;
    }
    const bool ampWired = PortConnected(kAmpPort);
    if (ampWired && !PortHasData(kAmpPort, voice)) return;
    const float* ampMod = ampWired ? ports[kAmpPort]->buffer[voice] : nullptr;
    const float* freqMod = PortConnected(kFrequencyPort) && PortHasData(kFrequencyPort, voice)
                               ? ports[kFrequencyPort]->buffer[voice]
                               : nullptr;
    const float* table = NoteTables::Get(waveform.load(std::memory_order_relaxed), 0);
    const uint32_t increment = phaseIncrement.load(std::memory_order_relaxed);
    uint32_t p = phase[voice];
    float* out = output[voice];
    for (int i = 0; i < numSamples; ++i) {
        p += increment;
        if (freqMod) {
            // Truncated to a signed word; what cannot be one (NaN, huge) adds nothing.
            const float m = freqMod[i] * kFrequencyModScale;
            if (m > -2147483648.0f && m < 2147483648.0f) p += uint32_t(int32_t(m));
        }
        const float s = table[p >> 21];
        out[i] = ampMod ? ampMod[i] * amp * s : s * amp;
    }
    phase[voice] = p;
}

// [SECTION] CRandomBlock

CRandomBlock::CRandomBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    Configure(0, 0, kCategoryControllers, "|Random");
}

int CRandomBlock::NextRandom() {
    seed = seed * 214013u + 2531011u;
    return int((seed >> 16) & 0x7FFF);
}

void CRandomBlock::NoteOn(int, int voice) {
    if (voice < 0 || voice >= kMaxVoices) return;
    value[voice] = float(NextRandom()) * 0.00006103702f - 1.0f;
}

void CRandomBlock::Work(int voice, int numSamples) { FillActive(*this, voice, numSamples, value[voice]); }

// [SECTION] CKnobBlock, CExtKnobBlock

namespace {
constexpr ParamRow kKnobRows[] = {
    {"value", ParamKind::Knob, 0.5f, ValueText::Bipolar},
};

constexpr int kKnobTypes[kNumExtKnobs] = {13, 14, 15, 16, 28, 29, 30, 31};
}  // namespace

CKnobBlock::CKnobBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    ConfigureFromRows(kKnobRows, 0, kCategoryControllers, "Knob");
}

void CKnobBlock::ParameterChanged(int index) {
    if (index != 0) return;
    const float x = (values[0] - 0.5f) * 2.0f;
    knobValue.store(x < 0.0f ? -x * x : x * x, std::memory_order_relaxed);
}

std::string CKnobBlock::DescribeValue(int index, float value) {
    return DescribeRowValue(kKnobRows, index, value, sampleRate);
}

void CKnobBlock::Work(int voice, int numSamples) {
    FillActive(*this, voice, numSamples, knobValue.load(std::memory_order_relaxed));
}

CExtKnobBlock::CExtKnobBlock(VrokInstance* engine, float sampleRate, int knob)
    : CKnobBlock(engine, sampleRate), knobNumber(kKnobTypes[std::clamp(knob, 0, kNumExtKnobs - 1)]) {
    name = "ExtKnob T";
}

// [SECTION] CVelocityBlock

namespace {
constexpr int kVelocityGlide = 40;
}

CVelocityBlock::CVelocityBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    Configure(0, 0, kCategoryControllers, "|Velocity");
}

void CVelocityBlock::NoteOn(int velocity, int voice) {
    const int v = monophonic ? 0 : voice;
    if (v < 0 || v >= kMaxVoices) return;
    const float amount = float(velocity) * (1.0f / 127.0f);
    target[v] = amount * amount;
    remaining[v] = kVelocityGlide;
    step[v] = (target[v] - current[v]) * 0.025f;
}

void CVelocityBlock::Work(int voice, int numSamples) {
    float* out = output[voice];
    for (int i = 0; i < numSamples; ++i) {
        if (remaining[voice] != 0) {
            --remaining[voice];
            current[voice] += step[voice];
        }
        out[i] = current[voice];
    }
    active[voice] = 1;
}

// [SECTION] CKeyTrackBlock

namespace {
struct KeyTrackRows {
    ParamRow rows[CKeyTrackBlock::kKeys];
    // A rising line from -1 at key 0 to 1 at key 127.
    constexpr KeyTrackRows() : rows() {
        for (int i = 0; i < CKeyTrackBlock::kKeys; ++i)
            rows[i] = {"v", ParamKind::Hidden, float(i) / 127.0f, ValueText::Empty};
    }
};
constexpr KeyTrackRows kKeyTrackRows;
}  // namespace

CKeyTrackBlock::CKeyTrackBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    std::fill(std::begin(note), std::end(note), 80.0f);
    ConfigureFromRows(kKeyTrackRows.rows, 0, kCategoryControllers, "|Keytrack");
}

void CKeyTrackBlock::ParameterChanged(int index) {
    if (index < 0 || index >= kKeys) return;
    keyValue[index].store(values[index] * 2.0f - 1.0f, std::memory_order_relaxed);
}

int CKeyTrackBlock::KeyIndex(float pitch) {
    const float key = std::floor(pitch);
    if (!(key >= 0.0f)) return 0;
    return key > float(kKeys - 1) ? kKeys - 1 : int(key);
}

void CKeyTrackBlock::SetNote(float pitch, float, int voice) {
    if (voice < 0 || voice >= kMaxVoices) return;
    note[voice] = pitch;
    currentKeyValue[voice] = keyValue[KeyIndex(pitch)].load(std::memory_order_relaxed);
}

void CKeyTrackBlock::Work(int voice, int numSamples) {
    FillActive(*this, voice, numSamples, keyValue[KeyIndex(note[voice])].load(std::memory_order_relaxed));
}

// [SECTION] CAftertouchBlock, CModWheelBlock

CAftertouchBlock::CAftertouchBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    monophonic = true;
    Configure(0, 0, kCategoryControllers, "|Aftertouch");
}

void CAftertouchBlock::PrepareBlock(int numSamples) {
    CAudioBlock::PrepareBlock(numSamples);
    knobValue = engine->aftertouch;
}

void CAftertouchBlock::Work(int voice, int numSamples) { FillActive(*this, voice, numSamples, knobValue); }

CModWheelBlock::CModWheelBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    monophonic = true;
    Configure(0, 0, kCategoryControllers, "|ModWheel");
}

void CModWheelBlock::PrepareBlock(int numSamples) {
    CAudioBlock::PrepareBlock(numSamples);
    knobValue = engine->modWheel;
}

void CModWheelBlock::Work(int voice, int numSamples) { FillActive(*this, voice, numSamples, knobValue); }
