// The delay lines.
//
// [SECTION] VoiceDelayLine
// [SECTION] CDelayBlock
// [SECTION] CTrackDelayBlock
// [SECTION] CFilterDelayBlock
#include "blocks/delays.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/log.h"
#include "engine/value_format.h"

// [SECTION] VoiceDelayLine

VoiceDelayLine::VoiceDelayLine(float sampleRate)
    : size(std::max(4, int(sampleRate * 1.01f))), data(std::make_unique<float[]>(size_t(size))) {}

void VoiceDelayLine::Locate(double d, int* slot, float* fraction) const {
    // Held within one line length either way, so one add or subtract wraps the position;
    // NaN fails both tests and reads at the write position.
    const double limit = double(size);
    d = d > -limit ? (d < limit ? d : limit) : (d <= -limit ? -limit : 0.0);
    double q = double(write) - d;
    if (q < 0.0) q += limit;
    if (q >= limit) q -= limit;
    int i = int(q);  // q is not negative: truncation is the floor
    *fraction = float(q - double(i));
    if (i >= size) i -= size;  // a tiny negative q rounds up to the end
    *slot = i;
}

float VoiceDelayLine::Read(double d) const {
    int i;
    float t;
    Locate(d, &i, &t);
    return ReadAt(i, t);
}

// [SECTION] CDelayBlock

namespace {
enum : int { kTime, kFeedback, kCutoff };

constexpr ParamRow kDelayRows[] = {
    // name       kind               default  value text
    {"Time", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Feedback", ParamKind::Slider, 0.0f, ValueText::Percent},
};
constexpr int kDelayPorts = 3;
constexpr int kSignalPort = 0, kTimePort = 1, kFeedbackPort = 2;
// ln(0.001): a tail lasts until the feedback has taken 60 dB off.
constexpr float kSixtyDecibels = -6.9077554f;
// Stored values strictly inside this band go into the line as 0.
constexpr float kFlushLevel = 9.536743e-07f;

bool Counts(const CAudioBlock& block, int port, int voice) {
    return block.PortConnected(port) && block.PortHasData(port, voice);
}

float TailFor(float feedback, float delay) { return kSixtyDecibels / std::log(feedback) * delay + delay; }
}  // namespace

CDelayBlock::CDelayBlock(VrokInstance* engine, float sampleRate) : CDelayBlock(engine, sampleRate, false) {
    ConfigureFromRows(kDelayRows, kDelayPorts, kCategoryModifiers, "Delay");
}

CDelayBlock::CDelayBlock(VrokInstance* engine, float sampleRate, bool)
    : CAudioBlock(engine, sampleRate), modScale(sampleRate * 0.0025f) {
    hasAudioInput = true;
    for (auto& line : lines) line = std::make_unique<VoiceDelayLine>(sampleRate);
    std::fill(std::begin(currentDelay), std::end(currentDelay), sampleRate);
}

void CDelayBlock::ParameterChanged(int index) {
    const float v = values[index];
    if (index == kTime) {
        const float s = sampleRate * 0.001f;
        const float delay = (sampleRate - s) * v * v + s;
        delaySamples.store(delay, std::memory_order_relaxed);
        const int rampLength = int(sampleRate * 0.1f);
        // Every voice ramps by a step worked out from voice 0's delay: a voice that stands
        // elsewhere ends its ramp elsewhere. That is how the block has always moved.
        const float step = (delay - currentDelay[0]) / float(rampLength);
        for (int voice = 0; voice < kMaxVoices; ++voice) {
            if (tailSamples[voice] == 0.0f) {
                currentDelay[voice] = delay;
            } else {
                delayStep[voice] = step;
                rampCount[voice] = rampLength;
            }
        }
    } else if (index == kFeedback) {
        feedbackGain.store(v * 0.99f, std::memory_order_relaxed);
    }
    const float delay = delaySamples.load(std::memory_order_relaxed);
    const float target = TailFor(feedbackGain.load(std::memory_order_relaxed), delay);
    tailTarget.store(target, std::memory_order_relaxed);
    for (float& tail : tailSamples) tail = std::max(tail, target);
}

std::string CDelayBlock::DescribeValue(int index, float value) {
    if (index == kTime) return std::to_string(int(value * value * 0.999f * 1000.0f + 0.001f)) + " ms";
    return DescribeRowValue(kDelayRows, index, value, sampleRate);
}

void CDelayBlock::PrepareBlock(int numSamples) {
    std::fill_n(output[0], numSamples, 0.0f);
    CAudioBlock::PrepareBlock(numSamples);
}

void CDelayBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    if (Counts(*this, kSignalPort, voice)) {
        Run(voice, ports[kSignalPort]->buffer[voice], numSamples);
        silentSamples[voice] = 0;
        tailSamples[voice] = std::max(tailSamples[voice], TailTarget(voice));
        active[voice] = 1;
        return;
    }
    if (float(numSamples) + tailSamples[voice] <= float(silentSamples[voice])) {
        currentDelay[voice] = delaySamples.load(std::memory_order_relaxed);
        rampCount[voice] = 0;
        tailSamples[voice] = 0.0f;
        return;
    }
    silentSamples[voice] += numSamples;
    Run(voice, nullptr, numSamples);
    active[voice] = 1;
}

void CDelayBlock::Run(int voice, const float* in, int numSamples) {
    VoiceDelayLine& line = *lines[voice];
    BiquadRecord& section = sections[voice];
    const float* timeMod = Counts(*this, kTimePort, voice) ? ports[kTimePort]->buffer[voice] : nullptr;
    const float* feedbackMod =
        Counts(*this, kFeedbackPort, voice) ? ports[kFeedbackPort]->buffer[voice] : nullptr;
    if (!timeMod && rampCount[voice] == 0 && !filtered) {
        RunSteady(voice, in, feedbackMod, currentDelay[voice], numSamples);
        return;
    }
    const float feedback = feedbackGain.load(std::memory_order_relaxed);
    float* out = output[voice];
    bool warned = false;
    for (int i = 0; i < numSamples; ++i) {
        if (rampCount[voice] != 0) {
            --rampCount[voice];
            currentDelay[voice] += delayStep[voice];
        }
        float d = currentDelay[voice];
        if (timeMod) d += timeMod[i] * modScale;
        const float g = feedbackMod ? std::clamp(feedbackMod[i] + feedback, -1.0f, 1.0f) : feedback;
        if (d <= 0.0f && !warned) {
            // Once a sample block: the read lands ahead of the write position, as it may.
            Log(0, "negative delay?? ");
            warned = true;
        }
        const float y = line.Read(d);
        const float x = in ? in[i] : 0.0f;
        float stored;
        if (filtered) {
            stored = section.Tick(y * g + x);
        } else {
            stored = y * g + x;
            if (stored > -kFlushLevel && stored < kFlushLevel) stored = 0.0f;
        }
        line.Write(stored);
        out[i] = y;
    }
}

void CDelayBlock::RunSteady(int voice, const float* in, const float* feedbackMod, float d, int numSamples) {
    VoiceDelayLine& line = *lines[voice];
    if (d <= 0.0f) Log(0, "negative delay?? ");
    int slot;
    float t;
    line.Locate(d, &slot, &t);
    // How far the writes run ahead of the reads. A stretch shorter than that never reads a
    // slot it writes itself, so reading all of it before storing gives the same samples.
    int gap = line.write - slot;
    if (gap <= 0) gap += line.size;
    const float feedback = feedbackGain.load(std::memory_order_relaxed);
    float* out = output[voice];
    float* data = line.data.get();
    int k = 0;
    while (k < numSamples) {
        const int run = std::min({numSamples - k, line.size - line.write, line.size - 2 - slot, gap - 3});
        if (slot == 0 || run < 4) {
            // Near an end of the line, or a delay of a few samples: one sample the plain way.
            const float y = line.ReadAt(slot, t);
            const float g = feedbackMod ? std::clamp(feedbackMod[k] + feedback, -1.0f, 1.0f) : feedback;
            float stored = y * g + (in ? in[k] : 0.0f);
            if (stored > -kFlushLevel && stored < kFlushLevel) stored = 0.0f;
            line.Write(stored);
            out[k] = y;
            if (++slot == line.size) slot = 0;
            ++k;
            continue;
        }
        const float* r = data + slot;
        float* y = out + k;
        for (int j = 0; j < run; ++j) y[j] = VoiceDelayLine::Cubic(r[j - 1], r[j], r[j + 1], r[j + 2], t);
        float* w = data + line.write;
        for (int j = 0; j < run; ++j) {
            const float g = feedbackMod ? std::clamp(feedbackMod[k + j] + feedback, -1.0f, 1.0f) : feedback;
            const float stored = y[j] * g + (in ? in[k + j] : 0.0f);
            w[j] = stored > -kFlushLevel && stored < kFlushLevel ? 0.0f : stored;
        }
        line.write += run;
        if (line.write == line.size) line.write = 0;
        slot += run;
        k += run;
    }
}

// [SECTION] CTrackDelayBlock

namespace {
constexpr ParamRow kTrackDelayRows[] = {
    {"Time", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Feedback", ParamKind::Slider, 0.0f, ValueText::Percent},
};
}  // namespace

CTrackDelayBlock::CTrackDelayBlock(VrokInstance* engine, float sampleRate)
    : CTrackDelayBlock(engine, sampleRate, false) {
    ConfigureFromRows(kTrackDelayRows, kDelayPorts, kCategoryModifiers, "|Delay");
}

CTrackDelayBlock::CTrackDelayBlock(VrokInstance* engine, float sampleRate, bool)
    : CDelayBlock(engine, sampleRate, true) {}

void CTrackDelayBlock::ParameterChanged(int index) {
    if (index == kTime) {
        for (int voice = 0; voice < kMaxVoices; ++voice) Retune(voice);
    } else if (index == kFeedback) {
        const float rest = 1.0f - values[kFeedback];
        feedbackGain.store(1.0f - rest * rest * rest * rest, std::memory_order_relaxed);
    }
}

std::string CTrackDelayBlock::DescribeValue(int index, float value) {
    if (index == kTime) return FormatSignificant(value * 24.0f - 12.0f, 3);
    return DescribeRowValue(kTrackDelayRows, index, value, sampleRate);
}

void CTrackDelayBlock::SetNote(float notePitch, float, int voice) {
    if (voice < 0 || voice >= kMaxVoices) return;
    pitch[voice] = notePitch;
    if (monophonic) {
        pitch[0] = notePitch;
        voice = 0;
    }
    Retune(voice);
}

void CTrackDelayBlock::Retune(int voice) {
    const float frequency =
        440.0f * std::exp2((pitch[voice] - 70.0f + (values[kTime] - 0.5f) * 24.0f) / 12.0f);
    const float delay = sampleRate / frequency;
    delaySamples.store(delay, std::memory_order_relaxed);
    const int rampLength = int(sampleRate * 0.0125f);
    delayStep[voice] = (delay - currentDelay[voice]) / float(rampLength);
    rampCount[voice] = rampLength;
    const float feedback = feedbackGain.load(std::memory_order_relaxed);
    // At full feedback the logarithm is 0 and the target minus infinity: no tail at all.
    voiceTailTarget[voice] = feedback > 0.0f ? TailFor(feedback, currentDelay[voice]) : currentDelay[voice];
}

// [SECTION] CFilterDelayBlock

namespace {
constexpr ParamRow kFilterDelayRows[] = {
    {"Time", ParamKind::Slider, 0.5f, ValueText::Empty},
    {"Feedback", ParamKind::Slider, 0.0f, ValueText::Empty},
    {"Cutoff", ParamKind::Slider, 0.5f, ValueText::Empty},
};
}  // namespace

CFilterDelayBlock::CFilterDelayBlock(VrokInstance* engine, float sampleRate)
    : CTrackDelayBlock(engine, sampleRate, true) {
    filtered = true;
    ConfigureFromRows(kFilterDelayRows, kDelayPorts, kCategoryModifiers, "|Filterdelay");
}

void CFilterDelayBlock::ParameterChanged(int index) {
    if (index == kCutoff) {
        for (int voice = 0; voice < kMaxVoices; ++voice) DesignSection(voice);
        return;
    }
    CTrackDelayBlock::ParameterChanged(index);
}

std::string CFilterDelayBlock::DescribeValue(int, float) { return {}; }

void CFilterDelayBlock::Retune(int voice) {
    CTrackDelayBlock::Retune(voice);
    DesignSection(voice);
}

void CFilterDelayBlock::DesignSection(int voice) {
    const float cutoff = values[kCutoff];
    float centre = 440.0f * std::exp2((pitch[voice] - 70.0f + (cutoff - 0.5f) * 48.0f) / 12.0f);
    centre = std::min(centre, sampleRate * 0.49f);
    const float w = AngularFrequency(centre, sampleRate);
    const double alpha = 2.0 * PolySin(w);
    const double n = 1.0 / (alpha + 1.0);
    BiquadRecord& r = sections[voice];
    r.targetB0 = float(n * alpha);
    r.targetB1 = 0.0f;
    r.targetB2 = float(-n * alpha);
    r.targetA1 = float(-2.0 * PolyCos(w) * n);
    r.targetA2 = float((1.0 - alpha) * n);
    r.CurrentToTarget();
}
