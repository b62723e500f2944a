// Rectangle union, the shadow margins, the hue rainbow and the Bezier and triangle helpers
// shared by block and editor drawing.
#include "g/geometry.h"

#include <algorithm>
#include <cmath>

#include "g/theme.h"

namespace G {

void UnionRect(Rect& into, const Rect& add) {
    if (into.w <= 0) {
        into = add;
        return;
    }
    if (add.w <= 0) return;
    int right = std::max(into.x + into.w, add.x + add.w);
    int bottom = std::max(into.y + into.h, add.y + add.h);
    into.x = std::min(into.x, add.x);
    into.y = std::min(into.y, add.y);
    into.w = right - into.x;
    into.h = bottom - into.y;
}

void ExpandForShadow(Rect& r) {
    r.x -= theme::kShadowLeft;
    r.y -= theme::kShadowTop;
    r.w += theme::kShadowLeft + theme::kShadowRight;
    r.h += theme::kShadowTop + theme::kShadowBottom;
}

Color HueColor(float degrees) {
    float h = degrees / 60.0f;
    float sector = std::floor(h);
    float f = h - sector;
    float rising = 1.0f - 0.6f * (1.0f - f);
    float falling = 1.0f - 0.6f * f;
    float r, g, b;
    switch (static_cast<int>(sector)) {
        case 0:
            r = 1.0f, g = rising, b = 0.4f;
            break;
        case 1:
            r = falling, g = 1.0f, b = 0.4f;
            break;
        case 2:
            r = 0.4f, g = 1.0f, b = rising;
            break;
        case 3:
            r = 0.4f, g = falling, b = 1.0f;
            break;
        case 4:
            r = rising, g = 0.4f, b = 1.0f;
            break;
        default:
            r = 1.0f, g = 0.4f, b = falling;
            break;
    }
    auto byte = [](float v) { return static_cast<Color>(std::clamp(std::lround(v * 255.0f), 0L, 255L)); };
    return 0xFF000000u | byte(r) << 16 | byte(g) << 8 | byte(b);
}

FloatPoint BezierPoint(FloatPoint p0, FloatPoint p1, FloatPoint p2, FloatPoint p3, float t) {
    float u = 1.0f - t;
    float a = u * u * u, b = 3 * u * u * t, c = 3 * u * t * t, d = t * t * t;
    return {a * p0.x + b * p1.x + c * p2.x + d * p3.x, a * p0.y + b * p1.y + c * p2.y + d * p3.y};
}

bool PointInTriangle(FloatPoint p, FloatPoint a, FloatPoint b, FloatPoint c) {
    auto side = [&p](FloatPoint from, FloatPoint to) {
        return (to.x - from.x) * (p.y - from.y) - (to.y - from.y) * (p.x - from.x);
    };
    return side(a, b) > 0 && side(b, c) > 0 && side(c, a) > 0;
}

}  // namespace G
