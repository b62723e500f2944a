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
    void Key(int virtualKey, unsigned modifiers = 0) {
        s.native->Key(NativeEventKind::KeyDown, virtualKey, modifiers);
    }

    FakeScreen s{300, 100};
    RecordingListener listener;
    WhiteBackground white;
};

// Anti-aliased line pixels: every channel below the middle.
bool IsDark(uint32_t rgb) { return (rgb & 0x808080u) == 0; }

void ExpectValues(const RecordingListener& listener, const std::vector<float>& expected) {
    std::vector<float> got = listener.Values();
    ASSERT_EQ(got.size(), expected.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_FLOAT_EQ(got[i], expected[i]) << "call " << i;
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
    EXPECT_EQ(k.listener.Kinds(), "bvvve");
    ExpectValues(k.listener, {0.5f, 0.5f + 10 * 0.0025f + 5 * 0.01f, 0.5f - 10 * 0.0025f - 10 * 0.01f});
    for (const ParamCall& c : k.listener.calls) {
        EXPECT_EQ(c.index, 5);
        EXPECT_EQ(c.generator, static_cast<G::FloatParamGenerator*>(k.knob));
    }
    EXPECT_TRUE(k.s.root->HasFocus(k.knob));
    EXPECT_FALSE(k.s.native->captured);
    k.Move(50, 10);  // no longer dragging
    EXPECT_EQ(k.listener.calls.size(), 5u);
}

TEST(ParameterKnob, DragPastTheEndsClampsAndStillReports) {
    KnobScene k(0.98f);
    k.Down(30, 30);
    k.Move(30, 20);
    k.Move(30, 10);
    k.Move(30, 200);
    k.Up(30, 200);
    EXPECT_EQ(k.listener.Kinds(), "bvvvve");
    ExpectValues(k.listener, {0.98f, 1.0f, 1.0f, 0.0f});
}

TEST(ParameterKnob, CtrlClickResetsInExactlyOneGesture) {
    KnobScene k(0.9f);
    k.Down(30, 30, G::kCtrlDown);
    k.Move(40, 10);
    k.Up(40, 10);
    EXPECT_EQ(k.listener.Kinds(), "bve");
    ExpectValues(k.listener, {0.5f});
    EXPECT_FLOAT_EQ(k.knob->Value(), 0.5f);
    EXPECT_FALSE(k.knob->dragging);
    EXPECT_TRUE(k.s.root->HasFocus(k.knob));
}

TEST(ParameterKnob, WheelNeedsOnlyHoverAndSendsLoneValues) {
    KnobScene k;
    k.Move(30, 30);
    ASSERT_FALSE(k.s.root->HasFocus(k.knob));
    k.s.native->Wheel(120);
    k.s.native->Wheel(-360);
    k.s.native->Wheel(120, true);
    EXPECT_EQ(k.listener.Kinds(), "vvv");
    ExpectValues(k.listener, {0.51f, 0.48f, 0.49f});
    k.knob->SetValue(0.995f);
    k.s.native->Wheel(120);
    EXPECT_FLOAT_EQ(k.knob->Value(), 1.0f);
}

TEST(ParameterKnob, ArrowsArriveTranslatedSoOnlyRawCodesStep) {
    KnobScene k;
    k.s.root->SetFocus(k.knob);
    for (int arrow : {G::vk::kLeft, G::vk::kUp, G::vk::kRight, G::vk::kDown}) k.Key(arrow);
    EXPECT_TRUE(k.listener.calls.empty());
    EXPECT_FLOAT_EQ(k.knob->Value(), 0.5f);
    for (int raw : {37, 38, 39, 40}) EXPECT_TRUE(k.knob->OnKeyDown(raw));
    ExpectValues(k.listener, {0.498f, 0.488f, 0.49f, 0.5f});
}

TEST(ParameterKnob, SetValueClampsAndTellsNobody) {
    KnobScene k(3.0f);
    EXPECT_FLOAT_EQ(k.knob->Value(), 1.0f);
    k.knob->SetValue(-2.0f);
    EXPECT_FLOAT_EQ(k.knob->Value(), 0.0f);
    k.knob->SetValue(std::nanf(""));
    EXPECT_FLOAT_EQ(k.knob->Value(), 0.0f);
    k.knob->SetValue(0.25f);
    EXPECT_FLOAT_EQ(k.knob->Value(), 0.25f);
    EXPECT_TRUE(k.listener.calls.empty());
}

TEST(ParameterKnob, WithoutListenerTheKnobStillMoves) {
    KnobScene k;
    k.knob->listener = nullptr;
    k.Down(30, 30);
    k.Move(30, 20);
    k.Up(30, 20);
    k.s.native->Wheel(120);
    EXPECT_FLOAT_EQ(k.knob->Value(), 0.61f);
}

TEST(ParameterKnob, PreferredSizeFollowsTheRadius) {
    KnobScene k;
    G::Rect r;
    k.knob->GetPreferredBounds(r);
    EXPECT_EQ(r.w, 32);
    EXPECT_EQ(r.h, 32);
    k.knob->SetRadius(20.0f);
    k.knob->GetPreferredBounds(r);
    EXPECT_EQ(r.w, 42);
}

TEST(ParameterKnob, SmallFaceShowsThePieHighlightAndFocus) {
    KnobScene k(1.0f);
    // A full unipolar pie leaves only the wedge at the bottom open.
    EXPECT_EQ(PixelOf(*k.knob, 20, 8), Rgb(16));
    EXPECT_EQ(PixelOf(*k.knob, 20, 33), 0xFFFFFFu);
    EXPECT_NE(PixelOf(*k.knob, 20, 0), Rgb(30));
    k.Move(30, 18);  // hovered: the pie is 20 lighter per channel
    EXPECT_EQ(PixelOf(*k.knob, 20, 8), G::Brighten(G::theme::Palette(16), 20) & 0xFFFFFFu);
    k.s.root->SetFocus(k.knob);
    k.s.native->PaintNow();
    EXPECT_EQ(PixelOf(*k.knob, 20, 0), Rgb(30));

    k.knob->SetValue(0.0f);  // a sweep under 6 degrees draws no pie
    k.s.native->PaintNow();
    EXPECT_NE(PixelOf(*k.knob, 8, 28), Rgb(16));
}

TEST(ParameterKnob, LargeFaceArcSplitsAtTheValue) {
    KnobScene k(0.0f, G::ParameterKnob::kStyleLarge);
    // Diameter min(30, 38 - 6) = 30 around (20, 20): the top of the arc is at (20, 5).
    EXPECT_EQ(PixelOf(*k.knob, 20, 5), Rgb(9));
    k.knob->SetValue(1.0f);
    k.s.native->PaintNow();
    EXPECT_EQ(PixelOf(*k.knob, 20, 5), Rgb(11));
    EXPECT_EQ(G::Brighten(0xFF10F0FA, 20), 0xFF24FFFFu);
}

// [SECTION] Pitch

struct PitchScene : Scene {
    explicit PitchScene(float value = 0.5f, bool vertical = false) {
        pitch = Add(new G::ParameterPitch(s.root.get(), &listener, 9, value, vertical), 120, 16);
    }
    float ValueFor(float semitones) { return semitones / 24.0f + 0.5f; }
    G::ParameterPitch* pitch;
};

TEST(ParameterPitch, SplitKeepsCentsWithinHalfASemitoneAndTheLowerIntegerAtAHalf) {
    PitchScene p;
    struct Row {
        float value;
        float integer;
        float cents;
    };
    const Row rows[] = {
        {0.5f, 0, 0},  {0.5625f, 1, 0.5f}, {0.4375f, -2, 0.5f}, {0.5634765625f, 2, -0.4765625f},
        {1.0f, 12, 0}, {0.0f, -12, 0},
    };
    for (const Row& r : rows) {
        p.pitch->SetValue(r.value);
        EXPECT_FLOAT_EQ(p.pitch->IntegerSemitones(), r.integer) << r.value;
        EXPECT_FLOAT_EQ(p.pitch->Cents(), r.cents) << r.value;
    }
    EXPECT_TRUE(p.listener.calls.empty());
}

TEST(ParameterPitch, TextShowsSignedHundredthsAndPlusZeroNearZero) {
    const std::pair<float, const char*> rows[] = {
        {0.0f, "+0"},    {0.009f, "+0"},    {-0.009f, "+0"},   {0.01f, "+0.01"},
        {1.5f, "+1.50"}, {-3.25f, "-3.25"}, {12.0f, "+12.00"}, {-12.0f, "-12.00"},
    };
    for (auto [semitones, text] : rows) EXPECT_EQ(G::ParameterPitch::PitchText(semitones), text);
    PitchScene p;
    EXPECT_EQ(G::ParameterPitch::PitchText(p.pitch->Semitones()), "+0");
}

TEST(ParameterPitch, PressPositionPicksThePart) {
    PitchScene p;
    const std::pair<int, int> rows[] = {{0, 0}, {47, 0}, {48, 1}, {104, 1}, {105, 2}, {119, 2}};
    for (auto [x, part] : rows) EXPECT_EQ(p.pitch->PartAt(x), part) << x;
    PitchScene vertical(0.5f, true);
    EXPECT_EQ(vertical.pitch->PartAt(110), 0);
}

TEST(ParameterPitch, CtrlPressZeroesThePartUnderThePointer) {
    struct Row {
        int x;
        float semitones;
    };
    // From 3 semitones and a quarter: the piano clears the semitones, the text everything,
    // the knob the cents.
    for (Row r : {Row{10, 0.25f}, Row{60, 0.0f}, Row{112, 3.0f}}) {
        PitchScene p;
        p.pitch->SetValue(p.ValueFor(3.25f));
        p.Down(10 + r.x, 15, G::kCtrlDown);
        p.Up(10 + r.x, 15);
        EXPECT_EQ(p.listener.Kinds(), "bve") << r.x;
        EXPECT_NEAR(p.pitch->Semitones(), r.semitones, 1e-5) << r.x;
    }
    PitchScene vertical(0.9f, true);
    vertical.Down(15, 15, G::kCtrlDown);
    EXPECT_EQ(vertical.listener.Kinds(), "bve");
    EXPECT_FLOAT_EQ(vertical.pitch->Value(), 0.5f);
}

TEST(ParameterPitch, DragsMoveTheirOwnPart) {
    PitchScene piano(0.5f);
    piano.pitch->SetValue(piano.ValueFor(10.0f));
    piano.Down(20, 15);
    piano.Move(40, 15);  // 20 pixels: 2 semitones
    piano.Move(60, 15);  // 4 more would pass 12
    piano.Move(10, 15);
    piano.Up(10, 15);
    EXPECT_EQ(piano.listener.Kinds(), "bvvve");
    std::vector<float> semitones;
    for (float v : piano.listener.Values()) semitones.push_back((v - 0.5f) * 24.0f);
    ASSERT_EQ(semitones.size(), 3u);
    EXPECT_NEAR(semitones[0], 12.0f, 1e-4);
    EXPECT_NEAR(semitones[1], 12.0f, 1e-4);
    EXPECT_NEAR(semitones[2], 9.0f, 1e-4);

    PitchScene cents;
    cents.Down(122, 15);
    cents.Move(122, -5);   // 20 up: +0.2
    cents.Move(122, -85);  // clamps at +0.5, which stays with the lower semitone
    EXPECT_NEAR(cents.listener.Values()[0], cents.ValueFor(0.2f), 1e-6);
    EXPECT_FLOAT_EQ(cents.pitch->IntegerSemitones(), 0.0f);
    EXPECT_NEAR(cents.pitch->Cents(), 0.5f, 1e-5);

    PitchScene text;
    text.Down(70, 15);
    text.Move(70, 39);
    ExpectValues(text.listener, {0.5f - 24.0f / 2400.0f});

    PitchScene vertical(0.5f, true);
    vertical.Down(20, 15);
    vertical.Move(50, 5);
    ExpectValues(vertical.listener, {0.5f + 10.0f / 2400.0f + 10.0f / 2400.0f});
}

TEST(ParameterPitch, WheelAndArrowKeysStepTheValue) {
    PitchScene p;
    p.Move(20, 15);
    p.s.native->Wheel(240);
    p.s.root->SetFocus(p.pitch);
    for (int arrow : {G::vk::kLeft, G::vk::kRight, G::vk::kUp, G::vk::kDown}) p.Key(arrow);
    EXPECT_EQ(p.listener.Kinds(), "vvvvv");
    const float w = 0.51f;
    ExpectValues(p.listener, {w, w - 1 / 2400.0f, w, w - 1 / 24.0f, w});
}

// [SECTION] Slider

struct SliderScene : Scene {
    explicit SliderScene(int style = G::ParameterSlider::kStylePlain, bool vertical = false) {
        slider = new G::ParameterSlider(s.root.get(), &listener, 4, 0.5f, L"", style, vertical);
        Add(slider, vertical ? 13 : 100, vertical ? 100 : 13);
    }
    G::ParameterSlider* slider;
};

TEST(ParameterSlider, PressJumpsToThePointerAndTheDragClamps) {
    SliderScene sl;
    sl.Down(35, 15);
    sl.Move(200, 15);
    sl.Move(0, 15);
    sl.Up(0, 15);
    EXPECT_EQ(sl.listener.Kinds(), "bvvve");
    ExpectValues(sl.listener, {0.25f, 1.0f, 0.0f});
    EXPECT_FALSE(sl.s.native->captured);

    SliderScene vertical(G::ParameterSlider::kStylePlain, true);
    vertical.Down(15, 85);
    ExpectValues(vertical.listener, {0.75f});
}

TEST(ParameterSlider, CtrlClickResetsInOneGesture) {
    SliderScene sl;
    sl.slider->SetValue(0.1f);
    sl.Down(90, 15, G::kCtrlDown);
    sl.Move(95, 15);
    sl.Up(95, 15);
    EXPECT_EQ(sl.listener.Kinds(), "bve");
    EXPECT_FLOAT_EQ(sl.slider->Value(), 0.5f);
}

TEST(ParameterSlider, ArrowsStepOnlyWithoutModifiersAndTheWheelByHover) {
    SliderScene sl;
    sl.s.root->SetFocus(sl.slider);
    for (int arrow : {G::vk::kLeft, G::vk::kRight, G::vk::kUp, G::vk::kDown}) sl.Key(arrow);
    sl.Key(G::vk::kRight, G::kShiftDown);
    ExpectValues(sl.listener, {0.498f, 0.5f, 0.49f, 0.5f});
    sl.listener.calls.clear();
    sl.s.root->ClearFocus();
    sl.Move(50, 15);
    sl.s.native->Wheel(-240);
    EXPECT_EQ(sl.listener.Kinds(), "v");
    ExpectValues(sl.listener, {0.48f});
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
    EXPECT_EQ(PixelOf(*centred.slider, 40, 6), 0xFFFFFFu);
    EXPECT_EQ(PixelOf(*centred.slider, 60, 6), Rgb(16));
    EXPECT_EQ(PixelOf(*centred.slider, 80, 6), 0xFFFFFFu);
}

// [SECTION] Switch

struct SwitchScene : Scene {
    SwitchScene() { sw = Add(new G::ParameterSwitch(s.root.get(), &listener, 2, 0.0f), 13, 13); }
    G::ParameterSwitch* sw;
};

TEST(ParameterSwitch, PressTogglesAndReleaseEndsTheGesture) {
    SwitchScene s;
    s.Down(16, 16);
    EXPECT_EQ(s.listener.Kinds(), "bv");
    EXPECT_TRUE(s.sw->IsOn());
    s.Up(16, 16);
    s.Down(16, 16);
    s.Up(16, 16);
    EXPECT_EQ(s.listener.Kinds(), "bvebve");
    ExpectValues(s.listener, {1.0f, 0.0f});
    EXPECT_TRUE(s.s.root->HasFocus(s.sw));
    EXPECT_FALSE(s.s.native->captured);
}

TEST(ParameterSwitch, SpaceTogglesInOneGestureAndOtherKeysPass) {
    SwitchScene s;
    s.s.root->SetFocus(s.sw);
    s.Key(G::vk::kSpace);
    s.Key('A');
    s.Key(G::vk::kSpace);
    EXPECT_EQ(s.listener.Kinds(), "bvebve");
    ExpectValues(s.listener, {1.0f, 0.0f});
}

TEST(ParameterSwitch, OnAboveHalfAndTheFaceShowsIt) {
    SwitchScene s;
    const uint32_t off = PixelOf(*s.sw, 6, 6);
    s.sw->SetValue(0.5f);
    EXPECT_FALSE(s.sw->IsOn());
    s.sw->SetValue(0.51f);
    EXPECT_TRUE(s.sw->IsOn());
    EXPECT_FLOAT_EQ(s.sw->Value(), 1.0f);
    EXPECT_TRUE(s.listener.calls.empty());
    s.s.native->PaintNow();
    EXPECT_NE(PixelOf(*s.sw, 6, 6), off);
    EXPECT_EQ(PixelOf(*s.sw, 6, 6), Rgb(30));
}

TEST(ParameterSwitchWithLabel, TogglesLikeTheSwitchAndWritesItsLabel) {
    Scene sc;
    auto* sw =
        sc.Add(new G::ParameterSwitchWithLabel(sc.s.root.get(), &sc.listener, 3, 1.0f, L"Sync"), 60, 13);
    sc.Down(15, 15);
    sc.Up(15, 15);
    EXPECT_EQ(sc.listener.Kinds(), "bve");
    EXPECT_FALSE(sw->IsOn());
    if (!G::theme::NormalFont()) GTEST_SKIP() << "no font";
    int dark = 0;
    for (int y = 0; y < 13; ++y)
        for (int x = 15; x < 60; ++x) dark += IsDark(PixelOf(*sw, x, y));
    EXPECT_GT(dark, 10);
}

// [SECTION] Choice widgets

TEST(ParameterFilter, ButtonsShareTheWidthAndAChoiceSendsOneGesture) {
    Scene sc;
    auto* filter = sc.Add(new G::ParameterFilter(sc.s.root.get(), &sc.listener, 6, 0.0f), 80, 13);
    ASSERT_EQ(filter->Count(), 4);
    const int lefts[] = {0, 20, 40, 60};
    const int widths[] = {19, 19, 19, 20};
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(filter->buttons[i]->bounds, (G::Rect{lefts[i], 0, widths[i], 13}));
        EXPECT_EQ(filter->buttons[i]->id, i + 1);
    }
    sc.s.native->Click(55, 15);
    EXPECT_EQ(sc.listener.Kinds(), "bve");
    ExpectValues(sc.listener, {2.0f / 3.0f});
    EXPECT_EQ(sc.listener.calls[0].index, 6);
    EXPECT_EQ(sc.listener.calls[0].generator, static_cast<G::FloatParamGenerator*>(filter));
    EXPECT_EQ(filter->SelectedIndex(), 2);
    sc.s.native->Click(55, 15);  // the selected one again: nothing
    sc.s.native->Click(85, 15);
    EXPECT_EQ(sc.listener.Kinds(), "bvebve");
    EXPECT_FLOAT_EQ(filter->Value(), 1.0f);
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

TEST(ParameterWave, FixedButtonsAndRoundedSelection) {
    Scene sc;
    auto* wave = sc.Add(new G::ParameterWave(sc.s.root.get(), &sc.listener, 1, 0.5f), 70, 13);
    for (int i = 0; i < 4; ++i) EXPECT_EQ(wave->buttons[i]->bounds, (G::Rect{14 * i, 0, 13, 13}));
    EXPECT_EQ(wave->SelectedIndex(), 2);  // 1.5 rounds up
    sc.s.native->Click(40, 15);           // the third button, already selected
    EXPECT_TRUE(sc.listener.calls.empty());
    sc.s.native->Click(10, 15);
    ExpectValues(sc.listener, {0.0f});
    // Every glyph leaves a mark.
    for (G::CustomButton* b : wave->buttons) {
        int dark = 0;
        for (int y = 3; y < 10; ++y)
            for (int x = 3; x < 10; ++x) dark += IsDark(PixelOf(*b, x, y));
        EXPECT_GT(dark, 3);
    }
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
    EXPECT_EQ(sc.listener.Kinds(), "bve");
    ExpectValues(sc.listener, {0.5f});
    EXPECT_EQ(sc.listener.calls[0].index, 202);

    auto* single = new G::ParameterButtonStrip(sc.s.root.get(), nullptr, 7, 0.8f, {L"only"});
    single->OnCommand(1);
    single->OnCommand(5);
    EXPECT_EQ(single->SelectedIndex(), 0);
    delete single;
}

}  // namespace
