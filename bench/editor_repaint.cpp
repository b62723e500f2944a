// Repaint cost of the patch editor, off-screen: a canvas of 60 block windows and 80 wires
// painted whole (background, wires, shadows, frames, composite), and one drag step of an
// oscillator's level inside its block window (the undo bracket, the block's ParameterChanged,
// the widget's render and its composite). "x_budget" is the budget (16 ms and 1 ms) divided by
// the measured time.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <vector>

#include "document/vrok_doc.h"
#include "editor/vrok_block_window.h"
#include "editor/vrok_container_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/vrok_instance.h"

namespace {

constexpr int kWidth = 1700;
constexpr int kHeight = 760;
constexpr int kRowLength = (kWidth + 16) & ~7;
constexpr double kFullRepaintBudgetSeconds = 0.016;
constexpr double kDragStepBudgetSeconds = 0.001;
constexpr int kOscillators = 50;
constexpr int kOutputs = 10;

double BudgetFactor(double budgetSeconds, std::chrono::steady_clock::time_point start,
                    benchmark::State& state) {
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return budgetSeconds * double(state.iterations()) / seconds;
}

// 50 oscillators, each modulating the next one's pitch, the first 30 also into one of 10 outputs:
// 60 blocks and 79 + 1 wires, spread over a grid of ten columns.
struct Patch {
    Patch() : surface(size_t(kRowLength) * 3 * kHeight, 0xFF) {
        doc.ClearAll();
        std::vector<PatchBlock*> oscillators;
        std::vector<PatchBlock*> outputs;
        for (int i = 0; i < kOscillators + kOutputs; ++i) {
            const int x = (i % 10) * 152 + 10;
            const int y = (i / 10) * 110 + 10;
            PatchBlock* b = doc.AddBlock(i < kOscillators ? 4 : 0, -1, x, y);
            (i < kOscillators ? oscillators : outputs).push_back(b);
        }
        for (int i = 0; i + 1 < kOscillators; ++i) doc.AddConnection(oscillators[i], oscillators[i + 1], 0);
        for (int i = 0; i < 31; ++i) doc.AddConnection(oscillators[i], outputs[i % kOutputs], 0);
        window = std::make_unique<editor::VrokContainerWindow>(nullptr, doc, kWidth, kHeight);
        Paint();
    }
    void Paint() { window->Paint(surface.data(), kRowLength, kHeight); }
    editor::VrokDocWindow& Canvas() { return *window->docWindow; }

    VrokDoc doc;
    std::unique_ptr<editor::VrokContainerWindow> window;
    std::vector<uint8_t> surface;
};

void BM_CanvasFullRepaint(benchmark::State& state) {
    Patch patch;
    state.counters["blocks"] = double(patch.Canvas().blockWindows.size());
    state.counters["wires"] = double(patch.Canvas().connectionWindows.size());
    auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        patch.Canvas().Invalidate(nullptr);
        patch.Paint();
        benchmark::DoNotOptimize(patch.surface.data());
    }
    state.counters["x_budget"] = BudgetFactor(kFullRepaintBudgetSeconds, start, state);
}
BENCHMARK(BM_CanvasFullRepaint)->Unit(benchmark::kMillisecond);

void BM_BlockWindowDragStep(benchmark::State& state) {
    Patch patch;
    editor::VrokBlockWindow* window = patch.Canvas().blockWindows[12];
    G::Control* level = window->widgets[1];
    level->OnLeftDown(40, 5);
    int step = 0;
    auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        level->OnMouseMove((step++ & 1) ? 60 : 40, 5);
        patch.Paint();
        benchmark::DoNotOptimize(patch.surface.data());
    }
    level->OnLeftUp(40, 5);
    state.counters["x_budget"] = BudgetFactor(kDragStepBudgetSeconds, start, state);
}
BENCHMARK(BM_BlockWindowDragStep)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
