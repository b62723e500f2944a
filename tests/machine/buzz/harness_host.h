// A tracker host of our own for the machine libraries: it opens a built library, finds
// its two exports and drives a machine the way a full native host does, including what
// the Linux tracker never calls (saved state, commands, MIDI). Its callbacks record what
// the machine asks; `withHelper` offers the stereo helper, as the Linux tracker does.
#pragma once

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "machine/buzz/buzz_interface.h"

namespace harness {

using namespace buzz;

// The host's stereo helper: Init calls the machine's MDKInit, SetOutputMode its
// OutputModeChanged; `channels` is what the host would give the machine's pads.
class Helper : public CMDKImplementation {
public:
    void AddInput(const char*, bool) override {}
    void DeleteInput(const char*) override {}
    void RenameInput(const char*, const char*) override {}
    void SetInputChannels(const char*, bool) override {}
    void Input(float*, int, float) override {}
    bool Work(float*, int, int) override { return false; }
    bool WorkMonoToStereo(float*, float*, int, int) override { return false; }
    void Init(CMachineDataInput* input) override {
        channels = 1;
        if (machine) machine->MDKInit(input);
    }
    void Save(CMachineDataOutput*) override {}
    void SetOutputMode(bool stereo) override {
        channels = stereo ? 2 : 1;
        if (machine) machine->OutputModeChanged(stereo);
    }
    int channels = 0;
};

class Callbacks : public CMICallbacks {
public:
    const void* GetWave(int) override { return nullptr; }
    const void* GetWaveLevel(int, int) override { return nullptr; }
    void MessageBox(const char* text) override { messages.push_back(text ? text : "(null)"); }
    void Lock() override {}
    void Unlock() override {}
    int GetWritePos() override { return 0; }
    int GetPlayPos() override { return 0; }
    float* GetAuxBuffer() override { return aux; }
    void ClearAuxBuffer() override { std::fill(std::begin(aux), std::end(aux), 0.0f); }
    int GetFreeWave() override { return 0; }
    bool AllocateWave(int, int, const char*) override { return false; }
    void ScheduleEvent(int, unsigned long) override {}
    void MidiOut(int, unsigned long) override {}
    const short* GetOscillatorTable(int) override { return nullptr; }
    int GetEnvSize(int, int) override { return 0; }
    bool GetEnvPoint(int, int, int, uint16_t&, uint16_t&, int&) override { return false; }
    void* GetNearestWaveLevel(int wave, int note) override {
        return wave == -1 && note == -1 && withHelper ? &helper : nullptr;
    }
    void SetNumberOfTracks(int) override {}
    void* CreatePattern(const char*, int) override { return nullptr; }
    void* GetPattern(int) override { return nullptr; }
    const char* GetPatternName(void*) override { return ""; }
    void RenamePattern(const char*, const char*) override {}
    void DeletePattern(void*) override {}
    int GetPatternData(void*, int, int, int, int) override { return 0; }
    void SetPatternData(void*, int, int, int, int, int) override {}
    void* CreateSequence() override { return nullptr; }
    void DeleteSequence(void*) override {}
    void* GetSequenceData(int) override { return nullptr; }
    void SetSequenceData(int, void*) override {}
    void SetMachineInterfaceEx(CMachineInterfaceEx* ex) override { extension = ex; }
    void ControlChangeObsolete(int, int, int, int) override {}
    int ADGetnumChannels(bool) override { return 0; }
    void ADWrite(int, float*, int) override {}
    void ADRead(int, float*, int) override {}
    CMachine* GetThisMachine() override { return reinterpret_cast<CMachine*>(&identity); }
    void ControlChange(CMachine*, int, int, int, int) override {}
    void* GetPlayingSequence(CMachine*) override { return nullptr; }
    void* GetPlayingRow(void*, int, int) override { return nullptr; }
    int GetStateFlags() override { return 0; }
    void SetnumOutputChannels(CMachine*, int) override {}
    void SetEventHandler(CMachine*, int, MemberHandler, void*) override {}
    const char* GetWaveName(int) override { return nullptr; }
    void SetInternalWaveName(CMachine*, int, const char*) override {}
    void GetMachineNames(CMachineDataOutput*) override {}
    CMachine* GetMachine(const char*) override { return nullptr; }
    const CMachineInfo* GetMachineInfo(CMachine*) override { return nullptr; }
    // As on the Linux tracker: no name.
    const char* GetMachineName(CMachine*) override { return nullptr; }
    bool GetInput(int, float*, int, bool, float*) override { return false; }

    bool withHelper = false;
    Helper helper;
    CMachineInterfaceEx* extension = nullptr;
    std::vector<std::string> messages;
    float aux[2048] = {};
    int identity = 0;
};

// Saved state in memory. Reading past the end delivers nothing, as a host's stream does.
class Stream : public CMachineDataInput, public CMachineDataOutput {
public:
    explicit Stream(std::vector<uint8_t> bytes = {}) : bytes(std::move(bytes)) {}
    void Read(void* buffer, int numBytes) override {
        const size_t n = std::min(bytes.size() - position, size_t(std::max(numBytes, 0)));
        if (n > 0) std::memcpy(buffer, bytes.data() + position, n);  // an empty stream has no data pointer
        position += n;
    }
    void Write(const void* buffer, int numBytes) override {
        const auto* p = static_cast<const uint8_t*>(buffer);
        bytes.insert(bytes.end(), p, p + numBytes);
    }
    std::vector<uint8_t> bytes;
    size_t position = 0;
};

// One machine library, opened as the tracker opens it.
class Library {
public:
    explicit Library(const std::string& path) {
        handle = dlopen(path.c_str(), RTLD_LAZY | RTLD_LOCAL);
        if (!handle) throw std::runtime_error(std::string("cannot open ") + path + ": " + dlerror());
        getInfo = reinterpret_cast<GetInfoFunction>(dlsym(handle, "GetInfo"));
        createMachine = reinterpret_cast<CreateMachineFunction>(dlsym(handle, "CreateMachine"));
        if (!getInfo || !createMachine) throw std::runtime_error(path + ": exports missing");
    }
    ~Library() { dlclose(handle); }
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    void* handle = nullptr;
    GetInfoFunction getInfo = nullptr;
    CreateMachineFunction createMachine = nullptr;
};

// One machine as the host keeps it: its value blocks filled with defaults after Init,
// trigger values reset after each Tick.
class Hosted {
public:
    Hosted(Library& library, Callbacks& callbacks, CMachineDataInput* state = nullptr)
        : info(*library.getInfo()), machine(library.createMachine()) {
        machine->pMasterInfo = &master;
        machine->pCB = &callbacks;
        if (callbacks.withHelper) callbacks.helper.machine = nullptr;
        machine->Init(state);
        machine->AttributesChanged();
        machine->SetNumTracks(info.minTracks);
        for (int g = 0; g < info.numGlobalParameters; ++g) Global(g) = uint8_t(info.parameters[g]->defValue);
        ResetTriggers();
    }
    ~Hosted() { delete machine; }

    uint8_t& Global(int index) { return static_cast<uint8_t*>(machine->GlobalVals)[index]; }
    uint8_t& Track(int track, int field) {
        return static_cast<uint8_t*>(machine->TrackVals)[track * 2 + field];
    }
    int& Attribute(int index) { return machine->AttrVals[index]; }
    void ResetTriggers() {
        for (int t = 0; t < info.maxTracks; ++t) {
            Track(t, 0) = uint8_t(info.parameters[info.numGlobalParameters]->noValue);
            Track(t, 1) = uint8_t(info.parameters[info.numGlobalParameters + 1]->noValue);
        }
    }
    void Tick() {
        machine->Tick();
        ResetTriggers();
    }
    void Note(int track, uint8_t note, uint8_t velocity = 0xFF) {
        Track(track, 0) = note;
        Track(track, 1) = velocity;
        Tick();
    }
    // Stereo frames as the generator makes them, in chunks cycling through 1..256.
    std::vector<float> RenderStereo(int frames, int firstChunk = 1) {
        std::vector<float> out(size_t(frames) * 2);
        for (int done = 0, chunk = firstChunk; done < frames; chunk = (chunk * 7 + 13) % 256 + 1) {
            const int n = std::min(chunk, frames - done);
            std::fill_n(out.data() + 2 * done, 2 * n, 0.0f);
            machine->WorkMonoToStereo(nullptr, out.data() + 2 * done, n, kWorkModeWrite);
            done += n;
        }
        return out;
    }

    CMasterInfo master{120, 4, 44100, 5512, 0, 8.000726f};
    const CMachineInfo& info;
    CMachineInterface* machine;
};

// One channel of interleaved stereo.
inline std::vector<float> Channel(const std::vector<float>& stereo, int channel) {
    std::vector<float> out(stereo.size() / 2);
    for (size_t i = 0; i < out.size(); ++i) out[i] = stereo[2 * i + size_t(channel)];
    return out;
}

// The frequency of a steady tone from its upward zero crossings, interpolated.
inline double Pitch(const std::vector<float>& samples, int rate = 44100) {
    std::vector<double> times;
    for (size_t i = 1; i < samples.size(); ++i) {
        const double a = samples[i - 1], b = samples[i];
        if (a < 0.0 && b >= 0.0) times.push_back(double(i - 1) + a / (a - b));
    }
    if (times.size() < 3) return 0.0;
    return double(times.size() - 1) * rate / (times.back() - times.front());
}

inline float Peak(const std::vector<float>& samples) {
    float peak = 0.0f;
    for (float x : samples) peak = std::max(peak, std::fabs(x));
    return peak;
}

}  // namespace harness
