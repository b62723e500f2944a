// Which window shows a block type. Types without a GUI of their own get BasicBlockGui; a GUI of
// its own is added to the table in block_gui_table.cpp, or registered at run time by type.
#pragma once

#include <functional>

class PatchBlock;

namespace editor {

class VrokBlockWindow;
class VrokDocWindow;

using BlockGuiFactory = std::function<VrokBlockWindow*(VrokDocWindow* canvas, PatchBlock* patchBlock)>;

// Tried before the table; replaces an earlier registration of the same type.
void RegisterBlockGui(int type, BlockGuiFactory factory);
// The window for the block's type, not yet built or added to the canvas.
VrokBlockWindow* CreateBlockGui(VrokDocWindow* canvas, PatchBlock* patchBlock);

}  // namespace editor
