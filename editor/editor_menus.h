// The editor's menus: command ids, the captions of the block-creating entries, and the menu
// trees built from the block type table, so a type that joins the table appears in the menus
// without a change here.
#pragma once

#include <string>

namespace G {
class MenuItem;
}

namespace editor {

enum Command : int {
    kCommandClear = 0x2001,
    kCommandLoad = 0x2002,
    kCommandSave = 0x2003,
    kCommandUndo = 0x2004,
    kCommandRedo = 0x2005,
    kCommandHelp = 0x2006,
    kCommandWiki = 0x2007,
};

// A block-creating id carries its class in these bits; insert commands take only these two.
constexpr int kModifierBit = 0x200;
constexpr int kAnalyserBit = 0x4000;
// "External Knob" leads to eight ids, one per knob.
constexpr int kFirstExternalKnobId = 0x807;
constexpr int kLastExternalKnobId = 0x80E;

constexpr const char* kWikiAddress = "https://github.com/vrok-synth/vrok/wiki";

enum class Submenu { Generate, Control, Modify, Output, Analyse };

// Appends the block entries of `submenu` to `menu`: every entry whose block type can be made,
// under its menu caption (or the type's display name when it has none).
void AddBlockEntries(G::MenuItem& menu, Submenu submenu);
// The whole right-click menu of the canvas.
void BuildCanvasMenu(G::MenuItem& menu);
// The block type a menu id creates, or -1.
int BlockTypeForMenuId(int id);

}  // namespace editor
