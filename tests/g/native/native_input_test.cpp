// The server-free parts of the X11 layer: keysyms to virtual keys and characters, modifier
// bits, double-click detection, UTF-8, text/uri-list decoding, menu panel placement, and the
// missing display.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "engine/log.h"
#include "g/keys.h"
#include "g/native/native.h"
#include "g/native/x11/x11_internal.h"
#include "g/utf8.h"

// Xlib's macros (None, Bool, Status) must come after the test framework.
#include <X11/X.h>
#include <X11/keysym.h>

namespace {

using namespace G::x11;
using G::AppendUtf8;
using G::ToUtf8;

TEST(X11Keys, KeysymsMapToWindowsVirtualKeys) {
    const std::pair<unsigned long, int> rows[] = {
        {XK_a, 'A'},           {XK_z, 'Z'},      {XK_Q, 'Q'},        {XK_0, '0'},       {XK_9, '9'},
        {XK_space, 32},        {XK_Left, 37},    {XK_Up, 38},        {XK_Right, 39},    {XK_Down, 40},
        {XK_BackSpace, 8},     {XK_Delete, 46},  {XK_Return, 13},    {XK_KP_Enter, 13}, {XK_Prior, 33},
        {XK_Next, 34},         {XK_Home, 36},    {XK_End, 35},       {XK_Insert, 45},   {XK_KP_Divide, 111},
        {XK_KP_Multiply, 106}, {XK_period, 190}, {XK_Escape, 27},    {XK_F1, 112},      {XK_F12, 123},
        {XK_Tab, 9},           {XK_Shift_R, 16}, {XK_Control_L, 17}, {XK_Alt_L, 18},    {XK_KP_0, 0x60},
        {XK_KP_7, 0x67},       {XK_KP_Left, 37}, {XK_KP_Delete, 46}, {XK_minus, 0xBD},  {XK_eacute, 0},
        {NoSymbol, 0},
    };
    for (auto [keysym, virtualKey] : rows) EXPECT_EQ(VirtualKeyFromKeysym(keysym), virtualKey) << keysym;
}

TEST(X11Keys, ModifierStateAndCharacters) {
    EXPECT_EQ(ModifiersFromState(0), 0u);
    // The editor sums Ctrl 1, Shift 2, Alt 4 and compares the sum ("exactly Shift" is 2).
    EXPECT_EQ(ModifiersFromState(ShiftMask | LockMask), 2u);
    EXPECT_EQ(ModifiersFromState(ControlMask | Mod2Mask), 1u);
    EXPECT_EQ(ModifiersFromState(ControlMask | ShiftMask | Mod1Mask), 7u);

    EXPECT_EQ(CharacterFromKey(XK_a, "a", 1), 'a');
    EXPECT_EQ(CharacterFromKey(XK_eacute, "\xe9", 1), 0xE9);  // Latin-1 byte
    EXPECT_EQ(CharacterFromKey(XK_c, "\x03", 1), 3);          // Ctrl+C
    EXPECT_EQ(CharacterFromKey(XK_Delete, "\x7f", 1), 0);     // no character, as on Windows
    EXPECT_EQ(CharacterFromKey(XK_Left, "", 0), 0);
    EXPECT_EQ(CharacterFromKey(0x010020AC, "", 0), 0x20AC);  // Unicode keysym: euro sign
    EXPECT_EQ(CharacterFromKey(0x0101F3B9, "", 0), 0x1F3B9);
}

TEST(X11Clicks, OnlyAQuickNearbySecondPressOfTheSameButtonIsDouble) {
    ClickTracker clicks;
    EXPECT_FALSE(clicks.Press(1, 1000, 10, 10));
    EXPECT_TRUE(clicks.Press(1, 1400, 14, 6));   // 400 ms and 4 pixels are still in
    EXPECT_FALSE(clicks.Press(1, 1500, 14, 6));  // a third press starts afresh
    EXPECT_TRUE(clicks.Press(1, 1600, 14, 6));
    EXPECT_FALSE(clicks.Press(1, 2001, 14, 6));
    EXPECT_FALSE(clicks.Press(1, 2402, 14, 6));  // 401 ms later
    EXPECT_FALSE(clicks.Press(1, 2500, 19, 6));  // 5 pixels away
    EXPECT_FALSE(clicks.Press(3, 2600, 19, 6));  // another button
    EXPECT_TRUE(clicks.Press(3, 2700, 19, 6));
    // Server time wraps after 49 days; the interval is still measured across the wrap.
    ClickTracker wrapping;
    EXPECT_FALSE(wrapping.Press(1, 0xFFFFFF80ul, 0, 0));
    EXPECT_TRUE(wrapping.Press(1, 0x48ul, 0, 0));
}

TEST(X11Text, Utf8Encoding) {
    EXPECT_EQ(ToUtf8(L"A\u00fc\u20ac\U0001F3B9"), "A\xc3\xbc\xe2\x82\xac\xf0\x9f\x8e\xb9");
    std::string out;
    AppendUtf8(out, 0xD800);    // a lone surrogate
    AppendUtf8(out, 0x110000);  // past Unicode
    EXPECT_EQ(out, "\xef\xbf\xbd\xef\xbf\xbd");
}

TEST(X11Drops, UriListsBecomeLocalPaths) {
    EXPECT_EQ(DecodeUriList("# comment\r\nfile:///tmp/a%20b.vrkx\r\nfile://host/home/%C3%BC.vrk\r\n"
                            "http://example.org/x.vrkx\r\nfile:/plain/path\nfile://nohostpath\r\n\r\n"),
              (std::vector<std::string>{"/tmp/a b.vrkx", "/home/\xc3\xbc.vrk", "/plain/path"}));
    // Malformed escapes stay as they are.
    EXPECT_EQ(DecodeUriList("file:///a%zz%4"), std::vector<std::string>{"/a%zz%4"});
    EXPECT_TRUE(DecodeUriList("").empty());
}

TEST(X11Menus, PanelsStackRowsAndFitOnTheScreen) {
    // Two items around a separator, at a point with room.
    MenuPanelLayout layout = LayoutMenuPanel({40, -1, 60}, 100, 50, 100, 50, 800, 600);
    ASSERT_EQ(layout.items.size(), 3u);
    EXPECT_EQ(layout.items[0], (G::Rect{2, 2, 112, 22}));
    EXPECT_EQ(layout.items[1], (G::Rect{2, 24, 112, 7}));
    EXPECT_EQ(layout.items[2], (G::Rect{2, 31, 112, 22}));
    EXPECT_EQ(layout.screenRect, (G::Rect{100, 50, 116, 55}));
    // Narrow captions still get the minimum width.
    EXPECT_EQ(LayoutMenuPanel({5}, 0, 0, 0, 0, 800, 600).screenRect.w, 104);
    // No room right or below: the panel flips to end at the alternate edges.
    EXPECT_EQ(LayoutMenuPanel({40}, 750, 590, 700, 580, 800, 600).screenRect, (G::Rect{596, 554, 104, 26}));
    // Even the alternate would leave the screen: clamped inside.
    EXPECT_EQ(LayoutMenuPanel({40}, 790, 595, 50, 10, 800, 600).screenRect, (G::Rect{0, 0, 104, 26}));
}

TEST(X11Display, NoDisplayGivesNullAndOneLogLine) {
    static std::vector<std::string> lines;
    LogSink previous = SetLogSink([](int, const char* text) { lines.push_back(text); });
    setenv("DISPLAY", ":31999", 1);
    EXPECT_EQ(G::native::CreateNativeWindow(L"x", G::Rect{0, 0, 10, 10}, 0, 0), nullptr);
    EXPECT_EQ(G::native::CreateNativeWindow(L"x", G::Rect{0, 0, 10, 10}, 0, 0), nullptr);
    G::native::PumpPendingMessages();
    G::native::RunMessageLoop();  // returns at once with no display
    SetLogSink(previous);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("cannot open display \":31999\""), std::string::npos);
}

TEST(X11OpenUrl, StartsTheOpenerWithTheAddressAndSurvivesItsAbsence) {
    namespace fs = std::filesystem;
    const fs::path dir = fs::path(::testing::TempDir()) / "open_url";
    fs::remove_all(dir);
    fs::create_directories(dir / "bin");
    fs::create_directories(dir / "empty");
    const fs::path seen = dir / "seen.txt";
    {
        std::ofstream script(dir / "bin" / "xdg-open");
        script << "#!/bin/sh\nPATH=/usr/bin:/bin\nprintf '%s' \"$1\" > " << seen.string() << ".part && mv "
               << seen.string() << ".part " << seen.string() << "\n";
    }
    fs::permissions(dir / "bin" / "xdg-open", fs::perms::owner_all);
    const std::string oldPath = std::getenv("PATH") ? std::getenv("PATH") : "";
    static std::vector<std::string> lines;
    LogSink previous = SetLogSink([](int, const char* text) { lines.push_back(text); });

    setenv("PATH", (dir / "bin").c_str(), 1);
    EXPECT_TRUE(OpenUrl("https://example.org/vrok wiki"));
    setenv("PATH", (dir / "empty").c_str(), 1);
    EXPECT_FALSE(OpenUrl("https://example.org/"));
    setenv("PATH", oldPath.c_str(), 1);
    SetLogSink(previous);

    for (int i = 0; i < 250 && !fs::exists(seen); ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    std::ifstream in(seen);
    std::string address((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_EQ(address, "https://example.org/vrok wiki") << "one argument, spaces kept";
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("xdg-open"), std::string::npos);
}

}  // namespace
