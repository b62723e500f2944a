// Copy and paste between documents, the three clipboard forms written by hand, pastes that must
// change nothing, and loading, saving and dropping files, where bad input never loses work.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <limits>

#include "editor/clipboard_paste.h"
#include "editor/global_gui.h"
#include "editor/top_bar.h"
#include "editor_fixture.h"
#include "engine/log.h"
#include "g/keys.h"
#include "g/parameter_switch.h"

using namespace editortest;

namespace {

namespace fs = std::filesystem;

struct LogLines {
    LogLines() : previous(SetLogSink([](int, const char* text) { Lines().push_back(text); })) {
        Lines().clear();
    }
    ~LogLines() { SetLogSink(previous); }
    static std::vector<std::string>& Lines() {
        static std::vector<std::string> lines;
        return lines;
    }
    bool Has(const std::string& text) const {
        return std::find(Lines().begin(), Lines().end(), text) != Lines().end();
    }
    LogSink previous;
};

// Pastes `text` with the pointer at a canvas point.
void PasteAt(Editor& e, const std::string& text, int x, int y) {
    e.native->clipboard = text;
    e.Click(x, y);
    e.Key('V', G::kShiftDown);
}

TEST(Clipboard, CopyThenPasteIntoAnotherPatchMakesNewIdsSlotsAndPlaces) {
    Editor from;
    PatchBlock* osc = from.AddFromMenu("Generate/Oscillator", 100, 100);
    PatchBlock* out = from.AddFromMenu("Output/Output", 300, 140);
    from.Wire(osc, out, 0);
    osc->block->values[1] = 0.3f;
    from.Drag(80, 80, 450, 200);
    ASSERT_EQ(from.Canvas().selected.size(), 2u);
    from.Key('C', G::kShiftDown);
    ASSERT_EQ(from.native->clipboard.rfind("[Patch]", 0), 0u);

    Editor to;
    PatchBlock* first = to.AddFromMenu("Generate/Noise", 20, 20);  // takes slot 0
    const size_t steps = UndoSteps(to.doc);
    PasteAt(to, from.native->clipboard, 250, 300);
    ASSERT_EQ(to.doc.patchBlocks.size(), 3u);
    PatchBlock* pastedOsc = to.doc.patchBlocks[1].get();
    PatchBlock* pastedOut = to.doc.patchBlocks[2].get();
    EXPECT_EQ(pastedOsc->block->type, 4);
    EXPECT_FLOAT_EQ(pastedOsc->block->values[1], 0.3f);
    // The top-left of what was copied lands at the pointer; the rest keeps its distance.
    EXPECT_EQ(pastedOsc->block->posX, 250);
    EXPECT_EQ(pastedOsc->block->posY, 300);
    EXPECT_EQ(pastedOut->block->posX, 450);
    EXPECT_EQ(pastedOut->block->posY, 340);
    EXPECT_NE(pastedOsc->block->index, first->block->index);
    EXPECT_GT(pastedOsc->id, first->id);
    // The wire names the new slots.
    EXPECT_EQ(
        LiveWires(to.doc),
        (std::vector<std::tuple<int, int, int>>{{pastedOsc->block->index, pastedOut->block->index, 0}}));
    EXPECT_EQ(to.Canvas().connectionWindows.size(), 1u);
    EXPECT_EQ(UndoSteps(to.doc), steps + 1);
    to.Canvas().Undo();
    EXPECT_EQ(to.doc.patchBlocks.size(), 1u);
    EXPECT_TRUE(LiveWires(to.doc).empty());
}

TEST(Clipboard, HandWrittenBlockAndPatchTextsPaste) {
    Editor e;
    PasteAt(e, "[Block]<Block TYPE=\"4\" X=\"5\" Y=\"6\" POS=\"40\" P1=\"0.25\" />", 300, 200);
    ASSERT_EQ(e.doc.patchBlocks.size(), 1u);
    const CAudioBlock& block = *e.doc.patchBlocks[0]->block;
    EXPECT_EQ(block.type, 4);
    EXPECT_FLOAT_EQ(block.values[1], 0.25f);
    EXPECT_EQ(block.posX, 300);
    EXPECT_EQ(block.posY, 200);
    EXPECT_EQ(block.index, 0) << "POS is not kept: the block takes a free slot";

    LogLines log;
    PasteAt(e,
            "[Patch]<storables>"
            "<BLOCK ID=\"1\" TYPE=\"7\" POS=\"7\" X=\"100\" Y=\"50\" />"
            "<BLOCK ID=\"2\" TYPE=\"0\" POS=\"9\" X=\"300\" Y=\"80\" />"
            "<CONNECTION ID=\"3\" FROM=\"7\" TO=\"9\" INPUTID=\"0\" />"
            "<CONNECTION ID=\"4\" FROM=\"55\" TO=\"9\" INPUTID=\"0\" />"
            "</storables>",
            20, 300);
    ASSERT_EQ(e.doc.patchBlocks.size(), 3u);
    const CAudioBlock& noise = *e.doc.patchBlocks[1]->block;
    const CAudioBlock& out = *e.doc.patchBlocks[2]->block;
    EXPECT_EQ(noise.posX, 20);
    EXPECT_EQ(noise.posY, 300);
    EXPECT_EQ(out.posX, 220);
    EXPECT_EQ(out.posY, 330);
    EXPECT_EQ(LiveWires(e.doc), (std::vector<std::tuple<int, int, int>>{{noise.index, out.index, 0}}));
    EXPECT_TRUE(log.Has("Error matching new positions after connection paste!"));

    // With no prefix the text is a patch too.
    PasteAt(e, "<storables><BLOCK ID=\"1\" TYPE=\"7\" X=\"0\" Y=\"0\" /></storables>", 500, 100);
    EXPECT_EQ(e.doc.patchBlocks.size(), 4u);
}

// A pasted GLOBAL loads into the one global record in place; its id in the text must not
// rename the record, or undo could not find it and redo would drop the pasted settings.
TEST(Clipboard, PastedGlobalSettingsUndoAndRedo) {
    Editor e;
    const int globalId = e.doc.global->id;
    PasteAt(e, "[Patch]<storables><GLOBAL ID=\"40\" Param_Polyphony=\"0.0625\" /></storables>", 300, 300);
    EXPECT_FLOAT_EQ(e.doc.global->Value("Param_Polyphony"), 0.0625f);
    EXPECT_EQ(e.doc.global->id, globalId);
    e.doc.Undo();
    EXPECT_FLOAT_EQ(e.doc.global->Value("Param_Polyphony"), 0.5f);
    e.doc.Redo();
    EXPECT_FLOAT_EQ(e.doc.global->Value("Param_Polyphony"), 0.0625f);
    EXPECT_EQ(e.doc.objects.at(globalId), e.doc.global.get());
}

// Places and ids are offset by the paste; text holding the extremes of int must land inside
// 0..INT_MAX and give ids the registry accepts, not overflow.
TEST(Clipboard, ExtremePlacesAndIdsStayInRange) {
    VrokDoc doc;
    doc.ClearAll();
    constexpr int kMax = std::numeric_limits<int>::max();
    editor::PasteClipboardText(doc,
                               "[Patch]<storables>"
                               "<BLOCK ID=\"2147483647\" TYPE=\"7\" X=\"2147483647\" Y=\"-2147483648\" />"
                               "<BLOCK ID=\"5\" TYPE=\"7\" X=\"-2147483648\" Y=\"2147483647\" />"
                               "</storables>",
                               20, 30);
    ASSERT_EQ(doc.patchBlocks.size(), 2u);
    EXPECT_EQ(doc.patchBlocks[0]->block->posX, kMax);
    EXPECT_EQ(doc.patchBlocks[0]->block->posY, 30);
    EXPECT_EQ(doc.patchBlocks[1]->block->posX, 20);
    EXPECT_EQ(doc.patchBlocks[1]->block->posY, kMax);
    for (const auto& patchBlock : doc.patchBlocks) EXPECT_GE(patchBlock->id, 0);
    VrokDoc again;
    EXPECT_TRUE(again.ReadXml(doc.WriteXml()));
}

TEST(Clipboard, GarbageAndUnknownTypesChangeNothing) {
    Editor e;
    e.AddFromMenu("Generate/Oscillator", 100, 100);
    const size_t objects = e.doc.objects.size();
    const size_t steps = UndoSteps(e.doc);
    for (const char* text : {"", "hello", "[Block]<Block", "[Block]<Other TYPE=\"4\"/>", "[Patch]<storables",
                             "<notstorables><BLOCK TYPE=\"4\"/></notstorables>",
                             "[Block]<Block TYPE=\"36\" X=\"1\" Y=\"1\" />"}) {
        PasteAt(e, text, 300, 300);
        EXPECT_EQ(e.doc.objects.size(), objects) << text;
        EXPECT_EQ(e.doc.patchBlocks.size(), 1u) << text;
        EXPECT_EQ(e.Canvas().blockWindows.size(), 1u) << text;
    }
    EXPECT_EQ(UndoSteps(e.doc), steps);
}

TEST(Clipboard, PasteNearTheLowerRightStopsAHundredPixelsIn) {
    Editor e;
    PasteAt(e, "[Block]<Block TYPE=\"7\" />", 740, 570);
    ASSERT_EQ(e.doc.patchBlocks.size(), 1u);
    EXPECT_EQ(e.doc.patchBlocks[0]->block->posX, e.Canvas().Width() - 100);
    EXPECT_EQ(e.doc.patchBlocks[0]->block->posY, e.Canvas().Height() - 100);
}

TEST(Clipboard, ShiftVOverABlockTakesSettingsOfTheSameTypeOnly) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 100, 100);
    const int slot = osc->block->index;
    const G::Rect title = e.Title(osc);
    e.Click(title.x, title.y);  // the block window has the keyboard
    e.native->clipboard = "[Block]<Block TYPE=\"4\" X=\"500\" Y=\"500\" POS=\"9\" P1=\"0.125\" />";
    e.Key('V', G::kShiftDown);
    EXPECT_EQ(e.doc.patchBlocks.size(), 1u);
    EXPECT_FLOAT_EQ(osc->block->values[1], 0.125f);
    EXPECT_EQ(osc->block->posX, 100) << "place and slot stay";
    EXPECT_EQ(osc->block->index, slot);

    // Another type: the key goes on to the canvas, which pastes a new block.
    e.Click(title.x, title.y);
    e.native->clipboard = "[Block]<Block TYPE=\"7\" />";
    e.Key('V', G::kShiftDown);
    EXPECT_EQ(e.doc.patchBlocks.size(), 2u);
}

TEST(Clipboard, CopyWithNothingSelectedIsTheWholePatchAndOneBlockIsABlock) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 100, 100);
    e.Click(600, 500);
    e.Key('C', G::kShiftDown);
    EXPECT_EQ(e.native->clipboard, e.doc.WriteXml());
    const G::Rect title = e.Title(osc);
    e.Click(title.x, title.y);
    e.Key('C', G::kShiftDown);
    EXPECT_EQ(e.native->clipboard.rfind("[Block]<Block TYPE=\"4\"", 0), 0u) << e.native->clipboard;
    // Cut: copy, then delete.
    e.Key('X', G::kShiftDown);
    EXPECT_TRUE(e.doc.patchBlocks.empty());
    EXPECT_EQ(e.native->clipboard.rfind("[Block]", 0), 0u);
}

struct Files {
    Files() {
        dir = fs::path(::testing::TempDir()) / "editor_files";
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    fs::path Write(const std::string& name, const std::string& text) {
        std::ofstream(dir / name) << text;
        return dir / name;
    }
    fs::path dir;
};

TEST(EditorFiles, SaveThenLoadRoundTripsAndNamesTheTopBar) {
    Files f;
    Editor e;
    e.AddFromMenu("Generate/Oscillator", 100, 100);
    e.doc.global->SetValue("Param_Reverb_Enable", 1.0f);
    e.native->dialogPath = (f.dir / "tune.vrkx").string();
    e.Canvas().OnCommand(0x2003);
    EXPECT_EQ(e.native->dialogs, std::vector<std::string>{"Save file to.."});
    ASSERT_TRUE(fs::exists(f.dir / "tune.vrkx"));
    EXPECT_FALSE(e.doc.changed);
    EXPECT_EQ(e.doc.fileName, "tune");

    Editor other;
    other.native->dialogPath = (f.dir / "tune.vrkx").string();
    other.Canvas().OnCommand(0x2002);
    EXPECT_EQ(other.native->dialogs, std::vector<std::string>{"Load.."});
    ASSERT_EQ(other.doc.patchBlocks.size(), 1u);
    EXPECT_EQ(other.Canvas().blockWindows.size(), 1u);
    EXPECT_EQ(other.doc.patchBlocks[0]->block->posX, 100);
    EXPECT_FLOAT_EQ(static_cast<G::ParameterSwitch*>(other.window->globalGui->widgets.at(0))->Value(), 1.0f)
        << "the global panel shows the loaded settings";
    EXPECT_EQ(other.window->topBar->HeaderText(), "[VROK] tune");

    // A dropped file takes the same path.
    Editor dropped;
    dropped.native->Move(300, 300);
    dropped.native->Drop((f.dir / "tune.vrkx").string());
    EXPECT_EQ(dropped.doc.patchBlocks.size(), 1u);
}

TEST(EditorFiles, AFailedLoadKeepsThePatchAndAFailedSaveKeepsItChanged) {
    Files f;
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 100, 100);
    for (const fs::path& bad :
         {f.Write("broken.vrkx", "<storables><BLOCK"), f.Write("empty.vrk", ""), f.dir / "missing.vrkx"}) {
        e.native->messages.clear();
        EXPECT_FALSE(e.Canvas().Load(bad.string())) << bad;
        ASSERT_EQ(e.doc.patchBlocks.size(), 1u) << bad;
        EXPECT_EQ(e.doc.patchBlocks[0].get(), osc);
        EXPECT_EQ(e.Canvas().blockWindows.size(), 1u);
        ASSERT_EQ(e.native->messages.size(), 1u);
        EXPECT_NE(e.native->messages[0].find(bad.string()), std::string::npos);
    }
    e.native->messages.clear();
    EXPECT_FALSE(e.Canvas().Save((f.dir / "no such folder" / "x.vrkx").string()));
    EXPECT_TRUE(e.doc.changed);
    ASSERT_EQ(e.native->messages.size(), 1u);
    EXPECT_EQ(e.native->messages[0].rfind("Save file to..: Cannot save", 0), 0u) << e.native->messages[0];
}

TEST(EditorFiles, ClearAsksFirstAndHasNoUndo) {
    Editor e;
    e.AddFromMenu("Generate/Oscillator", 100, 100);
    e.native->boxAnswer = G::MessageBoxResult::No;
    e.Key('N', G::kShiftDown);
    EXPECT_EQ(e.doc.patchBlocks.size(), 1u);
    ASSERT_EQ(e.native->messages.size(), 1u);
    EXPECT_EQ(e.native->messages[0], "Warning!: Warning!\rClear has no undo.\rProceed?");
    e.native->boxAnswer = G::MessageBoxResult::Yes;
    e.Key('N', G::kShiftDown);
    EXPECT_TRUE(e.doc.patchBlocks.empty());
    EXPECT_TRUE(e.Canvas().blockWindows.empty());
    EXPECT_EQ(e.doc.UndoCount(), 0u);
}

TEST(EditorFiles, ClosingWithUnsavedChangesOffersToSaveAndAFailedSaveKeepsTheEditorOpen) {
    Files f;
    Editor e;
    EXPECT_TRUE(e.Canvas().SaveBeforeClosing()) << "nothing changed: no question";
    EXPECT_TRUE(e.native->messages.empty());
    e.AddFromMenu("Generate/Oscillator", 100, 100);

    e.native->boxAnswer = G::MessageBoxResult::No;
    EXPECT_TRUE(e.Canvas().SaveBeforeClosing());
    ASSERT_EQ(e.native->messages.size(), 1u);
    EXPECT_EQ(e.native->messages[0], "Vrok: Save the changes to new patch?");

    // Yes with no file yet: the save dialog; cancelled, the editor stays.
    e.native->boxAnswer = G::MessageBoxResult::Yes;
    EXPECT_FALSE(e.Canvas().SaveBeforeClosing());
    e.native->dialogPath = (f.dir / "kept.vrkx").string();
    EXPECT_TRUE(e.Canvas().SaveBeforeClosing());
    EXPECT_TRUE(fs::exists(f.dir / "kept.vrkx"));

    // With a file, it is saved there; a file that cannot be written keeps the editor open.
    e.AddFromMenu("Generate/Noise", 300, 100);
    e.Canvas().SetName((f.dir / "gone" / "kept.vrkx").string());
    EXPECT_FALSE(e.Canvas().SaveBeforeClosing());
    EXPECT_TRUE(e.doc.changed);
}

}  // namespace
