// A progress bar on stderr for long renders: only on a terminal, and only once a render
// has taken more than a second, so short renders and logs stay clean.
#pragma once

#include <chrono>

namespace app {

class ProgressBar {
public:
    // `enabled` false never draws (stderr is not a terminal).
    explicit ProgressBar(bool enabled);
    ~ProgressBar();
    // `expected` 0 means the end is not known yet (the render waits for silence).
    void Update(long done, long expected, int sampleRate);
    // Clears the line if anything was drawn.
    void Finish();

private:
    using Clock = std::chrono::steady_clock;
    bool enabled;
    bool drawn = false;
    Clock::time_point start, lastDraw;
};

}  // namespace app
