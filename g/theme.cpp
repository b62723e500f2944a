// The Theme's globals: palette, five fonts and four images, loaded by the first root control
// and freed by the last. GUI thread only, so the counter needs no lock.
#include "g/theme.h"

#include <array>
#include <memory>

#include "engine/log.h"
#include "resources/images.h"

namespace G::theme {
namespace {

constexpr Color kPalette[kPaletteSize] = {
    0xFFFFFFFF, 0xFFF0F0F0, 0xFFF2F2F2, 0xFFFFFFFF, 0xFFFFF9DD, 0xFFFFF4BF, 0xFFFFEA7F,
    0xFFFFCABF, 0xFFF0F0F0, 0xFFDCDCDC, 0xFFC8C8C8, 0xFFB4B4B4, 0xFFF2FFD3, 0xFFEDFFBE,
    0xFFE9FFB6, 0xFFD9FF7F, 0xFFFF847F, 0xFFFFCAC0, 0xFFD9FF7F, 0xFFEDFFBE, 0xFFFFEA7F,
    0xFFFFF4BF, 0xFF7FA8FF, 0xFFBFD3FF, 0xFFD2D2D2, 0xFFE1E1E1, 0xFF7FA8FF, 0xFFFF847F,
    0xFF969696, 0xFF000000, 0xFF7FA8FF, 0xFFFF0000, 0xFFD9E5FF, 0xFFFFFFFF,
};

enum FontSlot { kNormal, kBold, kMono, kLarge, kMonoLarge, kFontCount };
enum ImageSlot { kShadow, kTitleMarker, kIcon, kTopBarGlyph, kImageCount };

struct FontRecipe {
    const char* face;
    float size;
    bool bold;
};

constexpr FontRecipe kFontRecipes[kFontCount] = {
    {"Arial", 10, false}, {"Arial", 10, true},          {"Lucida Console", 10, false},
    {"Arial", 18, false}, {"Lucida Console", 13, true},
};

// Resource ids of the images, in slot order.
constexpr int kImageIds[kImageCount] = {139, 140, 141, 142};

int references = 0;
std::array<std::unique_ptr<Font>, kFontCount> fonts;
std::array<std::unique_ptr<Bitmap>, kImageCount> images;

void Load() {
    for (int i = 0; i < kFontCount; ++i) {
        const FontRecipe& recipe = kFontRecipes[i];
        auto font = std::make_unique<Font>(recipe.size, recipe.bold, recipe.face);
        if (font->IsValid()) fonts[i] = std::move(font);
    }
    for (int i = 0; i < kImageCount; ++i) {
        resources::EmbeddedImage png = resources::EmbeddedPng(kImageIds[i]);
        images[i] = DecodePng(png.data, png.size);
    }
}

void Unload() {
    for (auto& font : fonts) font.reset();
    for (auto& image : images) image.reset();
}

}  // namespace

Color Palette(int index) { return index >= 0 && index < kPaletteSize ? kPalette[index] : 0xFF000000; }

void Acquire() {
    if (references++ == 0) Load();
}

void Release() {
    if (references == 0) return;
    if (--references > 0) {
        Log(0, "Not destroying Theme - still being used");
        return;
    }
    Log(0, "Destroying Theme");
    Unload();
}

int References() { return references; }

const Font* NormalFont() { return fonts[kNormal].get(); }
const Font* BoldFont() { return fonts[kBold].get(); }
const Font* MonoFont() { return fonts[kMono].get(); }
const Font* LargeFont() { return fonts[kLarge].get(); }
const Font* MonoLargeFont() { return fonts[kMonoLarge].get(); }
const Image* ShadowImage() { return images[kShadow].get(); }
const Image* TitleMarkerImage() { return images[kTitleMarker].get(); }
const Image* IconImage() { return images[kIcon].get(); }
const Image* TopBarGlyphImage() { return images[kTopBarGlyph].get(); }

}  // namespace G::theme
