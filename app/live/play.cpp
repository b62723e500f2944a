// `vrok play`: the rig, the patch, then the callbacks; the main thread only waits for a
// signal or a failure.
#include "app/live/play.h"

#include <signal.h>

#include <cstdio>
#include <ctime>

#include "app/commands.h"
#include "app/live/backend.h"
#include "app/note_arguments.h"
#include "app/patch_load.h"

namespace live {
namespace {

constexpr long kPollNs = 100'000'000;

// Blocks SIGINT and SIGTERM in this thread and every thread started after, so that the
// audio threads never see them and the main thread takes them with sigtimedwait.
sigset_t StopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    return set;
}

}  // namespace

int RunPlay(const PlayOptions& options) {
    const sigset_t stopSignals = StopSignals();
    try {
        LiveRig rig(options.live);
        for (const std::string& line : app::LoadPatch(rig.Machine(), options.patch))
            std::fprintf(stderr, "vrok: warning: %s\n", line.c_str());
        rig.Start();
        std::printf("playing %s through %s; Ctrl-C stops\n", options.patch.c_str(), rig.Describe().c_str());
        std::fflush(stdout);

        const timespec poll{0, kPollNs};
        std::string failure;
        for (;;) {
            const int signal = sigtimedwait(&stopSignals, nullptr, &poll);
            if (signal == SIGINT || signal == SIGTERM) break;
            failure = rig.Failure();
            if (!failure.empty()) break;
        }
        std::printf("%s\n", rig.Summary().c_str());
        if (!failure.empty()) {
            app::PrintError(failure);
            return 1;
        }
        return 0;
    } catch (const DeviceError& e) {
        app::PrintError(e.what());
        return 1;
    } catch (const app::InputError& e) {
        app::PrintError(e.what());
        return 1;
    } catch (const app::UsageError& e) {
        app::PrintError(e.what());
        return 2;
    }
}

int RunDevices() {
    std::fputs(ListDevices().c_str(), stdout);
    return 0;
}

}  // namespace live
