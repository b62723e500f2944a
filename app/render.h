// `vrok render` as a host of the machine: the host's timing, the schedule of notes, ticks
// and knobs, and the loop that drives Tick, MidiNote and Work over it.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <vector>

#include "app/midi_file.h"
#include "app/note_arguments.h"
#include "machine/host.h"

class mi;

namespace app {

// A host with fixed timing that takes MIDI on every channel. Knob moves sent back by the
// patch have nowhere to go and are dropped.
class CommandLineHost : public machine::Host {
public:
    CommandLineHost(int sampleRate, double tempoBpm, int ticksPerBeat);

    machine::MasterInfo GetMasterInfo() override { return master; }
    machine::MachineHandle GetThisMachine() override { return this; }
    void SetMachineInterfaceEx(machine::MachineInterfaceEx*) override {}
    void SetEventHandler(machine::MachineHandle, int, machine::EventHandler, void*) override {}
    std::string GetMachineName(machine::MachineHandle) override { return "[VROK] fx"; }
    void ControlChange(machine::MachineHandle, int, int, int, int) override {}
    bool HostMIDIFiltering() override { return true; }

    // Ticks fall at multiples of this, rounded to frames; the master info carries it
    // truncated, as tracker hosts do.
    double samplesPerTickExact;
    machine::MasterInfo master;
};

// Everything a render plays, in seconds and MIDI numbers.
struct RenderPlan {
    std::optional<double> seconds;        // none: to the last event, then until silent
    std::vector<MidiNoteEvent> midiNotes;  // through MidiNote
    std::vector<NoteArgument> trackNotes;     // through Tick; velocity is the raw byte 0..128
    std::array<int, 8> knobs{-1, -1, -1, -1, -1, -1, -1, -1};  // raw 0..128, -1 untouched
    std::vector<float> input;             // interleaved stereo in -1..1 at the render's rate
};

// One change of a pattern track at a tick.
struct TrackCell {
    int track;
    uint8_t note;      // a pattern note byte, or 0xFF to release
    uint8_t velocity;  // 0xFF: none
};

// The plan turned into frames and ticks.
struct Schedule {
    struct MidiAt {
        long frame;
        MidiNoteEvent event;
    };
    std::vector<MidiAt> midi;                 // releases before presses on one frame
    std::map<long, std::vector<TrackCell>> rows;  // by tick
    int numTracks = 0;
    long lastEventFrame = 0;
};

// Throws UsageError for a track note outside the pattern's range or more than 16 track
// notes sounding at once.
Schedule BuildSchedule(const RenderPlan& plan, int sampleRate, double samplesPerTick);

struct RenderStats {
    long frames = 0;
    bool stillSounding = false;  // the tail limit, not silence, ended the render
};

// Output below this (in -1..1) counts as silence when deciding where a render ends.
constexpr float kSilence = 1.0f / 32768.0f;
constexpr double kSilentSecondsToStop = 0.5;
constexpr double kMaxTailSeconds = 30.0;
// The longest render: --seconds may not ask for more, and without it no note, tick or
// MIDI event may fall later.
constexpr double kMaxRenderSeconds = 3600.0;

// Receives rendered audio, interleaved stereo in -1..1; false stops the render.
using AudioSink = std::function<bool(const float* interleaved, int frames)>;
// Told of progress now and then: frames done, and frames expected (0 when unknown).
using ProgressSink = std::function<void(long done, long expected)>;

// Drives an initialised machine with its patch loaded through `schedule` (made from
// `plan`). Work never sees more than 256 frames, and every note, tick, the last event and
// the end of the input start a new Work call.
RenderStats RenderWithMachine(mi& machine, const CommandLineHost& host, const RenderPlan& plan,
                              const Schedule& schedule, const AudioSink& sink, const ProgressSink& progress = {});

}  // namespace app
