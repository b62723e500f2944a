// Menu trees of the editor. Captions are keyed by palette code; which entries exist, and which
// type each creates, comes from the block type table.
#include "editor/editor_menus.h"

#include <span>

#include "document/block_types.h"
#include "engine/vrok_instance.h"
#include "g/menu.h"

namespace editor {
namespace {

struct Entry {
    int id;
    const char* caption;
};

// Menu order and captions. "Envelope Trigger" under "Modify" carries the follower's id, and both
// lists hold 0x812 and 0x813; those ids lack the modifier bit, so they insert nothing from an
// "Insert Modifier" menu. That is how the menus have always been.
constexpr Entry kGenerate[] = {
    {0x101, "Oscillator"},      {0x102, "Sub Oscillator"},   {0x103, "Fixed Oscillator"},
    {0x104, "Noise"},           {0x105, "Hyper Oscillator"}, {0x106, "Impulse"},
    {0x107, "Sync Oscillator"}, {0x108, "PWM Oscillator"},   {0x109, "Input"},
    {0x10A, "Stereo Input"},    {0x10B, "Simple Sampler"},
};
constexpr int kExternalKnobMenuId = 0x828;
constexpr Entry kControl[] = {
    {0x801, "Envelope"},
    {0x802, "LFO"},
    {0x803, "Custom Envelope"},
    {0x804, "Knob"},
    {0x805, "Velocity"},
    {0x806, "Keytrack"},
    {kExternalKnobMenuId, "External Knob"},
    {0x80F, "Random"},
    {0x810, "Aftertouch"},
    {0x811, "ModWheel"},
    {0x812, "Envelope Follower"},
    {0x813, "Dynamics Follower"},
    {0x814, "Advanced Envelope"},
};
constexpr Entry kModify[] = {
    {0x201, "Filter"},           {0x202, "Delay"},
    {0x203, "Tracked Delay"},    {0x204, "FilterDelay"},
    {0x205, "Waveshaper"},       {0x206, "Amplifier"},
    {0x207, "Invert"},           {0x208, "Rescale"},
    {0x209, "Bitcrusher"},       {0x20A, "Clipper"},
    {0x20B, "VU Tracker"},       {0x20C, "Crossfade"},
    {0x812, "Envelope Trigger"}, {0x813, "Dynamics Follower"},
    {0x20E, "Filter 2"},         {0x20F, "3 band eq"},
    {0x210, "Formant"},
};
constexpr Entry kOutput[] = {
    {0x1001, "Output"},
    {0x1002, "Stereo Output"},
    {0x1006, "Arpeggiator"},
    {0x1008, "AudioTrigger"},
};
constexpr Entry kAnalyse[] = {{0x4001, "Scope"}};

// Palette code high bytes of each submenu, for types that have no caption above.
int PaletteMenuOf(Submenu submenu) {
    switch (submenu) {
        case Submenu::Generate:
            return kPaletteGenerators;
        case Submenu::Control:
            return kPaletteControllers;
        case Submenu::Modify:
            return kPaletteModifiers;
        case Submenu::Output:
            return kPaletteOutputs;
        case Submenu::Analyse:
            return kPaletteDisplays;
    }
    return 0;
}

std::span<const Entry> EntriesOf(Submenu submenu) {
    switch (submenu) {
        case Submenu::Generate:
            return kGenerate;
        case Submenu::Control:
            return kControl;
        case Submenu::Modify:
            return kModify;
        case Submenu::Output:
            return kOutput;
        case Submenu::Analyse:
            return kAnalyse;
    }
    return {};
}

bool CanMake(int type) {
    const BlockType* row = FindBlockType(type);
    return row && row->create;
}

bool HasCaption(int paletteCode) {
    for (Submenu s :
         {Submenu::Generate, Submenu::Control, Submenu::Modify, Submenu::Output, Submenu::Analyse})
        for (const Entry& e : EntriesOf(s))
            if (e.id == paletteCode) return true;
    return false;
}

// The external knob types in knob order.
int ExternalKnobType(int knob) { return knob < 4 ? 13 + knob : 28 + knob - 4; }

void AddExternalKnobs(G::MenuItem& menu) {
    G::MenuItem* sub = nullptr;
    for (int knob = 0; knob < kNumExtKnobs; ++knob) {
        if (!CanMake(ExternalKnobType(knob))) continue;
        if (!sub) sub = menu.Add(kExternalKnobMenuId, "External Knob");
        sub->Add(kFirstExternalKnobId + knob, "External " + std::to_string(knob + 1));
    }
}

std::string MenuName(const char* displayName) {
    std::string name = displayName;
    while (!name.empty() && name.front() == '|') name.erase(name.begin());
    return name;
}

}  // namespace

int BlockTypeForMenuId(int id) {
    if (id >= kFirstExternalKnobId && id <= kLastExternalKnobId)
        return ExternalKnobType(id - kFirstExternalKnobId);
    for (const BlockType& row : BlockTypes())
        if (row.paletteCode == id && id > 0) return row.type;
    return -1;
}

void AddBlockEntries(G::MenuItem& menu, Submenu submenu) {
    for (const Entry& e : EntriesOf(submenu)) {
        if (e.id == kExternalKnobMenuId) {
            AddExternalKnobs(menu);
        } else if (CanMake(BlockTypeForMenuId(e.id))) {
            menu.Add(e.id, e.caption);
        }
    }
    // Types with a palette code of this submenu that no caption names yet.
    for (const BlockType& row : BlockTypes()) {
        if (row.paletteCode <= 0 || (row.paletteCode >> 8) != PaletteMenuOf(submenu)) continue;
        if (!row.create || HasCaption(row.paletteCode)) continue;
        menu.Add(row.paletteCode, MenuName(row.displayName));
    }
}

void BuildCanvasMenu(G::MenuItem& menu) {
    const std::pair<Submenu, const char*> submenus[] = {{Submenu::Generate, "Generate"},
                                                        {Submenu::Control, "Control"},
                                                        {Submenu::Modify, "Modify"},
                                                        {Submenu::Output, "Output"},
                                                        {Submenu::Analyse, "Analyse"}};
    for (auto [submenu, caption] : submenus) {
        // A submenu with nothing to make would show as an entry that does nothing: left out.
        G::MenuItem probe(0, caption);
        AddBlockEntries(probe, submenu);
        if (!probe.children.empty()) AddBlockEntries(*menu.Add(0, caption), submenu);
    }
    G::MenuItem* patch = menu.Add(0, "Patch");
    patch->Add(kCommandClear, "Clear (shift-N)");
    patch->Add(kCommandLoad, "Load");
    patch->Add(kCommandSave, "Save");
    menu.Add(kCommandUndo, "Undo (shift-Z)");
    menu.Add(kCommandRedo, "Redo (shift-Y)");
    menu.Add(kCommandHelp, "Help");
}

}  // namespace editor
