// A small JACK client of the tests' own: it plays MIDI into vrok:midi_in, feeds audio into
// vrok:in_L and vrok:in_R, and records vrok:out_L and vrok:out_R, all counted in frames
// from the first cycle after Run starts.
#pragma once

#include <jack/jack.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace probe {

struct TimedMidi {
    long frame;
    std::vector<uint8_t> bytes;
};

struct Recording {
    std::vector<float> left, right;
};

class JackProbe {
public:
    // Joins the server JACK_DEFAULT_SERVER names; throws std::runtime_error when it cannot.
    JackProbe();
    ~JackProbe();
    JackProbe(const JackProbe&) = delete;
    JackProbe& operator=(const JackProbe&) = delete;

    // Waits for vrok's ports to appear and wires them to the probe's. False on timeout.
    bool ConnectToVrok(double timeoutSeconds);
    // Plays `events` (sorted by frame) and feeds `feedLeft`/`feedRight` (shorter ones end in
    // silence) while recording `frames` frames; returns when the recording is full.
    Recording Run(const std::vector<TimedMidi>& events, int frames, const std::vector<float>& feedLeft = {},
                  const std::vector<float>& feedRight = {});

    int sampleRate = 0;
    int bufferFrames = 0;

private:
    static int OnProcess(jack_nframes_t frames, void* self);

    jack_client_t* client = nullptr;
    jack_port_t *midiOut = nullptr, *recordLeft = nullptr, *recordRight = nullptr;
    jack_port_t *feedLeftPort = nullptr, *feedRightPort = nullptr;
    // Set up by Run before `armed`; read by the process callback only while armed.
    const std::vector<TimedMidi>* events = nullptr;
    const std::vector<float>* feeds[2] = {};
    Recording recording;
    long position = 0;
    size_t nextEvent = 0;
    std::atomic<bool> armed{false}, done{false};
};

// True when a port of that full name exists on the server.
bool PortExists(const std::string& name);

}  // namespace probe
