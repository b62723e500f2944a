// `vrok play`: the device first (its rate decides the machine's), then the machine and its
// patch, then the callbacks; the main thread only waits for a signal or a failure.
#include "app/live/play.h"

#include <signal.h>

#include <cerrno>
#include <cstdio>
#include <ctime>

#include "app/commands.h"
#include "app/live/backend.h"
#include "app/live/live_player.h"
#include "app/note_spec.h"
#include "app/patch_load.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/machine.h"

namespace live {
namespace {

// The rate the engine is built at; the master effects are remade when the device's differs.
constexpr int kEngineStartRate = 44100;
constexpr long kPollNs = 100'000'000;

std::unique_ptr<AudioBackend> OpenBackend(const PlayOptions& options) {
    DeviceOptions device{options.device, options.sampleRate, options.bufferFrames, options.midiIn};
    if (options.audio == "jack") return OpenJack(device);
    if (options.audio == "alsa") return OpenAlsa(device);
    throw app::UsageError("--audio '" + options.audio + "': expected jack or alsa");
}

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
    if (options.midiChannel < 0 || options.midiChannel > 16) {
        app::PrintError("--midi-channel " + std::to_string(options.midiChannel) +
                        ": expected 0 (every channel) to 16");
        return 2;
    }
    const sigset_t stopSignals = StopSignals();
    try {
        std::unique_ptr<AudioBackend> backend = OpenBackend(options);
        const int rate = backend->SampleRate();
        LiveHost host(rate, options.midiChannel);
        mi machine(host);
        machine.Init(nullptr);
        for (const std::string& line : app::LoadPatch(machine, options.patch))
            std::fprintf(stderr, "vrok: warning: %s\n", line.c_str());
        if (rate != kEngineStartRate) {
            // As `vrok render` does: the machine remakes its master effects only when the rate
            // changes, and this host starts at its final rate.
            machine.document->engine->ChangeSampleRate(float(rate));
            machine.document->ReapplyGlobals();
        }
        LivePlayer player(machine, host);
        try {
            backend->Start(player);
        } catch (...) {
            backend.reset();  // a half-started client stops before the player goes
            throw;
        }
        std::printf("playing %s through %s at %d Hz, %d frames a buffer; Ctrl-C stops\n",
                    options.patch.c_str(), backend->Describe().c_str(), rate, backend->BufferFrames());
        std::fflush(stdout);

        const timespec poll{0, kPollNs};
        std::string failure;
        for (;;) {
            const int signal = sigtimedwait(&stopSignals, nullptr, &poll);
            if (signal == SIGINT || signal == SIGTERM) break;
            failure = backend->Failure();
            if (!failure.empty()) break;
        }
        const double bufferMs = 1000.0 * backend->BufferFrames() / rate;
        std::printf("longest callback %.3f ms of a %.3f ms buffer; %d under-runs\n",
                    double(player.meter.longestCallbackNs.load()) * 1e-6, bufferMs,
                    player.meter.underruns.load());
        backend.reset();  // callbacks end before the player and the machine go
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
