// Sources that are not oscillators: white noise, a one-sample click per note, and the two
// blocks that bring the host's input into the patch. The input blocks receive the host
// buffer through InputWork before the graph runs and keep a copy for Work.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "engine/audio_block.h"

// A small generator with the range of the classic C rand(): 0..32767. Each noise block
// owns one, so nothing is shared between blocks or engines.
struct NoiseGenerator {
    uint32_t state = 1;

    void Seed(uint32_t seed) { state = seed; }
    int Next() {
        state = state * 214013u + 2531011u;
        return int((state >> 16) & 0x7fffu);
    }
};

// White noise. All voices of a sample block read one shared row, so two voices of the
// same noise block are one signal. Port 0 modulates the amplitude; wired but silent for
// a voice, it silences that voice.
class CNoiseBlock : public CAudioBlock {
public:
    CNoiseBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    // Draws the sample block's noise row, then clears the port.
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;

    std::atomic<float> amplitude{0.0f};  // "Amplitude" squared
    float noiseRow[kMaxFrames] = {};
    NoiseGenerator generator;
    // The slot the generator was seeded for; a block reseeds from its slot on its first
    // sample block so that renders repeat and two noise blocks differ.
    int seededSlot = -2;
};

// One sample of click at the start of the first sample block after each NoteOn. Velocity
// plays no part. Port 0 scales the click when it carries data for the voice.
class CImpulseBlock : public CAudioBlock {
public:
    CImpulseBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return true; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void NoteOn(int velocity, int voice) override;
    void Work(int voice, int numSamples) override;

    std::atomic<float> amplitude{0.0f};  // "Amp" squared
    uint8_t trigger[kMaxVoices] = {};
};

// The host's input, left and right averaged, into the patch. Port 0 is added to "Volume"
// before squaring. Exactly silent input leaves the block inactive, so the patch behind it
// can rest.
class CInputBlock : public CAudioBlock {
public:
    CInputBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return false; }
    std::string DescribeValue(int index, float value) override;
    // Zeroes voice 0's row, clears the port and refreshes the meter.
    void PrepareBlock(int numSamples) override;
    // Adds into voice 0's row, whichever voice it is called for.
    void Work(int voice, int numSamples) override;
    // Before the graph, under the machine lock; skipped while the block is off every chain,
    // which then keeps its last level and row.
    void InputWork(StereoBuffers buffers, int numSamples, float scale) override;
    float GetLevel() override { return meterLevel; }

    float inputLevel = 0.0f;  // mean absolute input of the last buffer
    float inputRow[kMaxFrames] = {};
    std::atomic<float> meterLevel{0.0f};  // read by the panel without the lock
};

// The host's stereo input placed by an equal-power pan law. Port 0 is added to "Pan"
// (clamped to 0..1, per sample), port 1 to "Volume" before squaring.
class CInputPanBlock : public CAudioBlock {
public:
    CInputPanBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return false; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;
    void InputWork(StereoBuffers buffers, int numSamples, float scale) override;
    float GetLevel() override { return meterLevel; }

    float inputLevel = 0.0f;
    float leftRow[kMaxFrames] = {};
    float rightRow[kMaxFrames] = {};
    std::atomic<float> meterLevel{0.0f};  // read by the panel without the lock
    std::atomic<float> leftGain{0.5f};
    std::atomic<float> rightGain{0.5f};
};
