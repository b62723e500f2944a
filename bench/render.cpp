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

// The subtractive voice: saw into a low-pass (resonance about a quarter) into an amplifier
// driven by an envelope, 16 voices, each note retriggered every half second. Modulated,
// an LFO sweeps the cutoff and a tracked delay rings after the amplifier.
void RenderSubtractive(benchmark::State& state, bool modulated) {
    VrokInstance engine(CreateBlock);
    int osc = -1, filter = -1, amp = -1, envelope = -1, out = -1;
    engine.InsertBlock(4, -1, &osc);
    engine.InsertBlock(1, -1, &filter);
    engine.InsertBlock(6, -1, &amp);
    engine.InsertBlock(2, -1, &envelope);
    engine.InsertBlock(0, -1, &out);
    engine.blocks[osc]->SetParameter(2, 0.5f);      // sawtooth
    engine.blocks[filter]->SetParameter(0, 0.55f);  // about 1 kHz
    engine.blocks[filter]->SetParameter(1, 0.25f);
    engine.blocks[amp]->SetParameter(0, 0.707107f);
    const float adsr[] = {0.066721f, 0.378236f, 0.3f, 0.518761f};  // 10 ms, 200 ms, 0.3, 500 ms
    for (int i = 0; i < 4; ++i) engine.blocks[envelope]->SetParameter(i, adsr[i]);
    engine.Connect(osc, filter, 0);
    engine.Connect(filter, amp, 0);
    engine.Connect(envelope, amp, 1);
    if (modulated) {
        int lfo = -1, delay = -1;
        engine.InsertBlock(3, -1, &lfo);
        engine.InsertBlock(20, -1, &delay);
        engine.blocks[lfo]->SetParameter(1, 0.5f);    // a quarter of the cutoff range either way
        engine.blocks[delay]->SetParameter(1, 0.6f);  // feedback 0.97
        engine.Connect(lfo, filter, 1);
        engine.Connect(amp, delay, 0);
        engine.Connect(delay, out, 0);
    } else {
        engine.Connect(amp, out, 0);
    }
    engine.RebuildOrder();
    engine.SetVoiceCount(16, false);
    // Half a second is 86 blocks of 256 frames; the notes start a block apart and are let go
    // after 400 ms, so each retrigger cuts a release short.
    constexpr int kPeriodBlocks = 86, kGateBlocks = 69;
    int held[16] = {};
    float left[kFrames], right[kFrames];
    long block = 0;
    for (auto _ : state) {
        const int phase = int(block % kPeriodBlocks);
        const int round = int(block / kPeriodBlocks);
        if (phase >= kGateBlocks && phase < kGateBlocks + 16) engine.ReleaseKey(held[phase - kGateBlocks]);
        if (phase < 16) {
            held[phase] = 48 + (7 * phase + 5 * round) % 16;
            engine.PressKey(held[phase], 100);
        }
        ++block;
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

void BM_SubtractiveSixteenVoices(benchmark::State& state) { RenderSubtractive(state, false); }
void BM_ModulatedSixteenVoices(benchmark::State& state) { RenderSubtractive(state, true); }
BENCHMARK(BM_SubtractiveSixteenVoices);
BENCHMARK(BM_ModulatedSixteenVoices);

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
