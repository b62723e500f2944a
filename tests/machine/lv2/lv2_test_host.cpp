// The tests' LV2 host: features, events, the block loop, state calls, measurements.
#include "machine/lv2/lv2_test_host.h"

#include <lv2/atom/util.h>
#include <lv2/midi/midi.h>
#include <lv2/parameters/parameters.h>
#include <lv2/patch/patch.h>
#include <lv2/time/time.h>

#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace lv2test {

namespace {
constexpr size_t kAtomBufferBytes = 64 * 1024;
const char* const kPatchFileUri = "urn:vrok:lv2:patchFile";
}  // namespace

bool UsePrivateEnvironment() {
    return setenv("LV2_PATH", VROK_LV2_TEST_PATH, 1) == 0 &&
           setenv("VROK_CACHE_DIR", VROK_LV2_TEST_CACHE, 1) == 0 &&
           setenv("XDG_DATA_HOME", VROK_LV2_TEST_PATCHES, 1) == 0;
}

void (*hostCallHook)(bool entering) = nullptr;

// [Features]

TestFeatures::TestFeatures(float sampleRate, bool withWorker) : rate(sampleRate) {
    map = {this, &TestFeatures::MapUri};
    unmap = {this, &TestFeatures::UnmapUri};
    log = {this, &TestFeatures::Printf, &TestFeatures::VPrintf};
    schedule = {this, &TestFeatures::Schedule};
    options[0] = {LV2_OPTIONS_INSTANCE, 0,    Map(LV2_PARAMETERS__sampleRate), sizeof(float),
                  Map(LV2_ATOM__Float), &rate};
    options[1] = {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr};
    mapFeature = {LV2_URID__map, &map};
    unmapFeature = {LV2_URID__unmap, &unmap};
    logFeature = {LV2_LOG__log, &log};
    scheduleFeature = {LV2_WORKER__schedule, &schedule};
    optionsFeature = {LV2_OPTIONS__options, options};
    list = {&mapFeature, &unmapFeature, &logFeature, &optionsFeature};
    if (withWorker) list.push_back(&scheduleFeature);
    list.push_back(nullptr);
}

LV2_URID TestFeatures::Map(const char* uri) { return MapUri(this, uri); }

LV2_URID TestFeatures::MapUri(LV2_URID_Map_Handle handle, const char* uri) {
    auto& uris = static_cast<TestFeatures*>(handle)->uris;
    const auto found = std::find(uris.begin(), uris.end(), uri);
    if (found != uris.end()) return LV2_URID(found - uris.begin() + 1);
    uris.emplace_back(uri);
    return LV2_URID(uris.size());
}

const char* TestFeatures::UnmapUri(LV2_URID_Unmap_Handle handle, LV2_URID urid) {
    auto& uris = static_cast<TestFeatures*>(handle)->uris;
    return urid >= 1 && urid <= uris.size() ? uris[urid - 1].c_str() : nullptr;
}

int TestFeatures::Printf(LV2_Log_Handle handle, LV2_URID type, const char* format, ...) {
    va_list args;
    va_start(args, format);
    const int n = VPrintf(handle, type, format, args);
    va_end(args);
    return n;
}

int TestFeatures::VPrintf(LV2_Log_Handle handle, LV2_URID type, const char* format, va_list args) {
    auto* self = static_cast<TestFeatures*>(handle);
    char text[1024];
    if (hostCallHook) hostCallHook(true);
    const int n = std::vsnprintf(text, sizeof text, format, args);
    if (type == self->Map(LV2_LOG__Warning) || type == self->Map(LV2_LOG__Error))
        self->warnings.push_back(text);
    if (hostCallHook) hostCallHook(false);
    return n;
}

LV2_Worker_Status TestFeatures::Schedule(LV2_Worker_Schedule_Handle handle, uint32_t size, const void* data) {
    if (hostCallHook) hostCallHook(true);
    const auto* bytes = static_cast<const uint8_t*>(data);
    static_cast<TestFeatures*>(handle)->work.emplace_back(bytes, bytes + size);
    if (hostCallHook) hostCallHook(false);
    return LV2_WORKER_SUCCESS;
}

void TestFeatures::RunWork(LV2_Handle handle, const LV2_Worker_Interface* worker) {
    std::vector<std::vector<uint8_t>> queued;
    queued.swap(work);
    for (const auto& message : queued)
        worker->work(handle, nullptr, nullptr, uint32_t(message.size()), message.data());
}

// [Events]

Event Midi(int64_t frame, std::vector<uint8_t> bytes) {
    Event event;
    event.frame = frame;
    event.midi = std::move(bytes);
    return event;
}

Event NoteOn(int64_t frame, int note, int velocity) {
    return Midi(frame, {0x90, uint8_t(note), uint8_t(velocity)});
}

Event NoteOff(int64_t frame, int note) { return Midi(frame, {0x80, uint8_t(note), 0}); }

// [Driver]

Driver::Driver(const LV2_Descriptor* descriptor, LV2_Handle handle, TestFeatures& features, bool isEffect)
    : descriptor(descriptor),
      handle(handle),
      features(features),
      isEffect(isEffect),
      control(kAtomBufferBytes / 8),
      notify(kAtomBufferBytes / 8),
      inLeft(kMaxBlock),
      inRight(kMaxBlock),
      outLeft(kMaxBlock),
      outRight(kMaxBlock) {
    lv2_atom_forge_init(&forge, features.UridMap());
    if (!descriptor) return;  // the test reports the missing plug-in
    descriptor->connect_port(handle, 0, control.data());
    descriptor->connect_port(handle, 1, notify.data());
    descriptor->connect_port(handle, 2, outLeft.data());
    descriptor->connect_port(handle, 3, outRight.data());
    for (uint32_t k = 0; k < 8; ++k) descriptor->connect_port(handle, 4 + k, &knobs[k]);
    descriptor->connect_port(handle, 12, &latency);
    if (isEffect) {
        descriptor->connect_port(handle, 13, inLeft.data());
        descriptor->connect_port(handle, 14, inRight.data());
    }
}

void Driver::RunBlock(uint32_t n, const std::vector<const Event*>& events, int64_t start) {
    lv2_atom_forge_set_buffer(&forge, reinterpret_cast<uint8_t*>(control.data()), kAtomBufferBytes);
    LV2_Atom_Forge_Frame sequence;
    lv2_atom_forge_sequence_head(&forge, &sequence, 0);
    for (const Event* e : events) {
        lv2_atom_forge_frame_time(&forge, e->frame - start);
        LV2_Atom_Forge_Frame frame;
        if (!e->midi.empty()) {
            lv2_atom_forge_atom(&forge, uint32_t(e->midi.size()), features.Map(LV2_MIDI__MidiEvent));
            lv2_atom_forge_write(&forge, e->midi.data(), uint32_t(e->midi.size()));
        } else if (e->beatsPerMinute > 0) {
            lv2_atom_forge_object(&forge, &frame, 0, features.Map(LV2_TIME__Position));
            lv2_atom_forge_key(&forge, features.Map(LV2_TIME__beatsPerMinute));
            lv2_atom_forge_float(&forge, float(e->beatsPerMinute));
            if (e->barBeat >= 0) {
                lv2_atom_forge_key(&forge, features.Map(LV2_TIME__speed));
                lv2_atom_forge_float(&forge, 1.0f);
                lv2_atom_forge_key(&forge, features.Map(LV2_TIME__barBeat));
                lv2_atom_forge_float(&forge, float(e->barBeat));
            }
            lv2_atom_forge_pop(&forge, &frame);
        } else if (e->patchGet) {
            lv2_atom_forge_object(&forge, &frame, 0, features.Map(LV2_PATCH__Get));
            lv2_atom_forge_pop(&forge, &frame);
        } else {
            lv2_atom_forge_object(&forge, &frame, 0, features.Map(LV2_PATCH__Set));
            lv2_atom_forge_key(&forge, features.Map(LV2_PATCH__property));
            lv2_atom_forge_urid(&forge, features.Map(kPatchFileUri));
            lv2_atom_forge_key(&forge, features.Map(LV2_PATCH__value));
            lv2_atom_forge_path(&forge, e->patchFile.c_str(), uint32_t(e->patchFile.size()));
            lv2_atom_forge_pop(&forge, &frame);
        }
    }
    lv2_atom_forge_pop(&forge, &sequence);
    // The notify port offers its whole buffer, as a host does before each run.
    auto* out = reinterpret_cast<LV2_Atom_Sequence*>(notify.data());
    out->atom.type = features.Map(LV2_ATOM__Chunk);
    out->atom.size = uint32_t(kAtomBufferBytes - sizeof(LV2_Atom));
    if (aroundRun) aroundRun(true);
    descriptor->run(handle, n);
    if (aroundRun) aroundRun(false);
    const auto* worker = static_cast<const LV2_Worker_Interface*>(Extension(LV2_WORKER__interface));
    if (worker) features.RunWork(handle, worker);
}

Stereo Driver::Render(uint32_t frames, uint32_t blockSize, const std::vector<Event>& events,
                      const Stereo* input) {
    Stereo result;
    result.left.reserve(frames);
    result.right.reserve(frames);
    blockSize = std::clamp<uint32_t>(blockSize, 1, kMaxBlock);
    for (uint32_t start = 0; start < frames; start += blockSize) {
        const uint32_t n = std::min(blockSize, frames - start);
        std::vector<const Event*> inBlock;
        for (const Event& e : events)
            if (e.frame >= int64_t(start) && e.frame < int64_t(start + n)) inBlock.push_back(&e);
        std::stable_sort(inBlock.begin(), inBlock.end(),
                         [](const Event* a, const Event* b) { return a->frame < b->frame; });
        if (isEffect) {
            for (uint32_t i = 0; i < n; ++i) {
                inLeft[i] = input && start + i < input->left.size() ? input->left[start + i] : 0.0f;
                inRight[i] = input && start + i < input->right.size() ? input->right[start + i] : 0.0f;
            }
        }
        RunBlock(n, inBlock, start);
        result.left.insert(result.left.end(), outLeft.begin(), outLeft.begin() + n);
        result.right.insert(result.right.end(), outRight.begin(), outRight.begin() + n);
    }
    return result;
}

void Driver::LoadPatch(const std::string& path) {
    Event set;
    set.patchFile = path;
    // The first block schedules the load and the worker builds the machine after it; the
    // second block takes it.
    Render(64, 64, {set});
    Render(64, 64);
}

std::vector<std::string> Driver::NotifiedFiles() {
    std::vector<std::string> files;
    const auto* sequence = reinterpret_cast<const LV2_Atom_Sequence*>(notify.data());
    if (sequence->atom.type != features.Map(LV2_ATOM__Sequence)) return files;
    LV2_ATOM_SEQUENCE_FOREACH(sequence, event) {
        if (event->body.type != features.Map(LV2_ATOM__Object)) continue;
        const auto* object = reinterpret_cast<const LV2_Atom_Object*>(&event->body);
        if (object->body.otype != features.Map(LV2_PATCH__Set)) continue;
        const LV2_Atom* value = nullptr;
        lv2_atom_object_get(object, features.Map(LV2_PATCH__value), &value, 0);
        if (value && value->type == features.Map(LV2_ATOM__Path))
            files.emplace_back(static_cast<const char*>(LV2_ATOM_BODY_CONST(value)));
    }
    return files;
}

namespace {

LV2_State_Status StoreValue(LV2_State_Handle handle, uint32_t key, const void* value, size_t size,
                            uint32_t type, uint32_t) {
    auto* stored = static_cast<std::vector<Driver::Stored>*>(handle);
    const auto* bytes = static_cast<const uint8_t*>(value);
    stored->push_back({key, type, std::vector<uint8_t>(bytes, bytes + size)});
    return LV2_STATE_SUCCESS;
}

const void* RetrieveValue(LV2_State_Handle handle, uint32_t key, size_t* size, uint32_t* type,
                          uint32_t* flags) {
    const auto* values = static_cast<const std::vector<Driver::Stored>*>(handle);
    for (const Driver::Stored& v : *values) {
        if (v.key != key) continue;
        *size = v.value.size();
        *type = v.type;
        *flags = LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE;
        // An empty value is still a value: never answer it with null.
        static const uint8_t kNothing = 0;
        return v.value.empty() ? &kNothing : v.value.data();
    }
    return nullptr;
}

}  // namespace

std::vector<Driver::Stored> Driver::SaveState() {
    std::vector<Stored> stored;
    const auto* state = static_cast<const LV2_State_Interface*>(Extension(LV2_STATE__interface));
    if (state)
        state->save(handle, StoreValue, &stored, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, features.List());
    return stored;
}

LV2_State_Status Driver::RestoreState(const std::vector<Stored>& values) {
    const auto* state = static_cast<const LV2_State_Interface*>(Extension(LV2_STATE__interface));
    if (!state) return LV2_STATE_ERR_NO_FEATURE;
    return state->restore(handle, RetrieveValue, const_cast<std::vector<Stored>*>(&values), 0,
                          features.List());
}

// [Measurements]

double MeasureHz(const std::vector<float>& samples, size_t from, size_t to, double sampleRate) {
    to = std::min(to, samples.size());
    double first = -1.0, last = -1.0;
    int crossings = 0;
    for (size_t i = from + 1; i < to; ++i) {
        if (samples[i - 1] < 0.0f && samples[i] >= 0.0f) {
            const double t = double(i - 1) + samples[i - 1] / double(samples[i - 1] - samples[i]);
            if (first < 0) first = t;
            last = t;
            ++crossings;
        }
    }
    return crossings < 2 ? 0.0 : (crossings - 1) * sampleRate / (last - first);
}

long FirstAbove(const std::vector<float>& samples, size_t from, float threshold) {
    for (size_t i = from; i < samples.size(); ++i)
        if (std::fabs(samples[i]) > threshold) return long(i);
    return -1;
}

double Rms(const std::vector<float>& samples, size_t from, size_t to) {
    to = std::min(to, samples.size());
    double sum = 0.0;
    for (size_t i = from; i < to; ++i) sum += double(samples[i]) * samples[i];
    return to > from ? std::sqrt(sum / double(to - from)) : 0.0;
}

}  // namespace lv2test
