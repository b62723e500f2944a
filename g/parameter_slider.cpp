// G::ParameterSlider: gestures and the bar face.
#include "g/parameter_slider.h"

#include <cstdio>
#include <utility>

#include "g/keys.h"
#include "g/parameter_knob.h"
#include "g/renderer.h"
#include "g/theme.h"

namespace G {
namespace {
constexpr Color kFrame = 0xFF999F9D;
constexpr int kHighlightRaise = 20;
}  // namespace

ParameterSlider::ParameterSlider(Control* parentControl, FloatParamListener* paramListener, int index,
                                 float initial, const std::wstring& text, int sliderStyle, bool isVertical)
    : CustomControl(parentControl),
      ParameterSender(paramListener),
      style(sliderStyle),
      vertical(isVertical),
      label(text),
      value(ClampUnit(initial)) {
    id = index;
}

void ParameterSlider::SetValue(float v) {
    value = ClampUnit(v);
    Invalidate(nullptr);
}

void ParameterSlider::MoveTo(float v) {
    value = ClampUnit(v);
    Invalidate(nullptr);
    SendValue(id, value);
}

bool ParameterSlider::OnLeftDown(int x, int y) {
    SetFocus();
    if (press.Press()) Invalidate(nullptr);
    if (IsCtrlDown()) {
        value = 0.5f;
        SendGesture(id, value);
        Invalidate(nullptr);
        return true;
    }
    CaptureMouse();
    dragging = true;
    SendBegin(id);
    return OnMouseMove(x, y);
}

bool ParameterSlider::OnMouseMove(int x, int y) {
    // Declining hands the move to the parent, in the parent's coordinates, through the dispatcher.
    if (!dragging) return false;
    if (vertical) {
        MoveTo(bounds.h > 0 ? static_cast<float>(y) / bounds.h : 0.0f);
    } else {
        MoveTo(bounds.w > 0 ? static_cast<float>(x) / bounds.w : 0.0f);
    }
    return true;
}

bool ParameterSlider::OnLeftUp(int, int) {
    if (press.Release()) Invalidate(nullptr);
    if (dragging) {
        SendEnd(id);
        ReleaseMouse();
        dragging = false;
    }
    return true;
}

bool ParameterSlider::OnWheel(int notches) {
    MoveTo(value + notches * 0.01f);
    return true;
}

bool ParameterSlider::OnKeyDown(int keyCode) {
    if (CurrentModifiers() != 0) return false;
    float step = ArrowStep(keyCode, key::kLeft, key::kUp, key::kRight, key::kDown);
    if (step == 0.0f) return false;
    MoveTo(value + step);
    return true;
}

bool ParameterSlider::OnMouseEnter(int, int) {
    if (press.SetHover(true)) Invalidate(nullptr);
    return true;
}

bool ParameterSlider::OnMouseLeave(int, int) {
    if (press.SetHover(false)) Invalidate(nullptr);
    return true;
}

bool ParameterSlider::OnFocusChanged(bool) {
    Invalidate(nullptr);
    return true;
}

bool ParameterSlider::OnDraw(Renderer& renderer, Rect) {
    const float w = static_cast<float>(bounds.w);
    const float h = static_cast<float>(bounds.h);
    PaintUnderlay(renderer, theme::Palette(0));
    Color barColor = theme::Palette(colorIndex);
    if (press.state != 0) barColor = Brighten(barColor, kHighlightRaise);
    const float length = vertical ? h : w;
    float from = style == kStyleCentred ? length / 2.0f : 0.0f;
    float to = value * length;
    if (to < from) std::swap(from, to);
    FloatRect bar = vertical ? FloatRect{0, from, w, to - from} : FloatRect{from, 0, to - from, h};
    if (bar.w > 0 && bar.h > 0) renderer.FillRect(Brush::Solid(barColor), bar);
    Color frame = HasFocus() ? theme::Palette(theme::kAccent) : kFrame;
    renderer.StrokeRect(Pen{frame, 1.0f}, FloatRect{0.5f, 0.5f, w - 1.0f, h - 1.0f});
    const Font* font = theme::NormalFont();
    const Color text = theme::Palette(theme::kTextColor);
    const Rect area{0, 0, bounds.w, bounds.h};
    renderer.DrawText(label, area, font, TextAlign{0, 1}, text);
    char number[32];
    std::snprintf(number, sizeof number, "%.3g", value * 100.0f);
    renderer.DrawText(std::string_view(number), Rect{0, 0, bounds.w - 4, bounds.h}, font, TextAlign{2, 1},
                      text);
    return true;
}

}  // namespace G
