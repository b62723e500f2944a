// The table oscillators (|Osc, |SubOsc, Fixed Osc) and the Monophone.
//
// [SECTION] Shared: increment, pitch maths, sample loops, CTableOscBase
// [SECTION] COscBlock
// [SECTION] CSubOscBlock
// [SECTION] CFixedOscBlock
// [SECTION] CMonoBlock
#include "blocks/wavetable_oscillators.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#if defined(__SSE__)
#include <xmmintrin.h>
#endif

#include "blocks/vector_lanes.h"
#include "engine/value_format.h"
#include "engine/wave_tables.h"

// [SECTION] Shared: increment, pitch maths, sample loops, CTableOscBase

uint32_t PhaseIncrementFor(float frequencyHz, float sampleRate) {
    float cycles = frequencyHz / sampleRate * 4294967296.0f;
    if (!(cycles >= 0.0f)) return 0;
    if (cycles < 4294967296.0f) return uint32_t(cycles);
    if (cycles < 9223372036854775808.0f) return uint32_t(uint64_t(cycles));
    return 0;
}

namespace {

enum : int { kPitch, kAmp, kWaveform, kParamCount };
// Ports: 0 pitch, 1 amp; "Waveform" has none.
constexpr int kOscPorts = 2;
constexpr int kPitchPort = 0;
constexpr int kAmpPort = 1;

constexpr int kLastTable = 127;
// The phase's top 11 bits index the 2048-entry tables.
constexpr int kPhaseShift = 21;
// A pitch-modulation sample of 1.0 adds 2^27, 1/32 of a cycle, per sample.
constexpr float kPitchModScale = 134217728.0f;
// Modulation in -16..16 converts exactly and wraps the phase as it always has. Beyond
// that a C++ conversion would be undefined; the SSE conversion is defined for every input
// (out of range and NaN give INT32_MIN) and costs nothing more, so it is used where there
// is one, and the same results are computed elsewhere.
inline int32_t PitchModSteps(float x) {
#if defined(__SSE__)
    return _mm_cvtt_ss2si(_mm_set_ss(x * kPitchModScale));
#else
    const float steps = x * kPitchModScale;
    if (!(steps >= -2147483648.0f)) return INT32_MIN;
    return steps < 2147483648.0f ? int32_t(steps) : INT32_MIN;
#endif
}

// The tuning law of the note-following oscillators, all in float: note 70 at the centre
// of "Pitch" is 440 Hz.
float NoteFrequency(float pitchValue, float note) {
    float semitones = (pitchValue - 0.5f) * 24.0f + (note - 70.0f);
    return 440.0f * std::pow(2.0f, semitones * (1.0f / 12.0f));
}

// Truncation into 0..kLastTable that no value can take out of range: NaN gives table 0.
int32_t TableIndexOf(double t) { return t >= 0.0 ? int32_t(std::min(t, double(kLastTable))) : 0; }

// Truncation to int for note numbers, saturating instead of undefined; NaN gives 0.
int32_t TruncatedNote(float pitch) {
    if (std::isnan(pitch)) return 0;
    return int32_t(std::clamp(double(pitch), -2147483648.0, 2147483647.0));
}

// The table follows the pitch rounded down, plus 11, never the frequency itself; the sum
// is taken in double before it is clamped and truncated.
int32_t NoteTableIndex(float pitchValue, float note) {
    return TableIndexOf((double(pitchValue) - 0.5) * 24.0 + double(note) + 11.0);
}

// Ties go to the even neighbour, so a stored 0.5 (1.5) is the sawtooth, not the pulse.
int32_t WaveformIndex(float value) {
    return int32_t(std::nearbyint(double(Clamp01(value)) * 3.0));
}

// One loop per combination of the two ports, picked before the loop, so the body carries
// no test. Phase, increment and amplitude stay in locals and the rows do not alias, which
// lets the compiler keep everything in registers. Four samples per pass: left to itself
// the compiler vectorises the loop into an emulated gather, which is slower than four
// plain table loads. Returns the advanced phase.
#if defined(__x86_64__)
// Eight samples per pass while eight remain, for a steady increment. Returns how many
// samples it wrote and leaves `phase` at the last one's.
template <bool kAmpMod>
VROK_AVX2 int RunTableEight(const float* __restrict table, float* __restrict out, const float* __restrict ampIn,
                            uint32_t& phase, uint32_t increment, float amplitude, int n) {
    const __m256i stride = _mm256_set1_epi32(int(increment * 8u));
    __m256i phases = _mm256_add_epi32(_mm256_set1_epi32(int(phase)),
                                      _mm256_mullo_epi32(_mm256_set1_epi32(int(increment)),
                                                         _mm256_setr_epi32(1, 2, 3, 4, 5, 6, 7, 8)));
    const __m256 amp = _mm256_set1_ps(amplitude);
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256 s = _mm256_i32gather_ps(table, _mm256_srli_epi32(phases, kPhaseShift), 4);
        phases = _mm256_add_epi32(phases, stride);
        if constexpr (kAmpMod)
            _mm256_storeu_ps(out + i, _mm256_mul_ps(_mm256_mul_ps(_mm256_loadu_ps(ampIn + i), amp), s));
        else
            _mm256_storeu_ps(out + i, _mm256_mul_ps(s, amp));
    }
    phase += uint32_t(i) * increment;
    return i;
}
#endif

template <bool kPitchMod, bool kAmpMod>
uint32_t RunTable(const float* __restrict table, float* __restrict out, const float* __restrict pitchIn,
                  const float* __restrict ampIn, uint32_t phase, uint32_t increment, float amplitude, int n) {
    auto sample = [&](int i) {
        // The phase moves before the read.
        if constexpr (kPitchMod)
            phase += increment + uint32_t(PitchModSteps(pitchIn[i]));
        else
            phase += increment;
        float s = table[phase >> kPhaseShift];
        if constexpr (kAmpMod)
            out[i] = (ampIn[i] * amplitude) * s;
        else
            out[i] = s * amplitude;
    };
    int i = 0;
#if defined(__x86_64__)
    // Without pitch modulation the phases of eight samples are known ahead, so one gather
    // reads them; the phases wrap and the products round exactly as one by one.
    if constexpr (!kPitchMod)
        if (CpuHasAvx2()) i = RunTableEight<kAmpMod>(table, out, ampIn, phase, increment, amplitude, n);
#endif
    for (; i + 4 <= n; i += 4) {
        sample(i);
        sample(i + 1);
        sample(i + 2);
        sample(i + 3);
    }
    for (; i < n; ++i) sample(i);
    return phase;
}

}  // namespace

CTableOscBase::CTableOscBase(VrokInstance* engine, float sampleRate, int initialMonoNote)
    : CAudioBlock(engine, sampleRate), monoNote(initialMonoNote) {
    for (int v = 0; v < kMaxVoices; ++v) {
        note[v].store(80.0f, std::memory_order_relaxed);
        phaseIncrement[v].store(0, std::memory_order_relaxed);
        tableIndex[v].store(0, std::memory_order_relaxed);
    }
}

void CTableOscBase::PrepareBlock(int numSamples) {
    CAudioBlock::PrepareBlock(numSamples);
    std::memset(active, 0, sizeof active);
}

void CTableOscBase::AmplitudeOrWaveformChanged(int index) {
    if (index == kAmp) {
        float v = values[kAmp];
        amplitude.store(v * v, std::memory_order_relaxed);
    } else if (index == kWaveform) {
        waveform.store(WaveformIndex(values[kWaveform]), std::memory_order_relaxed);
    }
}

void CTableOscBase::UpdateNotePitch(int voice) {
    float pitchValue = values[kPitch];
    float n = note[voice].load(std::memory_order_relaxed);
    uint32_t increment = PhaseIncrementFor(NoteFrequency(pitchValue, n), sampleRate);
    int32_t table = NoteTableIndex(pitchValue, n);
    phaseIncrement[voice].store(increment, std::memory_order_relaxed);
    tableIndex[voice].store(table, std::memory_order_relaxed);
}

void CTableOscBase::WorkFollowingNote(int voice, int numSamples) {
    active[voice] = 0;
    bool ampConnected = PortConnected(kAmpPort);
    // A wired amplitude port with nothing for this voice, or no amplitude, means silence:
    // the voice stays inactive and its phase does not move. Unwired, an Amp of 0 still
    // runs and writes zeros.
    if (ampConnected && (amplitude.load(std::memory_order_relaxed) <= 0.0f || !PortHasData(kAmpPort, voice)))
        return;
    bool pitchCounts = PortConnected(kPitchPort) && PortHasData(kPitchPort, voice);
    Render(voice, voice, numSamples, ampConnected, pitchCounts);
}

void CTableOscBase::Render(int stateVoice, int outVoice, int numSamples, bool ampConnected, bool pitchCounts) {
    const float* table = NoteTables::Get(waveform.load(std::memory_order_relaxed),
                                         tableIndex[stateVoice].load(std::memory_order_relaxed));
    float* out = output[outVoice];
    const float* pitchIn = ports[kPitchPort]->buffer[stateVoice];
    const float* ampIn = ports[kAmpPort]->buffer[stateVoice];
    uint32_t increment = phaseIncrement[stateVoice].load(std::memory_order_relaxed);
    float amp = amplitude.load(std::memory_order_relaxed);
    uint32_t p = phase[stateVoice];
    if (pitchCounts) {
        p = ampConnected ? RunTable<true, true>(table, out, pitchIn, ampIn, p, increment, amp, numSamples)
                         : RunTable<true, false>(table, out, pitchIn, ampIn, p, increment, amp, numSamples);
    } else {
        p = ampConnected ? RunTable<false, true>(table, out, pitchIn, ampIn, p, increment, amp, numSamples)
                         : RunTable<false, false>(table, out, pitchIn, ampIn, p, increment, amp, numSamples);
    }
    phase[stateVoice] = p;
    active[outVoice] = 1;
}

// [SECTION] COscBlock

namespace {
constexpr ParamRow kOscRows[kParamCount] = {
    // name        kind               default  value text
    {"Pitch", ParamKind::Pitch, 0.5f, ValueText::Semitones},
    {"Amp", ParamKind::Slider, 0.5f, ValueText::DecibelsOfSquare},
    {"Waveform", ParamKind::Wave, 0.5f, ValueText::Empty},
};

std::string DescribeOscRow(int index, float value, float sampleRate) {
    if (index < 0 || index >= kParamCount) return {};
    return DescribeRowValue(kOscRows[index], value, sampleRate);
}
}  // namespace

COscBlock::COscBlock(VrokInstance* engine, float sampleRate) : CTableOscBase(engine, sampleRate, 65) {
    ConfigureFromRows(kOscRows, kOscPorts, kCategorySources, "|Osc");
}

void COscBlock::ParameterChanged(int index) {
    if (index == kPitch) {
        for (int v = 0; v < kMaxVoices; ++v) UpdateNotePitch(v);
    } else {
        AmplitudeOrWaveformChanged(index);
    }
}

std::string COscBlock::DescribeValue(int index, float value) { return DescribeOscRow(index, value, sampleRate); }

void COscBlock::SetNote(float pitch, float, int voice) {
    note[voice].store(pitch, std::memory_order_relaxed);
    UpdateNotePitch(voice);
}

void COscBlock::Work(int voice, int numSamples) { WorkFollowingNote(voice, numSamples); }

// [SECTION] CSubOscBlock

CSubOscBlock::CSubOscBlock(VrokInstance* engine, float sampleRate) : CTableOscBase(engine, sampleRate, 65) {
    ConfigureFromRows(kOscRows, kOscPorts, kCategorySources, "|SubOsc");
}

void CSubOscBlock::ParameterChanged(int index) {
    if (index == kPitch) {
        if (monophonic) {
            UpdateMonoPitch();
        } else {
            for (int v = 0; v < kMaxVoices; ++v) UpdateNotePitch(v);
        }
    } else {
        AmplitudeOrWaveformChanged(index);
    }
}

std::string CSubOscBlock::DescribeValue(int index, float value) { return DescribeOscRow(index, value, sampleRate); }

void CSubOscBlock::SetNote(float pitch, float, int voice) {
    if (monophonic) {
        monoNote.store(TruncatedNote(pitch), std::memory_order_relaxed);
        UpdateMonoPitch();
        return;
    }
    note[voice].store(pitch, std::memory_order_relaxed);
    UpdateNotePitch(voice);
}

void CSubOscBlock::UpdateMonoPitch() {
    float pitchValue = values[kPitch];
    int32_t mono = monoNote.load(std::memory_order_relaxed);
    uint32_t increment = PhaseIncrementFor(NoteFrequency(pitchValue, float(mono)), sampleRate);
    // Unlike the polyphonic law, the detune is truncated before the 11 is added.
    int32_t table = TableIndexOf(std::trunc(double((pitchValue - 0.5f) * 24.0f + float(mono))) + 11.0);
    phaseIncrement[0].store(increment, std::memory_order_relaxed);
    tableIndex[0].store(table, std::memory_order_relaxed);
}

void CSubOscBlock::Work(int voice, int numSamples) { WorkFollowingNote(voice, numSamples); }

// [SECTION] CFixedOscBlock

namespace {
enum : int { kFreq = kPitch };

constexpr ParamRow kFixedOscRows[kParamCount] = {
    // name        kind                default  value text
    {"Freq", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Amp", ParamKind::Slider, 0.5f, ValueText::DecibelsOfSquare},
    {"Waveform", ParamKind::Wave, 0.0f, ValueText::Empty},
};

// "Freq" spans eight octaves around its centre.
float FixedSemitones(float freqValue) { return (freqValue - 0.5f) * 96.0f; }
}  // namespace

CFixedOscBlock::CFixedOscBlock(VrokInstance* engine, float sampleRate) : CTableOscBase(engine, sampleRate, 70) {
    ConfigureFromRows(kFixedOscRows, kOscPorts, kCategorySources, "Fixed Osc");
}

void CFixedOscBlock::ParameterChanged(int index) {
    if (index == kFreq) {
        if (monophonic) {
            UpdatePitch(0);
        } else {
            for (int v = 0; v < kMaxVoices; ++v) UpdatePitch(v);
        }
    } else {
        AmplitudeOrWaveformChanged(index);
    }
}

std::string CFixedOscBlock::DescribeValue(int index, float value) {
    if (index == kFreq) {
        // The text sits 77 semitones above the sound (x - 5 here, x - 82 in UpdatePitch).
        // Both are as old patches expect; mending either changes every stored patch.
        double x = FixedSemitones(value);
        return FormatSignificant(440.0 * std::pow(2.0, (x - 5.0) / 12.0), 5) + "Hz";
    }
    if (index < 0 || index >= kParamCount) return {};
    return DescribeRowValue(kFixedOscRows[index], value, sampleRate);
}

void CFixedOscBlock::SetNote(float pitch, float, int voice) {
    if (monophonic) {
        monoNote.store(TruncatedNote(pitch), std::memory_order_relaxed);
        UpdatePitch(0);
        return;
    }
    note[voice].store(pitch, std::memory_order_relaxed);
    UpdatePitch(voice);
}

void CFixedOscBlock::UpdatePitch(int voice) {
    float x = FixedSemitones(values[kFreq]);
    float frequency = 440.0f * std::pow(2.0f, (x - 70.0f - 12.0f) * (1.0f / 12.0f));
    uint32_t increment = PhaseIncrementFor(frequency, sampleRate);
    int32_t table = TableIndexOf(double(x) + 78.0);
    phaseIncrement[voice].store(increment, std::memory_order_relaxed);
    tableIndex[voice].store(table, std::memory_order_relaxed);
}

void CFixedOscBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    bool ampConnected = PortConnected(kAmpPort);
    float amp = amplitude.load(std::memory_order_relaxed);
    if (monophonic) {
        // One shared state in voice 0, whatever voice is asked for. Here, unlike the
        // polyphonic path, an Amp of exactly 0 is silence even with no amplitude port.
        UpdatePitch(0);
        if (ampConnected ? (amp <= 0.0f || !PortHasData(kAmpPort, 0)) : amp == 0.0f) return;
        bool pitchCounts = PortConnected(kPitchPort) && PortHasData(kPitchPort, 0);
        Render(0, voice, numSamples, ampConnected, pitchCounts);
        return;
    }
    if (ampConnected && (amp <= 0.0f || !PortHasData(kAmpPort, voice))) return;
    bool pitchCounts = PortConnected(kPitchPort) && PortHasData(kPitchPort, voice);
    // The modulated paths refresh the pitch first; that only matters after a change of
    // sample rate, which otherwise waits for the next "Freq" change.
    if (pitchCounts) UpdatePitch(voice);
    Render(voice, voice, numSamples, ampConnected, pitchCounts);
}

// [SECTION] CMonoBlock

CMonoBlock::CMonoBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    monophonic = true;
    ConfigureFromRows(nullptr, 0, 1, kCategoryModifiers, "Monophone");
}

void CMonoBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    if (!PortHasData(0, voice)) return;
    std::memcpy(output[voice], ports[0]->buffer[voice], sizeof(float) * numSamples);
    active[voice] = 1;
}
