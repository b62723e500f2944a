// The audio and MIDI back ends of live playing. JACK is spoken through the JACK client
// library itself, so the ports carry our own names and MIDI arrives in the process
// callback stamped with its frame; plain ALSA goes through RtAudio and RtMidi, which
// negotiate the device and the sequencer for us.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace live {

class LivePlayer;
struct LoadMeter;

// A device, server or port that cannot be used, with a message naming it: exit status 1.
class DeviceError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct DeviceOptions {
    std::string device;               // ALSA: the audio device; JACK: the server (empty: default)
    int sampleRate = 0;               // 0: the device's own
    int bufferFrames = 0;             // 0: the device's own (JACK) or 256 (ALSA)
    std::vector<std::string> midiIn;  // MIDI sources to connect, by name
};

// An opened device. Open checks everything it can before anything runs; Start starts the
// callbacks and makes the connections. The destructor stops and closes everything.
class AudioBackend {
public:
    virtual ~AudioBackend() = default;
    virtual int SampleRate() const = 0;
    virtual int BufferFrames() const = 0;
    // What to call the device in messages, such as "JACK server \"default\"".
    virtual std::string Describe() const = 0;
    // Throws DeviceError when the callbacks cannot start or a connection fails.
    virtual void Start(LivePlayer& player) = 0;
    // Any thread: empty while running; once the device or server went away, why.
    virtual std::string Failure() const = 0;
};

// Throws DeviceError with a message naming the server or device and what went wrong.
std::unique_ptr<AudioBackend> OpenJack(const DeviceOptions& options);
std::unique_ptr<AudioBackend> OpenAlsa(const DeviceOptions& options);

// The ALSA library prints its own complaints on stderr, several lines for a missing card;
// ours name the device instead.
void SilenceAlsaLibrary();

// `vrok devices`: ALSA audio devices, ALSA MIDI inputs, and the JACK server's ports when
// one is running, one per line.
std::string ListDevices();

}  // namespace live
