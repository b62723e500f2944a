// A graph built by hand: a chord on one oscillator through an output block.
#pragma once

#include <vector>

// Renders `seconds` of an A major chord (three voices of a sine oscillator into an
// output block) at `sampleRate`, as interleaved stereo in -1..1.
std::vector<float> RenderDemoChord(float seconds, int sampleRate);
