// What the panels put on screen and where their changes go: the canvas's dirty rects and their
// cap, the drawn canvas, block windows and global panel, widget gestures reaching block and
// engine as single undo steps, values changed elsewhere reaching the widgets, the global panel's
// texts, and the keyboard piano.
#include <gtest/gtest.h>

#include "editor/editor_menus.h"
#include "editor/global_gui.h"
#include "editor/piano_window.h"
#include "editor/top_bar.h"
#include "editor_fixture.h"
#include "g/keys.h"
#include "g/parameter_slider.h"
#include "g/parameter_switch.h"
#include "g/theme.h"
#include "g/widget_probes.h"

using namespace editortest;
using gtest_support::PixelOf;
using gtest_support::Rgb;

namespace {

constexpr uint32_t kLoud = 0xFF00FF;

void Smear(G::Bitmap& b) {
    for (int y = 0; y < b.height; ++y) {
        uint8_t* p = b.Row(y);
        for (int x = 0; x < b.width; ++x, p += 3) p[0] = 0xFF, p[1] = 0x00, p[2] = 0xFF;
    }
}

int LoudIn(const G::Control& c, const G::Rect& r) {
    int n = 0;
    for (int y = r.y; y < r.y + r.h; ++y)
        for (int x = r.x; x < r.x + r.w; ++x) n += PixelOf(c, x, y) == kLoud;
    return n;
}

TEST(CanvasPaint, OnlyListedRectsAreRedrawnAndTheTwentyFirstRedrawsEverything) {
    Editor e;
    editor::VrokDocWindow& canvas = e.Canvas();
    Smear(*canvas.bitmap);
    const G::Rect small{100, 100, 30, 20};
    canvas.Invalidate(&small);
    e.Paint();
    EXPECT_EQ(LoudIn(canvas, small), 0);
    EXPECT_EQ(LoudIn(canvas, G::Rect{100, 130, 30, 20}), 30 * 20) << "below the rect nothing was drawn";
    EXPECT_TRUE(canvas.dirtyRects.empty());

    Smear(*canvas.bitmap);
    for (int i = 0; i < editor::kMaxDirtyRects; ++i) {
        const G::Rect r{10 * i, 0, 5, 5};
        canvas.Invalidate(&r);
    }
    EXPECT_EQ(int(canvas.dirtyRects.size()), editor::kMaxDirtyRects);
    const G::Rect extra{400, 400, 5, 5};
    canvas.Invalidate(&extra);  // the 21st is not listed
    EXPECT_EQ(int(canvas.dirtyRects.size()), editor::kMaxDirtyRects);
    e.Paint();
    EXPECT_EQ(LoudIn(canvas, G::Rect{0, 0, canvas.Width(), canvas.Height()}), 0)
        << "a full list is everything";
}

TEST(CanvasPaint, ABlockOverlappingAListedRectIsRedrawnInFull) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 100, 100);
    e.Paint();
    editor::VrokDocWindow& canvas = e.Canvas();
    Smear(*canvas.bitmap);
    const G::Rect corner{95, 95, 4, 4};  // touches the block's frame only
    canvas.Invalidate(&corner);
    e.Paint();
    const G::Rect& r = e.WindowOf(osc)->bounds;
    // The shadow at the right and bottom, far from the small rect, was drawn again.
    EXPECT_EQ(LoudIn(canvas, G::Rect{r.x + r.w + 2, r.y + 10, 8, r.h - 10}), 0);
    EXPECT_GT(LoudIn(canvas, G::Rect{r.x + r.w + 40, r.y, 20, 20}), 0)
        << "beyond the shadow nothing was drawn";
}

TEST(CanvasPaint, CanvasWiresBlockWindowsAndTheGlobalPanelAreDrawn) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 60, 80);
    PatchBlock* out = e.AddFromMenu("Output/Output", 400, 200);
    e.Wire(osc, out, 0);
    e.Click(700, 500);  // nothing selected, so frames show the signal path
    e.Paint();
    auto screen = [&](int x, int y) { return e.native->Pixel(x, y + kTop); };
    // The canvas background, away from everything: the gradient's top and bottom colours.
    auto near = [](uint32_t a, uint32_t b) {
        for (int shift = 0; shift <= 16; shift += 8)
            if (std::abs(int((a >> shift) & 0xFF) - int((b >> shift) & 0xFF)) > 2) return false;
        return true;
    };
    EXPECT_TRUE(near(screen(700, 0), Rgb(2))) << std::hex << screen(700, 0);
    EXPECT_TRUE(near(screen(700, e.Canvas().Height() - 1), Rgb(3))) << std::hex << screen(700, 550);
    // Title strips in their category's strong colour, panels below in the pale one.
    const G::Rect& o = e.WindowOf(osc)->bounds;
    EXPECT_EQ(screen(o.x + 100, o.y + 2), Rgb(16));
    const G::Rect& u = e.WindowOf(out)->bounds;
    EXPECT_EQ(screen(u.x + 100, u.y + 2), Rgb(18));
    // The wire: somewhere along its middle, the audio wire's colour.
    const editor::WireGeometry& wire = e.Canvas().connectionWindows.front()->geometry;
    const G::FloatPoint mid = wire.curve[wire.curve.size() / 4];
    int wireColoured = 0;
    for (int dy = -3; dy <= 3; ++dy)
        for (int dx = -3; dx <= 3; ++dx) wireColoured += screen(int(mid.x) + dx, int(mid.y) + dy) == Rgb(16);
    EXPECT_GT(wireColoured, 0);
    // A block on a path to the output gets the frame of the signal path.
    EXPECT_EQ(screen(o.x - 1, o.y + 10), Rgb(20));
    // The global panel: the reverb section's title in its colour.
    editor::GlobalGui* panel = e.window->globalGui;
    ASSERT_NE(panel, nullptr);
    EXPECT_EQ(panel->bounds.x, e.window->Width() - 150);
    const G::Rect& reverb = panel->sections[2]->bounds;
    EXPECT_EQ(e.native->Pixel(panel->bounds.x + reverb.x + 100, panel->bounds.y + reverb.y + 3), Rgb(20));
}

TEST(CanvasPaint, ASelectionBeingDraggedCastsNoShadow) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 100, 100);
    e.Paint();
    const G::Rect& r = e.WindowOf(osc)->bounds;
    auto shadowPixel = [&] { return e.native->Pixel(r.x + r.w + 3, r.y + kTop + r.h / 2); };
    auto background = [&] { return e.native->Pixel(r.x + r.w + 60, r.y + kTop + r.h / 2); };
    EXPECT_NE(shadowPixel(), background()) << "a resting block has a shadow";
    const G::Rect title = e.Title(osc);
    e.Down(title.x, title.y);
    e.Move(title.x + 1, title.y);
    e.Paint();
    EXPECT_EQ(shadowPixel(), background()) << "none while it is dragged";
    e.Up(title.x + 1, title.y);
    e.Paint();
    EXPECT_NE(shadowPixel(), background()) << "back after the drop";
}

TEST(BlockWindow, AWidgetPerParameterAndPortsPlacedByRow) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 60, 80);
    editor::VrokBlockWindow* w = e.WindowOf(osc);
    ASSERT_EQ(w->widgets.size(), 3u);
    for (G::Control* widget : w->widgets) ASSERT_NE(widget, nullptr);
    EXPECT_EQ(w->widgets[0]->bounds.x, 13) << "the block has parameter ports";
    EXPECT_EQ(w->widgets[0]->bounds.y, 14);
    EXPECT_EQ(w->widgets[1]->bounds.y, 14 + w->widgets[0]->Height() + 1);
    EXPECT_NE(dynamic_cast<G::ParameterSlider*>(w->widgets[1]), nullptr) << "Amp is a slider";
    EXPECT_EQ(w->Height(), w->widgets[2]->bounds.y + 14 + 1);
    // No audio input: the first port sits on the first parameter's row.
    EXPECT_EQ(w->PortY(0), 21);
    EXPECT_EQ(w->InputPortAt(5, 21), 0);
    EXPECT_EQ(w->InputPortAt(5, 35), 1);
    EXPECT_EQ(w->InputPortAt(60, 21), -1);
    PatchBlock* out = e.AddFromMenu("Output/Output", 400, 200);
    EXPECT_EQ(e.WindowOf(out)->PortY(0), 7) << "the audio input sits in the title";
}

TEST(BlockWindow, ADragIsOneUndoStepAndTheBlockHearsEveryValue) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 60, 80);
    editor::VrokBlockWindow* w = e.WindowOf(osc);
    auto* amp = static_cast<G::ParameterSlider*>(w->widgets[1]);
    const int y = 80 + amp->bounds.y + 5;
    const int x0 = 60 + amp->bounds.x;
    const size_t steps = UndoSteps(e.doc);
    e.Down(x0 + amp->Width() / 4, y);
    EXPECT_NEAR(osc->block->values[1], 0.25f, 0.01f);
    e.Move(x0 + amp->Width() * 3 / 4, y);
    e.Up(x0 + amp->Width() * 3 / 4, y);
    EXPECT_NEAR(osc->block->values[1], 0.75f, 0.01f);
    EXPECT_NEAR(amp->Value(), osc->block->values[1], 1e-6);
    EXPECT_EQ(UndoSteps(e.doc), steps + 1);
    EXPECT_TRUE(e.doc.changed);
    e.Key('Z', G::kShiftDown);
    EXPECT_FLOAT_EQ(osc->block->values[1], 0.5f);
    EXPECT_FLOAT_EQ(amp->Value(), 0.5f) << "undo redraws the widget";

    // A value changed behind the window's back (a host knob) shows on the next tick.
    osc->block->values[1] = 0.9f;
    e.native->Send(NativeEventKind::Timer);
    EXPECT_FLOAT_EQ(amp->Value(), 0.9f);
}

// Another window on the same record, as a second view would be.
struct ChangeProbe : editor::EditorGui {
    void StorableChanged(int source, Storable*) override { sources.push_back(source); }
    std::vector<int> sources;
};

TEST(BlockWindow, ChangesAreAnnouncedWithTheirOriginSoOnlyOtherWindowsRedraw) {
    Editor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 60, 80);
    editor::VrokBlockWindow* w = e.WindowOf(osc);
    ChangeProbe probe;
    probe.Attach(osc);
    G::Control* amp = w->widgets[1];
    const int y = 80 + amp->bounds.y + 5;
    e.Drag(60 + amp->bounds.x + 10, y, 60 + amp->bounds.x + 50, y);
    ASSERT_FALSE(probe.sources.empty());
    for (int source : probe.sources) EXPECT_EQ(source, w->Token()) << "the block window made these";
    probe.sources.clear();
    e.Canvas().Undo();
    EXPECT_EQ(probe.sources, std::vector<int>{-1}) << "undo comes from outside every window";
    probe.Detach(osc);
}

TEST(GlobalPanel, WidgetsReachTheEngineThroughTheRecordAndUndo) {
    Editor e;
    editor::GlobalGui* panel = e.window->globalGui;
    ASSERT_NE(panel, nullptr);
    VrokInstance& engine = *e.doc.engine;
    // Polyphony: a click near the left end gives one voice.
    G::Control* poly = panel->widgets.at(300);
    int x = 4;
    int y = poly->Height() / 2;
    poly->LocalToGlobal(x, y);
    e.native->Move(x, y);
    e.native->Send(NativeEventKind::LeftDown, x, y);
    e.native->Send(NativeEventKind::LeftUp, x, y);
    EXPECT_EQ(engine.numVoices, 1);
    EXPECT_NEAR(e.doc.global->Value("Param_Polyphony"), 4.0f / poly->Width(), 1e-4);
    // The reverb switch.
    G::Control* reverb = panel->widgets.at(0);
    x = 3;
    y = 3;
    reverb->LocalToGlobal(x, y);
    e.native->Move(x, y);
    e.native->Send(NativeEventKind::LeftDown, x, y);
    e.native->Send(NativeEventKind::LeftUp, x, y);
    EXPECT_TRUE(engine.reverbOn);
    EXPECT_FLOAT_EQ(e.doc.global->Value("Param_Reverb_Enable"), 1.0f);

    e.Canvas().Undo();
    EXPECT_FALSE(engine.reverbOn);
    EXPECT_FLOAT_EQ(static_cast<G::ParameterSwitch*>(reverb)->Value(), 0.0f);
    e.Canvas().Undo();
    EXPECT_EQ(engine.numVoices, 8) << "back to the default of 0.5";
}

TEST(GlobalPanel, AShortPanelScrollsItsSectionsAndKeepsTheScrollerWhenTallAgain) {
    Editor e(900, 600);
    editor::GlobalGui& panel = *e.window->globalGui;
    EXPECT_FALSE(panel.hasVScroller) << "everything fits";
    e.native->Send(NativeEventKind::Size, 900, 300);
    ASSERT_TRUE(panel.hasVScroller);
    EXPECT_EQ(panel.Height(), 300 - 18);
    panel.vScrollPosition = 1.0f;
    panel.OnVScroll(0, 0);
    EXPECT_EQ(panel.scrollY, panel.Height() - panel.contentHeight);
    const G::Control* delay = panel.sections.back();
    EXPECT_EQ(delay->bounds.y + delay->Height() + 3, panel.Height()) << "the last section ends at the bottom";
    e.native->Send(NativeEventKind::Size, 900, 700);
    EXPECT_TRUE(panel.hasVScroller);
    EXPECT_EQ(panel.scrollY, 0);
    EXPECT_EQ(panel.sections.front()->bounds.y, 3);
}

TEST(GlobalPanel, ValueTexts) {
    struct Row {
        int id;
        float value;
        const char* text;
    };
    const Row rows[] = {
        {300, 0.0f, "1, legato"}, {300, 0.05f, "1, legato"}, {300, 1.0f, "16"},   {1, 0.0f, "off"},
        {101, 0.5f, "50"},        {207, 0.505f, "center"},   {207, 0.75f, "50"},  {400, 0.0f, "off"},
        {401, 0.5f, "12"},        {402, 0.25f, "-12"},       {2, 0.333f, "33.3"},
    };
    for (const Row& r : rows) EXPECT_EQ(editor::GlobalValueText(r.id, r.value, 44100.0f), r.text) << r.id;
}

TEST(PianoKeys, AHeldKeyPlaysOnceAndReleasesAndOtherKeysPass) {
    Editor e;
    editor::PianoWindow& piano = *e.window->topBar->keyboard;
    VrokInstance& engine = *e.doc.engine;
    e.Click(600, 400);  // the canvas takes the keyboard
    const int note = piano.NoteOf('Z');
    EXPECT_EQ(note, 61);
    for (int repeat = 0; repeat < 3; ++repeat) e.native->Key(NativeEventKind::KeyDown, 'Z');
    EXPECT_TRUE(engine.noteHeld[note]);
    EXPECT_EQ(engine.heldNotes.size(), 1u) << "key repeat gives one note";
    e.native->Key(NativeEventKind::KeyUp, 'Z');
    EXPECT_FALSE(engine.noteHeld[note]);
    EXPECT_EQ(piano.NoteOf('P') - note, 28);
    EXPECT_EQ(editor::PianoWindow::NoteOffset('A'), -1);
}

TEST(TopBar, ButtonsFromTheRightWithHelpLastAndTheNameInTheHeader) {
    Editor e;
    editor::TopBar& bar = *e.window->topBar;
    ASSERT_EQ(bar.buttons.size(), 6u);
    EXPECT_EQ(bar.buttons.back()->id, 0x2006);
    EXPECT_EQ(bar.buttons.back()->bounds.x + bar.buttons.back()->Width(), bar.Width() - 5);
    for (size_t i = 1; i < bar.buttons.size(); ++i)
        EXPECT_EQ(bar.buttons[i - 1]->bounds.x + bar.buttons[i - 1]->Width() + 5, bar.buttons[i]->bounds.x);
    EXPECT_EQ(bar.HeaderText(), "[VROK] new patch");
    e.Canvas().SetName("/tmp/Bass Line.vrkx");
    EXPECT_EQ(bar.HeaderText(), "[VROK] Bass Line");
    // A button press reaches the canvas: Undo with nothing to undo changes nothing.
    e.AddFromMenu("Generate/Noise", 100, 100);
    G::CustomButton* undo = bar.buttons[3];
    const int x = undo->bounds.x + 3;
    e.native->Move(x, 6);
    e.native->Send(NativeEventKind::LeftDown, x, 6);
    e.native->Send(NativeEventKind::LeftUp, x, 6);
    EXPECT_TRUE(e.doc.patchBlocks.empty());
    // Help shows the manual beside the canvas; only the wiki command opens the browser.
    G::CustomButton* help = bar.buttons.back();
    e.native->Move(help->bounds.x + 3, 6);
    e.native->Send(NativeEventKind::LeftDown, help->bounds.x + 3, 6);
    e.native->Send(NativeEventKind::LeftUp, help->bounds.x + 3, 6);
    EXPECT_TRUE(e.Canvas().ManualVisible());
    EXPECT_TRUE(e.native->openedUrls.empty());
    e.Canvas().OnCommand(editor::kCommandWiki);
    EXPECT_EQ(e.native->openedUrls, std::vector<std::string>{editor::kWikiAddress});
}

}  // namespace
