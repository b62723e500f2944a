// Vrok as an LV2 plug-in: one class over the host-neutral shell `mi` serves both the
// instrument (MIDI in, stereo out) and the effect (stereo in and out, MIDI for patches that
// play notes). It owns what LV2 asks that `mi` does not know: ports, atom events split to
// the frame, the host's tempo, control ports as the eight knobs, the patch in the host's
// session, and patch files loaded on the host's worker.
//
// Threads: Run and WorkResponse run on the audio thread and allocate nothing. Every patch
// change (state restore, a patch file, activation) is built off that thread as a
// whole new machine and handed over through an atomic slot; Run takes it at the start of a
// block, and the machine it replaced is freed off the audio thread again.
#pragma once

#include <lv2/atom/atom.h>
#include <lv2/atom/forge.h>
#include <lv2/core/lv2.h>
#include <lv2/log/logger.h>
#include <lv2/options/options.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "engine/audio_block.h"
#include "machine/machine.h"

namespace lv2 {

enum class Kind { Instrument, Effect };

#define VROK_LV2_URI "urn:vrok:lv2"
constexpr const char* kInstrumentUri = VROK_LV2_URI ":instrument";
constexpr const char* kEffectUri = VROK_LV2_URI ":effect";
// The whole patch as the machine saves it: length, XML with its samples, editor size.
constexpr const char* kPatchStateUri = VROK_LV2_URI ":patchState";
// A ".vrkx" or ".vrk" file: set through patch:Set, or named by a preset.
constexpr const char* kPatchFileUri = VROK_LV2_URI ":patchFile";

// Port indices, the same in both plug-ins; the effect adds its inputs at the end.
enum Port : uint32_t {
    kPortControl = 0,  // atom sequence in: MIDI, time:Position, patch:Set and patch:Get
    kPortNotify = 1,   // atom sequence out: patch:Set of the loaded file
    kPortOutLeft = 2,
    kPortOutRight = 3,
    kPortKnob1 = 4,  // to kPortKnob1 + 7: host knobs 0..128
    kPortLatency = 12,
    kPortInLeft = 13,  // the effect only
    kPortInRight = 14,
};
constexpr uint32_t kInstrumentPorts = 13;
constexpr uint32_t kEffectPorts = 15;

// The host's ±1.0 is the machine's ±32768, as on the tracker: input passes an input block
// at unity, and a patch at full level peaks at 32000/32768.
constexpr float kHostScale = 32768.0f;
// Knob ports run 0..128 like the tracker's knob bytes.
constexpr float kKnobMax = 128.0f;

struct Uris {
    explicit Uris(LV2_URID_Map* map);
    LV2_URID atomBlank, atomObject, atomChunk, atomPath, atomFloat, atomDouble, atomInt, atomLong, atomUrid,
        atomSequence, atomEventTransfer;
    LV2_URID midiEvent;
    LV2_URID timePosition, timeBeatsPerMinute, timeSpeed, timeBarBeat;
    LV2_URID patchSet, patchGet, patchProperty, patchValue;
    LV2_URID paramSampleRate;
    LV2_URID patchState, patchFile;
};

// Where the editor's knob panels send the host's knobs: the UI, which writes the ports.
class KnobSink {
public:
    virtual ~KnobSink() = default;
    // `value` 0..128, knob `index` 0..7. GUI thread.
    virtual void KnobMoved(int index, float value) = 0;
};

class Plugin final : private machine::Host {
public:
    // A host without urid:map (lv2apply has none) gets a private map: it can send no atoms
    // then, but audio, controls and the patch folder work.
    Plugin(Kind kind, double sampleRate, const LV2_Feature* const* features);
    ~Plugin() override;
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    // Any thread: set once, at construction.
    bool Valid() const { return valid; }
    void Connect(uint32_t port, void* data);
    // Instantiation class: no Run at the same time.
    void Activate();
    void Deactivate();
    // Audio thread.
    void Run(uint32_t numFrames);

    // [State] Save and Restore run off the audio thread, possibly beside Run.
    LV2_State_Status Save(LV2_State_Store_Function store, LV2_State_Handle handle,
                          const LV2_Feature* const* features);
    LV2_State_Status Restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                             const LV2_Feature* const* features);
    // [Worker] Work runs on the host's worker thread, WorkResponse on the audio thread.
    LV2_Worker_Status Work(LV2_Worker_Respond_Function respond, LV2_Worker_Respond_Handle handle,
                           uint32_t size, const void* data);
    // [Options] param:sampleRate; any thread but the audio thread.
    uint32_t GetOptions(LV2_Options_Option* options);
    uint32_t SetOptions(const LV2_Options_Option* options);

    // [Seen by the editor and tests] The machine now playing: on the audio thread, or while
    // Run cannot run. The editor takes it through PinCurrent. `generation` counts the swaps.
    mi& Machine() const { return *current->machine; }
    uint32_t Generation() const { return generation.load(std::memory_order_acquire); }
    // The machine now playing, kept from being freed until the next PinCurrent or Unpin.
    // Off the audio thread.
    mi& PinCurrent();
    void Unpin() { pinned.store(nullptr, std::memory_order_release); }
    // GUI thread; null detaches.
    void SetKnobSink(KnobSink* sink) { knobSink = sink; }
    // Frees the machine Run set aside, unless it is pinned. Off the audio thread.
    void FreeRetired();
    const Uris& UriTable() const { return *uris; }

private:
    // A machine and the file it was loaded from (empty for saved state and defaults).
    struct Patch {
        std::unique_ptr<mi> machine;
        std::string file;
    };
    enum WorkKind : uint32_t { kWorkFree = 1, kWorkLoad = 2 };

    // [machine::Host]
    machine::MasterInfo GetMasterInfo() override;
    machine::MachineHandle GetThisMachine() override { return this; }
    void SetMachineInterfaceEx(machine::MachineInterfaceEx*) override {}
    void SetEventHandler(machine::MachineHandle, int, machine::EventHandler, void*) override {}
    std::string GetMachineName(machine::MachineHandle) override;
    // The editor's knob panels: the UI moves the host's port.
    void ControlChange(machine::MachineHandle, int group, int track, int parameter, int value) override;
    // A DAW routes MIDI to the plug-in itself: every channel is ours.
    bool HostMIDIFiltering() override { return true; }

    // Off the audio thread: a machine at the plug-in's rate with the built-in patch, or,
    // with `startPatch`, the patch folder's patch 0 if there is one.
    std::unique_ptr<Patch> NewPatch(bool startPatch);
    // A machine playing `path`, or the default patch with a warning when it does not load.
    std::unique_ptr<Patch> PatchFromFile(const std::string& path);
    // Hands `patch` to Run, replacing one Run has not taken yet.
    void Adopt(std::unique_ptr<Patch> patch);
    // The patch waiting to play, or the one playing. swapLock held.
    const Patch& Latest() const;
    void FreeRetiredLocked();

    // [Audio thread] True when a new machine took over.
    bool TakePending();
    void ApplyKnobs(bool force);
    void Render(uint32_t from, uint32_t to);
    void HandleEvent(const LV2_Atom_Event& event);
    void HandleMidi(const uint8_t* bytes, uint32_t size);
    void HandleObject(const LV2_Atom_Object& object);
    // While the host's transport rolls, the arpeggiator's next step waits for the host's
    // next step boundary after `barBeat`.
    void AlignArpeggiator(double barBeat);
    void StartNotify();
    void NotifyPatchFile();

    static LV2_URID MapPrivately(LV2_URID_Map_Handle handle, const char* uri);

    const Kind kind;
    LV2_URID_Map* map = nullptr;
    LV2_URID_Map privateMap{};
    std::vector<std::string> privateUris;
    LV2_Worker_Schedule* schedule = nullptr;
    LV2_Log_Logger logger{};
    std::unique_ptr<Uris> uris;
    LV2_Atom_Forge forge{};
    LV2_Atom_Forge_Frame notifyFrame{};
    bool notifying = false;

    const LV2_Atom_Sequence* control = nullptr;
    LV2_Atom_Sequence* notify = nullptr;
    float* outLeft = nullptr;
    float* outRight = nullptr;
    const float* inLeft = nullptr;
    const float* inRight = nullptr;
    const float* knobs[machine::kNumKnobs] = {};
    float* latency = nullptr;

    std::atomic<int> sampleRate;
    std::atomic<double> beatsPerMinute{120.0};
    float rateOption = 0.0f;  // what GetOptions hands out

    // [Patch hand-over] Run swaps `current` only under swapLock (try_lock), so Save, which
    // holds it, always sees a whole machine.
    Patch* current = nullptr;
    bool valid = false;
    std::atomic<Patch*> pending{nullptr};
    std::atomic<Patch*> retired{nullptr};
    std::atomic<mi*> pinned{nullptr};
    std::atomic<uint32_t> generation{0};
    std::mutex swapLock;

    KnobSink* knobSink = nullptr;
    float knobValues[machine::kNumKnobs];
    float scratch[2 * kMaxFrames] = {};
};

}  // namespace lv2
