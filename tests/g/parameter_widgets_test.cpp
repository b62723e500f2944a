// Parameter widgets driven through a root with a fake native window: the exact listener calls
// of drags, Ctrl+clicks, wheel turns and keys, the pitch split and text, choice selection, and
// a few pixels of each face.
#include <gtest/gtest.h>

#include <cmath>

#include "fake_native.h"
#include "g/parameter_choice.h"
#include "g/parameter_knob.h"
#include "g/parameter_pitch.h"
#include "g/parameter_slider.h"
#include "g/parameter_switch.h"
#include "tree_probes.h"
#include "widget_probes.h"

using namespace gtest_support;
using G::NativeEventKind;
using Floats = std::vector<float>;

namespace {

// One widget at (10, 10) on a white background; events are sent in window coordinates.
struct Scene {
    template <class W>
    W* Add(W* widget, int w, int h) {
        s.root->AddChild(widget);
        widget->background = &white;
        widget->colorIndex = 16;
        widget->SetBounds(10, 10, w, h);
        s.native->PaintNow();
        return widget;
    }
    void Down(int x, int y, unsigned modifiers = 0) {
        s.native->Move(x, y, modifiers);
        s.native->Send(NativeEventKind::LeftDown, x, y, modifiers);
    }
    void Up(int x, int y) { s.native->Send(NativeEventKind::LeftUp, x, y); }
    void Move(int x, int y) { s.native->Move(x, y); }
    void Keys(std::initializer_list<int> keys, unsigned modifiers = 0) {
        for (int k : keys) s.native->Key(NativeEventKind::KeyDown, k, modifiers);
    }
    // The listener's calls so far as "bve" and the values of the 'v' calls, then forgets them.
    void Expect(const std::string& kinds, const Floats& values, const char* where = "") {
        EXPECT_EQ(listener.Kinds(), kinds) << where;
        Floats got = listener.Values();
        ASSERT_EQ(got.size(), values.size()) << where;
        for (size_t i = 0; i < got.size(); ++i)
            EXPECT_NEAR(got[i], values[i], 1e-6) << where << " call " << i;
        listener.calls.clear();
    }
    FakeScreen s{300, 100};
    RecordingListener listener;
    WhiteBackground white;
};

// Anti-aliased line pixels: every channel below the middle.
bool IsDark(uint32_t rgb) { return (rgb & 0x808080u) == 0; }

int DarkPixels(const G::Control& c, int x0, int y0, int x1, int y1) {
    int dark = 0;
    for (int y = y0; y < y1; ++y)
        for (int x = x0; x < x1; ++x) dark += IsDark(PixelOf(c, x, y));
    return dark;
}

// [SECTION] Knob

struct KnobScene : Scene {
    explicit KnobScene(float value = 0.5f, int style = G::ParameterKnob::kStyleSmall) {
        knob = Add(new G::ParameterKnob(s.root.get(), &listener, 5, value, 0, style), 40, 40);
    }
    G::ParameterKnob* knob;
};

TEST(ParameterKnob, DragAddsFineAcrossAndCoarseUpBetweenBeginAndEnd) {
    KnobScene k;
    k.Down(30, 30);
    k.Move(40, 25);
    k.Move(20, 40);
    k.Up(20, 40);
    for (const ParamCall& c : k.listener.calls) {
        EXPECT_EQ(c.index, 5);
        EXPECT_EQ(c.generator, static_cast<G::FloatParamGenerator*>(k.knob));
    }
    k.Expect("bvvve", {0.5f, 0.5f + 10 * 0.0025f + 5 * 0.01f, 0.5f - 10 * 0.0025f - 10 * 0.01f});
    EXPECT_TRUE(k.s.root->HasFocus(k.knob));
    EXPECT_FALSE(k.s.native->captured);
    k.Move(50, 10);  // no longer dragging
    EXPECT_TRUE(k.listener.calls.empty());

    KnobScene end(0.98f);  // past the ends: clamped, still reported
    end.Down(30, 30);
    for (int y : {20, 10, 200}) end.Move(30, y);
    end.Up(30, 200);
    end.Expect("bvvvve", {0.98f, 1.0f, 1.0f, 0.0f});
}

TEST(ParameterKnob, CtrlClickResetsInExactlyOneGesture) {
    KnobScene k(0.9f);
    k.Down(30, 30, G::kCtrlDown);
    k.Move(40, 10);
    k.Up(40, 10);
    k.Expect("bve", {0.5f});
    EXPECT_FALSE(k.knob->dragging);
    EXPECT_TRUE(k.s.root->HasFocus(k.knob));
}

TEST(ParameterKnob, WheelNeedsOnlyHoverAndArrowsArriveTranslatedSoOnlyRawCodesStep) {
    KnobScene k;
    k.Move(30, 30);
    ASSERT_FALSE(k.s.root->HasFocus(k.knob));
    k.s.native->Wheel(120);
    k.s.native->Wheel(-360);
    k.s.native->Wheel(120, true);
    k.Expect("vvv", {0.51f, 0.48f, 0.49f});

    k.knob->SetValue(0.5f);
    k.s.root->SetFocus(k.knob);
    k.Keys({G::vk::kLeft, G::vk::kUp, G::vk::kRight, G::vk::kDown});
    EXPECT_TRUE(k.listener.calls.empty());
    for (int raw : {37, 38, 39, 40}) EXPECT_TRUE(k.knob->OnKeyDown(raw));
    k.Expect("vvvv", {0.498f, 0.488f, 0.49f, 0.5f});
}

TEST(ParameterKnob, SetValueClampsAndTellsNobodyAndNoListenerIsNeeded) {
    KnobScene k(3.0f);
    EXPECT_FLOAT_EQ(k.knob->Value(), 1.0f);
    for (float outside : {-2.0f, std::nanf("")}) {
        k.knob->SetValue(outside);
        EXPECT_FLOAT_EQ(k.knob->Value(), 0.0f) << outside;
    }
    k.knob->SetValue(0.995f);
    k.Move(30, 30);
    k.s.native->Wheel(120);
    k.Expect("v", {1.0f});  // the wheel's value only

    k.knob->listener = nullptr;
    k.knob->SetValue(0.5f);
    k.Down(30, 30);
    k.Move(30, 20);
    k.Up(30, 20);
    EXPECT_FLOAT_EQ(k.knob->Value(), 0.6f);
}

TEST(ParameterKnob, FacesShowPieHighlightFocusAndTheLargeArcSplit) {
    KnobScene k(1.0f);
    // A full unipolar pie leaves only the wedge at the bottom open.
    EXPECT_EQ(PixelOf(*k.knob, 20, 8), Rgb(16));
    EXPECT_EQ(PixelOf(*k.knob, 20, 33), 0xFFFFFFu);
    EXPECT_NE(PixelOf(*k.knob, 20, 0), Rgb(30));
    k.Move(30, 18);  // hovered: the pie is 20 lighter per channel
    EXPECT_EQ(PixelOf(*k.knob, 20, 8), G::Brighten(G::theme::Palette(16), 20) & 0xFFFFFFu);
    EXPECT_EQ(G::Brighten(0xFF10F0FA, 20), 0xFF24FFFFu);
    k.s.root->SetFocus(k.knob);
    k.s.native->PaintNow();
    EXPECT_EQ(PixelOf(*k.knob, 20, 0), Rgb(30));
    k.knob->SetValue(0.0f);  // a sweep under 6 degrees draws no pie
    k.s.native->PaintNow();
    EXPECT_NE(PixelOf(*k.knob, 8, 28), Rgb(16));

    KnobScene large(0.0f, G::ParameterKnob::kStyleLarge);
    // Diameter min(30, 38 - 6) = 30 around (20, 20): the top of the arc is at (20, 5).
    EXPECT_EQ(PixelOf(*large.knob, 20, 5), Rgb(9));
    large.knob->SetValue(1.0f);
    large.s.native->PaintNow();
    EXPECT_EQ(PixelOf(*large.knob, 20, 5), Rgb(11));
}

// [SECTION] Pitch

struct PitchScene : Scene {
    explicit PitchScene(float value = 0.5f, bool vertical = false) {
        pitch = Add(new G::ParameterPitch(s.root.get(), &listener, 9, value, vertical), 120, 16);
    }
    static float ValueFor(float semitones) { return semitones / 24.0f + 0.5f; }
    G::ParameterPitch* pitch;
};

TEST(ParameterPitch, SplitKeepsCentsWithinHalfASemitoneTextShowsHundredthsAndPressPicksThePart) {
    PitchScene p;
    const struct {
        float value, integer, cents;
    } splits[] = {{0.5f, 0, 0},  {0.5625f, 1, 0.5f}, {0.4375f, -2, 0.5f}, {0.5634765625f, 2, -0.4765625f},
                  {1.0f, 12, 0}, {0.0f, -12, 0}};
    for (const auto& r : splits) {
        p.pitch->SetValue(r.value);
        EXPECT_FLOAT_EQ(p.pitch->IntegerSemitones(), r.integer) << r.value;
        EXPECT_FLOAT_EQ(p.pitch->Cents(), r.cents) << r.value;
    }
    EXPECT_TRUE(p.listener.calls.empty());

    const std::pair<float, const char*> texts[] = {{0.0f, "+0"},      {0.009f, "+0"},    {-0.009f, "+0"},
                                                   {0.01f, "+0.01"},  {1.5f, "+1.50"},   {-3.25f, "-3.25"},
                                                   {12.0f, "+12.00"}, {-12.0f, "-12.00"}};
    for (auto [semitones, text] : texts) EXPECT_EQ(G::ParameterPitch::PitchText(semitones), text);

    const std::pair<int, int> parts[] = {{0, 0}, {47, 0}, {48, 1}, {104, 1}, {105, 2}, {119, 2}};
    for (auto [x, part] : parts) EXPECT_EQ(p.pitch->PartAt(x), part) << x;
    EXPECT_EQ(PitchScene(0.5f, true).pitch->PartAt(110), 0);
}

TEST(ParameterPitch, CtrlPressZeroesThePartUnderThePointer) {
    // From 3 semitones and a quarter: the piano clears the semitones, the text everything,
    // the knob the cents; the vertical form resets to the middle.
    const struct {
        int x;
        bool vertical;
        float semitones;
    } rows[] = {{10, false, 0.25f}, {60, false, 0.0f}, {112, false, 3.0f}, {5, true, 0.0f}};
    for (const auto& r : rows) {
        PitchScene p(PitchScene::ValueFor(3.25f), r.vertical);
        p.Down(10 + r.x, 15, G::kCtrlDown);
        p.Up(10 + r.x, 15);
        EXPECT_EQ(p.listener.Kinds(), "bve") << r.x;
        EXPECT_NEAR(p.pitch->Semitones(), r.semitones, 1e-5) << r.x;
    }
}

TEST(ParameterPitch, DragsMoveTheirOwnPart) {
    PitchScene piano(PitchScene::ValueFor(10.0f));
    piano.Down(20, 15);
    piano.Move(40, 15);  // 20 pixels: 2 semitones
    piano.Move(60, 15);  // 4 more would pass 12
    piano.Move(10, 15);
    piano.Up(10, 15);
    piano.Expect("bvvve", {PitchScene::ValueFor(12), PitchScene::ValueFor(12), PitchScene::ValueFor(9)});

    PitchScene cents;
    cents.Down(122, 15);
    cents.Move(122, -5);   // 20 up: +0.2
    cents.Move(122, -85);  // clamps at +0.5, which stays with the lower semitone
    cents.Expect("bvv", {PitchScene::ValueFor(0.2f), PitchScene::ValueFor(0.5f)});
    EXPECT_FLOAT_EQ(cents.pitch->IntegerSemitones(), 0.0f);

    PitchScene text;
    text.Down(70, 15);
    text.Move(70, 39);
    text.Expect("bv", {0.5f - 24.0f / 2400.0f});

    PitchScene vertical(0.5f, true);
    vertical.Down(20, 15);
    vertical.Move(50, 5);  // a third of a step per pixel across, a step per pixel up
    vertical.Expect("bv", {0.5f + 10.0f / 2400.0f + 10.0f / 2400.0f});
}

TEST(ParameterPitch, WheelAndArrowKeysStepTheValue) {
    PitchScene p;
    p.Move(20, 15);
    p.s.native->Wheel(240);
    p.s.root->SetFocus(p.pitch);
    p.Keys({G::vk::kLeft, G::vk::kRight, G::vk::kUp, G::vk::kDown});
    const float w = 0.51f;
    p.Expect("vvvvv", {w, w - 1 / 2400.0f, w, w - 1 / 24.0f, w});
}

// [SECTION] Slider

struct SliderScene : Scene {
    explicit SliderScene(int style = G::ParameterSlider::kStylePlain, bool vertical = false) {
        slider = new G::ParameterSlider(s.root.get(), &listener, 4, 0.5f, L"", style, vertical);
        Add(slider, vertical ? 13 : 100, vertical ? 100 : 13);
    }
    G::ParameterSlider* slider;
};

TEST(ParameterSlider, PressJumpsToThePointerTheDragClampsAndCtrlClickResets) {
    SliderScene sl;
    sl.Down(35, 15);
    sl.Move(200, 15);
    sl.Move(0, 15);
    sl.Up(0, 15);
    sl.Expect("bvvve", {0.25f, 1.0f, 0.0f});
    EXPECT_FALSE(sl.s.native->captured);
    sl.slider->SetValue(0.1f);
    sl.Down(90, 15, G::kCtrlDown);
    sl.Move(95, 15);
    sl.Up(95, 15);
    sl.Expect("bve", {0.5f});

    SliderScene vertical(G::ParameterSlider::kStylePlain, true);
    vertical.Down(15, 85);
    vertical.Expect("bv", {0.75f});
}

TEST(ParameterSlider, ArrowsStepOnlyWithoutModifiersAndTheWheelByHover) {
    SliderScene sl;
    sl.s.root->SetFocus(sl.slider);
    sl.Keys({G::vk::kLeft, G::vk::kRight, G::vk::kUp, G::vk::kDown});
    sl.Keys({G::vk::kRight}, G::kShiftDown);
    sl.Expect("vvvv", {0.498f, 0.5f, 0.49f, 0.5f});
    sl.s.root->ClearFocus();
    sl.Move(50, 15);
    sl.s.native->Wheel(-240);
    sl.Expect("v", {0.48f});
}

TEST(ParameterSlider, MoveWithoutDragGoesToTheParent) {
    Scene sc;
    Swatch* panel = AddSwatch(sc.s.root.get(), G::Rect{0, 0, 300, 100}, 0xFFFFFF, "panel");
    auto* slider = new G::ParameterSlider(panel, &sc.listener, 4, 0.5f, L"Cross");
    panel->AddChild(slider);
    slider->SetBounds(20, 30, 100, 13);
    sc.Move(40, 35);
    EXPECT_EQ(panel->events.back(), "panel:move(40,35)");
    EXPECT_TRUE(sc.listener.calls.empty());
}

TEST(ParameterSlider, BarRunsFromTheStartOrTheMiddle) {
    SliderScene plain;
    EXPECT_EQ(PixelOf(*plain.slider, 25, 6), Rgb(16));
    EXPECT_EQ(PixelOf(*plain.slider, 60, 6), 0xFFFFFFu);
    SliderScene centred(G::ParameterSlider::kStyleCentred);
    centred.slider->SetValue(0.75f);
    centred.s.native->PaintNow();
    const std::pair<int, uint32_t> columns[] = {{40, 0xFFFFFF}, {60, Rgb(16)}, {80, 0xFFFFFF}};
    for (auto [x, rgb] : columns) EXPECT_EQ(PixelOf(*centred.slider, x, 6), rgb) << x;
}

// [SECTION] Switch

TEST(ParameterSwitch, PressAndSpaceToggleInOneGestureEachAndOtherKeysPass) {
    Scene sc;
    auto* sw = sc.Add(new G::ParameterSwitch(sc.s.root.get(), &sc.listener, 2, 0.0f), 13, 13);
    sc.Down(16, 16);
    EXPECT_EQ(sc.listener.Kinds(), "bv");
    EXPECT_TRUE(sw->IsOn());
    sc.Up(16, 16);
    sc.Down(16, 16);
    sc.Up(16, 16);
    sc.Expect("bvebve", {1.0f, 0.0f});
    EXPECT_TRUE(sc.s.root->HasFocus(sw));
    EXPECT_FALSE(sc.s.native->captured);
    sc.Keys({G::vk::kSpace, 'A', G::vk::kSpace});
    sc.Expect("bvebve", {1.0f, 0.0f});
}

TEST(ParameterSwitch, OnAboveHalfAndTheFaceShowsIt) {
    Scene sc;
    auto* sw = sc.Add(new G::ParameterSwitch(sc.s.root.get(), &sc.listener, 2, 0.0f), 13, 13);
    EXPECT_NE(PixelOf(*sw, 6, 6), Rgb(30));
    sw->SetValue(0.5f);
    EXPECT_FALSE(sw->IsOn());
    sw->SetValue(0.51f);
    EXPECT_FLOAT_EQ(sw->Value(), 1.0f);
    EXPECT_TRUE(sc.listener.calls.empty());
    sc.s.native->PaintNow();
    EXPECT_EQ(PixelOf(*sw, 6, 6), Rgb(30));

    Scene other;
    auto* labelled = new G::ParameterSwitchWithLabel(other.s.root.get(), &other.listener, 3, 1.0f, L"Sync");
    other.Add(labelled, 60, 13);
    other.Down(15, 15);
    other.Up(15, 15);
    other.Expect("bve", {0.0f});
    if (!G::theme::NormalFont()) GTEST_SKIP() << "no font";
    EXPECT_GT(DarkPixels(*labelled, 15, 0, 60, 13), 10);
}

// [SECTION] Choice widgets

TEST(ParameterFilter, ButtonsShareTheWidthAndAChoiceSendsOneGesture) {
    Scene sc;
    auto* filter = sc.Add(new G::ParameterFilter(sc.s.root.get(), &sc.listener, 6, 0.0f), 90, 13);
    ASSERT_EQ(filter->Count(), 4);
    const G::Rect expected[] = {{0, 0, 21, 13}, {22, 0, 22, 13}, {45, 0, 22, 13}, {68, 0, 22, 13}};
    for (int i = 0; i < 4; ++i) EXPECT_EQ(filter->buttons[i]->bounds, expected[i]);
    sc.s.native->Click(60, 15);
    EXPECT_EQ(sc.listener.calls[0].index, 6);
    EXPECT_EQ(sc.listener.calls[0].generator, static_cast<G::FloatParamGenerator*>(filter));
    sc.Expect("bve", {2.0f / 3.0f});
    sc.s.native->Click(60, 15);  // the selected one again: nothing
    sc.s.native->Click(95, 15);
    sc.Expect("bve", {1.0f});
}

TEST(ParameterFilter, SelectedButtonIsFilledAndTheFocusedOneFramedInTheAccent) {
    Scene sc;
    auto* filter = sc.Add(new G::ParameterFilter(sc.s.root.get(), &sc.listener, 6, 1.0f / 3.0f), 80, 13);
    G::CustomButton* first = filter->buttons[0];
    G::CustomButton* second = filter->buttons[1];
    EXPECT_EQ(PixelOf(*second, 2, 2), Rgb(16));
    EXPECT_EQ(PixelOf(*first, 2, 2), 0xFFFFFFu);
    EXPECT_EQ(PixelOf(*first, 1, 6), Rgb(16));  // the open rectangle
    EXPECT_EQ(PixelOf(*first, 8, 0), 0x000000u);
    sc.Move(15, 15);  // hover over the first: a pattern with the widget's colour in it
    int coloured = 0;
    for (int y = 2; y < 11; ++y)
        for (int x = 2; x < 17; ++x) coloured += PixelOf(*first, x, y) == Rgb(16);
    EXPECT_GT(coloured, 0);
    sc.s.native->Click(15, 15);
    EXPECT_EQ(PixelOf(*first, 8, 0), Rgb(30));
    EXPECT_EQ(PixelOf(*second, 8, 0), 0x000000u);
    EXPECT_EQ(PixelOf(*second, 2, 2), 0xFFFFFFu);
}

TEST(ParameterWave, FixedButtonsRoundedSelectionAndAGlyphOnEach) {
    Scene sc;
    auto* wave = sc.Add(new G::ParameterWave(sc.s.root.get(), &sc.listener, 1, 0.5f), 70, 13);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(wave->buttons[i]->bounds, (G::Rect{14 * i, 0, 13, 13}));
    EXPECT_EQ(wave->SelectedIndex(), 2);  // 1.5 rounds up
    sc.s.native->Click(40, 15);           // the third button, already selected
    sc.s.native->Click(10, 15);
    sc.Expect("bve", {0.0f});
    for (G::CustomButton* b : wave->buttons) EXPECT_GT(DarkPixels(*b, 3, 3, 10, 10), 3);
}

TEST(ParameterButtonStrip, SelectionSpreadsOverTheLabels) {
    Scene sc;
    auto* strip = sc.Add(new G::ParameterButtonStrip(sc.s.root.get(), &sc.listener, 202, 0.0f,
                                                     {L"normal", L"spaced", L"widen"}),
                         90, 13);
    const std::pair<float, int> rows[] = {{0.0f, 0},  {0.24f, 0}, {0.25f, 1},
                                          {0.74f, 1}, {0.75f, 2}, {1.0f, 2}};
    for (auto [value, index] : rows) {
        strip->SetValue(value);
        EXPECT_EQ(strip->SelectedIndex(), index) << value;
    }
    strip->SetValue(0.0f);
    sc.s.native->Click(50, 15);
    EXPECT_EQ(sc.listener.calls[0].index, 202);
    sc.Expect("bve", {0.5f});

    G::ParameterButtonStrip single(sc.s.root.get(), nullptr, 7, 0.8f, {L"only"});
    single.OnCommand(1);
    single.OnCommand(5);
    EXPECT_EQ(single.SelectedIndex(), 0);
}

}  // namespace
