// The live rig: device first (its rate decides the machine's), machine and player next;
// on the way down the callbacks stop before the player and the machine go.
#include "app/live/live_rig.h"

#include <cstdio>

#include "app/live/backend.h"
#include "app/note_arguments.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/machine.h"

namespace live {
namespace {

// The rate the engine's master effects are made at; they are remade when the device's
// differs, as `vrok render` does for its rate.
constexpr int kEngineStartRate = 44100;

std::unique_ptr<AudioBackend> OpenBackend(const LiveOptions& options) {
    if (options.midiChannel < 0 || options.midiChannel > 16)
        throw app::UsageError("--midi-channel " + std::to_string(options.midiChannel) +
                              ": expected 0 (every channel) to 16");
    const DeviceOptions device{options.device, options.sampleRate, options.bufferFrames, options.midiIn};
    if (options.audio == "jack") return OpenJack(device);
    if (options.audio == "alsa") return OpenAlsa(device);
    throw app::UsageError("--audio '" + options.audio + "': expected jack or alsa");
}

}  // namespace

LiveRig::LiveRig(const LiveOptions& options) : backend(OpenBackend(options)) {
    host = std::make_unique<LiveHost>(backend->SampleRate(), options.midiChannel);
    machine = std::make_unique<mi>(*host);
    machine->Init(nullptr);
    player = std::make_unique<LivePlayer>(*machine, *host);
}

LiveRig::~LiveRig() { backend.reset(); }

void LiveRig::Start() {
    const int rate = backend->SampleRate();
    if (rate != kEngineStartRate) {
        machine->document->engine->ChangeSampleRate(float(rate));
        machine->document->ReapplyGlobals();
    }
    backend->Start(*player);
}

std::string LiveRig::Failure() const { return backend ? backend->Failure() : std::string(); }

std::string LiveRig::Describe() const {
    return backend->Describe() + " at " + std::to_string(backend->SampleRate()) + " Hz, " +
           std::to_string(backend->BufferFrames()) + " frames a buffer";
}

std::string LiveRig::Summary() const {
    const double bufferMs = 1000.0 * backend->BufferFrames() / backend->SampleRate();
    const LoadMeter& meter = player->meter;
    char text[320];
    std::snprintf(
        text, sizeof text,
        "longest callback %.3f ms of a %.3f ms buffer (waiting for edits at most %.3f ms); %d of %lld "
        "callbacks late; %d under-runs; %d buffers skipped",
        double(meter.longestCallbackNs.load()) * 1e-6, bufferMs, double(meter.longestWaitNs.load()) * 1e-6,
        meter.lateCallbacks.load(), static_cast<long long>(meter.callbacks.load()), meter.underruns.load(),
        meter.skippedBuffers.load());
    return text;
}

}  // namespace live
