// The real-time core of live playing, the same for every audio back end: a host of the
// machine whose timing is the device's, and the player that turns one device buffer and
// the MIDI that arrived with it into MidiNote, Tick and Work calls, as a tracker would.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "engine/audio_block.h"
#include "machine/host.h"

class mi;

namespace live {

// A host whose rate is the device's. It takes MIDI on every channel unless a channel is
// chosen (the machine's "Midi Channel": 0 omni, else 1..16). Ticks fall at 126 BPM and
// four ticks a beat, which only paces the machine's Tick: live playing has no pattern.
class LiveHost : public machine::Host {
public:
    LiveHost(int sampleRate, int midiChannel);

    machine::MasterInfo GetMasterInfo() override;
    machine::MachineHandle GetThisMachine() override { return this; }
    void SetMachineInterfaceEx(machine::MachineInterfaceEx*) override {}
    void SetEventHandler(machine::MachineHandle, int, machine::EventHandler, void*) override {}
    std::string GetMachineName(machine::MachineHandle) override { return "[VROK] fx"; }
    void ControlChange(machine::MachineHandle, int, int, int, int) override {}
    bool HostMIDIFiltering() override { return midiChannel == 0; }

    // Any thread: the device's rate; the machine follows at its next Work.
    std::atomic<int> sampleRate;
    const int midiChannel;
};

// One short MIDI message, `frame` frames into the buffer it arrived with.
struct MidiEvent {
    int frame = 0;
    int size = 0;
    uint8_t bytes[3] = {};
};

// Most MIDI messages taken in one buffer; more are dropped, and counted.
constexpr int kMaxMidiEventsPerBuffer = 512;

// What the meter shows and the closing line reports. Written by the audio side (the
// callback, and the back end's under-run notices), read by anyone.
struct LoadMeter {
    std::atomic<int64_t> longestCallbackNs{0};
    // The same in processor time of the audio thread: what the player and the patch cost,
    // whatever else the machine was running meanwhile.
    std::atomic<int64_t> longestCallbackCpuNs{0};
    std::atomic<int64_t> callbacks{0};
    // Callbacks that took longer than their buffer lasts: by the clock (a gap a listener
    // may hear, partly the scheduler's doing), and in processor time (our own doing).
    std::atomic<int> lateCallbacks{0};
    std::atomic<int> overworkedCallbacks{0};
    // Of that, the longest time spent waiting for an edit to let go of the patch.
    std::atomic<int64_t> longestWaitNs{0};
    // Time spent in the callback over the buffer's length, smoothed over about a second.
    std::atomic<float> load{0.0f};
    std::atomic<int> underruns{0};
    // Buffers left silent because an edit held the patch longer than the callback may wait.
    std::atomic<int> skippedBuffers{0};
    std::atomic<int> droppedMidi{0};
};

class LivePlayer {
public:
    // `machine` must outlive the player, be initialised and have its patch loaded.
    LivePlayer(mi& machine, LiveHost& host);

    // One device buffer, any length. Plays each event at its frame (events sorted by
    // frame), passes `inLeft`/`inRight` (null: silence) to the input blocks and writes the
    // patch's output in -1..1. Audio thread: allocates nothing, takes the machine lock and
    // then the engine lock and nothing else, and never waits long for them: when an edit
    // holds either past a quarter of the buffer, the buffer stays silent and its MIDI plays
    // at the start of the next one.
    void Process(const float* inLeft, const float* inRight, float* outLeft, float* outRight, int frames,
                 const MidiEvent* events, int numEvents);

    // Any thread: the device now runs at `rate`; the machine follows at its next Work.
    void SampleRateChanged(int rate) { host.sampleRate.store(rate, std::memory_order_relaxed); }

    LoadMeter meter;

private:
    void Dispatch(const MidiEvent& event);
    // Takes both locks, in the machine's order, giving up after `patienceNs`.
    bool LockWithin(std::unique_lock<std::recursive_mutex>& machineGuard,
                    std::unique_lock<std::recursive_mutex>& engineGuard, int64_t patienceNs);
    void Render(const float* inLeft, const float* inRight, float* outLeft, float* outRight, int frames,
                const MidiEvent* events, int numEvents);

    mi& machine;
    LiveHost& host;
    long tickCountdown = 0;  // frames to the next Tick
    float interleaved[2 * kMaxFrames] = {};
    // MIDI of skipped buffers, waiting for the next one that plays.
    MidiEvent pending[kMaxMidiEventsPerBuffer];
    int numPending = 0;
};

}  // namespace live
