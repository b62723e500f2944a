// The master reverb: parameter cooking and the per-sample network.
#include "fx/reverb.h"

#include <algorithm>
#include <bit>
#include <cmath>

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

Reverb::Reverb(float rate)
    : sampleRate(rate), maxDelay(int(rate * 0.5f)), minDelay(rate * 0.013605442f) {
    const uint32_t needed = uint32_t(std::max(maxDelay, 1)) * kLines;
    while (bufferSize < needed) bufferSize *= 2;
    bufferMask = bufferSize - 1;
    delayBuffer = std::make_unique<float[]>(bufferSize);  // value-initialised: zeroes
    for (ReverbParameter* p : {&wetDry, &roomSize, &decay, &damping, &modSpeed, &modAmount}) ParameterUpdated(p);
}

Reverb::~Reverb() = default;

ReverbParameter* Reverb::ParameterById(int id) {
    switch (id) {
        case 1: return &wetDry;
        case 2: return &roomSize;
        case 3: return &decay;
        case 4: return &damping;
        case 5: return &modAmount;
        case 6: return &modSpeed;
        default: return nullptr;
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
        const float step = float(increment[i]) * kFraction;
        const float x = step * step;
        const float ratio = dampRatio[i] * (1.0f + 0.7f * x / (x + 1e-9f));
        dampCoef[i] = 2.0f * ratio / (ratio + 1.0f);
    }
    const float wet = wetDry.value;
    const float dry = 1.0f - wet;
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
        float outLeft = 0.0f, outRight = 0.0f;
        for (int i = 0; i < kLines; ++i) {
            const float in = mix[i] + kInputGainLeft[i] * l + kInputGainRight[i] * r;
            dampState[i] += (in - dampState[i]) * dampCoef[i];
            buffer[writeIndex + uint32_t(i)] = Storable(dampState[i] * feedbackGain[i]);
            outLeft += kOutputGainLeft[i] * tap[i];
            outRight += kOutputGainRight[i] * tap[i];
        }
        output.left[s] = outLeft * wet + l * dry;
        output.right[s] = outRight * wet + r * dry;
    }
}

}  // namespace MasterReverb
