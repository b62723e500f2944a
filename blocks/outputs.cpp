// The mono and the panning output blocks, and the soft knee they share.
//
// [SECTION] Knee and mixing
// [SECTION] COutputBlock
// [SECTION] CPanOutputBlock
#include "blocks/outputs.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#if defined(__SSE2__)
#include <immintrin.h>
#endif

#include "blocks/pan_law.h"
#include "blocks/vector_lanes.h"

// [SECTION] Knee and mixing

float OutputKnee(float s, float scale) {
    float k = scale;
    float magnitude = std::fabs(s);
    if (magnitude < k) return s;
    float h = 1.0f - k;
    float u = (magnitude - k) / (1.5f * h);
    float shaped = std::fabs(u) >= 1.0f ? k - h : h * (1.5f - 0.5f * u * u) * u + k;
    return s < 0.0f ? -shaped : shaped;
}

namespace {

// The peaks below take the largest magnitude, and a NaN never raises one. The compiler
// will not vectorise a float max on its own (it must keep NaN order), so the SSE paths
// spell it out: maxps returns its second operand when either is NaN, which is the scalar
// rule with the running peak second.
inline float RaisePeak(float top, float x) {
    float a = std::fabs(x);
    return a > top ? a : top;
}

#if defined(__SSE2__)
inline __m128 Magnitude(__m128 x) { return _mm_and_ps(x, _mm_castsi128_ps(_mm_set1_epi32(0x7fffffff))); }

// Four running maxima of four lanes: one chain would wait on maxps latency every step.
struct PeakLanes {
    __m128 lanes[4];

    explicit PeakLanes(float start) {
        for (__m128& l : lanes) l = _mm_set1_ps(start);
    }
    void Raise(int k, __m128 x) { lanes[k] = _mm_max_ps(Magnitude(x), lanes[k]); }
    float Fold(float top) const {
        alignas(16) float all[16];
        for (int k = 0; k < 4; ++k) _mm_store_ps(all + 4 * k, lanes[k]);
        for (float lane : all) top = lane > top ? lane : top;
        return top;
    }
};
#endif

// Adds OutputKnee(level * mix[i], scale) to row[i] and, when `also` is given, to also[i].
// Below the knee the shape passes a sample unchanged, so four that all lie there are added
// as they are, four at a time; any other four take the scalar knee. Either way every
// sample is the scalar one.
void AddKneed(float* row, float* also, const float* __restrict mix, float level, float scale, int n) {
    int i = 0;
#if defined(__SSE2__)
    const __m128 levels = _mm_set1_ps(level), knee = _mm_set1_ps(scale);
    for (; i + 4 <= n; i += 4) {
        const __m128 s = _mm_mul_ps(levels, _mm_loadu_ps(mix + i));
        // NaN fails the comparison and goes the scalar way.
        if (_mm_movemask_ps(_mm_cmplt_ps(Magnitude(s), knee)) == 15) {
            _mm_storeu_ps(row + i, _mm_add_ps(_mm_loadu_ps(row + i), s));
            if (also) _mm_storeu_ps(also + i, _mm_add_ps(_mm_loadu_ps(also + i), s));
            continue;
        }
        for (int j = i; j < i + 4; ++j) {
            const float shaped = OutputKnee(level * mix[j], scale);
            row[j] += shaped;
            if (also) also[j] += shaped;
        }
    }
#endif
    for (; i < n; ++i) {
        const float shaped = OutputKnee(level * mix[i], scale);
        row[i] += shaped;
        if (also) also[i] += shaped;
    }
}

// Adds the knee-shaped mix to one host row. `gain` is volume squared.
void MixInto(float* __restrict row, const float* __restrict mix, float gain, float scale, int numSamples) {
    AddKneed(row, nullptr, mix, gain * scale, scale, numSamples);
}

// Largest magnitude in x[0..n), at least `start`.
float PeakOf(const float* __restrict x, int n, float start) {
    float top = start;
    int i = 0;
#if defined(__SSE2__)
    PeakLanes peaks(start);
    for (; i + 16 <= n; i += 16)
        for (int k = 0; k < 4; ++k) peaks.Raise(k, _mm_loadu_ps(x + i + 4 * k));
    top = peaks.Fold(top);
#endif
    for (; i < n; ++i) top = RaisePeak(top, x[i]);
    return top;
}

#if defined(__x86_64__)
// AccumulateWithPeak eight lanes wide: the same sums, and the same peak, since the largest
// of a set of magnitudes does not depend on the order they are compared in and maxps
// skips NaN as the scalar rule does.
VROK_AVX2 float AccumulateWithPeakEight(float* __restrict mix, const float* __restrict in, int n,
                                        float start) {
    const __m256 magnitude = _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff));
    __m256 lanes[4];
    for (__m256& l : lanes) l = _mm256_set1_ps(start);
    int i = 0;
    for (; i + 32 <= n; i += 32) {
        for (int k = 0; k < 4; ++k) {
            const __m256 sum =
                _mm256_add_ps(_mm256_loadu_ps(mix + i + 8 * k), _mm256_loadu_ps(in + i + 8 * k));
            _mm256_storeu_ps(mix + i + 8 * k, sum);
            lanes[k] = _mm256_max_ps(_mm256_and_ps(sum, magnitude), lanes[k]);
        }
    }
    // The lanes hold no NaN, so folding them with maxps in any order gives their largest;
    // in registers, since reading back a wide store lane by lane stalls.
    const __m256 wide = _mm256_max_ps(_mm256_max_ps(lanes[0], lanes[1]), _mm256_max_ps(lanes[2], lanes[3]));
    __m128 half = _mm_max_ps(_mm256_castps256_ps128(wide), _mm256_extractf128_ps(wide, 1));
    half = _mm_max_ps(half, _mm_movehl_ps(half, half));
    half = _mm_max_ss(half, _mm_shuffle_ps(half, half, 1));
    float top = _mm_cvtss_f32(half);
    for (; i < n; ++i) {
        mix[i] += in[i];
        top = RaisePeak(top, mix[i]);
    }
    return top;
}
#endif

// Adds `in` to `mix` and returns the largest magnitude of the running sum, at least `start`.
float AccumulateWithPeak(float* __restrict mix, const float* __restrict in, int n, float start) {
#if defined(__x86_64__)
    if (CpuHasAvx2()) return AccumulateWithPeakEight(mix, in, n, start);
#endif
    float top = start;
    int i = 0;
#if defined(__SSE2__)
    PeakLanes peaks(start);
    for (; i + 16 <= n; i += 16) {
        for (int k = 0; k < 4; ++k) {
            __m128 sum = _mm_add_ps(_mm_loadu_ps(mix + i + 4 * k), _mm_loadu_ps(in + i + 4 * k));
            _mm_storeu_ps(mix + i + 4 * k, sum);
            peaks.Raise(k, sum);
        }
    }
    top = peaks.Fold(top);
#endif
    for (; i < n; ++i) {
        mix[i] += in[i];
        top = RaisePeak(top, mix[i]);
    }
    return top;
}

}  // namespace

// [SECTION] COutputBlock

namespace {
constexpr ParamRow kOutputRows[] = {
    // name       kind              default  value text
    {"Volume", ParamKind::Slider, 0.5f, ValueText::DecibelsOfSquare},
};
// Only the signal comes in; "Volume" has no port.
constexpr int kOutputPorts = 1;
}  // namespace

COutputBlock::COutputBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    hasOutputWork = true;
    isOutput = true;
    ConfigureFromRows(kOutputRows, kOutputPorts, kCategoryOutputs, "Output");
    ports[0]->readsInPlace = true;
}

std::string COutputBlock::DescribeValue(int index, float value) {
    return DescribeRowValue(kOutputRows, index, value, sampleRate);
}

void COutputBlock::PrepareBlock(int numSamples) {
    std::fill(mixBuffer, mixBuffer + numSamples, 0.0f);
    CAudioBlock::PrepareBlock(numSamples);
    float v = values[0];
    meterLevel.store(peak * v * v, std::memory_order_relaxed);
    peak = 0.0f;
}

void COutputBlock::Work(int voice, int numSamples) {
    displayChanged.store(true, std::memory_order_relaxed);
    if (!PortHasData(0, voice)) {
        active[voice] = 0;
        return;
    }
    // The peak follows the running sum, so it may see a partial sum of the voices.
    peak = AccumulateWithPeak(mixBuffer, ports[0]->Row(voice), numSamples, peak);
    active[voice] = 1;
}

void COutputBlock::OutputWork(StereoBuffers buffers, int numSamples, float scale) {
    if (disconnected || peak == 0.0f || numSamples == 0) return;
    float v = values[0];
    float gain = v * v;
    AddKneed(buffers.left, buffers.right, mixBuffer, gain * scale, scale, numSamples);
}

// [SECTION] CPanOutputBlock

namespace {
enum : int { kPan, kVolume, kPanParamCount };

constexpr ParamRow kPanOutputRows[kPanParamCount] = {
    // name       kind                 default  value text
    {"pan", ParamKind::SliderAlt, 0.5f, ValueText::Pan},
    {"volume", ParamKind::Slider, 0.5f, ValueText::DecibelsOfSquare},
};
// The signal, then a port for "pan"; "volume" has none.
constexpr int kPanOutputPorts = 2;
}  // namespace

CPanOutputBlock::CPanOutputBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    hasOutputWork = true;
    isOutput = true;
    ConfigureFromRows(kPanOutputRows, kPanOutputPorts, kCategoryOutputs, "Output");
    for (auto& port : ports) port->readsInPlace = true;
}

void CPanOutputBlock::ParameterChanged(int index) {
    if (index != kPan) return;
    PanGains gains = PanGainsForValue(values[kPan]);
    gainLeft.store(gains.left, std::memory_order_relaxed);
    gainRight.store(gains.right, std::memory_order_relaxed);
}

std::string CPanOutputBlock::DescribeValue(int index, float value) {
    return DescribeRowValue(kPanOutputRows, index, value, sampleRate);
}

void CPanOutputBlock::PrepareBlock(int numSamples) {
    std::fill(mixLeft, mixLeft + numSamples, 0.0f);
    std::fill(mixRight, mixRight + numSamples, 0.0f);
    CAudioBlock::PrepareBlock(numSamples);
    // The meter follows the volume only; the pan does not move it.
    float v = values[kVolume];
    meterLevel.store(peak * v * v, std::memory_order_relaxed);
    peak = 0.0f;
}

void CPanOutputBlock::Work(int voice, int numSamples) {
    displayChanged.store(true, std::memory_order_relaxed);
    if (!PortHasData(0, voice)) {
        active[voice] = 0;
        return;
    }
    const float* __restrict in = ports[0]->Row(voice);
    float* __restrict left = mixLeft;
    float* __restrict right = mixRight;
    // The peak of this voice's own input, not of the mix.
    peak = PeakOf(in, numSamples, peak);
    if (PortHasData(1, voice)) {
        const float* panIn = ports[1]->Row(voice);
        float storedPan = values[kPan];
        for (int i = 0; i < numSamples; ++i) {
            PanGains g = PanGainsForValue(std::clamp(storedPan + panIn[i], 0.0f, 1.0f));
            float x = in[i];
            left[i] += x * g.left;
            right[i] += x * g.right;
        }
    } else {
        float gl = gainLeft.load(std::memory_order_relaxed);
        float gr = gainRight.load(std::memory_order_relaxed);
        for (int i = 0; i < numSamples; ++i) {
            float x = in[i];
            left[i] += x * gl;
            right[i] += x * gr;
        }
    }
    active[voice] = 1;
}

void CPanOutputBlock::OutputWork(StereoBuffers buffers, int numSamples, float scale) {
    if (disconnected || peak == 0.0f || numSamples == 0) return;
    float v = values[kVolume];
    float gain = v * v;
    MixInto(buffers.left, mixLeft, gain, scale, numSamples);
    MixInto(buffers.right, mixRight, gain, scale, numSamples);
}
