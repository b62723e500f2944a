// The master chorus: three taps per channel, 120 degrees apart on one sine, read with cubic
// interpolation from a 0.3 s ring. The first tap adds and the other two subtract. No
// feedback. First of the master stages.
#pragma once

#include <cstdint>

#include "engine/audio_block.h"
#include "fx/delay_ring.h"

constexpr int kChorusTable = 2048;

class MasterChorus {
public:
    // Allocates the rings and fills the tables for `rate`. Wet starts at 0.
    explicit MasterChorus(float rate);

    // Global "Speed": the LFO at 1.4 s^2 Hz. Engine lock held.
    void SetSpeed(float value);
    // Global "Phasing": the right channel's lead, one sixth of a cycle at full scale.
    void SetPhasing(float value);
    // In place. Audio thread; allocation-free.
    void Process(StereoBuffers buffers, int numSamples);
    // Delay in samples of the tap at table `position` and fraction `t`.
    float TapDelay(int position, float t) const { return delayDelta[position] * t + delayTable[position]; }

    uint32_t phase = 0;      // left channel; the table index sits above bit 21
    uint32_t phaseStep = 0;  // per sample
    int sampleRate;
    DelayRing ringLeft, ringRight;
    float centerDelay;  // samples
    float depth;        // samples
    float delayTable[kChorusTable];
    float delayDelta[kChorusTable];
    float wet = 0.0f;
    uint32_t phaseOffset = 0;  // right channel's lead
};
