// G::CustomButton and LittleVrokButton: press state, commands to the owner, and their faces.
#include "g/button.h"

#include <algorithm>
#include <cmath>

#include "g/renderer.h"

namespace G {
namespace {

constexpr Color kIdleFrame = 0xFFC8C8C8;
constexpr Color kBevelLight = 0xFFFFFFFF;
constexpr Color kBevelDark = 0xFF808080;

bool Inside(const Control& control, int x, int y) {
    return x >= 0 && y >= 0 && x < control.Width() && y < control.Height();
}

}  // namespace

CustomButton::CustomButton(Control* parentControl, Control* ownerControl, int commandId,
                           const std::wstring& caption, int buttonLook)
    : CustomControl(parentControl), look(buttonLook), owner(ownerControl) {
    id = commandId;
    name = caption;
    colorIndex = 33;
}

void CustomButton::ApplyState(bool changed) {
    if (changed) Invalidate(nullptr);
}

bool CustomButton::OnLeftDown(int, int) {
    SetFocus();
    ApplyState(press.Press());
    CaptureMouse();
    // Last: the owner may destroy this button in its command.
    if (commandOnPress && owner) owner->OnCommand(id);
    return true;
}

bool CustomButton::OnLeftUp(int x, int y) {
    bool wasPressed = press.IsPressed();
    ApplyState(press.Release());
    ReleaseMouse();
    if (Inside(*this, x, y) && wasPressed && !commandOnPress && owner) owner->OnCommand(id);
    return true;
}

bool CustomButton::OnRightDown(int, int) {
    ApplyState(press.Press());
    CaptureMouse();
    return true;
}

bool CustomButton::OnRightUp(int x, int y) {
    ApplyState(press.Release());
    ReleaseMouse();
    if (Inside(*this, x, y) && owner) owner->OnAltCommand(id);
    return true;
}

bool CustomButton::OnDoubleClick(int, int) {
    if (owner) owner->OnCommandDoubleClick(id);
    return true;
}

bool CustomButton::OnMouseEnter(int, int) {
    ApplyState(press.SetHover(true));
    return true;
}

bool CustomButton::OnMouseLeave(int, int) {
    ApplyState(press.SetHover(false));
    return true;
}

bool CustomButton::OnFocusChanged(bool) {
    Invalidate(nullptr);
    return true;
}

void CustomButton::GetPreferredBounds(Rect& out) {
    TextSize size = Renderer::MeasureText(name, theme::BoldFont());
    out =
        Rect{0, 0, static_cast<int>(std::ceil(size.width)) + 4, static_cast<int>(std::ceil(size.height)) + 4};
}

bool CustomButton::OnDraw(Renderer& renderer, Rect) {
    if (look == kLookOwnerDrawn) {
        DrawOwnerDrawn(renderer);
    } else {
        DrawFlat(renderer);
    }
    return true;
}

void CustomButton::DrawFlat(Renderer& renderer) {
    const float w = static_cast<float>(bounds.w);
    const float h = static_cast<float>(bounds.h);
    renderer.Clear();
    if (background) {
        DrawBackground(renderer, Rect{0, 0, bounds.w, bounds.h});
    } else {
        renderer.FillRect(Brush::Solid(theme::Palette(colorIndex)), FloatRect{0, 0, w, h});
    }
    // Lines sit on pixel centres so that each covers exactly one row or column.
    if (press.state == 0) {
        renderer.StrokeRect(Pen{kIdleFrame, 1.0f}, FloatRect{0.5f, 0.5f, w - 1.0f, h - 1.0f});
    } else {
        Color topLeft = press.state == 1 ? kBevelLight : kBevelDark;
        Color bottomRight = press.state == 1 ? kBevelDark : kBevelLight;
        renderer.DrawLine(Pen{topLeft, 1.0f}, 0.0f, 0.5f, w, 0.5f);
        renderer.DrawLine(Pen{topLeft, 1.0f}, 0.5f, 0.0f, 0.5f, h);
        renderer.DrawLine(Pen{bottomRight, 1.0f}, 0.0f, h - 0.5f, w, h - 0.5f);
        renderer.DrawLine(Pen{bottomRight, 1.0f}, w - 0.5f, 0.0f, w - 0.5f, h);
    }
    int textIndex = press.state == 1 ? hoverTextColorIndex : textColorIndex;
    renderer.DrawText(name, Rect{0, 0, bounds.w, bounds.h}, theme::BoldFont(), TextAlign{1, 1},
                      theme::Palette(textIndex));
}

void CustomButton::DrawOwnerDrawn(Renderer& renderer) {
    // The owner's background, shifted so that the part under this button lands here.
    if (owner) {
        renderer.SetView(1.0, -bounds.x, -bounds.y);
        owner->DrawBackground(renderer, bounds);
        renderer.SetView(1.0, 0.0, 0.0);
    }
    if (painter) painter->PaintItem(id, renderer, Rect{0, 0, bounds.w, bounds.h}, press.state);
}

}  // namespace G

using G::Brush;
using G::Color;
using G::FloatPoint;
using G::FloatRect;
using G::Pen;

LittleVrokButton::LittleVrokButton(G::Control* parentControl, G::Control* ownerControl, int commandId,
                                   int buttonShape)
    : G::Window(parentControl), shape(buttonShape), owner(ownerControl) {
    id = commandId;
}

void LittleVrokButton::ApplyState(bool changed) {
    if (changed) Invalidate(nullptr);
}

bool LittleVrokButton::OnLeftDown(int, int) {
    SetFocus();
    ApplyState(press.Press());
    CaptureMouse();
    return true;
}

bool LittleVrokButton::OnLeftUp(int x, int y) {
    bool wasPressed = press.IsPressed();
    ApplyState(press.Release());
    ReleaseMouse();
    if (G::Inside(*this, x, y) && wasPressed && owner) owner->OnCommand(id);
    return true;
}

bool LittleVrokButton::OnRightDown(int, int) {
    ApplyState(press.Press());
    CaptureMouse();
    return true;
}

bool LittleVrokButton::OnRightUp(int x, int y) {
    ApplyState(press.Release());
    ReleaseMouse();
    if (G::Inside(*this, x, y) && owner) owner->OnAltCommand(id);
    return true;
}

bool LittleVrokButton::OnMouseEnter(int, int) {
    ApplyState(press.SetHover(true));
    return true;
}

bool LittleVrokButton::OnMouseLeave(int, int) {
    ApplyState(press.SetHover(false));
    return true;
}

bool LittleVrokButton::OnDraw(G::Renderer& renderer, G::Rect) {
    const float w = static_cast<float>(bounds.w);
    const float h = static_cast<float>(bounds.h);
    PaintUnderlay(renderer, G::theme::Palette(1));
    const Color fill = G::theme::Palette(colorIndex);
    const Color hoverColor = G::theme::Palette(hoverColorIndex);
    switch (shape) {
        case kArrow: {
            float side = static_cast<float>(std::min(bounds.w - 1, bounds.h - 1));
            float x0 = static_cast<float>(xOffset + (press.hover ? 2 : 0));
            FloatPoint points[3] = {{x0, 0.0f}, {x0 + side, side / 2.0f}, {x0, side}};
            renderer.FillPolygon(Brush::Solid(fill), points, 3);
            renderer.DrawPolygon(Pen{0xFF000000, 1.0f}, points, 3);
            break;
        }
        case kCross: {
            Pen pen = press.hover ? Pen{hoverColor, 3.0f} : Pen{0xFF000000, 1.0f};
            renderer.DrawLine(pen, 0.5f, 0.5f, w - 0.5f, h - 0.5f);
            renderer.DrawLine(pen, w - 0.5f, 0.5f, 0.5f, h - 0.5f);
            break;
        }
        case kBox:
            renderer.FillRect(Brush::Solid(fill), FloatRect{0, 0, w, h});
            if (press.hover) {
                renderer.StrokeRect(Pen{hoverColor, 1.0f}, FloatRect{0.5f, 0.5f, w - 1.0f, h - 1.0f});
            }
            break;
        default:
            break;
    }
    return true;
}
