// A small LV2 host for the tests: urid map, log, a worker run by the test between blocks,
// the sample rate option, atom event building, and a driver that runs a plug-in through
// its descriptor in blocks of any size with events at exact frames.
#pragma once

#include <lv2/atom/atom.h>
#include <lv2/atom/forge.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/state/state.h>
#include <lv2/urid/urid.h>
#include <lv2/worker/worker.h>

#include <cstdint>
#include <string>
#include <vector>

namespace lv2test {

// Points LV2_PATH at the build's bundle, the wave table cache at the tests' folder and the
// patch folder at an empty one; call before any plug-in or lilv world is made.
bool UsePrivateEnvironment();

// Called on entering (true) and leaving (false) the host's log and worker callbacks, whose
// own allocations a counting test leaves out.
extern void (*hostCallHook)(bool entering);

class TestFeatures {
public:
    explicit TestFeatures(float sampleRate = 44100.0f, bool withWorker = true);
    TestFeatures(const TestFeatures&) = delete;
    TestFeatures& operator=(const TestFeatures&) = delete;

    const LV2_Feature* const* List() const { return list.data(); }
    LV2_URID Map(const char* uri);
    LV2_URID_Map* UridMap() { return &map; }
    LV2_URID_Unmap* UridUnmap() { return &unmap; }
    // Runs the work the plug-in scheduled, in order, on the calling thread.
    void RunWork(LV2_Handle handle, const LV2_Worker_Interface* worker);
    size_t PendingWork() const { return work.size(); }

    std::vector<std::string> warnings;  // log:Warning and log:Error lines

private:
    static LV2_URID MapUri(LV2_URID_Map_Handle handle, const char* uri);
    static const char* UnmapUri(LV2_URID_Unmap_Handle handle, LV2_URID urid);
    static int Printf(LV2_Log_Handle handle, LV2_URID type, const char* format, ...);
    static int VPrintf(LV2_Log_Handle handle, LV2_URID type, const char* format, va_list args);
    static LV2_Worker_Status Schedule(LV2_Worker_Schedule_Handle handle, uint32_t size, const void* data);

    std::vector<std::string> uris;
    LV2_URID_Map map;
    LV2_URID_Unmap unmap;
    LV2_Log_Log log;
    LV2_Worker_Schedule schedule;
    float rate;
    LV2_Options_Option options[2];
    LV2_Feature mapFeature, unmapFeature, logFeature, scheduleFeature, optionsFeature;
    std::vector<const LV2_Feature*> list;
    std::vector<std::vector<uint8_t>> work;
};

// One event at an absolute frame of a render.
struct Event {
    int64_t frame = 0;
    std::vector<uint8_t> midi;  // a MIDI message, or empty
    double beatsPerMinute = 0;  // a time:Position with this tempo when above 0
    double barBeat = -1;        // and, when not negative, rolling at this beat of the bar
    std::string patchFile;      // a patch:Set of the patch file when not empty
    bool patchGet = false;
};
Event Midi(int64_t frame, std::vector<uint8_t> bytes);
Event NoteOn(int64_t frame, int note, int velocity = 100);
Event NoteOff(int64_t frame, int note);

struct Stereo {
    std::vector<float> left, right;
};

// Drives one instance through its descriptor; the caller owns the instance.
class Driver {
public:
    static constexpr uint32_t kMaxBlock = 4096;

    Driver(const LV2_Descriptor* descriptor, LV2_Handle handle, TestFeatures& features, bool isEffect);
    // Renders `frames` frames in blocks of `blockSize`, each event in the block that holds
    // its frame; runs scheduled work after every block. The effect reads `input`.
    Stereo Render(uint32_t frames, uint32_t blockSize, const std::vector<Event>& events = {},
                  const Stereo* input = nullptr);
    // Sends a patch:Set of `path`, then runs until the worker's patch plays.
    void LoadPatch(const std::string& path);
    // The patch file paths in patch:Set messages of the last block's notify port.
    std::vector<std::string> NotifiedFiles();

    // Direct state calls: what Save stored, and Restore from a value of any type.
    struct Stored {
        LV2_URID key = 0, type = 0;
        std::vector<uint8_t> value;
    };
    std::vector<Stored> SaveState();
    LV2_State_Status RestoreState(const std::vector<Stored>& values);

    const void* Extension(const char* uri) const {
        return descriptor->extension_data ? descriptor->extension_data(uri) : nullptr;
    }
    LV2_Handle Handle() const { return handle; }

    // Called just before and after each run() call, with true and false.
    void (*aroundRun)(bool starting) = nullptr;
    float knobs[8] = {64, 64, 64, 64, 64, 64, 64, 64};
    float latency = -1.0f;

private:
    void RunBlock(uint32_t n, const std::vector<const Event*>& events, int64_t start);

    const LV2_Descriptor* descriptor;
    LV2_Handle handle;
    TestFeatures& features;
    bool isEffect;
    LV2_Atom_Forge forge;
    std::vector<uint64_t> control, notify;  // 8-byte aligned atom buffers
    std::vector<float> inLeft, inRight, outLeft, outRight;
};

// Frequency from the rising zero crossings of `samples` in [from, to), interpolated.
double MeasureHz(const std::vector<float>& samples, size_t from, size_t to, double sampleRate);
// Index of the first sample whose magnitude exceeds `threshold` at or after `from`; -1 if none.
long FirstAbove(const std::vector<float>& samples, size_t from, float threshold);
double Rms(const std::vector<float>& samples, size_t from, size_t to);

}  // namespace lv2test
