// The note arguments of `vrok render`: note names, "NOTE[:VELOCITY]@START[-END]", knob
// settings, and the pattern note byte a tracker would write for a note.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>

namespace app {

// A problem with a command-line argument: exit status 2.
class UsageError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A problem with a file the user named: exit status 1.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// A MIDI number "0".."127" or a name: letter A..G (either case), an optional "#" or "b",
// and an octave from -1 to 9, with A4 = 69 and C4 = 60. Null when it is neither or lies
// outside 0..127.
std::optional<int> ParseNoteName(const std::string& text);

// Seconds written as digits with an optional fraction ("2", "0.25", ".5"); null for
// anything else.
std::optional<double> ParseSeconds(const std::string& text);

struct NoteArgument {
    int note = 0;                // MIDI number
    std::optional<int> velocity;  // as written, not yet checked against a range
    double start = 0.0;          // seconds
    std::optional<double> end;   // seconds, after start; none: held to the end
};

// "NOTE[:VELOCITY]@START[-END]". Throws UsageError naming `option` and the text.
NoteArgument ParseNoteArgument(const std::string& option, const std::string& text);

// "N=VALUE" with N 1..8 and VALUE 0..128; returns {N - 1, VALUE}. Throws UsageError.
std::pair<int, int> ParseKnobArgument(const std::string& text);

// "NUMBER=VALUE@TIME" of --cc: controller 0..127 set to 0..127 at TIME seconds.
// "VALUE@TIME" of --aftertouch (`controller` is then -1). Throws UsageError naming the option.
struct ControlArgument {
    int controller = -1;
    int value = 0;
    double seconds = 0.0;
};
ControlArgument ParseControlArgument(const std::string& text);
ControlArgument ParsePressureArgument(const std::string& text);

// The pattern note byte (octave << 4 | semitone + 1) that the machine turns into the same
// engine note as MIDI note `midi` played through its MIDI path, i.e. midi + 1. Only MIDI
// notes 5..124 fit the pattern's range 0x01..0x9C; others give null.
std::optional<int> EncodeTrackerNote(int midi);

}  // namespace app
