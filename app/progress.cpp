// The render progress bar.
#include "app/progress.h"

#include <algorithm>
#include <cstdio>
#include <string>

namespace app {

ProgressBar::ProgressBar(bool enabled) : enabled(enabled), start(Clock::now()), lastDraw(start) {}

ProgressBar::~ProgressBar() { Finish(); }

void ProgressBar::Update(long done, long expected, int sampleRate) {
    if (!enabled) return;
    const Clock::time_point now = Clock::now();
    if (now - start < std::chrono::seconds(1) || now - lastDraw < std::chrono::milliseconds(100)) return;
    lastDraw = now;
    const double seconds = double(done) / double(sampleRate);
    constexpr int kWidth = 30;
    if (expected > 0) {
        const double part = std::min(1.0, double(done) / double(expected));
        const int filled = int(part * kWidth);
        std::fprintf(stderr, "\rrendering [%s%s] %3d%%  %.1f s ", std::string(size_t(filled), '#').c_str(),
                     std::string(size_t(kWidth - filled), '.').c_str(), int(part * 100.0), seconds);
    } else {
        std::fprintf(stderr, "\rrendering the tail until silence  %.1f s          ", seconds);
    }
    std::fflush(stderr);
    drawn = true;
}

void ProgressBar::Finish() {
    if (!drawn) return;
    std::fprintf(stderr, "\r%60s\r", "");
    std::fflush(stderr);
    drawn = false;
}

}  // namespace app
