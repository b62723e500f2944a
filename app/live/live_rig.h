// Everything live playing needs, in the order it must start and stop: the device, a host
// at the device's rate, the machine, and the player the device's callback drives. Shared
// by `vrok play` and `vrok edit`.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "app/live/live_player.h"

class mi;

namespace live {

class AudioBackend;

struct LiveOptions {
    std::string audio = "jack";  // "jack" or "alsa"
    std::string device;          // JACK server or ALSA device; empty: the default
    int sampleRate = 0;          // 0: the device's
    int bufferFrames = 0;        // 0: the device's (JACK) or 256 (ALSA)
    std::vector<std::string> midiIn;
    int midiChannel = 0;  // 0: every channel, else 1..16
};

class LiveRig {
public:
    // Opens the device and makes the machine at its rate, with the default patch; nothing
    // plays yet. Throws DeviceError naming the device, or app::UsageError for options that
    // make no sense.
    explicit LiveRig(const LiveOptions& options);
    // Stops the callbacks before anything they use goes.
    ~LiveRig();
    LiveRig(const LiveRig&) = delete;
    LiveRig& operator=(const LiveRig&) = delete;

    // The machine to load a patch into before Start, or to edit while playing.
    mi& Machine() { return *machine; }
    // Brings the engine to the device's rate and starts the callbacks and connections.
    // Throws DeviceError; the device is then closed again.
    void Start();
    // Any thread: empty while all is well; why the device or server stopped otherwise.
    std::string Failure() const;
    // "JACK server "default" at 44100 Hz, 256 frames a buffer".
    std::string Describe() const;
    // The closing line: longest callback, under-runs, skipped buffers.
    std::string Summary() const;
    const LoadMeter& Meter() const { return player->meter; }

private:
    std::unique_ptr<AudioBackend> backend;
    std::unique_ptr<LiveHost> host;
    std::unique_ptr<mi> machine;
    std::unique_ptr<LivePlayer> player;
};

}  // namespace live
