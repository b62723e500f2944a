// Parsing of note, time and knob arguments.
#include "app/note_arguments.h"

#include <cctype>
#include <cmath>
#include <cstdlib>

namespace app {
namespace {

constexpr int kSemitoneOfLetter[7] = {9, 11, 0, 2, 4, 5, 7};  // A B C D E F G

// The whole of `text` as a base-10 integer.
std::optional<long> WholeInteger(const std::string& text) {
    if (text.empty() || text.size() > 9) return std::nullopt;
    size_t i = (text[0] == '-' || text[0] == '+') ? 1 : 0;
    if (i == text.size()) return std::nullopt;
    for (size_t k = i; k < text.size(); ++k)
        if (!std::isdigit(static_cast<unsigned char>(text[k]))) return std::nullopt;
    return std::strtol(text.c_str(), nullptr, 10);
}

[[noreturn]] void Fail(const std::string& option, const std::string& text, const std::string& what) {
    throw UsageError(option + " '" + text + "': " + what);
}

}  // namespace

std::optional<double> ParseSeconds(const std::string& text) {
    // Digits with an optional fraction and nothing else: no sign, exponent, hex or "inf",
    // so "1e-3" cannot be split at its minus and "0x10" is not 16 seconds.
    size_t digits = 0, dots = 0;
    for (const char c : text) {
        if (std::isdigit(static_cast<unsigned char>(c))) ++digits;
        else if (c == '.') ++dots;
        else return std::nullopt;
    }
    if (digits == 0 || dots > 1) return std::nullopt;
    return std::strtod(text.c_str(), nullptr);
}

std::optional<int> ParseNoteName(const std::string& text) {
    if (text.empty()) return std::nullopt;
    if (std::isdigit(static_cast<unsigned char>(text[0]))) {
        const std::optional<long> number = WholeInteger(text);
        if (!number || *number > 127) return std::nullopt;
        return int(*number);
    }
    const char letter = char(std::toupper(static_cast<unsigned char>(text[0])));
    if (letter < 'A' || letter > 'G') return std::nullopt;
    int semitone = kSemitoneOfLetter[letter - 'A'];
    size_t i = 1;
    if (i < text.size() && (text[i] == '#' || text[i] == 'b')) {
        semitone += text[i] == '#' ? 1 : -1;
        ++i;
    }
    const std::optional<long> octave = WholeInteger(text.substr(i));
    if (!octave || text[i] == '+' || *octave < -1 || *octave > 9) return std::nullopt;
    const long midi = (*octave + 1) * 12 + semitone;
    if (midi < 0 || midi > 127) return std::nullopt;
    return int(midi);
}

NoteArgument ParseNoteArgument(const std::string& option, const std::string& text) {
    const size_t at = text.find('@');
    if (at == std::string::npos || text.find('@', at + 1) != std::string::npos)
        Fail(option, text, "expected NOTE[:VELOCITY]@START[-END]");
    const std::string notePart = text.substr(0, at), timePart = text.substr(at + 1);

    NoteArgument parsed;
    const size_t colon = notePart.find(':');
    const std::string name = notePart.substr(0, colon);
    const std::optional<int> note = ParseNoteName(name);
    if (!note) Fail(option, text, "unknown note '" + name + "' (use 0..127 or a name like C4, A#3, Bb2)");
    parsed.note = *note;
    if (colon != std::string::npos) {
        const std::string velocity = notePart.substr(colon + 1);
        const std::optional<long> value = WholeInteger(velocity);
        if (!value || *value < 0 || *value > 1000) Fail(option, text, "velocity '" + velocity + "' is not a number");
        parsed.velocity = int(*value);
    }

    const size_t dash = timePart.find('-');
    const std::string startText = timePart.substr(0, dash);
    const std::optional<double> start = ParseSeconds(startText);
    if (!start) Fail(option, text, "start time '" + startText + "' is not a number of seconds");
    parsed.start = *start;
    if (dash != std::string::npos) {
        const std::string endText = timePart.substr(dash + 1);
        const std::optional<double> end = ParseSeconds(endText);
        if (!end) Fail(option, text, "end time '" + endText + "' is not a number of seconds");
        if (*end <= *start) Fail(option, text, "ends before it starts");
        parsed.end = *end;
    }
    return parsed;
}

std::pair<int, int> ParseKnobArgument(const std::string& text) {
    const size_t equals = text.find('=');
    const std::optional<long> knob = WholeInteger(text.substr(0, equals));
    const std::optional<long> value =
        equals == std::string::npos ? std::nullopt : WholeInteger(text.substr(equals + 1));
    if (!knob || !value) throw UsageError("--knob '" + text + "': expected N=VALUE, e.g. 3=64");
    if (*knob < 1 || *knob > 8) throw UsageError("--knob '" + text + "': knob must be 1..8");
    if (*value < 0 || *value > 128) throw UsageError("--knob '" + text + "': value must be 0..128");
    return {int(*knob) - 1, int(*value)};
}

namespace {
// VALUE@TIME with VALUE 0..127, for `option`.
ControlArgument ParseValueAt(const std::string& option, const std::string& text, const std::string& valueText,
                         const std::string& timeText) {
    const std::optional<long> value = WholeInteger(valueText);
    const std::optional<double> seconds = ParseSeconds(timeText);
    if (!value || *value < 0 || *value > 127) Fail(option, text, "value must be 0..127");
    if (!seconds) Fail(option, text, "time '" + timeText + "' is not a number of seconds");
    return {-1, int(*value), *seconds};
}
}  // namespace

ControlArgument ParseControlArgument(const std::string& text) {
    const size_t equals = text.find('='), at = text.find('@');
    if (equals == std::string::npos || at == std::string::npos || at < equals)
        Fail("--cc", text, "expected NUMBER=VALUE@TIME, e.g. 1=127@0.5");
    const std::optional<long> controller = WholeInteger(text.substr(0, equals));
    if (!controller || *controller < 0 || *controller > 127) Fail("--cc", text, "controller must be 0..127");
    ControlArgument control =
        ParseValueAt("--cc", text, text.substr(equals + 1, at - equals - 1), text.substr(at + 1));
    control.controller = int(*controller);
    return control;
}

ControlArgument ParsePressureArgument(const std::string& text) {
    const size_t at = text.find('@');
    if (at == std::string::npos) Fail("--aftertouch", text, "expected VALUE@TIME, e.g. 100@1.5");
    return ParseValueAt("--aftertouch", text, text.substr(0, at), text.substr(at + 1));
}

std::optional<int> EncodeTrackerNote(int midi) {
    // The machine turns a byte into (octave * 12 + semitone + 1) + 5, so octave and
    // semitone come from midi - 5.
    const int m = midi - 5;
    if (m < 0 || m > 9 * 12 + 11) return std::nullopt;
    return (m / 12) << 4 | (m % 12 + 1);
}

}  // namespace app
