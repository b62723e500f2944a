// Buttons and the text box driven through a root with a fake native window: commands and their
// conditions, the press state, faces, letter input, caret keys and placement, and the blink.
#include <gtest/gtest.h>

#include <algorithm>

#include "fake_native.h"
#include "g/button.h"
#include "g/text_box.h"
#include "widget_probes.h"

using namespace gtest_support;
using G::NativeEventKind;
using Events = std::vector<std::string>;

namespace {

// A button of look `look` at (10, 10, 40, 20) inside a white owner that fills the window.
struct ButtonScene {
    explicit ButtonScene(int look = G::CustomButton::kLookFlat) {
        owner = new CommandOwner(s.root.get());
        s.root->AddChild(owner);
        owner->SetBounds(0, 0, 200, 100);
        button = new G::CustomButton(owner, owner, 7, L"", look);
        owner->AddChild(button);
        button->SetBounds(10, 10, 40, 20);
        s.native->PaintNow();
    }
    void Send(NativeEventKind kind, int x, int y) { s.native->Send(kind, x, y); }

    FakeScreen s{200, 100};
    CommandOwner* owner;
    G::CustomButton* button;
};

struct RecordingPainter : G::ItemPainter {
    void PaintItem(int id, G::Renderer&, const G::Rect& area, int state) override {
        ids.push_back(id);
        areas.push_back(area);
        states.push_back(state);
    }
    std::vector<int> ids;
    std::vector<G::Rect> areas;
    std::vector<int> states;
};

TEST(CustomButton, CommandOnReleaseInsideOnlyAfterAPressOfItsOwn) {
    ButtonScene b;
    b.s.native->Move(20, 20);
    b.Send(NativeEventKind::LeftDown, 20, 20);
    EXPECT_TRUE(b.owner->events.empty());
    EXPECT_TRUE(b.s.root->HasFocus(b.button));
    b.Send(NativeEventKind::LeftUp, 21, 22);
    EXPECT_EQ(b.owner->events, Events{"cmd(7)"});

    // Dragged outside before the release: the capture still brings the release here, but no
    // command follows.
    b.owner->events.clear();
    b.s.native->Drag(20, 20, 120, 80);
    EXPECT_TRUE(b.owner->events.empty());
    EXPECT_EQ(b.button->press.state, 0);

    // A release with no press before it is no click.
    b.button->OnLeftUp(5, 5);
    EXPECT_TRUE(b.owner->events.empty());
    EXPECT_EQ(b.button->press.pressCount, 0);
}

TEST(CustomButton, CommandOnPressFiresOnceAtThePress) {
    ButtonScene b;
    b.button->commandOnPress = true;
    b.s.native->Move(20, 20);
    b.Send(NativeEventKind::LeftDown, 20, 20);
    EXPECT_EQ(b.owner->events, Events{"cmd(7)"});
    b.Send(NativeEventKind::LeftUp, 20, 20);
    EXPECT_EQ(b.owner->events, Events{"cmd(7)"});
}

TEST(CustomButton, RightClickSendsAltCommandWhenReleasedInside) {
    ButtonScene b;
    b.s.native->Move(20, 20);
    b.Send(NativeEventKind::RightDown, 20, 20);
    b.Send(NativeEventKind::RightUp, 20, 20);
    b.Send(NativeEventKind::RightDown, 20, 20);
    b.Send(NativeEventKind::RightUp, 150, 20);
    EXPECT_EQ(b.owner->events, Events{"alt(7)"});
    EXPECT_FALSE(b.s.root->HasFocus(b.button));  // only the left press takes focus
}

TEST(CustomButton, DoubleClickGoesToTheOwnersHookAndIsNoSecondCommand) {
    ButtonScene b;
    b.s.native->Move(20, 20);
    b.Send(NativeEventKind::LeftDown, 20, 20);
    b.Send(NativeEventKind::LeftUp, 20, 20);
    b.Send(NativeEventKind::LeftDoubleClick, 20, 20);
    b.Send(NativeEventKind::LeftUp, 20, 20);
    EXPECT_EQ(b.owner->events, (Events{"cmd(7)", "double(7)"}));
}

TEST(CustomButton, WithoutOwnerOnlyTheFaceChanges) {
    ButtonScene b;
    b.button->owner = nullptr;
    b.s.native->Click(20, 20);
    b.Send(NativeEventKind::RightDown, 20, 20);
    b.Send(NativeEventKind::RightUp, 20, 20);
    b.Send(NativeEventKind::LeftDoubleClick, 20, 20);
    EXPECT_TRUE(b.owner->events.empty());
}

TEST(CustomButton, StateFollowsPressCountThenHover) {
    ButtonScene b;
    G::PressState& p = b.button->press;
    b.s.native->Move(20, 20);
    EXPECT_EQ(p.state, 1);
    b.Send(NativeEventKind::LeftDown, 20, 20);
    b.Send(NativeEventKind::RightDown, 20, 20);
    EXPECT_EQ(p.pressCount, 2);
    b.Send(NativeEventKind::RightUp, 20, 20);
    EXPECT_EQ(p.state, 2);  // one press still held
    b.Send(NativeEventKind::LeftUp, 20, 20);
    EXPECT_EQ(p.state, 1);
    b.Send(NativeEventKind::LeftUp, 20, 20);
    EXPECT_EQ(p.pressCount, 0);  // never below zero
    b.s.native->Move(150, 80);
    EXPECT_EQ(p.state, 0);
}

TEST(CustomButton, FlatLookBevelFollowsTheState) {
    ButtonScene b;
    const G::CustomButton& button = *b.button;
    // Top and bottom edge pixels, away from the corners.
    EXPECT_EQ(PixelOf(button, 20, 0), 0xC8C8C8u);
    EXPECT_EQ(PixelOf(button, 20, 19), 0xC8C8C8u);
    EXPECT_EQ(PixelOf(button, 20, 10), Rgb(33));
    b.s.native->Move(20, 20);
    EXPECT_EQ(PixelOf(button, 20, 0), 0xFFFFFFu);
    EXPECT_EQ(PixelOf(button, 20, 19), 0x808080u);
    EXPECT_EQ(PixelOf(button, 39, 10), 0x808080u);
    b.Send(NativeEventKind::LeftDown, 20, 20);
    EXPECT_EQ(PixelOf(button, 20, 0), 0x808080u);
    EXPECT_EQ(PixelOf(button, 0, 10), 0x808080u);
    EXPECT_EQ(PixelOf(button, 20, 19), 0xFFFFFFu);
}

TEST(CustomButton, OwnerDrawnLookAsksThePainterWithIdAreaAndState) {
    ButtonScene b(G::CustomButton::kLookOwnerDrawn);
    RecordingPainter painter;
    b.button->painter = &painter;
    b.button->Invalidate();
    b.s.native->PaintNow();
    b.s.native->Move(20, 20);
    b.Send(NativeEventKind::LeftDown, 20, 20);
    ASSERT_EQ(painter.states, (std::vector<int>{0, 1, 2}));
    EXPECT_TRUE(std::all_of(painter.ids.begin(), painter.ids.end(), [](int id) { return id == 7; }));
    EXPECT_EQ(painter.areas.back(), (G::Rect{0, 0, 40, 20}));
}

TEST(CustomButton, PreferredSizeWrapsTheCaption) {
    ButtonScene b;
    if (!G::theme::BoldFont()) GTEST_SKIP() << "no font";
    G::Rect shortBounds, longBounds;
    b.button->name = L"Go";
    b.button->GetPreferredBounds(shortBounds);
    b.button->name = L"Load a longer caption";
    b.button->GetPreferredBounds(longBounds);
    EXPECT_GT(shortBounds.w, 4);
    EXPECT_GT(longBounds.w, shortBounds.w);
    EXPECT_EQ(longBounds.h, shortBounds.h);
}

// A LittleVrokButton at (20, 20, 10, 9) inside a white owner.
struct LittleScene {
    explicit LittleScene(int shape) {
        owner = new CommandOwner(s.root.get());
        s.root->AddChild(owner);
        owner->SetBounds(0, 0, 100, 60);
        button = new LittleVrokButton(owner, owner, 3, shape);
        owner->AddChild(button);
        button->background = &white;
        button->colorIndex = 16;
        button->SetBounds(20, 20, 10, 9);
        s.native->PaintNow();
    }
    FakeScreen s{100, 60};
    WhiteBackground white;
    CommandOwner* owner;
    LittleVrokButton* button;
};

TEST(LittleVrokButton, CommandsOnReleaseInsideAndAltOnRightRelease) {
    LittleScene l(LittleVrokButton::kBox);
    EXPECT_EQ(l.button->id, 3);
    l.s.native->Click(24, 24);
    l.s.native->Drag(24, 24, 60, 50);
    l.s.native->Move(24, 24);
    l.s.native->Send(NativeEventKind::RightDown, 24, 24);
    l.s.native->Send(NativeEventKind::RightUp, 24, 24);
    EXPECT_EQ(l.owner->events, (Events{"cmd(3)", "alt(3)"}));
}

TEST(LittleVrokButton, ShapesAndTheirHoverMarks) {
    LittleScene box(LittleVrokButton::kBox);
    EXPECT_EQ(PixelOf(*box.button, 0, 0), Rgb(16));
    box.s.native->Move(24, 24);
    EXPECT_EQ(PixelOf(*box.button, 0, 0), Rgb(30));  // the hover outline
    EXPECT_EQ(PixelOf(*box.button, 4, 4), Rgb(16));

    LittleScene arrow(LittleVrokButton::kArrow);
    // The triangle's tip is at (8, 4); hovered, it moves 2 to the right.
    EXPECT_EQ(PixelOf(*arrow.button, 1, 4), Rgb(16));
    EXPECT_EQ(PixelOf(*arrow.button, 9, 1), 0xFFFFFFu);
    arrow.s.native->Move(21, 24);
    EXPECT_EQ(PixelOf(*arrow.button, 0, 4), 0xFFFFFFu);
    EXPECT_EQ(PixelOf(*arrow.button, 4, 4), Rgb(16));

    LittleScene nothing(LittleVrokButton::kNothing);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 10; ++x) EXPECT_EQ(PixelOf(*nothing.button, x, y), 0xFFFFFFu);
}

// A focused text box at (10, 10, 120, 16) holding "abc".
struct TextScene {
    TextScene() {
        box = new G::TextBox(s.root.get(), &listener, 12, L"abc");
        s.root->AddChild(box);
        box->SetBounds(10, 10, 120, 16);
        s.native->Click(125, 15);  // right of the text: caret at the end
    }
    void Type(int code) { s.native->Key(NativeEventKind::Char, code); }
    void Press(int virtualKey) { s.native->Key(NativeEventKind::KeyDown, virtualKey); }

    FakeScreen s{200, 60};
    RecordingTextListener listener;
    G::TextBox* box;
};

TEST(TextBox, AcceptsLettersOnlyAndReportsEachInsertion) {
    TextScene t;
    ASSERT_TRUE(t.s.root->HasFocus(t.box));
    ASSERT_EQ(t.box->Caret(), 3);
    t.Type('1');
    t.Type(' ');
    t.Type('-');
    EXPECT_EQ(t.box->Text(), L"abc");
    EXPECT_TRUE(t.listener.texts.empty());
    t.Type('D');
    t.Type(L'z');
    EXPECT_EQ(t.box->Text(), L"abcDz");
    EXPECT_EQ(t.listener.texts, (std::vector<std::wstring>{L"abcD", L"abcDz"}));
    EXPECT_EQ(t.listener.lastIndex, 12);
    EXPECT_EQ(t.box->Caret(), 5);
}

TEST(TextBox, CaretKeysClampAndEditAroundTheCaret) {
    TextScene t;
    t.Press(G::vk::kRight);
    EXPECT_EQ(t.box->Caret(), 3);
    t.Press(G::vk::kDelete);  // nothing after the caret
    t.Press(G::vk::kLeft);
    t.Press(G::vk::kBack);
    EXPECT_EQ(t.box->Text(), L"ac");
    EXPECT_EQ(t.box->Caret(), 1);
    t.Type('X');
    EXPECT_EQ(t.box->Text(), L"aXc");
    t.Press(G::vk::kDelete);
    EXPECT_EQ(t.box->Text(), L"aX");
    for (int i = 0; i < 4; ++i) t.Press(G::vk::kLeft);
    EXPECT_EQ(t.box->Caret(), 0);
    t.Press(G::vk::kBack);  // nothing before the caret
    EXPECT_EQ(t.listener.texts, (std::vector<std::wstring>{L"ac", L"aXc", L"aX"}));
}

TEST(TextBox, ClickPlacesTheCaretByHalfCharacterWidths) {
    TextScene t;
    const G::Font* font = G::theme::NormalFont();
    if (!font) GTEST_SKIP() << "no font";
    const float ab = G::Renderer::MeasureText(std::wstring_view(L"ab"), font).width;
    const float b = G::Renderer::MeasureText(std::wstring_view(L"b"), font).width;
    EXPECT_EQ(t.box->CaretIndexAt(-5.0f), 0);
    EXPECT_EQ(t.box->CaretIndexAt(ab - 0.75f * b), 1);  // left half of "b"
    EXPECT_EQ(t.box->CaretIndexAt(ab - 0.25f * b), 2);  // right half of "b"
    EXPECT_EQ(t.box->CaretIndexAt(500.0f), 3);

    // Through a press: the box's text starts at its inset.
    const int x = 10 + G::TextBox::kTextInset + static_cast<int>(ab - 0.75f * b);
    t.s.native->Click(x, 15);
    EXPECT_EQ(t.box->Caret(), 1);

    t.box->SetText(L"");
    EXPECT_EQ(t.box->CaretIndexAt(40.0f), 0);
    EXPECT_TRUE(t.listener.texts.empty());  // SetText is silent
}

TEST(TextBox, CaretBlinksOnTicksOnlyWhileFocused) {
    TextScene t;
    std::vector<bool> shown;
    for (int i = 0; i < G::TextBox::kBlinkPeriod + 1; ++i) {
        shown.push_back(t.box->CaretVisible());
        t.s.native->Send(NativeEventKind::Timer);
    }
    const int half = G::TextBox::kBlinkPeriod / 2;
    EXPECT_EQ(std::count(shown.begin(), shown.end(), true), half + 1);  // wraps back to shown
    EXPECT_TRUE(shown[half - 1]);
    EXPECT_FALSE(shown[half]);

    t.s.root->ClearFocus();
    EXPECT_FALSE(t.box->CaretVisible());
    const auto& clients = t.s.root->timerClients;
    EXPECT_EQ(std::count(clients.begin(), clients.end(), t.box), 0);
    t.s.native->Send(NativeEventKind::Timer);
    EXPECT_EQ(t.box->blinkCounter, 0);
}

TEST(TextBox, EditsWithoutAListenerStillChangeTheText) {
    TextScene t;
    t.box->listener = nullptr;
    t.Type('q');
    t.Press(G::vk::kBack);
    t.Press(G::vk::kBack);
    EXPECT_EQ(t.box->Text(), L"ab");
}

}  // namespace
