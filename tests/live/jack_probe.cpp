// The tests' JACK client: MIDI out, two feeds and two recorders, driven from its own
// process callback so that every event lands on the frame it names.
#include "jack_probe.h"

#include <jack/midiport.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <stdexcept>
#include <thread>

namespace probe {

JackProbe::JackProbe() {
    jack_status_t status{};
    client = jack_client_open("vrok-probe", JackNoStartServer, &status);
    if (!client) throw std::runtime_error("the probe cannot join the JACK server");
    sampleRate = int(jack_get_sample_rate(client));
    bufferFrames = int(jack_get_buffer_size(client));
    midiOut = jack_port_register(client, "midi_out", JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput, 0);
    recordLeft = jack_port_register(client, "record_L", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    recordRight = jack_port_register(client, "record_R", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    feedLeftPort = jack_port_register(client, "feed_L", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    feedRightPort = jack_port_register(client, "feed_R", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    jack_set_process_callback(client, &JackProbe::OnProcess, this);
    if (jack_activate(client) != 0) throw std::runtime_error("the probe cannot start");
}

JackProbe::~JackProbe() {
    jack_deactivate(client);
    jack_client_close(client);
}

bool JackProbe::ConnectToVrok(double timeoutSeconds) {
    const std::pair<const char*, const char*> wires[] = {{"vrok-probe:midi_out", "vrok:midi_in"},
                                                         {"vrok:out_L", "vrok-probe:record_L"},
                                                         {"vrok:out_R", "vrok-probe:record_R"},
                                                         {"vrok-probe:feed_L", "vrok:in_L"},
                                                         {"vrok-probe:feed_R", "vrok:in_R"}};
    // vrok's ports exist before its client is active, and only an active client's ports
    // take connections: try until every wire is made.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(timeoutSeconds);
    for (const auto& [from, to] : wires) {
        for (;;) {
            const int result = jack_connect(client, from, to);
            if (result == 0 || result == EEXIST) break;
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    return true;
}

Recording JackProbe::Run(const std::vector<TimedMidi>& playEvents, int frames,
                         const std::vector<float>& feedLeft, const std::vector<float>& feedRight) {
    events = &playEvents;
    feeds[0] = &feedLeft;
    feeds[1] = &feedRight;
    recording.left.assign(size_t(frames), 0.0f);
    recording.right.assign(size_t(frames), 0.0f);
    position = 0;
    nextEvent = 0;
    done = false;
    armed = true;
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::duration<double>(double(frames) / sampleRate + 10.0);
    while (!done && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    armed = false;
    if (!done) throw std::runtime_error("the JACK server stopped running the probe");
    return recording;
}

int JackProbe::OnProcess(jack_nframes_t frames, void* self) {
    auto& probe = *static_cast<JackProbe*>(self);
    void* midi = jack_port_get_buffer(probe.midiOut, frames);
    jack_midi_clear_buffer(midi);
    float* feed[2] = {static_cast<float*>(jack_port_get_buffer(probe.feedLeftPort, frames)),
                      static_cast<float*>(jack_port_get_buffer(probe.feedRightPort, frames))};
    const float* record[2] = {static_cast<const float*>(jack_port_get_buffer(probe.recordLeft, frames)),
                              static_cast<const float*>(jack_port_get_buffer(probe.recordRight, frames))};
    const bool running = probe.armed.load() && !probe.done.load();
    const long start = probe.position;
    for (int c = 0; c < 2; ++c)
        for (jack_nframes_t i = 0; i < frames; ++i) {
            const size_t at = size_t(start) + i;
            feed[c][i] = running && at < probe.feeds[c]->size() ? (*probe.feeds[c])[at] : 0.0f;
        }
    if (!running) return 0;
    const auto& events = *probe.events;
    for (; probe.nextEvent < events.size() && events[probe.nextEvent].frame < start + long(frames);
         ++probe.nextEvent) {
        const TimedMidi& event = events[probe.nextEvent];
        jack_midi_event_write(midi, jack_nframes_t(std::max(0L, event.frame - start)), event.bytes.data(),
                              event.bytes.size());
    }
    const long total = long(probe.recording.left.size());
    for (jack_nframes_t i = 0; i < frames && start + long(i) < total; ++i) {
        probe.recording.left[size_t(start) + i] = record[0][i];
        probe.recording.right[size_t(start) + i] = record[1][i];
    }
    probe.position = start + long(frames);
    if (probe.position >= total) probe.done = true;
    return 0;
}

bool PortExists(const std::string& name) {
    jack_status_t status{};
    jack_client_t* client = jack_client_open("vrok-probe-look", JackNoStartServer, &status);
    if (!client) return false;
    const bool exists = jack_port_by_name(client, name.c_str()) != nullptr;
    jack_client_close(client);
    return exists;
}

}  // namespace probe
