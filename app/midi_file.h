// Notes of a standard MIDI file, through libsmf, with times in seconds after the file's
// tempo map.
#pragma once

#include <string>
#include <vector>

namespace app {

struct MidiNoteEvent {
    double seconds = 0.0;
    int channel = 0;   // 0..15
    int note = 0;      // 0..127
    int velocity = 0;  // 0 releases (a note-off, or a note-on at velocity 0)
};

// Every note-on and note-off of every track, in time order. Throws InputError naming the
// file when it cannot be read or is not a MIDI file.
std::vector<MidiNoteEvent> ReadMidiFile(const std::string& path);

}  // namespace app
