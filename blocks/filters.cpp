// The two resonant filters and the section they share.
//
// [SECTION] BiquadRecord, polynomials, cutoff law
// [SECTION] CFilterBlock
// [SECTION] CFilterBlock2
#include "blocks/filters.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numbers>

#include "blocks/vector_lanes.h"
#include "engine/value_format.h"
#include "engine/vrok_instance.h"

// [SECTION] BiquadRecord, polynomials, cutoff law

void BiquadRecord::ClearState() {
    s0 = s1 = 0.0f;
    std::fill(std::begin(extra), std::end(extra), 0.0f);
}

void BiquadRecord::CurrentToTarget() {
    currentB0 = targetB0, currentB1 = targetB1, currentB2 = targetB2;
    currentA1 = targetA1, currentA2 = targetA2;
}

void BiquadRecord::GuardDenormals() {
    constexpr float kThreshold = 1.9073486e-06f;  // 2^-19
    if (std::fabs(s0) < kThreshold && std::fabs(s1) < kThreshold) s0 = s1 = extra[0] = 0.0f;
}

void BiquadRecord::GuardRunaway() {
    constexpr float kLimit = 65536.0f;
    // Written so that NaN fails the test and clears too.
    if (!(std::fabs(s0) < kLimit && std::fabs(s1) < kLimit)) ClearState();
}

void BiquadRecord::RampedRun(const float* in, float* out, int m, float stepScale) {
    float b0 = currentB0, b1 = currentB1, b2 = currentB2, a1 = currentA1, a2 = currentA2;
    const float d0 = (targetB0 - b0) * stepScale, d1 = (targetB1 - b1) * stepScale;
    const float d2 = (targetB2 - b2) * stepScale, e1 = (targetA1 - a1) * stepScale;
    const float e2 = (targetA2 - a2) * stepScale;
    float z0 = s0, z1 = s1;
    for (int i = 0; i < m; ++i) {
        const float x = in ? in[i] : 0.0f;
        const float y = b0 * x + z0;
        z0 = b1 * x + z1 - a1 * y;
        z1 = b2 * x - a2 * y;
        out[i] = y;
        b0 += d0, b1 += d1, b2 += d2, a1 += e1, a2 += e2;
    }
    s0 = z0, s1 = z1;
    CurrentToTarget();
}

namespace {

#if defined(__x86_64__)
// Eight sections in the lanes of AVX registers. Every operation is the scalar one, lane by
// lane, in the same order, so the results are the same to the bit.
struct SectionLanes {
    __m256 b0, b1, b2, a1, a2, d0, d1, d2, e1, e2, s0, s1;
    const float* in[8];
    float* out[8];
    BiquadRecord* records[8];
    int count;
    bool ramps;

    VROK_AVX2 void Load(BiquadRecord* const* r, const float* const* rowsIn, float* const* rowsOut, int n,
                        float stepScale, const float* zeros, float* scratch) {
        count = n;
        alignas(32) float f[12][8];
        const BiquadRecord blank;
        for (int k = 0; k < 8; ++k) {
            const BiquadRecord& q = k < n ? *r[k] : blank;
            records[k] = k < n ? r[k] : nullptr;
            in[k] = k < n ? rowsIn[k] : zeros;
            out[k] = k < n ? rowsOut[k] : scratch;
            const float c[5] = {q.currentB0, q.currentB1, q.currentB2, q.currentA1, q.currentA2};
            const float t[5] = {q.targetB0, q.targetB1, q.targetB2, q.targetA1, q.targetA2};
            for (int j = 0; j < 5; ++j) {
                f[j][k] = c[j];
                f[5 + j][k] = (t[j] - c[j]) * stepScale;
            }
            f[10][k] = q.s0;
            f[11][k] = q.s1;
        }
        // Adding a step of +0 leaves a coefficient as it is, unless it is -0, which would
        // turn to +0: only then, or with a real step, do the coefficients move.
        ramps = false;
        for (int j = 0; j < 5; ++j)
            for (int k = 0; k < 8; ++k) ramps |= f[5 + j][k] != 0.0f || std::signbit(f[j][k]);
        __m256* v[] = {&b0, &b1, &b2, &a1, &a2, &d0, &d1, &d2, &e1, &e2, &s0, &s1};
        for (int j = 0; j < 12; ++j) *v[j] = _mm256_load_ps(f[j]);
    }
    // One sample of every lane. The state is passed in locals so that a run of steps
    // keeps it in registers: through memory, each step would wait on a store.
    struct State {
        __m256 b0, b1, b2, a1, a2, s0, s1;
    };
    template <bool kRamps>
    VROK_AVX2 __m256 Step(State& q, __m256 x) const {
        const __m256 y = _mm256_add_ps(_mm256_mul_ps(q.b0, x), q.s0);
        q.s0 = _mm256_sub_ps(_mm256_add_ps(_mm256_mul_ps(q.b1, x), q.s1), _mm256_mul_ps(q.a1, y));
        q.s1 = _mm256_sub_ps(_mm256_mul_ps(q.b2, x), _mm256_mul_ps(q.a2, y));
        if constexpr (kRamps) {
            q.b0 = _mm256_add_ps(q.b0, d0), q.b1 = _mm256_add_ps(q.b1, d1), q.b2 = _mm256_add_ps(q.b2, d2);
            q.a1 = _mm256_add_ps(q.a1, e1), q.a2 = _mm256_add_ps(q.a2, e2);
        }
        return y;
    }
    VROK_AVX2 State Take() const { return {b0, b1, b2, a1, a2, s0, s1}; }
    VROK_AVX2 void Keep(const State& q) {
        b0 = q.b0, b1 = q.b1, b2 = q.b2, a1 = q.a1, a2 = q.a2, s0 = q.s0, s1 = q.s1;
    }
    // Eight samples from `i` of every lane, transposed in and out.
    template <bool kRamps>
    VROK_AVX2 void Run8(int i) {
        __m256 r[8];
        for (int k = 0; k < 8; ++k) r[k] = _mm256_loadu_ps(in[k] + i);
        Transpose8(r);
        State q = Take();
        for (int k = 0; k < 8; ++k) r[k] = Step<kRamps>(q, r[k]);
        Keep(q);
        Transpose8(r);
        for (int k = 0; k < 8; ++k) _mm256_storeu_ps(out[k] + i, r[k]);
    }
    VROK_AVX2 void Run1(int i) {
        alignas(32) float x[8], y[8];
        for (int k = 0; k < 8; ++k) x[k] = in[k][i];
        State q = Take();
        _mm256_store_ps(y, Step<true>(q, _mm256_load_ps(x)));
        Keep(q);
        for (int k = 0; k < 8; ++k) out[k][i] = y[k];
    }
    VROK_AVX2 void Store() {
        alignas(32) float z0[8], z1[8];
        _mm256_store_ps(z0, s0);
        _mm256_store_ps(z1, s1);
        for (int k = 0; k < count; ++k) {
            records[k]->s0 = z0[k], records[k]->s1 = z1[k];
            records[k]->CurrentToTarget();
        }
    }
};

VROK_AVX2 void RunLanes(BiquadRecord* const* records, const float* const* in, float* const* out, int count,
                        int m, float stepScale) {
    static const float zeros[kMaxFrames] = {};
    float scratch[kMaxFrames];
    SectionLanes groups[kMaxVoices / 8];
    const int numGroups = (count + 7) / 8;
    for (int g = 0; g < numGroups; ++g)
        groups[g].Load(records + 8 * g, in + 8 * g, out + 8 * g, std::min(8, count - 8 * g), stepScale, zeros,
                       scratch);
    // The groups advance together, so their recursions overlap in the processor.
    int i = 0;
    for (; i + 8 <= m; i += 8) {
        for (int g = 0; g < numGroups; ++g) {
            if (groups[g].ramps)
                groups[g].Run8<true>(i);
            else
                groups[g].Run8<false>(i);
        }
    }
    for (; i < m; ++i)
        for (int g = 0; g < numGroups; ++g) groups[g].Run1(i);
    for (int g = 0; g < numGroups; ++g) groups[g].Store();
}

#endif

}  // namespace

void RampedRunTogether(BiquadRecord* const* records, const float* const* in, float* const* out, int count,
                       int m, float stepScale) {
#if defined(__x86_64__)
    if (CpuHasAvx2()) {
        RunLanes(records, in, out, count, m, stepScale);
        return;
    }
#endif
    for (int k = 0; k < count; ++k) records[k]->RampedRun(in[k], out[k], m, stepScale);
}

double PolyCos(float w) {
    const double x = w, x2 = x * x;
    return 1.0 - x2 / 2.0 + x2 * x2 / 24.0;
}

double PolySin(float w) {
    const double x = w, x2 = x * x;
    return x + x * x2 / 6.0 + x * x2 * x2 / 120.0;
}

float AngularFrequency(double frequencyHz, double sampleRate) {
    return float(2.0 * std::numbers::pi * frequencyHz / sampleRate);
}

float FilterCutoffHz(float value) {
    const float c = std::clamp(value, 0.0f, 1.0f);
    const int i = int(10.0f * c);
    const float p = 10.0f * c - float(i);
    return (0.32f * p * p + 0.68f * p + 1.0f) * float(1 << i) * 22.0f;
}

namespace {

// The four forms that share c, alpha and n; the high-pass is the caller's business of
// passing 0.85 f. Writes the unscaled target coefficients.
void DesignPolynomial(BiquadRecord& r, int type, double frequencyHz, double q, double rate) {
    const float w = AngularFrequency(frequencyHz, rate);
    const double c = PolyCos(w);
    const double alpha = PolySin(w) / (2.0 * q);
    const double n = 1.0 / (1.0 + alpha);
    r.targetA1 = float(-2.0 * c * n);
    r.targetA2 = float((1.0 - alpha) * n);
    if (type == 1) {
        r.targetB0 = r.targetB2 = float((1.0 + c) * n / 2.0);
        r.targetB1 = float(-(1.0 + c) * n);
    } else if (type == 2) {
        r.targetB0 = float(alpha * n);
        r.targetB1 = 0.0f;
        r.targetB2 = float(-alpha * n);
    } else {
        r.targetB0 = r.targetB2 = float(n);
        r.targetB1 = float(-2.0 * c * n);
    }
}

}  // namespace

// [SECTION] CFilterBlock

namespace {
enum : int { kCutoff, kResonance, kType, kFilterParamCount };

constexpr ParamRow kFilterRows[kFilterParamCount] = {
    // name          kind               default  value text
    {"Cutoff", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Resonance", ParamKind::Slider, 0.0f, ValueText::Percent},
    {"Type", ParamKind::Filter, 0.0f, ValueText::Empty},
};
// Audio, cutoff and resonance; "Type" has no port.
constexpr int kFilterPorts = 3;
constexpr int kAudioPort = 0, kCutoffPort = 1, kResonancePort = 2;
// Under modulation the design runs at the start of every chunk of this many samples.
constexpr int kChunk = 64;

// Band reject comes from the last button (stored 1.0, truncated to 4) as well as from a
// stored 0.75..1, and the two differ only in their gain.
int FilterTypeOf(float value) { return int(value * 4.0f); }
}  // namespace

CFilterBlock::CFilterBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    std::fill(std::begin(lastNoteValue), std::end(lastNoteValue), -100);
    ConfigureFromRows(kFilterRows, kFilterPorts, kCategoryModifiers, "Filter");
}

float CFilterBlock::ResonanceQ(float value) {
    const float r = std::clamp(value, 0.0f, 1.0f);
    const float root = 14.0f * r * r * r + 5.0f * r + 1.0f;
    return root * root;
}

void CFilterBlock::Design(BiquadRecord& r, int type, float cutoffValue, float resonanceValue, float rate) {
    const float f = FilterCutoffHz(cutoffValue);
    const float q = ResonanceQ(resonanceValue);
    if (type == 0) {
        // A warped bilinear low-pass; the fifth-order term stands in for the tangent.
        const double w = std::numbers::pi * double(f) / double(rate);
        const double w2 = w * w;
        const double t = w + 0.6896551724137931 * (w2 * w2 * w);
        const double t2 = t * t;
        const double a = double(q) * (1.0 + t2);
        const double n = 1.0 / (a + t);
        r.targetB0 = r.targetB2 = float(double(q) * n * t2);
        r.targetB1 = 2.0f * r.targetB0;
        r.targetA1 = float(2.0 * double(q) * n * (t2 - 1.0));
        r.targetA2 = float(n * (a - t));
    } else if (type == 1) {
        DesignPolynomial(r, type, 0.85 * double(f), q, rate);
    } else {
        DesignPolynomial(r, type, f, 0.25 * double(q), rate);
    }
    float scale = 0.5f;
    if (type != 4) {
        const float g = type == 2 ? 22000.0f / (q * q * f) : q;
        scale = float(double((40.0f - 5.0f * g) / (25.0f * g + 40.0f)) + 0.6);
    }
    r.targetB0 *= scale;
    r.targetB1 *= scale;
    r.targetB2 *= scale;
}

void CFilterBlock::ParameterChanged(int index) {
    if (index == kCutoff) {
        cutoffValue.store(values[kCutoff], std::memory_order_relaxed);
    } else if (index == kType) {
        filterType.store(FilterTypeOf(values[kType]), std::memory_order_relaxed);
        for (int v = 0; v < kMaxVoices; ++v) records[v].GuardDenormals();
    }
    Design(records[kReference], filterType.load(std::memory_order_relaxed), values[kCutoff],
           values[kResonance], sampleRate);
    // Off every chain nothing renders, so the display is fed from here.
    if (!connected) PrepareBlock(1);
}

std::string CFilterBlock::DescribeValue(int index, float value) {
    if (index == kCutoff) return std::to_string(int(FilterCutoffHz(value))) + "Hz";
    return DescribeRowValue(kFilterRows, index, value, sampleRate);
}

void CFilterBlock::NoteOn(int velocity, int voice) {
    if (velocity == lastNoteValue[voice]) return;
    records[voice].MakeFresh();
    lastNoteValue[voice] = velocity;
}

void CFilterBlock::PrepareBlock(int numSamples) {
    CAudioBlock::PrepareBlock(numSamples);
    std::fill(std::begin(doneTogether), std::end(doneTogether), false);
    const int bank = snapshotWrite;
    auto copy = [&](int set, const BiquadRecord& r) {
        float* dest = snapshots[bank][set];
        dest[0] = r.targetB0, dest[1] = r.targetB1, dest[2] = r.targetB2, dest[3] = r.targetA1,
        dest[4] = r.targetA2;
    };
    for (int v = 0; v < engine->numVoices; ++v) copy(v, records[v]);
    copy(kReference, records[kReference]);
    snapshotRead = bank;
    displayChanged.store(true, std::memory_order_relaxed);
}

void CFilterBlock::ReadSnapshots(float (&sets)[kMaxVoices + 1][5]) {
    if (displayChanged.load(std::memory_order_relaxed)) {
        std::memcpy(sets, snapshots[snapshotRead], sizeof sets);
        if (snapshotRead == 1) {
            snapshotRead = 0, snapshotWrite = 1;
        } else {
            snapshotWrite = 0, snapshotRead = 1;
        }
    }
    displayChanged.store(false, std::memory_order_relaxed);
}

void CFilterBlock::DesignVoice(int voice, float cutoff, float resonance) {
    BiquadRecord designed;
    Design(designed, filterType.load(std::memory_order_relaxed), cutoff, resonance, sampleRate);
    ApplyDesign(voice, designed);
}

void CFilterBlock::ApplyDesign(int voice, const BiquadRecord& designed) {
    BiquadRecord& r = records[voice];
    if (resetPending[voice]) r.ClearState();
    displayChanged.store(true, std::memory_order_relaxed);
    r.targetB0 = designed.targetB0, r.targetB1 = designed.targetB1, r.targetB2 = designed.targetB2;
    r.targetA1 = designed.targetA1, r.targetA2 = designed.targetA2;
    r.GuardDenormals();
    r.GuardRunaway();
    if (resetPending[voice]) {
        resetPending[voice] = false;
        r.CurrentToTarget();
    }
}

float CFilterBlock::ModulatedCutoff(int voice, int i) const {
    const float stored = cutoffValue.load(std::memory_order_relaxed);
    if (!PortHasData(kCutoffPort, voice)) return stored;
    return std::clamp(stored + ports[kCutoffPort]->buffer[voice][i], 0.0f, 1.0f);
}

float CFilterBlock::ModulatedResonance(int voice, int i) const {
    const float stored = values[kResonance];
    if (!PortHasData(kResonancePort, voice)) return stored;
    return std::clamp(stored + ports[kResonancePort]->buffer[voice][i], 0.0f, 1.0f);
}

void CFilterBlock::RunUnmodulatedVoicesTogether(int numSamples) {
    BiquadRecord* together[kMaxVoices];
    const float* in[kMaxVoices];
    float* out[kMaxVoices];
    int count = 0;
    // Unmodulated, every voice gets the same design: it is made once.
    BiquadRecord designed;
    Design(designed, filterType.load(std::memory_order_relaxed), cutoffValue.load(std::memory_order_relaxed),
           values[kResonance], sampleRate);
    for (int v = 0; v < engine->numVoices; ++v) {
        if (!PortHasData(kAudioPort, v) || PortHasData(kCutoffPort, v) || PortHasData(kResonancePort, v))
            continue;
        // What Work would do for this voice before its run.
        if (!wasActive[v]) resetPending[v] = true;
        wasActive[v] = true;
        ApplyDesign(v, designed);
        together[count] = &records[v];
        in[count] = ports[kAudioPort]->buffer[v];
        out[count] = output[v];
        ++count;
        doneTogether[v] = true;
        active[v] = 1;
    }
    RampedRunTogether(together, in, out, count, numSamples, 1.0f / float(numSamples));
}

void CFilterBlock::RunModulatedVoicesTogether(int numSamples) {
    BiquadRecord* together[kMaxVoices];
    const float* in[kMaxVoices];
    float* out[kMaxVoices];
    int voices[kMaxVoices];
    int count = 0;
    for (int v = 0; v < engine->numVoices; ++v) {
        if (!PortHasData(kAudioPort, v) || (!PortHasData(kCutoffPort, v) && !PortHasData(kResonancePort, v)))
            continue;
        if (!wasActive[v]) resetPending[v] = true;
        wasActive[v] = true;
        voices[count] = v;
        together[count] = &records[v];
        in[count] = ports[kAudioPort]->buffer[v];
        out[count] = output[v];
        ++count;
        doneTogether[v] = true;
        active[v] = 1;
    }
    if (count == 0) return;
    // Each voice designs and runs its chunks in the order Work would; voices do not meet.
    int i = 0;
    for (; i + kChunk <= numSamples; i += kChunk) {
        for (int k = 0; k < count; ++k)
            DesignVoice(voices[k], ModulatedCutoff(voices[k], i), ModulatedResonance(voices[k], i));
        RampedRunTogether(together, in, out, count, kChunk, 1.0f / float(kChunk));
        for (int k = 0; k < count; ++k) in[k] += kChunk, out[k] += kChunk;
    }
    if (i < numSamples) RampedRunTogether(together, in, out, count, numSamples - i, 1.0f / float(numSamples - i));
}

void CFilterBlock::Work(int voice, int numSamples) {
    if (voice == 0 && !monophonic && engine->numVoices > 1) {
        RunUnmodulatedVoicesTogether(numSamples);
        RunModulatedVoicesTogether(numSamples);
    }
    if (doneTogether[voice]) {
        doneTogether[voice] = false;
        return;
    }
    active[voice] = 0;
    BiquadRecord& r = records[voice];
    float* out = output[voice];
    const bool hasInput = PortHasData(kAudioPort, voice);
    if (!hasInput && !wasActive[voice]) {
        // Silent: one design and one run over zeros, then the state is cleared. The run
        // only rings while state is left from the block that fell silent.
        DesignVoice(voice, ModulatedCutoff(voice, numSamples - 1), ModulatedResonance(voice, numSamples - 1));
        if (r.s0 == 0.0f && r.s1 == 0.0f) {
            std::fill_n(out, numSamples, 0.0f);
            r.CurrentToTarget();
        } else {
            r.RampedRun(nullptr, out, numSamples, 1.0f / float(numSamples));
        }
        r.ClearState();
        active[voice] = 1;
        return;
    }
    if (!wasActive[voice]) resetPending[voice] = true;
    wasActive[voice] = hasInput;
    // Falling silent, the input row is stale and counts as zeros.
    const float* in = hasInput ? ports[kAudioPort]->buffer[voice] : nullptr;
    if (!PortHasData(kCutoffPort, voice) && !PortHasData(kResonancePort, voice)) {
        DesignVoice(voice, cutoffValue.load(std::memory_order_relaxed), values[kResonance]);
        r.RampedRun(in, out, numSamples, 1.0f / float(numSamples));
    } else {
        int i = 0;
        for (; i + kChunk <= numSamples; i += kChunk) {
            DesignVoice(voice, ModulatedCutoff(voice, i), ModulatedResonance(voice, i));
            r.RampedRun(in ? in + i : nullptr, out + i, kChunk, 1.0f / float(kChunk));
        }
        // The remainder holds the coefficients: current already equals target.
        if (i < numSamples)
            r.RampedRun(in ? in + i : nullptr, out + i, numSamples - i, 1.0f / float(numSamples - i));
    }
    active[voice] = 1;
}

void CFilterBlock::Reset() {
    for (int v = 0; v < kMaxVoices; ++v) {
        records[v].ClearState();
        records[v].CurrentToTarget();
        records[v].GuardDenormals();
    }
}

// [SECTION] CFilterBlock2

namespace {
enum : int { kKeyTrack = kType + 1, kFilter2ParamCount };

constexpr ParamRow kFilter2Rows[kFilter2ParamCount] = {
    // name          kind               default  value text
    {"Cutoff", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Resonance", ParamKind::Slider, 0.0f, ValueText::Percent},
    {"Type", ParamKind::Filter, 0.0f, ValueText::Empty},
    {"KeyTrack", ParamKind::Switch, 0.0f, ValueText::Empty},
};
// Under modulation the design runs every this many samples, with no ramp.
constexpr int kChunk2 = 32;
}  // namespace

CFilterBlock2::CFilterBlock2(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    for (auto& pitch : notePitch) pitch.store(-100.0f, std::memory_order_relaxed);
    ConfigureFromRows(kFilter2Rows, kFilterPorts, kCategoryModifiers, "Filter");
}

void CFilterBlock2::ParameterChanged(int index) {
    if (index == kCutoff) {
        cutoffValue.store(values[kCutoff], std::memory_order_relaxed);
    } else if (index == kType) {
        filterType.store(FilterTypeOf(values[kType]), std::memory_order_relaxed);
    } else if (index == kKeyTrack) {
        keyTrack.store(values[kKeyTrack] > 0.5f, std::memory_order_relaxed);
    }
    if (!connected) {
        CAudioBlock::PrepareBlock(1);
        displayChanged.store(true, std::memory_order_relaxed);
    }
}

std::string CFilterBlock2::DescribeValue(int index, float value) {
    // The text follows the cutoff law also with "KeyTrack" on.
    if (index == kCutoff) return std::to_string(int(FilterCutoffHz(value))) + "Hz";
    if (index == kResonance) return FormatPercent(value);
    return {};
}

void CFilterBlock2::SetNote(float pitch, float, int voice) {
    notePitch[voice].store(pitch, std::memory_order_relaxed);
}

void CFilterBlock2::PrepareBlock(int numSamples) {
    CAudioBlock::PrepareBlock(numSamples);
    displayChanged.store(true, std::memory_order_relaxed);
}

void CFilterBlock2::DesignVoice(int voice, float modulation) {
    const int type = filterType.load(std::memory_order_relaxed);
    if (type > 3) return;
    const float c = cutoffValue.load(std::memory_order_relaxed);
    const float pitch = notePitch[voice].load(std::memory_order_relaxed);
    float f;
    if (!keyTrack.load(std::memory_order_relaxed)) {
        f = FilterCutoffHz(c + modulation);
    } else if (PortConnected(kCutoffPort)) {
        // Wired, the knob spans twice the semitones it spans unwired; both are intended.
        f = 440.0f * std::pow(2.0f, (((c - 0.5f) * 2.0f + modulation) * 96.0f + pitch - 70.0f) / 12.0f);
    } else {
        f = 440.0f * std::pow(2.0f, ((c - 0.5f) * 2.0f * 48.0f + pitch - 70.0f) / 12.0f);
    }
    f = std::min(f, sampleRate * 0.4761905f);
    f = std::max(f, 10.0f);
    const double q = double(values[kResonance] * 14.0f) + 0.01;
    BiquadRecord& r = records[voice];
    r.GuardRunaway();
    if (type == 0) {
        const float w = AngularFrequency(f, sampleRate);
        const float cw = std::cos(w);
        const float alpha = std::sin(w) / (2.0f * float(q));
        const float n = 1.0f / (1.0f + alpha);
        r.targetB1 = (1.0f - cw) * n;
        r.targetB0 = r.targetB2 = r.targetB1 / 2.0f;
        r.targetA1 = -2.0f * cw * n;
        r.targetA2 = (1.0f - alpha) * n;
    } else {
        DesignPolynomial(r, type, f, q, sampleRate);
    }
}

void CFilterBlock2::Work(int voice, int numSamples) {
    active[voice] = 0;
    BiquadRecord& r = records[voice];
    float* out = output[voice];
    if (!PortHasData(kAudioPort, voice)) {
        if (!tailPending[voice]) return;
        tailPending[voice] = false;
        for (int i = 0; i < numSamples; ++i) out[i] = r.Tick(0.0f);
        active[voice] = 1;
        return;
    }
    active[voice] = 1;
    tailPending[voice] = true;
    const float* in = ports[kAudioPort]->buffer[voice];
    if (!PortConnected(kCutoffPort)) {
        DesignVoice(voice, 0.0f);
        for (int i = 0; i < numSamples; ++i) out[i] = r.Tick(in[i]);
        return;
    }
    // A wired port that is silent for this voice modulates by nothing.
    const float* mod = PortHasData(kCutoffPort, voice) ? ports[kCutoffPort]->buffer[voice] : nullptr;
    for (int i = 0; i < numSamples; ++i) {
        if (i % kChunk2 == 0) DesignVoice(voice, mod ? mod[i] : 0.0f);
        out[i] = r.Tick(in[i]);
    }
}
