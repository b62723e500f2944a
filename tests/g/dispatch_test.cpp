// Native messages through the dispatcher: keys, mouse routing, hover order, drops, timers,
// closing and the synchronous repaint; then scrollers and menus on top of it.
#include <gtest/gtest.h>

#include "engine/log.h"
#include "fake_native.h"
#include "g/menu.h"
#include "g/scroller.h"
#include "tree_probes.h"

using namespace gtest_support;
using G::NativeEventKind;
using G::Rect;
using Events = std::vector<std::string>;

namespace {

struct Tree {
    Tree() {
        outer = AddSwatch(s.root.get(), Rect{10, 10, 100, 100}, 0xFF0000, "outer");
        inner = AddSwatch(outer, Rect{20, 20, 30, 30}, 0x00FF00, "inner");
        outer->log = &log;
        inner->log = &log;
    }
    FakeScreen s;
    Swatch* outer;
    Swatch* inner;
    Events log;
};

TEST(Dispatch, KeysAreTranslatedAndBubbleFromTheFocusUntilAccepted) {
    Tree t;
    const std::pair<int, int> table[] = {
        {G::vk::kLeft, 1000},     {G::vk::kRight, 1001},   {G::vk::kUp, 1002},        {G::vk::kDown, 1003},
        {G::vk::kBack, 1004},     {G::vk::kDelete, 1006},  {G::vk::kPrior, 1007},     {G::vk::kNext, 1008},
        {G::vk::kHome, 1009},     {G::vk::kEnd, 1010},     {G::vk::kInsert, 1011},    {G::vk::kDivide, 1012},
        {G::vk::kMultiply, 1013}, {G::vk::kReturn, 1014},  {G::vk::kOemPeriod, 1015}, {'A', 'A'},
        {G::vk::kSpace, 32},      {G::vk::kF1, G::vk::kF1}};
    for (auto [vk, code] : table) EXPECT_EQ(G::TranslateKey(vk), code) << vk;

    t.inner->SetFocus();
    t.log.clear();
    t.inner->accepts = false;
    t.s.native->Key(NativeEventKind::KeyDown, G::vk::kLeft);
    t.s.native->Key(NativeEventKind::Char, '%');  // characters are not translated, though '%' is 37
    EXPECT_EQ(t.log, (Events{"inner:key(1000)", "outer:key(1000)", "inner:char(37)", "outer:char(37)"}));
    t.log.clear();
    t.inner->accepts = true;
    t.s.native->Key(NativeEventKind::KeyDown, 'Q', G::kCtrlDown);
    EXPECT_EQ(t.log, Events{"inner:key(81)"});
    EXPECT_TRUE(G::IsCtrlDown());
}

TEST(Dispatch, PressesGoToTheHitControlOnlyMovesBubbleAndTheMiddlePressIsADoubleClickUnlessTaken) {
    Tree t;
    t.inner->accepts = false;
    t.s.native->Send(NativeEventKind::LeftDown, 35, 40);
    t.s.native->Send(NativeEventKind::MouseMove, 35, 40);
    t.s.native->Send(NativeEventKind::MiddleDown, 35, 40);
    t.inner->takesMiddle = true;
    t.s.native->Send(NativeEventKind::MiddleDown, 35, 40);
    // The handler runs first; the hover tail follows at the end of the message.
    EXPECT_EQ(t.log, (Events{"inner:down(5,10)", "inner:enter(5,10)", "inner:move(5,10)", "outer:move(25,30)",
                             "inner:middle(5,10)", "inner:double(5,10)", "inner:middle(5,10)"}));
}

TEST(Dispatch, WheelGoesToTheHoveredControlOnlyInWholeNotchesAndDropsBubbleFromIt) {
    Tree t;
    t.s.native->Wheel(240);  // nothing hovered yet
    t.s.native->Drop("x");
    t.s.native->Move(35, 40);
    t.inner->accepts = false;
    t.s.native->Wheel(-240);
    t.s.native->Wheel(119);
    t.s.native->Wheel(-359);
    t.s.native->Drop(std::string(300, 'x'));  // cut to 259 characters
    // The wheel is declined, yet does not bubble.
    EXPECT_EQ(t.log, (Events{"inner:move(5,10)", "inner:enter(5,10)", "inner:wheel(-2)", "inner:wheel(0)",
                             "inner:wheel(-2)", "inner:drop259(0)", "outer:drop259(0)"}));
}

TEST(Dispatch, HoverTellsEnterBeforeLeaveWithTheNewControlsPointAndMouseLeaveAsksTheScreen) {
    Tree t;
    t.outer->accepts = true;
    t.s.native->Move(15, 15);
    t.s.native->Move(35, 40);
    t.s.native->Move(200, 200);
    EXPECT_EQ(t.log, (Events{"outer:move(5,5)", "outer:enter(5,5)", "inner:move(5,10)", "inner:enter(5,10)",
                             "outer:leave(5,10)", "inner:leave(200,200)"}));
    EXPECT_EQ(t.s.native->hovered, t.s.root.get());
    t.log.clear();
    t.s.native->cursorX = 100 + 35;  // the fake window sits at 100, 50 on the screen
    t.s.native->cursorY = 50 + 40;
    t.s.native->Send(NativeEventKind::MouseLeave);
    EXPECT_EQ(t.s.native->hovered, t.inner);
    EXPECT_EQ(t.log, Events{"inner:enter(5,10)"});
}

TEST(Dispatch, TimerReachesClientsButNotTheRoot) {
    Tree t;
    t.s.root->AddTimerClient(t.inner);
    t.s.root->AddTimerClient(t.inner);  // registered once
    t.s.root->AddTimerClient(t.s.root.get());
    t.s.native->Send(NativeEventKind::Timer);
    t.s.root->RemoveTimerClient(t.inner);
    t.s.native->Send(NativeEventKind::Timer);
    EXPECT_EQ(t.log, Events{"inner:timer(1)"});
}

TEST(Dispatch, FocusChangesAreToldOldFirst) {
    Tree t;
    t.inner->SetFocus();
    t.outer->SetFocus();
    t.outer->ClearFocus();
    EXPECT_EQ(t.log, (Events{"inner:focus(1)", "inner:focus(0)", "outer:focus(1)", "outer:focus(0)"}));
    EXPECT_EQ(t.s.root->focus, nullptr);
}

// A control that repaints itself and sends a nested message while handling a press.
class Nester : public Swatch {
public:
    using Swatch::Swatch;
    bool OnLeftDown(int x, int y) override {
        Invalidate(nullptr);
        native->Send(NativeEventKind::Timer);
        callsInside = native->paintNowCalls;
        return true;
    }
    FakeNativeWindow* native = nullptr;
    int callsInside = -1;
};

TEST(Dispatch, RepaintsOnceAtTheEndOfTheOutermostMessage) {
    FakeScreen s;
    auto* n = new Nester(s.root.get(), 0x123456);
    s.root->AddChild(n);
    n->SetBounds(0, 0, 50, 50);
    n->native = s.native;
    s.native->PaintNow();
    const int before = s.native->paintNowCalls;
    s.native->Send(NativeEventKind::LeftDown, 5, 5);
    EXPECT_EQ(n->callsInside, before);  // the nested message did not paint
    EXPECT_EQ(s.native->paintNowCalls, before + 1);
    EXPECT_EQ(s.native->Pixel(5, 5), 0x123456u);
    EXPECT_EQ(s.root->nesting, 0);
}

class ClosingRoot : public G::RootControl {
public:
    using RootControl::RootControl;
    bool OnClose() override { return accept; }
    bool accept = false;
};

TEST(Dispatch, CloseAcceptedOrLeftToThePlatformAndRootMayDieInside) {
    auto owned = std::make_unique<FakeNativeWindow>(100, 100);
    FakeNativeWindow* native = owned.get();
    auto* root = new ClosingRoot(std::move(owned));
    EXPECT_FALSE(native->Send(NativeEventKind::Close));  // declined: default processing
    root->accept = true;
    EXPECT_TRUE(native->Send(NativeEventKind::Close));
    EXPECT_EQ(root->nesting, 0);

    // Destroy releases the native window; the root lives on without it.
    native->Send(NativeEventKind::Destroy);
    EXPECT_EQ(root->native, nullptr);
    EXPECT_EQ(root->GetNativeWindow(), 0u);
    delete root;
}

class SelfDeleting : public Swatch {
public:
    using Swatch::Swatch;
    bool OnLeftDown(int, int) override {
        delete Root();
        return true;
    }
};

TEST(Dispatch, AHandlerMayDeleteTheRootMidMessage) {
    const int before = G::Control::LiveCount();
    auto owned = std::make_unique<FakeNativeWindow>(100, 100);
    FakeNativeWindow* native = owned.get();
    auto* root = new G::RootControl(std::move(owned));
    auto* c = new SelfDeleting(root, 0);
    root->AddChild(c);
    c->SetBounds(0, 0, 100, 100);
    native->Send(NativeEventKind::Size, 100, 100);
    native->Send(NativeEventKind::LeftDown, 5, 5);  // frees root and native; must not crash
    EXPECT_EQ(G::Control::LiveCount(), before) << "the root and its child are gone";
}

TEST(Scroller, FollowsDragsClicksAndWheelWithinItsRange) {
    FakeScreen s;
    auto* win = new G::Window(s.root.get());
    s.root->AddChild(win);
    win->SetBounds(0, 0, 100, 201);
    win->vScrollPage = 0.5f;
    win->SetVScroller(true);
    G::Scroller* bar = win->vScroller;
    bar->UpdateThumb();
    EXPECT_EQ(bar->ThumbLength(), 100);  // (201 - 1) x 0.5
    EXPECT_EQ(bar->ThumbStart(), 0);

    s.native->Drag(90, 10, 90, 60);  // thumb moves by 50 of its 101-pixel range
    EXPECT_NEAR(win->vScrollPosition, 50.0f / 101.0f, 1e-6);
    s.native->Drag(90, 150, 90, 400);  // past the end clamps
    EXPECT_FLOAT_EQ(win->vScrollPosition, 1.0f);
    s.native->Click(90, 20);  // outside the thumb: centres on the point
    EXPECT_NEAR(win->vScrollPosition, 0.0f, 1e-6);
    s.native->Move(90, 100);
    s.native->Wheel(-120);
    EXPECT_NEAR(win->vScrollPosition, 10.0f / 101.0f, 1e-6);
    EXPECT_FALSE(s.native->captured);

    win->vScrollPage = 1.0f;
    win->vScrollPosition = 0;
    s.native->Drag(90, 10, 90, 100);
    bar->UpdateThumb();
    EXPECT_EQ(bar->ThumbLength(), 200);
    EXPECT_EQ(win->vScrollPosition, 0.0f);  // no range
}

std::vector<std::string> logged;
void Capture(int, const char* text) { logged.push_back(text); }

TEST(Menus, ReturnTheNativeChoiceAtScreenPointsAndRefuseWithoutOwner) {
    G::RightClickMenu orphan(nullptr);
    orphan.Add(1, "One");
    LogSink old = SetLogSink(Capture);
    logged.clear();
    EXPECT_EQ(orphan.Run(10, 10), 0);
    SetLogSink(old);
    EXPECT_EQ(logged, std::vector<std::string>{"NO PARENT FOR RIGHTCLICK!"});

    Tree t;
    G::RightClickMenu menu(t.outer);
    menu.Add(1, "Copy");
    G::MenuItem* sub = menu.Add(0, "More");
    sub->Add(7, "Deep");
    EXPECT_EQ(sub->children[0]->shared->root, &menu);
    t.s.native->menuAnswer = 7;
    EXPECT_EQ(menu.RunAt(t.inner, 1, 2), 7);
    EXPECT_EQ(t.s.native->menuShown, &menu);
    EXPECT_EQ(t.s.native->menuFlags, 0x180u);
    EXPECT_EQ(t.s.native->menuX, 100 + 10 + 20 + 1);
    EXPECT_EQ(t.s.native->menuY, 50 + 10 + 20 + 2);
}

}  // namespace
