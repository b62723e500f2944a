// Painting as users see it: every widget must own every pixel of its rect on every paint, with
// or without a background renderer, and a background renderer must paint the part of its own
// surface that lies under the widget, so gradients and title strips line up.
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>

#include "fake_native.h"
#include "g/button.h"
#include "g/parameter_choice.h"
#include "g/parameter_knob.h"
#include "g/parameter_pitch.h"
#include "g/parameter_slider.h"
#include "g/parameter_switch.h"
#include "g/text_lines.h"
#include "widget_probes.h"

using namespace gtest_support;

namespace {

constexpr uint32_t kLoud = 0xFF00FF;  // a colour no face uses

// Overwrites the bitmaps of `control` and its subtree with the loud colour.
void Smear(G::Control& control) {
    if (control.bitmap) {
        G::Bitmap& b = *control.bitmap;
        for (int y = 0; y < b.height; ++y) {
            uint8_t* p = b.Row(y);
            for (int x = 0; x < b.width; ++x, p += 3) {
                p[0] = 0xFF;
                p[1] = 0x00;
                p[2] = 0xFF;
            }
        }
    }
    control.Invalidate(nullptr);
    for (G::Control* child : control.children) Smear(*child);
}

int LoudPixelsOnScreen(const FakeNativeWindow& native, const G::Rect& r) {
    int n = 0;
    for (int y = r.y; y < r.y + r.h; ++y)
        for (int x = r.x; x < r.x + r.w; ++x) n += native.Pixel(x, y) == kLoud;
    return n;
}

struct WidgetCase {
    const char* name;
    std::function<G::Control*(G::Control* parent)> make;
};

std::vector<WidgetCase> WidgetCases() {
    return {
        {"slider", [](G::Control* p) { return new G::ParameterSlider(p, nullptr, 1, 0.7f, L"Level"); }},
        {"centred slider",
         [](G::Control* p) {
             return new G::ParameterSlider(p, nullptr, 1, 0.2f, L"Pan", G::ParameterSlider::kStyleCentred);
         }},
        {"pitch", [](G::Control* p) { return new G::ParameterPitch(p, nullptr, 1, 0.8f); }},
        {"switch", [](G::Control* p) { return new G::ParameterSwitch(p, nullptr, 1, 1.0f); }},
        {"labelled switch",
         [](G::Control* p) { return new G::ParameterSwitchWithLabel(p, nullptr, 1, 1.0f, L"Sync"); }},
        {"filter", [](G::Control* p) { return new G::ParameterFilter(p, nullptr, 1, 1.0f); }},
        {"wave", [](G::Control* p) { return new G::ParameterWave(p, nullptr, 1, 0.0f); }},
        {"strip",
         [](G::Control* p) {
             return new G::ParameterButtonStrip(p, nullptr, 1, 0.5f, {L"A", L"B", L"C"});
         }},
        {"knob", [](G::Control* p) { return new G::ParameterKnob(p, nullptr, 1, 0.3f); }},
        {"arrow port",
         [](G::Control* p) { return new LittleVrokButton(p, p, 8000, LittleVrokButton::kArrow); }},
        {"cross port",
         [](G::Control* p) { return new LittleVrokButton(p, p, 8001, LittleVrokButton::kCross); }},
        {"box port", [](G::Control* p) { return new LittleVrokButton(p, p, 1, LittleVrokButton::kBox); }},
    };
}

TEST(WidgetPainting, NoOldPixelSurvivesARepaintWithOrWithoutABackgroundRenderer) {
    WhiteBackground white;
    for (bool withBackground : {false, true}) {
        for (const WidgetCase& c : WidgetCases()) {
            FakeScreen s(200, 60);
            G::Control* widget = c.make(s.root.get());
            s.root->AddChild(widget);
            if (withBackground) widget->background = &white;
            widget->SetBounds(10, 10, 120, 16);
            s.native->PaintNow();
            // Hover and press change the face; a face drawn over the old one shows both.
            s.native->Move(14, 14);
            s.native->PaintNow();
            Smear(*widget);
            s.native->PaintNow();
            EXPECT_EQ(LoudPixelsOnScreen(*s.native, G::Rect{10, 10, 120, 16}), 0)
                << c.name << (withBackground ? " with" : " without") << " a background renderer";
        }
    }
}

TEST(WidgetPainting, DraggedSliderLeavesNoOldBar) {
    FakeScreen s(200, 60);
    auto* slider = new G::ParameterSlider(s.root.get(), nullptr, 1, 0.9f, L"");
    s.root->AddChild(slider);
    slider->colorIndex = 16;
    slider->SetBounds(10, 10, 100, 14);
    s.native->PaintNow();
    ASSERT_EQ(s.native->Pixel(60, 12), Rgb(16)) << "the bar at 0.9 covers x = 60";
    s.native->Drag(90, 17, 30, 17);  // to 0.2
    s.native->PaintNow();
    EXPECT_EQ(s.native->Pixel(60, 12), Rgb(0)) << "the bar from 0.9 is still there";
}

// Draws one black line across its whole surface at parent row kLineY, and records what it was
// asked for.
class StripedOwner : public G::BackgroundRenderer {
public:
    static constexpr int kLineY = 20;
    void PaintBackground(G::Renderer& renderer, const G::Rect& area) override {
        asked.push_back(area);
        renderer.FillRect(G::Brush::Solid(0xFFFFFFFF),
                          G::FloatRect{float(area.x), float(area.y), float(area.w), float(area.h)});
        renderer.FillRect(G::Brush::Solid(0xFF000000), G::FloatRect{0, float(kLineY), 1000, 1});
    }
    std::vector<G::Rect> asked;
};

TEST(WidgetPainting, BackgroundRendererGetsTheWidgetsPlaceInTheParentAndPaintsWhatLiesUnderIt) {
    FakeScreen s(200, 60);
    StripedOwner owner;
    auto* sw = new G::ParameterSwitch(s.root.get(), nullptr, 1, 0.0f);
    s.root->AddChild(sw);
    sw->background = &owner;
    sw->SetBounds(30, 15, 40, 13);
    s.native->PaintNow();
    ASSERT_FALSE(owner.asked.empty());
    EXPECT_EQ(owner.asked.back(), (G::Rect{30, 15, 40, 13}));
    const int row = StripedOwner::kLineY - 15;
    EXPECT_EQ(PixelOf(*sw, 39, row), 0x000000u) << "the parent's line lands on the widget's row 5";
    EXPECT_EQ(PixelOf(*sw, 39, row + 2), 0xFFFFFFu);
    EXPECT_EQ(PixelOf(*sw, 39, row - 2), 0xFFFFFFu);

    // Buttons inside a choice widget ask through the widget: the line still lines up.
    auto* strip = new G::ParameterButtonStrip(s.root.get(), nullptr, 2, 0.0f, {L"", L""});
    s.root->AddChild(strip);
    strip->background = &owner;
    strip->SetBounds(100, 12, 60, 14);
    s.native->PaintNow();
    G::CustomButton* second = strip->buttons[1];
    EXPECT_EQ(PixelOf(*second, 4, StripedOwner::kLineY - 12), 0x000000u);
    EXPECT_EQ(PixelOf(*second, 4, StripedOwner::kLineY - 12 - 3), 0xFFFFFFu);
}

TEST(TextLines, EveryLineEndingBreaks) {
    struct Row {
        std::string text;
        std::vector<std::string> lines;
    };
    const Row rows[] = {
        {"Warning!\rClear has no undo.\rProceed?", {"Warning!", "Clear has no undo.", "Proceed?"}},
        {"a\nb\r\nc", {"a", "b", "c"}},
        {"a\r\rb", {"a", "", "b"}},
        {"end\n", {"end", ""}},
        {"", {""}},
    };
    for (const Row& r : rows) EXPECT_EQ(G::SplitLines(r.text), r.lines) << r.text;
}

}  // namespace
