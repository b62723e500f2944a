// The LV2 instrument: one second of a held chord at the host block sizes a DAW may choose
// (the plug-in cuts every block into engine pieces of at most 256 frames), and what a
// state restore costs off the audio thread (a whole new machine built from the saved patch).
#include <benchmark/benchmark.h>
#include <lv2/state/state.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "machine/lv2/lv2_test_host.h"

extern "C" const LV2_Descriptor* lv2_descriptor(uint32_t index);

namespace {

constexpr uint32_t kRate = 44100;

void PrivateFolders() {
    static const bool done = [] {
        const auto path =
            std::filesystem::temp_directory_path() / ("vrok-bench-lv2-" + std::to_string(getpid()));
        std::filesystem::create_directories(path);
        setenv("XDG_DATA_HOME", path.c_str(), 1);
        setenv("VROK_CACHE_DIR", (path / "cache").c_str(), 1);
        return true;
    }();
    (void)done;
}

struct Instrument {
    Instrument()
        : descriptor(lv2_descriptor(0)),
          handle(descriptor->instantiate(descriptor, kRate, "", features.List())),
          driver(descriptor, handle, features, false) {
        descriptor->activate(handle);
        driver.LoadPatch(std::string(VROK_EXAMPLES_DIR) + "/pad_reverb_chorus.vrkx");
    }
    ~Instrument() {
        descriptor->deactivate(handle);
        descriptor->cleanup(handle);
    }
    lv2test::TestFeatures features;
    const LV2_Descriptor* descriptor;
    LV2_Handle handle;
    lv2test::Driver driver;
};

// Seconds of audio per second, for one second at block size range(0).
void BM_RunChord(benchmark::State& state) {
    PrivateFolders();
    Instrument vrok;
    const std::vector<lv2test::Event> chord = {lv2test::NoteOn(0, 48), lv2test::NoteOn(0, 55),
                                               lv2test::NoteOn(0, 60), lv2test::NoteOn(0, 64)};
    vrok.driver.Render(kRate, 256, chord);
    for (auto _ : state) benchmark::DoNotOptimize(vrok.driver.Render(kRate, uint32_t(state.range(0))));
    state.counters["realtime"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_RunChord)->Arg(1)->Arg(64)->Arg(256)->Arg(1000)->Arg(4096)->Unit(benchmark::kMillisecond);

void BM_RestoreState(benchmark::State& state) {
    PrivateFolders();
    Instrument vrok;
    const auto saved = vrok.driver.SaveState();
    for (auto _ : state) {
        vrok.driver.RestoreState(saved);
        state.PauseTiming();
        vrok.driver.Render(64, 64);  // takes the new machine and frees the old
        state.ResumeTiming();
    }
}
BENCHMARK(BM_RestoreState)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
