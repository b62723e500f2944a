// Noise, impulse and the two input blocks.
//
// [SECTION] CNoiseBlock
// [SECTION] CImpulseBlock
// [SECTION] CInputBlock
// [SECTION] CInputPanBlock
#include "blocks/sources.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "blocks/pan_law.h"

// [SECTION] CNoiseBlock

namespace {
constexpr ParamRow kNoiseRows[] = {
    // name          kind              default  value text
    {"Amplitude", ParamKind::Slider, 0.5f, ValueText::DecibelsOfSquare},
};

// 2 / 32767: maps 0..32767 onto -1..1.
constexpr double kNoiseScale = 0.00006103702;
}  // namespace

CNoiseBlock::CNoiseBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    ConfigureFromRows(kNoiseRows, PortsFor(1), kCategorySources, "Noise");
}

void CNoiseBlock::ParameterChanged(int index) {
    if (index == 0) amplitude.store(values[0] * values[0], std::memory_order_relaxed);
}

std::string CNoiseBlock::DescribeValue(int index, float value) {
    return DescribeRowValue(kNoiseRows, index, value, sampleRate);
}

void CNoiseBlock::PrepareBlock(int numSamples) {
    if (seededSlot != index) {
        seededSlot = index;
        generator.Seed(uint32_t(index + 2) * 2654435761u);
    }
    for (int i = 0; i < numSamples; ++i) noiseRow[i] = float(generator.Next() * kNoiseScale - 1.0);
    CAudioBlock::PrepareBlock(numSamples);
}

void CNoiseBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    float amp = amplitude.load(std::memory_order_relaxed);
    if (!(amp > 0.0f)) return;
    float* __restrict out = output[voice];
    if (!PortConnected(0)) {
        for (int i = 0; i < numSamples; ++i) out[i] = noiseRow[i] * amp;
    } else if (PortHasData(0, voice)) {
        const float* __restrict in = ports[0]->buffer[voice];
        for (int i = 0; i < numSamples; ++i) out[i] = amp * noiseRow[i] * in[i];
    } else {
        return;
    }
    active[voice] = 1;
}

// [SECTION] CImpulseBlock

namespace {
constexpr ParamRow kImpulseRows[] = {
    // name    kind              default  value text
    {"Amp", ParamKind::Slider, 1.0f, ValueText::DecibelsOfSquare},
};
}  // namespace

CImpulseBlock::CImpulseBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    ConfigureFromRows(kImpulseRows, PortsFor(1), kCategorySources, "|Impulse");
}

void CImpulseBlock::ParameterChanged(int index) {
    if (index == 0) amplitude.store(values[0] * values[0], std::memory_order_relaxed);
}

std::string CImpulseBlock::DescribeValue(int index, float value) {
    return DescribeRowValue(kImpulseRows, index, value, sampleRate);
}

void CImpulseBlock::NoteOn(int, int voice) { trigger[voice] = 1; }

void CImpulseBlock::Work(int voice, int numSamples) {
    if (!trigger[voice]) {
        active[voice] = 0;
        return;
    }
    trigger[voice] = 0;
    float amp = amplitude.load(std::memory_order_relaxed);
    // A wired port without data for the voice still lets the plain click through.
    float first = (PortConnected(0) && PortHasData(0, voice)) ? ports[0]->buffer[voice][0] * amp : amp;
    output[voice][0] = first;
    std::fill(output[voice] + 1, output[voice] + numSamples, 0.0f);
    active[voice] = 1;
}

// [SECTION] CInputBlock

namespace {
constexpr ParamRow kInputRows[] = {
    // name       kind              default  value text
    {"Volume", ParamKind::Slider, 0.5f, ValueText::DecibelsOfSquare},
};
}  // namespace

CInputBlock::CInputBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasInputWork = true;
    ConfigureFromRows(kInputRows, PortsFor(1), kCategorySources, "Input");
}

std::string CInputBlock::DescribeValue(int index, float value) {
    return DescribeRowValue(kInputRows, index, value, sampleRate);
}

void CInputBlock::PrepareBlock(int numSamples) {
    std::fill(output[0], output[0] + numSamples, 0.0f);
    CAudioBlock::PrepareBlock(numSamples);
    float volume = values[0];
    meterLevel.store(inputLevel * (volume * volume), std::memory_order_relaxed);
}

void CInputBlock::InputWork(StereoBuffers buffers, int numSamples, float scale) {
    if (disconnected) return;
    float toUnit = 0.5f / scale;
    float level = 0.0f;
    for (int i = 0; i < numSamples; ++i) {
        float x = (buffers.left[i] + buffers.right[i]) * toUnit;
        inputRow[i] = x;
        level += std::fabs(x);
    }
    inputLevel = level / float(numSamples);
}

void CInputBlock::Work(int voice, int numSamples) {
    // The block answers as monophonic, so the row is voice 0's. Fed by a polyphonic volume
    // source it runs per voice, and every voice then adds into that same row.
    float* __restrict out = output[0];
    float volume = values[0];
    if (PortConnected(0) && inputLevel > 0.0f) {
        if (!PortHasData(0, voice)) {
            active[voice] = 0;
            return;
        }
        const float* __restrict in = ports[0]->buffer[voice];
        for (int i = 0; i < numSamples; ++i) {
            float gain = in[i] + volume;  // added before squaring: a negative sum still gains
            out[i] += gain * gain * inputRow[i];
        }
        active[voice] = 1;
    } else if (inputLevel != 0.0f) {
        float gain = volume * volume;
        for (int i = 0; i < numSamples; ++i) out[i] += inputRow[i] * gain;
        active[voice] = 1;
    } else {
        active[voice] = 0;
    }
}

// [SECTION] CInputPanBlock

namespace {
enum : int { kPan, kVolume, kPanParamCount };

constexpr ParamRow kInputPanRows[kPanParamCount] = {
    // name       kind              default  value text
    {"Pan", ParamKind::Slider, 0.5f, ValueText::Pan},
    {"Volume", ParamKind::Slider, 0.5f, ValueText::DecibelsOfSquare},
};

// Per-sample gains from a pan port: the stored pan plus the port, clamped to 0..1.
PanGains ModulatedGains(float storedPan, float portSample) {
    return PanGainsForValue(std::clamp(portSample + storedPan, 0.0f, 1.0f));
}
}  // namespace

CInputPanBlock::CInputPanBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasInputWork = true;
    ConfigureFromRows(kInputPanRows, PortsFor(kPanParamCount), kCategorySources, "Stereo Input");
}

void CInputPanBlock::ParameterChanged(int index) {
    if (index != kPan) return;
    PanGains gains = PanGainsForValue(values[kPan]);
    leftGain.store(gains.left, std::memory_order_relaxed);
    rightGain.store(gains.right, std::memory_order_relaxed);
}

std::string CInputPanBlock::DescribeValue(int index, float value) {
    return DescribeRowValue(kInputPanRows, index, value, sampleRate);
}

void CInputPanBlock::PrepareBlock(int numSamples) {
    std::fill(output[0], output[0] + numSamples, 0.0f);
    CAudioBlock::PrepareBlock(numSamples);
    float volume = values[kVolume];
    meterLevel.store(inputLevel * (volume * volume), std::memory_order_relaxed);
}

void CInputPanBlock::InputWork(StereoBuffers buffers, int numSamples, float scale) {
    if (disconnected) return;
    float toUnit = 1.0f / scale;
    float level = 0.0f;
    for (int i = 0; i < numSamples; ++i) {
        float l = buffers.left[i] * toUnit;
        float r = buffers.right[i] * toUnit;
        leftRow[i] = l;
        rightRow[i] = r;
        // The root of l * r is NaN when the channels disagree in sign, and the level then
        // stays NaN for the buffer. Work reads that as "some input"; keep the formula.
        level += std::sqrt(l * r);
        level += std::sqrt(r * r);
    }
    inputLevel = level / float(numSamples * 2);
}

void CInputPanBlock::Work(int voice, int numSamples) {
    float* __restrict out = output[0];
    float storedPan = values[kPan];
    float volume = values[kVolume];
    bool panCounts = PortConnected(0) && PortHasData(0, voice);
    const float* panIn = ports[0]->buffer[voice];
    const float* volumeIn = ports[1]->buffer[voice];
    float lg = leftGain.load(std::memory_order_relaxed);
    float rg = rightGain.load(std::memory_order_relaxed);

    bool volumeCounts;
    if (PortConnected(1) && inputLevel > 0.0f) {
        if (!PortHasData(1, voice)) {
            active[voice] = 0;
            return;
        }
        volumeCounts = true;
    } else if (inputLevel != 0.0f) {
        volumeCounts = false;
    } else {
        active[voice] = 0;
        return;
    }

    for (int i = 0; i < numSamples; ++i) {
        if (panCounts) {
            PanGains g = ModulatedGains(storedPan, panIn[i]);
            lg = g.left;
            rg = g.right;
        }
        float v = volumeCounts ? volumeIn[i] + volume : volume;
        out[i] += (rightRow[i] * rg + leftRow[i] * lg) * (v * v);
    }
    active[voice] = 1;
}
