// The soak: the live player on a private JACK server's dummy driver, the way `vrok play`
// runs it, while a second thread edits the patch as a musician would, for a given time.
// It watches resident memory, the output for samples that are not numbers, the audio
// callbacks against their buffer's length, and under-runs, and fails on a fault:
//
//   vrok_soak [--seconds N] [--warmup N] [--edits-per-second N] [--seed N]
//             [--rss-tolerance-mb N] [--log FILE]
//
// Exit status 0 passed, 1 failed, 77 skipped (no jackd). Needs no display and no input.
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "app/live/backend.h"
#include "app/live/live_rig.h"
#include "app/patch_load.h"
#include "machine/machine.h"
#include "soak_editor.h"
#include "soak_jack.h"

namespace {

constexpr int kRate = 44100;
constexpr int kBufferFrames = 256;

// Fewer callbacks than this share (in processor time of the audio thread, so a busy
// machine's scheduling does not count) may run over their buffer's length. A fault of
// ours, an edit that blocks the audio thread or a block whose cost explodes, makes every
// callback of that patch late, thousands in a run; a page fault or a cache flushed by a
// load makes a few. Wall-clock lateness is reported beside it but not judged: on a shared
// machine without real-time scheduling the audio thread is preempted at will.
constexpr double kMaxOverworkedShare = 0.005;

// Memory is judged where the patch is the same each time: right after the editor cleared
// it (every 30 s), when no block, wire, sample or undo step is left. Between two such moments
// after the warm-up it may grow by at most this much. A block holds at least its output (16
// voices of 256 floats, 16 KB) and as much per port, and about two are added a second: a
// block that is never freed passes this between the first and the last clear of the
// two-minute run, while the allocator's own slack measured well below 1 MB. In between,
// memory follows the patch (a delay block holds seconds of sound for each voice), so the
// figures there are reported, not judged.
constexpr double kDefaultRssToleranceMb = 4.0;

// Under AddressSanitizer or ThreadSanitizer the figures of memory and time say nothing:
// freed memory waits in quarantine and every access costs several times its price. The
// sanitizers judge those runs themselves (leaks at exit, races); the soak still fails on a
// crash, a sample that is not a number, or a server that went away.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VROK_SOAK_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VROK_SOAK_SANITIZED 1
#endif
#endif
#if defined(VROK_SOAK_SANITIZED)
constexpr bool kFiguresAreMeaningful = false;
#else
constexpr bool kFiguresAreMeaningful = true;
#endif

std::atomic<bool> stopRequested{false};

void OnStopSignal(int) { stopRequested = true; }

double ResidentMb() {
    std::ifstream statm("/proc/self/statm");
    long size = 0, resident = 0;
    statm >> size >> resident;
    return double(resident) * double(sysconf(_SC_PAGESIZE)) / (1024.0 * 1024.0);
}

struct Options {
    double seconds = 120.0;
    double warmup = -1.0;  // -1: a quarter of the run, at most a minute
    double editsPerSecond = 20.0;
    unsigned seed = 1;
    double rssToleranceMb = kDefaultRssToleranceMb;
    std::string log;
};

Options ParseOptions(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; ++i) {
        const std::string name = argv[i];
        if (i + 1 >= argc) {
            std::fprintf(stderr, "vrok_soak: %s needs a value\n", name.c_str());
            std::exit(2);
        }
        const char* value = argv[++i];
        if (name == "--seconds")
            options.seconds = std::atof(value);
        else if (name == "--warmup")
            options.warmup = std::atof(value);
        else if (name == "--edits-per-second")
            options.editsPerSecond = std::atof(value);
        else if (name == "--seed")
            options.seed = unsigned(std::atol(value));
        else if (name == "--rss-tolerance-mb")
            options.rssToleranceMb = std::atof(value);
        else if (name == "--log")
            options.log = value;
        else {
            std::fprintf(stderr, "vrok_soak: unknown option %s\n", name.c_str());
            std::exit(2);
        }
    }
    if (options.seconds <= 0.0 || options.editsPerSecond <= 0.0) {
        std::fprintf(stderr, "vrok_soak: --seconds and --edits-per-second must be positive\n");
        std::exit(2);
    }
    if (options.warmup < 0.0) options.warmup = std::min(60.0, options.seconds / 4.0);
    return options;
}

std::vector<std::string> ExamplePatches() {
    std::vector<std::string> paths;
    for (const char* name :
         {"arpeggio_delay", "block_guis", "click", "editor_tour", "input_pass", "knob_level", "lfo_filter",
          "pad_reverb_chorus", "pluck", "shaped", "sine_a4", "subtractive", "vowel_pad"})
        paths.push_back(std::string(VROK_EXAMPLES_DIR) + "/" + name + ".vrkx");
    return paths;
}

struct Figures {
    double rssFirst = 0.0, rssAtWarmup = 0.0, rssLast = 0.0, rssMax = 0.0;
    std::vector<std::pair<double, double>> afterClear;  // seconds into the run, MB
};

int Soak(const Options& options) {
    const std::string serverName = "vrok-soak-" + std::to_string(getpid());
    soak::JackServer server(serverName, kRate, kBufferFrames,
                            std::string(VROK_SOAK_WORK_DIR) + "/" + serverName + ".log");
    if (!server.WaitUntilUp(20.0)) {
        std::fprintf(stderr, "vrok_soak: the JACK server did not start (see %s/%s.log)\n", VROK_SOAK_WORK_DIR,
                     serverName.c_str());
        return 1;
    }
    live::LiveOptions liveOptions;
    liveOptions.device = serverName;
    live::LiveRig rig(liveOptions);
    const std::vector<std::string> patches = ExamplePatches();
    app::LoadPatch(rig.Machine(), patches[7]);
    rig.Start();
    soak::OutputMonitor monitor;
    if (!monitor.Connect(10.0)) {
        std::fprintf(stderr, "vrok_soak: cannot wire vrok's outputs to the monitor\n");
        return 1;
    }
    std::printf("soak: %s for %.0f s (warm-up %.0f s), %.0f edits a second, seed %u\n",
                rig.Describe().c_str(), options.seconds, options.warmup, options.editsPerSecond,
                options.seed);
    std::fflush(stdout);

    soak::ScriptedEditor editor(*rig.Machine().document, patches, options.seed);
    Figures figures;
    const auto started = std::chrono::steady_clock::now();
    // Read by the main thread only after the editing thread has ended.
    editor.afterClear = [&] {
        const double at = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
        figures.afterClear.push_back({at, ResidentMb()});
    };
    std::atomic<bool> editing{true};
    std::thread editThread([&] {
        const auto period = std::chrono::duration<double>(1.0 / options.editsPerSecond);
        auto next = std::chrono::steady_clock::now();
        while (editing.load()) {
            editor.Step();
            next += std::chrono::duration_cast<std::chrono::steady_clock::duration>(period);
            std::this_thread::sleep_until(next);
        }
        editor.ReleaseKeys();
    });

    std::ofstream log;
    if (!options.log.empty()) {
        log.open(options.log);
        log << "seconds,rss_mb,callbacks,late,overworked,underruns,skipped,non_finite,peak\n";
    }
    const live::LoadMeter& meter = rig.Meter();
    figures.rssFirst = figures.rssMax = ResidentMb();
    std::string failure;
    for (int second = 1;; ++second) {
        std::this_thread::sleep_until(started + std::chrono::seconds(second));
        const double rss = ResidentMb();
        figures.rssLast = rss;
        figures.rssMax = std::max(figures.rssMax, rss);
        if (second <= options.warmup) figures.rssAtWarmup = rss;
        if (log.is_open())
            log << second << ',' << rss << ',' << meter.callbacks.load() << ',' << meter.lateCallbacks.load()
                << ',' << meter.overworkedCallbacks.load() << ',' << meter.underruns.load() << ','
                << meter.skippedBuffers.load() << ',' << monitor.nonFinite.load() << ','
                << monitor.peak.load() << std::endl;
        if (second % 60 == 0) {
            std::printf(
                "soak: %4d s, %.1f MB resident, %lld callbacks, %d overworked, %d late, %d under-runs\n",
                second, rss, static_cast<long long>(meter.callbacks.load()), meter.overworkedCallbacks.load(),
                meter.lateCallbacks.load(), meter.underruns.load());
            std::fflush(stdout);
        }
        failure = rig.Failure();
        if (failure.empty() && !server.Running()) failure = "the JACK server went away";
        if (!failure.empty() || stopRequested.load() || second >= options.seconds) break;
    }
    editing = false;
    editThread.join();

    const long long callbacks = meter.callbacks.load();
    const int overworked = meter.overworkedCallbacks.load();
    const double bufferMs = 1000.0 * kBufferFrames / kRate;
    std::printf("soak: %s\n", rig.Summary().c_str());
    std::printf(
        "soak: resident memory %.1f MB at start, %.1f MB after warm-up, %.1f MB at the end, %.1f MB at "
        "most\n",
        figures.rssFirst, figures.rssAtWarmup, figures.rssLast, figures.rssMax);
    if (!figures.afterClear.empty()) {
        double low = figures.afterClear.front().second, high = low;
        for (const auto& [at, mb] : figures.afterClear) low = std::min(low, mb), high = std::max(high, mb);
        std::printf("soak: resident memory after %zu clears: %.1f MB first, %.1f MB last, %.1f to %.1f MB\n",
                    figures.afterClear.size(), figures.afterClear.front().second,
                    figures.afterClear.back().second, low, high);
    }
    std::printf(
        "soak: %lld callbacks: %d over the %.3f ms buffer in processor time (longest %.3f ms), %d by the "
        "clock (longest %.3f ms); %d under-runs; %d buffers skipped\n",
        callbacks, overworked, bufferMs, double(meter.longestCallbackCpuNs.load()) * 1e-6,
        meter.lateCallbacks.load(), double(meter.longestCallbackNs.load()) * 1e-6, meter.underruns.load(),
        meter.skippedBuffers.load());
    std::printf("soak: %ld frames heard, %ld samples not finite, peak %.3f\n", monitor.frames.load(),
                monitor.nonFinite.load(), double(monitor.peak.load()));
    std::printf("soak: edits:");
    for (int e = 0; e < int(soak::Edit::kCount); ++e)
        std::printf(" %s %ld%s", soak::EditName(soak::Edit(e)), editor.counts[size_t(e)],
                    e + 1 < int(soak::Edit::kCount) ? "," : "\n");

    int faults = 0;
    auto fault = [&](const std::string& what) {
        std::printf("soak: FAIL: %s\n", what.c_str());
        ++faults;
    };
    if (!failure.empty()) fault(failure);
    if (monitor.nonFinite.load() > 0) fault("samples that are not finite numbers reached the output");
    if (monitor.frames.load() == 0) fault("the monitor heard nothing");
    for (const std::string& path : editor.failedLoads) fault("cannot load " + path);
    if (kFiguresAreMeaningful && double(overworked) > kMaxOverworkedShare * double(callbacks))
        fault(std::to_string(overworked) + " callbacks over their buffer's length in processor time");
    std::vector<double> judged;
    for (const auto& [at, mb] : figures.afterClear)
        if (at > options.warmup) judged.push_back(mb);
    if (judged.size() < 2) {
        std::printf("soak: memory not judged: fewer than two clears after the warm-up\n");
    } else if (kFiguresAreMeaningful && judged.back() - judged.front() > options.rssToleranceMb) {
        fault("resident memory after a clear grew from " + std::to_string(judged.front()) + " MB to " +
              std::to_string(judged.back()) + " MB");
    }
    if (!kFiguresAreMeaningful)
        std::printf("soak: memory and callback time not judged: built with a sanitizer\n");
    std::printf("soak: %s\n", faults == 0 ? "passed" : "failed");
    return faults == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    const Options options = ParseOptions(argc, argv);
    if (std::system("command -v jackd >/dev/null 2>&1") != 0) {
        std::printf("soak: skipped: jackd is not installed\n");
        return 77;
    }
    signal(SIGINT, OnStopSignal);
    signal(SIGTERM, OnStopSignal);
    try {
        return Soak(options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "vrok_soak: %s\n", e.what());
        return 1;
    }
}
