// The master reverb: parameter cooking and the per-sample network.
#include "fx/reverb.h"

#include <algorithm>
#include <bit>
#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace MasterReverb {
namespace {

constexpr float kDelayRatio[kLines] = {1.0f, 1.14975f, 1.28619f, 1.36007f};

// Not derived from any parameter. They are near, not equal, in magnitude; the small
// differences are part of the sound and must stay.
constexpr float kInputGainLeft[kLines] = {1.4386795f, 1.3893172f, -1.438679f, -1.3893176f};
constexpr float kInputGainRight[kLines] = {1.3893169f, -1.4386792f, -1.3893174f, 1.4386787f};
constexpr float kOutputGainLeft[kLines] = {0.35355335f, 0.35355347f, -0.35355324f, -0.35355362f};
constexpr float kOutputGainRight[kLines] = {0.35355341f, -0.3535533f, -0.35355356f, 0.35355318f};

// The LFO runs on 6.283, not two pi, in both the step and the wrap.
constexpr float kCycle = 6.283f;
constexpr float kFraction = 1.0f / 16384.0f;

// A denormal, infinity or NaN has its exponent bits all zero or all one; such a value
// must never enter the buffer, where it would circulate for ever.
inline float Storable(float x) {
    const uint32_t exponent = (std::bit_cast<uint32_t>(x) >> 23) & 0xFFu;
    return exponent == 0 || exponent == 0xFFu ? 0.0f : x;
}

}  // namespace

Reverb::Reverb(float rate) : sampleRate(rate), maxDelay(int(rate * 0.5f)), minDelay(rate * 0.013605442f) {
    const uint32_t needed = uint32_t(std::max(maxDelay, 1)) * kLines;
    while (bufferSize < needed) bufferSize *= 2;
    bufferMask = bufferSize - 1;
    delayBuffer = std::make_unique<float[]>(bufferSize);  // value-initialised: zeroes
    for (ReverbParameter* p : {&wetDry, &roomSize, &decay, &damping, &modSpeed, &modAmount})
        ParameterUpdated(p);
}

Reverb::~Reverb() = default;

ReverbParameter* Reverb::ParameterById(int id) {
    switch (id) {
        case 1:
            return &wetDry;
        case 2:
            return &roomSize;
        case 3:
            return &decay;
        case 4:
            return &damping;
        case 5:
            return &modAmount;
        case 6:
            return &modSpeed;
        default:
            return nullptr;
    }
}

void Reverb::ParameterUpdated(const ReverbParameter* parameter) {
    if (parameter == &roomSize) {
        SetRoomSize();
        SetDecay();
    } else if (parameter == &decay || parameter == &damping) {
        SetDecay();
    } else if (parameter == &modSpeed) {
        lfoStep = (std::exp2(modSpeed.value) - 1.0f) * (kCycle / sampleRate);
    }
    SetModDepth();
}

void Reverb::SetRoomSize() {
    // Exponential in r^0.54, from 64 samples at 0 to maxDelay - minDelay for the longest
    // line at 1.
    const float a = ((float(maxDelay) - minDelay) / 1.36007f) * (1.0f / 64.0f);
    const int n = int(64.0f * std::pow(a, std::pow(roomSize.value, 0.54f)));
    for (int i = 0; i < kLines; ++i) {
        lineDelay[i] = int(kDelayRatio[i] * float(n));
        lineOffset[i] = (bufferSize - uint32_t(lineDelay[i])) << 14;
    }
}

void Reverb::SetDecay() {
    const float v = decay.value;
    const float low = v * v * v * sampleRate * 30.0f * 0.5f + sampleRate * 0.01f;
    const float u = 1.0f - (std::sqrt(damping.value) * 0.17f + 0.81f);
    const float high = u * 0.5f * u * sampleRate * 30.0f + 10.0f;
    for (int i = 0; i < kLines; ++i) {
        const float g = std::exp2(-float(lineDelay[i]) / low);
        const float h = std::exp2(-float(lineDelay[i]) / high);
        dampRatio[i] = h / g;
        // Rows of the feedback matrix have length 2; the half normalises them.
        feedbackGain[i] = g * 0.5f;
        dampCoef[i] = 2.0f * dampRatio[i] / (dampRatio[i] + 1.0f);
    }
}

void Reverb::SetModDepth() {
    // Never within five samples of the shortest line, so a read stays behind the write.
    modDepth = std::min((std::pow(4.0f, modAmount.value) - 1.0f) * 0.03f * minDelay, float(lineDelay[0] - 5));
}

void Reverb::Process(StereoBuffers input, StereoBuffers output, int numSamples) {
    if (numSamples <= 0) return;
    // The modulation is sampled once a block; the displacement ramps to it linearly.
    int32_t increment[kLines];
    for (int i = 0; i < kLines; ++i) {
        const int32_t target = -int32_t(std::sin(lfoPhase[i]) * modDepth * -16384.0f);
        increment[i] = (target - modOffset[i]) / numSamples;
        lfoPhase[i] = std::fmod(lfoPhase[i] + lfoStep * float(numSamples), kCycle);
        // A moving line opens its damping: the factor is 1 at rest and near 1.7 in motion.
        // That lifts the one-pole's gain at high frequencies to up to 1.7 h / g, so a round
        // trip gains up to 1.7 h there: with short lines (Roomsize near 0, h near 1) and slow
        // modulation the network grows until the write guard zeroes values past the float
        // range, then starts again. The stress test counts such runs apart.
        const float step = float(increment[i]) * kFraction;
        const float x = step * step;
        const float ratio = dampRatio[i] * (1.0f + 0.7f * x / (x + 1e-9f));
        dampCoef[i] = 2.0f * ratio / (ratio + 1.0f);
    }
    const float wet = wetDry.value;
    const float dry = 1.0f - wet;
#if defined(__SSE2__)
    ProcessLanes(input, output, numSamples, increment, wet, dry);
#else
    float* const buffer = delayBuffer.get();
    for (int s = 0; s < numSamples; ++s) {
        const float l = input.left[s];
        const float r = input.right[s];
        writeIndex = (writeIndex + kLines) & bufferMask;
        float tap[kLines];
        for (int i = 0; i < kLines; ++i) {
            modOffset[i] += increment[i];
            const uint32_t position = uint32_t(modOffset[i]) + writeIndex * 4096u + lineOffset[i];
            const uint32_t p = ((position >> 14) * kLines + uint32_t(i)) & bufferMask;
            const float t = float(uint32_t(modOffset[i]) & 0x3FFFu) * kFraction;
            tap[i] = buffer[(p + kLines) & bufferMask] * t + buffer[p] * (1.0f - t);
        }
        const float a = tap[0], b = tap[1], c = tap[2], d = tap[3];
        const float mix[kLines] = {d - a - b - c, a - b - c - d, b - a - c - d, c - a - b - d};
        float outLeft = kOutputGainLeft[0] * tap[0], outRight = kOutputGainRight[0] * tap[0];
        for (int i = 0; i < kLines; ++i) {
            const float in = mix[i] + kInputGainLeft[i] * l + kInputGainRight[i] * r;
            dampState[i] += (in - dampState[i]) * dampCoef[i];
            buffer[writeIndex + uint32_t(i)] = Storable(dampState[i] * feedbackGain[i]);
            if (i > 0) {
                outLeft += kOutputGainLeft[i] * tap[i];
                outRight += kOutputGainRight[i] * tap[i];
            }
        }
        output.left[s] = outLeft * wet + l * dry;
        output.right[s] = outRight * wet + r * dry;
    }
#endif
}

#if defined(__SSE2__)
// The four lines as the four lanes of one register: the lines of a time step sit side by
// side in the buffer, so the write is one store. Each lane runs the scalar formula's
// operations in its order.
void Reverb::ProcessLanes(StereoBuffers input, StereoBuffers output, int numSamples, const int32_t* increment,
                          float wet, float dry) {
    float* const buffer = delayBuffer.get();
    const __m128i lineIndex = _mm_setr_epi32(0, 1, 2, 3);
    const __m128i mask = _mm_set1_epi32(int32_t(bufferMask));
    const __m128i fractionMask = _mm_set1_epi32(0x3FFF);
    const __m128i exponentBits = _mm_set1_epi32(0x7F800000);
    const __m128i steps = _mm_loadu_si128(reinterpret_cast<const __m128i*>(increment));
    const __m128 fraction = _mm_set1_ps(kFraction), one = _mm_set1_ps(1.0f);
    const __m128 gainInLeft = _mm_loadu_ps(kInputGainLeft), gainInRight = _mm_loadu_ps(kInputGainRight);
    const __m128 gainOutLeft = _mm_loadu_ps(kOutputGainLeft), gainOutRight = _mm_loadu_ps(kOutputGainRight);
    const __m128 coef = _mm_loadu_ps(dampCoef), feedback = _mm_loadu_ps(feedbackGain);
    __m128i mod = _mm_loadu_si128(reinterpret_cast<const __m128i*>(modOffset));
    __m128 state = _mm_loadu_ps(dampState);
    // The read position in 18.14 is displacement + writeIndex * 4096 + lineOffset. Each
    // sample adds the displacement's step and one time step (16384); where writeIndex wraps,
    // the sum runs on by a multiple of the buffer, which the mask removes. The fraction is
    // the displacement's, since the other two terms are whole time steps.
    __m128i position = _mm_add_epi32(_mm_add_epi32(mod, _mm_set1_epi32(int32_t(writeIndex * 4096u))),
                                     _mm_loadu_si128(reinterpret_cast<const __m128i*>(lineOffset)));
    const __m128i advance = _mm_add_epi32(steps, _mm_set1_epi32(16384));
    // Wet sums of each sample, left and right; mixed with the dry signal after each run.
    alignas(16) float sums[2 * kMaxFrames];
    for (int start = 0; start < numSamples; start += kMaxFrames) {
        const int end = std::min(numSamples, start + kMaxFrames);
        for (int s = start; s < end; ++s) {
            const float l = input.left[s];
            const float r = input.right[s];
            writeIndex = (writeIndex + kLines) & bufferMask;
            position = _mm_add_epi32(position, advance);
            const __m128i p = _mm_and_si128(
                _mm_add_epi32(_mm_slli_epi32(_mm_srli_epi32(position, 14), 2), lineIndex), mask);
            const __m128i later = _mm_and_si128(_mm_add_epi32(p, _mm_set1_epi32(kLines)), mask);
            alignas(16) uint32_t at[4], next[4];
            _mm_store_si128(reinterpret_cast<__m128i*>(at), p);
            _mm_store_si128(reinterpret_cast<__m128i*>(next), later);
            const __m128 older = _mm_setr_ps(buffer[at[0]], buffer[at[1]], buffer[at[2]], buffer[at[3]]);
            const __m128 newer =
                _mm_setr_ps(buffer[next[0]], buffer[next[1]], buffer[next[2]], buffer[next[3]]);
            const __m128 t = _mm_mul_ps(_mm_cvtepi32_ps(_mm_and_si128(position, fractionMask)), fraction);
            const __m128 tap = _mm_add_ps(_mm_mul_ps(newer, t), _mm_mul_ps(older, _mm_sub_ps(one, t)));
            // Lanes: d - a - b - c, a - b - c - d, b - a - c - d, c - a - b - d.
            const __m128 first = _mm_shuffle_ps(tap, tap, _MM_SHUFFLE(2, 1, 0, 3));
            const __m128 second = _mm_shuffle_ps(tap, tap, _MM_SHUFFLE(0, 0, 1, 0));
            const __m128 third = _mm_shuffle_ps(tap, tap, _MM_SHUFFLE(1, 2, 2, 1));
            const __m128 fourth = _mm_shuffle_ps(tap, tap, _MM_SHUFFLE(3, 3, 3, 2));
            const __m128 mix = _mm_sub_ps(_mm_sub_ps(_mm_sub_ps(first, second), third), fourth);
            const __m128 in = _mm_add_ps(_mm_add_ps(mix, _mm_mul_ps(gainInLeft, _mm_set1_ps(l))),
                                         _mm_mul_ps(gainInRight, _mm_set1_ps(r)));
            state = _mm_add_ps(state, _mm_mul_ps(_mm_sub_ps(in, state), coef));
            const __m128 written = _mm_mul_ps(state, feedback);
            const __m128i exponent = _mm_and_si128(_mm_castps_si128(written), exponentBits);
            const __m128i bad = _mm_or_si128(_mm_cmpeq_epi32(exponent, _mm_setzero_si128()),
                                             _mm_cmpeq_epi32(exponent, exponentBits));
            _mm_storeu_ps(buffer + writeIndex, _mm_andnot_ps(_mm_castsi128_ps(bad), written));
            // Both sums in the lines' order: (((g0 t0 + g1 t1) + g2 t2) + g3 t3).
            const __m128 left = _mm_mul_ps(gainOutLeft, tap), right = _mm_mul_ps(gainOutRight, tap);
            const __m128 low = _mm_unpacklo_ps(left, right), high = _mm_unpackhi_ps(left, right);
            __m128 sum = _mm_add_ps(low, _mm_movehl_ps(low, low));
            sum = _mm_add_ps(sum, high);
            sum = _mm_add_ps(sum, _mm_movehl_ps(high, high));
            _mm_storel_pi(reinterpret_cast<__m64*>(sums + 2 * (s - start)), sum);
            mod = _mm_add_epi32(mod, steps);
        }
        for (int s = start; s < end; ++s) {
            output.left[s] = sums[2 * (s - start)] * wet + input.left[s] * dry;
            output.right[s] = sums[2 * (s - start) + 1] * wet + input.right[s] * dry;
        }
    }
    _mm_storeu_si128(reinterpret_cast<__m128i*>(modOffset), mod);
    _mm_storeu_ps(dampState, state);
}
#endif

}  // namespace MasterReverb
