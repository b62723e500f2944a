// End to end under an X server (run through xvfb-run): `vrok edit` on the example patch that has
// a block of every kind with a GUI of its own. xdotool presses the waveshaper's "invert" and
// draws a stroke in the custom envelope; the screenshot must then show, in each GUI's drawing
// area, what the same editor draws off screen after the same changes, and no area is blank.
// Then the same patch plays live on a private dummy JACK server and the displays must move.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "app/child_process.h"
#include "editor/curve_editors.h"
#include "editor/display_guis.h"
#include "editor/player_guis.h"
#include "editor_fixture.h"
#include "g/button.h"
#include "g/theme.h"
#include "g/widget_probes.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using namespace editortest;

using e2e::ReadAll;

void Xdotool(const std::string& args) { ASSERT_EQ(std::system(("xdotool " + args).c_str()), 0) << args; }

uint32_t ShotPixel(const G::Bitmap& shot, int x, int y) {
    const uint8_t* p = shot.Row(y) + x * shot.bytesPerPixel;
    return uint32_t(p[2]) << 16 | uint32_t(p[1]) << 8 | p[0];  // stored blue, green, red
}

// Where `area` sits in the top-level window.
G::Rect InWindow(G::Control* area) {
    int x = 0, y = 0;
    area->LocalToGlobal(x, y);
    return G::Rect{x, y, area->bounds.w, area->bounds.h};
}

TEST(BlockGuisEndToEnd, EveryGuiDrawsOnScreenWhatTheEditorDrawsAndGesturesReachIt) {
    const fs::path dir = fs::temp_directory_path() / "vrok-block-guis-e2e";
    fs::remove_all(dir);
    fs::create_directories(dir);
    const fs::path shot = dir / "shot.png";
    const fs::path log = dir / "out.txt";
    const std::string patch = std::string(VROK_SOURCE_DIR) + "/examples/block_guis.vrkx";

    // The same editor off screen, with the changes the gestures below make.
    Editor e;
    ASSERT_TRUE(e.doc.LoadFile(patch));
    e.Canvas().DocumentChanged();
    e.Paint();
    editor::WaveshaperGui* shaper = nullptr;
    editor::CustomEnvBlockGui* envelope = nullptr;
    std::vector<std::pair<std::string, G::Control*>> areas;
    for (auto& record : e.doc.patchBlocks) {
        editor::VrokBlockWindow* w = e.WindowOf(record.get());
        ASSERT_NE(w, nullptr);
        if (auto* g = dynamic_cast<editor::WaveshaperGui*>(w))
            shaper = g, areas.emplace_back("waveshaper", g->area);
        if (auto* g = dynamic_cast<editor::CustomEnvBlockGui*>(w))
            envelope = g, areas.emplace_back("custom envelope", g->area);
        if (auto* g = dynamic_cast<editor::DisplayBlockGui*>(w)) areas.emplace_back(w->title, g->area);
        if (auto* g = dynamic_cast<editor::ArpGui*>(w)) areas.emplace_back("arpeggiator", g->ticker);
        if (auto* g = dynamic_cast<editor::AdvancedEnvBlockGui*>(w))
            areas.emplace_back("advanced envelope", g->area);
    }
    ASSERT_NE(shaper, nullptr);
    ASSERT_NE(envelope, nullptr);
    ASSERT_EQ(areas.size(), 12u) << "three curves, eight displays, the ticker";
    const G::Rect invert =
        InWindow(*std::find_if(shaper->children.begin(), shaper->children.end(), [](auto* c) {
            auto* b = dynamic_cast<G::CustomButton*>(c);
            return b && b->id == editor::CurveBlockGui::kFirstButtonId + editor::CurveBlockGui::kInvert;
        }));
    const G::Rect curve = InWindow(envelope->area);
    shaper->OnCommand(editor::CurveBlockGui::kFirstButtonId + editor::CurveBlockGui::kInvert);
    // A stroke along the top from a quarter to three quarters of the envelope.
    const int x0 = curve.x + curve.w / 4, x1 = curve.x + 3 * curve.w / 4, y = curve.y + 2;
    e.native->Move(x0, y);
    e.native->Send(NativeEventKind::LeftDown, x0, y);
    e.native->Move(x1, y);
    e.native->Send(NativeEventKind::LeftUp, x1, y);
    e.Paint();

    const std::string command = std::string(VROK_BINARY) + " edit '" + patch + "' --screenshot '" +
                                shot.string() + "' --after 4000 > '" + log.string() + "' 2>&1 &";
    ASSERT_EQ(std::system(command.c_str()), 0);
    for (int i = 0; i < 200 && ReadAll(log).find("ready") == std::string::npos; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_NE(ReadAll(log).find("ready"), std::string::npos) << ReadAll(log);
    EXPECT_EQ(ReadAll(log).find("warning"), std::string::npos) << "the example loads whole: " << ReadAll(log);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    Xdotool("mousemove " + std::to_string(invert.x + invert.w / 2) + " " +
            std::to_string(invert.y + invert.h / 2) + " sleep 0.2 click 1 sleep 0.2");
    Xdotool("mousemove " + std::to_string(x0) + " " + std::to_string(y) +
            " sleep 0.2 mousedown 1 sleep 0.1 mousemove " + std::to_string((x0 + x1) / 2) + " " +
            std::to_string(y) + " sleep 0.1 mousemove " + std::to_string(x1) + " " + std::to_string(y) +
            " sleep 0.1 mouseup 1");
    for (int i = 0; i < 200 && ReadAll(log).find("Screenshot") == std::string::npos; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_NE(ReadAll(log).find("Screenshot"), std::string::npos) << ReadAll(log);

    const std::string png = ReadAll(shot);
    auto bitmap = G::DecodePng(reinterpret_cast<const uint8_t*>(png.data()), png.size());
    ASSERT_NE(bitmap, nullptr);
    ASSERT_EQ(bitmap->bytesPerPixel, 3);
    for (const auto& [name, area] : areas) {
        const G::Rect r = InWindow(area);
        ASSERT_LE(r.x + r.w, bitmap->width) << name;
        ASSERT_LE(r.y + r.h, bitmap->height) << name;
        int differing = 0;
        std::set<uint32_t> colours;
        for (int py = 0; py < r.h; ++py) {
            for (int px = 0; px < r.w; ++px) {
                const uint32_t seen = ShotPixel(*bitmap, r.x + px, r.y + py);
                colours.insert(seen);
                differing += seen != gtest_support::PixelOf(*area, px, py);
            }
        }
        EXPECT_GE(colours.size(), 3u) << name << " is blank";  // more than a fill and a frame
        EXPECT_LE(differing, r.w * r.h / 50) << name << ": the screen differs from the editor's drawing";
    }
}

// Bright pixels (any channel above 0xC0) in a display's area of the screenshot, leaving out
// the rows within `centre` of its middle: a trace or bar that has moved off its rest.
int LitAwayFromCentre(const G::Bitmap& shot, const G::Rect& r, int centre) {
    int n = 0;
    for (int py = 1; py < r.h - 1; ++py) {
        if (std::abs(py - r.h / 2) <= centre) continue;
        for (int px = 1; px < r.w - 1; ++px) {
            const uint32_t p = ShotPixel(shot, r.x + px, r.y + py);
            n += std::max({p >> 16, (p >> 8) & 0xFF, p & 0xFF}) > 0xC0;
        }
    }
    return n;
}

// The same example played through a JACK server of the test's own (the dummy driver, no sound
// card): with two keys of the computer keyboard held, the screenshot shows the scope's trace
// off its centre line, the spectrum's bars and the VU bar up, where the silent run showed them
// at rest.
TEST(BlockGuisEndToEnd, DisplaysMoveWhileThePatchPlaysLive) {
    if (std::system("command -v jackd >/dev/null 2>&1") != 0) GTEST_SKIP() << "jackd is not installed";
    const fs::path dir = fs::temp_directory_path() / "vrok-block-guis-live";
    fs::remove_all(dir);
    fs::create_directories(dir);
    const std::string server = "vrokguis" + std::to_string(::getpid());
    // Spawned and reaped here, so that no server outlives the test.
    struct Server {
        pid_t pid = -1;
        ~Server() {
            if (pid > 0) kill(pid, SIGTERM), waitpid(pid, nullptr, 0);
        }
    } jackd;
    {
        std::vector<std::string> args = {
            "jackd", "-n", server, "--no-realtime", "--sync", "-d", "dummy", "-r", "44100", "-p", "256"};
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        const std::string out = (dir / "jackd.txt").string();
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        posix_spawn_file_actions_adddup2(&actions, 1, 2);
        ASSERT_EQ(posix_spawnp(&jackd.pid, "jackd", &actions, nullptr, argv.data(), environ), 0);
        posix_spawn_file_actions_destroy(&actions);
    }
    setenv("JACK_DEFAULT_SERVER", server.c_str(), 1);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));

    const std::string patch = std::string(VROK_SOURCE_DIR) + "/examples/block_guis.vrkx";
    Editor e;
    ASSERT_TRUE(e.doc.LoadFile(patch));
    e.Paint();
    std::map<std::string, G::Rect> displays;
    for (auto& record : e.doc.patchBlocks)
        if (auto* g = dynamic_cast<editor::DisplayBlockGui*>(e.WindowOf(record.get())))
            displays[g->title] = InWindow(g->area);
    ASSERT_TRUE(displays.count("Scope") && displays.count("Spectrum") && displays.count("VU-meter"));

    const fs::path shot = dir / "live.png";
    const fs::path log = dir / "out.txt";
    const std::string command = std::string(VROK_BINARY) + " edit '" + patch +
                                "' --audio jack --screenshot '" + shot.string() + "' --after 2500 > '" +
                                log.string() + "' 2>&1 &";
    ASSERT_EQ(std::system(command.c_str()), 0);
    for (int i = 0; i < 200 && ReadAll(log).find("ready") == std::string::npos; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    ASSERT_NE(ReadAll(log).find("playing through JACK"), std::string::npos) << ReadAll(log);
    // A click on empty canvas gives the editor the keys; Z and B are C and G.
    Xdotool("mousemove 450 560 click 1 sleep 0.2 keydown z sleep 0.2 keydown b");
    for (int i = 0; i < 200 && ReadAll(log).find("Screenshot") == std::string::npos; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    Xdotool("keyup z keyup b");
    ASSERT_NE(ReadAll(log).find("Screenshot"), std::string::npos) << ReadAll(log);
    const std::string png = ReadAll(shot);
    auto bitmap = G::DecodePng(reinterpret_cast<const uint8_t*>(png.data()), png.size());
    ASSERT_NE(bitmap, nullptr);
    EXPECT_GT(LitAwayFromCentre(*bitmap, displays["Scope"], 3), 20) << "the scope's trace moved";
    EXPECT_GT(LitAwayFromCentre(*bitmap, displays["Spectrum"], 0), 20) << "spectrum bars stand";
    EXPECT_GT(LitAwayFromCentre(*bitmap, displays["VU-meter"], 0), 0) << "the VU bar is up";
}

}  // namespace
