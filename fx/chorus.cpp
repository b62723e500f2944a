// The master chorus: its tables, its two settings and the per-sample taps. Eight samples
// at a time where the processor has AVX2, four with SSE2: lane j is sample j, and every
// lane runs the scalar formula's operations in the scalar order (no fused multiply-add),
// so all paths give the same bits.
#include "fx/chorus.h"

#include <algorithm>
#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif
#if defined(__x86_64__)
#include <immintrin.h>
#endif

namespace {

constexpr int kThird = 682;  // a third of the table: three taps 120 degrees apart for nothing
constexpr float kFractionScale = 4.7683716e-07f;  // 2^-21

// Four-point cubic through ym, y0, y1, y2 at u in 0..1 from y0.
inline float Cubic(float ym, float y0, float y1, float y2, float u) {
    const float a = y2 - y1 - ym + y0;
    return (ym - y0 - a) * u * u + a * u * u * u + (y1 - ym) * u + y0;
}

// The cubic at slot i of the ring, wrapping each point by one size.
inline float CubicAt(const DelayRing& ring, int i, float u) {
    const float* data = ring.data.get();
    if (i >= 1 && i + 2 < ring.size) return Cubic(data[i - 1], data[i], data[i + 1], data[i + 2], u);
    return Cubic(data[ring.Wrap(i - 1)], data[ring.Wrap(i)], data[ring.Wrap(i + 1)], data[ring.Wrap(i + 2)],
                 u);
}

// Table index above bit 21 and the fraction below it.
inline int IndexOf(uint32_t word) { return int(word >> 21); }
inline float FractionOf(uint32_t word) { return float(word & 0x1FFFFFu) * kFractionScale; }
inline int TapPosition(int index, int k) { return (index + k * kThird) & (kChorusTable - 1); }

// One channel at one sample: three taps read at the phase word, summed as + - -. `write`
// is the ring's next slot as it stood after this sample was stored.
inline float Taps(const MasterChorus& chorus, const DelayRing& ring, int write, uint32_t word) {
    const int index = IndexOf(word);
    const float t = FractionOf(word);
    float taps[3];
    for (int k = 0; k < 3; ++k) {
        // The tap delays stay far inside the ring, so one correction brings q into range.
        double q = double(write) - double(chorus.TapDelay(TapPosition(index, k), t));
        if (q < 0.0) q += ring.size;
        const int i = int(q);
        taps[k] = CubicAt(ring, i, float(q - double(i)));
    }
    return taps[0] - taps[1] - taps[2];
}

#if defined(__SSE2__)
inline __m128 CubicFour(__m128 ym, __m128 y0, __m128 y1, __m128 y2, __m128 u) {
    const __m128 a = _mm_add_ps(_mm_sub_ps(_mm_sub_ps(y2, y1), ym), y0);
    const __m128 first = _mm_mul_ps(_mm_mul_ps(_mm_sub_ps(_mm_sub_ps(ym, y0), a), u), u);
    const __m128 second = _mm_mul_ps(_mm_mul_ps(_mm_mul_ps(a, u), u), u);
    const __m128 third = _mm_mul_ps(_mm_sub_ps(y1, ym), u);
    return _mm_add_ps(_mm_add_ps(_mm_add_ps(first, second), third), y0);
}

// Taps of four consecutive samples of one channel. The read point moves by about one slot
// per sample, so the four lanes usually read four neighbouring windows: four unaligned
// loads then serve all sixteen points. Otherwise each lane is read on its own.
//
// No double precision is needed for the same bits: with d split into whole part w and
// fraction f (both exact in float), q = write - d has floor write - w - 1 and fraction
// 1 - f when f > 0, and a float subtraction rounds 1 - f exactly as the double path does.
__m128 TapsFour(const MasterChorus& chorus, const DelayRing& ring, const int write[4],
                const uint32_t word[4]) {
    int index[4];
    alignas(16) float t[4];
    for (int j = 0; j < 4; ++j) {
        index[j] = IndexOf(word[j]);
        t[j] = FractionOf(word[j]);
    }
    const bool oneIndex = index[0] == index[3];  // the LFO crosses a table entry rarely
    const __m128 tv = _mm_load_ps(t);
    const __m128i writes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(write));
    const __m128i size = _mm_set1_epi32(ring.size);
    const __m128i steps = _mm_setr_epi32(0, 1, 2, 3);
    const __m128 one = _mm_set1_ps(1.0f), zero = _mm_setzero_ps();
    const float* data = ring.data.get();
    __m128 sum = _mm_setzero_ps();
    for (int k = 0; k < 3; ++k) {
        __m128 delta, table;
        if (oneIndex) {
            const int p = TapPosition(index[0], k);
            delta = _mm_set1_ps(chorus.delayDelta[p]);
            table = _mm_set1_ps(chorus.delayTable[p]);
        } else {
            int p[4];
            for (int j = 0; j < 4; ++j) p[j] = TapPosition(index[j], k);
            delta = _mm_setr_ps(chorus.delayDelta[p[0]], chorus.delayDelta[p[1]], chorus.delayDelta[p[2]],
                                chorus.delayDelta[p[3]]);
            table = _mm_setr_ps(chorus.delayTable[p[0]], chorus.delayTable[p[1]], chorus.delayTable[p[2]],
                                chorus.delayTable[p[3]]);
        }
        const __m128 d = _mm_add_ps(_mm_mul_ps(delta, tv), table);
        const __m128i whole = _mm_cvttps_epi32(d);
        const __m128 part = _mm_sub_ps(d, _mm_cvtepi32_ps(whole));
        const __m128 hasPart = _mm_cmpgt_ps(part, zero);
        const __m128 u = _mm_and_ps(hasPart, _mm_sub_ps(one, part));
        // hasPart is all ones, -1 as an integer, where the floor steps one further down.
        __m128i i = _mm_add_epi32(_mm_sub_epi32(writes, whole), _mm_castps_si128(hasPart));
        i = _mm_add_epi32(i, _mm_and_si128(_mm_cmplt_epi32(i, _mm_setzero_si128()), size));
        const int first = _mm_cvtsi128_si32(i);
        const __m128i straight = _mm_cmpeq_epi32(i, _mm_add_epi32(_mm_set1_epi32(first), steps));
        __m128 tap;
        if (_mm_movemask_ps(_mm_castsi128_ps(straight)) == 0xF && first >= 1 && first + 5 < ring.size) {
            const float* at = data + first;
            tap = CubicFour(_mm_loadu_ps(at - 1), _mm_loadu_ps(at), _mm_loadu_ps(at + 1),
                            _mm_loadu_ps(at + 2), u);
        } else {
            alignas(16) int lanes[4];
            alignas(16) float fractions[4], values[4];
            _mm_store_si128(reinterpret_cast<__m128i*>(lanes), i);
            _mm_store_ps(fractions, u);
            for (int j = 0; j < 4; ++j) values[j] = CubicAt(ring, lanes[j], fractions[j]);
            tap = _mm_load_ps(values);
        }
        sum = k == 0 ? tap : _mm_sub_ps(sum, tap);
    }
    return sum;
}
#endif

#if defined(__x86_64__)
#define VROK_AVX2 __attribute__((target("avx2")))

bool HasAvx2() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2");
}
const bool kEightLanes = HasAvx2();

VROK_AVX2 inline __m256 CubicEight(__m256 ym, __m256 y0, __m256 y1, __m256 y2, __m256 u) {
    const __m256 a = _mm256_add_ps(_mm256_sub_ps(_mm256_sub_ps(y2, y1), ym), y0);
    const __m256 first = _mm256_mul_ps(_mm256_mul_ps(_mm256_sub_ps(_mm256_sub_ps(ym, y0), a), u), u);
    const __m256 second = _mm256_mul_ps(_mm256_mul_ps(_mm256_mul_ps(a, u), u), u);
    const __m256 third = _mm256_mul_ps(_mm256_sub_ps(y1, ym), u);
    return _mm256_add_ps(_mm256_add_ps(_mm256_add_ps(first, second), third), y0);
}

// TapsFour over eight samples; see there for the split of d that avoids doubles.
// The index and fraction of each phase word are taken in the register, as IndexOf and
// FractionOf take them.
VROK_AVX2 inline __m256 TapsEight(const MasterChorus& chorus, const DelayRing& ring, __m256i writes,
                                  __m256i words) {
    const __m256i indexes = _mm256_srli_epi32(words, 21);
    const __m256 tv = _mm256_mul_ps(_mm256_cvtepi32_ps(_mm256_and_si256(words, _mm256_set1_epi32(0x1FFFFF))),
                                    _mm256_set1_ps(kFractionScale));
    const int firstIndex = _mm256_cvtsi256_si32(indexes);
    const bool oneIndex = firstIndex == _mm256_extract_epi32(indexes, 7);
    const __m256i size = _mm256_set1_epi32(ring.size);
    const __m256i steps = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    const __m256 one = _mm256_set1_ps(1.0f), zero = _mm256_setzero_ps();
    const float* data = ring.data.get();
    __m256 sum = _mm256_setzero_ps();
    for (int k = 0; k < 3; ++k) {
        __m256 delta, table;
        if (oneIndex) {
            const int p = TapPosition(firstIndex, k);
            delta = _mm256_set1_ps(chorus.delayDelta[p]);
            table = _mm256_set1_ps(chorus.delayTable[p]);
        } else {
            alignas(32) int index[8];
            alignas(32) float deltas[8], tables[8];
            _mm256_store_si256(reinterpret_cast<__m256i*>(index), indexes);
            for (int j = 0; j < 8; ++j) {
                const int p = TapPosition(index[j], k);
                deltas[j] = chorus.delayDelta[p];
                tables[j] = chorus.delayTable[p];
            }
            delta = _mm256_load_ps(deltas);
            table = _mm256_load_ps(tables);
        }
        const __m256 d = _mm256_add_ps(_mm256_mul_ps(delta, tv), table);
        const __m256i whole = _mm256_cvttps_epi32(d);
        const __m256 part = _mm256_sub_ps(d, _mm256_cvtepi32_ps(whole));
        const __m256 hasPart = _mm256_cmp_ps(part, zero, _CMP_GT_OQ);
        const __m256 u = _mm256_and_ps(hasPart, _mm256_sub_ps(one, part));
        __m256i i = _mm256_add_epi32(_mm256_sub_epi32(writes, whole), _mm256_castps_si256(hasPart));
        i = _mm256_add_epi32(i, _mm256_and_si256(_mm256_cmpgt_epi32(_mm256_setzero_si256(), i), size));
        const int first = _mm256_cvtsi256_si32(i);
        const __m256i straight = _mm256_cmpeq_epi32(i, _mm256_add_epi32(_mm256_set1_epi32(first), steps));
        __m256 tap;
        if (_mm256_movemask_ps(_mm256_castsi256_ps(straight)) == 0xFF && first >= 1 &&
            first + 9 < ring.size) {
            const float* at = data + first;
            tap = CubicEight(_mm256_loadu_ps(at - 1), _mm256_loadu_ps(at), _mm256_loadu_ps(at + 1),
                             _mm256_loadu_ps(at + 2), u);
        } else {
            alignas(32) int lanes[8];
            alignas(32) float fractions[8], values[8];
            _mm256_store_si256(reinterpret_cast<__m256i*>(lanes), i);
            _mm256_store_ps(fractions, u);
            for (int j = 0; j < 8; ++j) values[j] = CubicAt(ring, lanes[j], fractions[j]);
            tap = _mm256_load_ps(values);
        }
        sum = k == 0 ? tap : _mm256_sub_ps(sum, tap);
    }
    return sum;
}

// As many whole groups of eight samples from `s` as fit before `end`; returns where it
// stopped. `write` follows the rings' write slot sample by sample.
VROK_AVX2 int RunEight(MasterChorus& chorus, StereoBuffers buffers, int s, int end, int& write) {
    const __m256 wet = _mm256_set1_ps(chorus.wet), dry = _mm256_set1_ps(1.0f - chorus.wet);
    const __m256i counts = _mm256_setr_epi32(1, 2, 3, 4, 5, 6, 7, 8);
    // Phase words wrap modulo 2^32 in the lanes exactly as in the scalar sum.
    const __m256i phaseSteps = _mm256_mullo_epi32(counts, _mm256_set1_epi32(int32_t(chorus.phaseStep)));
    const __m256i offset = _mm256_set1_epi32(int32_t(chorus.phaseOffset));
    const __m256i size = _mm256_set1_epi32(chorus.ringLeft.size);
    const __m256i last = _mm256_set1_epi32(chorus.ringLeft.size - 1);
    for (; s + 8 <= end; s += 8) {
        const __m256i wordsLeft = _mm256_add_epi32(_mm256_set1_epi32(int32_t(chorus.phase)), phaseSteps);
        const __m256i wordsRight = _mm256_add_epi32(wordsLeft, offset);
        chorus.phase += 8u * chorus.phaseStep;
        // The write slot after each sample's store; it wraps at most once in eight.
        __m256i writes = _mm256_add_epi32(_mm256_set1_epi32(write), counts);
        writes = _mm256_sub_epi32(writes, _mm256_and_si256(_mm256_cmpgt_epi32(writes, last), size));
        write = _mm256_extract_epi32(writes, 7);
        const __m256 left = TapsEight(chorus, chorus.ringLeft, writes, wordsLeft);
        const __m256 right = TapsEight(chorus, chorus.ringRight, writes, wordsRight);
        _mm256_storeu_ps(
            buffers.left + s,
            _mm256_add_ps(_mm256_mul_ps(left, wet), _mm256_mul_ps(_mm256_loadu_ps(buffers.left + s), dry)));
        _mm256_storeu_ps(
            buffers.right + s,
            _mm256_add_ps(_mm256_mul_ps(right, wet), _mm256_mul_ps(_mm256_loadu_ps(buffers.right + s), dry)));
    }
    return s;
}
#endif

}  // namespace

MasterChorus::MasterChorus(float rate)
    : sampleRate(int(rate)),
      ringLeft(float(sampleRate) * 0.3f),
      ringRight(float(sampleRate) * 0.3f),
      centerDelay(float(sampleRate) * 0.018f),
      depth(float(sampleRate) * 0.003f) {
    for (int i = 0; i < kChorusTable; ++i)
        delayTable[i] = centerDelay + depth * std::sin(float(i) * 6.283f / float(kChorusTable));
    for (int i = 0; i < kChorusTable; ++i) delayDelta[i] = delayTable[(i + 1) % kChorusTable] - delayTable[i];
}

void MasterChorus::SetSpeed(float value) {
    const double cycles = double(value * value * 1.4f) / double(sampleRate);
    const double word = std::nearbyint(cycles * 4294967296.0 - 0.5);
    phaseStep = uint32_t(uint64_t(int64_t(word)));
}

void MasterChorus::SetPhasing(float value) {
    phaseOffset = uint32_t(int(value * 2048.0f * 0.33333334f)) << 20;
}

void MasterChorus::Process(StereoBuffers buffers, int numSamples) {
    const float dry = 1.0f - wet;
    // Every tap reads at least the shortest delay back, so a run of samples shorter than
    // that can be stored first and read after: the same values, and no store feeding the
    // next sample's loads.
    const int run = std::max(1, int(centerDelay - depth) - 3);
    for (int start = 0; start < numSamples; start += run) {
        const int end = std::min(numSamples, start + run);
        int write = ringLeft.write;
        ringLeft.PushRun(buffers.left + start, end - start);
        ringRight.PushRun(buffers.right + start, end - start);
        auto next = [&] { return write = write + 1 == ringLeft.size ? 0 : write + 1; };
        int s = start;
#if defined(__x86_64__)
        if (kEightLanes) s = RunEight(*this, buffers, s, end, write);
#endif
#if defined(__SSE2__)
        const __m128 wetLanes = _mm_set1_ps(wet), dryLanes = _mm_set1_ps(dry);
        for (; s + 4 <= end; s += 4) {
            int writes[4];
            uint32_t wordsLeft[4], wordsRight[4];
            for (int j = 0; j < 4; ++j) {
                phase += phaseStep;
                wordsLeft[j] = phase;
                wordsRight[j] = phaseOffset + phase;
                writes[j] = next();
            }
            const __m128 left = TapsFour(*this, ringLeft, writes, wordsLeft);
            const __m128 right = TapsFour(*this, ringRight, writes, wordsRight);
            _mm_storeu_ps(buffers.left + s, _mm_add_ps(_mm_mul_ps(left, wetLanes),
                                                       _mm_mul_ps(_mm_loadu_ps(buffers.left + s), dryLanes)));
            _mm_storeu_ps(buffers.right + s,
                          _mm_add_ps(_mm_mul_ps(right, wetLanes),
                                     _mm_mul_ps(_mm_loadu_ps(buffers.right + s), dryLanes)));
        }
#endif
        for (; s < end; ++s) {
            phase += phaseStep;
            const uint32_t phaseRight = phaseOffset + phase;
            next();
            buffers.left[s] = Taps(*this, ringLeft, write, phase) * wet + buffers.left[s] * dry;
            buffers.right[s] = Taps(*this, ringRight, write, phaseRight) * wet + buffers.right[s] * dry;
        }
    }
}
