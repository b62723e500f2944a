// The machine as the host lists it: kind, flags, parameters, attribute, commands. Plain
// data for the host adapters; the numbers follow the tracker's published machine
// interface, so an adapter copies them field by field.
#pragma once

#include <span>

namespace machine {

constexpr int kMachineTypeEffect = 2;
constexpr int kInterfaceVersion = 65;
// Stereo effect (1 << 13), prefers MIDI notes (1 << 15), data may be loaded while running
// (1 << 16).
constexpr int kMachineFlags = 0x1A000;

enum class ParameterKind : int { Note = 0, Switch = 1, Byte = 2, Word = 3 };
// The host keeps the parameter's last value and shows it as state, not as an event.
constexpr int kParameterState = 2;

constexpr int kNumKnobs = 8;
constexpr int kMaxTracks = 16;
// "No value" of the byte parameters, and the note byte that releases a track's note.
constexpr int kNoValueByte = 0xFF;
constexpr int kNoteNoValue = 0;
constexpr int kNoteOff = 0xFF;
constexpr int kKnobMax = 0x80;

struct ParameterInfo {
    ParameterKind kind;
    const char* name;
    const char* description;
    int minValue;
    int maxValue;
    int noValue;
    int flags;
    int defaultValue;
};

struct AttributeInfo {
    const char* name;
    int minValue;
    int maxValue;
    int defaultValue;
};

struct MachineInfo {
    int type;
    int version;
    int flags;
    int minTracks;
    int maxTracks;
    int numGlobalParameters;
    int numTrackParameters;
    // Globals first (the eight knobs), then the track parameters (note, velocity).
    std::span<const ParameterInfo> parameters;
    std::span<const AttributeInfo> attributes;
    const char* name;
    const char* shortName;
    const char* author;
    // Menu entries, separated by "\n"; entry i arrives as Command(i).
    const char* commands;
};

const MachineInfo& GetInfo();

}  // namespace machine
