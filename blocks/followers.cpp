// The followers and triggers.
//
// [SECTION] LevelDetector
// [SECTION] CEnvelopeFollower
// [SECTION] CDynamicsFollower
// [SECTION] CGlobalEnvTriggerBlock
// [SECTION] CVUTrackerBlock
#include "blocks/followers.h"

#include <algorithm>
#include <numbers>

#include "engine/value_format.h"
#include "engine/vrok_instance.h"

// [SECTION] LevelDetector

LevelDetector::LevelDetector(float cutoffHz, float sampleRate) {
    const float k = std::tan(cutoffHz * std::numbers::pi_v<float> / (2.0f * sampleRate));
    a = k / (k + 1.0f);
    b = (k - 1.0f) / (k + 1.0f);
}

namespace {
constexpr int kSignalPort = 0;
float Bipolar(float v) { return (v - 0.5f) * 2.0f; }
float Pregain(float v) { return v * v * 2.0f; }
}  // namespace

// [SECTION] CEnvelopeFollower

namespace {
enum : int { kPregain, kAttack, kRelease, kTrigLevel, kRelLevel, kModScale, kFollowerParamCount };

constexpr ParamRow kEnvFollowerRows[kFollowerParamCount] = {
    // name          kind                  default  value text
    {"Pregain", ParamKind::Slider, 1.0f, ValueText::Custom},
    {"Attack", ParamKind::Slider, 0.5f, ValueText::EnvelopeTime},
    {"Release", ParamKind::Slider, 0.5f, ValueText::EnvelopeTime},
    {"Trig. Level", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Rel. Level", ParamKind::Slider, 1.0f, ValueText::Percent},
    {"Mod. Scale", ParamKind::SliderAlt, 1.0f, ValueText::Custom},
};
constexpr float kFollowerCutoff = 5.0f;
constexpr int kHoldSamples = 100;
}  // namespace

CEnvelopeFollower::CEnvelopeFollower(VrokInstance* engine, float sampleRate)
    : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    std::fill(std::begin(detectors), std::end(detectors), LevelDetector(kFollowerCutoff, sampleRate));
    ConfigureFromRows(kEnvFollowerRows, 1, kCategoryControllers, "EnvTrigger");
    for (EnvelopeState& s : states) {
        s.rate = sampleRate;
        s.attack = &values[kAttack];
        s.release = &values[kRelease];
    }
}

void CEnvelopeFollower::ParameterChanged(int index) {
    const float v = values[index];
    if (index == kPregain) pregain.store(Pregain(v), std::memory_order_relaxed);
    if (index == kModScale) modScale.store(Bipolar(v), std::memory_order_relaxed);
    if (index == kTrigLevel) triggerLevel.store(std::fabs(v), std::memory_order_relaxed);
    if (index == kTrigLevel || index == kRelLevel)
        releaseLevel.store(std::fabs(values[kRelLevel] * values[kTrigLevel]), std::memory_order_relaxed);
}

std::string CEnvelopeFollower::DescribeValue(int index, float value) {
    if (index == kPregain) return FormatDecibels(Pregain(value));
    if (index == kTrigLevel) return FormatDecibels(std::fabs(value));
    if (index == kModScale) return FormatPercent(Bipolar(value));
    return DescribeRowValue(kEnvFollowerRows, index, value, sampleRate);
}

void CEnvelopeFollower::Work(int voice, int numSamples) {
    active[voice] = 0;
    EnvelopeState& env = states[voice];
    const bool hasInput = PortConnected(kSignalPort) && PortHasData(kSignalPort, voice);
    const bool wasRunning = env.stage != kStageIdle;
    if (!wasRunning && !hasInput) return;
    LevelDetector& detector = detectors[voice];
    const float* in = ports[kSignalPort]->buffer[voice];
    const float gain = pregain.load(std::memory_order_relaxed);
    const float trigger = triggerLevel.load(std::memory_order_relaxed);
    const float release = releaseLevel.load(std::memory_order_relaxed);
    const float scale = modScale.load(std::memory_order_relaxed);
    float* out = output[voice];
    float level = detector.lastLevel;
    for (int i = 0; i < numSamples; ++i) {
        const float x = hasInput ? in[i] * gain : 0.0f;
        level = detector.Step(x * x);
        if (env.stage != kStageIdle && env.stage != kStageRelease && level < release) env.Release();
        if ((env.stage == kStageIdle || env.stage == kStageRelease) && level > trigger) {
            env.Start();
            active[voice] = 1;
        }
        // Attack is followed by a hold of 100 samples, then sustain until the release.
        env.value += env.delta;
        if (env.stage != kStageSustain) --env.remaining;
        if (env.remaining == 0) {
            ++env.stage;
            if (env.value <= 0.001f || env.stage > kStageRelease) {
                env.stage = kStageIdle;
                env.value = 0.0f;
            }
            env.total = env.remaining = kHoldSamples;
            env.delta = 0.0f;
        }
        out[i] = scale * env.value;
    }
    lastLevel[voice] = level;
    lastOutput[voice] = out[numSamples - 1];
    if (env.stage != kStageIdle || wasRunning) active[voice] = 1;
}

// [SECTION] CDynamicsFollower

namespace {
enum : int { kThresLevel = 3, kThresRatio = 4 };

constexpr ParamRow kDynFollowerRows[kFollowerParamCount] = {
    {"Pregain", ParamKind::Slider, 1.0f, ValueText::Custom},
    {"Attack", ParamKind::Slider, 0.5f, ValueText::EnvelopeTime},
    {"Release", ParamKind::Slider, 0.5f, ValueText::EnvelopeTime},
    {"Thres. Level", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Thres. Ratio", ParamKind::Slider, 0.2f, ValueText::Percent},
    {"Mod. Scale", ParamKind::SliderAlt, 1.0f, ValueText::Custom},
};
constexpr float kDynamicsCutoff = 15.0f;
}  // namespace

CDynamicsFollower::CDynamicsFollower(VrokInstance* engine, float sampleRate)
    : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    std::fill(std::begin(detectors), std::end(detectors), LevelDetector(kDynamicsCutoff, sampleRate));
    ConfigureFromRows(kDynFollowerRows, 1, kCategoryControllers, "Dyn. Follower");
}

void CDynamicsFollower::ParameterChanged(int index) {
    const float v = values[index];
    if (index == kPregain) pregain.store(Pregain(v), std::memory_order_relaxed);
    if (index == kAttack)
        attackSlope.store(1.0f / float(EnvelopeLengthSamples(v, sampleRate)), std::memory_order_relaxed);
    if (index == kRelease)
        releaseSlope.store(-1.0f / float(EnvelopeLengthSamples(v, sampleRate)), std::memory_order_relaxed);
    if (index == kModScale) modScale.store(Bipolar(v), std::memory_order_relaxed);
    if (index == kThresLevel || index == kThresRatio) {
        const float threshold = std::fabs(values[kThresLevel]);
        const float top = std::fabs(values[kThresRatio] + values[kThresLevel]);
        thresholdLevel.store(threshold, std::memory_order_relaxed);
        // With no room above the threshold the last scale stands.
        if (top - threshold > 0.0f) rangeScale.store(1.0f / (top - threshold), std::memory_order_relaxed);
    }
}

std::string CDynamicsFollower::DescribeValue(int index, float value) {
    if (index == kPregain) return FormatDecibels(Pregain(value));
    if (index == kThresLevel) return FormatDecibels(std::fabs(value));
    if (index == kModScale) return FormatPercent(Bipolar(value));
    return DescribeRowValue(kDynFollowerRows, index, value, sampleRate);
}

void CDynamicsFollower::Work(int voice, int numSamples) {
    const bool hasInput = PortConnected(kSignalPort) && PortHasData(kSignalPort, voice);
    const float* in = ports[kSignalPort]->buffer[voice];
    const float gain = pregain.load(std::memory_order_relaxed);
    const float up = attackSlope.load(std::memory_order_relaxed);
    const float down = releaseSlope.load(std::memory_order_relaxed);
    const float threshold = thresholdLevel.load(std::memory_order_relaxed);
    const float range = rangeScale.load(std::memory_order_relaxed);
    const float scale = modScale.load(std::memory_order_relaxed);
    LevelDetector& detector = detectors[voice];
    float e = envelope[voice];
    float level = detector.lastLevel;
    float* out = output[voice];
    for (int i = 0; i < numSamples; ++i) {
        const float x = hasInput ? in[i] * gain : 0.0f;
        level = detector.Step(x * x);
        const float t = std::max((level - threshold) * range, 0.0f);
        if (t > e)
            e = std::min(e + up, t);
        else if (t < e)
            e = std::max(e + down, t);
        out[i] = scale * e;
    }
    envelope[voice] = e;
    lastLevel[voice] = level;
    active[voice] = 1;
}

// [SECTION] CGlobalEnvTriggerBlock

namespace {
enum : int { kPrescale, kTriggerTrig, kTriggerRel, kTriggerParamCount };

constexpr ParamRow kTriggerRows[kTriggerParamCount] = {
    {"Prescale", ParamKind::Slider, 0.5f, ValueText::DecibelsOfSquare},
    {"Trig. Level", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Rel. Level", ParamKind::Slider, 1.0f, ValueText::Percent},
};
}  // namespace

CGlobalEnvTriggerBlock::CGlobalEnvTriggerBlock(VrokInstance* engine, float sampleRate)
    : CAudioBlock(engine, sampleRate), detector(kFollowerCutoff, sampleRate) {
    hasInputWork = true;
    isOutput = true;
    ConfigureFromRows(kTriggerRows, 0, kCategoryGlobalTriggers, "Audio Trigger");
}

void CGlobalEnvTriggerBlock::ParameterChanged(int index) {
    const float v = values[index];
    if (index == kPrescale) prescale.store(v * v, std::memory_order_relaxed);
    if (index == kTriggerTrig) triggerLevel.store(std::fabs(v), std::memory_order_relaxed);
    if (index == kTriggerTrig || index == kTriggerRel)
        releaseLevel.store(std::fabs(values[kTriggerRel] * values[kTriggerTrig]), std::memory_order_relaxed);
}

std::string CGlobalEnvTriggerBlock::DescribeValue(int index, float value) {
    if (index == kTriggerTrig) return FormatDecibels(std::fabs(value));
    return DescribeRowValue(kTriggerRows, index, value, sampleRate);
}

void CGlobalEnvTriggerBlock::InputWork(StereoBuffers buffers, int numSamples, float scale) {
    const float f = prescale.load(std::memory_order_relaxed) / scale;
    const float trigger = triggerLevel.load(std::memory_order_relaxed);
    const float release = releaseLevel.load(std::memory_order_relaxed);
    float level = detector.lastLevel;
    for (int i = 0; i < numSamples; ++i) {
        const float x = (buffers.left[i] + buffers.right[i]) * f;
        level = detector.Step(x * x);
        // PressKey and ReleaseKey take the engine lock themselves; the machine's lock is
        // already held around the inputs, in the order every thread keeps.
        if (!triggered && level > trigger) {
            triggered = true;
            engine->PressKey(kNote, 1);
        } else if (triggered && level < release) {
            triggered = false;
            engine->ReleaseKey(kNote);
        }
    }
    lastLevel.store(level, std::memory_order_relaxed);
}

// [SECTION] CVUTrackerBlock

namespace {
enum : int { kDecay, kPeak, kTrackerParamCount };

constexpr ParamRow kTrackerRows[kTrackerParamCount] = {
    {"Decay", ParamKind::Slider, 0.5f, ValueText::EnvelopeTime},
    {"Peak", ParamKind::Switch, 1.0f, ValueText::Empty},
};
constexpr float kSilentPower = 0.000001f;
constexpr float kMeanFactor = 1.7f;
}  // namespace

CVUTrackerBlock::CVUTrackerBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(kTrackerRows, 1, kCategoryModifiers, "VU Tracker");
}

void CVUTrackerBlock::ParameterChanged(int index) {
    const float v = values[index];
    if (index == kDecay) decay.store(std::exp(-1.0f / float(EnvelopeLengthSamples(v, sampleRate))));
    // This switch turns on lower than the others, at 0.4.
    if (index == kPeak) peakMode.store(v >= 0.4f, std::memory_order_relaxed);
}

std::string CVUTrackerBlock::DescribeValue(int index, float value) {
    return DescribeRowValue(kTrackerRows, index, value, sampleRate);
}

void CVUTrackerBlock::Work(int voice, int numSamples) {
    const float c = decay.load(std::memory_order_relaxed);
    const bool peak = peakMode.load(std::memory_order_relaxed);
    const float factor = peak ? 1.0f : kMeanFactor;
    float p = power[voice];
    float* out = output[voice];
    if (PortConnected(kSignalPort) && PortHasData(kSignalPort, voice)) {
        const float* in = ports[kSignalPort]->buffer[voice];
        for (int i = 0; i < numSamples; ++i) {
            const float x2 = in[i] * in[i];
            p = x2 * (1.0f - c) + c * p;
            if (peak) p = std::max(p, x2);
            out[i] = std::sqrt(p) * factor;
        }
    } else {
        if (p <= kSilentPower) {
            active[voice] = 0;
            return;
        }
        for (int i = 0; i < numSamples; ++i) {
            p *= c;
            out[i] = std::sqrt(p) * factor;
        }
    }
    power[voice] = p;
    active[voice] = 1;
}
