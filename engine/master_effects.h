// What stands behind and beside the graph, as the engine sees it: the master effects
// that run in place over the mixed output, and the arpeggiator that takes the keys.
// The effects and the arpeggiator block themselves live in fx/ and blocks/.
#pragma once

#include "engine/audio_block.h"

// A master effect processes the host-scale rows in place. Audio thread; allocation-free.
class MasterEffect {
public:
    virtual ~MasterEffect() = default;
    virtual void Process(StereoBuffers buffers, int numSamples) = 0;
};

// The engine's view of the arpeggiator block: while active, keys go to it instead of the
// voices, and Render steps it whenever its countdown runs out. Engine lock held.
class ArpeggiatorLink {
public:
    virtual ~ArpeggiatorLink() = default;
    virtual bool IsKeyHeld(int note) const = 0;
    virtual void KeyDown(int note, int velocity) = 0;
    virtual void KeyUp(int note) = 0;
    // Steps per beat-sixteenth: a step lasts samplesPerBar / (StepRate() * 16) samples.
    virtual float StepRate() const = 0;
    virtual void Step() = 0;

    int countdown = 0;  // samples until the next step
};
