// The master delay: a stereo delay with negated cross-feed, so echoes flip polarity every
// round and, with full cross, ping-pong between the channels. Three spacing modes, and a
// tempo sync that takes the length from the host's measure. Second of the master stages.
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
    // While on, "Length" picks a note value of the measure in the normal and spaced modes.
    void SetTempoSync(bool on);
    // The host's measure; recalculates only when synced and the measure changed.
    // Audio thread, before Process; allocation-free.
    void SetSamplesPerBar(int samples);
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
    bool tempoSync = false;
    int samplesPerBar = 84672;

private:
    void UpdateLengths();
};

// The fraction of a measure that a synced "Length" stands for, from a 1/32 note to a half.
float SyncedMeasureFraction(float lengthValue);
