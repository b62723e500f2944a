// Repaint cost of the toolkit: a 1200x800 root holding 200 widgets, painted whole, and the
// repaint after one knob drag step (render the knob, composite its rect). "x_budget" is the
// budget (16 ms and 1 ms) divided by the measured time.
#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <vector>

#include "g/parameter_knob.h"
#include "g/parameter_pitch.h"
#include "g/parameter_slider.h"
#include "g/parameter_switch.h"
#include "g/root_control.h"

namespace {

constexpr int kWidth = 1200;
constexpr int kHeight = 800;
constexpr int kRowLength = (kWidth + 16) & ~7;
constexpr double kFullRepaintBudgetSeconds = 0.016;
constexpr double kDragStepBudgetSeconds = 0.001;

// How many times the measured time per iteration fits in the budget: above 1 meets the target.
double BudgetFactor(double budgetSeconds, std::chrono::steady_clock::time_point start,
                    benchmark::State& state) {
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return budgetSeconds * double(state.iterations()) / seconds;
}

// 20 columns by 10 rows of 60x80 cells, cycling through the parameter widget kinds.
struct Panel {
    Panel() : root(nullptr), surface(size_t(kRowLength) * 3 * kHeight, 0xFF) {
        root.SetSize(kWidth, kHeight);
        for (int i = 0; i < 200; ++i) {
            int x = (i % 20) * 60 + 5;
            int y = (i / 20) * 80 + 5;
            G::Control* c = nullptr;
            switch (i % 5) {
                case 0:
                    c = new G::ParameterKnob(&root, nullptr, i, 0.3f);
                    break;
                case 1:
                    c = new G::ParameterKnob(&root, nullptr, i, 0.6f, G::ParameterKnob::kModeBipolar,
                                             G::ParameterKnob::kStyleLarge);
                    break;
                case 2:
                    c = new G::ParameterSlider(&root, nullptr, i, 0.4f, L"Level");
                    break;
                case 3:
                    c = new G::ParameterSwitchWithLabel(&root, nullptr, i, 1.0f, L"On");
                    break;
                default:
                    c = new G::ParameterPitch(&root, nullptr, i, 0.55f);
                    break;
            }
            root.AddChild(c);
            c->SetBounds(x, y, 50, i % 5 == 1 ? 70 : 40);
            widgets.push_back(c);
        }
        Paint();
    }
    void Paint() { root.Paint(surface.data(), kRowLength, kHeight); }

    G::RootControl root;
    std::vector<uint8_t> surface;
    std::vector<G::Control*> widgets;
};

void BM_FullRepaint(benchmark::State& state) {
    Panel panel;
    auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        panel.root.Invalidate(nullptr);
        for (G::Control* c : panel.widgets) c->Invalidate(nullptr);
        panel.Paint();
        benchmark::DoNotOptimize(panel.surface.data());
    }
    state.counters["x_budget"] = BudgetFactor(kFullRepaintBudgetSeconds, start, state);
}
BENCHMARK(BM_FullRepaint)->Unit(benchmark::kMillisecond);

void BM_KnobDragStep(benchmark::State& state) {
    Panel panel;
    auto* knob = static_cast<G::ParameterKnob*>(panel.widgets[0]);
    knob->OnLeftDown(25, 25);
    int step = 0;
    auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        // Up and down by 10 pixels: 0.1 of value each way, never clamped.
        knob->OnMouseMove(25, 25 + ((step++ & 1) ? 10 : 0));
        panel.Paint();
        benchmark::DoNotOptimize(panel.surface.data());
    }
    knob->OnLeftUp(25, 25);
    state.counters["x_budget"] = BudgetFactor(kDragStepBudgetSeconds, start, state);
}
BENCHMARK(BM_KnobDragStep)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
