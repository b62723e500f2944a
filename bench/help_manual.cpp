// Cost of the manual: reading a manual the size of a full one (70 articles), and laying out and
// painting a long article in the 300-pixel panel, which happens on every resize of the editor
// and every page turned. "x_budget" is the budget (one 16 ms frame) divided by the time taken.
#include <benchmark/benchmark.h>

#include <chrono>
#include <string>

#include "g/bitmap.h"
#include "g/renderer.h"
#include "help/help_display.h"
#include "help/help_library.h"
#include "help/text_layout.h"

namespace {

constexpr double kFrameSeconds = 0.016;

// An article of about 1500 words in 30 paragraphs, with a link in each and eight parameters.
std::string Article(int n) {
    std::string text = "<block name=\"a" + std::to_string(n) + "\"><screenname type=\"" + std::to_string(n) +
                       "\">Block " + std::to_string(n) + "</screenname><title>Block number " +
                       std::to_string(n) + "</title><Introduction>";
    for (int p = 0; p < 30; ++p) {
        text +=
            "The oscillator makes a steady tone at the pitch of the note; turn the wave knob for a brighter "
            "or duller colour, and see <a href=\"a0\">the first block</a> for how the level, the fine tune "
            "and the modulation inputs work together when a patch grows.<br/><br/>\n";
    }
    text += "</Introduction>";
    for (int p = 0; p < 8; ++p)
        text += "<Parameter name=\"P" + std::to_string(p) + "\">From 0 to 100 %, default 50.</Parameter>";
    return text + "</block>\n";
}

std::string Manual() {
    std::string text = "<manual>";
    for (int n = 0; n < 70; ++n) text += Article(n);
    return text + "</manual>";
}

double BudgetFactor(std::chrono::steady_clock::time_point start, benchmark::State& state) {
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return kFrameSeconds * double(state.iterations()) / seconds;
}

void BM_ReadManual(benchmark::State& state) {
    const std::string text = Manual();
    for (auto _ : state) {
        HelpLibrary library(text);
        benchmark::DoNotOptimize(library.Articles().size());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(text.size()));
}
BENCHMARK(BM_ReadManual)->Unit(benchmark::kMillisecond);

void BM_LayOutLongArticle(benchmark::State& state) {
    HelpLibrary library("<manual>" + Article(0) + "</manual>");
    FontMetrics metrics(library.Styles());
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state)
        benchmark::DoNotOptimize(LayOutItems(library.Articles()[0]->items, 277, metrics).height);
    state.counters["x_budget"] = BudgetFactor(start, state);
}
BENCHMARK(BM_LayOutLongArticle)->Unit(benchmark::kMillisecond);

// Resizing the panel: layout and a paint of the visible part, as the editor does.
void BM_ResizeAndPaintPanel(benchmark::State& state) {
    HelpLibrary library("<manual>" + Article(0) + "</manual>");
    HelpDisplay display(nullptr, library);
    display.Navigate("a0");
    G::Bitmap bitmap(300, 900, 3);
    G::Renderer renderer(bitmap);
    int h = 860;
    const auto start = std::chrono::steady_clock::now();
    for (auto _ : state) {
        h = h == 860 ? 864 : 860;
        display.SetBounds(0, 0, 300, h);
        display.OnDraw(renderer, G::Rect{0, 0, 300, h});
    }
    state.counters["x_budget"] = BudgetFactor(start, state);
}
BENCHMARK(BM_ResizeAndPaintPanel)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
