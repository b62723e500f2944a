// The LV2 adapter: features, the patch hand-over, the block loop, events, state, worker.
// Index: [SECTION] helpers, life cycle, patch hand-over, audio, events, state, worker and
// options, host callbacks.
#include "machine/lv2/vrok_plugin.h"

#include <lv2/atom/util.h>
#include <lv2/midi/midi.h>
#include <lv2/parameters/parameters.h>
#include <lv2/patch/patch.h>
#include <lv2/time/time.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "fx/arpeggiator.h"
#include "machine/patch_folder.h"

namespace lv2 {

// [SECTION] helpers

namespace {

constexpr int kDefaultRate = 44100;
// Rates outside this range are taken for a host's mistake and refused.
constexpr double kMinRate = 1000.0;
constexpr double kMaxRate = 768000.0;
constexpr double kMinBpm = 1.0;
constexpr double kMaxBpm = 1000.0;
// A patch path longer than this is not sent to the worker.
constexpr uint32_t kMaxPathBytes = 4096;

bool IsUsableRate(double rate) { return std::isfinite(rate) && rate >= kMinRate && rate <= kMaxRate; }

// The saved state as the machine reads it.
class BytesInput : public machine::DataInput {
public:
    BytesInput(const void* data, size_t size) : data(static_cast<const uint8_t*>(data)), size(size) {}
    bool Read(void* buffer, int numBytes) override {
        if (numBytes < 0 || size_t(numBytes) > size - offset) return false;
        std::memcpy(buffer, data + offset, size_t(numBytes));
        offset += size_t(numBytes);
        return true;
    }

private:
    const uint8_t* data;
    size_t size;
    size_t offset = 0;
};

class StringOutput : public machine::DataOutput {
public:
    void Write(const void* buffer, int numBytes) override {
        if (numBytes > 0) bytes.append(static_cast<const char*>(buffer), size_t(numBytes));
    }
    std::string bytes;
};

}  // namespace

Uris::Uris(LV2_URID_Map* map) {
    auto m = [map](const char* uri) { return map->map(map->handle, uri); };
    atomBlank = m(LV2_ATOM__Blank);
    atomObject = m(LV2_ATOM__Object);
    atomChunk = m(LV2_ATOM__Chunk);
    atomPath = m(LV2_ATOM__Path);
    atomFloat = m(LV2_ATOM__Float);
    atomDouble = m(LV2_ATOM__Double);
    atomInt = m(LV2_ATOM__Int);
    atomLong = m(LV2_ATOM__Long);
    atomUrid = m(LV2_ATOM__URID);
    atomSequence = m(LV2_ATOM__Sequence);
    atomEventTransfer = m(LV2_ATOM__eventTransfer);
    midiEvent = m(LV2_MIDI__MidiEvent);
    timePosition = m(LV2_TIME__Position);
    timeBeatsPerMinute = m(LV2_TIME__beatsPerMinute);
    timeSpeed = m(LV2_TIME__speed);
    timeBarBeat = m(LV2_TIME__barBeat);
    patchSet = m(LV2_PATCH__Set);
    patchGet = m(LV2_PATCH__Get);
    patchProperty = m(LV2_PATCH__property);
    patchValue = m(LV2_PATCH__value);
    paramSampleRate = m(LV2_PARAMETERS__sampleRate);
    patchState = m(kPatchStateUri);
    patchFile = m(kPatchFileUri);
}

namespace {

// A number atom of any width, false for anything else.
bool AtomNumber(const Uris& uris, const LV2_Atom* atom, double& value) {
    if (!atom) return false;
    if (atom->type == uris.atomFloat && atom->size >= sizeof(float))
        value = reinterpret_cast<const LV2_Atom_Float*>(atom)->body;
    else if (atom->type == uris.atomDouble && atom->size >= sizeof(double))
        value = reinterpret_cast<const LV2_Atom_Double*>(atom)->body;
    else if (atom->type == uris.atomInt && atom->size >= sizeof(int32_t))
        value = reinterpret_cast<const LV2_Atom_Int*>(atom)->body;
    else if (atom->type == uris.atomLong && atom->size >= sizeof(int64_t))
        value = double(reinterpret_cast<const LV2_Atom_Long*>(atom)->body);
    else
        return false;
    return std::isfinite(value);
}

}  // namespace

// [SECTION] life cycle

Plugin::Plugin(Kind kind, double rate, const LV2_Feature* const* features)
    : kind(kind), sampleRate(kDefaultRate) {
    LV2_Log_Log* log = nullptr;
    for (int i = 0; features && features[i]; ++i) {
        const LV2_Feature& f = *features[i];
        if (!f.URI) continue;
        if (std::strcmp(f.URI, LV2_URID__map) == 0) map = static_cast<LV2_URID_Map*>(f.data);
        if (std::strcmp(f.URI, LV2_WORKER__schedule) == 0)
            schedule = static_cast<LV2_Worker_Schedule*>(f.data);
        if (std::strcmp(f.URI, LV2_LOG__log) == 0) log = static_cast<LV2_Log_Log*>(f.data);
    }
    if (!map) {
        privateMap = {this, &Plugin::MapPrivately};
        map = &privateMap;
    }
    lv2_log_logger_init(&logger, map, log);
    std::fill(std::begin(knobValues), std::end(knobValues), std::numeric_limits<float>::quiet_NaN());
    if (IsUsableRate(rate))
        sampleRate.store(int(std::lround(rate)));
    else
        lv2_log_warning(&logger, "Vrok: sample rate %g is unusable; running at %d Hz\n", rate, kDefaultRate);
    uris = std::make_unique<Uris>(map);
    lv2_atom_forge_init(&forge, map);
    current = NewPatch(true).release();
    valid = true;
}

Plugin::~Plugin() {
    delete pending.exchange(nullptr);
    delete retired.exchange(nullptr);
    delete current;
}

LV2_URID Plugin::MapPrivately(LV2_URID_Map_Handle handle, const char* uri) {
    auto& uris = static_cast<Plugin*>(handle)->privateUris;
    const auto found = std::find(uris.begin(), uris.end(), uri);
    if (found != uris.end()) return LV2_URID(found - uris.begin() + 1);
    uris.emplace_back(uri);
    return LV2_URID(uris.size());
}

void Plugin::Connect(uint32_t port, void* data) {
    const uint32_t numPorts = kind == Kind::Effect ? kEffectPorts : kInstrumentPorts;
    if (port >= numPorts) return;
    switch (port) {
        case kPortControl:
            control = static_cast<const LV2_Atom_Sequence*>(data);
            break;
        case kPortNotify:
            notify = static_cast<LV2_Atom_Sequence*>(data);
            break;
        case kPortOutLeft:
            outLeft = static_cast<float*>(data);
            break;
        case kPortOutRight:
            outRight = static_cast<float*>(data);
            break;
        case kPortLatency:
            latency = static_cast<float*>(data);
            break;
        case kPortInLeft:
            inLeft = static_cast<const float*>(data);
            break;
        case kPortInRight:
            inRight = static_cast<const float*>(data);
            break;
        default:
            knobs[port - kPortKnob1] = static_cast<const float*>(data);
            break;
    }
}

void Plugin::Activate() {
    if (!Valid()) return;
    FreeRetired();
    TakePending();
    // A fresh start: the patch built anew from itself (or from the one waiting to play), so
    // no oscillator phase, note, tail or pedal carries over, and the knobs as the ports say.
    StringOutput saved;
    std::string file;
    {
        std::lock_guard guard(swapLock);
        const Patch& latest = Latest();
        latest.machine->Save(&saved);
        file = latest.file;
    }
    auto rebuilt = NewPatch(false);
    BytesInput input(saved.bytes.data(), saved.bytes.size());
    rebuilt->machine->ReloadState(&input);
    rebuilt->file = file;
    Adopt(std::move(rebuilt));
    TakePending();
    FreeRetired();
    ApplyKnobs(true);
}

void Plugin::Deactivate() { FreeRetired(); }

// [SECTION] patch hand-over

std::unique_ptr<Plugin::Patch> Plugin::NewPatch(bool startPatch) {
    auto patch = std::make_unique<Patch>();
    patch->machine = std::make_unique<mi>(static_cast<machine::Host&>(*this));
    patch->machine->Init(nullptr);
    if (!startPatch) return patch;
    const std::string path = machine::FindPatchFile(machine::PatchFolder(), 0);
    if (path.empty()) return patch;
    if (patch->machine->LoadPatchFile(path))
        patch->file = path;
    else
        lv2_log_warning(&logger, "Vrok: %s: not a patch; starting with the built-in patch\n", path.c_str());
    return patch;
}

std::unique_ptr<Plugin::Patch> Plugin::PatchFromFile(const std::string& path) {
    auto patch = NewPatch(false);
    std::vector<LoadProblem> problems;
    if (!patch->machine->LoadPatchFile(path, &problems)) {
        for (const LoadProblem& problem : problems)
            lv2_log_warning(&logger, "Vrok: %s\n", problem.Format().c_str());
        lv2_log_warning(&logger, "Vrok: %s: not a patch; playing the default patch\n", path.c_str());
        return NewPatch(false);
    }
    for (const LoadProblem& problem : problems) lv2_log_note(&logger, "Vrok: %s\n", problem.Format().c_str());
    patch->file = path;
    return patch;
}

void Plugin::Adopt(std::unique_ptr<Patch> patch) {
    std::lock_guard guard(swapLock);
    FreeRetiredLocked();
    delete pending.exchange(patch.release(), std::memory_order_acq_rel);
}

const Plugin::Patch& Plugin::Latest() const {
    // A patch restored but not yet playing is what the host will hear next.
    const Patch* waiting = pending.load(std::memory_order_acquire);
    return waiting ? *waiting : *current;
}

mi& Plugin::PinCurrent() {
    std::lock_guard guard(swapLock);
    pinned.store(current->machine.get(), std::memory_order_release);
    return *current->machine;
}

void Plugin::FreeRetired() {
    std::lock_guard guard(swapLock);
    FreeRetiredLocked();
}

void Plugin::FreeRetiredLocked() {
    Patch* old = retired.load(std::memory_order_acquire);
    // The editor may still show it; it lets go once it has moved to the new machine.
    if (!old || old->machine.get() == pinned.load(std::memory_order_acquire)) return;
    retired.store(nullptr, std::memory_order_release);
    delete old;
}

bool Plugin::TakePending() {
    // One machine set aside at a time: the next waits until the last is freed.
    if (!pending.load(std::memory_order_acquire) || retired.load(std::memory_order_acquire)) return false;
    if (!swapLock.try_lock()) return false;
    Patch* patch = pending.exchange(nullptr, std::memory_order_acq_rel);
    if (patch) {
        retired.store(current, std::memory_order_release);
        current = patch;
        generation.fetch_add(1, std::memory_order_acq_rel);
    }
    swapLock.unlock();
    if (!patch) return false;
    // The new machine has never heard the knobs.
    ApplyKnobs(true);
    return true;
}

// [SECTION] audio

void Plugin::Run(uint32_t numFrames) {
    if (!Valid()) {
        if (outLeft) std::fill_n(outLeft, numFrames, 0.0f);
        if (outRight) std::fill_n(outRight, numFrames, 0.0f);
        return;
    }
    StartNotify();
    if (TakePending()) {
        if (!current->file.empty()) NotifyPatchFile();
        if (schedule) {
            const uint32_t message = kWorkFree;
            schedule->schedule_work(schedule->handle, sizeof message, &message);
        }
    }
    if (latency) *latency = 0.0f;
    // A new rate releases every note: follow it before this block's notes arrive.
    Machine().FollowSampleRate(GetMasterInfo());
    ApplyKnobs(false);
    // Render up to each event, so a note starts at its own frame.
    uint32_t done = 0;
    if (control && control->atom.type == uris->atomSequence) {
        LV2_ATOM_SEQUENCE_FOREACH(control, event) {
            const int64_t frame = std::clamp<int64_t>(event->time.frames, done, numFrames);
            const uint32_t at = uint32_t(frame);
            if (at > done) {
                Render(done, at);
                done = at;
            }
            HandleEvent(*event);
        }
    }
    Render(done, numFrames);
    if (notifying) lv2_atom_forge_pop(&forge, &notifyFrame);
    notifying = false;
}

void Plugin::ApplyKnobs(bool force) {
    for (int k = 0; k < machine::kNumKnobs; ++k) {
        if (!knobs[k] || !std::isfinite(*knobs[k])) continue;
        const float value = std::clamp(*knobs[k], 0.0f, kKnobMax);
        if (!force && value == knobValues[k]) continue;
        knobValues[k] = value;
        Machine().document->SetExternalKnob(k, value / kKnobMax);
    }
}

void Plugin::Render(uint32_t from, uint32_t to) {
    mi& machine = Machine();
    const bool hasInput = kind == Kind::Effect && inLeft && inRight;
    for (uint32_t start = from; start < to; start += kMaxFrames) {
        const uint32_t n = std::min<uint32_t>(kMaxFrames, to - start);
        int mode = kWorkWrite;
        if (hasInput) {
            for (uint32_t i = 0; i < n; ++i) {
                scratch[2 * i] = inLeft[start + i] * kHostScale;
                scratch[2 * i + 1] = inRight[start + i] * kHostScale;
            }
            mode |= kWorkRead;
        } else {
            std::fill_n(scratch, 2 * n, 0.0f);
        }
        machine.Work(scratch, int(n), mode);
        for (uint32_t i = 0; i < n; ++i) {
            if (outLeft) outLeft[start + i] = scratch[2 * i] / kHostScale;
            if (outRight) outRight[start + i] = scratch[2 * i + 1] / kHostScale;
        }
    }
}

// [SECTION] events

void Plugin::HandleEvent(const LV2_Atom_Event& event) {
    if (event.body.type == uris->midiEvent)
        HandleMidi(static_cast<const uint8_t*>(LV2_ATOM_BODY_CONST(&event.body)), event.body.size);
    else if (event.body.type == uris->atomObject || event.body.type == uris->atomBlank)
        HandleObject(*reinterpret_cast<const LV2_Atom_Object*>(&event.body));
}

void Plugin::HandleMidi(const uint8_t* bytes, uint32_t size) {
    if (size < 2) return;
    mi& machine = Machine();
    const int channel = bytes[0] & 0x0F;
    const int data1 = bytes[1] & 0x7F;
    const int data2 = size >= 3 ? bytes[2] & 0x7F : 0;
    switch (bytes[0] & 0xF0) {
        case LV2_MIDI_MSG_NOTE_ON:
            if (size >= 3) machine.MidiNote(channel, data1, data2);
            break;
        case LV2_MIDI_MSG_NOTE_OFF:
            if (size >= 3) machine.MidiNote(channel, data1, 0);
            break;
        case LV2_MIDI_MSG_CONTROLLER:
            if (size >= 3) machine.MidiControlChange(channel, data1, data2);
            break;
        case LV2_MIDI_MSG_CHANNEL_PRESSURE:
            machine.MidiChannelPressure(channel, data1);
            break;
        // The engine keeps one pressure; a key's own pressure moves it too.
        case LV2_MIDI_MSG_NOTE_PRESSURE:
            if (size >= 3) machine.MidiChannelPressure(channel, data2);
            break;
        case LV2_MIDI_MSG_BENDER:
            if (size >= 3) machine.MidiPitchBend(channel, data2 << 7 | data1);
            break;
        default:
            break;
    }
}

void Plugin::HandleObject(const LV2_Atom_Object& object) {
    if (object.body.otype == uris->timePosition) {
        const LV2_Atom *bpm = nullptr, *speed = nullptr, *barBeat = nullptr;
        lv2_atom_object_get(&object, uris->timeBeatsPerMinute, &bpm, uris->timeSpeed, &speed,
                            uris->timeBarBeat, &barBeat, 0);
        double value = 0.0, rolling = 0.0, beat = 0.0;
        if (AtomNumber(*uris, bpm, value)) beatsPerMinute.store(std::clamp(value, kMinBpm, kMaxBpm));
        // The host sends a position when it starts, seeks or loops: steps fall on its grid.
        if (AtomNumber(*uris, speed, rolling) && rolling != 0.0 && AtomNumber(*uris, barBeat, beat) &&
            beat >= 0.0)
            AlignArpeggiator(beat);
    } else if (object.body.otype == uris->patchGet) {
        NotifyPatchFile();
    } else if (object.body.otype == uris->patchSet) {
        const LV2_Atom* property = nullptr;
        const LV2_Atom* value = nullptr;
        lv2_atom_object_get(&object, uris->patchProperty, &property, uris->patchValue, &value, 0);
        if (!property || property->type != uris->atomUrid ||
            reinterpret_cast<const LV2_Atom_URID*>(property)->body != uris->patchFile)
            return;
        if (!value || value->type != uris->atomPath || value->size == 0 || value->size > kMaxPathBytes) {
            lv2_log_warning(&logger, "Vrok: patch file message without a usable path ignored\n");
            return;
        }
        if (!schedule) {
            lv2_log_warning(&logger, "Vrok: this host has no worker; cannot load a patch file\n");
            return;
        }
        // Kind, then the path's bytes without the terminator.
        uint8_t message[sizeof(uint32_t) + kMaxPathBytes];
        const uint32_t kindWord = kWorkLoad;
        std::memcpy(message, &kindWord, sizeof kindWord);
        const char* path = static_cast<const char*>(LV2_ATOM_BODY_CONST(value));
        const uint32_t length = uint32_t(strnlen(path, value->size));
        std::memcpy(message + sizeof kindWord, path, length);
        schedule->schedule_work(schedule->handle, sizeof kindWord + length, message);
    }
}

void Plugin::AlignArpeggiator(double barBeat) {
    VrokInstance& engine = *Machine().document->engine;
    // The editor may delete the arpeggiator; it does so under this lock.
    std::lock_guard guard(engine.lock);
    CGlobalArpeggioBlock* arpeggiator = engine.arpeggiator;
    if (!arpeggiator || !engine.arpeggiatorActive) return;
    const double speed = arpeggiator->speed.load();
    if (!(speed > 0.0)) return;
    // A step is a sixteenth of a four-beat bar at speed 1, as the engine counts it.
    const double stepBeats = 1.0 / (4.0 * speed);
    const double steps = barBeat / stepBeats;
    const double stepSamples = double(sampleRate.load()) * 60.0 / beatsPerMinute.load() * stepBeats;
    arpeggiator->samplesToTick = int((std::ceil(steps) - steps) * stepSamples);
}

void Plugin::StartNotify() {
    notifying = false;
    if (!notify || notify->atom.size < sizeof(LV2_Atom_Sequence)) return;
    lv2_atom_forge_set_buffer(&forge, reinterpret_cast<uint8_t*>(notify), notify->atom.size);
    notifying = lv2_atom_forge_sequence_head(&forge, &notifyFrame, 0) != 0;
}

void Plugin::NotifyPatchFile() {
    if (!notifying || current->file.empty()) return;
    LV2_Atom_Forge_Frame frame;
    if (!lv2_atom_forge_frame_time(&forge, 0)) return;
    if (!lv2_atom_forge_object(&forge, &frame, 0, uris->patchSet)) return;
    lv2_atom_forge_key(&forge, uris->patchProperty);
    lv2_atom_forge_urid(&forge, uris->patchFile);
    lv2_atom_forge_key(&forge, uris->patchValue);
    lv2_atom_forge_path(&forge, current->file.c_str(), uint32_t(current->file.size()));
    lv2_atom_forge_pop(&forge, &frame);
}

// [SECTION] state

LV2_State_Status Plugin::Save(LV2_State_Store_Function store, LV2_State_Handle handle,
                              const LV2_Feature* const*) {
    if (!Valid() || !store) return LV2_STATE_ERR_UNKNOWN;
    StringOutput output;
    {
        std::lock_guard guard(swapLock);
        FreeRetiredLocked();
        Latest().machine->Save(&output);
    }
    return store(handle, uris->patchState, output.bytes.data(), output.bytes.size(), uris->atomChunk,
                 LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE);
}

LV2_State_Status Plugin::Restore(LV2_State_Retrieve_Function retrieve, LV2_State_Handle handle,
                                 const LV2_Feature* const* features) {
    if (!Valid() || !retrieve) return LV2_STATE_ERR_UNKNOWN;
    size_t size = 0;
    uint32_t type = 0, flags = 0;
    const void* data = retrieve(handle, uris->patchState, &size, &type, &flags);
    if (data) {
        auto patch = NewPatch(false);
        BytesInput input(data, size);
        if (type != uris->atomChunk)
            lv2_log_warning(
                &logger, "Vrok: saved state is not a Vrok patch (unknown type); playing the default patch\n");
        else if (!patch->machine->ReloadState(&input))
            lv2_log_warning(&logger,
                            "Vrok: saved state is corrupt or not a Vrok patch; playing the default patch\n");
        Adopt(std::move(patch));
        return LV2_STATE_SUCCESS;
    }
    // A preset may name a patch file instead of carrying the patch.
    data = retrieve(handle, uris->patchFile, &size, &type, &flags);
    if (data && type == uris->atomPath && size > 0) {
        std::string path(static_cast<const char*>(data), strnlen(static_cast<const char*>(data), size));
        for (int i = 0; features && features[i]; ++i) {
            if (!features[i]->URI || std::strcmp(features[i]->URI, LV2_STATE__mapPath) != 0) continue;
            const auto* mapPath = static_cast<const LV2_State_Map_Path*>(features[i]->data);
            if (char* absolute = mapPath->absolute_path(mapPath->handle, path.c_str())) {
                path = absolute;
                std::free(absolute);
            }
        }
        Adopt(PatchFromFile(path));
        return LV2_STATE_SUCCESS;
    }
    // Nothing of ours: a host's empty default state (jalv restores one at start) keeps the
    // patch that is playing.
    lv2_log_note(&logger, "Vrok: restored state holds no patch; keeping the patch\n");
    return LV2_STATE_SUCCESS;
}

// [SECTION] worker and options

LV2_Worker_Status Plugin::Work(LV2_Worker_Respond_Function, LV2_Worker_Respond_Handle, uint32_t size,
                               const void* data) {
    uint32_t kindWord = 0;
    if (!data || size < sizeof kindWord) return LV2_WORKER_ERR_UNKNOWN;
    std::memcpy(&kindWord, data, sizeof kindWord);
    if (kindWord == kWorkFree) {
        FreeRetired();
    } else if (kindWord == kWorkLoad) {
        const std::string path(static_cast<const char*>(data) + sizeof kindWord, size - sizeof kindWord);
        Adopt(PatchFromFile(path));
    } else {
        return LV2_WORKER_ERR_UNKNOWN;
    }
    return LV2_WORKER_SUCCESS;
}

uint32_t Plugin::GetOptions(LV2_Options_Option* options) {
    uint32_t status = 0;
    for (LV2_Options_Option* o = options; o && o->key; ++o) {
        if (o->key != uris->paramSampleRate) {
            status |= LV2_OPTIONS_ERR_BAD_KEY;
            continue;
        }
        rateOption = float(sampleRate.load());
        o->size = sizeof rateOption;
        o->type = uris->atomFloat;
        o->value = &rateOption;
    }
    return status;
}

uint32_t Plugin::SetOptions(const LV2_Options_Option* options) {
    uint32_t status = 0;
    for (const LV2_Options_Option* o = options; o && o->key; ++o) {
        if (o->key != uris->paramSampleRate) {
            status |= LV2_OPTIONS_ERR_BAD_KEY;
            continue;
        }
        LV2_Atom header{o->size, o->type};
        // Number atoms keep their body right after the header; rebuild one to read it.
        alignas(8) uint8_t atom[sizeof(LV2_Atom) + sizeof(double)] = {};
        double rate = 0.0;
        if (o->size > sizeof(double) || !o->value) {
            status |= LV2_OPTIONS_ERR_BAD_VALUE;
            continue;
        }
        std::memcpy(atom, &header, sizeof header);
        std::memcpy(atom + sizeof header, o->value, o->size);
        if (!AtomNumber(*uris, reinterpret_cast<const LV2_Atom*>(atom), rate) || !IsUsableRate(rate)) {
            status |= LV2_OPTIONS_ERR_BAD_VALUE;
            continue;
        }
        // The machine's Work sees the new rate at its next block and rebuilds what depends on it.
        sampleRate.store(int(std::lround(rate)));
    }
    return status;
}

// [SECTION] host callbacks

machine::MasterInfo Plugin::GetMasterInfo() {
    // A tick is one beat; the machine makes a bar of four.
    machine::MasterInfo info;
    info.samplesPerSec = sampleRate.load();
    info.ticksPerBeat = 1;
    info.samplesPerTick = int(double(info.samplesPerSec) * 60.0 / beatsPerMinute.load());
    return info;
}

void Plugin::ControlChange(machine::MachineHandle, int group, int, int parameter, int value) {
    if (group != machine::kGroupGlobal || parameter < 0 || parameter >= machine::kNumKnobs || !knobSink)
        return;
    knobSink->KnobMoved(parameter, std::clamp(float(value), 0.0f, kKnobMax));
}

std::string Plugin::GetMachineName(machine::MachineHandle) {
    return kind == Kind::Instrument ? "[VROK] synth" : "[VROK] fx";
}

}  // namespace lv2
