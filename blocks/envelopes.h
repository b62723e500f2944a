// The note-driven control sources: a straight-line ADSR, an ADSR along drawn curves, and a
// freely drawn 192-point curve. They write full audio-rate rows from 0 to 1 (or -1 to 1),
// and a voice whose envelope is idle reports nothing, which is how the engine frees it.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "engine/audio_block.h"

enum EnvelopeStage : uint8_t { kStageIdle = 0, kStageAttack, kStageDecay, kStageSustain, kStageRelease };

// One voice of the straight-line ADSR. Stage lengths follow EnvelopeLengthSamples at `rate`
// and read the block's live parameters through the pointers, so a knob moved mid-note
// takes effect at the next stage. Also the state of the envelope follower.
struct EnvelopeState {
    float rate = 44100.0f;  // taken at construction; a later change of rate is not seen
    const float* attack = nullptr;
    const float* decay = nullptr;
    const float* sustain = nullptr;
    const float* release = nullptr;
    float value = 0.0f;
    float delta = 0.0f;
    int total = 0;
    int remaining = 0;
    uint8_t stage = kStageIdle;

    // Into attack: the full attack length from wherever the level stands.
    void Start();
    // Into release from the present level; idle stays idle.
    void Release();
    // One sample: add delta, count down, change stage at the end of one. The level is not
    // snapped to "Sustain" at the end of decay, and a level at or below 0.001 there ends
    // the envelope.
    float Step();
    // Fills out[0..n): the steps while not idle, zeros after the envelope ends.
    // Audio thread; the same samples as n calls of Step.
    void Render(float* out, int n);
    // Render of `count` states at once, each into its own row, sample for sample the same
    // as one call each. The levels of different voices are independent additions, so
    // running them side by side hides the latency of each. Audio thread.
    static void RenderTogether(EnvelopeState* const* states, float* const* out, int count, int n);

private:
    bool IsRamping() const { return stage == kStageAttack || stage == kStageDecay || stage == kStageRelease; }
    void EnterStage();
};

// Straight-line attack, decay, sustain and release. No ports. "Velocity" feeds only the
// level the envelope display draws: a velocity-shaped envelope is built in the patch.
class CEnvelopeBlock : public CAudioBlock {
public:
    CEnvelopeBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return true; }
    std::string DescribeValue(int index, float value) override;
    void NoteOn(int velocity, int voice) override;
    void NoteOff(int voice) override;
    // The first voice's call renders every sounding voice side by side; the others then
    // find their rows done.
    void Work(int voice, int numSamples) override;

    EnvelopeState states[kMaxVoices];
    // For the envelope display only; written on the audio side, read without a lock.
    float noteAttack[kMaxVoices] = {}, noteDecay[kMaxVoices] = {};
    float noteSustain[kMaxVoices] = {}, noteRelease[kMaxVoices] = {};
    float velocityAmount[kMaxVoices] = {};
    float noteVelocityAmount[kMaxVoices] = {};
    float releasePosition[kMaxVoices] = {};
    int releaseStage[kMaxVoices] = {};
    float lastLevel[kMaxVoices] = {};

private:
    // What Work does after the level is rendered: the flags and the displayed level.
    void Finish(int voice, int numSamples);

    bool doneTogether[kMaxVoices] = {};
};

// A cubic Bezier stage curve: four points, end points fixed by the stage.
struct CurvePoint {
    float x, y;
};

constexpr int kCurveSize = 1024;

// The curves of one voice of CAdvancedEnvelope and the per-block modulation it reads.
// Every voice holds an equal copy. Each table has a guard entry repeating its last value,
// so a read at the very end stays inside.
struct StageCurves {
    float attackCurve[kCurveSize + 1] = {};
    float decayCurve[kCurveSize + 1] = {};
    float unusedCurve[kCurveSize + 1] = {};  // a sustain curve was planned; nothing reads it
    float releaseCurve[kCurveSize + 1] = {};
    const float* attack = nullptr;
    const float* decay = nullptr;
    const float* sustain = nullptr;
    const float* release = nullptr;
    const float* sustainDecay = nullptr;
    float attackRate = 0.0f, decayRate = 0.0f, driftRate = 0.0f, releaseRate = 0.0f;
    float attackMod = 0.0f, decayMod = 0.0f, sustainMod = 0.0f, releaseMod = 0.0f;
    CurvePoint attackPoints[4] = {{0, 0}, {0, 0.5f}, {0.5f, 1}, {1, 1}};
    CurvePoint decayPoints[4] = {{0, 1}, {0, 0.5f}, {0.5f, 0}, {1, 0}};
    CurvePoint releasePoints[4] = {{0, 1}, {0, 0.5f}, {0.5f, 0}, {1, 0}};
};

// Draws a Bezier curve into a 1024-entry table as at most 30 chords, x scaled by 1024.
// Entries no chord reaches keep their values; a curve doubling back overwrites itself.
void RasteriseCurve(const CurvePoint (&points)[4], float* table);
// Linear read at u in 0..1 over 1023 steps; past the end it holds the last entry.
float ReadCurve(const float* table, float u);

// One voice of CAdvancedEnvelope: `progress` and the rates steer it; `delta`, `total` and
// `remaining` are kept for the display and steer nothing.
struct AdvancedEnvelopeState {
    float rate = 44100.0f;
    float drift = 0.0f;
    float sustainLevel = 0.0f;
    StageCurves* curves = nullptr;
    float progress = 0.0f;
    float startLevel = 0.0f;
    float value = 0.0f;
    float delta = 0.0f;
    int total = 0;
    int remaining = 0;
    uint8_t stage = kStageIdle;

    // The rate of the running stage, from the live parameters and this block's mods.
    // Sums of stored value and modulation are not clamped: a negative one has no length.
    void ComputeRate();
    float Step();
};

// The ADSR along drawn curves. Ports 0..3 modulate attack, decay, sustain and release
// (the first sample of each block counts); port 4 multiplies the output. "Sustain decay"
// lets the sustain fall to silence, which ends the voice, or rise to full scale.
class CAdvancedEnvelope : public CAudioBlock {
public:
    CAdvancedEnvelope(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return true; }
    std::string DescribeValue(int index, float value) override;
    void NoteOn(int velocity, int voice) override;
    void NoteOff(int voice) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    // Copies the stored points of one stage into every voice and redraws that curve.
    void RebuildCurve(int firstIndex);

    StageCurves curves[kMaxVoices];
    AdvancedEnvelopeState states[kMaxVoices];
    std::atomic<float> amountScale{1.0f};
    // Modulated settings clamped to 0..1, for the display; rewritten at each Work.
    float noteAttack[kMaxVoices] = {}, noteDecay[kMaxVoices] = {};
    float noteSustain[kMaxVoices] = {}, noteRelease[kMaxVoices] = {};
};

// A 192-point drawn curve played at "Speed", with an optional loop and sustain point. The
// points are ordinary parameters 4..195, which is all their persistence. Port 0 modulates
// the speed. An idle voice keeps sending the last point unless it is exactly 0.
class CCustomEnvelopeBlock : public CAudioBlock {
public:
    static constexpr int kPoints = 192;
    static constexpr int kFirstPoint = 4;

    CCustomEnvelopeBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return true; }
    std::string DescribeValue(int index, float value) override;
    void NoteOn(int velocity, int voice) override;
    void NoteOff(int voice) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    // Curve points per sample at a "Speed" value: 192 / (15 samples(1 - speed)).
    float StepFor(float speed) const;

    // 192 points, curve[192] the wrap point (a copy of curve[0]) and a guard repeating it.
    float curve[kPoints + 2] = {};
    float position[kMaxVoices] = {};
    uint8_t released[kMaxVoices] = {};
    int stage[kMaxVoices] = {};  // 0 idle, 1 running, 2 held at sustain, 3 released
    std::atomic<float> stepPerSample{0.001f};
    std::atomic<bool> loop{false};
    std::atomic<bool> sustainOn{false};
    std::atomic<float> sustainPosition{0.0f};

private:
    float Read(float at) const;
};
