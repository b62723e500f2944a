// The delay lines: a line per voice with feedback and a tail that rings on after the input
// stops. "Delay" takes a time in milliseconds; "|Delay" tunes the line to the played note,
// so with feedback it is a plucked string; "|Filterdelay" adds a band-pass in the loop.
#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "blocks/filters.h"
#include "engine/audio_block.h"

// Just over a second of samples at the rate it was made for, zeroed. Made with the block,
// never resized: a later rate change only changes what the block asks of it.
struct VoiceDelayLine {
    explicit VoiceDelayLine(float sampleRate);

    // The cubic read `d` samples behind the write position, 4-point with the constants
    // 0.5, 1.5, 2, 2.5. The two upper neighbours wrap to slot 0 each on its own, so at the
    // last slot the farthest one reads slot 0, not slot 1. Delays beyond the line are held
    // inside it; NaN reads at the write position.
    float Read(double d) const;
    // Read at slot `i` with fraction `t`, neighbours wrapped as Read does.
    float ReadAt(int i, float t) const {
        const float ym = data[i == 0 ? size - 1 : i - 1];
        const float y0 = data[i];
        const float y1 = data[i + 1 < size ? i + 1 : 0];
        const float y2 = data[i + 2 < size ? i + 2 : 0];
        return Cubic(ym, y0, y1, y2, t);
    }
    static float Cubic(float ym, float y0, float y1, float y2, float t) {
        return (((1.5f * (y0 - y1) + 0.5f * (y2 - ym)) * t + (ym - 2.5f * y0 + 2.0f * y1 - 0.5f * y2)) * t +
                0.5f * (y1 - ym)) *
                   t +
               y0;
    }
    // Slot and fraction of a read `d` behind the write position.
    void Locate(double d, int* slot, float* fraction) const;
    // Stores `value` at the write position and moves on.
    void Write(float value) {
        data[write] = value;
        if (++write == size) write = 0;
    }

    int size;
    std::unique_ptr<float[]> data;
    int write = 0;
};

// Ports: 0 signal, 1 time modulation (1.0 adds 2.5 ms), 2 feedback modulation. The output
// is the delayed signal alone.
class CDelayBlock : public CAudioBlock {
public:
    CDelayBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;

    std::atomic<float> feedbackGain{0.0f};
    std::atomic<float> delaySamples{0.0f};
    int silentSamples[kMaxVoices] = {};
    std::unique_ptr<VoiceDelayLine> lines[kMaxVoices];
    float currentDelay[kMaxVoices] = {};
    float tailSamples[kMaxVoices] = {};
    float delayStep[kMaxVoices] = {};
    int rampCount[kMaxVoices] = {};
    float modScale;

protected:
    // Samples a tail needs for `voice` to fall by 60 dB; read when input arrives.
    virtual float TailTarget(int voice) const { return tailTarget.load(std::memory_order_relaxed); }
    // The lines and fields without the parameter table: the block that is finally made
    // configures, so that its own ParameterChanged cooks the defaults.
    CDelayBlock(VrokInstance* engine, float sampleRate, bool tracked);

    std::atomic<float> tailTarget{0.0f};
    // The line's loop runs through `sections` (the filter delay's band-passes).
    bool filtered = false;
    BiquadRecord sections[kMaxVoices];

private:
    // The sample loop of Work; `in` null feeds silence.
    void Run(int voice, const float* in, int numSamples);
    // Run's samples while the delay holds still: the read slot moves with the write slot
    // and the fraction stays, so stretches away from the line's ends read first and store
    // after, which the compiler can vectorise. The same samples as the general loop.
    void RunSteady(int voice, const float* in, const float* feedbackMod, float d, int numSamples);
};

// The line tuned to the voice's note: "Time" is an offset of -12..12 semitones, and a new
// note glides to its delay in 12.5 ms. Each voice keeps its own tail target.
class CTrackDelayBlock : public CDelayBlock {
public:
    CTrackDelayBlock(VrokInstance* engine, float sampleRate);

    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void SetNote(float pitch, float velocity, int voice) override;

    float pitch[kMaxVoices] = {};
    float voiceTailTarget[kMaxVoices] = {};

protected:
    CTrackDelayBlock(VrokInstance* engine, float sampleRate, bool filter);
    float TailTarget(int voice) const override { return voiceTailTarget[voice]; }
    // Recomputes the voice's delay, ramp and tail target from its pitch.
    virtual void Retune(int voice);
};

// The tracked line with a band-pass in its loop, centred by "Cutoff" relative to the note.
class CFilterDelayBlock : public CTrackDelayBlock {
public:
    CFilterDelayBlock(VrokInstance* engine, float sampleRate);

    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;

protected:
    void Retune(int voice) override;
    // The band-pass of `voice` for its pitch and the stored "Cutoff".
    void DesignSection(int voice);
};
