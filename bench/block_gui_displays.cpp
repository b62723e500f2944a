// GUI-thread cost of live displays: an editor showing eight display blocks (output level,
// filter response, envelope with voice dots, two scopes, the large scope, the VU meter and a
// second filter) over a patch that plays a held chord. Each iteration is one 25 ms tick: the
// displays take what the blocks captured and repaint, and the canvas composites. The audio for
// the tick is rendered outside the timing. "core_percent" is the tick's CPU time as a share of
// the 25 ms between ticks; the budget is 10 %.
#include <benchmark/benchmark.h>

#include <ctime>
#include <memory>
#include <vector>

#include "document/vrok_doc.h"
#include "editor/display_guis.h"
#include "editor/vrok_container_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/vrok_instance.h"

namespace {

constexpr int kWidth = 900;
constexpr int kHeight = 600;
constexpr int kRowLength = (kWidth + 16) & ~7;
constexpr double kTickSeconds = 0.025;

double CpuSeconds() {
    timespec t{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
    return double(t.tv_sec) + 1e-9 * double(t.tv_nsec);
}

struct LivePatch {
    LivePatch() : surface(size_t(kRowLength) * 3 * kHeight, 0xFF) {
        doc.ClearAll();
        PatchBlock* osc = doc.AddBlock(4, -1, 10, 40);
        PatchBlock* filter = doc.AddBlock(1, -1, 155, 40);
        PatchBlock* filter2 = doc.AddBlock(1, -1, 155, 200);
        PatchBlock* amp = doc.AddBlock(6, -1, 300, 40);
        PatchBlock* output = doc.AddBlock(0, -1, 445, 40);
        PatchBlock* envelope = doc.AddBlock(2, -1, 300, 150);
        PatchBlock* scope = doc.AddBlock(5, -1, 445, 120);
        PatchBlock* scope2 = doc.AddBlock(5, -1, 590, 40);
        PatchBlock* meter = doc.AddBlock(12, -1, 445, 300);
        PatchBlock* large = doc.AddBlock(9, -1, 590, 200);
        doc.AddConnection(osc, filter, 0);
        doc.AddConnection(osc, filter2, 0);
        doc.AddConnection(filter, amp, 0);
        doc.AddConnection(filter2, amp, 0);
        doc.AddConnection(envelope, amp, 1);
        doc.AddConnection(amp, scope, 0);
        doc.AddConnection(filter2, scope2, 0);
        // The meter and the large scope run only on a way to an output.
        doc.AddConnection(amp, meter, 0);
        doc.AddConnection(meter, large, 0);
        doc.AddConnection(large, output, 0);
        window = std::make_unique<editor::VrokContainerWindow>(nullptr, doc, kWidth, kHeight);
        for (editor::VrokBlockWindow* w : window->docWindow->blockWindows)
            displays += dynamic_cast<editor::DisplayBlockGui*>(w) != nullptr;
        VrokInstance& engine = *doc.engine;
        engine.SetVoiceCount(4, false);
        for (int note : {60, 64, 67}) engine.PressKey(note, 100);
        Paint();
    }
    // 25 ms of audio at 44.1 kHz in the engine's largest blocks.
    void RenderTick() {
        float left[kMaxFrames], right[kMaxFrames];
        for (int done = 0; done < 1103; done += kMaxFrames) doc.engine->Render({left, right}, kMaxFrames);
    }
    void Paint() { window->Paint(surface.data(), kRowLength, kHeight); }

    VrokDoc doc;
    std::unique_ptr<editor::VrokContainerWindow> window;
    std::vector<uint8_t> surface;
    int displays = 0;
};

void BM_LiveDisplaysTick(benchmark::State& state) {
    LivePatch patch;
    state.counters["displays"] = patch.displays;
    double cpu = 0.0;
    for (auto _ : state) {
        state.PauseTiming();
        patch.RenderTick();
        state.ResumeTiming();
        const double start = CpuSeconds();
        patch.window->OnTimer(1);
        patch.Paint();
        cpu += CpuSeconds() - start;
        benchmark::DoNotOptimize(patch.surface.data());
    }
    state.counters["core_percent"] = 100.0 * cpu / double(state.iterations()) / kTickSeconds;
}
BENCHMARK(BM_LiveDisplaysTick)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
