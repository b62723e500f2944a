// The type-to-GUI table. Every type uses BasicBlockGui until its own GUI joins the table below.
#include "editor/block_gui_table.h"

#include <map>

#include "document/patch_records.h"
#include "editor/curve_editors.h"
#include "editor/display_guis.h"
#include "editor/player_guis.h"
#include "editor/vrok_block_window.h"
#include "engine/audio_block.h"

namespace editor {
namespace {

struct GuiRow {
    int type;
    VrokBlockWindow* (*create)(VrokDocWindow* canvas, PatchBlock* patchBlock);
};

template <class Gui>
VrokBlockWindow* Make(VrokDocWindow* canvas, PatchBlock* patchBlock) {
    return new Gui(canvas, patchBlock);
}

// Block GUIs of their own, by type number: the drawn editors, the players and the displays.
constexpr GuiRow kBlockGuis[] = {
    {0, Make<OutputGui>},             // Output
    {1, Make<FilterGui>},             // Filter
    {2, Make<EnvGui>},                // Envelope
    {5, Make<ScopeGui>},              // Scope
    {8, Make<KnobBlockGui>},          // Knob
    {9, Make<LargeScopeGui>},         // Large Scope
    {11, Make<SpectrumGui>},          // Spectrum
    {12, Make<VuMeterGui>},           // VU-meter
    {22, Make<SpectrumAnalyserGui>},  // Spectrum Analyser
    {23, Make<CustomEnvBlockGui>},    // Custom Envelope
    {24, Make<WaveshaperGui>},        // Waveshaper
    {25, Make<OutputGui>},            // Output with panning
    {33, Make<KeyTrackGui>},          // Keytrack
    {41, Make<VUTrackerGui>},         // VU Tracker
    {44, Make<ArpGui>},               // Arpeggiator
    {51, Make<EnvFollowerGui>},       // EnvTrigger (the envelope follower)
    {52, Make<AudioTriggerGui>},      // Audio Trigger
    {54, Make<DynFollowerGui>},       // Dyn. Follower
    {55, Make<AdvancedEnvBlockGui>},  // Advanced Envelope
    {57, Make<EqGui>},                // Eq
    {58, Make<SimpleSamplerGui>},     // Sampler
};

std::map<int, BlockGuiFactory>& Registered() {
    static std::map<int, BlockGuiFactory> registered;
    return registered;
}

}  // namespace

void RegisterBlockGui(int type, BlockGuiFactory factory) { Registered()[type] = std::move(factory); }

VrokBlockWindow* CreateBlockGui(VrokDocWindow* canvas, PatchBlock* patchBlock) {
    const int type = patchBlock->block ? patchBlock->block->type : -1;
    if (auto it = Registered().find(type); it != Registered().end() && it->second)
        return it->second(canvas, patchBlock);
    for (const GuiRow& row : kBlockGuis)
        if (row.type == type && row.create) return row.create(canvas, patchBlock);
    return new BasicBlockGui(canvas, patchBlock);
}

}  // namespace editor
