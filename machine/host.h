// What the machine needs of its host, and nothing more: the host's timing, its name for
// this machine, the hand-over of the extension interface, two event handlers, knob
// changes travelling back, its MIDI channel policy, and byte streams for saved state.
// A host adapter (the tracker's interface, the `vrok` command, a test) implements these.
#pragma once

#include <string>

namespace machine {

// The host's identity of one machine; opaque to the machine.
using MachineHandle = void*;

// The host's timing as it stands at the call.
struct MasterInfo {
    int samplesPerSec = 44100;
    int samplesPerTick = 0;
    int ticksPerBeat = 4;
};

// Host events the machine listens to.
enum HostEvent : int {
    kEventDoubleClick = 0,  // a double click on the machine: open the editor
    kEventRename = 3,       // the machine was renamed: refresh the editor's title
};

// An event handler receives the parameter it was registered with and returns true when it
// handled the event.
using EventHandler = bool (*)(void* parameter);

// Parameter groups of ControlChange.
enum ParameterGroup : int {
    kGroupGlobal = 1,
    kGroupTrack = 2,
};

// Saved state coming in. Read returns false when the stream ended before `numBytes` bytes
// were delivered; the bytes that did arrive are in `buffer`, the rest is unspecified.
class DataInput {
public:
    virtual ~DataInput() = default;
    virtual bool Read(void* buffer, int numBytes) = 0;
};

// Saved state going out.
class DataOutput {
public:
    virtual ~DataOutput() = default;
    virtual void Write(const void* buffer, int numBytes) = 0;
};

// The extension the machine hands to the host once, in Init.
class MachineInterfaceEx {
public:
    virtual ~MachineInterfaceEx() = default;
    // The host hides (true) or shows again (false) every editor window.
    virtual void SetEditorHidden(bool hidden) { (void)hidden; }
    // Replaces the machine's state with `input`, as Init restores it.
    virtual void ReloadState(DataInput* input) { (void)input; }
};

// The host's side of the callbacks.
class Host {
public:
    virtual ~Host() = default;
    virtual MasterInfo GetMasterInfo() = 0;
    // Called once, in Init.
    virtual MachineHandle GetThisMachine() = 0;
    // Called once, in Init. The machine keeps ownership of `extension`.
    virtual void SetMachineInterfaceEx(MachineInterfaceEx* extension) = 0;
    virtual void SetEventHandler(MachineHandle machine, int type, EventHandler handler, void* parameter) = 0;
    virtual std::string GetMachineName(MachineHandle machine) = 0;
    // Moves the host's parameter, as if the user had turned it.
    virtual void ControlChange(MachineHandle machine, int group, int track, int parameter, int value) = 0;
    // True: MIDI on every channel is for this machine.
    virtual bool HostMIDIFiltering() = 0;
};

}  // namespace machine
