// What the render benchmarks share: the rate and buffer size, the loop that renders one
// buffer per iteration, the "realtime" counter (seconds of audio per second of one core),
// and the subtractive voice that several cases play.
#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>

#include "engine/vrok_instance.h"

namespace bench {

constexpr float kRate = 44100.0f;
constexpr int kFrames = 256;

inline void ReportRealtime(benchmark::State& state) {
    state.counters["realtime"] =
        benchmark::Counter(double(state.iterations()) * kFrames / kRate, benchmark::Counter::kIsRate);
}

// One buffer per iteration; `beforeEach` runs first (notes, say) and is not skipped.
template <class BeforeEach>
void RenderLoop(benchmark::State& state, VrokInstance& engine, BeforeEach beforeEach) {
    float left[kFrames], right[kFrames];
    for (auto _ : state) {
        beforeEach();
        std::fill_n(left, kFrames, 0.0f);
        std::fill_n(right, kFrames, 0.0f);
        engine.Render({left, right}, kFrames);
        benchmark::DoNotOptimize(left);
        benchmark::ClobberMemory();
    }
    ReportRealtime(state);
}

inline void RenderLoop(benchmark::State& state, VrokInstance& engine) {
    RenderLoop(state, engine, [] {});
}

// Sixteen held notes, three semitones apart.
inline void HoldSixteenNotes(VrokInstance& engine) {
    engine.SetVoiceCount(16, false);
    for (int v = 0; v < 16; ++v) engine.PressKey(40 + 3 * v, 100);
}

// The subtractive voice: saw into a low-pass (about 1 kHz, resonance about a quarter) into
// an amplifier driven by an envelope (10 ms, 200 ms, 0.3, 500 ms), 16 voices. NextBuffer
// plays the notes: each voice starts a 400 ms note every half second, a buffer after the
// voice before, so each retrigger cuts a release short.
class SubtractiveVoice {
public:
    explicit SubtractiveVoice(VrokInstance& engine) : engine(engine) {
        int osc = -1, filter = -1, amp = -1, envelope = -1;
        engine.InsertBlock(4, -1, &osc);
        engine.InsertBlock(1, -1, &filter);
        engine.InsertBlock(6, -1, &amp);
        engine.InsertBlock(2, -1, &envelope);
        engine.InsertBlock(0, -1, &output);
        engine.blocks[osc]->SetParameter(2, 0.5f);  // sawtooth
        engine.blocks[filter]->SetParameter(0, 0.55f);
        engine.blocks[filter]->SetParameter(1, 0.25f);
        engine.blocks[amp]->SetParameter(0, 0.707107f);
        const float adsr[] = {0.066721f, 0.378236f, 0.3f, 0.518761f};
        for (int i = 0; i < 4; ++i) engine.blocks[envelope]->SetParameter(i, adsr[i]);
        engine.Connect(osc, filter, 0);
        engine.Connect(filter, amp, 0);
        engine.Connect(envelope, amp, 1);
        engine.Connect(amp, output, 0);
        engine.RebuildOrder();
        engine.SetVoiceCount(16, false);
    }

    void NextBuffer() {
        // Half a second is 86 buffers; a note is let go after 69 (400 ms).
        constexpr int kPeriod = 86, kGate = 69;
        const int phase = int(buffer % kPeriod);
        const int round = int(buffer / kPeriod);
        if (phase >= kGate && phase < kGate + 16) engine.ReleaseKey(held[phase - kGate]);
        if (phase < 16) {
            held[phase] = 48 + (7 * phase + 5 * round) % 16;
            engine.PressKey(held[phase], 100);
        }
        ++buffer;
    }

    int output = -1;  // the output block's slot

private:
    VrokInstance& engine;
    int held[16] = {};
    long buffer = 0;
};

}  // namespace bench
