// The JACK back end: one client named "vrok" with ports out_L, out_R, in_L, in_R and
// midi_in, MIDI read in the process callback at its frames, and the server's going away
// reported rather than waited on.
#include <jack/jack.h>
#include <jack/midiport.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>

#include "app/live/backend.h"
#include "app/live/live_player.h"

namespace live {
namespace {

constexpr const char* kClientName = "vrok";

// The server a client reaches without a name is the one JACK_DEFAULT_SERVER names.
std::string ServerLabel(const std::string& server) {
    const char* fromEnvironment = std::getenv("JACK_DEFAULT_SERVER");
    const std::string name = !server.empty()                       ? server
                             : fromEnvironment && *fromEnvironment ? fromEnvironment
                                                                   : "default";
    return "JACK server \"" + name + "\"";
}

// The ports of `type` and `flags` whose full name is `name`, or else contains it; the
// whole list when `name` is empty.
std::vector<std::string> FindPorts(jack_client_t* client, const char* type, unsigned long flags,
                                   const std::string& name) {
    std::vector<std::string> all, matching;
    if (const char** ports = jack_get_ports(client, nullptr, type, flags)) {
        for (const char** p = ports; *p; ++p) all.push_back(*p);
        jack_free(ports);
    }
    if (name.empty()) return all;
    for (const std::string& port : all)
        if (port == name) return {port};
    for (const std::string& port : all)
        if (port.find(name) != std::string::npos) matching.push_back(port);
    return matching;
}

class JackBackend : public AudioBackend {
public:
    explicit JackBackend(const DeviceOptions& options) : server(options.device) {
        try {
            Open(options);
        } catch (...) {
            if (client) jack_client_close(client);
            throw;
        }
    }

    ~JackBackend() override {
        // Deactivate before closing, so the callbacks are over before the player goes. A
        // client whose server died is left alone: there is nothing to say goodbye to.
        if (active && !gone.load()) jack_deactivate(client);
        if (!gone.load()) jack_client_close(client);
    }

    int SampleRate() const override { return int(jack_get_sample_rate(client)); }
    int BufferFrames() const override { return int(jack_get_buffer_size(client)); }
    std::string Describe() const override { return ServerLabel(server); }

    void Start(LivePlayer& livePlayer) override {
        player = &livePlayer;
        jack_set_process_callback(client, &JackBackend::OnProcess, this);
        jack_set_xrun_callback(client, &JackBackend::OnXrun, this);
        jack_set_sample_rate_callback(client, &JackBackend::OnSampleRate, this);
        jack_on_info_shutdown(client, &JackBackend::OnShutdown, this);
        if (jack_activate(client) != 0) throw DeviceError(Describe() + ": cannot start the client");
        active = true;
        for (const std::string& source : midiSources) {
            const int result = jack_connect(client, source.c_str(), jack_port_name(midiIn));
            if (result != 0 && result != EEXIST)
                throw DeviceError(Describe() + ": cannot connect \"" + source + "\" to " +
                                  jack_port_name(midiIn));
        }
        // Sound out of the first two loudspeakers at once; inputs stay for the user to wire,
        // since a microphone into an effect can howl.
        const std::vector<std::string> speakers =
            FindPorts(client, JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput | JackPortIsPhysical, "");
        if (speakers.size() >= 1) jack_connect(client, jack_port_name(outLeft), speakers[0].c_str());
        if (speakers.size() >= 2) jack_connect(client, jack_port_name(outRight), speakers[1].c_str());
    }

    std::string Failure() const override {
        if (!gone.load()) return {};
        return Describe() + " went away: " + std::string(goneReason);
    }

private:
    void Open(const DeviceOptions& options) {
        jack_status_t status{};
        const int flags = JackNoStartServer | JackUseExactName | (server.empty() ? 0 : JackServerName);
        client = server.empty()
                     ? jack_client_open(kClientName, jack_options_t(flags), &status)
                     : jack_client_open(kClientName, jack_options_t(flags), &status, server.c_str());
        if (!client) {
            if (status & JackNameNotUnique)
                throw DeviceError(Describe() + ": a client named \"vrok\" is already connected");
            throw DeviceError(Describe() + ": cannot connect (is the server running?)");
        }
        if (options.sampleRate > 0 && jack_nframes_t(options.sampleRate) != jack_get_sample_rate(client))
            throw DeviceError(Describe() + " runs at " + std::to_string(jack_get_sample_rate(client)) +
                              " Hz and cannot play at " + std::to_string(options.sampleRate) +
                              " Hz: start the server at that rate, or leave out --rate");
        if (options.bufferFrames > 0 &&
            jack_nframes_t(options.bufferFrames) != jack_get_buffer_size(client) &&
            jack_set_buffer_size(client, jack_nframes_t(options.bufferFrames)) != 0)
            throw DeviceError(Describe() + " refuses a buffer of " + std::to_string(options.bufferFrames) +
                              " frames");
        for (const std::string& name : options.midiIn) {
            const std::vector<std::string> found =
                FindPorts(client, JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, name);
            if (found.empty())
                throw DeviceError(Describe() + ": no MIDI source named \"" + name +
                                  "\" (vrok devices lists them)");
            if (found.size() > 1)
                throw DeviceError(Describe() + ": \"" + name + "\" names " + std::to_string(found.size()) +
                                  " MIDI sources; give one of: " + Join(found));
            midiSources.push_back(found[0]);
        }
        const char* audio = JACK_DEFAULT_AUDIO_TYPE;
        outLeft = jack_port_register(client, "out_L", audio, JackPortIsOutput, 0);
        outRight = jack_port_register(client, "out_R", audio, JackPortIsOutput, 0);
        inLeft = jack_port_register(client, "in_L", audio, JackPortIsInput, 0);
        inRight = jack_port_register(client, "in_R", audio, JackPortIsInput, 0);
        midiIn = jack_port_register(client, "midi_in", JACK_DEFAULT_MIDI_TYPE, JackPortIsInput, 0);
        if (!outLeft || !outRight || !inLeft || !inRight || !midiIn)
            throw DeviceError(Describe() + ": cannot make ports");
    }

    static std::string Join(const std::vector<std::string>& names) {
        std::string text;
        for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
        return text;
    }

    static int OnProcess(jack_nframes_t frames, void* self) {
        auto& backend = *static_cast<JackBackend*>(self);
        void* midiBuffer = jack_port_get_buffer(backend.midiIn, frames);
        const jack_nframes_t count = jack_midi_get_event_count(midiBuffer);
        int numEvents = 0;
        for (jack_nframes_t i = 0; i < count; ++i) {
            jack_midi_event_t event;
            if (jack_midi_event_get(&event, midiBuffer, i) != 0 || event.size < 1 || event.size > 3) continue;
            if (numEvents == kMaxMidiEventsPerBuffer) {
                backend.player->meter.droppedMidi.fetch_add(1, std::memory_order_relaxed);
                continue;
            }
            MidiEvent& out = backend.events[numEvents++];
            out.frame = int(event.time);
            out.size = int(event.size);
            std::memcpy(out.bytes, event.buffer, event.size);
        }
        backend.player->Process(static_cast<const float*>(jack_port_get_buffer(backend.inLeft, frames)),
                                static_cast<const float*>(jack_port_get_buffer(backend.inRight, frames)),
                                static_cast<float*>(jack_port_get_buffer(backend.outLeft, frames)),
                                static_cast<float*>(jack_port_get_buffer(backend.outRight, frames)),
                                int(frames), backend.events, numEvents);
        return 0;
    }

    static int OnXrun(void* self) {
        static_cast<JackBackend*>(self)->player->meter.underruns.fetch_add(1, std::memory_order_relaxed);
        return 0;
    }

    static int OnSampleRate(jack_nframes_t rate, void* self) {
        auto& backend = *static_cast<JackBackend*>(self);
        if (backend.player) backend.player->SampleRateChanged(int(rate));
        return 0;
    }

    static void OnShutdown(jack_status_t, const char* reason, void* self) {
        auto& backend = *static_cast<JackBackend*>(self);
        std::strncpy(backend.goneReason, reason && *reason ? reason : "no reason given",
                     sizeof backend.goneReason - 1);
        backend.gone.store(true);
    }

    std::string server;
    jack_client_t* client = nullptr;
    jack_port_t *outLeft = nullptr, *outRight = nullptr, *inLeft = nullptr, *inRight = nullptr,
                *midiIn = nullptr;
    std::vector<std::string> midiSources;
    LivePlayer* player = nullptr;
    bool active = false;
    std::atomic<bool> gone{false};
    char goneReason[256] = {};
    MidiEvent events[kMaxMidiEventsPerBuffer];
};

void Quiet(const char*) {}

}  // namespace

std::unique_ptr<AudioBackend> OpenJack(const DeviceOptions& options) {
    // The library's own complaints would repeat ours in its words, several lines each.
    jack_set_error_function(&Quiet);
    jack_set_info_function(&Quiet);
    return std::make_unique<JackBackend>(options);
}

}  // namespace live
