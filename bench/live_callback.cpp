// What one live audio callback costs: 256 frames through the live player (locks, MIDI at
// its frame, interleaving, Work) with sixteen sine voices sounding; compare bench_render's
// bare engine render of the same voices. "realtime" is seconds of audio per second of one
// core, so 1 / realtime is the share of each buffer's time the callback takes.
#include <benchmark/benchmark.h>

#include <vector>

#include "app/live/live_player.h"
#include "app/patch_load.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/machine.h"

namespace {

constexpr int kRate = 44100;
constexpr int kFrames = 256;

void BM_LiveCallbackSixteenVoices(benchmark::State& state) {
    live::LiveHost host(kRate, 0);
    mi machine(host);
    machine.Init(nullptr);
    app::LoadPatch(machine, VROK_EXAMPLES_DIR "/sine_a4.vrkx");
    machine.document->engine->SetVoiceCount(16, false);
    for (int v = 0; v < 15; ++v) machine.MidiNote(0, 40 + 3 * v, 100);
    live::LivePlayer player(machine, host);
    // One key struck and released again in every buffer, at frames off the 256 grid.
    std::vector<live::MidiEvent> events(2);
    events[0] = {37, 3, {0x90, 100, 90}};
    events[1] = {201, 3, {0x80, 100, 0}};
    std::vector<float> in(kFrames, 0.0f), left(kFrames), right(kFrames);
    for (auto _ : state) {
        player.Process(in.data(), in.data(), left.data(), right.data(), kFrames, events.data(), 2);
        benchmark::DoNotOptimize(left.data());
        benchmark::ClobberMemory();
    }
    const double frames = double(state.iterations()) * kFrames;
    state.counters["realtime"] = benchmark::Counter(frames / kRate, benchmark::Counter::kIsRate);
}
BENCHMARK(BM_LiveCallbackSixteenVoices);

}  // namespace

BENCHMARK_MAIN();
