// VrokDocWindow: the manual beside the canvas, and which article it shows.
#include "document/block_types.h"
#include "document/patch_records.h"
#include "editor/vrok_block_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/audio_block.h"
#include "help/help_display.h"
#include "help/help_display_top_bar.h"

namespace editor {

bool VrokDocWindow::ManualVisible() const { return helpDisplay && helpDisplay->visible; }

void VrokDocWindow::ToggleManual() {
    if (!helpDisplay || !helpTopBar) return;
    if (ManualVisible()) {
        helpDisplay->Hide();
        helpTopBar->Hide();
    } else {
        helpDisplay->Show();
        helpTopBar->Show();
        helpDisplay->Navigate("Default");
    }
    if (manualToggled) manualToggled();
}

void VrokDocWindow::ShowManualPage(std::string_view key) {
    if (ManualVisible()) helpDisplay->Navigate(key);
}

void VrokDocWindow::ShowBlockHelp(const VrokBlockWindow* window) {
    if (!ManualVisible() || !window->patchBlock) return;
    const PatchBlock& patchBlock = *window->patchBlock;
    const BlockType* row = FindBlockType(patchBlock.block ? patchBlock.block->type : patchBlock.type);
    if (row && row->displayName) helpDisplay->ShowBlock(row->displayName, row->type);
}

}  // namespace editor
