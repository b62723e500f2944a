// The tracker's native machine interface, as a machine library on x86-64 Linux sees it:
// the records the host reads, the machine's virtual table, the stereo helper's table, the
// host's callbacks and its data streams. Written from the documented layouts (offsets are
// checked below); nothing here is defined outside this header, so a library built on it
// needs no symbol from the host.
//
// Virtual functions are matched by position, so the order of declarations is the
// interface. A callback that the Linux host lacks is not declared at all.
#pragma once

#include <cstddef>
#include <cstdint>

namespace buzz {

// [Codes]
enum ParameterType : int { kParamNote = 0, kParamSwitch = 1, kParamByte = 2, kParamWord = 3 };
constexpr int kParamFlagState = 2;
constexpr int kMachineGenerator = 1;
constexpr int kMachineEffect = 2;
constexpr int kFlagMonoToStereo = 1 << 0;
constexpr int kWorkModeRead = 1;
constexpr int kWorkModeWrite = 2;

// [Records]
struct CMachineParameter {
    int type;  // ParameterType
    const char* name;
    const char* description;
    int minValue;
    int maxValue;
    int noValue;
    int flags;
    int defValue;
};

struct CMachineAttribute {
    const char* name;
    int minValue;
    int maxValue;
    int defValue;
};

struct CMasterInfo {
    int beatsPerMin;
    int ticksPerBeat;
    int samplesPerSec;
    int samplesPerTick;
    int posInTick;
    float ticksPerSec;
};

struct CMachineInfo {
    int type;
    int version;  // low byte 15 or more: the host offers its full callback table
    int flags;
    int minTracks;
    int maxTracks;
    int numGlobalParameters;
    int numTrackParameters;
    const CMachineParameter** parameters;  // globals first, then track parameters
    int numAttributes;
    const CMachineAttribute** attributes;
    const char* name;
    const char* shortName;
    const char* author;
    const char* commands;  // menu entries separated by '\n'
    void* libInterface;
};

static_assert(sizeof(CMachineParameter) == 48 && offsetof(CMachineParameter, name) == 8 &&
              offsetof(CMachineParameter, minValue) == 24 && offsetof(CMachineParameter, defValue) == 40);
static_assert(sizeof(CMachineAttribute) == 24 && offsetof(CMachineAttribute, defValue) == 16);
static_assert(sizeof(CMasterInfo) == 24 && offsetof(CMasterInfo, ticksPerSec) == 20);
static_assert(sizeof(CMachineInfo) == 96 && offsetof(CMachineInfo, parameters) == 32 &&
              offsetof(CMachineInfo, numAttributes) == 40 && offsetof(CMachineInfo, attributes) == 48 &&
              offsetof(CMachineInfo, name) == 56 && offsetof(CMachineInfo, commands) == 80 &&
              offsetof(CMachineInfo, libInterface) == 88);

// [Data streams] One virtual each, no destructor: the host owns them.
class CMachineDataInput {
public:
    virtual void Read(void* buffer, int numBytes) = 0;

protected:
    ~CMachineDataInput() = default;
};

class CMachineDataOutput {
public:
    virtual void Write(const void* buffer, int numBytes) = 0;

protected:
    ~CMachineDataOutput() = default;
};

class CMachineInterfaceEx;
class CMachine;  // the host's opaque identity of a machine
class CMDKMachineInterface;

// [Host callbacks] Slots 0..47; the Linux host has nothing after GetInput.
class CMICallbacks {
public:
    virtual const void* GetWave(int wave) = 0;                                                          // 0
    virtual const void* GetWaveLevel(int wave, int level) = 0;                                          // 1
    virtual void MessageBox(const char* text) = 0;                                                      // 2
    virtual void Lock() = 0;                                                                            // 3
    virtual void Unlock() = 0;                                                                          // 4
    virtual int GetWritePos() = 0;                                                                      // 5
    virtual int GetPlayPos() = 0;                                                                       // 6
    virtual float* GetAuxBuffer() = 0;                                                                  // 7
    virtual void ClearAuxBuffer() = 0;                                                                  // 8
    virtual int GetFreeWave() = 0;                                                                      // 9
    virtual bool AllocateWave(int wave, int size, const char* name) = 0;                                // 10
    virtual void ScheduleEvent(int time, unsigned long data) = 0;                                       // 11
    virtual void MidiOut(int device, unsigned long data) = 0;                                           // 12
    virtual const short* GetOscillatorTable(int waveform) = 0;                                          // 13
    virtual int GetEnvSize(int wave, int envelope) = 0;                                                 // 14
    virtual bool GetEnvPoint(int wave, int envelope, int i, uint16_t& x, uint16_t& y, int& flags) = 0;  // 15
    // (-1, -1) answers the stereo helper ([MDK] below).
    virtual void* GetNearestWaveLevel(int wave, int note) = 0;                                // 16
    virtual void SetNumberOfTracks(int n) = 0;                                                // 17
    virtual void* CreatePattern(const char* name, int length) = 0;                            // 18
    virtual void* GetPattern(int index) = 0;                                                  // 19
    virtual const char* GetPatternName(void* pattern) = 0;                                    // 20
    virtual void RenamePattern(const char* oldName, const char* newName) = 0;                 // 21
    virtual void DeletePattern(void* pattern) = 0;                                            // 22
    virtual int GetPatternData(void* pattern, int row, int group, int track, int field) = 0;  // 23
    virtual void SetPatternData(void* pattern, int row, int group, int track, int field,
                                int value) = 0;                                                     // 24
    virtual void* CreateSequence() = 0;                                                             // 25
    virtual void DeleteSequence(void* sequence) = 0;                                                // 26
    virtual void* GetSequenceData(int row) = 0;                                                     // 27
    virtual void SetSequenceData(int row, void* pattern) = 0;                                       // 28
    virtual void SetMachineInterfaceEx(CMachineInterfaceEx* extension) = 0;                         // 29
    virtual void ControlChangeObsolete(int group, int track, int param, int value) = 0;             // 30
    virtual int ADGetnumChannels(bool input) = 0;                                                   // 31
    virtual void ADWrite(int channel, float* samples, int numSamples) = 0;                          // 32
    virtual void ADRead(int channel, float* samples, int numSamples) = 0;                           // 33
    virtual CMachine* GetThisMachine() = 0;                                                         // 34
    virtual void ControlChange(CMachine* machine, int group, int track, int param, int value) = 0;  // 35
    virtual void* GetPlayingSequence(CMachine* machine) = 0;                                        // 36
    virtual void* GetPlayingRow(void* sequence, int group, int track) = 0;                          // 37
    virtual int GetStateFlags() = 0;                                                                // 38
    virtual void SetnumOutputChannels(CMachine* machine, int n) = 0;                                // 39
    // The handler is a pointer to member: two machine words, passed as one argument.
    struct MemberHandler {
        void* function;
        std::ptrdiff_t adjust;
    };
    virtual void SetEventHandler(CMachine* machine, int type, MemberHandler handler, void* param) = 0;  // 40
    virtual const char* GetWaveName(int wave) = 0;                                                      // 41
    virtual void SetInternalWaveName(CMachine* machine, int wave, const char* name) = 0;                // 42
    virtual void GetMachineNames(CMachineDataOutput* output) = 0;                                       // 43
    virtual CMachine* GetMachine(const char* name) = 0;                                                 // 44
    virtual const CMachineInfo* GetMachineInfo(CMachine* machine) = 0;                                  // 45
    virtual const char* GetMachineName(CMachine* machine) = 0;                                          // 46
    virtual bool GetInput(int index, float* samples, int numSamples, bool stereo, float* extra) = 0;    // 47

protected:
    ~CMICallbacks() = default;
};

// [Machine] The host deletes a machine through slot 1 and calls slots 2..19 by position.
class CMachineInterface {
public:
    virtual ~CMachineInterface() = default;                                                           // 0, 1
    virtual void Init(CMachineDataInput* input) {}                                                    // 2
    virtual void Tick() {}                                                                            // 3
    virtual bool Work(float* samples, int numSamples, int mode) { return false; }                     // 4
    virtual bool WorkMonoToStereo(float* in, float* out, int numSamples, int mode) { return false; }  // 5
    virtual void Stop() {}                                                                            // 6
    virtual void Save(CMachineDataOutput* output) {}                                                  // 7
    virtual void AttributesChanged() {}                                                               // 8
    virtual void Command(int index) {}                                                                // 9
    virtual void SetNumTracks(int n) {}                                                               // 10
    virtual void MuteTrack(int index) {}                                                              // 11
    virtual bool IsTrackMuted(int index) const { return false; }                                      // 12
    virtual void MidiNote(int channel, int value, int velocity) {}                                    // 13
    virtual void Event(unsigned long data) {}                                                         // 14
    virtual const char* DescribeValue(int param, int value) { return nullptr; }                       // 15
    virtual const void* GetEnvelopeInfos() { return nullptr; }                                        // 16
    virtual bool PlayWave(int wave, int note, float volume) { return false; }                         // 17
    virtual void StopWave() {}                                                                        // 18
    virtual int GetWaveEnvPlayPos(int envelope) { return -1; }                                        // 19

    // Set by the machine's constructor; the host writes the values before Tick.
    void* GlobalVals = nullptr;
    void* TrackVals = nullptr;
    int* AttrVals = nullptr;
    // Set by the host after CreateMachine, before Init.
    CMasterInfo* pMasterInfo = nullptr;
    CMICallbacks* pCB = nullptr;
};

// The extension object a machine may hand over; the Linux host keeps it and calls nothing.
class CMachineInterfaceEx {
public:
    virtual const char* DescribeParam(int param) { return nullptr; }
    virtual void SetInstrument(const char* name) {}
    virtual void GetSubMenu(int index, CMachineDataOutput* output) {}
    virtual void AddInput(const char* name, bool stereo) {}
    virtual void DeleteInput(const char* name) {}
    virtual void RenameInput(const char* oldName, const char* newName) {}
    virtual void Input(float* samples, int numSamples, float amplitude) {}
    virtual void MidiControlChange(int control, int channel, int value) {}
    virtual void SetInputChannels(const char* name, bool stereo) {}
    virtual bool HandleInput(int index, int amplitude, int pan) { return false; }

protected:
    ~CMachineInterfaceEx() = default;
};

// [MDK] The host's stereo helper. A machine that stores itself in `machine`, runs Init and
// asks for stereo output gets stereo in and out, in place, through WorkMonoToStereo.
class CMDKImplementation {
public:
    virtual ~CMDKImplementation() = default;                                             // 0, 1
    virtual void AddInput(const char* name, bool stereo) = 0;                            // 2
    virtual void DeleteInput(const char* name) = 0;                                      // 3
    virtual void RenameInput(const char* oldName, const char* newName) = 0;              // 4
    virtual void SetInputChannels(const char* name, bool stereo) = 0;                    // 5
    virtual void Input(float* samples, int numSamples, float amplitude) = 0;             // 6
    virtual bool Work(float* samples, int numSamples, int mode) = 0;                     // 7
    virtual bool WorkMonoToStereo(float* in, float* out, int numSamples, int mode) = 0;  // 8
    // Reads a version byte from a non-null input, then calls the machine's MDKInit.
    virtual void Init(CMachineDataInput* input) = 0;    // 9
    virtual void Save(CMachineDataOutput* output) = 0;  // 10
    // True: two channels; calls the machine's OutputModeChanged.
    virtual void SetOutputMode(bool stereo) = 0;  // 11

    CMDKMachineInterface* machine = nullptr;  // offset 8
};

// The machine side of the helper: six more slots after the machine's own twenty.
class CMDKMachineInterface : public CMachineInterface {
public:
    virtual void* GetEx() { return nullptr; }                                               // 20
    virtual void OutputModeChanged(bool stereo) {}                                          // 21
    virtual bool MDKWork(float* samples, int numSamples, int mode) { return false; }        // 22
    virtual bool MDKWorkStereo(float* samples, int numSamples, int mode) { return false; }  // 23
    virtual void MDKInit(CMachineDataInput* input) {}                                       // 24
    virtual void MDKSave(CMachineDataOutput* output) {}                                     // 25
};

}  // namespace buzz

// The library's two exports.
extern "C" {
using GetInfoFunction = const buzz::CMachineInfo* (*)();
using CreateMachineFunction = buzz::CMachineInterface* (*)();
}
