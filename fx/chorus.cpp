// The master chorus: its tables, its two settings and the per-sample taps.
#include "fx/chorus.h"

#include <cmath>

namespace {

constexpr int kThird = 682;  // a third of the table: three taps 120 degrees apart for nothing
constexpr float kFractionScale = 4.7683716e-07f;  // 2^-21

// Four-point cubic through ym, y0, y1, y2 at u in 0..1 from y0.
inline float Cubic(float ym, float y0, float y1, float y2, float u) {
    const float a = y2 - y1 - ym + y0;
    return (ym - y0 - a) * u * u + a * u * u * u + (y1 - ym) * u + y0;
}

// One channel: three taps read at the phase word, summed as + - -.
inline float Taps(const MasterChorus& chorus, const DelayRing& ring, uint32_t word) {
    const int index = int(word >> 21);
    const float t = float(word & 0x1FFFFFu) * kFractionScale;
    float sum = 0.0f;
    for (int k = 0; k < 3; ++k) {
        const int position = (index + k * kThird) % kChorusTable;
        const double q = ring.WrapPosition(double(ring.write) - double(chorus.TapDelay(position, t)));
        const int i = int(q);
        const float u = float(q - double(i));
        const float y = Cubic(ring.data[ring.Wrap(i - 1)], ring.data[ring.Wrap(i)], ring.data[ring.Wrap(i + 1)],
                              ring.data[ring.Wrap(i + 2)], u);
        sum += k == 0 ? y : -y;
    }
    return sum;
}

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

void MasterChorus::SetPhasing(float value) { phaseOffset = uint32_t(int(value * 2048.0f * 0.33333334f)) << 20; }

void MasterChorus::Process(StereoBuffers buffers, int numSamples) {
    const float dry = 1.0f - wet;
    for (int s = 0; s < numSamples; ++s) {
        phase += phaseStep;
        const uint32_t phaseRight = phaseOffset + phase;
        const float l = buffers.left[s];
        const float r = buffers.right[s];
        ringLeft.Push(l);
        ringRight.Push(r);
        buffers.left[s] = Taps(*this, ringLeft, phase) * wet + l * dry;
        buffers.right[s] = Taps(*this, ringRight, phaseRight) * wet + r * dry;
    }
}
