// Blocks that turn a signal into control: an envelope fired by level, a slewed level above
// a threshold, a note played into the whole patch by the machine's input, and a smoothed
// level meter. The first two and the tracker follow each voice apart when fed per voice.
#pragma once

#include <atomic>
#include <cmath>
#include <string>

#include "blocks/envelopes.h"
#include "engine/audio_block.h"

// Mean square through a first-order low-pass at a fixed cut-off; the level is its root.
struct LevelDetector {
    LevelDetector() = default;
    LevelDetector(float cutoffHz, float sampleRate);

    float Step(float square) {
        const float y = (lastSquare + square) * a - b * lastLevel;
        lastSquare = square;
        lastLevel = y;
        return std::sqrt(y);
    }

    float a = 0.0f, b = 0.0f, lastSquare = 0.0f, lastLevel = 0.0f;
};

// An attack-hold-sustain-release envelope that starts when the input's level rises above
// "Trig. Level" and releases when it falls below "Rel. Level". Port 0 the signal.
class CEnvelopeFollower : public CAudioBlock {
public:
    CEnvelopeFollower(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;
    float GetLevel() override { return lastLevel[0]; }

    std::atomic<float> pregain{0.0f}, triggerLevel{0.0f}, releaseLevel{0.0f}, modScale{0.0f};
    LevelDetector detectors[kMaxVoices];
    EnvelopeState states[kMaxVoices];
    // For the display: the last level and output of each voice.
    float lastLevel[kMaxVoices] = {}, lastOutput[kMaxVoices] = {};
};

// The level above "Thres. Level", scaled by the range up to "Thres. Ratio" and slewed by
// "Attack" and "Release". Port 0 the signal.
class CDynamicsFollower : public CAudioBlock {
public:
    CDynamicsFollower(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;
    float GetLevel() override { return lastLevel[0]; }

    std::atomic<float> pregain{0.0f}, attackSlope{0.0f}, releaseSlope{0.0f};
    std::atomic<float> thresholdLevel{0.0f}, rangeScale{0.0f}, modScale{0.0f};
    LevelDetector detectors[kMaxVoices];
    float envelope[kMaxVoices] = {};
    float lastLevel[kMaxVoices] = {};
};

// Plays note 60 into the whole patch each time the machine's input rises above
// "Trig. Level", and releases it when the level falls below "Rel. Level". The one block
// that takes the engine lock from the audio thread: the machine holds its own lock around
// the inputs, and the engine lock always comes second.
class CGlobalEnvTriggerBlock : public CAudioBlock {
public:
    static constexpr int kNote = 60;

    CGlobalEnvTriggerBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return false; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void InputWork(StereoBuffers buffers, int numSamples, float scale) override;
    void Work(int, int) override {}
    float GetLevel() override { return lastLevel.load(std::memory_order_relaxed); }

    std::atomic<float> prescale{0.0f}, triggerLevel{0.0f}, releaseLevel{0.0f};
    LevelDetector detector;
    bool triggered = false;
    std::atomic<float> lastLevel{0.0f};
};

// A smoothed level: mean square with the "Decay" time, or a peak hold with that decay.
// Port 0 the signal. It rings down after the input stops.
class CVUTrackerBlock : public CAudioBlock {
public:
    CVUTrackerBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    std::atomic<float> decay{0.0f};
    std::atomic<bool> peakMode{false};
    float power[kMaxVoices] = {};
};
