// Buttons and the text box driven through a root with a fake native window: commands and their
// conditions, the press state, faces, letter input, caret keys and placement, and the blink.
#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

#include "fake_native.h"
#include "g/button.h"
#include "g/text_box.h"
#include "widget_probes.h"

using namespace gtest_support;
using G::NativeEventKind;
using Events = std::vector<std::string>;

namespace {

// A button at (10, 10, 40, 20) inside a white owner that fills the window.
struct ButtonScene {
    explicit ButtonScene(int look = G::CustomButton::kLookFlat) {
        owner = new CommandOwner(s.root.get());
        s.root->AddChild(owner);
        owner->SetBounds(0, 0, 200, 100);
        button = new G::CustomButton(owner, owner, 7, L"", look);
        owner->AddChild(button);
        button->SetBounds(10, 10, 40, 20);
        s.native->PaintNow();
        s.native->Move(20, 20);
    }
    void Send(NativeEventKind kind, int x = 20, int y = 20) { s.native->Send(kind, x, y); }
    // The owner's events so far, then forgets them.
    Events Take() { return std::exchange(owner->events, {}); }

    FakeScreen s{200, 100};
    CommandOwner* owner;
    G::CustomButton* button;
};

TEST(CustomButton, CommandsNeedAPressOfTheirOwnAndAReleaseInside) {
    ButtonScene b;
    b.Send(NativeEventKind::LeftDown);
    EXPECT_TRUE(b.Take().empty());
    EXPECT_TRUE(b.s.root->HasFocus(b.button));
    b.Send(NativeEventKind::LeftUp, 21, 22);
    EXPECT_EQ(b.Take(), Events{"cmd(7)"});
    // Dragged outside before the release: the capture brings the release here, but no command.
    b.s.native->Drag(20, 20, 120, 80);
    b.button->OnLeftUp(5, 5);  // a release with no press before it
    EXPECT_TRUE(b.Take().empty());
    EXPECT_EQ(b.button->press.pressCount, 0);

    b.s.native->Move(20, 20);
    b.Send(NativeEventKind::RightDown);
    b.Send(NativeEventKind::RightUp);
    b.Send(NativeEventKind::RightDown);
    b.Send(NativeEventKind::RightUp, 150, 20);
    EXPECT_EQ(b.Take(), Events{"alt(7)"});
    b.s.native->Click(20, 20);
    b.Send(NativeEventKind::LeftDoubleClick);
    b.Send(NativeEventKind::LeftUp);
    EXPECT_EQ(b.Take(), (Events{"cmd(7)", "double(7)"}));  // the double click is no second command

    b.button->commandOnPress = true;
    b.Send(NativeEventKind::LeftDown);
    EXPECT_EQ(b.Take(), Events{"cmd(7)"});
    b.Send(NativeEventKind::LeftUp);
    b.button->owner = nullptr;  // without an owner only the face changes
    b.s.native->Click(20, 20);
    b.Send(NativeEventKind::RightDown);
    b.Send(NativeEventKind::RightUp);
    b.Send(NativeEventKind::LeftDoubleClick);
    EXPECT_TRUE(b.Take().empty());
}

TEST(CustomButton, RightPressTakesNoFocusAndStateFollowsPressCountThenHover) {
    ButtonScene b;
    G::PressState& p = b.button->press;
    EXPECT_EQ(p.state, 1);
    b.Send(NativeEventKind::RightDown);
    EXPECT_FALSE(b.s.root->HasFocus(b.button));
    b.Send(NativeEventKind::LeftDown);
    EXPECT_EQ(p.pressCount, 2);
    b.Send(NativeEventKind::RightUp);
    EXPECT_EQ(p.state, 2);  // one press still held
    b.Send(NativeEventKind::LeftUp);
    EXPECT_EQ(p.state, 1);
    b.Send(NativeEventKind::LeftUp);
    EXPECT_EQ(p.pressCount, 0);  // never below zero
    b.s.native->Move(150, 80);
    EXPECT_EQ(p.state, 0);
}

TEST(CustomButton, FlatBevelFollowsTheStateAndTheOwnerDrawnLookAsksThePainter) {
    ButtonScene b;
    b.s.native->Move(150, 80);
    const G::CustomButton& button = *b.button;
    // Edge pixels away from the corners: top, bottom, left, right.
    auto edges = [&] {
        return std::vector<uint32_t>{PixelOf(button, 20, 0), PixelOf(button, 20, 19), PixelOf(button, 0, 10),
                                     PixelOf(button, 39, 10)};
    };
    EXPECT_EQ(edges(), (std::vector<uint32_t>{0xC8C8C8, 0xC8C8C8, 0xC8C8C8, 0xC8C8C8}));
    EXPECT_EQ(PixelOf(button, 20, 10), Rgb(33));
    b.s.native->Move(20, 20);
    EXPECT_EQ(edges(), (std::vector<uint32_t>{0xFFFFFF, 0x808080, 0xFFFFFF, 0x808080}));
    b.Send(NativeEventKind::LeftDown);
    EXPECT_EQ(edges(), (std::vector<uint32_t>{0x808080, 0xFFFFFF, 0x808080, 0xFFFFFF}));

    struct Painter : G::ItemPainter {
        void PaintItem(int id, G::Renderer&, const G::Rect& area, int state) override {
            calls.push_back({id, state, area.x, area.y, area.w, area.h});
        }
        std::vector<std::vector<int>> calls;
    } painter;
    ButtonScene drawn(G::CustomButton::kLookOwnerDrawn);
    drawn.button->painter = &painter;
    drawn.s.native->Move(150, 80);
    drawn.s.native->Move(20, 20);
    drawn.Send(NativeEventKind::LeftDown);
    EXPECT_EQ(painter.calls, (std::vector<std::vector<int>>{
                                 {7, 0, 0, 0, 40, 20}, {7, 1, 0, 0, 40, 20}, {7, 2, 0, 0, 40, 20}}));
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
    uint32_t At(int x, int y) const { return PixelOf(*button, x, y); }
    FakeScreen s{100, 60};
    WhiteBackground white;
    CommandOwner* owner;
    LittleVrokButton* button;
};

TEST(LittleVrokButton, CommandsOnReleaseInsideAndAltOnRightRelease) {
    LittleScene l(LittleVrokButton::kBox);
    l.s.native->Click(24, 24);
    l.s.native->Drag(24, 24, 60, 50);
    l.s.native->Move(24, 24);
    l.s.native->Send(NativeEventKind::RightDown, 24, 24);
    l.s.native->Send(NativeEventKind::RightUp, 24, 24);
    l.s.native->Send(NativeEventKind::RightDown, 24, 24);
    l.s.native->Send(NativeEventKind::RightUp, 60, 50);
    EXPECT_EQ(l.owner->events, (Events{"cmd(3)", "alt(3)"}));
}

TEST(LittleVrokButton, ShapesAndTheirHoverMarks) {
    LittleScene box(LittleVrokButton::kBox);
    EXPECT_EQ(box.At(0, 0), Rgb(16));
    box.s.native->Move(24, 24);
    EXPECT_EQ(box.At(0, 0), Rgb(30));  // the hover outline
    EXPECT_EQ(box.At(4, 4), Rgb(16));

    LittleScene arrow(LittleVrokButton::kArrow);
    // The triangle's tip is at (8, 4); hovered, it moves 2 to the right.
    EXPECT_EQ(arrow.At(1, 4), Rgb(16));
    EXPECT_EQ(arrow.At(9, 1), 0xFFFFFFu);
    arrow.s.native->Move(21, 24);
    EXPECT_EQ(arrow.At(0, 4), 0xFFFFFFu);
    EXPECT_EQ(arrow.At(4, 4), Rgb(16));

    LittleScene nothing(LittleVrokButton::kNothing);
    for (int y = 0; y < 9; ++y)
        for (int x = 0; x < 10; ++x) EXPECT_EQ(nothing.At(x, y), 0xFFFFFFu);
}

// A focused text box at (10, 10, 120, 16) holding "abc", the caret at its end.
struct TextScene {
    TextScene() {
        box = new G::TextBox(s.root.get(), &listener, 12, L"abc");
        s.root->AddChild(box);
        box->SetBounds(10, 10, 120, 16);
        s.native->Click(125, 15);
    }
    void Type(std::initializer_list<int> codes) {
        for (int code : codes) s.native->Key(NativeEventKind::Char, code);
    }
    void Press(std::initializer_list<int> keys) {
        for (int key : keys) s.native->Key(NativeEventKind::KeyDown, key);
    }

    FakeScreen s{200, 60};
    RecordingTextListener listener;
    G::TextBox* box;
};

TEST(TextBox, AcceptsLettersOnlyAndReportsEachInsertion) {
    TextScene t;
    ASSERT_TRUE(t.s.root->HasFocus(t.box));
    ASSERT_EQ(t.box->Caret(), 3);
    t.Type({'1', ' ', '-'});
    EXPECT_EQ(t.box->Text(), L"abc");
    EXPECT_TRUE(t.listener.texts.empty());
    t.Type({'D', L'z'});
    EXPECT_EQ(t.box->Text(), L"abcDz");
    EXPECT_EQ(t.listener.texts, (std::vector<std::wstring>{L"abcD", L"abcDz"}));
    EXPECT_EQ(t.listener.lastIndex, 12);
    EXPECT_EQ(t.box->Caret(), 5);
}

TEST(TextBox, CaretKeysClampAndEditAroundTheCaretWithOrWithoutAListener) {
    TextScene t;
    t.Press({G::vk::kRight, G::vk::kDelete});  // nothing after the caret
    EXPECT_EQ(t.box->Caret(), 3);
    t.Press({G::vk::kLeft, G::vk::kBack});
    EXPECT_EQ(t.box->Text(), L"ac");
    EXPECT_EQ(t.box->Caret(), 1);
    t.Type({'X'});
    EXPECT_EQ(t.box->Text(), L"aXc");
    t.Press({G::vk::kDelete});
    EXPECT_EQ(t.box->Text(), L"aX");
    t.Press({G::vk::kLeft, G::vk::kLeft, G::vk::kLeft, G::vk::kLeft});
    EXPECT_EQ(t.box->Caret(), 0);
    t.Press({G::vk::kBack});  // nothing before the caret
    EXPECT_EQ(t.listener.texts, (std::vector<std::wstring>{L"ac", L"aXc", L"aX"}));

    t.box->listener = nullptr;
    t.Type({'q'});
    t.Press({G::vk::kDelete, G::vk::kDelete});
    EXPECT_EQ(t.box->Text(), L"q");
}

TEST(TextBox, ClickPlacesTheCaretByHalfCharacterWidths) {
    TextScene t;
    const G::Font* font = G::theme::NormalFont();
    if (!font) GTEST_SKIP() << "no font";
    const float ab = G::Renderer::MeasureText(std::wstring_view(L"ab"), font).width;
    const float b = G::Renderer::MeasureText(std::wstring_view(L"b"), font).width;
    const std::pair<float, int> rows[] = {{-5.0f, 0}, {ab - 0.6f * b, 1}, {ab - 0.4f * b, 2}, {500.0f, 3}};
    for (auto [x, caret] : rows) EXPECT_EQ(t.box->CaretIndexAt(x), caret) << x;
    // Through a press: the box's text starts at its inset.
    t.s.native->Click(10 + G::TextBox::kTextInset + static_cast<int>(ab - 0.75f * b), 15);
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
    EXPECT_EQ(std::count(t.s.root->timerClients.begin(), t.s.root->timerClients.end(), t.box), 0);
    t.s.native->Send(NativeEventKind::Timer);
    EXPECT_EQ(t.box->blinkCounter, 0);
}

}  // namespace
