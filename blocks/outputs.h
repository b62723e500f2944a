// The blocks that end a chain: they sum every voice into a mono or stereo mix and add it
// to the engine's output rows through a soft knee. Voices are summed first so the volume
// and the knee run once per sample of the mix, not once per voice.
#pragma once

#include <atomic>
#include <string>

#include "engine/audio_block.h"

// What both output blocks are, beside being blocks.
class COutputCommon {
public:
    virtual ~COutputCommon() = default;
};

// The soft knee at `scale` (k): |s| below k passes; above, it bends along a cubic into a
// hard limit of 2k - 1 (63999 at 32000), keeping the sign. The curve runs through
// h = 1 - k, which is negative at any scale above 1; that is what turns it downward.
float OutputKnee(float s, float scale);

// Mono output: the same signal to both channels. Port 0 is the signal.
class COutputBlock : public CAudioBlock, public COutputCommon {
public:
    COutputBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return false; }
    std::string DescribeValue(int index, float value) override;
    // Clears the mix and the port, turns the last block's peak into the meter, resets it.
    void PrepareBlock(int numSamples) override;
    // Adds one voice to the mix; the voice counts as sounding while its input is written.
    void Work(int voice, int numSamples) override;
    // Adds the mix to both host rows. Skipped off every chain, with a zero peak, or with no
    // samples, so a silent block leaves the rows exactly as they were.
    void OutputWork(StereoBuffers buffers, int numSamples, float scale) override;
    float GetLevel() override { return meterLevel; }

    float mixBuffer[kMaxFrames] = {};
    float peak = 0.0f;  // largest magnitude of the running sum this sample block
    std::atomic<float> meterLevel{0.0f};
    // Set whenever Work runs; a panel may read and clear it.
    std::atomic<bool> displayChanged{false};
};

// Stereo output placed by the equal-power pan law. Port 0 is the signal, port 1 is added
// to "pan" per sample (clamped to 0..1).
class CPanOutputBlock : public CAudioBlock, public COutputCommon {
public:
    CPanOutputBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;
    void OutputWork(StereoBuffers buffers, int numSamples, float scale) override;
    float GetLevel() override { return meterLevel; }

    float mixLeft[kMaxFrames] = {};
    float mixRight[kMaxFrames] = {};
    // Unlike the mono block's, this is the peak of single voices, not of their sum.
    float peak = 0.0f;
    std::atomic<float> meterLevel{0.0f};
    std::atomic<bool> displayChanged{false};
    std::atomic<float> gainLeft{0.5f};
    std::atomic<float> gainRight{0.5f};
};
