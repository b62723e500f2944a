// Test blocks that record how the engine drives them, and a factory that makes them.
#pragma once

#include <string>
#include <vector>

#include "engine/vrok_instance.h"

namespace probe {

// Type numbers of the probe factory. 13 and 28 are real external knob numbers so the
// engine's knob bookkeeping can be seen.
enum Type : int {
    kPolySource = 100,  // answers IsPolyphonic with true, like an oscillator
    kMonoSource = 101,  // answers false, like a knob
    kPass = 102,        // answers with its argument, like an amplifier
    kOutput = 103,      // ends a chain
    kWide = 104,        // a pass block with 700 ports, for wire-limit tests
    kExtKnob0 = 13,
    kExtKnob4 = 28,
};

struct Call {
    std::string what;  // "Work", "SetNote", "NoteOn", "NoteOff", "Reset"
    int slot;
    int voice;
    float value;
};

// Every probe appends to this list; tests clear it.
inline std::vector<Call>& Calls() {
    static std::vector<Call> calls;
    return calls;
}

class ProbeBlock : public CAudioBlock {
public:
    ProbeBlock(VrokInstance* engine, float rate, int probeType)
        : CAudioBlock(engine, rate), probeType(probeType) {
        hasAudioInput = true;
        isOutput = probeType == kOutput;
        int portCount = probeType == kWide ? 700 : 2;
        Configure(1, portCount, kCategoryModifiers, "Probe");
        DefineParameter(0, "Level", ParamKind::Knob);
        values[0] = 1.0f;
    }

    bool IsPolyphonic(bool inputPolyphonic) override {
        if (probeType == kPolySource) return true;
        if (probeType == kMonoSource || probeType == kOutput || probeType == kExtKnob0 || probeType == kExtKnob4)
            return false;
        return inputPolyphonic;
    }
    std::string DescribeValue(int, float) override { return {}; }
    void SetNote(float pitch, float, int voice) override { Calls().push_back({"SetNote", index, voice, pitch}); }
    void NoteOn(int velocity, int voice) override { Calls().push_back({"NoteOn", index, voice, float(velocity)}); }
    void NoteOff(int voice) override { Calls().push_back({"NoteOff", index, voice, 0}); }
    void Reset() override { Calls().push_back({"Reset", index, -1, 0}); }

    // Sources write `index + voice` (or silence where muted); the others pass port 0 on.
    void Work(int voice, int numSamples) override {
        Calls().push_back({"Work", index, voice, 0});
        active[voice] = 0;
        bool source = probeType == kPolySource || probeType == kMonoSource;
        if (source) {
            if (muted[voice]) return;
            for (int i = 0; i < numSamples; ++i) output[voice][i] = float(index + voice) * 0.001f;
            active[voice] = 1;
            return;
        }
        if (!PortHasData(0, voice)) return;
        for (int i = 0; i < numSamples; ++i) output[voice][i] = ports[0]->buffer[voice][i];
        active[voice] = 1;
    }

    int probeType;
    bool muted[kMaxVoices] = {};
};

inline CAudioBlock* Factory(VrokInstance& engine, int type, float rate) {
    switch (type) {
        case kPolySource:
        case kMonoSource:
        case kPass:
        case kOutput:
        case kWide:
        case kExtKnob0:
        case kExtKnob4: {
            auto* block = new ProbeBlock(&engine, rate, type);
            block->type = type;
            return block;
        }
        default: return nullptr;
    }
}

inline int Insert(VrokInstance& engine, int type) {
    int slot = -1;
    engine.InsertBlock(type, -1, &slot);
    return slot;
}

inline ProbeBlock& At(VrokInstance& engine, int slot) { return *static_cast<ProbeBlock*>(engine.blocks[slot]); }

inline int Count(const std::string& what, int slot) {
    int n = 0;
    for (const Call& c : Calls())
        if (c.what == what && c.slot == slot) ++n;
    return n;
}

}  // namespace probe
