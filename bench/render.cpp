// Render cost of the plainest polyphonic patch, and what an engine costs to construct
// with and without the wave table cache. Counters: "realtime" is seconds of audio per
// second of one core; "voice_sample" is the time per sample of one voice.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "document/block_types.h"
#include "bench_support.h"
#include "engine/vrok_instance.h"

namespace {

using bench::kFrames;

void BM_SixteenOscVoicesIntoOutput(benchmark::State& state) {
    VrokInstance engine(CreateBlock);
    int osc = -1, out = -1;
    engine.InsertBlock(4, -1, &osc);
    engine.InsertBlock(0, -1, &out);
    engine.Connect(osc, out, 0);
    engine.RebuildOrder();
    bench::HoldSixteenNotes(engine);
    bench::RenderLoop(state, engine);
    state.counters["voice_sample"] = benchmark::Counter(double(state.iterations()) * kFrames * 16,
                                                        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_SixteenOscVoicesIntoOutput);

// The subtractive voice, 16 voices, each note retriggered every half second.
void BM_SubtractiveSixteenVoices(benchmark::State& state) {
    VrokInstance engine(CreateBlock);
    bench::SubtractiveVoice voice(engine);
    bench::RenderLoop(state, engine, [&] { voice.NextBuffer(); });
    state.counters["voice_sample"] = benchmark::Counter(double(state.iterations()) * kFrames * 16,
                                                        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_SubtractiveSixteenVoices);

// The subtractive voice modulated: an LFO sweeps the cutoff (a quarter of the range either
// way, 1.7 Hz) and a tracked delay (feedback 0.97) rings after the amplifier, 16 voices.
void BM_ModulatedSixteenVoices(benchmark::State& state) {
    VrokInstance engine(CreateBlock);
    bench::SubtractiveVoice voice(engine);
    auto slotOf = [&](int type) {
        for (int slot = 0; slot < kMaxBlocks; ++slot)
            if (engine.blocks[slot] && engine.blocks[slot]->type == type) return slot;
        return -1;
    };
    const int filter = slotOf(1), amp = slotOf(6);
    for (Connection& wire : engine.connections)
        if (wire.inUse && wire.fromBlock == amp && wire.toBlock == voice.output) engine.Disconnect(&wire);
    int lfo = -1, delay = -1;
    engine.InsertBlock(3, -1, &lfo);
    engine.InsertBlock(20, -1, &delay);
    engine.blocks[lfo]->SetParameter(1, 0.5f);
    engine.blocks[delay]->SetParameter(1, 0.6f);
    engine.Connect(lfo, filter, 1);
    engine.Connect(amp, delay, 0);
    engine.Connect(delay, voice.output, 0);
    engine.RebuildOrder();
    bench::RenderLoop(state, engine, [&] { voice.NextBuffer(); });
    state.counters["voice_sample"] = benchmark::Counter(double(state.iterations()) * kFrames * 16,
                                                        benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_ModulatedSixteenVoices);

// Each construction also acquires the note tables afresh, since no other engine lives
// meanwhile: from their cache file, or (without caches) by building them.
void ConstructEngines(benchmark::State& state, bool withCache) {
    const std::filesystem::path dir = std::filesystem::temp_directory_path() / "vrok-bench-cache";
    std::filesystem::create_directories(dir);
    setenv("VROK_CACHE_DIR", dir.c_str(), 1);
    const std::string cache = WaveTableCachePath(), noteCache = NoteTableCachePath();
    if (withCache) VrokInstance warm(CreateBlock);
    for (auto _ : state) {
        if (!withCache) {
            state.PauseTiming();
            std::remove(cache.c_str());
            std::remove(noteCache.c_str());
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
