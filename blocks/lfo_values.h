// The small control sources: a free-running LFO, a random value per note, knobs (the
// patch's own and the host's eight), velocity, a drawn key-tracking curve, aftertouch and
// the mod wheel. Each fills an ordinary row; a controller is just a block whose row is slow.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "engine/audio_block.h"

// Sine, triangle, saw or pulse read from the first float table, uninterpolated. Ports:
// 0 frequency modulation (1.0 adds 2^19 to the phase step), 1 amplitude modulation. The
// phase runs free across notes and is never reset.
class CLFOBlock : public CAudioBlock {
public:
    CLFOBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    // A connected but silent amplitude port leaves the row as the last call left it,
    // still active: patches rely on that.
    void Work(int voice, int numSamples) override;

    std::atomic<float> amplitude{0.0f};
    std::atomic<int> waveform{0};
    std::atomic<uint32_t> phaseIncrement{0};
    uint32_t phase[kMaxVoices] = {};
};

// A value in -1..1 drawn at each note and held until the next, per voice.
class CRandomBlock : public CAudioBlock {
public:
    CRandomBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return true; }
    std::string DescribeValue(int, float) override { return {}; }
    void NoteOn(int velocity, int voice) override;
    void Work(int voice, int numSamples) override;

    float value[kMaxVoices] = {};

private:
    // The classic rand() recurrence, 0..32767: one per block, so no shared state.
    int NextRandom();
    uint32_t seed = 1;
};

// One value, straight -1..1 on the display but a signed square at the output.
class CKnobBlock : public CAudioBlock {
public:
    CKnobBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return false; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    std::atomic<float> knobValue{0.0f};
};

// A knob the host moves: knobs 0..7 are block types 13..16 and 28..31.
class CExtKnobBlock : public CKnobBlock {
public:
    CExtKnobBlock(VrokInstance* engine, float sampleRate, int knob);

    int knobNumber;
};

// The voice's note velocity, squared, gliding in over 40 samples from its last note's.
class CVelocityBlock : public CAudioBlock {
public:
    CVelocityBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return true; }
    std::string DescribeValue(int, float) override { return {}; }
    void NoteOn(int velocity, int voice) override;
    void Work(int voice, int numSamples) override;

    float current[kMaxVoices] = {}, step[kMaxVoices] = {}, target[kMaxVoices] = {};
    int remaining[kMaxVoices] = {};
};

// A drawn value per key, -1..1; its 128 points are the block's parameters, so they are
// saved with the patch. Keys step without interpolation, and a redrawn curve acts at once.
class CKeyTrackBlock : public CAudioBlock {
public:
    static constexpr int kKeys = 128;

    CKeyTrackBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return true; }
    std::string DescribeValue(int, float) override { return {}; }
    void ParameterChanged(int index) override;
    void SetNote(float pitch, float velocity, int voice) override;
    void Work(int voice, int numSamples) override;

    // Pitches outside the table read its ends; NaN reads key 0.
    static int KeyIndex(float pitch);

    std::atomic<float> keyValue[kKeys];
    float note[kMaxVoices];
    float currentKeyValue[kMaxVoices] = {};
};

// The engine's channel pressure, 0..1, taken once per sample block.
class CAftertouchBlock : public CAudioBlock {
public:
    CAftertouchBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return false; }
    std::string DescribeValue(int, float) override { return {}; }
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;

    float knobValue = 0.0f;
};

// The engine's mod wheel, 0..1, taken once per sample block.
class CModWheelBlock : public CAudioBlock {
public:
    CModWheelBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return false; }
    std::string DescribeValue(int, float) override { return {}; }
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;

    float knobValue = 0.0f;
};
