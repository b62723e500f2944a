// The one drawing surface of the toolkit: a short-lived object over a control's 3-byte bitmap,
// turning pens, brushes, shapes, images and text into AGG scanlines. AGG stays behind the
// forward-declared `State`, so no other file sees its headers.
//
// Angles are in degrees, measured from +x towards +y (clockwise on screen, as y grows down).
// GUI thread only.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "g/bitmap.h"
#include "g/geometry.h"

namespace G {

struct Pen {
    Color color = 0xFF000000;
    float width = 1.0f;
    int style = 0;  // 0 solid, 1 dashed 4 on, 4 off
};

struct GradientStop {
    float position;  // 0..1
    Color color;
};

// Kind 0 paints nothing at all (the default background asks for it on purpose), 1 solid,
// 2 an 8x8 two-colour pattern (a non-zero pattern byte picks `color`, zero picks `second`),
// 3 a linear gradient from `from` to `to` over a 256-entry table built from `stops`.
struct Brush {
    Color color = 0xFF000000;
    int kind = 1;
    Color second = 0xFFFFFFFF;
    int pattern = 0;
    FloatPoint from;
    FloatPoint to;
    std::vector<GradientStop> stops;

    static Brush Solid(Color c) {
        Brush b;
        b.color = c;
        return b;
    }
    static Brush Pattern(Color first, Color second, int pattern);
    static Brush Gradient(FloatPoint from, FloatPoint to, std::vector<GradientStop> stops);
};

// Number of 8x8 patterns in the pattern table.
int PatternCount();

struct FontRecord;  // AGG FreeType engine and glyph cache; defined in font.cpp

// A face at a pixel size. "Arial" resolves through fontconfig to Liberation Sans and "Lucida
// Console" to a monospaced face; a face that cannot be found leaves the font invalid, and
// drawing with an invalid font draws nothing.
class Font {
public:
    Font(float sizePx, bool bold, const std::string& face);
    ~Font();

    bool IsValid() const { return record != nullptr; }
    float size;
    std::shared_ptr<FontRecord> record;
};

struct TextSize {
    float width = 0;
    float height = 0;
};

class Renderer {
public:
    // The clip box starts as the whole bitmap. `target` must be a 3-byte bitmap.
    explicit Renderer(Bitmap& target);
    ~Renderer();
    Renderer(const Renderer&) = delete;
    Renderer& operator=(const Renderer&) = delete;

    Bitmap& Target() { return target; }
    void SetClip(const Rect& r);
    const Rect& Clip() const { return clip; }
    // Rewrites the transform as an x scale followed by a translation (document canvas, manual).
    void SetView(double scaleX, double translateX, double translateY);
    double TranslateX() const;
    double TranslateY() const;

    void Clear();  // every byte to 0xFF
    void DrawLine(const Pen& pen, float x1, float y1, float x2, float y2);
    void StrokeRect(const Pen& pen, const FloatRect& r);
    void FillRect(const Brush& brush, const FloatRect& r);
    void FillRectOpen(const Brush& brush, const FloatRect& r);
    void DrawPolyline(const Pen& pen, const FloatPoint* points, int n);
    void DrawPolygon(const Pen& pen, const FloatPoint* points, int n);  // closed outline
    void FillPolygon(const Brush& brush, const FloatPoint* points, int n);
    // One rasterizer pass; lists with fewer than two points are skipped.
    void DrawPolylines(const Pen& pen, const std::vector<std::vector<FloatPoint>>& lists);
    void StrokeEllipse(const Pen& pen, const FloatRect& box);
    void FillEllipse(const Brush& brush, const FloatRect& box);
    // Nothing when |sweep| < 0.04.
    void StrokeArc(const Pen& pen, float x, float y, float w, float h, float startDegrees,
                   float sweepDegrees);
    // Nothing when |sweep| < 6.
    void FillPie(const Brush& brush, float x, float y, float w, float h, float startDegrees,
                 float sweepDegrees);
    void DrawCurve(const Pen& pen, const FloatPoint points[4]);
    // No scaling: 3-byte images are row-copied, 4-byte images blended. Null draws nothing.
    void DrawImage(const Image* image, float x, float y);
    // 4-byte images only, resampled through the inverse mapping.
    void DrawImageScaled(const Image* image, const FloatRect& dest, int srcX, int srcY, int srcW, int srcH);
    // Unblended, clipped row copy between 3-byte bitmaps. Bitmap pixels: the view does not apply.
    void BlitBitmap(const Bitmap& source, const Rect& sourceRect, int destX, int destY);
    // Direct pixel writes from x0 to x1 inclusive, clipped, no AGG; alpha is ignored. Bitmap
    // pixels: the view does not apply.
    void DrawHLine(int x0, int x1, int y, Color color);
    // The eight pieces of the theme's shadow sheet around the rectangle; skipped without it.
    void DrawShadow(int x, int y, int w, int h);

    void DrawText(std::wstring_view text, const FloatRect& r, const Font* font, TextAlign align, Color color);
    void DrawText(std::wstring_view text, const Rect& r, const Font* font, TextAlign align, Color color);
    void DrawText(std::string_view text, const FloatRect& r, const Font* font, TextAlign align, Color color);
    void DrawText(std::string_view text, const Rect& r, const Font* font, TextAlign align, Color color);
    static TextSize MeasureText(std::wstring_view text, const Font* font);
    static TextSize MeasureText(std::string_view text, const Font* font);

private:
    struct State;
    Bitmap& target;
    Rect clip;
    std::unique_ptr<State> state;
};

}  // namespace G
