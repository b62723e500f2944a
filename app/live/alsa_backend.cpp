// The ALSA back end: RtAudio opens the sound card (rate, buffer, recovery from xruns) and
// RtMidi reads the ALSA sequencer. MIDI arrives on RtMidi's threads and waits in a queue
// per source until the next audio buffer, where it plays at the buffer's start.
#include <alsa/asoundlib.h>
#include <rtaudio/RtAudio.h>
#include <rtmidi/RtMidi.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

#include "app/live/backend.h"
#include "app/live/live_player.h"

namespace live {
namespace {

constexpr int kDefaultBufferFrames = 256;
constexpr int kQueueSize = 1024;  // a power of two

// Messages from one MIDI thread to the audio thread, without locks or allocation.
class MidiQueue {
public:
    // MIDI thread. False when full: the message is dropped.
    bool Push(const std::vector<unsigned char>& message) {
        const unsigned head = writeAt.load(std::memory_order_relaxed);
        if (head - readAt.load(std::memory_order_acquire) == kQueueSize) return false;
        MidiEvent& slot = slots[head % kQueueSize];
        slot.size = int(std::min<size_t>(message.size(), 3));
        std::memcpy(slot.bytes, message.data(), size_t(slot.size));
        writeAt.store(head + 1, std::memory_order_release);
        return true;
    }
    // Audio thread: moves up to `room` messages to `out`, stamped at frame 0.
    int Drain(MidiEvent* out, int room) {
        int n = 0;
        unsigned tail = readAt.load(std::memory_order_relaxed);
        const unsigned head = writeAt.load(std::memory_order_acquire);
        for (; tail != head && n < room; ++tail, ++n) {
            out[n] = slots[tail % kQueueSize];
            out[n].frame = 0;
        }
        readAt.store(tail, std::memory_order_release);
        return n;
    }

private:
    MidiEvent slots[kQueueSize];
    std::atomic<unsigned> writeAt{0}, readAt{0};
};

// RtAudio reports a lost device through a callback without user data; one stream plays at a
// time, so its complaint is kept here.
std::mutex failureLock;
std::string streamFailure;

void OnStreamError(RtAudioError::Type type, const std::string& text) {
    if (type == RtAudioError::WARNING || type == RtAudioError::DEBUG_WARNING) return;
    std::lock_guard guard(failureLock);
    if (streamFailure.empty()) streamFailure = text;
}

std::string Join(const std::vector<std::string>& names) {
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

class AlsaBackend : public AudioBackend {
public:
    explicit AlsaBackend(const DeviceOptions& options) : audio(RtAudio::LINUX_ALSA) {
        audio.showWarnings(false);
        {
            std::lock_guard guard(failureLock);
            streamFailure.clear();
        }
        ChooseDevice(options.device);
        rate = options.sampleRate > 0 ? options.sampleRate : int(info.preferredSampleRate);
        if (rate <= 0 && !info.sampleRates.empty()) rate = int(info.sampleRates.back());
        const auto& rates = info.sampleRates;
        if (!rates.empty() && std::find(rates.begin(), rates.end(), unsigned(rate)) == rates.end()) {
            std::vector<std::string> offered;
            for (unsigned r : rates) offered.push_back(std::to_string(r));
            throw DeviceError(Describe() + " does not play at " + std::to_string(rate) + " Hz; it offers " +
                              Join(offered));
        }
        bufferFrames = options.bufferFrames > 0 ? options.bufferFrames : kDefaultBufferFrames;
        OpenMidi(options.midiIn);

        RtAudio::StreamParameters out{deviceId, 2, 0}, in{deviceId, 2, 0};
        RtAudio::StreamOptions streamOptions;
        streamOptions.flags = RTAUDIO_NONINTERLEAVED | RTAUDIO_SCHEDULE_REALTIME;
        streamOptions.streamName = "vrok";
        const bool hasInput = info.inputChannels >= 2;
        unsigned frames = unsigned(bufferFrames);
        try {
            audio.openStream(&out, hasInput ? &in : nullptr, RTAUDIO_FLOAT32, unsigned(rate), &frames,
                             &AlsaBackend::OnAudio, this, &streamOptions, &OnStreamError);
        } catch (const RtAudioError& e) {
            throw DeviceError(Describe() + ": cannot open at " + std::to_string(rate) + " Hz with " +
                              std::to_string(bufferFrames) + " frames: " + e.getMessage());
        }
        bufferFrames = int(frames);
    }

    ~AlsaBackend() override {
        try {
            if (audio.isStreamRunning()) audio.stopStream();
            if (audio.isStreamOpen()) audio.closeStream();
        } catch (const RtAudioError&) {
            // The device is gone already; there is nothing left to close.
        }
    }

    int SampleRate() const override { return rate; }
    int BufferFrames() const override { return bufferFrames; }
    std::string Describe() const override { return "ALSA device \"" + info.name + "\""; }

    void Start(LivePlayer& livePlayer) override {
        player = &livePlayer;
        try {
            audio.startStream();
        } catch (const RtAudioError& e) {
            throw DeviceError(Describe() + ": cannot start: " + e.getMessage());
        }
    }

    std::string Failure() const override {
        std::lock_guard guard(failureLock);
        return streamFailure.empty() ? std::string() : Describe() + " failed: " + streamFailure;
    }

private:
    struct MidiSource {
        std::unique_ptr<RtMidiIn> port;
        MidiQueue queue;
        AlsaBackend* owner = nullptr;
    };

    void ChooseDevice(const std::string& name) {
        const unsigned count = audio.getDeviceCount();
        if (count == 0) throw DeviceError("ALSA: no sound card found");
        std::vector<unsigned> matching;
        for (unsigned id = 0; id < count; ++id) {
            const RtAudio::DeviceInfo candidate = audio.getDeviceInfo(id);
            if (!candidate.probed || candidate.outputChannels < 2) continue;
            if (name.empty() ? candidate.isDefaultOutput : candidate.name == name) {
                matching = {id};
                break;
            }
            if (!name.empty() && candidate.name.find(name) != std::string::npos) matching.push_back(id);
        }
        if (name.empty() && matching.empty()) matching = {audio.getDefaultOutputDevice()};
        if (matching.empty())
            throw DeviceError("ALSA device \"" + name +
                              "\": no such stereo output (vrok devices lists them)");
        if (matching.size() > 1)
            throw DeviceError("ALSA device \"" + name + "\": names " + std::to_string(matching.size()) +
                              " devices; give the whole name");
        deviceId = matching[0];
        info = audio.getDeviceInfo(deviceId);
    }

    void OpenMidi(const std::vector<std::string>& names) {
        try {
            if (names.empty()) {
                // No source named: a port other programs (or aconnect) can connect to.
                auto& source = AddSource();
                source.port->openVirtualPort("midi_in");
                return;
            }
            for (const std::string& name : names) {
                RtMidiIn probe(RtMidi::LINUX_ALSA, "vrok");
                std::vector<unsigned> matching;
                for (unsigned i = 0; i < probe.getPortCount(); ++i) {
                    const std::string port = probe.getPortName(i);
                    if (port == name) {
                        matching = {i};
                        break;
                    }
                    if (port.find(name) != std::string::npos) matching.push_back(i);
                }
                if (matching.size() != 1)
                    throw DeviceError("ALSA MIDI input \"" + name + "\": " +
                                      (matching.empty()
                                           ? "no such port (vrok devices lists them)"
                                           : "names " + std::to_string(matching.size()) + " ports"));
                AddSource().port->openPort(matching[0], "midi_in");
            }
        } catch (const RtMidiError& e) {
            throw DeviceError("ALSA MIDI: " + e.getMessage());
        }
    }

    MidiSource& AddSource() {
        auto source = std::make_unique<MidiSource>();
        source->owner = this;
        source->port = std::make_unique<RtMidiIn>(RtMidi::LINUX_ALSA, "vrok");
        source->port->ignoreTypes(true, true, true);
        source->port->setCallback(&AlsaBackend::OnMidi, source.get());
        sources.push_back(std::move(source));
        return *sources.back();
    }

    static void OnMidi(double, std::vector<unsigned char>* message, void* data) {
        auto& source = *static_cast<MidiSource*>(data);
        if (!message || message->empty()) return;
        if (!source.queue.Push(*message) && source.owner->player)
            source.owner->player->meter.droppedMidi.fetch_add(1, std::memory_order_relaxed);
    }

    static int OnAudio(void* output, void* input, unsigned frames, double, RtAudioStreamStatus status,
                       void* self) {
        auto& backend = *static_cast<AlsaBackend*>(self);
        if (!backend.player) return 0;
        if (status & (RTAUDIO_OUTPUT_UNDERFLOW | RTAUDIO_INPUT_OVERFLOW))
            backend.player->meter.underruns.fetch_add(1, std::memory_order_relaxed);
        int numEvents = 0;
        for (auto& source : backend.sources)
            numEvents += source->queue.Drain(backend.events + numEvents, kMaxMidiEventsPerBuffer - numEvents);
        auto* out = static_cast<float*>(output);
        const auto* in = static_cast<const float*>(input);
        backend.player->Process(in, in ? in + frames : nullptr, out, out + frames, int(frames),
                                backend.events, numEvents);
        return 0;
    }

    RtAudio audio;
    unsigned deviceId = 0;
    RtAudio::DeviceInfo info;
    int rate = 0;
    int bufferFrames = 0;
    std::vector<std::unique_ptr<MidiSource>> sources;
    LivePlayer* player = nullptr;
    MidiEvent events[kMaxMidiEventsPerBuffer];
};

extern "C" void DiscardAlsaComplaint(const char*, int, const char*, int, const char*, ...) {}

}  // namespace

void SilenceAlsaLibrary() { snd_lib_error_set_handler(&DiscardAlsaComplaint); }

std::unique_ptr<AudioBackend> OpenAlsa(const DeviceOptions& options) {
    SilenceAlsaLibrary();
    try {
        return std::make_unique<AlsaBackend>(options);
    } catch (const RtAudioError& e) {
        throw DeviceError("ALSA: " + e.getMessage());
    }
}

}  // namespace live
