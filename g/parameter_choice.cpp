// The choice widgets: selection, commands from their buttons, item painting and glyphs.
#include "g/parameter_choice.h"

#include <cmath>

#include "g/renderer.h"

namespace G {
namespace {

constexpr int kHoverPattern = 1;
constexpr int kPressedPattern = 0;
constexpr float kGlyphMargin = 3.0f;
constexpr float kTwoPi = 6.2831853f;

struct GlyphPoint {
    float x;  // 0..1 across the glyph box
    float y;  // 0..1 down the glyph box
};

// Response curves drawn as a level over frequency: high is pass.
const std::vector<std::vector<GlyphPoint>> kFilterGlyphs = {
    {{0.0f, 0.2f}, {0.5f, 0.2f}, {1.0f, 1.0f}},                                // low-pass
    {{0.0f, 1.0f}, {0.5f, 0.2f}, {1.0f, 0.2f}},                                // high-pass
    {{0.0f, 1.0f}, {0.5f, 0.1f}, {1.0f, 1.0f}},                                // band-pass
    {{0.0f, 0.2f}, {0.35f, 0.2f}, {0.5f, 1.0f}, {0.65f, 0.2f}, {1.0f, 0.2f}},  // band reject
};

std::vector<GlyphPoint> SineGlyph() {
    std::vector<GlyphPoint> points;
    constexpr int kSteps = 12;
    for (int i = 0; i <= kSteps; ++i) {
        float t = static_cast<float>(i) / kSteps;
        points.push_back({t, 0.5f - 0.5f * std::sin(t * kTwoPi)});
    }
    return points;
}

const std::vector<std::vector<GlyphPoint>> kWaveGlyphs = {
    SineGlyph(),
    {{0.0f, 0.5f}, {0.25f, 0.0f}, {0.75f, 1.0f}, {1.0f, 0.5f}},              // triangle
    {{0.0f, 1.0f}, {0.5f, 0.0f}, {0.5f, 1.0f}, {1.0f, 0.0f}},                // sawtooth
    {{0.0f, 1.0f}, {0.0f, 0.0f}, {0.5f, 0.0f}, {0.5f, 1.0f}, {1.0f, 1.0f}},  // pulse
};

void DrawGlyph(Renderer& renderer, const std::vector<GlyphPoint>& glyph, const Rect& area, float margin) {
    const float x0 = area.x + margin;
    const float y0 = area.y + margin;
    const float w = area.w - 2.0f * margin;
    const float h = area.h - 2.0f * margin;
    if (w <= 0 || h <= 0) return;
    std::vector<FloatPoint> points;
    points.reserve(glyph.size());
    for (const GlyphPoint& p : glyph) points.push_back({x0 + p.x * w, y0 + p.y * h});
    renderer.DrawPolyline(Pen{0xFF000000, 1.0f}, points.data(), static_cast<int>(points.size()));
}

}  // namespace

ParameterChoice::ParameterChoice(Control* parentControl, FloatParamListener* paramListener, int index,
                                 float initial, int count)
    : Window(parentControl), ParameterSender(paramListener), value(ClampUnit(initial)) {
    id = index;
    for (int i = 0; i < count; ++i) {
        auto* button = new CustomButton(this, this, i + 1, std::wstring(), CustomButton::kLookOwnerDrawn);
        button->painter = this;
        AddChild(button);
        buttons.push_back(button);
    }
}

int ParameterChoice::SelectedIndex() const {
    if (buttons.size() < 2) return 0;
    return static_cast<int>(std::lround(value * (Count() - 1)));
}

void ParameterChoice::SetValue(float v) {
    value = ClampUnit(v);
    RedrawButtons();
}

void ParameterChoice::RedrawButtons() {
    Invalidate(nullptr);
    for (CustomButton* button : buttons) button->Invalidate(nullptr);
}

void ParameterChoice::OnCommand(int commandId) {
    const int item = commandId - 1;
    if (item < 0 || item >= Count()) return;
    if (item == SelectedIndex()) {
        RedrawButtons();
        return;
    }
    value = Count() > 1 ? static_cast<float>(item) / (Count() - 1) : 0.0f;
    RedrawButtons();
    SendGesture(id, value);
}

void ParameterChoice::PaintItem(int itemId, Renderer& renderer, const Rect& area, int state) {
    const int item = itemId - 1;
    if (item < 0 || item >= Count()) return;
    const Color color = theme::Palette(colorIndex);
    const FloatRect inner{area.x + 1.0f, area.y + 1.0f, area.w - 2.0f, area.h - 2.0f};
    renderer.StrokeRect(Pen{color, 1.0f},
                        FloatRect{area.x + 1.5f, area.y + 1.5f, area.w - 3.0f, area.h - 3.0f});
    if (state == 1) renderer.FillRect(Brush::Pattern(theme::Palette(1), color, kHoverPattern), inner);
    if (state == 2) {
        renderer.FillRect(Brush::Pattern(theme::Palette(1), color, kPressedPattern), inner);
    }
    if (item == SelectedIndex()) renderer.FillRect(Brush::Solid(color), inner);
    Color frame = buttons[item]->HasFocus() ? theme::Palette(theme::kAccent) : 0xFF000000;
    renderer.StrokeRect(Pen{frame, 1.0f},
                        FloatRect{area.x + 0.5f, area.y + 0.5f, area.w - 1.0f, area.h - 1.0f});
    PaintContent(item, renderer, area);
}

bool ParameterChoice::OnDraw(Renderer& renderer, Rect) {
    DrawBackground(renderer, Rect{0, 0, bounds.w, bounds.h});
    return true;
}

void ParameterChoice::DrawBackground(Renderer& renderer, const Rect& clip) {
    // The buttons paint this under their faces too, so it must cover what it is asked for.
    if (background) {
        Window::DrawBackground(renderer, clip);
    } else {
        renderer.FillRect(Brush::Solid(theme::Palette(1)),
                          FloatRect{float(clip.x), float(clip.y), float(clip.w), float(clip.h)});
    }
}

void ParameterChoice::OnResized(int w, int h) {
    Window::OnResized(w, h);
    Layout();
}

void ParameterChoice::Layout() {
    const int count = Count();
    for (int i = 0; i < count; ++i) {
        int left = i * (bounds.w + 1) / count;
        int right = (i + 1) * (bounds.w + 1) / count - 1;
        buttons[i]->SetBounds(left, 0, right - left, bounds.h);
    }
}

ParameterFilter::ParameterFilter(Control* parentControl, FloatParamListener* paramListener, int index,
                                 float initial)
    : ParameterChoice(parentControl, paramListener, index, initial, static_cast<int>(kFilterGlyphs.size())) {}

void ParameterFilter::PaintContent(int item, Renderer& renderer, const Rect& area) {
    DrawGlyph(renderer, kFilterGlyphs[item], area, kGlyphMargin);
}

ParameterWave::ParameterWave(Control* parentControl, FloatParamListener* paramListener, int index,
                             float initial)
    : ParameterChoice(parentControl, paramListener, index, initial, static_cast<int>(kWaveGlyphs.size())) {}

void ParameterWave::Layout() {
    for (int i = 0; i < Count(); ++i) {
        buttons[i]->SetBounds(i * kButtonPitch, 0, kButtonSize, kButtonSize);
    }
}

void ParameterWave::PaintContent(int item, Renderer& renderer, const Rect& area) {
    DrawGlyph(renderer, kWaveGlyphs[item], area, kGlyphMargin);
}

ParameterButtonStrip::ParameterButtonStrip(Control* parentControl, FloatParamListener* paramListener,
                                           int index, float initial,
                                           const std::vector<std::wstring>& choiceLabels)
    : ParameterChoice(parentControl, paramListener, index, initial, static_cast<int>(choiceLabels.size())),
      labels(choiceLabels) {}

void ParameterButtonStrip::PaintContent(int item, Renderer& renderer, const Rect& area) {
    renderer.DrawText(labels[item], area, theme::NormalFont(), TextAlign{1, 1},
                      theme::Palette(theme::kTextColor));
}

}  // namespace G
