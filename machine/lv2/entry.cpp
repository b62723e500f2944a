// The library's one export: the LV2 descriptors of the instrument and the effect, with the
// state, worker and options interfaces.
#include <lv2/core/lv2.h>
#include <lv2/options/options.h>
#include <lv2/state/state.h>
#include <lv2/worker/worker.h>

#include <cstring>
#include <new>

#include "machine/lv2/vrok_plugin.h"

namespace {

lv2::Plugin* Of(LV2_Handle handle) { return static_cast<lv2::Plugin*>(handle); }

template <lv2::Kind kind>
LV2_Handle Instantiate(const LV2_Descriptor*, double rate, const char*, const LV2_Feature* const* features) {
    // Nothing may escape into the host: a failed allocation is a failed instantiation.
    lv2::Plugin* plugin = nullptr;
    try {
        plugin = new lv2::Plugin(kind, rate, features);
    } catch (...) {
        return nullptr;
    }
    if (!plugin->Valid()) {
        delete plugin;
        return nullptr;
    }
    return plugin;
}

void Connect(LV2_Handle handle, uint32_t port, void* data) { Of(handle)->Connect(port, data); }
void Activate(LV2_Handle handle) { Of(handle)->Activate(); }
void Run(LV2_Handle handle, uint32_t numFrames) { Of(handle)->Run(numFrames); }
void Deactivate(LV2_Handle handle) { Of(handle)->Deactivate(); }
void Cleanup(LV2_Handle handle) { delete Of(handle); }

LV2_State_Status Save(LV2_Handle handle, LV2_State_Store_Function store, LV2_State_Handle state, uint32_t,
                      const LV2_Feature* const* features) {
    try {
        return Of(handle)->Save(store, state, features);
    } catch (...) {
        return LV2_STATE_ERR_UNKNOWN;
    }
}

LV2_State_Status Restore(LV2_Handle handle, LV2_State_Retrieve_Function retrieve, LV2_State_Handle state,
                         uint32_t, const LV2_Feature* const* features) {
    try {
        return Of(handle)->Restore(retrieve, state, features);
    } catch (...) {
        return LV2_STATE_ERR_UNKNOWN;
    }
}

LV2_Worker_Status Work(LV2_Handle handle, LV2_Worker_Respond_Function respond,
                       LV2_Worker_Respond_Handle respondTo, uint32_t size, const void* data) {
    try {
        return Of(handle)->Work(respond, respondTo, size, data);
    } catch (...) {
        return LV2_WORKER_ERR_UNKNOWN;
    }
}

// The worker hands new machines over through the plug-in's own slot, so it never answers.
LV2_Worker_Status WorkResponse(LV2_Handle, uint32_t, const void*) { return LV2_WORKER_SUCCESS; }

uint32_t GetOptions(LV2_Handle handle, LV2_Options_Option* options) {
    return Of(handle)->GetOptions(options);
}
uint32_t SetOptions(LV2_Handle handle, const LV2_Options_Option* options) {
    return Of(handle)->SetOptions(options);
}

const void* ExtensionData(const char* uri) {
    static const LV2_State_Interface state = {Save, Restore};
    static const LV2_Worker_Interface worker = {Work, WorkResponse, nullptr};
    static const LV2_Options_Interface options = {GetOptions, SetOptions};
    if (std::strcmp(uri, LV2_STATE__interface) == 0) return &state;
    if (std::strcmp(uri, LV2_WORKER__interface) == 0) return &worker;
    if (std::strcmp(uri, LV2_OPTIONS__interface) == 0) return &options;
    return nullptr;
}

const LV2_Descriptor kDescriptors[] = {
    {lv2::kInstrumentUri, Instantiate<lv2::Kind::Instrument>, Connect, Activate, Run, Deactivate, Cleanup,
     ExtensionData},
    {lv2::kEffectUri, Instantiate<lv2::Kind::Effect>, Connect, Activate, Run, Deactivate, Cleanup,
     ExtensionData},
};

}  // namespace

LV2_SYMBOL_EXPORT const LV2_Descriptor* lv2_descriptor(uint32_t index) {
    return index < sizeof kDescriptors / sizeof kDescriptors[0] ? &kDescriptors[index] : nullptr;
}
