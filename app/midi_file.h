// Notes, controllers and channel pressure of a standard MIDI file, through libsmf, with
// times in seconds after the file's tempo map.
#pragma once

#include <string>
#include <vector>

namespace app {

enum class MidiEventKind { Note, Control, Pressure };

// A note; or with `kind` Control, controller `note` set to `velocity`; or with Pressure, the
// channel's aftertouch at `velocity`.
struct MidiNoteEvent {
    double seconds = 0.0;
    int channel = 0;   // 0..15
    int note = 0;      // 0..127
    int velocity = 0;  // 0 releases (a note-off, or a note-on at velocity 0)
    MidiEventKind kind = MidiEventKind::Note;
};

// Every note-on, note-off, controller change and channel pressure of every track, in time
// order. Throws InputError naming the
// file when it cannot be read or is not a MIDI file.
std::vector<MidiNoteEvent> ReadMidiFile(const std::string& path);

}  // namespace app
