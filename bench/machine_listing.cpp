// What a tracker pays to list the machine (make it, Init it, ask every knob's text, drop
// it), and what the first tick of a played machine costs once, for the wave tables and the
// patch lookup. Both run on a private cache and patch folder.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "machine/buzz/vrok_machine.h"

namespace {

namespace fs = std::filesystem;

// A private, empty cache and patch folder for the whole program.
const fs::path& Scratch() {
    static const fs::path root = [] {
        fs::path path = fs::temp_directory_path() / ("vrok-bench-listing-" + std::to_string(getpid()));
        fs::create_directories(path);
        setenv("XDG_DATA_HOME", path.c_str(), 1);
        setenv("VROK_CACHE_DIR", (path / "cache").c_str(), 1);
        return path;
    }();
    return root;
}

void BM_ListOneMachine(benchmark::State& state) {
    Scratch();
    buzz::CMasterInfo master{120, 4, 44100, 5512, 0, 8.0f};
    for (auto _ : state) {
        buzz::VrokMachine listed(buzz::Variant::Generator);
        listed.pMasterInfo = &master;
        listed.Init(nullptr);
        listed.AttributesChanged();
        listed.SetNumTracks(1);
        for (int k = 0; k < 8; ++k)
            for (int v = 0; v <= 0x80; ++v) benchmark::DoNotOptimize(listed.DescribeValue(k, v));
    }
}
BENCHMARK(BM_ListOneMachine)->Unit(benchmark::kMicrosecond);

// With the cache file in place, as after the first run on a machine.
void BM_FirstTick(benchmark::State& state) {
    Scratch();
    buzz::CMasterInfo master{120, 4, 44100, 5512, 0, 8.0f};
    for (auto _ : state) {
        state.PauseTiming();
        auto played = std::make_unique<buzz::VrokMachine>(buzz::Variant::Generator);
        played->pMasterInfo = &master;
        played->Init(nullptr);
        played->SetNumTracks(1);
        state.ResumeTiming();
        played->Tick();
        state.PauseTiming();
        played.reset();
        state.ResumeTiming();
    }
}
BENCHMARK(BM_FirstTick)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    fs::remove_all(Scratch());
    return 0;
}
