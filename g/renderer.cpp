// Renderer: pens, brushes, shapes, images and text turned into AGG paths and scanlines over a
// control's 3-byte bitmap. Index: [SECTION] brushes, [SECTION] state, [SECTION] shapes,
// [SECTION] images, [SECTION] text.
#include "g/renderer.h"

#include <agg_conv_dash.h>
#include <agg_conv_stroke.h>
#include <agg_conv_transform.h>
#include <agg_curves.h>
#include <agg_ellipse.h>
#include <agg_image_accessors.h>
#include <agg_path_storage.h>
#include <agg_pixfmt_rgb.h>
#include <agg_pixfmt_rgba.h>
#include <agg_rasterizer_scanline_aa.h>
#include <agg_renderer_base.h>
#include <agg_renderer_scanline.h>
#include <agg_rendering_buffer.h>
#include <agg_scanline_p.h>
#include <agg_scanline_u.h>
#include <agg_span_allocator.h>
#include <agg_span_gradient.h>
#include <agg_span_image_filter_rgba.h>
#include <agg_span_interpolator_linear.h>
#include <agg_trans_affine.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <iterator>

#include "g/font_record.h"
#include "g/theme.h"

namespace G {

// [SECTION] brushes

namespace {

using PixFmt = agg::pixfmt_bgr24;
using BaseRenderer = agg::renderer_base<PixFmt>;
using SolidRenderer = agg::renderer_scanline_aa_solid<BaseRenderer>;
using Interpolator = agg::span_interpolator_linear<>;
using ColorTable = agg::pod_auto_array<agg::rgba8, 256>;
using GradientSpan = agg::span_gradient<agg::rgba8, Interpolator, agg::gradient_x, ColorTable>;
using ImageSource = agg::image_accessor_clone<agg::pixfmt_rgba32>;
using ImageSpan = agg::span_image_filter_rgba_bilinear<ImageSource, Interpolator>;

// The gradient's far end maps to 2400 rather than 1 so the span generator's integer
// distances keep sub-pixel precision.
constexpr int kGradientRange = 2400;

// 8x8 patterns, row by row; a non-zero byte picks the brush's first colour.
// clang-format off
constexpr uint8_t kPatterns[][64] = {
    // 0: one-pixel checkerboard, a half-tone of the two colours (hovered buttons)
    {1, 0, 1, 0, 1, 0, 1, 0,
     0, 1, 0, 1, 0, 1, 0, 1,
     1, 0, 1, 0, 1, 0, 1, 0,
     0, 1, 0, 1, 0, 1, 0, 1,
     1, 0, 1, 0, 1, 0, 1, 0,
     0, 1, 0, 1, 0, 1, 0, 1,
     1, 0, 1, 0, 1, 0, 1, 0,
     0, 1, 0, 1, 0, 1, 0, 1},
    // 1: diagonal stripes two pixels wide (pressed buttons)
    {1, 1, 0, 0, 1, 1, 0, 0,
     0, 1, 1, 0, 0, 1, 1, 0,
     0, 0, 1, 1, 0, 0, 1, 1,
     1, 0, 0, 1, 1, 0, 0, 1,
     1, 1, 0, 0, 1, 1, 0, 0,
     0, 1, 1, 0, 0, 1, 1, 0,
     0, 0, 1, 1, 0, 0, 1, 1,
     1, 0, 0, 1, 1, 0, 0, 1},
    // 2: horizontal lines on every other row
    {1, 1, 1, 1, 1, 1, 1, 1,
     0, 0, 0, 0, 0, 0, 0, 0,
     1, 1, 1, 1, 1, 1, 1, 1,
     0, 0, 0, 0, 0, 0, 0, 0,
     1, 1, 1, 1, 1, 1, 1, 1,
     0, 0, 0, 0, 0, 0, 0, 0,
     1, 1, 1, 1, 1, 1, 1, 1,
     0, 0, 0, 0, 0, 0, 0, 0},
    // 3: sparse dots, one in sixteen
    {1, 0, 0, 0, 1, 0, 0, 0,
     0, 0, 0, 0, 0, 0, 0, 0,
     0, 0, 0, 0, 0, 0, 0, 0,
     0, 0, 0, 0, 0, 0, 0, 0,
     1, 0, 0, 0, 1, 0, 0, 0,
     0, 0, 0, 0, 0, 0, 0, 0,
     0, 0, 0, 0, 0, 0, 0, 0,
     0, 0, 0, 0, 0, 0, 0, 0},
};
// clang-format on
constexpr int kPatternCount = static_cast<int>(std::size(kPatterns));

agg::rgba8 ToAgg(Color c) { return agg::rgba8((c >> 16) & 0xFF, (c >> 8) & 0xFF, c & 0xFF, c >> 24); }

// Anchored to bitmap pixels, so neighbouring controls' patterns line up.
struct PatternSpan {
    const uint8_t* bits;
    agg::rgba8 first;
    agg::rgba8 second;

    void prepare() {}
    void generate(agg::rgba8* span, int x, int y, unsigned len) const {
        const uint8_t* row = bits + (static_cast<unsigned>(y) & 7) * 8;
        for (unsigned i = 0; i < len; ++i) {
            span[i] = row[(static_cast<unsigned>(x) + i) & 7] ? first : second;
        }
    }
};

// Stops sorted by position, linear between them, the end colours held beyond them.
void BuildColorTable(const Brush& brush, ColorTable& table) {
    std::vector<GradientStop> stops = brush.stops;
    if (stops.empty()) stops.push_back({0.0f, brush.color});
    std::stable_sort(stops.begin(), stops.end(),
                     [](const GradientStop& a, const GradientStop& b) { return a.position < b.position; });
    size_t next = 0;
    for (unsigned i = 0; i < ColorTable::size(); ++i) {
        double t = i / double(ColorTable::size() - 1);
        while (next < stops.size() && stops[next].position < t) ++next;
        if (next == 0) {
            table[i] = ToAgg(stops.front().color);
        } else if (next == stops.size()) {
            table[i] = ToAgg(stops.back().color);
        } else {
            const GradientStop& a = stops[next - 1];
            const GradientStop& b = stops[next];
            double k = (t - a.position) / (b.position - a.position);
            table[i] = ToAgg(a.color).gradient(ToAgg(b.color), k);
        }
    }
}

double Degrees(double d) { return d * agg::pi / 180.0; }

// Points along an elliptic arc, as many as keep the chord within 1/8 pixel of the curve. Even
// a tiny sweep gives both ends, which AGG's own arc generator would drop.
void AddArc(agg::path_storage& path, double cx, double cy, double rx, double ry, double startRadians,
            double sweepRadians) {
    double radius = (std::fabs(rx) + std::fabs(ry)) / 2;
    double step = std::acos(radius / (radius + 0.125)) * 2;
    int segments = std::max(1, static_cast<int>(std::ceil(std::fabs(sweepRadians) / step)));
    for (int i = 0; i <= segments; ++i) {
        double a = startRadians + sweepRadians * i / segments;
        double x = cx + std::cos(a) * rx, y = cy + std::sin(a) * ry;
        if (i == 0 && path.total_vertices() == 0) {
            path.move_to(x, y);
        } else {
            path.line_to(x, y);
        }
    }
}

agg::path_storage PolygonPath(const FloatPoint* points, int n, bool close) {
    agg::path_storage path;
    path.move_to(points[0].x, points[0].y);
    for (int i = 1; i < n; ++i) path.line_to(points[i].x, points[i].y);
    if (close) path.close_polygon();
    return path;
}

agg::path_storage RectPath(const FloatRect& r, bool close) {
    const FloatPoint corners[4] = {{r.x, r.y}, {r.x + r.w, r.y}, {r.x + r.w, r.y + r.h}, {r.x, r.y + r.h}};
    return PolygonPath(corners, 4, close);
}

const Bitmap* AsBitmap(const Image* image) { return dynamic_cast<const Bitmap*>(image); }

}  // namespace

Brush Brush::Pattern(Color first, Color second, int pattern) {
    Brush b;
    b.color = first;
    b.kind = 2;
    b.second = second;
    b.pattern = pattern;
    return b;
}

Brush Brush::Gradient(FloatPoint from, FloatPoint to, std::vector<GradientStop> stops) {
    Brush b;
    b.kind = 3;
    b.from = from;
    b.to = to;
    b.stops = std::move(stops);
    return b;
}

int PatternCount() { return kPatternCount; }

// [SECTION] state

struct Renderer::State {
    explicit State(Bitmap& target)
        : buffer(target.data.get(), target.width, target.height, target.width * 3),
          pixels(buffer),
          base(pixels),
          solid(base) {
        rasterizer.clip_box(0, 0, target.width, target.height);
    }

    // `path` is in bitmap pixels already.
    template <class Path>
    void Fill(const Brush& brush, Path& path) {
        if (brush.kind < 1 || brush.kind > 3) return;  // kind 0 paints nothing, on purpose
        rasterizer.reset();
        rasterizer.add_path(path);
        switch (brush.kind) {
            case 1:
                solid.color(ToAgg(brush.color));
                agg::render_scanlines(rasterizer, packed, solid);
                break;
            case 2: {
                int index = std::clamp(brush.pattern, 0, kPatternCount - 1);
                PatternSpan span{kPatterns[index], ToAgg(brush.color), ToAgg(brush.second)};
                agg::render_scanlines_aa(rasterizer, unpacked, base, spans, span);
                break;
            }
            case 3: {
                ColorTable table;
                BuildColorTable(brush, table);
                double dx = brush.to.x - brush.from.x, dy = brush.to.y - brush.from.y;
                double length = std::max(std::hypot(dx, dy), 1e-6);
                agg::trans_affine toPixels = agg::trans_affine_scaling(length / kGradientRange) *
                                             agg::trans_affine_rotation(std::atan2(dy, dx)) *
                                             agg::trans_affine_translation(brush.from.x, brush.from.y) *
                                             transform;
                toPixels.invert();
                Interpolator interpolator(toPixels);
                agg::gradient_x shape;
                GradientSpan span(interpolator, shape, table, 0, kGradientRange);
                agg::render_scanlines_aa(rasterizer, unpacked, base, spans, span);
                break;
            }
        }
    }

    // AGG's stroke generator takes the full line width and offsets each side by half of it, so
    // handing it the pen's width makes a 1-pixel pen cover one pixel across.
    template <class Path>
    void Stroke(const Pen& pen, Path& path) {
        if (!(pen.width > 0)) return;
        if (pen.style == 1) {
            agg::conv_dash<Path> dashed(path);
            dashed.add_dash(4, 4);
            agg::conv_stroke<agg::conv_dash<Path>> outline(dashed);
            outline.width(pen.width);
            Paint(outline, pen.color);
        } else {
            agg::conv_stroke<Path> outline(path);
            outline.width(pen.width);
            Paint(outline, pen.color);
        }
    }

    template <class Source>
    void StrokeTransformed(const Pen& pen, Source& source) {
        agg::conv_transform<Source> path(source, transform);
        Stroke(pen, path);
    }

    template <class Source>
    void FillTransformed(const Brush& brush, Source& source) {
        agg::conv_transform<Source> path(source, transform);
        Fill(brush, path);
    }

    template <class Path>
    void Paint(Path& path, Color color) {
        rasterizer.reset();
        rasterizer.add_path(path);
        solid.color(ToAgg(color));
        agg::render_scanlines(rasterizer, packed, solid);
    }

    void DrawText(const std::u32string& codes, FloatRect r, FloatPoint inset, const Font& font,
                  TextAlign align, Color color);

    // The clip box in bitmap pixels, right and bottom exclusive; empty when nothing is visible.
    Rect ClipRect() const {
        return {base.xmin(), base.ymin(), base.xmax() - base.xmin() + 1, base.ymax() - base.ymin() + 1};
    }

    agg::rendering_buffer buffer;
    PixFmt pixels;
    BaseRenderer base;
    SolidRenderer solid;
    agg::rasterizer_scanline_aa<> rasterizer;
    agg::scanline_u8 unpacked;
    agg::scanline_p8 packed;
    agg::span_allocator<agg::rgba8> spans;
    agg::trans_affine transform;
    double scaleX = 1;
    double translateX = 0;
    double translateY = 0;
};

Renderer::Renderer(Bitmap& target)
    : target(target), clip{0, 0, target.width, target.height}, state(std::make_unique<State>(target)) {}

Renderer::~Renderer() = default;

void Renderer::SetClip(const Rect& r) {
    clip = r;
    if (r.IsEmpty()) {
        state->base.reset_clipping(false);  // AGG would turn an empty box inside out
    } else {
        state->base.clip_box(r.x, r.y, r.x + r.w - 1, r.y + r.h - 1);
    }
}

void Renderer::SetView(double scaleX, double translateX, double translateY) {
    state->scaleX = scaleX;
    state->translateX = translateX;
    state->translateY = translateY;
    state->transform =
        agg::trans_affine_scaling(scaleX, 1.0) * agg::trans_affine_translation(translateX, translateY);
}

double Renderer::TranslateX() const { return state->translateX; }
double Renderer::TranslateY() const { return state->translateY; }

void Renderer::Clear() {
    std::memset(target.data.get(), 0xFF,
                static_cast<size_t>(target.width) * target.height * target.bytesPerPixel);
}

// [SECTION] shapes

void Renderer::DrawLine(const Pen& pen, float x1, float y1, float x2, float y2) {
    agg::path_storage path;
    path.move_to(x1, y1);
    path.line_to(x2, y2);
    state->StrokeTransformed(pen, path);
}

void Renderer::StrokeRect(const Pen& pen, const FloatRect& r) {
    if (!(r.w > 0 && r.h > 0)) return;
    agg::path_storage path = RectPath(r, true);
    state->StrokeTransformed(pen, path);
}

void Renderer::FillRect(const Brush& brush, const FloatRect& r) {
    if (!(r.w > 0 && r.h > 0)) return;
    agg::path_storage path = RectPath(r, true);
    state->FillTransformed(brush, path);
}

void Renderer::FillRectOpen(const Brush& brush, const FloatRect& r) {
    if (!(r.w > 0 && r.h > 0)) return;
    agg::path_storage path = RectPath(r, false);
    state->FillTransformed(brush, path);
}

void Renderer::DrawPolyline(const Pen& pen, const FloatPoint* points, int n) {
    if (!points || n < 2) return;
    agg::path_storage path = PolygonPath(points, n, false);
    state->StrokeTransformed(pen, path);
}

void Renderer::DrawPolygon(const Pen& pen, const FloatPoint* points, int n) {
    if (!points || n < 2) return;
    agg::path_storage path = PolygonPath(points, n, true);
    state->StrokeTransformed(pen, path);
}

void Renderer::FillPolygon(const Brush& brush, const FloatPoint* points, int n) {
    if (!points || n < 3) return;
    agg::path_storage path = PolygonPath(points, n, true);
    state->FillTransformed(brush, path);
}

void Renderer::DrawPolylines(const Pen& pen, const std::vector<std::vector<FloatPoint>>& lists) {
    agg::path_storage path;
    for (const auto& list : lists) {
        if (list.size() < 2) continue;
        path.move_to(list[0].x, list[0].y);
        for (size_t i = 1; i < list.size(); ++i) path.line_to(list[i].x, list[i].y);
    }
    if (path.total_vertices() == 0) return;
    state->StrokeTransformed(pen, path);
}

void Renderer::StrokeEllipse(const Pen& pen, const FloatRect& box) {
    if (!(box.w > 0 && box.h > 0)) return;
    agg::ellipse ellipse(box.x + box.w / 2.0, box.y + box.h / 2.0, box.w / 2.0, box.h / 2.0);
    state->StrokeTransformed(pen, ellipse);
}

void Renderer::FillEllipse(const Brush& brush, const FloatRect& box) {
    if (!(box.w > 0 && box.h > 0)) return;
    agg::ellipse ellipse(box.x + box.w / 2.0, box.y + box.h / 2.0, box.w / 2.0, box.h / 2.0);
    state->FillTransformed(brush, ellipse);
}

void Renderer::StrokeArc(const Pen& pen, float x, float y, float w, float h, float startDegrees,
                         float sweepDegrees) {
    if (!(std::fabs(sweepDegrees) >= 0.04f) || !(w > 0 && h > 0)) return;
    double sweep = std::clamp(static_cast<double>(sweepDegrees), -360.0, 360.0);
    agg::path_storage path;
    AddArc(path, x + w / 2.0, y + h / 2.0, w / 2.0, h / 2.0, Degrees(startDegrees), Degrees(sweep));
    state->StrokeTransformed(pen, path);
}

void Renderer::FillPie(const Brush& brush, float x, float y, float w, float h, float startDegrees,
                       float sweepDegrees) {
    if (!(std::fabs(sweepDegrees) >= 6.0f) || !(w > 0 && h > 0)) return;
    double sweep = std::clamp(static_cast<double>(sweepDegrees), -360.0, 360.0);
    double cx = x + w / 2.0, cy = y + h / 2.0;
    agg::path_storage path;
    path.move_to(cx, cy);
    AddArc(path, cx, cy, w / 2.0, h / 2.0, Degrees(startDegrees), Degrees(sweep));
    path.close_polygon();
    state->FillTransformed(brush, path);
}

void Renderer::DrawCurve(const Pen& pen, const FloatPoint points[4]) {
    if (!points) return;
    agg::curve4 curve(points[0].x, points[0].y, points[1].x, points[1].y, points[2].x, points[2].y,
                      points[3].x, points[3].y);
    state->StrokeTransformed(pen, curve);
}

// [SECTION] images

void Renderer::DrawImage(const Image* image, float x, float y) {
    const Bitmap* source = AsBitmap(image);
    if (!source) return;
    double px = x, py = y;
    state->transform.transform(&px, &py);
    int left = static_cast<int>(std::floor(px + 0.5));
    int top = static_cast<int>(std::floor(py + 0.5));
    Rect box = state->ClipRect();
    int x0 = std::max(left, box.x), x1 = std::min(left + source->width, box.x + box.w);
    int y0 = std::max(top, box.y), y1 = std::min(top + source->height, box.y + box.h);
    if (x0 >= x1 || y0 >= y1) return;
    for (int y = y0; y < y1; ++y) {
        uint8_t* out = target.Row(y) + x0 * 3;
        const uint8_t* in = source->Row(y - top) + (x0 - left) * source->bytesPerPixel;
        if (source->bytesPerPixel == 3) {
            std::memcpy(out, in, static_cast<size_t>(x1 - x0) * 3);
            continue;
        }
        for (int i = x0; i < x1; ++i, in += 4, out += 3) {
            unsigned a = in[3];
            if (a == 0) continue;  // shadows are mostly clear: the blend would give the same bytes
            for (int c = 0; c < 3; ++c) {
                // `in` is red, green, blue; `out` is blue, green, red.
                unsigned s = in[2 - c];
                out[c] = static_cast<uint8_t>((s * a + out[c] * (255 - a) + 127) / 255);
            }
        }
    }
}

void Renderer::DrawImageScaled(const Image* image, const FloatRect& dest, int srcX, int srcY, int srcW,
                               int srcH) {
    const Bitmap* source = AsBitmap(image);
    if (!source || source->bytesPerPixel != 4 || !(dest.w > 0 && dest.h > 0)) return;
    int x0 = std::clamp(srcX, 0, source->width), x1 = std::clamp(srcX + srcW, 0, source->width);
    int y0 = std::clamp(srcY, 0, source->height), y1 = std::clamp(srcY + srcH, 0, source->height);
    if (x0 >= x1 || y0 >= y1) return;
    // A buffer over just the source rectangle, so the filter's edge pixels repeat its own border
    // rather than blend in the neighbouring pieces of a sheet.
    agg::rendering_buffer pieceBuffer(const_cast<uint8_t*>(source->Row(y0)) + x0 * 4, x1 - x0, y1 - y0,
                                      source->width * 4);
    agg::pixfmt_rgba32 piecePixels(pieceBuffer);
    ImageSource piece(piecePixels);
    agg::trans_affine toPixels = agg::trans_affine_scaling(dest.w / (x1 - x0), dest.h / (y1 - y0)) *
                                 agg::trans_affine_translation(dest.x, dest.y) * state->transform;
    toPixels.invert();
    Interpolator interpolator(toPixels);
    ImageSpan span(piece, interpolator);
    agg::path_storage area = RectPath(dest, true);
    agg::conv_transform<agg::path_storage> path(area, state->transform);
    state->rasterizer.reset();
    state->rasterizer.add_path(path);
    agg::render_scanlines_aa(state->rasterizer, state->unpacked, state->base, state->spans, span);
}

void Renderer::BlitBitmap(const Bitmap& source, const Rect& sourceRect, int destX, int destY) {
    if (source.bytesPerPixel != 3) return;
    // Trim to the source bitmap first, moving the destination along, then to the clip box.
    Rect from = sourceRect;
    if (from.x < 0) {
        destX -= from.x;
        from.w += from.x;
        from.x = 0;
    }
    if (from.y < 0) {
        destY -= from.y;
        from.h += from.y;
        from.y = 0;
    }
    from.w = std::min(from.w, source.width - from.x);
    from.h = std::min(from.h, source.height - from.y);
    Rect box = state->ClipRect();
    int x0 = std::max(destX, box.x), x1 = std::min(destX + from.w, box.x + box.w);
    int y0 = std::max(destY, box.y), y1 = std::min(destY + from.h, box.y + box.h);
    if (x0 >= x1 || y0 >= y1) return;
    for (int y = y0; y < y1; ++y) {
        std::memmove(target.Row(y) + x0 * 3, source.Row(from.y + y - destY) + (from.x + x0 - destX) * 3,
                     static_cast<size_t>(x1 - x0) * 3);
    }
}

void Renderer::DrawHLine(int x0, int x1, int y, Color color) {
    if (x0 > x1) std::swap(x0, x1);
    Rect box = state->ClipRect();
    if (y < box.y || y >= box.y + box.h) return;
    x0 = std::max(x0, box.x);
    x1 = std::min(x1, box.x + box.w - 1);
    uint8_t* out = target.Row(y) + x0 * 3;
    for (int x = x0; x <= x1; ++x, out += 3) {
        out[0] = color & 0xFF;
        out[1] = (color >> 8) & 0xFF;
        out[2] = (color >> 16) & 0xFF;
    }
}

void Renderer::DrawShadow(int x, int y, int w, int h) {
    const Image* sheet = theme::ShadowImage();
    if (!sheet) return;
    constexpr int c = theme::kShadowCorner;
    // The sheet holds a window at (8, 7) with its shadow to the sheet's edges; the pieces are
    // its corners at 1:1 and 20-pixel edge strips stretched to the window's sides.
    constexpr int kFar = 149 - c;  // where the right and bottom pieces start in the sheet
    constexpr int kStrip = 20;     // length of an edge strip in the sheet
    float left = static_cast<float>(x - theme::kShadowLeft);
    float top = static_cast<float>(y - theme::kShadowTop);
    float right = static_cast<float>(x + w + theme::kShadowRight);
    float bottom = static_cast<float>(y + h + theme::kShadowBottom);
    float across = right - left - 2 * c, down = bottom - top - 2 * c;
    DrawImageScaled(sheet, {left, top, c, c}, 0, 0, c, c);
    DrawImageScaled(sheet, {left + c, top, across, c}, c, 0, kStrip, c);
    DrawImageScaled(sheet, {right - c, top, c, c}, kFar, 0, c, c);
    DrawImageScaled(sheet, {left, top + c, c, down}, 0, c, c, kStrip);
    DrawImageScaled(sheet, {right - c, top + c, c, down}, kFar, c, c, kStrip);
    DrawImageScaled(sheet, {left, bottom - c, c, c}, 0, kFar, c, c);
    DrawImageScaled(sheet, {left + c, bottom - c, across, c}, c, kFar, kStrip, c);
    DrawImageScaled(sheet, {right - c, bottom - c, c, c}, kFar, kFar, c, c);
}

// [SECTION] text

namespace {

std::u32string Codes(std::wstring_view text) { return {text.begin(), text.end()}; }

// UTF-8; a byte that does not start a valid sequence stands for itself (Latin-1), so text
// from any source draws something readable.
std::u32string Codes(std::string_view text) {
    std::u32string codes;
    codes.reserve(text.size());
    for (size_t i = 0; i < text.size();) {
        unsigned char lead = text[i];
        int extra = lead >= 0xF0 && lead < 0xF8 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
        if (lead >= 0xF8) extra = 0;
        char32_t code = extra == 0 ? lead : lead & (0x3F >> extra);
        bool valid = i + extra < text.size();
        for (int k = 1; valid && k <= extra; ++k) {
            unsigned char next = text[i + k];
            valid = (next & 0xC0) == 0x80;
            code = code << 6 | (next & 0x3F);
        }
        if (!valid) {
            code = lead;
            extra = 0;
        }
        codes.push_back(code);
        i += extra + 1;
    }
    return codes;
}

struct TextMetrics {
    double width = 0;
    double leftBearing = 0;  // of the first glyph
};

TextMetrics Measure(FontRecord& font, const std::u32string& codes) {
    TextMetrics m;
    double y = 0;
    font.cache.reset_last_glyph();
    for (size_t i = 0; i < codes.size(); ++i) {
        const agg::glyph_cache* glyph = font.cache.glyph(codes[i]);
        if (!glyph) continue;
        if (i == 0) m.leftBearing = glyph->bounds.x1;
        if (font.kerning) font.cache.add_kerning(&m.width, &y);
        m.width += glyph->advance_x;
    }
    return m;
}

bool Usable(const Font* font) { return font && font->IsValid(); }

template <class Text>
TextSize MeasureCodes(Text text, const Font* font) {
    if (!Usable(font)) return {};
    return {static_cast<float>(Measure(*font->record, Codes(text)).width),
            static_cast<float>(font->record->lineValue + font->size)};
}

}  // namespace

// `inset` is where the first glyph's cell starts inside the rectangle: (2.5, -1.5) for float
// rectangles, (2, -1) for integer ones.
void Renderer::State::DrawText(const std::u32string& codes, FloatRect r, FloatPoint inset, const Font& font,
                               TextAlign align, Color color) {
    FontRecord& record = *font.record;
    TextMetrics metrics = Measure(record, codes);
    double height = record.lineValue + font.size;
    double x = r.x + inset.x + translateX;
    double y = r.y + inset.y + translateY + font.size;
    if (align.horizontal == 1) x += -metrics.leftBearing + r.w / 2 - metrics.width / 2;
    if (align.horizontal == 2) x += r.w - metrics.width;
    if (align.vertical == 1) y += r.h / 2 - height / 2;
    if (align.vertical == 2) y += r.h - height;

    solid.color(ToAgg(color));
    record.cache.reset_last_glyph();
    for (char32_t code : codes) {
        const agg::glyph_cache* glyph = record.cache.glyph(code);
        if (!glyph) continue;
        if (record.kerning) record.cache.add_kerning(&x, &y);
        record.cache.init_embedded_adaptors(glyph, x, y);
        // A blank glyph (a space) stores inverted bounds that AGG would overflow adding the pen position to.
        if (glyph->data_type == agg::glyph_data_gray8 && glyph->bounds.is_valid()) {
            agg::render_scanlines(record.cache.gray8_adaptor(), record.cache.gray8_scanline(), solid);
        }
        x += glyph->advance_x;
        y += glyph->advance_y;
    }
}

void Renderer::DrawText(std::wstring_view text, const FloatRect& r, const Font* font, TextAlign align,
                        Color color) {
    if (text.empty() || !Usable(font)) return;
    state->DrawText(Codes(text), r, {2.5f, -1.5f}, *font, align, color);
}

void Renderer::DrawText(std::wstring_view text, const Rect& r, const Font* font, TextAlign align,
                        Color color) {
    if (text.empty() || !Usable(font)) return;
    FloatRect f{float(r.x), float(r.y), float(r.w), float(r.h)};
    state->DrawText(Codes(text), f, {2.0f, -1.0f}, *font, align, color);
}

void Renderer::DrawText(std::string_view text, const FloatRect& r, const Font* font, TextAlign align,
                        Color color) {
    if (text.empty() || !Usable(font)) return;
    state->DrawText(Codes(text), r, {2.5f, -1.5f}, *font, align, color);
}

void Renderer::DrawText(std::string_view text, const Rect& r, const Font* font, TextAlign align,
                        Color color) {
    if (text.empty() || !Usable(font)) return;
    FloatRect f{float(r.x), float(r.y), float(r.w), float(r.h)};
    state->DrawText(Codes(text), f, {2.0f, -1.0f}, *font, align, color);
}

TextSize Renderer::MeasureText(std::wstring_view text, const Font* font) { return MeasureCodes(text, font); }

TextSize Renderer::MeasureText(std::string_view text, const Font* font) { return MeasureCodes(text, font); }

}  // namespace G
