// End to end under an X server (run through xvfb-run): starts `vrok gallery`, drags a knob
// and clicks a switch with xdotool, then checks the printed listener calls and what the
// window's own screenshot shows against an untouched run.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "child_process.h"
#include "g/theme.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

using e2e::ReadAll;

// `vrok gallery` with standard output going to a file.
e2e::ChildProcess Gallery(const fs::path& screenshot, int afterMs, const fs::path& output) {
    return e2e::ChildProcess({VROK_BINARY, "gallery", "--screenshot", screenshot.string(), "--after",
                              std::to_string(afterMs)},
                             output);
}

std::unique_ptr<G::Bitmap> LoadPng(const fs::path& p) {
    std::string bytes = ReadAll(p);
    return G::DecodePng(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
}

// How many pixels differ inside a window rectangle.
int Differences(const G::Bitmap& a, const G::Bitmap& b, int x0, int y0, int w, int h) {
    int n = 0;
    for (int y = y0; y < y0 + h; ++y) {
        for (int x = x0; x < x0 + w; ++x) {
            n += std::memcmp(a.Row(y) + x * 3, b.Row(y) + x * 3, 3) != 0;
        }
    }
    return n;
}

void Xdotool(const std::string& args) { ASSERT_EQ(std::system(("xdotool " + args).c_str()), 0) << args; }

TEST(GalleryEndToEnd, KnobDragAndSwitchClickReachTheListenerAndTheScreen) {
    ASSERT_NE(std::getenv("DISPLAY"), nullptr) << "run under xvfb-run";
    fs::path dir = fs::path(::testing::TempDir()) / "gallery_e2e";
    fs::create_directories(dir);

    e2e::ChildProcess untouched = Gallery(dir / "untouched.png", 500, dir / "untouched.txt");
    ASSERT_EQ(untouched.Wait(30s), 0);

    e2e::ChildProcess gallery = Gallery(dir / "touched.png", 2500, dir / "touched.txt");
    ASSERT_TRUE(gallery.WaitForLine("ready", 20s));
    // Without a window manager the window stands at the screen's origin.
    Xdotool(
        "mousemove 40 50 sleep 0.1 mousedown 1 sleep 0.1 mousemove 40 40 sleep 0.1 mousemove 40 30 "
        "sleep 0.1 mouseup 1 sleep 0.1");
    Xdotool("mousemove 260 130 sleep 0.1 click 1 sleep 0.1");
    ASSERT_EQ(gallery.Wait(30s), 0);

    std::vector<std::string> lines = gallery.Lines();
    auto find = [&](const std::string& line, size_t from) {
        for (size_t i = from; i < lines.size(); ++i) {
            if (lines[i] == line) return i;
        }
        return lines.size();
    };
    size_t begin = find("BeginChange 1", 0);
    size_t last = find("ValueChanged 1 0.7000", begin);
    size_t end = find("EndChange 1", last);
    ASSERT_LT(end, lines.size()) << ReadAll(dir / "touched.txt");
    size_t switchOn = find("ValueChanged 9 1.0000", find("BeginChange 9", end));
    EXPECT_LT(find("EndChange 9", switchOn), lines.size()) << ReadAll(dir / "touched.txt");
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "BeginChange 1"), 1);

    auto before = LoadPng(dir / "untouched.png");
    auto after = LoadPng(dir / "touched.png");
    ASSERT_TRUE(before && after);
    ASSERT_EQ(before->width, 660);
    ASSERT_EQ(before->height, 400);
    EXPECT_GT(Differences(*before, *after, 20, 30, 40, 40), 20);    // the knob turned
    EXPECT_GT(Differences(*before, *after, 250, 120, 20, 20), 10);  // the switch is on
    EXPECT_EQ(Differences(*before, *after, 450, 320, 200, 70), 0);  // elsewhere nothing moved
}

}  // namespace
