// Renderer primitives checked at chosen pixels, the geometry helpers, and text layout with a
// real font.
#include "g/renderer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

namespace G {
namespace {

constexpr Color kWhite = 0xFFFFFFFF;
constexpr Color kRed = 0xFFFF0000;
constexpr Color kBlue = 0xFF0000FF;

// 0xFFRRGGBB of a 3-byte bitmap's pixel.
Color At(const Bitmap& b, int x, int y) {
    const uint8_t* p = b.Row(y) + x * 3;
    return 0xFF000000u | p[2] << 16 | p[1] << 8 | p[0];
}

struct Expected {
    int x, y;
    Color color;
};
void ExpectPixels(const Bitmap& b, std::initializer_list<Expected> pixels) {
    for (const Expected& p : pixels) EXPECT_EQ(At(b, p.x, p.y), p.color) << p.x << "," << p.y;
}

bool IsBlank(const Bitmap& b) {
    const size_t n = static_cast<size_t>(b.width) * b.height * 3;
    return std::all_of(b.data.get(), b.data.get() + n, [](uint8_t v) { return v == 0xFF; });
}

int Channel(Color c, int shift) { return (c >> shift) & 0xFF; }

// Columns holding any non-white pixel: first and last, or -1 when none.
std::pair<int, int> InkColumns(const Bitmap& b) {
    int first = -1, last = -1;
    for (int x = 0; x < b.width; ++x) {
        for (int y = 0; y < b.height; ++y) {
            if (At(b, x, y) == kWhite) continue;
            if (first < 0) first = x;
            last = x;
            break;
        }
    }
    return {first, last};
}

TEST(RendererFill, RectsCoverTheirPixelsOnlyAndEmptyShapesOrKindZeroDrawNothing) {
    Bitmap b(10, 10, 3);
    Renderer r(b);
    r.FillRect(Brush::Solid(kRed), {2, 2, 4, 4});
    ExpectPixels(b, {{2, 2, kRed}, {5, 5, kRed}, {1, 1, kWhite}, {6, 6, kWhite}});
    r.Clear();
    EXPECT_TRUE(IsBlank(b));
    r.FillRectOpen(Brush::Solid(kBlue), {2, 2, 4, 4});  // fills as if closed
    ExpectPixels(b, {{5, 5, kBlue}, {6, 6, kWhite}});
    r.Clear();

    Brush none = Brush::Solid(0xFFE6E6E6);
    none.kind = 0;
    r.FillRect(none, {0, 0, 10, 10});
    r.FillRect(Brush::Solid(kRed), {2, 2, 0, 5});
    r.FillRectOpen(Brush::Solid(kRed), {2, 2, 5, -1});
    r.StrokeRect(Pen{kRed, 1}, {2, 2, -4, 4});
    r.FillEllipse(Brush::Solid(kRed), {2, 2, 0, 0});
    r.StrokeRect(Pen{kRed, 0}, {2, 2, 4, 4});
    EXPECT_TRUE(IsBlank(b));
}

TEST(RendererFill, EveryPatternUsesBothColoursAndGradientsHoldTheirEnds) {
    ASSERT_GE(PatternCount(), 2);
    for (int pattern = -1; pattern <= PatternCount(); ++pattern) {
        Bitmap b(8, 8, 3);
        Renderer(b).FillRect(Brush::Pattern(kRed, kBlue, pattern), {0, 0, 8, 8});
        int red = 0, blue = 0;
        for (int y = 0; y < 8; ++y) {
            for (int x = 0; x < 8; ++x) {
                red += At(b, x, y) == kRed;
                blue += At(b, x, y) == kBlue;
            }
        }
        EXPECT_GT(red, 0) << pattern;
        EXPECT_GT(blue, 0) << pattern;
        EXPECT_EQ(red + blue, 64) << pattern;
    }

    Bitmap b(120, 4, 3);
    // Stops given out of order: the table sorts them.
    Renderer(b).FillRect(Brush::Gradient({10, 0}, {110, 0}, {{1, kBlue}, {0, kRed}}), {0, 0, 120, 4});
    ExpectPixels(b, {{2, 1, kRed}, {117, 1, kBlue}});
    EXPECT_NEAR(Channel(At(b, 60, 1), 16), 128, 4);
    EXPECT_NEAR(Channel(At(b, 60, 1), 0), 128, 4);
    EXPECT_GT(Channel(At(b, 35, 1), 16), Channel(At(b, 85, 1), 16));
}

TEST(RendererClip, ClipBoundsShapesAndInclusiveLines) {
    Bitmap b(10, 10, 3);
    Renderer r(b);
    r.SetClip({2, 3, 4, 5});
    r.FillRect(Brush::Solid(kRed), {0, 0, 10, 10});
    ExpectPixels(b, {{2, 3, kRed}, {5, 7, kRed}, {6, 7, kWhite}, {5, 8, kWhite}, {1, 3, kWhite}});
    r.Clear();
    r.SetClip({2, 0, 5, 4});
    r.DrawHLine(20, -5, 1, 0x80123456);  // reversed ends; alpha ignored
    ExpectPixels(b, {{1, 1, kWhite}, {2, 1, 0xFF123456}, {6, 1, 0xFF123456}, {7, 1, kWhite}});
    r.SetClip({0, 0, 10, 10});
    r.DrawHLine(3, 4, 2, kRed);
    ExpectPixels(b, {{3, 2, kRed}, {4, 2, kRed}, {5, 2, kWhite}});

    Bitmap other(10, 10, 3);
    Renderer empty(other);
    empty.DrawHLine(0, 9, -1, kRed);
    empty.DrawHLine(0, 9, 10, kRed);
    empty.SetClip({4, 4, 0, 3});
    empty.FillRect(Brush::Solid(kRed), {0, 0, 10, 10});
    empty.DrawHLine(0, 9, 5, kRed);
    EXPECT_TRUE(IsBlank(other));
}

TEST(RendererClip, BlitCopiesClippedRows) {
    Bitmap source(4, 4, 3);
    for (int y = 0; y < 4; ++y) {
        for (int x = 0; x < 4; ++x) {
            uint8_t* p = source.Row(y) + x * 3;
            p[0] = static_cast<uint8_t>(x);
            p[1] = static_cast<uint8_t>(y);
            p[2] = 7;
        }
    }
    Bitmap b(6, 6, 3);
    Renderer r(b);
    r.SetClip({0, 0, 5, 6});
    // Starts one pixel left of the source: the copy shifts right by one to match.
    r.BlitBitmap(source, {-1, 1, 6, 2}, 2, 3);
    // The last two: clipped, and beyond the two source rows.
    ExpectPixels(b, {{2, 3, kWhite}, {3, 3, 0xFF070100}, {4, 4, 0xFF070201}, {5, 3, kWhite}, {3, 5, kWhite}});
}

TEST(RendererStroke, OnePixelPensDashesAndPolylines) {
    Bitmap b(16, 10, 3);
    Renderer r(b);
    r.DrawLine(Pen{kBlue, 1}, 0, 5.5f, 12, 5.5f);
    ExpectPixels(b, {{6, 5, kBlue}, {6, 4, kWhite}, {6, 6, kWhite}});
    r.DrawLine(Pen{kRed, 1, 1}, 0, 1.5f, 16, 1.5f);  // dashed: four on, four off
    for (int x : {0, 3, 8, 11}) EXPECT_EQ(At(b, x, 1), kRed) << x;
    for (int x : {4, 7, 12, 15}) EXPECT_EQ(At(b, x, 1), kWhite) << x;

    r.Clear();
    r.DrawPolylines(Pen{kRed, 1}, {{{0, 2.5f}}, {}, {{0, 6.5f}, {10, 6.5f}}});  // short lists skipped
    ExpectPixels(b, {{5, 6, kRed}, {5, 2, kWhite}, {0, 2, kWhite}});
}

TEST(RendererStroke, ArcAndPieSweepThresholds) {
    // A 2000-pixel circle whose rightmost point lies at (10, 10): 0.04 degrees there is about
    // 0.7 pixels of arc, enough to show.
    auto arc = [](float sweep) {
        Bitmap b(20, 20, 3);
        Renderer(b).StrokeArc(Pen{0xFF000000, 2}, -1990, -990, 2000, 2000, 0, sweep);
        return IsBlank(b);
    };
    EXPECT_FALSE(arc(0.04f));
    EXPECT_FALSE(arc(-0.04f));
    EXPECT_TRUE(arc(0.039f));

    auto pie = [](float sweep) {
        Bitmap b(40, 40, 3);
        Renderer(b).FillPie(Brush::Solid(kRed), 0, 0, 40, 40, 0, sweep);
        return b;
    };
    EXPECT_TRUE(IsBlank(pie(5.9f)));
    EXPECT_FALSE(IsBlank(pie(6.0f)));
    // Positive sweeps turn from +x towards +y: the lower right quarter.
    ExpectPixels(pie(90), {{30, 30, kRed}, {30, 10, kWhite}, {10, 30, kWhite}});
}

TEST(RendererView, ScalesXAndTranslates) {
    Bitmap b(30, 20, 3);
    Renderer r(b);
    r.SetView(2, 10, 5);
    r.FillRect(Brush::Solid(kRed), {0, 0, 5, 5});
    ExpectPixels(b, {{10, 5, kRed}, {19, 9, kRed}, {20, 9, kWhite}, {19, 10, kWhite}, {9, 5, kWhite}});
}

TEST(RendererImage, FourByteImagesBlendThreeByteImagesCopyAndScaledOnesFillTheDestination) {
    Bitmap rgba(3, 1, 4);
    const uint8_t pixels[] = {255, 0, 0, 255, 0, 0, 255, 128, 0, 255, 0, 0};
    std::memcpy(rgba.data.get(), pixels, sizeof pixels);
    Bitmap b(6, 3, 3);
    Renderer r(b);
    r.DrawImage(&rgba, 1, 1);
    // The third pixel is fully transparent.
    ExpectPixels(b, {{1, 1, kRed}, {2, 1, 0xFF7F7FFF}, {3, 1, kWhite}, {0, 1, kWhite}});
    Bitmap bgr(2, 2, 3);
    bgr.Row(1)[3] = 0;  // blue 0 at (1, 1): a yellow pixel
    r.DrawImage(&bgr, 4.4f, 1);
    r.DrawImage(&rgba, -2, 0);  // partly outside: only its last pixel lands, transparent
    r.DrawImage(nullptr, 0, 0);
    ExpectPixels(b, {{5, 2, 0xFFFFFF00}, {0, 0, kWhite}});

    Bitmap green(1, 1, 4);
    const uint8_t pixel[] = {0, 255, 0, 255};
    std::memcpy(green.data.get(), pixel, 4);
    Bitmap scaled(8, 8, 3);
    Renderer(scaled).DrawImageScaled(&green, {2, 2, 4, 4}, 0, 0, 1, 1);
    ExpectPixels(scaled, {{2, 2, 0xFF00FF00}, {5, 5, 0xFF00FF00}, {6, 6, kWhite}, {1, 2, kWhite}});
    Bitmap untouched(8, 8, 3);
    Renderer other(untouched);
    other.DrawImageScaled(&bgr, {0, 0, 8, 8}, 0, 0, 1, 1);    // 3-byte: refused
    other.DrawImageScaled(&green, {0, 0, 8, 8}, 1, 1, 1, 1);  // outside the image
    EXPECT_TRUE(IsBlank(untouched));
}

TEST(Geometry, HueColorSectorsAndJoins) {
    // One point well inside each sector; 0.7 of full scale sits between 178 and 179.
    const struct {
        float degrees;
        int r, g, b;
    } rows[] = {{0, 255, 102, 102},   {30, 255, 178, 102},  {90, 178, 255, 102}, {150, 102, 255, 178},
                {210, 102, 178, 255}, {270, 178, 102, 255}, {330, 255, 102, 178}};
    for (const auto& row : rows) {
        Color c = HueColor(row.degrees);
        EXPECT_EQ(c >> 24, 0xFFu) << row.degrees;
        EXPECT_NEAR(Channel(c, 16), row.r, 1) << row.degrees;
        EXPECT_NEAR(Channel(c, 8), row.g, 1) << row.degrees;
        EXPECT_NEAR(Channel(c, 0), row.b, 1) << row.degrees;
    }
    // Each sector ends where the next begins.
    for (float border : {60.0f, 120.0f, 180.0f, 240.0f, 300.0f}) {
        Color before = HueColor(border - 0.001f), after = HueColor(border);
        for (int shift : {0, 8, 16}) EXPECT_NEAR(Channel(before, shift), Channel(after, shift), 1) << border;
    }
}

TEST(Geometry, StrictTrianglesRectanglesAndCurves) {
    FloatPoint a{0, 0}, b{10, 0}, c{0, 10};
    EXPECT_TRUE(PointInTriangle({2, 2}, a, b, c));
    EXPECT_FALSE(PointInTriangle({5, 0}, a, b, c));  // on an edge
    EXPECT_FALSE(PointInTriangle({0, 0}, a, b, c));  // a corner
    EXPECT_FALSE(PointInTriangle({8, 8}, a, b, c));
    EXPECT_FALSE(PointInTriangle({2, 2}, a, c, b));  // wound the other way

    Rect r{10, 10, 100, 50};
    ExpandForShadow(r);
    EXPECT_EQ(r, (Rect{2, 3, 122, 71}));
    Rect u{};
    UnionRect(u, {5, 5, 2, 2});
    EXPECT_EQ(u, (Rect{5, 5, 2, 2}));
    UnionRect(u, {0, 6, 3, 4});
    UnionRect(u, {50, 50, 0, 0});  // empty: ignored
    EXPECT_EQ(u, (Rect{0, 5, 7, 5}));

    FloatPoint p0{0, 0}, p1{1, 3}, p2{3, 3}, p3{4, 0};
    EXPECT_FLOAT_EQ(BezierPoint(p0, p1, p2, p3, 0).x, 0);
    EXPECT_FLOAT_EQ(BezierPoint(p0, p1, p2, p3, 1).x, 4);
    EXPECT_FLOAT_EQ(BezierPoint(p0, p1, p2, p3, 0.5f).x, 2);
    EXPECT_FLOAT_EQ(BezierPoint(p0, p1, p2, p3, 0.5f).y, 2.25f);
}

class RendererText : public ::testing::Test {
protected:
    Font font{10, false, "Arial"};
    Font missing{10, false, "No Such Face Anywhere"};
};

TEST_F(RendererText, DrawsOnlyWithTextAndAValidFace) {
    EXPECT_TRUE(font.IsValid());
    EXPECT_TRUE(Font(13, true, "Lucida Console").IsValid());
    EXPECT_FALSE(missing.IsValid());
    Bitmap b(60, 20, 3);
    Renderer r(b);
    r.DrawText("", Rect{0, 0, 60, 20}, &font, {}, 0xFF000000);
    r.DrawText(L"abc", FloatRect{0, 0, 60, 20}, nullptr, {}, 0xFF000000);
    r.DrawText("abc", Rect{0, 0, 60, 20}, &missing, {}, 0xFF000000);
    EXPECT_TRUE(IsBlank(b));
    r.DrawText("Hello", Rect{0, 0, 60, 20}, &font, {}, 0xFF000000);
    auto [first, last] = InkColumns(b);
    EXPECT_GE(first, 2);  // the text starts two pixels in
    EXPECT_LT(last, 2 + Renderer::MeasureText("Hello", &font).width + 1);
}

TEST_F(RendererText, MeasureGrowsWithTextAndAgreesAcrossForms) {
    TextSize one = Renderer::MeasureText("i", &font);
    TextSize two = Renderer::MeasureText("ii", &font);
    TextSize more = Renderer::MeasureText("iiW", &font);
    EXPECT_GT(one.width, 0);
    EXPECT_NEAR(two.width, 2 * one.width, 0.01);
    EXPECT_GT(more.width, two.width);
    EXPECT_GT(one.height, 10);
    EXPECT_LT(one.height, 15);
    EXPECT_EQ(Renderer::MeasureText(L"iiW", &font).width, more.width);
    EXPECT_EQ(Renderer::MeasureText(L"\u00e9t\u00e9", &font).width,
              Renderer::MeasureText("\xc3\xa9t\xc3\xa9", &font).width);
    // A stray byte that is not UTF-8 still measures as one character.
    EXPECT_GT(Renderer::MeasureText("a\xe9", &font).width, Renderer::MeasureText("a", &font).width);
    EXPECT_EQ(Renderer::MeasureText("", &font).width, 0);
    EXPECT_EQ(Renderer::MeasureText("abc", &missing).width, 0);
    EXPECT_EQ(Renderer::MeasureText("abc", nullptr).width, 0);
}

TEST_F(RendererText, AlignmentPlacesTheInk) {
    auto ink = [this](TextAlign align) {
        Bitmap b(120, 20, 3);
        Renderer(b).DrawText("Middle", Rect{0, 0, 120, 20}, &font, align, 0xFF000000);
        return InkColumns(b);
    };
    auto [left, leftEnd] = ink({0, 0});
    auto [centre, centreEnd] = ink({1, 0});
    auto [right, rightEnd] = ink({2, 0});
    EXPECT_LT(left, 5);
    EXPECT_NEAR(centre - 2, 120 - 1 - centreEnd, 4);
    EXPECT_NEAR(centreEnd - centre, leftEnd - left, 1);
    EXPECT_GT(right, centre + 20);
    EXPECT_GE(rightEnd, 115);

    auto topRow = [this](int vertical) {
        Bitmap b(60, 40, 3);
        Renderer(b).DrawText("Hg", Rect{0, 0, 60, 40}, &font, {0, vertical}, 0xFF000000);
        for (int y = 0; y < b.height; ++y)
            for (int x = 0; x < b.width; ++x)
                if (At(b, x, y) != kWhite) return y;
        return -1;
    };
    const int top = topRow(0), middle = topRow(1), bottom = topRow(2);
    EXPECT_GE(top, 0);
    EXPECT_GT(middle, top + 5);
    EXPECT_GT(bottom, middle + 5);
}

}  // namespace
}  // namespace G
