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

// A track's events walked the way libsmf splits them, which is looser than the standard in
// places (a meta event's length is one byte; every event, meta and system exclusive too,
// becomes the running status). libsmf aborts the process on a track whose events run out
// without an end-of-track event and on running status after a system exclusive event, and
// cannot read escaped (0xF7) or undefined system events. Empty when libsmf can read the
// track, else what is wrong. Bytes after the end-of-track event are never read.
std::string TrackProblem(const unsigned char* events, size_t length) {
    size_t at = 0;
    int status = 0;  // the running status
    while (at < length) {
        for (int i = 0;; ++i) {  // delta time
            if (i == 4 || at >= length) return "has an unreadable event time";
            if (!(events[at++] & 0x80)) break;
        }
        if (at >= length) return "ends after an event time";
        const bool explicitStatus = events[at] & 0x80;
        if (explicitStatus) status = events[at++];
        if (!(status & 0x80)) return "has data without a status";
        size_t size = 0;  // the bytes after the status byte
        if (status == 0xF0) {
            if (!explicitStatus) return "has running status after a system exclusive event";
            size_t value = 0;
            for (int i = 0;; ++i) {
                if (i == 4 || at >= length) return "has an unreadable system exclusive length";
                value = value << 7 | (events[at] & 0x7F);
                if (!(events[at++] & 0x80)) break;
            }
            // libsmf wants a byte left after a system exclusive event.
            if (value >= length - at) return "is cut off inside a system exclusive event";
            at += value;
            continue;
        }
        if (status == 0xFF) {
            if (length - at < 2) return "is cut off inside a meta event";
            size = 2 + size_t(events[at + 1]);
        } else if (status == 0xF7 || status == 0xF4 || status == 0xF5 || status == 0xFD) {
            return "has an escaped or undefined system event";
        } else if (status >= 0xF0) {
            size = status == 0xF2 ? 2 : status == 0xF1 || status == 0xF3 ? 1 : 0;
        } else {
            size = (status & 0xF0) == 0xC0 || (status & 0xF0) == 0xD0 ? 1 : 2;
        }
        if (size > length - at) return "is cut off inside an event";
        if (status == 0xFF && events[at] == 0x2F) return {};
        at += size;
    }
    return "has no end-of-track event";
}

// The whole file, its header and chunk structure checked before libsmf sees it: a header
// chunk libsmf can read, then chunks that each fit inside the file, with as many track
// chunks as the header declares, each of them readable. libsmf accepts some cut-off files silently, and leaks its
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
        if (std::memcmp(data + at, "MTrk", 4) == 0) {
            ++trackChunks;
            if (const std::string problem = TrackProblem(data + at + 8, length); !problem.empty())
                throw InputError(path + ": MIDI track " + std::to_string(trackChunks) + " " + problem);
        }
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
