// The manual beside the canvas, on a small manual of the tests' own: Help shows and hides it
// with the panels moved aside, block clicks and canvas clicks choose the article unless it is
// locked, links and the bar's buttons move through the history, and the wheel scrolls.
#include <fstream>
#include <sstream>

#include "editor/editor_fixture.h"
#include "editor/editor_menus.h"
#include "editor/global_gui.h"
#include "editor/top_bar.h"
#include "g/scroller.h"
#include "help/help_display.h"
#include "help/help_display_top_bar.h"

namespace {

using editortest::Editor;
using editortest::kTop;
using G::NativeEventKind;

std::unique_ptr<HelpLibrary> TestManual() {
    std::ifstream file(VROK_HELP_TEST_DATA_DIR "/test_manual.xml");
    std::stringstream text;
    text << file.rdbuf();
    auto library = std::make_unique<HelpLibrary>(text.str());
    EXPECT_EQ(library->Error(), "");
    return library;
}

struct ManualEditor : Editor {
    ManualEditor() { window->UseManual(TestManual()); }

    HelpDisplay& Display() { return *window->helpDisplay; }
    HelpDisplayTopBar& Bar() { return *window->helpTopBar; }
    std::string Page() { return Display().Current() ? Display().Current()->name : "(none)"; }

    // A press and release at a point of the container, outside the canvas's coordinates.
    void ClickWindow(int x, int y) {
        native->Move(x, y, 0);
        native->Send(NativeEventKind::LeftDown, x, y, 0);
        native->Send(NativeEventKind::LeftUp, x, y, 0);
    }
    void ClickButton(const G::Control& button) {
        int x = button.bounds.w / 2, y = button.bounds.h / 2;
        button.LocalToGlobal(x, y);
        ClickWindow(x, y);
    }
    void ClickBarButton(int id) {
        for (G::CustomButton* button : Bar().buttons)
            if (button->id == id) ClickButton(*button);
    }
    void ClickLink(int link) {
        int x = 0, y = 0;
        ASSERT_TRUE(Display().LinkPoint(link, x, y)) << "link " << link << " of " << Page();
        Display().LocalToGlobal(x, y);
        ClickWindow(x, y);
    }
};

TEST(ManualPanels, HelpShowsTheManualAtTheRightAndMovesTheOtherPanelsAside) {
    ManualEditor e;
    const int w = 900, h = 600;
    ASSERT_FALSE(e.Display().visible);
    ASSERT_FALSE(e.Bar().visible);
    const bool globalShown = e.window->globalGui && e.window->globalGui->visible;

    e.ClickButton(*e.window->topBar->helpButton);
    EXPECT_TRUE(e.Display().visible);
    EXPECT_TRUE(e.Bar().visible);
    EXPECT_EQ(e.Page(), "default");
    EXPECT_EQ(e.Bar().bounds, (G::Rect{w - 300, 18, 300, 18}));
    EXPECT_EQ(e.Display().bounds, (G::Rect{w - 300, 36, 300, h - 36}));
    const int panel = globalShown ? 150 : 0;
    if (globalShown) {
        EXPECT_EQ(e.window->globalGui->bounds, (G::Rect{w - 300 - 150, 18, 150, h - 18}));
    }
    EXPECT_EQ(e.Canvas().bounds, (G::Rect{0, 18, w - 300 - panel, h - 18}));
    // The title is drawn in dark ink near the top left of the display, on its light paper.
    e.Paint();
    int ink = 0;
    for (int y = 36; y < 36 + 40; ++y)
        for (int x = w - 300 + 8; x < w - 150; ++x) ink += (e.native->Pixel(x, y) & 0xFF) < 0x60;
    EXPECT_GT(ink, 100);
    EXPECT_EQ(e.native->Pixel(w - 20, h - 10), 0xFAF8F2u) << "paper below the text, left of the scroll bar";

    // The canvas menu's Help hides it again and gives the room back.
    e.RightClick(100, 300, "Help");
    EXPECT_FALSE(e.Display().visible);
    EXPECT_FALSE(e.Bar().visible);
    EXPECT_EQ(e.Canvas().bounds, (G::Rect{0, 18, w - panel, h - 18}));

    // Showing it again starts at the home page; Close hides it.
    e.Canvas().OnCommand(editor::kCommandHelp);
    EXPECT_EQ(e.Page(), "default");
    e.ClickBarButton(HelpDisplayTopBar::kClose);
    EXPECT_FALSE(e.Display().visible);
    EXPECT_EQ(e.Canvas().bounds.w, w - panel);
}

TEST(ManualPanels, ClickingABlockShowsItsArticleAndTheEmptyCanvasGoesHome) {
    ManualEditor e;
    PatchBlock* osc = e.AddFromMenu("Generate/Oscillator", 40, 60);
    PatchBlock* mono = e.AddFromMenu("Output/Output", 40, 250);
    PatchBlock* stereo = e.AddFromMenu("Output/Stereo Output", 40, 400);
    ASSERT_TRUE(osc && mono && stereo);
    e.Canvas().OnCommand(editor::kCommandHelp);

    // While the manual is hidden nothing moves it; shown, a click on a block does.
    const G::Rect oscTitle = e.Title(osc);
    e.Click(oscTitle.x, oscTitle.y);
    EXPECT_EQ(e.Page(), "oscillator");
    // Two blocks named "Output" are told apart by type.
    e.Click(e.Title(stereo).x, e.Title(stereo).y);
    EXPECT_EQ(e.Page(), "stereooutput");
    e.Click(e.Title(mono).x, e.Title(mono).y);
    EXPECT_EQ(e.Page(), "output");
    // A press on the empty canvas with a selection goes home; without one it leaves the page.
    e.Click(300, 200);
    EXPECT_EQ(e.Page(), "default");
    e.Display().Navigate("filter");
    e.Click(300, 200);
    EXPECT_EQ(e.Page(), "filter");

    // Locked, block clicks leave the article alone.
    e.ClickBarButton(HelpDisplayTopBar::kLock);
    EXPECT_TRUE(e.Display().Locked());
    e.Click(oscTitle.x, oscTitle.y);
    EXPECT_EQ(e.Page(), "filter");
    e.ClickBarButton(HelpDisplayTopBar::kLock);
    e.Click(oscTitle.x, oscTitle.y);
    EXPECT_EQ(e.Page(), "oscillator");
    e.Paint();
}

TEST(ManualPanels, LinksAndTheBarsButtonsWalkTheHistory) {
    ManualEditor e;
    e.Canvas().OnCommand(editor::kCommandHelp);
    e.Paint();
    EXPECT_FALSE(e.Bar().Enabled(HelpDisplayTopBar::kBack));

    e.ClickLink(0);  // "the oscillator"
    EXPECT_EQ(e.Page(), "oscillator");
    e.ClickLink(0);  // "the filter"
    EXPECT_EQ(e.Page(), "filter");
    e.ClickBarButton(HelpDisplayTopBar::kBack);
    EXPECT_EQ(e.Page(), "oscillator");
    e.ClickBarButton(HelpDisplayTopBar::kBack);
    EXPECT_EQ(e.Page(), "default");
    EXPECT_FALSE(e.Bar().Enabled(HelpDisplayTopBar::kBack));
    e.ClickBarButton(HelpDisplayTopBar::kBack);  // nothing further back
    EXPECT_EQ(e.Page(), "default");
    e.ClickBarButton(HelpDisplayTopBar::kForward);
    EXPECT_EQ(e.Page(), "oscillator");
    EXPECT_TRUE(e.Bar().Enabled(HelpDisplayTopBar::kForward));

    // A new step drops what lay ahead; a link by screen name lands on the same article.
    e.Display().Back();
    e.ClickLink(1);  // "a filter", linked as "Filter"
    EXPECT_EQ(e.Page(), "filter");
    EXPECT_FALSE(e.Bar().Enabled(HelpDisplayTopBar::kForward));
    e.ClickBarButton(HelpDisplayTopBar::kHome);
    EXPECT_EQ(e.Page(), "default");
    // Text that is not a link does nothing.
    int x = 20, y = 10;
    e.Display().LocalToGlobal(x, y);
    e.ClickWindow(x, y);
    EXPECT_EQ(e.Page(), "default");
    EXPECT_FALSE(e.Display().Navigate("no such page"));
    EXPECT_EQ(e.Page(), "default");
    e.Paint();
}

TEST(ManualPanels, TheWheelAndTheScrollBarScrollALongArticleAndBackRestoresThePlace) {
    ManualEditor e;
    e.Canvas().OnCommand(editor::kCommandHelp);
    e.Display().Navigate("oscillator");
    HelpDisplay& d = e.Display();
    ASSERT_GT(d.Layout().height + 2 * HelpDisplay::kMargin, float(d.bounds.h))
        << "the test article must scroll";
    const float bottom = d.Layout().height + 2 * HelpDisplay::kMargin - float(d.bounds.h);

    int x = 100, y = 100;
    d.LocalToGlobal(x, y);
    e.native->Move(x, y, 0);
    e.native->Wheel(-120 * 2);
    EXPECT_FLOAT_EQ(d.ScrollTop(), 2 * HelpDisplay::kWheelStep);
    EXPECT_FLOAT_EQ(d.vScrollPosition, d.ScrollTop() / bottom);
    e.native->Wheel(-120 * 1000);
    EXPECT_FLOAT_EQ(d.ScrollTop(), bottom);
    e.native->Wheel(120 * 1000);
    EXPECT_FLOAT_EQ(d.ScrollTop(), 0);

    // Dragging the bar's thumb to the middle shows the middle.
    G::Scroller& bar = *d.vScroller;
    x = bar.bounds.w / 2, y = bar.ThumbStart() + 2;
    bar.LocalToGlobal(x, y);
    e.native->Move(x, y, 0);
    e.native->Send(NativeEventKind::LeftDown, x, y, 0);
    const int travel = (bar.bounds.h - bar.ThumbLength()) / 2;
    e.native->Move(x, y + travel, 0);
    e.native->Send(NativeEventKind::LeftUp, x, y + travel, 0);
    EXPECT_NEAR(d.ScrollTop(), bottom / 2, bottom / 20);

    const float place = d.ScrollTop();
    d.Navigate("filter");
    EXPECT_EQ(d.ScrollTop(), 0);
    d.Back();
    EXPECT_FLOAT_EQ(d.ScrollTop(), place);
    e.Paint();
}

}  // namespace
