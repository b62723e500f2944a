// The master delay: a stereo delay with negated cross-feed, so echoes flip polarity every
// round and, with full cross, ping-pong between the channels. Three spacing modes. The
// patch's "TempoSync" switch is stored and saved but changes nothing here: the
// length is set by "Length" alone. Second of the master stages.
#pragma once

#include "engine/audio_block.h"
#include "fx/delay_ring.h"

class MasterDelay {
public:
    enum Mode : int { kNormal = 0, kSpaced = 1, kWiden = 2 };

    // Allocates one second of ring per channel at `rate`, with the default settings.
    explicit MasterDelay(float rate);

    // Each stores its input and recalculates the lengths. Engine lock held.
    void SetMode(int newMode);
    // "Length" 0..1.
    void SetLength(float value);
    // "Spacing" 0..1; 0.5 is centred.
    void SetSpacing(float value);
    // In place. Audio thread; allocation-free.
    void Process(StereoBuffers buffers, int numSamples);

    DelayRing ringLeft, ringRight;
    float sampleRate;
    float wet = 0.4f;
    float baseLength = 0.0f;  // samples, before spacing
    float lengthLeft = 0.0f, lengthRight = 0.0f;
    float spacing = 0.0f;  // -0.95..0.95
    float cross = 1.0f;
    float feedback = 0.5f;
    float lengthValue = 0.5f;
    int mode = kNormal;

private:
    void UpdateLengths();
};
