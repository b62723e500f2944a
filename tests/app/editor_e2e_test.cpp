// End to end under an X server (run through xvfb-run): starts `vrok edit` on an empty patch,
// adds an oscillator and an output from the right-click menu, wires them by dragging, sets the
// oscillator's level, saves through the menu and the file dialog, then checks that the saved
// patch loads with that wire and level and that it renders a note whose loudness follows it.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "child_process.h"
#include "document/vrok_doc.h"
#include "editor/editor_menus.h"
#include "engine/vrok_instance.h"
#include "g/menu.h"
#include "g/theme.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

using e2e::ReadAll;

void Xdotool(const std::string& args) { ASSERT_EQ(std::system(("xdotool " + args).c_str()), 0) << args; }

// Opens the canvas menu at x, y and waits for the window named "menu" before the keys that
// follow: a menu takes keys only once it is on screen with the keyboard grabbed, and a loaded
// machine can be slower than any fixed pause.
std::string MenuAt(int x, int y) {
    return "mousemove " + std::to_string(x) + " " + std::to_string(y) +
           " sleep 0.2 click 3 search --sync --onlyvisible --name ^menu$ && xdotool sleep 0.3 key";
}

// The keys that walk the canvas menu to `submenu`/`item`, read from the menu the editor builds,
// so new block types in the table do not move the test's aim.
std::string MenuKeys(const std::string& submenu, const std::string& item) {
    G::MenuItem menu(0, "");
    editor::BuildCanvasMenu(menu);
    std::string keys;
    for (const auto& sub : menu.children) {
        keys += " Down";
        if (sub->caption != submenu) continue;
        keys += " Right";
        for (size_t i = 1; i < sub->children.size() && sub->children[i - 1]->caption != item; ++i)
            keys += " Down";
        return keys + " Return";
    }
    return " Escape";
}

double Rms(const fs::path& wav) {
    SF_INFO info{};
    SNDFILE* file = sf_open(wav.c_str(), SFM_READ, &info);
    if (!file) return -1;
    std::vector<float> samples(size_t(info.frames) * info.channels);
    sf_readf_float(file, samples.data(), info.frames);
    sf_close(file);
    double sum = 0;
    for (float s : samples) sum += double(s) * s;
    return samples.empty() ? 0 : std::sqrt(sum / samples.size());
}

int Render(const fs::path& patch, const fs::path& wav) {
    const std::string command = std::string(VROK_BINARY) + " render '" + patch.string() +
                                "' --play A4@0-0.5 --seconds 0.5 -o '" + wav.string() + "' > /dev/null";
    return std::system(command.c_str());
}

TEST(EditorEndToEnd, BuildWireTurnSaveThenTheFileRendersAtThatLevel) {
    ASSERT_NE(std::getenv("DISPLAY"), nullptr) << "run under xvfb-run";
    const fs::path dir = fs::path(::testing::TempDir()) / "editor_e2e";
    fs::remove_all(dir);
    fs::create_directories(dir);
    {
        VrokDoc empty;
        empty.ClearAll();
        ASSERT_TRUE(empty.SaveFile((dir / "empty.vrkx").string()));
    }

    // The screenshot (and the exit) comes late enough for the gestures on a busy machine.
    e2e::ChildProcess vrok({VROK_BINARY, "edit", (dir / "empty.vrkx").string(), "--screenshot",
                (dir / "edited.png").string(), "--after", "15000"},
               dir / "out.txt");
    ASSERT_TRUE(vrok.WaitForLine("ready", 30s)) << ReadAll(dir / "out.txt");
    // Without a window manager the window stands at the screen's origin; the canvas starts 18 down.
    Xdotool(MenuAt(100, 150) + MenuKeys("Generate", "Oscillator") + " sleep 0.3");
    Xdotool(MenuAt(450, 150) + MenuKeys("Output", "Output") + " sleep 0.3");
    // From the oscillator's output arrow (top right) to the output's audio input (top left).
    Xdotool(
        "mousemove 227 156 sleep 0.2 mousedown 1 sleep 0.1 mousemove 330 160 sleep 0.1 mousemove 455 157 "
        "sleep 0.1 "
        "mouseup 1 sleep 0.3");
    // The oscillator's level slider: its second row, 119 pixels wide from x = 113.
    Xdotool(
        "mousemove 140 187 sleep 0.2 mousedown 1 sleep 0.1 mousemove 180 187 sleep 0.1 mousemove 202 187 "
        "sleep 0.1 mouseup 1 sleep 0.3");
    Xdotool(MenuAt(300, 450) + MenuKeys("Patch", "Save") + " sleep 0.8");
    Xdotool("type --delay 20 '" + (dir / "saved").string() + "'");
    Xdotool("sleep 0.2 key Return sleep 0.5");
    ASSERT_EQ(vrok.Wait(60s), 0) << ReadAll(dir / "out.txt");

    ASSERT_TRUE(fs::exists(dir / "saved.vrkx"));
    VrokDoc saved;
    ASSERT_TRUE(saved.LoadFile((dir / "saved.vrkx").string()));
    ASSERT_EQ(saved.patchBlocks.size(), 2u);
    const CAudioBlock* osc = saved.patchBlocks[0]->block;
    const CAudioBlock* out = saved.patchBlocks[1]->block;
    ASSERT_TRUE(osc && out);
    EXPECT_EQ(osc->type, 4);
    EXPECT_EQ(out->type, 0);
    ASSERT_EQ(saved.patchConnections.size(), 1u);
    const Connection* wire = saved.patchConnections[0]->connection;
    ASSERT_NE(wire, nullptr);
    EXPECT_EQ(wire->fromBlock, osc->index);
    EXPECT_EQ(wire->toBlock, out->index);
    EXPECT_EQ(wire->toPort, 0);
    const float level = osc->values[1];
    EXPECT_NEAR(level, 89.0f / 119.0f, 0.02f);

    // The same patch at the default level: loudness follows the level's square.
    saved.SetParameter(saved.patchBlocks[0].get(), 1, 0.5f);
    ASSERT_TRUE(saved.SaveFile((dir / "half.vrkx").string()));
    ASSERT_EQ(Render(dir / "saved.vrkx", dir / "saved.wav"), 0);
    ASSERT_EQ(Render(dir / "half.vrkx", dir / "half.wav"), 0);
    const double loud = Rms(dir / "saved.wav");
    const double quiet = Rms(dir / "half.wav");
    ASSERT_GT(quiet, 0.001);
    EXPECT_NEAR(loud / quiet, (level * level) / 0.25, 0.05 * (level * level) / 0.25);

    // The editor's own picture after the edits: both windows and the wire are drawn.
    const std::string png = ReadAll(dir / "edited.png");
    auto shot = G::DecodePng(reinterpret_cast<const uint8_t*>(png.data()), png.size());
    ASSERT_TRUE(shot);
    auto rgb = [&](int x, int y) {
        const uint8_t* p = shot->Row(y) + x * 3;
        return (uint32_t{p[2]} << 16) | (uint32_t{p[1]} << 8) | p[0];
    };
    EXPECT_EQ(rgb(180, 152), 0xFF847Fu) << "the oscillator's title strip";
    EXPECT_EQ(rgb(520, 152), 0xD9FF7Fu) << "the output's title strip";
    int wirePixels = 0;
    for (int y = 140; y < 180; ++y)
        for (int x = 240; x < 440; ++x) wirePixels += rgb(x, y) == 0xFF847Fu;
    EXPECT_GT(wirePixels, 50) << "the wire between them";
}

}  // namespace
