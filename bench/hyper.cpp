// The heaviest shaped oscillator: 16 voices of |HyperOsc with "Diffuse" at full (seven
// detuned oscillators each, 112 interpolated table reads per sample) into an output.
// "realtime" is seconds of audio per second of one core; the target is at least 150.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "document/block_types.h"
#include "engine/vrok_instance.h"

namespace {

constexpr float kRate = 44100.0f;
constexpr int kFrames = 256;
constexpr int kHyperType = 32, kOutputType = 0;

void BM_SixteenHyperVoicesIntoOutput(benchmark::State& state) {
    VrokInstance engine(CreateBlock);
    int hyper = -1, out = -1;
    engine.InsertBlock(kHyperType, -1, &hyper);
    engine.InsertBlock(kOutputType, -1, &out);
    engine.Connect(hyper, out, 0);
    engine.RebuildOrder();
    CAudioBlock& block = *engine.blocks[hyper];
    block.SetParameter(2, 1.0f);  // Diffuse: seven oscillators
    block.SetParameter(3, 1.0f);  // Spread: all different tables and phases
    engine.SetVoiceCount(16, false);
    for (int v = 0; v < 16; ++v) engine.PressKey(40 + 3 * v, 100);
    float left[kFrames], right[kFrames];
    for (auto _ : state) {
        std::fill_n(left, kFrames, 0.0f);
        std::fill_n(right, kFrames, 0.0f);
        engine.Render({left, right}, kFrames);
        benchmark::DoNotOptimize(left);
        benchmark::ClobberMemory();
    }
    const double frames = double(state.iterations()) * kFrames;
    state.counters["realtime"] = benchmark::Counter(frames / kRate, benchmark::Counter::kIsRate);
    state.counters["oscillator_sample"] =
        benchmark::Counter(frames * 16 * 7, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_SixteenHyperVoicesIntoOutput);

}  // namespace

BENCHMARK_MAIN();
