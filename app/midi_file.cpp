// MIDI file reading. libsmf reports its troubles through GLib's log; they are caught here
// and become part of the one message about the file.
#include "app/midi_file.h"

#include <glib.h>
#include <smf.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>

#include "app/note_arguments.h"

namespace app {
namespace {

void CollectLog(const gchar*, GLogLevelFlags, const gchar* message, gpointer data) {
    auto* messages = static_cast<std::string*>(data);
    if (messages->empty() && message) *messages = message;
}

// Routes GLib's log into a string while it lives.
class LogCapture {
public:
    LogCapture() { previous = g_log_set_default_handler(CollectLog, &firstMessage); }
    ~LogCapture() { g_log_set_default_handler(previous, nullptr); }
    std::string firstMessage;

private:
    GLogFunc previous;
};

uint32_t BigEndian32(const unsigned char* p) { return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3]; }

uint16_t BigEndian16(const unsigned char* p) { return uint16_t(p[0] << 8 | p[1]); }

// The whole file, its header and chunk structure checked before libsmf sees it: a header
// chunk libsmf can read, then chunks that each fit inside the file, with as many track
// chunks as the header declares. libsmf accepts some cut-off files silently, and leaks its
// whole state on a header or a track count it refuses.
std::string ReadCheckedFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw InputError(path + ": cannot read file: " + std::strerror(errno));
    std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    // libsmf takes the length as an int.
    if (bytes.size() > size_t(std::numeric_limits<int>::max()))
        throw InputError(path + ": too large for a MIDI file");
    const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
    if (bytes.size() < 14 || std::memcmp(data, "MThd", 4) != 0)
        throw InputError(path + ": not a standard MIDI file (no \"MThd\" header)");
    if (const uint32_t length = BigEndian32(data + 4); length != 6)
        throw InputError(path + ": MIDI header chunk of " + std::to_string(length) + " bytes, not 6");
    if (const int format = BigEndian16(data + 8); format > 1)
        throw InputError(path + ": MIDI file format " + std::to_string(format) +
                         "; only formats 0 and 1 can be read");
    const int tracks = BigEndian16(data + 10);
    if (tracks == 0) throw InputError(path + ": the MIDI header declares no tracks");
    const uint16_t division = BigEndian16(data + 12);
    if (division & 0x8000) throw InputError(path + ": MIDI file timed in SMPTE frames, which cannot be read");
    if (division == 0) throw InputError(path + ": MIDI file with 0 ticks per quarter note");
    size_t at = 0;
    int trackChunks = 0;
    while (at < bytes.size()) {
        if (bytes.size() - at < 8)
            throw InputError(path + ": truncated MIDI file (a chunk header is cut off)");
        const uint32_t length = BigEndian32(data + at + 4);
        if (length > bytes.size() - at - 8)
            throw InputError(path + ": truncated MIDI file (a chunk ends past the end of the file)");
        trackChunks += std::memcmp(data + at, "MTrk", 4) == 0;
        at += 8 + size_t(length);
    }
    if (trackChunks < tracks)
        throw InputError(path + ": the MIDI header declares " + std::to_string(tracks) +
                         " tracks, the file holds " + std::to_string(trackChunks));
    return bytes;
}

}  // namespace

std::vector<MidiNoteEvent> ReadMidiFile(const std::string& path) {
    const std::string bytes = ReadCheckedFile(path);
    LogCapture log;
    smf_t* smf = smf_load_from_memory(bytes.data(), int(bytes.size()));
    if (!smf) {
        const std::string why = log.firstMessage.empty() ? "" : " (" + log.firstMessage + ")";
        throw InputError(path + ": cannot read MIDI file" + why);
    }
    std::vector<MidiNoteEvent> events;
    smf_rewind(smf);
    while (smf_event_t* event = smf_get_next_event(smf)) {
        if (smf_event_is_metadata(event) || event->midi_buffer_length < 2) continue;
        const int status = event->midi_buffer[0] & 0xF0;
        MidiNoteEvent note;
        note.seconds = std::max(0.0, event->time_seconds);
        note.channel = event->midi_buffer[0] & 0x0F;
        if (status == 0xD0) {
            note.kind = MidiEventKind::Pressure;
            note.velocity = event->midi_buffer[1] & 0x7F;
            events.push_back(note);
            continue;
        }
        if (event->midi_buffer_length < 3 || (status != 0x80 && status != 0x90 && status != 0xB0)) continue;
        note.note = event->midi_buffer[1] & 0x7F;
        note.velocity = status == 0x80 ? 0 : event->midi_buffer[2] & 0x7F;
        if (status == 0xB0) note.kind = MidiEventKind::Control;
        events.push_back(note);
    }
    smf_delete(smf);
    std::stable_sort(events.begin(), events.end(),
                     [](const MidiNoteEvent& a, const MidiNoteEvent& b) { return a.seconds < b.seconds; });
    return events;
}

}  // namespace app
