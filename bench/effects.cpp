// Cost of the master stage: a busy patch with chorus, delay and reverb all on, each
// effect alone, and the reverb's silent tail fresh and after a minute of decay (flushing
// denormals keeps the two alike). "realtime" is seconds of audio per second of one core.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "bench_support.h"
#include "document/block_types.h"
#include "engine/vrok_instance.h"

namespace {

using bench::kFrames;
using bench::RenderLoop;
using bench::ReportRealtime;

// The subtractive voice behind all three master effects at settings a patch would use.
void BM_SixteenVoicesWithChorusDelayReverb(benchmark::State& state) {
    VrokInstance engine(CreateBlock);
    bench::SubtractiveVoice voice(engine);
    engine.chorusOn = engine.delayOn = engine.reverbOn = true;
    engine.chorus->wet = 0.4f;
    engine.chorus->SetSpeed(0.4f);
    engine.chorus->SetPhasing(0.4f);
    engine.delay->SetLength(0.4f);
    engine.delay->feedback = 0.5f;
    RenderLoop(state, engine, [&] { voice.NextBuffer(); });
}
BENCHMARK(BM_SixteenVoicesWithChorusDelayReverb);

// One master effect over a busy signal, with no graph.
template <class Switch>
void OneEffect(benchmark::State& state, Switch on) {
    VrokInstance engine([](VrokInstance&, int, float) -> CAudioBlock* { return nullptr; });
    on(engine);
    float signal[kFrames + 1], left[kFrames], right[kFrames];
    for (int i = 0; i <= kFrames; ++i) signal[i] = float((i * 7919) % 20001 - 10000);
    for (auto _ : state) {
        std::copy_n(signal, kFrames, left);
        std::copy_n(signal + 1, kFrames, right);
        engine.Render({left, right}, kFrames);
        benchmark::DoNotOptimize(left);
        benchmark::ClobberMemory();
    }
    ReportRealtime(state);
}
void BM_ChorusAlone(benchmark::State& state) {
    OneEffect(state, [](VrokInstance& e) { e.chorusOn = true, e.chorus->wet = 0.5f; });
}
void BM_DelayAlone(benchmark::State& state) {
    OneEffect(state, [](VrokInstance& e) { e.delayOn = true; });
}
void BM_ReverbAlone(benchmark::State& state) {
    OneEffect(state, [](VrokInstance& e) { e.reverbOn = true; });
}
BENCHMARK(BM_ChorusAlone);
BENCHMARK(BM_DelayAlone);
BENCHMARK(BM_ReverbAlone);

// The reverb rendering silence after one loud block, starting `range(0)` seconds into
// the tail: the late tail must cost what the early one does.
void BM_ReverbSilentTail(benchmark::State& state) {
    VrokInstance engine([](VrokInstance&, int, float) -> CAudioBlock* { return nullptr; });
    engine.reverbOn = true;
    float left[kFrames], right[kFrames];
    std::fill_n(left, kFrames, 30000.0f);
    std::fill_n(right, kFrames, -30000.0f);
    engine.Render({left, right}, kFrames);
    const long warmCalls = long(state.range(0)) * long(bench::kRate) / kFrames;
    for (long call = 0; call < warmCalls; ++call) {
        std::fill_n(left, kFrames, 0.0f);
        std::fill_n(right, kFrames, 0.0f);
        engine.Render({left, right}, kFrames);
    }
    RenderLoop(state, engine);
}
BENCHMARK(BM_ReverbSilentTail)->Arg(0)->Arg(60);

}  // namespace

BENCHMARK_MAIN();
