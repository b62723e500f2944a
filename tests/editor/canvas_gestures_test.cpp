// Gestures on the canvas, driven through a fake native window: blocks from the menu, wires by
// drag and their refusals, deleting, the rubber band, dragging a selection, duplicating, and
// undo and redo bringing windows and wires back.
#include <gtest/gtest.h>

#include "editor/editor_menus.h"
#include "editor_fixture.h"
#include "g/keys.h"

using namespace editortest;

namespace {

TEST(CanvasMenu, AddsTheChosenBlockAtTheClickAndOffersOnlyTypesThatExist) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 210, 140);
    ASSERT_NE(osc, nullptr);
    EXPECT_EQ(osc->block->type, 4);
    EXPECT_EQ(osc->block->posX, 210);
    EXPECT_EQ(osc->block->posY, 140);
    ASSERT_NE(e.WindowOf(osc), nullptr);
    EXPECT_EQ(e.WindowOf(osc)->bounds.x, 210);
    EXPECT_EQ(e.WindowOf(osc)->bounds.y, 140);
    // The menu was shown at the press, in screen coordinates.
    EXPECT_EQ(e.native->menuX, 210 + e.native->screenX);
    EXPECT_EQ(e.native->menuY, 140 + kTop + e.native->screenY);
    for (const char* item : {"Generate/Oscillator", "Output/Output", "Patch/Clear (shift-N)", "Patch/Save",
                             "Undo (shift-Z)", "Redo (shift-Y)", "Help"}) {
        EXPECT_TRUE(e.native->Offered(item)) << item;
    }
    // Every offered block entry makes a block: types that cannot be made are not offered.
    for (const auto& [path, id] : e.native->offered) {
        if (id < 0x2000) {
            EXPECT_GE(editor::BlockTypeForMenuId(id), 0) << path;
        }
    }

    // A block made by a command with no click before it lands at a random spot near the corner.
    e.Canvas().OnCommand(0x104);
    PatchBlock* noise = e.doc.patchBlocks.back().get();
    EXPECT_EQ(noise->block->type, 7);
    EXPECT_GE(noise->block->posX, 10);
    EXPECT_LT(noise->block->posX, 110);

    // Dismissing the menu makes nothing.
    const size_t blocks = e.doc.patchBlocks.size();
    e.RightClick(400, 300, "");
    EXPECT_EQ(e.doc.patchBlocks.size(), blocks);
}

TEST(CanvasWires, DragFromAnOutputToAnInputWiresThemAndALoopIsRefused) {
    Editor e;
    PatchBlock* a = e.AddFromMenu("Generate/Oscillator", 40, 60);
    PatchBlock* b = e.AddFromMenu("Generate/Oscillator", 300, 60);
    PatchBlock* out = e.AddFromMenu("Output/Output", 560, 60);
    e.Wire(a, b, 1);
    e.Wire(b, out, 0);
    const int sa = a->block->index, sb = b->block->index, so = out->block->index;
    EXPECT_EQ(LiveWires(e.doc), (std::vector<std::tuple<int, int, int>>{{sa, sb, 1}, {sb, so, 0}}));
    EXPECT_EQ(e.Canvas().connectionWindows.size(), 2u);
    EXPECT_FALSE(e.Canvas().IsConnecting());

    // b back into a would close a loop: nothing is made and no undo step is left behind.
    const size_t undo = UndoSteps(e.doc);
    e.Wire(b, a, 0);
    EXPECT_EQ(LiveWires(e.doc).size(), 2u);
    EXPECT_EQ(UndoSteps(e.doc), undo);
    EXPECT_EQ(e.Canvas().connectionWindows.size(), 2u);

    // Click the arrow, then click a port: the same wire as a drag.
    const G::Rect arrow = e.Arrow(a);
    const G::Rect port = e.Port(out, 0);
    e.Click(arrow.x, arrow.y);
    EXPECT_TRUE(e.Canvas().IsConnecting());
    e.Move(400, 300);  // the preview follows
    e.Click(port.x, port.y);
    EXPECT_EQ(LiveWires(e.doc).size(), 3u);
    EXPECT_FALSE(e.Canvas().IsConnecting());

    // From an input port to anywhere on a block with an output works too.
    PatchBlock* c = e.AddFromMenu("Generate/Noise", 300, 300);
    const G::Rect ampPort = e.Port(a, 1);
    e.Drag(ampPort.x, ampPort.y, 340, 320);
    const auto wires = LiveWires(e.doc);
    EXPECT_EQ(wires.size(), 4u);
    EXPECT_NE(std::find(wires.begin(), wires.end(), std::make_tuple(c->block->index, sa, 1)), wires.end());

    // A drag released over empty canvas gives up.
    e.Drag(arrow.x, arrow.y, 700, 400);
    EXPECT_FALSE(e.Canvas().IsConnecting());
    EXPECT_EQ(LiveWires(e.doc).size(), 4u);
}

TEST(CanvasWires, ArrowMenuDisconnectsAndInsertsAModifierInOneStep) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 40, 60);
    PatchBlock* out = e.AddFromMenu("Output/Output", 500, 60);
    e.Wire(osc, out, 0);
    ASSERT_EQ(e.Canvas().connectionWindows.size(), 1u);
    const editor::WireGeometry& wire = e.Canvas().connectionWindows.front()->geometry;
    const float cx = (wire.arrow[0].x + wire.arrow[1].x + wire.arrow[2].x) / 3;
    const float cy = (wire.arrow[0].y + wire.arrow[1].y + wire.arrow[2].y) / 3;
    const size_t undo = UndoSteps(e.doc);
    e.RightClick(int(cx), int(cy), "Disconnect");
    EXPECT_TRUE(e.native->Offered("Disconnect"));
    EXPECT_FALSE(e.native->Offered("Generate/Oscillator")) << "the arrow's own menu, not the canvas menu";
    EXPECT_TRUE(LiveWires(e.doc).empty());
    EXPECT_TRUE(e.Canvas().connectionWindows.empty());
    e.Canvas().Undo();
    EXPECT_EQ(LiveWires(e.doc).size(), 1u);
    EXPECT_EQ(e.Canvas().connectionWindows.size(), 1u);
    EXPECT_EQ(UndoSteps(e.doc), undo);
}

TEST(CanvasSelection, DeleteKeyRemovesSelectedBlocksWithTheirWiresAndUndoBringsAllBack) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 40, 60);
    PatchBlock* out = e.AddFromMenu("Output/Output", 400, 60);
    e.Wire(osc, out, 0);
    const int slot = osc->block->index;
    const G::Rect title = e.Title(osc);
    e.Click(title.x, title.y);
    ASSERT_EQ(e.Canvas().selected.size(), 1u);
    e.Key(G::vk::kDelete);
    EXPECT_EQ(e.doc.patchBlocks.size(), 1u);
    EXPECT_EQ(e.Canvas().blockWindows.size(), 1u);
    EXPECT_TRUE(e.Canvas().connectionWindows.empty());
    EXPECT_TRUE(LiveWires(e.doc).empty());

    e.Key('Z', G::kCtrlDown);  // Ctrl+Z is not an undo
    EXPECT_EQ(e.doc.patchBlocks.size(), 1u);
    e.Key('Z', G::kShiftDown);
    ASSERT_EQ(e.doc.patchBlocks.size(), 2u);
    EXPECT_EQ(e.Canvas().blockWindows.size(), 2u);
    EXPECT_EQ(LiveWires(e.doc).size(), 1u);
    EXPECT_EQ(e.Canvas().connectionWindows.size(), 1u);
    PatchBlock* back = e.doc.FindBlock(slot);
    ASSERT_NE(back, nullptr);
    ASSERT_NE(e.WindowOf(back), nullptr);
    EXPECT_EQ(e.WindowOf(back)->bounds.x, 40);

    e.Key('Y', G::kShiftDown);
    EXPECT_EQ(e.doc.patchBlocks.size(), 1u);
    EXPECT_TRUE(e.Canvas().connectionWindows.empty());
}

TEST(CanvasSelection, RubberBandSelectsWhatItTouchesAndShiftKeepsTheSelection) {
    Editor e;
    PatchBlock* a = e.AddFromMenu("Generate/Oscillator", 40, 60);
    PatchBlock* b = e.AddFromMenu("Generate/Noise", 200, 80);
    PatchBlock* c = e.AddFromMenu("Output/Output", 500, 300);
    e.Drag(20, 40, 220, 100);
    ASSERT_EQ(e.Canvas().selected.size(), 2u);
    EXPECT_TRUE(e.WindowOf(a)->selected && e.WindowOf(b)->selected);
    EXPECT_FALSE(e.WindowOf(c)->selected);
    EXPECT_FALSE(e.Canvas().bandActive);

    e.Drag(480, 280, 520, 320, G::kShiftDown);
    EXPECT_EQ(e.Canvas().selected.size(), 3u);
    // A plain press on empty canvas clears it.
    e.Click(700, 500);
    EXPECT_TRUE(e.Canvas().selected.empty());

    // Shift+click on a selected block deselects it and starts no drag.
    e.Drag(20, 40, 220, 100);
    const G::Rect title = e.Title(a);
    e.Drag(title.x, title.y, title.x + 30, title.y + 30, G::kShiftDown);
    EXPECT_FALSE(e.WindowOf(a)->selected);
    EXPECT_EQ(a->block->posX, 40);
}

TEST(CanvasSelection, DraggingMovesEverySelectedWindowAndMakesOneUndoStep) {
    Editor e;
    PatchBlock* a = e.AddFromMenu("Generate/Oscillator", 40, 60);
    PatchBlock* b = e.AddFromMenu("Generate/Noise", 200, 80);
    PatchBlock* out = e.AddFromMenu("Output/Output", 500, 60);
    e.Wire(a, out, 0);
    e.Drag(20, 40, 220, 100);
    ASSERT_EQ(e.Canvas().selected.size(), 2u);
    const size_t undo = UndoSteps(e.doc);
    const G::Rect title = e.Title(a);
    e.Down(title.x, title.y);
    for (int step = 1; step <= 5; ++step) e.Move(title.x + 6 * step, title.y + 4 * step);
    e.Up(title.x + 30, title.y + 20);
    EXPECT_EQ(a->block->posX, 70);
    EXPECT_EQ(a->block->posY, 80);
    EXPECT_EQ(b->block->posX, 230);
    EXPECT_EQ(b->block->posY, 100);
    EXPECT_EQ(e.WindowOf(b)->bounds.x, 230);
    EXPECT_EQ(out->block->posX, 500) << "not selected";
    EXPECT_EQ(UndoSteps(e.doc), undo + 1);
    // The wire follows its moved end.
    EXPECT_FLOAT_EQ(e.Canvas().connectionWindows.front()->geometry.source.x,
                    70.0f + e.WindowOf(a)->Width() - 1);

    e.Canvas().Undo();
    EXPECT_EQ(a->block->posX, 40);
    EXPECT_EQ(b->block->posY, 80);
    EXPECT_EQ(e.WindowOf(a)->bounds.x, 40);
    EXPECT_EQ(e.WindowOf(b)->bounds.y, 80);
    EXPECT_FLOAT_EQ(e.Canvas().connectionWindows.front()->geometry.source.x,
                    40.0f + e.WindowOf(a)->Width() - 1);

    // Blocks stop at the canvas's top-left corner.
    e.Drag(title.x, title.y, title.x - 400, title.y - 400);
    EXPECT_EQ(a->block->posX, 0);
    EXPECT_EQ(a->block->posY, 0);
}

TEST(CanvasSelection, AltDragDuplicatesTheSelectionWithItsWiresAsOneStep) {
    Editor e;
    PatchBlock* a = e.AddFromMenu("Generate/Oscillator", 40, 60);
    PatchBlock* out = e.AddFromMenu("Output/Output", 400, 60);
    e.Wire(a, out, 0);
    a->block->values[1] = 0.8f;
    e.Drag(20, 40, 600, 100);  // both
    ASSERT_EQ(e.Canvas().selected.size(), 2u);
    const size_t undo = UndoSteps(e.doc);
    const G::Rect title = e.Title(a);
    e.Drag(title.x, title.y, title.x, title.y + 200, G::kAltDown);
    ASSERT_EQ(e.doc.patchBlocks.size(), 4u);
    PatchBlock* copy = e.doc.patchBlocks[2].get();
    EXPECT_EQ(copy->block->type, 4);
    EXPECT_FLOAT_EQ(copy->block->values[1], 0.8f);
    EXPECT_EQ(copy->block->posY, 260);
    EXPECT_EQ(a->block->posY, 60) << "the original stays";
    EXPECT_EQ(LiveWires(e.doc).size(), 2u);
    EXPECT_EQ(e.Canvas().selected.size(), 2u);
    EXPECT_TRUE(e.WindowOf(copy)->selected);
    EXPECT_EQ(UndoSteps(e.doc), undo + 1);

    e.Canvas().Undo();
    EXPECT_EQ(e.doc.patchBlocks.size(), 2u);
    EXPECT_EQ(e.Canvas().blockWindows.size(), 2u);
    EXPECT_EQ(LiveWires(e.doc).size(), 1u);
}

TEST(CanvasSelection, DeleteCrossOnABlockRemovesIt) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 40, 60);
    const G::Rect& r = e.WindowOf(osc)->bounds;
    e.Click(r.x + r.w - 20, r.y + 6);
    EXPECT_TRUE(e.doc.patchBlocks.empty());
    EXPECT_TRUE(e.Canvas().blockWindows.empty());
}

TEST(PortMenus, OutputAndInputMenusDisconnectAndInsertAModifierBetween) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 40, 60);
    PatchBlock* noise = e.AddFromMenu("Generate/Noise", 40, 200);
    PatchBlock* out = e.AddFromMenu("Output/Output", 500, 60);
    e.Wire(osc, out, 0);
    e.Wire(noise, out, 0);
    ASSERT_EQ(LiveWires(e.doc).size(), 2u);

    // The oscillator's output menu: a modifier between it and everything it feeds, as one step.
    const size_t steps = UndoSteps(e.doc);
    const G::Rect arrow = e.Arrow(osc);
    e.RightClick(arrow.x, arrow.y, "Insert Modifier before all/Monophone");
    ASSERT_EQ(e.doc.patchBlocks.size(), 4u);
    PatchBlock* mono = e.doc.patchBlocks.back().get();
    EXPECT_EQ(mono->block->type, 53);
    EXPECT_EQ(mono->block->posX, 40 + e.WindowOf(osc)->Width() + 20) << "placed right of the block";
    const int so = osc->block->index, sn = noise->block->index, sm = mono->block->index,
              su = out->block->index;
    EXPECT_EQ(LiveWires(e.doc),
              (std::vector<std::tuple<int, int, int>>{{so, sm, 0}, {sn, su, 0}, {sm, su, 0}}));
    EXPECT_EQ(UndoSteps(e.doc), steps + 1);

    // The output's input menu: everything into port 0 goes.
    const G::Rect port = e.Port(out, 0);
    e.RightClick(port.x, port.y, "Disconnect all");
    EXPECT_EQ(LiveWires(e.doc), (std::vector<std::tuple<int, int, int>>{{so, sm, 0}}));
    e.Canvas().Undo();
    EXPECT_EQ(LiveWires(e.doc).size(), 3u);
}

TEST(CanvasScrolling, ContentBeyondTheWindowGetsScrollersThatMoveTheWindows) {
    Editor e;
    PatchBlock* near = e.AddFromMenu("Generate/Oscillator", 40, 60);
    EXPECT_FALSE(e.Canvas().hasVScroller);
    PatchBlock* far = e.doc.AddBlock(7, -1, 1500, 1200);
    e.Canvas().DocumentChanged();
    ASSERT_TRUE(e.Canvas().hasVScroller);
    ASSERT_TRUE(e.Canvas().hasHScroller);
    const int contentH = far->block->posY + e.WindowOf(far)->Height() - 1;
    EXPECT_EQ(e.Canvas().scrollRangeY, e.Canvas().Height() - contentH - 25);
    e.Canvas().vScrollPosition = 1.0f;
    e.Canvas().OnVScroll(0, 0);
    EXPECT_EQ(e.Canvas().scrollY, e.Canvas().scrollRangeY);
    EXPECT_EQ(e.WindowOf(near)->bounds.y, 60 + e.Canvas().scrollY);
    EXPECT_EQ(e.WindowOf(far)->bounds.y, 1200 + e.Canvas().scrollY);
    EXPECT_LT(e.WindowOf(far)->bounds.y + e.WindowOf(far)->Height(), e.Canvas().Height()) << "now in view";
    // A block made by a click lands where the click was on the scrolled canvas.
    PatchBlock* made = e.AddFromMenu("Generate/Noise", 200, 100);
    EXPECT_EQ(made->block->posY, 100 - e.Canvas().scrollY);
    EXPECT_EQ(e.WindowOf(made)->bounds.y, 100);
}

}  // namespace
