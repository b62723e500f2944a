// The heaviest shaped oscillator: 16 voices of |HyperOsc with "Diffuse" at full (seven
// detuned oscillators each, 112 interpolated table reads per sample) into an output.
// "realtime" is seconds of audio per second of one core; the target is at least 150.
#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "document/block_types.h"
#include "engine/vrok_instance.h"

namespace {

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
    bench::HoldSixteenNotes(engine);
    bench::RenderLoop(state, engine);
    state.counters["oscillator_sample"] = benchmark::Counter(double(state.iterations()) * bench::kFrames * 16 * 7,
                                                             benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_SixteenHyperVoicesIntoOutput);

}  // namespace

BENCHMARK_MAIN();
