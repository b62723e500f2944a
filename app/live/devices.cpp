// `vrok devices`: what --device and --midi-in can name, for each back end.
#include <jack/jack.h>
#include <rtaudio/RtAudio.h>
#include <rtmidi/RtMidi.h>

#include <sstream>

#include "app/live/backend.h"

namespace live {
namespace {

void Quiet(const char*) {}

void ListAlsa(std::ostringstream& text) {
    SilenceAlsaLibrary();
    text << "ALSA audio devices (--audio alsa --device NAME):\n";
    try {
        RtAudio audio(RtAudio::LINUX_ALSA);
        audio.showWarnings(false);
        const unsigned count = audio.getDeviceCount();
        if (count == 0) text << "  none\n";
        for (unsigned id = 0; id < count; ++id) {
            const RtAudio::DeviceInfo info = audio.getDeviceInfo(id);
            if (!info.probed) continue;
            text << "  " << info.name << " (" << info.outputChannels << " out, " << info.inputChannels
                 << " in";
            if (info.preferredSampleRate > 0) text << ", " << info.preferredSampleRate << " Hz";
            text << (info.isDefaultOutput ? ", default" : "") << ")\n";
        }
    } catch (const RtAudioError& e) {
        text << "  cannot list: " << e.getMessage() << "\n";
    }
    text << "ALSA MIDI inputs (--midi-in NAME):\n";
    try {
        RtMidiIn midi(RtMidi::LINUX_ALSA, "vrok devices");
        const unsigned count = midi.getPortCount();
        if (count == 0) text << "  none\n";
        for (unsigned i = 0; i < count; ++i) text << "  " << midi.getPortName(i) << "\n";
    } catch (const RtMidiError& e) {
        text << "  cannot list: " << e.getMessage() << "\n";
    }
}

void ListPorts(std::ostringstream& text, jack_client_t* client, const char* type, unsigned long flags) {
    const char** ports = jack_get_ports(client, nullptr, type, flags);
    if (!ports || !*ports) text << "  none\n";
    for (const char** p = ports; p && *p; ++p) text << "  " << *p << "\n";
    if (ports) jack_free(ports);
}

void ListJack(std::ostringstream& text) {
    jack_set_error_function(&Quiet);
    jack_set_info_function(&Quiet);
    jack_status_t status{};
    jack_client_t* client = jack_client_open("vrok-devices", JackNoStartServer, &status);
    if (!client) {
        text << "JACK: no server running\n";
        return;
    }
    text << "JACK server at " << jack_get_sample_rate(client) << " Hz, " << jack_get_buffer_size(client)
         << " frames (--audio jack)\n";
    text << "JACK MIDI sources (--midi-in NAME):\n";
    ListPorts(text, client, JACK_DEFAULT_MIDI_TYPE, JackPortIsOutput);
    text << "JACK audio outputs (to wire into vrok:in_L, vrok:in_R):\n";
    ListPorts(text, client, JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput);
    text << "JACK audio inputs (for vrok:out_L, vrok:out_R):\n";
    ListPorts(text, client, JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput);
    jack_client_close(client);
}

}  // namespace

std::string ListDevices() {
    std::ostringstream text;
    ListJack(text);
    ListAlsa(text);
    return text.str();
}

}  // namespace live
