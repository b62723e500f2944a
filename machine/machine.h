// The machine shell: `mi` joins a host to the document and its engine. It turns pattern
// rows and MIDI into key presses, knob bytes into external knob values, splits and
// interleaves the host's audio around Render, and saves and restores the patch as the
// host's state. It knows the host only through machine::Host.
//
// Threads and locks: the host's audio thread runs Tick, Work and WorkMonoToStereo under
// the machine lock, and the engine takes its own lock inside; the order is always machine
// lock, then engine lock, and both are recursive. Stop and MidiNote take only the engine
// lock (through the note operations).
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/audio_block.h"
#include "g/param_listener.h"
#include "machine/host.h"
#include "machine/machine_info.h"

class VrokDoc;
class mi;
struct LoadProblem;

// Work modes: bit 0 says the buffer holds input, bit 1 that output is wanted.
constexpr int kWorkRead = 1;
constexpr int kWorkWrite = 2;

// What the machine asks of an editor: a window that shows the document, and a file
// dialog. The editor fills this in; until then NoEditor answers.
class MachineEditor {
public:
    virtual ~MachineEditor() = default;
    // Opens the window, at windowX/windowY if they are set. False when none can open.
    virtual bool Open(mi& machine) = 0;
    virtual void Close(mi& machine) = 0;
    virtual bool IsOpen(const mi& machine) const = 0;
    virtual void Resize(mi& machine, int width, int height) = 0;
    virtual void SetTitle(mi& machine, const std::string& title) = 0;
    // A file picked by the user, or empty when cancelled or impossible.
    virtual std::string AskOpenFile(mi& machine, const std::string& title, const std::string& defaultExtension,
                                    const std::string& filterName) = 0;
};

// Stands in while no editor is built: every request logs that none is available and
// does nothing.
class NoEditor : public MachineEditor {
public:
    bool Open(mi& machine) override;
    void Close(mi&) override {}
    bool IsOpen(const mi&) const override { return false; }
    void Resize(mi&, int, int) override {}
    void SetTitle(mi&, const std::string&) override {}
    std::string AskOpenFile(mi& machine, const std::string& title, const std::string& defaultExtension,
                            const std::string& filterName) override;
};

// The way the editor's panels move the host's knobs: the document hands it to the panels of
// external knob blocks.
class milistener : public G::FloatParamListener {
public:
    explicit milistener(mi& owner) : owner(owner) {}
    void BeginChange(G::FloatParamGenerator*, int) override {}
    // Moves the host's global parameter `index` to trunc(value * 128).
    void ValueChanged(G::FloatParamGenerator* generator, int index, float value) override;
    void EndChange(G::FloatParamGenerator*, int) override {}
    // value * 100 with three significant digits.
    std::wstring DescribeValue(int index, float value) override;

private:
    mi& owner;
};

// The extension handed to the host; forwards to its machine.
class miex : public machine::MachineInterfaceEx {
public:
    explicit miex(mi& owner) : owner(owner) {}
    void SetEditorHidden(bool hidden) override;
    void ReloadState(machine::DataInput* input) override;

private:
    mi& owner;
};

class mi {
public:
    // The host's CreateMachine: builds the document with its engine and default patch, and
    // joins the process-wide list. `editor` null uses NoEditor. Allocates.
    explicit mi(machine::Host& host, MachineEditor* editor = nullptr);
    ~mi();
    mi(const mi&) = delete;
    mi& operator=(const mi&) = delete;

    // [Host entry points]
    // Hands over the extension, reads the rate, installs the event handlers and, with a
    // non-null `input`, restores the saved state under the machine lock.
    void Init(machine::DataInput* input);
    // Applies globalValues and trackValues as the host left them: knobs first, so a note on
    // the same row hears the new value. Audio thread; machine lock.
    void Tick();
    // Interleaved stereo in place, any length (Render sees at most kMaxFrames at a time).
    // True when the buffer carries sound. Audio thread; machine lock; allocates nothing,
    // except on a change of the host's rate, which rebuilds the master effects first.
    bool Work(float* samples, int numSamples, int mode);
    // Work's first step: a host rate other than the last one seen rebuilds the master
    // effects and sends every global setting again, which releases all notes. A host that
    // delivers notes before Work calls it first, so those notes survive.
    void FollowSampleRate(const machine::MasterInfo& master);
    // Renders into `output` (interleaved stereo), ignoring `input` and `mode`, with no
    // InputWork. Audio thread; machine lock.
    bool WorkMonoToStereo(const float* input, float* output, int numSamples, int mode);
    // Releases the notes of pattern tracks; held MIDI notes stay.
    void Stop();
    // Length (uint32), the patch XML, windowWidth, windowHeight (int32), little-endian.
    // Takes no machine lock.
    void Save(machine::DataOutput* output);
    // 0 opens the editor, 1 asks for a patch file and loads it; others do nothing.
    void Command(int index);
    void SetNumTracks(int n);
    // Unless `channel` is the attribute's channel (midiChannel - 1), plays only when the
    // host accepts every channel. Velocity 0 releases, or, while the sustain pedal is down,
    // marks the note to be released when it comes up. Notes arrive one above the MIDI
    // number.
    void MidiNote(int channel, int value, int velocity);

    // [Performance controls] What a keyboard sends beside its notes, under MidiNote's
    // channel rule. Engine lock only; allocate nothing, so the audio thread may call them.
    // The pitch wheel, 0..16383 with 8192 at rest: the full throw bends by the patch's bend
    // range either way.
    void MidiPitchBend(int channel, int value);
    // Controller 1 sets the mod wheel, 64 the sustain pedal (down at 64 and above), 120
    // sounds off, 123 releases every note; other controllers are ignored. Values 0..127.
    void MidiControlChange(int channel, int controller, int value);
    // Channel aftertouch, 0..127.
    void MidiChannelPressure(int channel, int value);

    // [Extension]
    void SetEditorHidden(bool hidden);
    // Init's restore without its one-time steps. True when the stream held a patch that
    // replaced the old one; otherwise the patch stays as it was.
    bool ReloadState(machine::DataInput* input);

    // [Shared with editor and tools]
    // Loads a ".vrkx" file, or failing that a ".vrk" file, under the machine lock. False
    // with the patch untouched when neither reads; `report` then holds the problems of the
    // format the file looks like (binary when it starts with the magic "vrok", or is named
    // ".vrk" and does not start like XML). On success it holds what the load skipped
    // (refused wires, unknown blocks).
    bool LoadPatchFile(const std::string& path, std::vector<LoadProblem>* report = nullptr);
    void OpenEditor();
    // Builds windowTitle from the host's name for the machine and shows it.
    void UpdateTitle();
    // Every live machine, in order of creation.
    static std::vector<mi*> LiveMachines();

    // [Values the host writes before Tick]
    struct TrackValues {
        uint8_t note = machine::kNoteNoValue;
        uint8_t velocity = machine::kNoValueByte;
    };
    uint8_t globalValues[machine::kNumKnobs];
    TrackValues trackValues[machine::kMaxTracks];
    int midiChannel = 0;  // the attribute: 0 none, else channel + 1
    bool sustainDown = false;
    uint8_t sustainedNotes[128] = {};  // released while the pedal was down

    machine::Host& host;
    MachineEditor* editor;
    std::unique_ptr<milistener> listener;
    std::unique_ptr<miex> extension;
    std::recursive_mutex machineLock;
    float inputLeft[kMaxFrames] = {}, inputRight[kMaxFrames] = {};
    float outputLeft[kMaxFrames] = {}, outputRight[kMaxFrames] = {};
    float energy = 0.0f;
    bool editorWasOpen = false;
    static constexpr int kUnsetPosition = -2147483647 - 1;
    int windowX = kUnsetPosition, windowY = kUnsetPosition;
    int windowWidth = 400, windowHeight = 300;
    std::string windowTitle = "[VROK] editor";
    machine::MachineHandle machine = nullptr;
    int numTracks = 0;
    float hostSampleRate = 0.0f;
    uint8_t trackNote[machine::kMaxTracks] = {};
    uint8_t trackPlaying[machine::kMaxTracks] = {};
    std::unique_ptr<VrokDoc> document;  // its engine is this machine's
    std::string loadedFileName;

private:
    bool AcceptsChannel(int channel);
    // Shared by Init and ReloadState; the caller holds the machine lock. A short or
    // oversized stream leaves the patch as it was, and so does text that is not a patch:
    // both give false.
    bool RestoreState(machine::DataInput& input);
    static bool OnDoubleClick(void* parameter);
    static bool OnRename(void* parameter);

    NoEditor noEditor;
};

// A pattern note byte (octave in the high nibble, semitone 1..12 in the low one) to the
// engine's note number, in byte arithmetic: 0x41 gives 54.
uint8_t ConvertNoteByte(uint8_t noteByte);
