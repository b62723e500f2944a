// The tracker adapter: descriptions, host values, buffer shapes, callbacks.
// Index: [SECTION] descriptions, life cycle, ticks and notes, audio, state and commands,
// host callbacks.
#include "machine/buzz/vrok_machine.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/machine_info.h"

namespace buzz {

// [SECTION] descriptions

namespace {

constexpr int kMaxParameters = 10;
constexpr int kMaxAttributes = 2;

struct Description {
    CMachineParameter parameters[kMaxParameters];
    const CMachineParameter* parameterList[kMaxParameters];
    CMachineAttribute attributes[kMaxAttributes];
    const CMachineAttribute* attributeList[kMaxAttributes];
    CMachineInfo info;
};

// The effect is the shell's own description, field by field. The generator differs in
// kind, stereo output, names and the patch attribute. Filled in place: the lists point
// into the record itself.
void Describe(Variant variant, Description& d) {
    const machine::MachineInfo& shell = machine::GetInfo();
    const int numParameters = std::min(int(shell.parameters.size()), kMaxParameters);
    for (int i = 0; i < numParameters; ++i) {
        const machine::ParameterInfo& p = shell.parameters[size_t(i)];
        d.parameters[i] = {int(p.kind), p.name,    p.description, p.minValue,
                           p.maxValue,  p.noValue, p.flags,       p.defaultValue};
        d.parameterList[i] = &d.parameters[i];
    }
    int numAttributes = 0;
    for (const machine::AttributeInfo& a : shell.attributes)
        d.attributes[numAttributes++] = {a.name, a.minValue, a.maxValue, a.defaultValue};
    const bool generator = variant == Variant::Generator;
    if (generator) d.attributes[numAttributes++] = {"Patch", 0, PatchChoice::kMaxNumber, 0};
    for (int i = 0; i < numAttributes; ++i) d.attributeList[i] = &d.attributes[i];

    d.info.type = generator ? kMachineGenerator : shell.type;
    d.info.version = shell.version;
    d.info.flags = generator ? shell.flags | kFlagMonoToStereo : shell.flags;
    d.info.minTracks = shell.minTracks;
    d.info.maxTracks = shell.maxTracks;
    d.info.numGlobalParameters = shell.numGlobalParameters;
    d.info.numTrackParameters = shell.numTrackParameters;
    d.info.parameters = d.parameterList;
    d.info.numAttributes = numAttributes;
    d.info.attributes = d.attributeList;
    d.info.name = generator ? "Qorvat Vrok Modular Synth (2013.0.1)" : shell.name;
    d.info.shortName = generator ? "[VROK] synth" : shell.shortName;
    d.info.author = shell.author;
    d.info.commands = shell.commands;
    d.info.libInterface = nullptr;
}

Description& Stored(Variant variant) {
    static Description descriptions[2];
    static std::once_flag once;
    std::call_once(once, [] {
        Describe(Variant::Effect, descriptions[0]);
        Describe(Variant::Generator, descriptions[1]);
    });
    return descriptions[variant == Variant::Effect ? 0 : 1];
}

// A note byte the machine can play: octave 0..9 in the high nibble, semitone 1..12 in the
// low one, at most b-9.
bool PlayableNote(uint8_t n) {
    const int semitone = n & 15;
    return n >= 1 && n <= 0x9C && semitone >= 1 && semitone <= 12;
}

// Values outside 0..max that are not "no value" are taken as the nearest end.
uint8_t LimitByte(uint8_t value, int max) {
    if (value == machine::kNoValueByte) return value;
    return uint8_t(std::min<int>(value, max));
}

// The host's stream through the shell's reader. The interface's Read reports nothing, so
// the bytes are zeroed first: a stream that ends early reads as zeros, which the shell
// takes for an empty or broken patch text and keeps the patch.
class HostInput : public machine::DataInput {
public:
    explicit HostInput(CMachineDataInput& input) : input(input) {}
    bool Read(void* buffer, int numBytes) override {
        if (numBytes <= 0) return numBytes == 0;
        std::memset(buffer, 0, size_t(numBytes));
        input.Read(buffer, numBytes);
        return true;
    }

private:
    CMachineDataInput& input;
};

class HostOutput : public machine::DataOutput {
public:
    explicit HostOutput(CMachineDataOutput& output) : output(output) {}
    void Write(const void* buffer, int numBytes) override { output.Write(buffer, numBytes); }

private:
    CMachineDataOutput& output;
};

bool AnySound(const float* samples, int count) {
    for (int i = 0; i < count; ++i)
        if (samples[i] != 0.0f) return true;
    return false;
}

}  // namespace

CMachineInfo& DescriptionOf(Variant variant) { return Stored(variant).info; }

// [SECTION] life cycle

VrokMachine::VrokMachine(Variant variant) : variant(variant), description(DescriptionOf(variant)) {
    std::fill(std::begin(globalBytes), std::end(globalBytes), uint8_t(machine::kNoValueByte));
    for (auto& track : trackBytes) {
        track[0] = machine::kNoteNoValue;
        track[1] = machine::kNoValueByte;
    }
    GlobalVals = globalBytes;
    TrackVals = trackBytes;
    AttrVals = attributeValues;
    // A tracker makes machines to list them; the tables wait for real use.
    VrokInstance::deferWaveTables = true;
    shell = std::make_unique<mi>(static_cast<machine::Host&>(*this), static_cast<MachineEditor*>(this));
    patchChoice = std::make_unique<PatchChoice>(*shell);
}

VrokMachine::~VrokMachine() {
    patchChoice.reset();
    shell.reset();
}

void VrokMachine::Init(CMachineDataInput* input) {
    if (input) {
        PrepareEngine();
        HostInput reader(*input);
        shell->Init(&reader);
        patchChoice->KeepRestored();
    } else {
        shell->Init(nullptr);
    }
    // The effect asks the host's helper for stereo in and out. The host reads the answer
    // from its first instance, so every Init asks the same way.
    if (variant != Variant::Effect || !pCB) return;
    helper = static_cast<CMDKImplementation*>(pCB->GetNearestWaveLevel(-1, -1));
    if (!helper) return;
    helper->machine = this;
    helper->Init(nullptr);  // calls MDKInit, which asks for stereo
    // The host looks at the helper's channels only once an extension is handed over.
    if (stereoInPlace) pCB->SetMachineInterfaceEx(&extension);
}

void VrokMachine::MDKInit(CMachineDataInput*) {
    if (helper) helper->SetOutputMode(true);
}

void VrokMachine::OutputModeChanged(bool stereo) { stereoInPlace = stereo; }

void VrokMachine::PrepareEngine() {
    if (engineReady.load(std::memory_order_acquire)) return;
    std::lock_guard guard(shell->machineLock);
    shell->document->engine->PrepareWaveTables();
    engineReady.store(true, std::memory_order_release);
}

// [SECTION] ticks and notes

void VrokMachine::AttributesChanged() {
    shell->midiChannel = std::clamp(attributeValues[kAttributeMidiChannel], 0, 16);
}

// The value blocks hold every track the description allows, whatever a host writes into it.
void VrokMachine::SetNumTracks(int n) { shell->SetNumTracks(std::clamp(n, 0, machine::kMaxTracks)); }

void VrokMachine::TakeHostValues() {
    for (int k = 0; k < machine::kNumKnobs; ++k)
        shell->globalValues[k] = LimitByte(globalBytes[k], machine::kKnobMax);
    for (int t = 0; t < machine::kMaxTracks; ++t) {
        const uint8_t note = trackBytes[t][0];
        shell->trackValues[t].note =
            note == machine::kNoteOff || PlayableNote(note) ? note : machine::kNoteNoValue;
        shell->trackValues[t].velocity = LimitByte(trackBytes[t][1], machine::kKnobMax);
    }
    // The host sets attributes without telling: read them on every tick.
    AttributesChanged();
}

void VrokMachine::Tick() {
    PrepareEngine();
    TakeHostValues();
    const int patch = variant == Variant::Generator
                          ? std::clamp(attributeValues[kAttributePatch], 0, PatchChoice::kMaxNumber)
                          : 0;
    patchChoice->Want(patch);
    shell->Tick();
}

void VrokMachine::Stop() { shell->Stop(); }

void VrokMachine::MidiNote(int channel, int value, int velocity) {
    PrepareEngine();
    shell->MidiNote(channel, value, std::clamp(velocity, 0, 127));
}

// [SECTION] audio

bool VrokMachine::RenderStereo(float* stereo, int n, int mode) {
    if (variant == Variant::Generator) return shell->WorkMonoToStereo(nullptr, stereo, n, mode);
    return shell->Work(stereo, n, mode);
}

bool VrokMachine::Work(float* samples, int numSamples, int mode) {
    if (!samples || numSamples <= 0) return false;
    PrepareEngine();
    bool sound = false;
    for (int start = 0; start < numSamples; start += kMaxFrames) {
        const int n = std::min(kMaxFrames, numSamples - start);
        float* mono = samples + start;
        for (int i = 0; i < n; ++i)
            scratch[2 * i] = scratch[2 * i + 1] = (mode & kWorkModeRead) ? mono[i] : 0.0f;
        RenderStereo(scratch, n, mode);
        for (int i = 0; i < n; ++i) mono[i] = 0.5f * (scratch[2 * i] + scratch[2 * i + 1]);
        sound = AnySound(mono, n) || sound;
    }
    return sound;
}

bool VrokMachine::WorkMonoToStereo(float* in, float* out, int numSamples, int mode) {
    if (!out || numSamples <= 0) return false;
    PrepareEngine();
    if (in != out) {
        // Mono in, stereo out: spread the input over both channels first. Backwards, so a
        // host that lets `out` begin where `in` does keeps its input.
        const bool read = in && (mode & kWorkModeRead);
        for (int i = numSamples - 1; i >= 0; --i) out[2 * i] = out[2 * i + 1] = read ? in[i] : 0.0f;
        if (!read) mode &= ~kWorkModeRead;
    }
    for (int start = 0; start < numSamples; start += kMaxFrames)
        RenderStereo(out + 2 * start, std::min(kMaxFrames, numSamples - start), mode);
    return AnySound(out, 2 * numSamples);
}

// [SECTION] state and commands

void VrokMachine::Save(CMachineDataOutput* output) {
    if (!output) return;
    HostOutput writer(*output);
    shell->Save(&writer);
}

void VrokMachine::Command(int index) {
    PrepareEngine();
    shell->Command(index);
}

bool VrokMachine::Open(mi&) {
    Tell(std::string(description.shortName) +
         ": this host gives the machine no window, so there is no editor here. Pick a patch with the "
         "\"Patch\" attribute of " +
         DescriptionOf(Variant::Generator).shortName + ".");
    return false;
}

std::string VrokMachine::AskOpenFile(mi&, const std::string&, const std::string&, const std::string&) {
    const std::string folder = machine::PatchFolder();
    Tell(std::string(description.shortName) + ": no file dialog in this host. Put patches in " +
         (folder.empty() ? std::string("$XDG_DATA_HOME/vrok/patches") : folder) +
         " named by number (\"7 bass.vrkx\") and pick one with the \"Patch\" attribute.");
    return {};
}

void VrokMachine::Tell(const std::string& text) {
    if (pCB) pCB->MessageBox(text.c_str());
}

// [SECTION] host callbacks

machine::MasterInfo VrokMachine::GetMasterInfo() {
    machine::MasterInfo info;
    if (!pMasterInfo) return info;
    info.samplesPerSec = pMasterInfo->samplesPerSec;
    info.samplesPerTick = pMasterInfo->samplesPerTick;
    info.ticksPerBeat = pMasterInfo->ticksPerBeat;
    return info;
}

machine::MachineHandle VrokMachine::GetThisMachine() { return pCB ? pCB->GetThisMachine() : nullptr; }

std::string VrokMachine::GetMachineName(machine::MachineHandle handle) {
    const char* name = pCB ? pCB->GetMachineName(static_cast<CMachine*>(handle)) : nullptr;
    return name ? name : description.shortName;
}

void VrokMachine::ControlChange(machine::MachineHandle handle, int group, int track, int parameter,
                                int value) {
    if (pCB) pCB->ControlChange(static_cast<CMachine*>(handle), group, track, parameter, value);
}

}  // namespace buzz
