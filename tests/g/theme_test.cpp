// PNG decoding and writing, the embedded images, and the Theme's reference counting, fonts
// and shadow.
#include "g/theme.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "engine/log.h"
#include "g/png.h"
#include "resources/images.h"

namespace G {
namespace {

// 1x1 grey (colour type 0), written with zlib by hand.
constexpr uint8_t kGreyPng[] = {
    0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d, 0x49, 0x48, 0x44, 0x52, 0x00,
    0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x01, 0x08, 0x00, 0x00, 0x00, 0x00, 0x3a, 0x7e, 0x9b, 0x55, 0x00,
    0x00, 0x00, 0x0a, 0x49, 0x44, 0x41, 0x54, 0x78, 0xda, 0x63, 0x68, 0x00, 0x00, 0x00, 0x82, 0x00, 0x81,
    0xda, 0x45, 0x08, 0x3b, 0x00, 0x00, 0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

// 2x1 RGB (colour type 2): a red pixel, then a blue one.
constexpr uint8_t kRedBluePng[] = {0x89, 0x50, 0x4e, 0x47, 0x0d, 0x0a, 0x1a, 0x0a, 0x00, 0x00, 0x00, 0x0d,
                                   0x49, 0x48, 0x44, 0x52, 0x00, 0x00, 0x00, 0x02, 0x00, 0x00, 0x00, 0x01,
                                   0x08, 0x02, 0x00, 0x00, 0x00, 0x7b, 0x40, 0xe8, 0xdd, 0x00, 0x00, 0x00,
                                   0x0d, 0x49, 0x44, 0x41, 0x54, 0x78, 0xda, 0x63, 0xf8, 0xcf, 0x00, 0x04,
                                   0xff, 0x01, 0x07, 0x00, 0x01, 0xff, 0x3d, 0x7d, 0x8c, 0x49, 0x00, 0x00,
                                   0x00, 0x00, 0x49, 0x45, 0x4e, 0x44, 0xae, 0x42, 0x60, 0x82};

std::vector<uint8_t> ShadowBytes() {
    resources::EmbeddedImage png = resources::EmbeddedPng(139);
    return {png.data, png.data + png.size};
}

std::unique_ptr<Bitmap> DecodeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in), {}};
    return DecodePng(bytes.data(), bytes.size());
}

std::string TempPath(const std::string& name) {
    return (std::filesystem::path(testing::TempDir()) / name).string();
}

TEST(Png, EmbeddedImagesDecodeToTheirSizes) {
    const struct {
        int id, width, height;
    } rows[] = {{139, 149, 149}, {140, 11, 9}, {141, 32, 32}, {142, 9, 9}};
    for (const auto& row : rows) {
        resources::EmbeddedImage png = resources::EmbeddedPng(row.id);
        std::unique_ptr<Bitmap> image = DecodePng(png.data, png.size);
        ASSERT_TRUE(image) << row.id;
        EXPECT_EQ(image->width, row.width) << row.id;
        EXPECT_EQ(image->height, row.height) << row.id;
        EXPECT_EQ(image->bytesPerPixel, 4) << row.id;
    }
    EXPECT_EQ(resources::EmbeddedPng(150).data, nullptr);
}

TEST(Png, ShadowSheetIsClearUnderTheWindowAndFadesToItsBorder) {
    std::vector<uint8_t> bytes = ShadowBytes();
    std::unique_ptr<Bitmap> sheet = DecodePng(bytes.data(), bytes.size());
    ASSERT_TRUE(sheet);
    auto alpha = [&](int x, int y) { return sheet->Row(y)[x * 4 + 3]; };
    EXPECT_EQ(alpha(8, 7), 0);  // the window's corner
    EXPECT_EQ(alpha(134, 134), 0);
    EXPECT_GT(alpha(140, 70), 0);  // right of the window
    EXPECT_GT(alpha(70, 140), 0);  // below it
    EXPECT_EQ(alpha(0, 0), 0);
    EXPECT_EQ(alpha(148, 148), 0);
    // Edge strips are constant along their length, so stretching them is exact.
    for (int y = 0; y < 17; ++y) EXPECT_EQ(alpha(17, y), alpha(36, y)) << y;
}

TEST(Png, DecodesRgbToBlueGreenRedAndDamagedOrUnsupportedGivesNull) {
    std::unique_ptr<Bitmap> image = DecodePng(kRedBluePng, sizeof kRedBluePng);
    ASSERT_TRUE(image);
    EXPECT_EQ(image->bytesPerPixel, 3);
    const uint8_t expected[] = {0, 0, 255, 255, 0, 0};
    EXPECT_EQ(std::memcmp(image->data.get(), expected, 6), 0);

    EXPECT_FALSE(DecodePng(kGreyPng, sizeof kGreyPng));
    EXPECT_FALSE(DecodePng(nullptr, 0));
    std::vector<uint8_t> bytes = ShadowBytes();
    EXPECT_FALSE(DecodePng(bytes.data(), bytes.size() / 2));  // truncated
    EXPECT_FALSE(DecodePng(bytes.data(), 7));
    std::vector<uint8_t> flipped = bytes;
    flipped[60] ^= 0x55;  // inside the image data: its checksum no longer matches
    EXPECT_FALSE(DecodePng(flipped.data(), flipped.size()));
    std::vector<uint8_t> notPng = bytes;
    notPng[1] = 'Q';
    EXPECT_FALSE(DecodePng(notPng.data(), notPng.size()));
}

TEST(Png, BitmapsRoundTripThroughFilesAndSurfacesAreWrittenTopDown) {
    const std::string path = TempPath("written.png");
    for (int bytesPerPixel : {3, 4}) {
        Bitmap b(5, 3, bytesPerPixel);
        for (int i = 0; i < 5 * 3 * bytesPerPixel; ++i) b.data[i] = static_cast<uint8_t>(i * 7);
        ASSERT_TRUE(WriteBitmapPng(path, b));
        std::unique_ptr<Bitmap> back = DecodeFile(path);
        ASSERT_TRUE(back);
        EXPECT_EQ(back->bytesPerPixel, bytesPerPixel);
        EXPECT_EQ(std::memcmp(back->data.get(), b.data.get(), 5 * 3 * bytesPerPixel), 0);
        EXPECT_FALSE(std::filesystem::exists(path + ".tmp"));
    }
    // Two rows of two pixels, bottom row first, rows three pixels apart.
    const uint8_t surface[] = {1, 2, 3, 4, 5, 6, 0, 0, 0, 10, 20, 30, 40, 50, 60, 0, 0, 0};
    std::string error;
    ASSERT_TRUE(WritePng(path, surface, 2, 2, 3, error)) << error;
    std::unique_ptr<Bitmap> back = DecodeFile(path);
    ASSERT_TRUE(back);
    const uint8_t expected[] = {10, 20, 30, 40, 50, 60, 1, 2, 3, 4, 5, 6};
    EXPECT_EQ(std::memcmp(back->data.get(), expected, sizeof expected), 0);
    EXPECT_FALSE(WritePng(TempPath("no/such/dir/shot.png"), surface, 2, 2, 3, error));
    EXPECT_NE(error.find("no/such/dir"), std::string::npos);
    EXPECT_FALSE(WritePng(path, surface, 0, 2, 3, error));
}

std::vector<std::string>& Logged() {
    static std::vector<std::string> lines;
    return lines;
}

class ThemeLifetime : public ::testing::Test {
protected:
    void SetUp() override {
        Logged().clear();
        previous = SetLogSink([](int, const char* text) { Logged().push_back(text); });
    }
    void TearDown() override {
        while (theme::References() > 0) theme::Release();
        SetLogSink(previous);
    }
    LogSink previous = nullptr;
};

TEST_F(ThemeLifetime, FirstLoadsLastFrees) {
    EXPECT_EQ(theme::References(), 0);
    EXPECT_FALSE(theme::NormalFont());
    EXPECT_FALSE(theme::ShadowImage());

    theme::Acquire();
    const Font* normal = theme::NormalFont();
    ASSERT_TRUE(normal);
    theme::Acquire();  // a second window keeps what the first loaded
    EXPECT_EQ(theme::NormalFont(), normal);
    EXPECT_EQ(theme::References(), 2);

    theme::Release();
    EXPECT_EQ(theme::NormalFont(), normal);
    theme::Release();
    EXPECT_FALSE(theme::NormalFont());
    EXPECT_FALSE(theme::ShadowImage());
    theme::Release();  // one too many: ignored
    EXPECT_EQ(theme::References(), 0);
    EXPECT_EQ(Logged(),
              (std::vector<std::string>{"Not destroying Theme - still being used", "Destroying Theme"}));
}

TEST_F(ThemeLifetime, HoldsValidFontsAndImagesAndBlackOutsideThePalette) {
    theme::Acquire();
    for (const Font* font : {theme::NormalFont(), theme::BoldFont(), theme::MonoFont(), theme::LargeFont(),
                             theme::MonoLargeFont()}) {
        ASSERT_TRUE(font);
        EXPECT_TRUE(font->IsValid());
    }
    // Monospaced: every character advances the same.
    EXPECT_EQ(Renderer::MeasureText("iii", theme::MonoFont()).width,
              Renderer::MeasureText("WWW", theme::MonoFont()).width);
    EXPECT_GT(Renderer::MeasureText("Wide", theme::BoldFont()).width,
              Renderer::MeasureText("Wide", theme::NormalFont()).width);
    for (const Image* image :
         {theme::ShadowImage(), theme::TitleMarkerImage(), theme::IconImage(), theme::TopBarGlyphImage()})
        EXPECT_TRUE(image);
    EXPECT_EQ(theme::Palette(-1), 0xFF000000u);
    EXPECT_EQ(theme::Palette(theme::kPaletteSize), 0xFF000000u);
}

TEST_F(ThemeLifetime, ShadowFallsOutsideTheWindowOnly) {
    auto shadowed = [](int x, int y) {
        Bitmap b(100, 100, 3);
        Renderer(b).DrawShadow(20, 20, 40, 30);
        const uint8_t* p = b.Row(y) + x * 3;
        return p[0] < 0xFF;
    };
    EXPECT_FALSE(shadowed(60, 60));  // skipped without a Theme
    theme::Acquire();
    EXPECT_TRUE(shadowed(60, 55));   // below the window
    EXPECT_TRUE(shadowed(64, 40));   // right of it
    EXPECT_FALSE(shadowed(40, 35));  // under the window itself
    EXPECT_FALSE(shadowed(90, 90));  // beyond the margins
}

}  // namespace
}  // namespace G
