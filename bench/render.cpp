// Render cost of the plainest polyphonic patch, and what an engine costs to construct
// with and without the wave table cache. Counters: "realtime" is seconds of audio per
// second of one core; "voice_sample" is the time per sample of one voice.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "document/block_types.h"
#include "engine/vrok_instance.h"

namespace {

constexpr float kRate = 44100.0f;
constexpr int kFrames = 256;

void BM_SixteenOscVoicesIntoOutput(benchmark::State& state) {
    VrokInstance engine(CreateBlock);
    int osc = -1, out = -1;
    engine.InsertBlock(4, -1, &osc);
    engine.InsertBlock(0, -1, &out);
    engine.Connect(osc, out, 0);
    engine.RebuildOrder();
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
    state.counters["voice_sample"] =
        benchmark::Counter(frames * 16, benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_SixteenOscVoicesIntoOutput);

// Each construction also builds the note tables, since no other engine lives meanwhile.
void ConstructEngines(benchmark::State& state, bool withCache) {
    const std::filesystem::path dir = std::filesystem::temp_directory_path() / "vrok-bench-cache";
    std::filesystem::create_directories(dir);
    setenv("VROK_CACHE_DIR", dir.c_str(), 1);
    const std::string cache = WaveTableCachePath();
    if (withCache) VrokInstance warm(CreateBlock);
    for (auto _ : state) {
        if (!withCache) {
            state.PauseTiming();
            std::remove(cache.c_str());
            state.ResumeTiming();
        }
        VrokInstance engine(CreateBlock);
        benchmark::DoNotOptimize(engine.waveSets[0].numTables);
    }
    std::filesystem::remove_all(dir);
}

void BM_EngineConstructionWithCache(benchmark::State& state) { ConstructEngines(state, true); }
void BM_EngineConstructionWithoutCache(benchmark::State& state) { ConstructEngines(state, false); }
BENCHMARK(BM_EngineConstructionWithCache)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EngineConstructionWithoutCache)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
