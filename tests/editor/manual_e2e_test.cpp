// End to end under an X server (run through xvfb-run): `vrok edit` on an example with the tests'
// small manual. Help shows the manual, a click on the oscillator shows its article, a link leads
// on and Back comes back; the editor reports each article it comes to. Where to click is read
// from the same editor and manual built off screen.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "app/child_process.h"
#include "document/vrok_doc.h"
#include "editor/top_bar.h"
#include "editor/vrok_block_window.h"
#include "editor/vrok_container_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/audio_block.h"
#include "help/help_display.h"
#include "help/help_display_top_bar.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using e2e::ReadAll;

constexpr int kWidth = 900, kHeight = 600;

std::string ClickAt(int x, int y) {
    return "xdotool mousemove " + std::to_string(x) + " " + std::to_string(y) +
           " sleep 0.2 click 1 sleep 0.2";
}

G::Rect Global(const G::Control& control, int x, int y) {
    control.LocalToGlobal(x, y);
    return G::Rect{x, y, 1, 1};
}

TEST(ManualEndToEnd, HelpThenABlockThenALinkThenBack) {
    ASSERT_NE(std::getenv("DISPLAY"), nullptr) << "run under xvfb-run";
    const std::string patch = VROK_SOURCE_DIR "/examples/subtractive.vrkx";
    const std::string manualFile = VROK_SOURCE_DIR "/tests/help/data/test_manual.xml";
    const fs::path dir = fs::path(::testing::TempDir()) / "manual_e2e";
    fs::remove_all(dir);
    fs::create_directories(dir);

    // The same window off screen: where Help, the oscillator, its first link and Back are.
    VrokDoc doc;
    ASSERT_TRUE(doc.LoadFile(patch));
    editor::VrokContainerWindow ui(nullptr, doc, kWidth, kHeight);
    ui.UseManual(std::make_unique<HelpLibrary>(ReadAll(manualFile)));
    const G::Rect help = Global(*ui.topBar->helpButton, 3, 6);
    const editor::VrokBlockWindow* osc = nullptr;
    for (const editor::VrokBlockWindow* w : ui.docWindow->blockWindows)
        if (w->patchBlock->block && w->patchBlock->block->type == 4) osc = w;
    ASSERT_NE(osc, nullptr) << "the example has an oscillator";
    ui.docWindow->ToggleManual();
    const G::Rect oscTitle = Global(*osc, 40, 5);
    ASSERT_TRUE(ui.helpDisplay->Navigate("oscillator"));
    int lx = 0, ly = 0;
    ASSERT_TRUE(ui.helpDisplay->LinkPoint(0, lx, ly));
    const G::Rect link = Global(*ui.helpDisplay, lx, ly);
    G::Rect back;
    for (const G::CustomButton* b : ui.helpTopBar->buttons)
        if (b->id == HelpDisplayTopBar::kBack) back = Global(*b, 4, 6);

    e2e::ChildProcess vrok({VROK_BINARY, "edit", patch, "--manual-file", manualFile, "--screenshot",
                            (dir / "manual.png").string(), "--after", "12000"},
                           dir / "out.txt");
    ASSERT_TRUE(vrok.WaitForLine("ready", 30s)) << ReadAll(dir / "out.txt");
    ASSERT_EQ(std::system(ClickAt(help.x, help.y).c_str()), 0);
    ASSERT_TRUE(vrok.WaitForLine("manual default", 10s)) << ReadAll(dir / "out.txt");
    ASSERT_EQ(std::system(ClickAt(oscTitle.x, oscTitle.y).c_str()), 0);
    ASSERT_TRUE(vrok.WaitForLine("manual oscillator", 10s)) << ReadAll(dir / "out.txt");
    ASSERT_EQ(std::system(ClickAt(link.x, link.y).c_str()), 0);
    ASSERT_TRUE(vrok.WaitForLine("manual filter", 10s)) << ReadAll(dir / "out.txt");
    ASSERT_EQ(std::system(ClickAt(back.x, back.y).c_str()), 0);
    ASSERT_EQ(vrok.Wait(60s), 0) << ReadAll(dir / "out.txt");

    const std::vector<std::string> lines = vrok.Lines();
    std::vector<std::string> pages;
    for (const std::string& line : lines)
        if (line.rfind("manual ", 0) == 0) pages.push_back(line);
    EXPECT_EQ(pages, (std::vector<std::string>{"manual default", "manual oscillator", "manual filter",
                                               "manual oscillator"}));
    EXPECT_TRUE(fs::exists(dir / "manual.png"));
}

}  // namespace
