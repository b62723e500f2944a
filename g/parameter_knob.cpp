// G::ParameterKnob: gestures and the two knob faces.
#include "g/parameter_knob.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "g/keys.h"
#include "g/theme.h"

namespace G {
namespace {

constexpr float kPi = 3.14159265f;
// Degrees to radians, as the large face's pointer has always used it.
constexpr float kRadiansPerDegree = 0.017452778f;
// The arc of the large face: 300 degrees from lower left, clockwise on screen.
constexpr float kArcStart = -240.0f;
constexpr float kArcSweep = 300.0f;
constexpr int kHighlightRaise = 20;

}  // namespace

Color Brighten(Color color, int amount) {
    Color result = color & 0xFF000000u;
    for (int shift = 0; shift <= 16; shift += 8) {
        int channel = std::min(255, static_cast<int>((color >> shift) & 0xFF) + amount);
        result |= static_cast<Color>(channel) << shift;
    }
    return result;
}

void DrawSmallKnobFace(Renderer& renderer, const FloatRect& box, float value, int mode, Color pieColor) {
    renderer.StrokeEllipse(Pen{theme::Palette(8), 1.0f}, box);
    float start = mode == ParameterKnob::kModeBipolar ? -90.0f : -225.0f;
    float sweep = mode == ParameterKnob::kModeBipolar ? (value - 0.5f) * 270.0f : value * 270.0f;
    // The renderer leaves out sweeps below 6 degrees.
    renderer.FillPie(Brush::Solid(pieColor), box.x, box.y, box.w, box.h, start, sweep);
    renderer.StrokeEllipse(Pen{0xFF000000, 1.0f}, box);
    float angle = value * 1.5f * kPi - 3.926875f;
    float cx = box.x + box.w / 2.0f;
    float cy = box.y + box.h / 2.0f;
    float length = box.w / 2.0f;
    renderer.DrawLine(Pen{0xFF000000, 1.0f}, cx, cy, cx + std::cos(angle) * length,
                      cy + std::sin(angle) * length);
}

ParameterKnob::ParameterKnob(Control* parentControl, FloatParamListener* paramListener, int index,
                             float initial, int knobMode, int style)
    : CustomControl(parentControl),
      ParameterSender(paramListener),
      drawStyle(style),
      mode(knobMode),
      value(ClampUnit(initial)) {
    id = index;
    bounds.w = 50;
    bounds.h = 50;
}

void ParameterKnob::SetValue(float v) {
    value = ClampUnit(v);
    Invalidate(nullptr);
}

void ParameterKnob::MoveTo(float v) {
    value = ClampUnit(v);
    Invalidate(nullptr);
    SendValue(id, value);
}

void ParameterKnob::SetRadius(float r) {
    radius = r;
    Invalidate(nullptr);
}

bool ParameterKnob::OnLeftDown(int x, int y) {
    SetFocus();
    if (press.Press()) Invalidate(nullptr);
    if (IsCtrlDown()) {
        value = 0.5f;
        SendGesture(id, value);
        Invalidate(nullptr);
        return true;
    }
    CaptureMouse();
    dragStartX = x;
    dragStartY = y;
    dragStartValue = value;
    dragging = true;
    SendBegin(id);
    return OnMouseMove(x, y);
}

bool ParameterKnob::OnMouseMove(int x, int y) {
    if (!dragging) return false;
    MoveTo(dragStartValue + (x - dragStartX) * kDragPerPixelX - (y - dragStartY) * kDragPerPixelY);
    return true;
}

bool ParameterKnob::OnLeftUp(int, int) {
    if (press.Release()) Invalidate(nullptr);
    if (dragging) {
        SendEnd(id);
        ReleaseMouse();
        dragging = false;
    }
    return true;
}

bool ParameterKnob::OnWheel(int notches) {
    MoveTo(value + notches * kWheelStep);
    return true;
}

bool ParameterKnob::OnHWheel(int notches) { return OnWheel(notches); }

bool ParameterKnob::OnKeyDown(int keyCode) {
    // The raw arrow numbers 37..40. The dispatcher turns the arrows into 1000..1003 before they
    // get here, so the arrows leave the knob alone. That is the knob's established behaviour and
    // is kept on purpose: do not switch these to the toolkit codes.
    float step = ArrowStep(keyCode, vk::kLeft, vk::kUp, vk::kRight, vk::kDown);
    if (step == 0.0f) return false;
    MoveTo(value + step);
    return true;
}

bool ParameterKnob::OnMouseEnter(int, int) {
    if (press.SetHover(true)) Invalidate(nullptr);
    return true;
}

bool ParameterKnob::OnMouseLeave(int, int) {
    if (press.SetHover(false)) Invalidate(nullptr);
    return true;
}

bool ParameterKnob::OnFocusChanged(bool) {
    Invalidate(nullptr);
    return true;
}

void ParameterKnob::GetPreferredBounds(Rect& out) {
    int side = static_cast<int>((radius + 1.0f) * 2.0f);
    out = Rect{0, 0, side, side};
}

bool ParameterKnob::OnDraw(Renderer& renderer, Rect) {
    const float w = static_cast<float>(bounds.w);
    const float h = static_cast<float>(bounds.h);
    if (background) {
        DrawBackground(renderer, Rect{0, 0, bounds.w, bounds.h});
    } else {
        renderer.FillRect(Brush::Solid(theme::Palette(colorIndex)), FloatRect{0, 0, w, h});
    }
    if (drawStyle == kStyleSmall) {
        DrawSmall(renderer);
    } else {
        DrawLarge(renderer);
    }
    if (HasFocus()) {
        renderer.StrokeRect(Pen{theme::Palette(theme::kAccent), 1.0f},
                            FloatRect{0.5f, 0.5f, w - 1.0f, h - 1.0f});
    }
    return true;
}

void ParameterKnob::DrawSmall(Renderer& renderer) {
    Color pie = theme::Palette(colorIndex);
    if (press.state != 0) pie = Brighten(pie, kHighlightRaise);
    FloatRect box{0.5f, 0.5f, bounds.w - 1.0f, bounds.h - 1.0f};
    DrawSmallKnobFace(renderer, box, value, mode, pie);
}

void ParameterKnob::DrawLarge(Renderer& renderer) {
    const float w = static_cast<float>(bounds.w);
    const float h = static_cast<float>(bounds.h);
    float diameter = std::min(2.0f * radius, std::min(w - 2.0f, h - 2.0f) - 6.0f);
    if (diameter <= 0) return;
    float cx = w / 2.0f;
    float cy = h / 2.0f;
    float r = diameter / 2.0f;
    float done = value * kArcSweep;
    renderer.StrokeArc(Pen{theme::Palette(11), 3.0f}, cx - r, cy - r, diameter, diameter, kArcStart, done);
    renderer.StrokeArc(Pen{theme::Palette(9), 3.0f}, cx - r, cy - r, diameter, diameter, kArcStart + done,
                       kArcSweep - done);
    // Measured from straight down, turning clockwise on screen: (sin, cos) rather than (cos, sin).
    float angle = (done + 30.0f) * -kRadiansPerDegree;
    renderer.DrawLine(Pen{theme::Palette(theme::kAccent), 2.0f}, cx, cy, cx + std::sin(angle) * r,
                      cy + std::cos(angle) * r);
    const Font* font = theme::NormalFont();
    Color text = theme::Palette(theme::kTextColor);
    renderer.DrawText(label, Rect{0, 0, bounds.w, 12}, font, TextAlign{1, 0}, text);
    char number[32];
    std::snprintf(number, sizeof number, "%.3g", value * 100.0f);
    renderer.DrawText(std::string_view(number), Rect{0, bounds.h - 12, bounds.w, 12}, font, TextAlign{1, 2},
                      text);
}

}  // namespace G
