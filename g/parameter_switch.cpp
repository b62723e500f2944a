// G::ParameterSwitch and G::ParameterSwitchWithLabel: toggling and the round face.
#include "g/parameter_switch.h"

#include <algorithm>

#include "g/keys.h"
#include "g/renderer.h"
#include "g/theme.h"

namespace G {
namespace {
constexpr int kSpace = 32;
constexpr float kInnerInset = 3.0f;
constexpr int kLabelGap = 2;
}  // namespace

ParameterSwitch::ParameterSwitch(Control* parentControl, FloatParamListener* paramListener, int index,
                                 float initial)
    : CustomControl(parentControl), ParameterSender(paramListener), on(ClampUnit(initial) > 0.5f) {
    id = index;
}

void ParameterSwitch::SetValue(float v) {
    on = ClampUnit(v) > 0.5f;
    Invalidate(nullptr);
}

void ParameterSwitch::Toggle() {
    on = !on;
    Invalidate(nullptr);
}

bool ParameterSwitch::OnLeftDown(int, int) {
    CaptureMouse();
    SetFocus();
    Toggle();
    pressed = true;
    SendBegin(id);
    SendValue(id, Value());
    return true;
}

bool ParameterSwitch::OnLeftUp(int, int) {
    if (pressed) {
        pressed = false;
        SendEnd(id);
    }
    ReleaseMouse();
    return true;
}

bool ParameterSwitch::OnKeyDown(int keyCode) {
    if (keyCode != kSpace) return false;
    Toggle();
    SendGesture(id, Value());
    return true;
}

bool ParameterSwitch::OnFocusChanged(bool) {
    Invalidate(nullptr);
    return true;
}

void ParameterSwitch::DrawSwitchFace(Renderer& renderer, int side) {
    const float s = static_cast<float>(side);
    FloatRect outer{0.5f, 0.5f, s - 1.0f, s - 1.0f};
    renderer.FillEllipse(Brush::Solid(theme::Palette(0)), outer);
    renderer.StrokeEllipse(Pen{0xFF000000, 1.0f}, outer);
    if (on) {
        FloatRect inner{outer.x + kInnerInset, outer.y + kInnerInset, outer.w - 2 * kInnerInset,
                        outer.h - 2 * kInnerInset};
        renderer.FillEllipse(Brush::Solid(theme::Palette(theme::kAccent)), inner);
        renderer.StrokeEllipse(Pen{0xFF000000, 1.0f}, inner);
    }
    if (HasFocus()) {
        renderer.StrokeEllipse(Pen{theme::Palette(theme::kAccent), 1.0f}, outer);
    }
}

bool ParameterSwitch::OnDraw(Renderer& renderer, Rect) {
    PaintUnderlay(renderer, theme::Palette(1));
    DrawSwitchFace(renderer, std::min(bounds.w, bounds.h));
    return true;
}

ParameterSwitchWithLabel::ParameterSwitchWithLabel(Control* parentControl, FloatParamListener* paramListener,
                                                   int index, float initial, const std::wstring& text)
    : ParameterSwitch(parentControl, paramListener, index, initial), label(text) {}

bool ParameterSwitchWithLabel::OnDraw(Renderer& renderer, Rect) {
    PaintUnderlay(renderer, theme::Palette(1));
    const int side = std::min(bounds.w, bounds.h);
    DrawSwitchFace(renderer, side);
    renderer.DrawText(label, Rect{side + kLabelGap, 0, bounds.w - side - kLabelGap, bounds.h},
                      theme::NormalFont(), TextAlign{0, 1}, theme::Palette(theme::kTextColor));
    return true;
}

}  // namespace G
