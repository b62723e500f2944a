// The master delay: lengths from the settings, and the per-sample loop.
#include "fx/master_delay.h"

#include <algorithm>
#include <cmath>

namespace {

// The slot read for floor(q) = i: i - 0.5 rounded to nearest with ties to even, which
// for i >= 0 is i with its low bit cleared. Reads are held over pairs of samples; that
// coarse grain is the delay's character and must not become a plain floor.
inline int EvenSlot(int i) { return i & ~1; }

}  // namespace

MasterDelay::MasterDelay(float rate)
    : ringLeft(float(int(rate))), ringRight(float(int(rate))), sampleRate(rate) {
    UpdateLengths();
}

void MasterDelay::SetMode(int newMode) {
    mode = newMode;
    UpdateLengths();
}

void MasterDelay::SetLength(float value) {
    lengthValue = value;
    UpdateLengths();
}

void MasterDelay::SetSpacing(float value) {
    spacing = (value * 2.0f - 1.0f) * 0.95f;
    UpdateLengths();
}

void MasterDelay::UpdateLengths() {
    const float f = lengthValue * 0.95f + 0.05f;
    const float longest = float(ringRight.size - 1);
    if (mode == kWiden) {
        baseLength = sampleRate * f * 0.06f;
    } else {
        baseLength = longest * f;
    }
    if (mode == kNormal) {
        lengthLeft = lengthRight = baseLength;
    } else if (mode == kSpaced || mode == kWiden) {
        lengthLeft = (1.0f + spacing) * baseLength;
        lengthRight = (1.0f - spacing) * baseLength;
    }
}

void MasterDelay::Process(StereoBuffers buffers, int numSamples) {
    const float wetLevel = wet;
    const float crossLevel = cross;
    const float keep = 1.0f - crossLevel;
    const float dry = 1.0f - wetLevel;
    // The lengths hold for the block, so each read slot is found once and then moves on by
    // one slot a sample: adding whole samples to q moves its floor by as much, exactly.
    int readLeft = int(ringLeft.WrapPosition(double(ringLeft.write) - double(lengthLeft)));
    int readRight = int(ringRight.WrapPosition(double(ringRight.write) - double(lengthRight)));
    float* const left = ringLeft.data.get();
    float* const right = ringRight.data.get();
    for (int s = 0; s < numSamples; ++s) {
        const float tapLeft = left[EvenSlot(readLeft)];
        const float tapRight = right[EvenSlot(readRight)];
        if (++readLeft == ringLeft.size) readLeft = 0;
        if (++readRight == ringRight.size) readRight = 0;
        const float l = buffers.left[s];
        const float r = buffers.right[s];
        const float a = feedback * tapLeft + l;
        const float b = feedback * tapRight + r;
        // Both negated: every round through the loop flips the polarity.
        ringLeft.Push(-(a * keep + b * crossLevel));
        ringRight.Push(-(b * keep + a * crossLevel));
        buffers.left[s] = l * dry + tapLeft * wetLevel;
        buffers.right[s] = r * dry + tapRight * wetLevel;
    }
}
