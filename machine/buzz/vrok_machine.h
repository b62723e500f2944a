// Vrok as a native tracker machine: the interface's records and classes implemented over
// the host-neutral shell `mi`. This adapter owns everything the binary interface asks
// that `mi` does not know: the value blocks the host writes into, their checking, the
// buffer shapes (mono, mono to stereo, in-place stereo through the host's helper), the
// callbacks the Linux host really has, and the patch a song picks by number.
//
// Two machines share it: the effect, described exactly as the shell describes itself, and
// a generator for note-driven songs (a tracker delivers pattern events to generators
// reliably, to effects not), with stereo output and the attribute "Patch".
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "engine/audio_block.h"
#include "machine/buzz/buzz_interface.h"
#include "machine/buzz/patch_choice.h"
#include "machine/machine.h"

namespace buzz {

enum class Variant { Effect, Generator };

// The description handed to the host: static and writable, as the host may write to it.
CMachineInfo& DescriptionOf(Variant variant);

// Attribute indexes.
constexpr int kAttributeMidiChannel = 0;
constexpr int kAttributePatch = 1;  // the generator only

class VrokMachine final : public CMDKMachineInterface, private machine::Host, private MachineEditor {
public:
    // Cheap enough for a registry scan: no file, no thread, no wave tables.
    explicit VrokMachine(Variant variant);
    ~VrokMachine() override;

    // [Machine interface]
    void Init(CMachineDataInput* input) override;
    void Tick() override;
    // `numSamples` mono floats, in place.
    bool Work(float* samples, int numSamples, int mode) override;
    // `in` == `out`: interleaved stereo in place (the helper's route). Otherwise `in` holds
    // mono (or is null) and `out` receives interleaved stereo.
    bool WorkMonoToStereo(float* in, float* out, int numSamples, int mode) override;
    void Stop() override;
    void Save(CMachineDataOutput* output) override;
    void AttributesChanged() override;
    void Command(int index) override;
    void SetNumTracks(int n) override;
    void MidiNote(int channel, int value, int velocity) override;

    // [Stereo helper]
    void MDKInit(CMachineDataInput* input) override;
    void OutputModeChanged(bool stereo) override;

    // [Seen by tests]
    mi& Shell() { return *shell; }
    bool StereoThroughHelper() const { return stereoInPlace; }

private:
    // [machine::Host over the callbacks]
    machine::MasterInfo GetMasterInfo() override;
    machine::MachineHandle GetThisMachine() override;
    void SetMachineInterfaceEx(machine::MachineInterfaceEx*) override {}
    void SetEventHandler(machine::MachineHandle, int, machine::EventHandler, void*) override {}
    std::string GetMachineName(machine::MachineHandle handle) override;
    void ControlChange(machine::MachineHandle handle, int group, int track, int parameter,
                       int value) override;
    bool HostMIDIFiltering() override { return false; }

    // [MachineEditor: this library has no window; each request says so to the user]
    bool Open(mi& machine) override;
    void Close(mi&) override {}
    bool IsOpen(const mi&) const override { return false; }
    void Resize(mi&, int, int) override {}
    void SetTitle(mi&, const std::string&) override {}
    std::string AskOpenFile(mi& machine, const std::string&, const std::string&, const std::string&) override;
    void Tell(const std::string& text);

    // Loads or builds the wave tables on the first real use.
    void PrepareEngine();
    // Copies the host's value blocks into the shell, replacing what the host may not send.
    void TakeHostValues();
    // Renders `n` (at most kMaxFrames) frames of interleaved stereo in `stereo`, reading it
    // as input when `mode` has the read bit.
    bool RenderStereo(float* stereo, int n, int mode);

    const Variant variant;
    const CMachineInfo& description;
    uint8_t globalBytes[machine::kNumKnobs];
    uint8_t trackBytes[machine::kMaxTracks][2];
    int attributeValues[2] = {};
    std::unique_ptr<mi> shell;
    std::unique_ptr<PatchChoice> patchChoice;  // destroyed before the shell it loads into
    CMDKImplementation* helper = nullptr;
    bool stereoInPlace = false;
    std::atomic<bool> engineReady{false};
    float scratch[2 * kMaxFrames] = {};
    // The extension handed over with the helper route; the host only keeps it.
    class Extension : public CMachineInterfaceEx {
    } extension;
};

}  // namespace buzz
