// Blocks that change each sample of a voice on its own: a drawn transfer curve, a clipper,
// a bit crusher, a rescaler, the amplifier, an inverter and a crossfader. Only the
// waveshaper keeps state, in its smoothing section.
//
// A port "counts" for a voice when it is wired and written for that voice.
#pragma once

#include <atomic>
#include <string>

#include "blocks/filters.h"
#include "engine/audio_block.h"

// A 128-point drawn transfer curve; "Scale" picks how much of it the input spans and
// "Offset" where, and the piece is stretched to full range around the curve's value at
// the offset, so silence stays silence. The points are parameters 2..129. Ports: 0 signal,
// 1 scale, 2 offset. A fixed half-band low-pass, run twice per sample, smooths the result.
class CWaveShaper : public CAudioBlock {
public:
    static constexpr int kPoints = 128;
    static constexpr int kFirstPoint = 2;

    CWaveShaper(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    // Always writes, zeros when the signal is silent.
    void Work(int voice, int numSamples) override;

    // The curve read at `position`, clamped to 0..127, between neighbouring points.
    float Lookup(float position) const;

    float shapeTable[kPoints + 1] = {};  // the last entry repeats point 127
    std::atomic<float> lookupScale{0.0f};
    std::atomic<float> lookupOffset{0.0f};
    std::atomic<float> outputScale{1.0f};
    BiquadRecord sections[kMaxVoices];
};

// Limits the signal to "Lower limit".."Upper limit" (each -1..1); ports 1 and 2 move the
// limits. With no signal it sends the value silence would be clipped to, if not 0.
class CClipperBlock : public CAudioBlock {
public:
    CClipperBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    std::atomic<float> upperLimit{1.0f};
    std::atomic<float> lowerLimit{-1.0f};
    // min(upper, max(lower, 0)) and whether it is not 0; both stored after the limits.
    std::atomic<float> restValue{0.0f};
    std::atomic<bool> restIsSet{false};
};

// Removes up to 20 bits, with fractional depths crossfaded between the two neighbours.
// Port 1 adds to "Bits". "Bits" 0 still quantises to 20 bits.
class CBitCrusherBlock : public CAudioBlock {
public:
    CBitCrusherBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void Work(int voice, int numSamples) override;
};

// One sample through the crusher at a "Bits" value. Samples beyond +-2048 overflow the
// integer conversion as the processor's does; nothing saturates them.
float CrushSample(float x, float bitsValue);

// y = x "factor" + "offset", factor and offset each -1..1. Port 1 multiplies the scaled
// signal, port 2 adds. Without a signal it sends the offset, unless that is about 0.
class CRescaleBlock : public CAudioBlock {
public:
    CRescaleBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int, float) override { return {}; }
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    std::atomic<float> factor{1.0f};
    std::atomic<float> offset{0.0f};
};

// The amplifier: gain "Factor" squared times 2. Port 1, once wired, multiplies by its
// sample clamped to -1..1 and squared with its sign, and a voice it does not write is
// silent: this is where an envelope ends a note.
class CAmpBlock : public CAudioBlock {
public:
    CAmpBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    std::atomic<float> gain{0.5f};
};

// Flips the sign of the signal.
class CInvertBlock : public CAudioBlock {
public:
    CInvertBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int, float) override { return {}; }
    void Work(int voice, int numSamples) override;
};

// Mixes signal 1 (port 0) and signal 2 (port 1) by "X", which port 2 moves. "Audio" mode
// takes square roots of the balance, keeping the power of uncorrelated audio; off, the
// sum stays linear, as control signals want.
class CCrossfadeBlock : public CAudioBlock {
public:
    CCrossfadeBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    // The two gains at `balance` in either mode.
    void GainsAt(float balance, bool audio, float& g1, float& g2) const;

    std::atomic<float> amp1{1.0f};
    std::atomic<float> amp2{1.0f};
    std::atomic<float> balance{0.5f};
    std::atomic<bool> audioMode{true};
    // Both sets ready, so no square root is taken per sample unless X is modulated.
    std::atomic<float> linearGain1{0.5f}, linearGain2{0.5f};
    std::atomic<float> rootGain1{0.0f}, rootGain2{0.0f};
};
