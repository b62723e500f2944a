// Drives one block as the render loop does, without a patch: PrepareBlock, hand-filled
// ports, then Work per voice.
#pragma once

#include <vector>

#include "engine/vrok_instance.h"

namespace harness {

// One engine for the program: building the note tables it owns is the slow part.
inline VrokInstance& Engine(int voices = 1) {
    static VrokInstance engine([](VrokInstance&, int, float) -> CAudioBlock* { return nullptr; });
    engine.SetVoiceCount(voices, false);
    return engine;
}

// Wires `port` and writes `value(i)` into `voice`'s row, as summing would.
template <class Value>
void Feed(CAudioBlock& block, int port, int voice, int numSamples, Value value) {
    InputPort& p = *block.ports[port];
    p.hasConnection = true, p.written[voice] = 1;
    for (int i = 0; i < numSamples; ++i) p.buffer[voice][i] = value(i);
}

inline auto Const(float x) { return [x](int) { return x; }; }

// A wire that carries nothing this sample block.
inline void WireSilent(CAudioBlock& block, int port) { block.ports[port]->hasConnection = true; }

// One sample block: PrepareBlock, `feed()`, then Work for voices 0..voices-1.
template <class FeedFn>
void Step(CAudioBlock& block, int numSamples, int voices, FeedFn feed) {
    block.PrepareBlock(numSamples);
    feed();
    for (int v = 0; v < voices; ++v) block.Work(v, numSamples);
}
inline void Step(CAudioBlock& block, int numSamples, int voices = 1) { Step(block, numSamples, voices, [] {}); }

// Frequency from upward zero crossings, interpolated between samples.
inline double MeasureFrequency(const std::vector<float>& x, double sampleRate) {
    double first = -1, last = -1;
    int crossings = 0;
    for (size_t i = 1; i < x.size(); ++i) {
        if (x[i - 1] >= 0.0f || x[i] < 0.0f) continue;
        last = double(i - 1) + x[i - 1] / double(x[i - 1] - x[i]);
        if (crossings++ == 0) first = last;
    }
    return crossings < 2 ? 0.0 : (crossings - 1) * sampleRate / (last - first);
}

}  // namespace harness
