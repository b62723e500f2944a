// Real windows on an X server: key translation and characters, synthesised double clicks,
// wheel, capture, the surface on screen after paints, exposes and resizes, close requests,
// ticks, child and dialog windows, and the screen queries.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "g/keys.h"
#include "g/native/native.h"
#include "g/renderer.h"
#include "g/root_control.h"
#include "x11_peer.h"

// Xlib's macros (None, Bool, Status) must come after the test framework.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/keysym.h>

using test::Peer;
using test::PumpUntil;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

namespace {

constexpr G::Color kChildColor = 0xFF3366CC;
constexpr int kChildX = 20;
constexpr int kChildY = 20;

std::string Mods() {
    std::string text;
    if (G::IsShiftDown()) text += " shift";
    if (G::IsCtrlDown()) text += " ctrl";
    return text;
}

// Records what reaches it in a readable log.
class Recorder : public G::CustomControl {
public:
    using CustomControl::CustomControl;

    bool OnKeyDown(int key) override { return Note("keydown " + std::to_string(key) + Mods()); }
    bool OnKeyUp(int key) override { return Note("keyup " + std::to_string(key) + Mods()); }
    bool OnChar(int code) override { return Note("char " + std::to_string(code) + Mods()); }
    bool OnLeftDown(int x, int y) override { return Note("ldown", x, y); }
    bool OnLeftUp(int x, int y) override { return Note("lup", x, y); }
    bool OnRightDown(int x, int y) override { return Note("rdown", x, y); }
    bool OnRightUp(int x, int y) override { return Note("rup", x, y); }
    bool OnMiddleDown(int x, int y) override { return Note("mdown", x, y); }
    bool OnMiddleUp(int x, int y) override { return Note("mup", x, y); }
    bool OnDoubleClick(int x, int y) override { return Note("dbl", x, y); }
    bool OnRightDoubleClick(int x, int y) override { return Note("rdbl", x, y); }
    bool OnMiddleDoubleClick(int x, int y) override { return Note("mdbl", x, y); }
    bool OnWheel(int notches) override { return Note("wheel " + std::to_string(notches)); }
    bool OnHWheel(int notches) override { return Note("hwheel " + std::to_string(notches)); }
    bool OnMouseMove(int x, int y) override {
        moveX = x;
        moveY = y;
        ++moves;
        return true;
    }
    void OnTimer(int) override { ++ticks; }
    bool OnDraw(G::Renderer& renderer, G::Rect) override {
        renderer.FillRect(G::Brush::Solid(kChildColor), G::FloatRect{0, 0, float(Width()), float(Height())});
        return true;
    }

    std::vector<std::string> log;
    int moveX = -1, moveY = -1, moves = 0, ticks = 0;

private:
    bool Note(const std::string& text) {
        log.push_back(text);
        return true;
    }
    bool Note(const char* what, int x, int y) {
        return Note(std::string(what) + " " + std::to_string(x) + "," + std::to_string(y));
    }
};

class TestRoot : public G::RootControl {
public:
    using RootControl::RootControl;
    bool OnClose() override {
        ++closes;
        return keepOpen;
    }
    int closes = 0;
    bool keepOpen = true;
};

class X11Window : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(peer.display, nullptr) << "run under xvfb-run";
        auto native = G::native::CreateNativeWindow(L"Native test", G::Rect{40, 30, 320, 240}, 0, 0);
        ASSERT_NE(native, nullptr);
        root = std::make_unique<TestRoot>(std::move(native));
        child = new Recorder(root.get());
        root->AddChild(child);
        child->SetBounds(kChildX, kChildY, 100, 80);
        root->SetFocus(child);
        root->ShowTop();
        window = root->GetNativeWindow();
        ASSERT_TRUE(PumpUntil([&] { return peer.Shown(window); }));
        peer.Focus(window);
        peer.Origin(window, originX, originY);
    }

    void TearDown() override {
        root.reset();
        G::native::PumpPendingMessages();
    }

    void MoveInChild(int x, int y) {
        peer.MoveTo(originX + kChildX + x, originY + kChildY + y);
        ASSERT_TRUE(PumpUntil([&] { return child->moveX == x && child->moveY == y; }));
    }

    // Pumps until the log holds `count` entries, then a little more to catch extras.
    std::vector<std::string> LogOf(size_t count) {
        PumpUntil([&] { return child->log.size() >= count; });
        PumpUntil([] { return false; }, 30);
        std::vector<std::string> log = child->log;
        child->log.clear();
        return log;
    }

    Peer peer;
    std::unique_ptr<TestRoot> root;
    Recorder* child = nullptr;
    test::WindowId window = 0;
    int originX = 0, originY = 0;
};

TEST_F(X11Window, KeysArriveAsVirtualKeysThenCharactersWithTheirModifiers) {
    struct Row {
        unsigned long keysym;
        std::vector<std::string> log;
    };
    const Row rows[] = {
        {XK_a, {"keydown 65", "char 97", "keyup 65"}},
        {XK_Left, {"keydown 1000", "keyup 1000"}},
        {XK_BackSpace, {"keydown 1004", "char 8", "keyup 1004"}},
        {XK_KP_Divide, {"keydown 1012", "char 47", "keyup 1012"}},
        {XK_Return, {"keydown 1014", "char 13", "keyup 1014"}},
        {XK_period, {"keydown 1015", "char 46", "keyup 1015"}},
        {XK_Escape, {"keydown 27", "char 27", "keyup 27"}},
        {XK_F1, {"keydown 112", "keyup 112"}},
    };
    for (const Row& row : rows) {
        peer.Key(row.keysym);
        EXPECT_THAT(LogOf(row.log.size()), ElementsAreArray(row.log)) << XKeysymToString(row.keysym);
    }
    // Modifiers travel with every key event.
    peer.Key(XK_a, XK_Shift_L);
    EXPECT_THAT(LogOf(5), ElementsAre("keydown 16 shift", "keydown 65 shift", "char 65 shift",
                                      "keyup 65 shift", "keyup 16"));
    peer.Key(XK_c, XK_Control_L);
    EXPECT_THAT(LogOf(5), ElementsAre("keydown 17 ctrl", "keydown 67 ctrl", "char 3 ctrl", "keyup 67 ctrl",
                                      "keyup 17"));
}

TEST_F(X11Window, QuickSecondPressesBecomeDoubleClicksAThirdIsPlainAgainAndWheelButtonsScroll) {
    MoveInChild(10, 12);
    for (int i = 0; i < 3; ++i) peer.Click(1);
    EXPECT_THAT(LogOf(6), ElementsAre("ldown 10,12", "lup 10,12", "dbl 10,12", "lup 10,12", "ldown 10,12",
                                      "lup 10,12"));
    peer.Click(3);
    peer.Click(3);
    EXPECT_THAT(LogOf(4), ElementsAre("rdown 10,12", "rup 10,12", "rdbl 10,12", "rup 10,12"));
    peer.Click(2);
    peer.Click(2);
    EXPECT_THAT(LogOf(4), ElementsAre("mdown 10,12", "mup 10,12", "mdbl 10,12", "mup 10,12"));
    // Wheel buttons scroll the hovered control.
    for (int button : {4, 5, 6, 7}) peer.Click(button);
    EXPECT_THAT(LogOf(4), ElementsAre("wheel 1", "wheel -1", "hwheel -1", "hwheel 1"));
}

TEST_F(X11Window, CaptureKeepsTheMouseOutsideTheWindow) {
    MoveInChild(5, 5);
    child->CaptureMouse();
    G::native::PumpPendingMessages();
    peer.MoveTo(originX + 400, originY + 300);
    ASSERT_TRUE(PumpUntil([&] { return child->moveX == 400 - kChildX; }));
    EXPECT_EQ(child->moveY, 300 - kChildY);
    child->ReleaseMouse();
    G::native::PumpPendingMessages();
    int before = child->moves;
    peer.MoveTo(originX + 450, originY + 320);
    PumpUntil([] { return false; }, 60);
    EXPECT_EQ(child->moves, before);
}

TEST_F(X11Window, TheSurfaceReachesTheScreenAndComesBackAfterAnExpose) {
    auto childPixel = [&] { return peer.Pixel(window, kChildX + 50, kChildY + 40); };
    ASSERT_TRUE(PumpUntil([&] { return childPixel() == (kChildColor & 0xFFFFFF); }));
    XClearArea(peer.display, window, 0, 0, 0, 0, True);
    peer.Sync();
    EXPECT_EQ(childPixel(), 0xFFFFFFu);
    EXPECT_TRUE(PumpUntil([&] { return childPixel() == (kChildColor & 0xFFFFFF); }));
}

TEST_F(X11Window, ResizingResizesTheRootAndTheImage) {
    unsigned long background = peer.Pixel(window, 5, 5);
    root->native->SetClientSize(400, 300);
    ASSERT_TRUE(PumpUntil([&] { return root->Width() == 400 && root->Height() == 300; }));
    int w = 0, h = 0;
    root->native->ClientSize(w, h);
    EXPECT_EQ(std::pair(w, h), std::pair(400, 300));
    EXPECT_TRUE(PumpUntil([&] { return peer.Pixel(window, 390, 290) == background; }));
    EXPECT_EQ(peer.Pixel(window, kChildX + 1, kChildY + 1), kChildColor & 0xFFFFFF);
}

TEST_F(X11Window, CloseRequestsAskTheRootAndDestroyWhenItDeclines) {
    peer.SendClose(window);
    ASSERT_TRUE(PumpUntil([&] { return root->closes == 1; }));
    EXPECT_TRUE(peer.Shown(window));
    root->keepOpen = false;
    peer.SendClose(window);
    ASSERT_TRUE(PumpUntil([&] { return root->native == nullptr; }));
    EXPECT_EQ(root->closes, 2);
    EXPECT_FALSE(peer.Shown(window));
}

TEST_F(X11Window, TicksComeEvery25Milliseconds) {
    root->AddTimerClient(child);
    child->ticks = 0;
    PumpUntil([] { return false; }, 300);
    EXPECT_GE(child->ticks, 6);
    EXPECT_LE(child->ticks, 13);
}

// Ends the message loop from a tick, as a window that finished its work would.
class Stopper : public G::Control {
public:
    explicit Stopper(G::RootControl* root) : Control(root), native(root->native.get()) {}
    void OnTimer(int) override {
        if (++ticks == 4) native->running = false;
    }
    G::NativeWindow* native;
    int ticks = 0;
};

TEST_F(X11Window, TheMessageLoopRunsUntilNoWindowIsRunning) {
    auto* stopper = new Stopper(root.get());
    root->AddChild(stopper);
    root->AddTimerClient(stopper);
    // Should the loop not end, closing the window ends it.
    std::atomic<bool> returned{false};
    std::thread guard([&] {
        if (test::WaitUntil([&] { return returned.load(); }, 3000)) return;
        root->keepOpen = false;
        Peer().SendClose(window);
    });
    G::native::RunMessageLoop();
    returned = true;
    guard.join();
    EXPECT_EQ(stopper->ticks, 4);
    EXPECT_EQ(root->closes, 0);
}

TEST_F(X11Window, ScreenQueriesAgreeWithTheServer) {
    G::NativeWindow& native = *root->native;
    auto point = [](int x, int y) { return std::pair{x, y}; };
    int x = 7, y = 9;
    native.ClientToScreen(x, y);
    EXPECT_EQ(point(x, y), point(originX + 7, originY + 9));
    native.ScreenToClient(x, y);
    EXPECT_EQ(point(x, y), point(7, 9));
    native.ScreenSize(x, y);
    EXPECT_EQ(point(x, y), point(DisplayWidth(peer.display, 0), DisplayHeight(peer.display, 0)));
    peer.MoveTo(123, 45);
    native.CursorPosition(x, y);
    EXPECT_EQ(point(x, y), point(123, 45));
}

TEST(X11WindowKinds, ChildDialogAndTitles) {
    Peer peer;
    ASSERT_NE(peer.display, nullptr) << "run under xvfb-run";
    Window host = XCreateSimpleWindow(peer.display, DefaultRootWindow(peer.display), 0, 0, 200, 150, 0, 0, 0);
    peer.Sync();
    auto child = G::native::CreateNativeWindow(L"embedded", G::Rect{5, 6, 50, 40}, host, G::kStyleChild);
    ASSERT_NE(child, nullptr);
    Window rootWindow = 0;
    Window parent = 0;
    Window* children = nullptr;
    unsigned count = 0;
    ASSERT_TRUE(XQueryTree(peer.display, child->handle, &rootWindow, &parent, &children, &count));
    if (children) XFree(children);
    EXPECT_EQ(parent, host);
    EXPECT_FALSE(peer.Shown(child->handle));  // windows start hidden

    auto dialog =
        G::native::CreateNativeWindow(L"Gr\u00fcn \u2713", G::Rect{0, 0, 80, 60}, 0, G::kStylePopup);
    ASSERT_NE(dialog, nullptr);
    EXPECT_EQ(peer.Property(dialog->handle, "_NET_WM_NAME"), "Gr\xc3\xbcn \xe2\x9c\x93");
    EXPECT_EQ(peer.Property(dialog->handle, "WM_NAME"), "Gr\xfcn ?");
    std::string type = peer.Property(dialog->handle, "_NET_WM_WINDOW_TYPE");
    Atom dialogType = XInternAtom(peer.display, "_NET_WM_WINDOW_TYPE_DIALOG", False);
    ASSERT_EQ(type.size(), sizeof(long));
    EXPECT_EQ(*reinterpret_cast<const unsigned long*>(type.data()), dialogType);
    child.reset();
    dialog.reset();
    XDestroyWindow(peer.display, host);
    peer.Sync();
}

}  // namespace
