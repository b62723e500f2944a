// Random but valid patches for the stress test: blocks of any registered type, parameters
// anywhere in 0..1 with both ends favoured, the wires the engine accepts, global settings
// with a voice count of 1 to 16, and a performance to play through them.
#pragma once

#include <random>
#include <string>

#include "app/render.h"

class VrokDoc;

namespace stress {

// Seconds after the last key goes up that a render keeps running: twice the arpeggiator's
// slowest step (one bar, 1.9 s at the render's 126 BPM), which lets its last notes go.
constexpr double kReleaseSeconds = 4.0;

// Replaces the patch of `doc` with a random one, made through the document's own
// operations as the editor would make it. A sampler plays `samplePath` when it is not empty.
void BuildRandomPatch(VrokDoc& doc, std::mt19937& random, const std::string& samplePath);

// Notes (any key, any velocity, overlapping, repeated), pattern notes through the host's
// tracks, host knobs, mod wheel, sustain pedal, aftertouch, "all notes off" and "all sound
// off" within the first seconds, every key and the pedal up by the end, then
// kReleaseSeconds of nothing; input noise while the keys play, silence after.
app::RenderPlan RandomPerformance(std::mt19937& random, int sampleRate);

}  // namespace stress
