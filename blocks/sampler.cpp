// |Sampler: note handling, the interpolating playback loop and the link to its sample.
#include "blocks/sampler.h"

#include <cmath>
#include <cstring>
#include <mutex>

#include "engine/vrok_instance.h"

namespace {
enum : int { kPitch, kAmp, kParamCount };

constexpr ParamRow kSamplerRows[kParamCount] = {
    // name     kind               default  value text
    {"Pitch", ParamKind::Pitch, 0.5f, ValueText::Semitones},
    {"Amp", ParamKind::Slider, 0.5f, ValueText::DecibelsOfSquare},
};
// Port 0 is wired like any input but has no effect; port 1 multiplies the output.
constexpr int kAmpPort = 1;
}  // namespace

CSimpleSamplerBlock::CSimpleSamplerBlock(VrokInstance* engine, float sampleRate)
    : CAudioBlock(engine, sampleRate) {
    for (float& n : note) n = 80.0f;
    ConfigureFromRows(kSamplerRows, kParamCount, kCategorySources, "|Sampler");
}

CSimpleSamplerBlock::~CSimpleSamplerBlock() {
    if (sample) sample->RemovePlayer(this);
}

void CSimpleSamplerBlock::ParameterChanged(int index) {
    if (index == kAmp) {
        const float v = values[kAmp];
        amplitude.store(v * v, std::memory_order_relaxed);
    } else if (index == kPitch) {
        // `frequency` follows "Pitch"; the playback step does not, so the sound stays.
        for (int v = 0; v < kMaxVoices; ++v)
            frequency[v].store(FrequencyFor(note[v]), std::memory_order_relaxed);
    }
}

std::string CSimpleSamplerBlock::DescribeValue(int index, float value) {
    return DescribeRowValue(kSamplerRows, index, value, sampleRate);
}

float CSimpleSamplerBlock::StepFor(float n) const {
    if (!sample) return 1.0f;
    const float noteHz = 440.0f * std::pow(2.0f, (n - 70.0f) * (1.0f / 12.0f));
    return (noteHz / sample->rootFrequency.load(std::memory_order_relaxed)) *
           (sample->dataRate.load(std::memory_order_relaxed) / sampleRate);
}

float CSimpleSamplerBlock::FrequencyFor(float n) const {
    return 440.0f * std::pow(2.0f, ((values[kPitch] - 0.5f) * 24.0f + n - 70.0f) * (1.0f / 12.0f));
}

void CSimpleSamplerBlock::SetNote(float pitch, float, int voice) {
    const int slot = monophonic ? 0 : voice;
    note[voice] = pitch;
    frequency[slot].store(FrequencyFor(pitch), std::memory_order_relaxed);
    if (monophonic) monoNote = pitch;
    voices[slot].step = StepFor(pitch);
}

void CSimpleSamplerBlock::NoteOn(int, int voice) {
    PlayVoice& v = voices[monophonic ? 0 : voice];
    v.position = 0.0f;
    v.playing = 1;
}

void CSimpleSamplerBlock::SetSample(SampleData* container) {
    std::lock_guard<std::recursive_mutex> engineGuard(engine->lock);
    if (container == sample) return;
    if (sample) sample->RemovePlayer(this);
    sample = container;
    if (sample) sample->AddPlayer(this);
    for (int v = 0; v < kMaxVoices; ++v) voices[v].step = StepFor(note[v]);
}

void CSimpleSamplerBlock::Detach(SampleData* container) {
    std::lock_guard<std::recursive_mutex> engineGuard(engine->lock);
    SamplePlayer::Detach(container);
}

void CSimpleSamplerBlock::Work(int voice, int numSamples) {
    if (!sample) {
        active[voice] = 0;
        return;
    }
    std::lock_guard<std::mutex> guard(sample->lock);
    if (!PortConnected(kAmpPort)) {
        // Reported active with the row as it was: an unwired sampler is silent, or repeats
        // what it last played.
        active[voice] = 1;
        return;
    }
    const float amp = amplitude.load(std::memory_order_relaxed);
    if (!(amp > 0.0f) || !PortHasData(kAmpPort, voice)) {
        active[voice] = 0;
        return;
    }
    float* out = output[voice];
    PlayVoice& v = voices[voice];
    int i = 0;
    if (v.playing) {
        const float* data = sample->data.data();
        const auto frames = float(sample->numFrames);
        float position = v.position;
        // A negative step (a nonsensical root) ends the sample rather than read before it.
        for (; i < numSamples && position >= 0.0f && position < frames; ++i) {
            const auto at = uint32_t(position);
            // At the last frame this reads the guard entry after the data.
            out[i] = data[at] + (data[at + 1] - data[at]) * (position - float(at));
            position += v.step;
        }
        v.position = position;
        if (i < numSamples) v.playing = 0;
    }
    std::memset(out + i, 0, sizeof(float) * size_t(numSamples - i));
    const float* ampIn = ports[kAmpPort]->buffer[voice];
    for (int k = 0; k < numSamples; ++k) out[k] *= ampIn[k] * amp;
    active[voice] = 1;
}
