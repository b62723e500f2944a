// The control tree: span merging, the redraw queue, dirty-rect overflow, compositing order on
// real pixels, hit testing, stacking, and what destruction unlinks.
#include <gtest/gtest.h>

#include "fake_native.h"
#include "g/scroller.h"
#include "g/span_map.h"
#include "g/theme.h"
#include "tree_probes.h"

using namespace gtest_support;
using G::Rect;

namespace {

constexpr uint32_t kRed = 0xFF0000;
constexpr uint32_t kGreen = 0x00FF00;
constexpr uint32_t kBlue = 0x0000FF;
using Spans = std::vector<std::pair<int, int>>;

Spans SpansOf(const G::SpanMap& map, int y) {
    Spans out;
    for (int n = map.FirstSpan(y); n >= 0; n = map.At(n).next) out.push_back({map.At(n).x0, map.At(n).x1});
    return out;
}

TEST(SpanMap, MergesOverlappingAndTouchingIntervalsAndClips) {
    G::SpanMap map;
    map.Reset(100, 10);
    const struct {
        Rect add;
        Spans row2;
    } steps[] = {
        {{10, 2, 10, 1}, {{10, 20}}},
        {{40, 2, 10, 1}, {{10, 20}, {40, 50}}},
        {{12, 2, 3, 1}, {{10, 20}, {40, 50}}},           // inside: dropped
        {{20, 2, 5, 1}, {{10, 25}, {40, 50}}},           // touches the end
        {{0, 2, 5, 1}, {{0, 5}, {10, 25}, {40, 50}}},    // in front
        {{30, 2, 10, 1}, {{0, 5}, {10, 25}, {30, 50}}},  // touches the start
        {{5, 2, 5, 1}, {{0, 25}, {30, 50}}},             // touches both sides
        {{24, 2, 6, 1}, {{0, 50}}},                      // bridges
    };
    for (const auto& step : steps) {
        map.Add(step.add);
        EXPECT_EQ(SpansOf(map, 2), step.row2) << step.add.x;
    }
    map.Add(Rect{90, 8, 50, 50});  // clipped to the map
    EXPECT_EQ(SpansOf(map, 9), (Spans{{90, 100}}));
    EXPECT_FALSE(map.RowDirty(3));
    EXPECT_TRUE(map.RowDirty(8));
    map.Reset(100, 10);
    EXPECT_FALSE(map.RowDirty(2));
    EXPECT_EQ(map.FirstSpan(2), -1);
}

TEST(ControlTree, CompositesChildrenOverParentsWithIndexZeroOnTopAndClipsToParent) {
    FakeScreen s(200, 100);
    Swatch* parent = AddSwatch(s.root.get(), Rect{10, 10, 100, 50}, kRed, "p");
    Swatch* bottom = AddSwatch(parent, Rect{0, 0, 30, 30}, kGreen, "bottom");
    Swatch* top = AddSwatch(parent, Rect{20, 20, 200, 200}, kBlue, "top");  // spills past parent
    top->BringToFront(false);
    s.native->PaintNow();
    const std::pair<int, int> blue[] = {{35, 35}, {100, 50}, {109, 59}};  // overlap: index 0 wins
    for (auto [x, y] : blue) EXPECT_EQ(s.native->Pixel(x, y), kBlue) << x << "," << y;
    EXPECT_EQ(s.native->Pixel(12, 12), kGreen);
    EXPECT_EQ(s.native->Pixel(80, 12), kRed);
    EXPECT_NE(s.native->Pixel(111, 50), kBlue);  // outside the parent: not shown
    EXPECT_NE(s.native->Pixel(50, 61), kBlue);
    bottom->BringToFront(false);
    s.native->PaintNow();
    EXPECT_EQ(s.native->Pixel(25, 25), kGreen);
}

TEST(ControlTree, OnlyQueuedControlsRedrawAndHiddenOnesAddNoRect) {
    FakeScreen s;
    Swatch* a = AddSwatch(s.root.get(), Rect{0, 0, 20, 20}, kRed);
    Swatch* b = AddSwatch(s.root.get(), Rect{30, 0, 20, 20}, kGreen);
    s.native->PaintNow();
    const int aDraws = a->draws;
    const int bDraws = b->draws;
    Rect part{2, 3, 4, 5};
    a->Invalidate(&part);
    EXPECT_EQ(a->dirty, part);
    s.native->PaintNow();
    EXPECT_EQ(a->draws, aDraws + 1);  // a partial rect still redraws the whole control
    EXPECT_EQ(b->draws, bDraws);
    EXPECT_FALSE(a->AnyDirtyFlag());

    b->Hide();
    s.native->PaintNow();
    EXPECT_NE(s.native->Pixel(35, 5), kGreen);  // hiding uncovers the parent
    const int before = s.root->rectCount;
    b->Invalidate(nullptr);
    EXPECT_EQ(s.root->rectCount, before);
    EXPECT_EQ(s.root->redrawQueue.back(), b);
}

TEST(ControlTree, TheTwoHundredFiftyFirstRectCompositesTheWholeWindow) {
    FakeScreen s(300, 200);
    Swatch* w = AddSwatch(s.root.get(), Rect{0, 0, 300, 200}, kRed);
    s.native->PaintNow();
    for (int rects : {250, 251}) {
        std::fill(s.native->surface.begin(), s.native->surface.end(), 0);
        for (int i = 0; i < rects; ++i) {
            Rect dot{i % 10, 0, 1, 1};
            w->Invalidate(&dot);
        }
        EXPECT_EQ(s.root->rectOverflow, rects == 251);
        s.native->PaintNow();
        EXPECT_EQ(s.native->Pixel(5, 0), kRed);
        EXPECT_EQ(s.native->Pixel(200, 150), rects == 251 ? kRed : 0u);  // 250 stay precise
        EXPECT_FALSE(s.root->rectOverflow);
        EXPECT_EQ(s.root->rectCount, 0);
    }
}

TEST(ControlTree, BoundsAndBitmapsRoundUpAndNeverShrink) {
    FakeScreen s;
    Swatch* c = AddSwatch(s.root.get(), Rect{5, 5, 0, 0}, kRed);
    EXPECT_EQ(c->bounds, (Rect{5, 5, 1, 1}));
    c->SetSize(33, 10);
    ASSERT_TRUE(c->bitmap);
    EXPECT_GE(c->bitmap->width, 33);
    G::Bitmap* kept = c->bitmap.get();
    c->SetSize(20, 5);
    EXPECT_EQ(c->bitmap.get(), kept);
    c->SetSize(0, 0);
    EXPECT_EQ(c->bounds.w, 0);
    s.native->PaintNow();  // a zero-sized control paints nothing and survives
}

TEST(ControlTree, HitTestPrefersIndexZeroSkipsHiddenAndFollowsCapture) {
    FakeScreen s;
    Swatch* under = AddSwatch(s.root.get(), Rect{0, 0, 100, 100}, kRed, "under");
    Swatch* over = AddSwatch(s.root.get(), Rect{50, 50, 100, 100}, kGreen, "over");
    Swatch* inner = AddSwatch(under, Rect{10, 10, 20, 20}, kBlue, "inner");
    EXPECT_EQ(s.root->FindControlAt(60, 60), under);  // index 0 is tested first
    over->BringToFront(false);
    EXPECT_EQ(s.root->FindControlAt(60, 60), over);
    EXPECT_EQ(s.root->FindControlAt(15, 15), inner);
    inner->Hide();
    EXPECT_EQ(s.root->FindControlAt(15, 15), under);
    inner->Show();
    inner->CaptureMouse();
    EXPECT_TRUE(s.native->captured);
    EXPECT_EQ(s.root->FindControlAt(399, 299), inner);  // anywhere while captured
    inner->ReleaseMouse();
    EXPECT_FALSE(s.native->captured);
    EXPECT_EQ(s.root->FindControlAt(399, 299), s.root.get());
    EXPECT_EQ(s.root->FindControlAt(400, 10), nullptr);
}

TEST(ControlTree, BringToFrontKeepsOrderAndScrollersStayOnTop) {
    FakeScreen s;
    auto* win = new G::Window(s.root.get());
    s.root->AddChild(win);
    win->SetBounds(0, 0, 200, 100);
    win->SetVScroller(true);
    Swatch* a = AddSwatch(win, Rect{0, 0, 10, 10}, kRed, "a");
    Swatch* b = AddSwatch(win, Rect{0, 0, 10, 10}, kRed, "b");
    Swatch* c = AddSwatch(win, Rect{0, 0, 10, 10}, kRed, "c");
    c->BringToFront(false);
    EXPECT_EQ(win->children, (std::vector<G::Control*>{c, win->vScroller, a, b}));
    b->Hide();
    b->BringToFront(false);  // hidden: stays where it is
    EXPECT_EQ(win->children.back(), b);
    win->BringToFront(false);
    EXPECT_EQ(win->children.front(), win->vScroller);
    EXPECT_EQ(win->vScroller->bounds, (Rect{185, 0, 15, 100}));
    win->SetHScroller(true);
    EXPECT_EQ(win->vScroller->bounds, (Rect{185, 0, 15, 85}));
}

TEST(ControlTree, DestructionUnlinksCaptureFocusHoverTimersAndQueue) {
    FakeScreen s;
    const int liveBefore = G::Control::LiveCount();
    Swatch* c = AddSwatch(s.root.get(), Rect{0, 0, 50, 50}, kRed);
    AddSwatch(c, Rect{0, 0, 5, 5}, kGreen);
    s.native->Move(10, 10);
    ASSERT_EQ(s.native->hovered, c);
    c->SetFocus();
    c->CaptureMouse();
    c->AddTimerClient(c);
    c->Invalidate(nullptr);
    ASSERT_TRUE(c->queued);
    delete c;
    EXPECT_EQ(G::Control::LiveCount(), liveBefore);
    EXPECT_EQ(s.native->hovered, nullptr);
    EXPECT_EQ(s.root->focus, nullptr);
    EXPECT_EQ(s.root->capture, nullptr);
    EXPECT_FALSE(s.native->captured);
    EXPECT_TRUE(s.root->timerClients.empty());
    EXPECT_EQ(std::count(s.root->redrawQueue.begin(), s.root->redrawQueue.end(), c), 0);
    s.native->Send(G::NativeEventKind::Timer);
    s.native->Move(12, 12);  // hit-tests afresh
    EXPECT_EQ(s.native->hovered, s.root.get());
}

TEST(ControlTree, EveryRootHoldsTheThemeOnce) {
    const int before = G::theme::References();
    auto a = std::make_unique<FakeScreen>();
    FakeScreen b;
    EXPECT_EQ(G::theme::References(), before + 2);
    a.reset();
    EXPECT_EQ(G::theme::References(), before + 1);
}

}  // namespace
