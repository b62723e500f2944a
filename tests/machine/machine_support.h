// Patches shared by the machine tests.
#pragma once

#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/fake_host.h"
#include "machine/machine.h"

namespace fake {

constexpr int kOutputType = 0;
constexpr int kOscType = 4;
constexpr int kInputType = 49;

// A sine oscillator into an output. With its amplitude port unwired the oscillator sounds
// on every voice, note or not.
inline void MakeSinePatch(VrokDoc& doc) {
    doc.ClearAll();
    PatchBlock* osc = doc.AddBlock(kOscType, -1, 10, 10);
    PatchBlock* out = doc.AddBlock(kOutputType, -1, 120, 10);
    doc.SetParameter(osc, 2, 0.0f);  // Waveform: sine
    doc.AddConnection(osc, out, 0);
}

// The host's input straight into an output, both at full volume.
inline void MakeInputPatch(VrokDoc& doc) {
    doc.ClearAll();
    PatchBlock* in = doc.AddBlock(kInputType, -1, 10, 10);
    PatchBlock* out = doc.AddBlock(kOutputType, -1, 120, 10);
    doc.SetParameter(in, 0, 1.0f);
    doc.SetParameter(out, 0, 1.0f);
    doc.AddConnection(in, out, 0);
}

inline VrokInstance& Engine(mi& machine) { return *machine.document->engine; }

}  // namespace fake
