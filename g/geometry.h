// Plain value types of the toolkit: rectangles, points, colours, alignment, and the small
// geometric helpers that block and editor drawing share.
#pragma once

#include <cstdint>

namespace G {

// 0xAARRGGBB.
using Color = uint32_t;

// Pixels; y grows downwards; a control's x, y are relative to its parent.
struct Rect {
    int32_t x = 0;
    int32_t y = 0;
    int32_t w = 0;
    int32_t h = 0;

    bool Contains(int px, int py) const { return px >= x && px < x + w && py >= y && py < y + h; }
    bool IsEmpty() const { return w <= 0 || h <= 0; }
    bool operator==(const Rect&) const = default;
};

struct FloatRect {
    float x = 0;
    float y = 0;
    float w = 0;
    float h = 0;
};

struct FloatPoint {
    float x = 0;
    float y = 0;
};

// 0 left or top, 1 centre, 2 right or bottom.
struct TextAlign {
    int horizontal = 0;
    int vertical = 0;
};

// Union of `add` into `into`; an empty `into` (width <= 0) becomes `add`.
void UnionRect(Rect& into, const Rect& add);

// Grows a block window's rectangle by the drop shadow's margins (left 8, top 7, right and
// bottom 14).
void ExpandForShadow(Rect& r);

// A soft rainbow colour for `degrees` around the hue circle; opaque.
Color HueColor(float degrees);

// The cubic Bezier form at t in 0..1.
FloatPoint BezierPoint(FloatPoint p0, FloatPoint p1, FloatPoint p2, FloatPoint p3, float t);

// True only when p lies strictly inside: all three edge tests must be positive, so a point on
// an edge or a triangle wound the other way is outside.
bool PointInTriangle(FloatPoint p, FloatPoint a, FloatPoint b, FloatPoint c);

}  // namespace G
