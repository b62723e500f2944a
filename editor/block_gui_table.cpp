// The type-to-GUI table. Every type uses BasicBlockGui until its own GUI joins the table below.
#include "editor/block_gui_table.h"

#include <array>
#include <map>

#include "document/patch_records.h"
#include "editor/vrok_block_window.h"
#include "engine/audio_block.h"

namespace editor {
namespace {

struct GuiRow {
    int type;
    VrokBlockWindow* (*create)(VrokDocWindow* canvas, PatchBlock* patchBlock);
};

// Block GUIs of their own, by type number: the drawn editors and the displays join here.
constexpr std::array<GuiRow, 0> kBlockGuis{};

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
