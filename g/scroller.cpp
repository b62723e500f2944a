// G::Scroller: thumb geometry from the owner's position and page, drag, click-to-jump, wheel.
#include "g/scroller.h"

#include <algorithm>

#include "g/renderer.h"
#include "g/theme.h"
#include "g/window.h"

namespace G {
namespace {

Color Tint(Color c, float factor) {
    auto channel = [&](int shift) {
        int v = static_cast<int>(((c >> shift) & 0xFF) * factor);
        return static_cast<Color>(std::clamp(v, 0, 255)) << shift;
    };
    return 0xFF000000 | channel(16) | channel(8) | channel(0);
}

}  // namespace

Scroller::Scroller(Window* ownerWindow, float* positionField, float* pageField, bool isVertical)
    : CustomControl(ownerWindow),
      owner(ownerWindow),
      position(positionField),
      page(pageField),
      vertical(isVertical) {
    colorIndex = 33;
}

void Scroller::UpdateThumb() {
    const int size = Size();
    const float pageFraction = std::clamp(*page, 0.0f, 1.0f);
    int length = static_cast<int>((size - 1) * pageFraction);
    int start = static_cast<int>((1.0f - pageFraction) * size * *position);
    start = std::clamp(start, 0, std::max(0, size - length));
    if (vertical) {
        thumbX = 0;
        thumbW = bounds.w;
        thumbY = start;
        thumbH = length;
    } else {
        thumbY = 0;
        thumbH = bounds.h;
        thumbX = start;
        thumbW = length;
    }
}

void Scroller::MoveThumbTo(int start) {
    UpdateThumb();
    // A page of 1 leaves a single pixel of play: no range, the position stays 0.
    const int range = *page >= 1.0f ? 0 : std::max(0, Size() - ThumbLength());
    start = std::clamp(start, 0, range);
    (vertical ? thumbY : thumbX) = start;
    *position = range > 0 ? static_cast<float>(start) / range : 0.0f;
    if (vertical) {
        owner->OnVScroll(0, start);
    } else {
        owner->OnHScroll(0, start);
    }
    Invalidate(nullptr);
}

bool Scroller::OnDraw(Renderer& renderer, Rect) {
    UpdateThumb();
    const float w = static_cast<float>(bounds.w);
    const float h = static_cast<float>(bounds.h);
    // The track's gradient runs across the bar's thickness.
    FloatPoint from{0, 0};
    FloatPoint to = vertical ? FloatPoint{w, 0} : FloatPoint{0, h};
    renderer.FillRect(Brush::Gradient(from, to, {{0.0f, 0xFFC8C8C8}, {1.0f, 0xFFF0F0F0}}),
                      FloatRect{0, 0, w, h});
    const float tint = state == 2 ? 0.7f : state == 1 ? 0.8f : 0.9f;
    FloatRect thumb{static_cast<float>(thumbX), static_cast<float>(thumbY), static_cast<float>(thumbW),
                    static_cast<float>(thumbH)};
    renderer.FillRect(Brush::Solid(Tint(theme::Palette(colorIndex), tint)), thumb);
    renderer.StrokeRect(Pen{0xFF999F9D, 1.0f},
                        FloatRect{thumb.x + 0.5f, thumb.y + 0.5f, thumb.w - 1.0f, thumb.h - 1.0f});
    return true;
}

bool Scroller::OnLeftDown(int x, int y) {
    UpdateThumb();
    const int along = vertical ? y : x;
    if (along < ThumbStart() || along >= ThumbStart() + ThumbLength()) {
        MoveThumbTo(along - ThumbLength() / 2);
    }
    ++pressCount;
    state = 2;
    dragging = true;
    dragMouseX = x;
    dragMouseY = y;
    dragThumbX = thumbX;
    dragThumbY = thumbY;
    CaptureMouse();
    OnMouseMove(x, y);
    return true;
}

bool Scroller::OnMouseMove(int x, int y) {
    if (!dragging) return false;
    if (vertical) {
        MoveThumbTo(dragThumbY + (y - dragMouseY));
    } else {
        MoveThumbTo(dragThumbX + (x - dragMouseX));
    }
    return true;
}

bool Scroller::OnLeftUp(int, int) {
    pressCount = std::max(0, pressCount - 1);
    state = pressCount > 0 ? 2 : hover ? 1 : 0;
    dragging = false;
    ReleaseMouse();
    Invalidate(nullptr);
    owner->LayoutScrollers();
    return true;
}

bool Scroller::OnMouseEnter(int, int) {
    hover = true;
    if (pressCount == 0) state = 1;
    Invalidate(nullptr);
    return true;
}

bool Scroller::OnMouseLeave(int, int) {
    hover = false;
    if (pressCount == 0) state = 0;
    Invalidate(nullptr);
    return true;
}

bool Scroller::OnWheel(int notches) {
    UpdateThumb();
    MoveThumbTo(ThumbStart() - notches * 10);
    return true;
}

void Scroller::OnResized(int, int) { UpdateThumb(); }

}  // namespace G
