// Test blocks that record how the engine drives them, and a factory that makes them.
#pragma once

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>
#include <vector>

#include "engine/vrok_instance.h"

namespace probe {

// Probe factory types. 13 and 28 are real external knob numbers, so the engine's knob
// bookkeeping can be seen.
enum Type : int {
    kPolySource = 100,  // polyphonic whatever feeds it, like an oscillator
    kMonoSource = 101,  // never polyphonic, like a knob
    kPass = 102,        // polyphonic when its input is, like an amplifier
    kOutput = 103,      // ends a chain
    kWide = 104,        // a pass block with 700 ports, for wire-limit tests
    kExtKnob0 = 13,
    kExtKnob4 = 28,
};

struct Call {
    std::string what;  // "Work", "SetNote", "NoteOn", "NoteOff", "Reset"
    int slot, voice;
    float value;
};

// Every probe appends to this list; tests clear it.
inline std::vector<Call>& Calls() {
    static std::vector<Call> calls;
    return calls;
}

class ProbeBlock : public CAudioBlock {
public:
    ProbeBlock(VrokInstance* engine, float rate, int probeType) : CAudioBlock(engine, rate), probeType(probeType) {
        hasAudioInput = true;
        isOutput = probeType == kOutput;
        Configure(1, probeType == kWide ? 700 : 2, kCategoryModifiers, "Probe");
        DefineParameter(0, "Level", ParamKind::Knob);
        values[0] = 1.0f;
    }

    bool IsPolyphonic(bool inputPolyphonic) override {
        return probeType == kPolySource || ((probeType == kPass || probeType == kWide) && inputPolyphonic);
    }
    std::string DescribeValue(int, float) override { return {}; }
    void SetNote(float pitch, float, int voice) override { Calls().push_back({"SetNote", index, voice, pitch}); }
    void NoteOn(int velocity, int voice) override { Calls().push_back({"NoteOn", index, voice, float(velocity)}); }
    void NoteOff(int voice) override { Calls().push_back({"NoteOff", index, voice, 0}); }
    void Reset() override { Calls().push_back({"Reset", index, -1, 0}); }

    // Sources write `index + voice` thousandths (or nothing where muted); the others pass port 0 on.
    void Work(int voice, int numSamples) override {
        Calls().push_back({"Work", index, voice, 0});
        const bool source = probeType == kPolySource || probeType == kMonoSource;
        active[voice] = source ? !muted[voice] : PortHasData(0, voice);
        if (!active[voice]) return;
        for (int i = 0; i < numSamples; ++i)
            output[voice][i] = source ? float(index + voice) * 0.001f : ports[0]->Row(voice)[i];
    }

    int probeType;
    bool muted[kMaxVoices] = {};
};

inline CAudioBlock* Factory(VrokInstance& engine, int type, float rate) {
    if ((type < kPolySource || type > kWide) && type != kExtKnob0 && type != kExtKnob4) return nullptr;
    auto* block = new ProbeBlock(&engine, rate, type);
    block->type = type;
    return block;
}

// An engine of probe blocks, with the call list cleared.
class EngineTest : public ::testing::Test {
protected:
    EngineTest() { Calls().clear(); }
    int Add(int type) {
        int slot = -1;
        engine.InsertBlock(type, -1, &slot);
        return slot;
    }
    ProbeBlock& At(int slot) { return *static_cast<ProbeBlock*>(engine.blocks[slot]); }
    // An output whose OutputWork is on, so the graph runs (the probe mixes nothing).
    int WorkingOutput() {
        int out = Add(kOutput);
        At(out).hasOutputWork = true;
        return out;
    }
    // Wires each block into port 0 of the next and rebuilds the order.
    void Chain(std::initializer_list<int> slots) {
        for (auto it = slots.begin(); it + 1 != slots.end(); ++it) engine.Connect(it[0], it[1], 0);
        engine.RebuildOrder();
    }
    static std::vector<Call> CallsOf(const std::string& what, int slot) {
        std::vector<Call> out;
        for (const Call& c : Calls())
            if (c.what == what && c.slot == slot) out.push_back(c);
        return out;
    }
    static std::vector<int> VoicesOf(const std::string& what, int slot) {
        std::vector<int> voices;
        for (const Call& c : CallsOf(what, slot)) voices.push_back(c.voice);
        return voices;
    }
    VrokInstance engine{Factory};
};

}  // namespace probe
