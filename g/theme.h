// The Theme: palette, fonts and images shared by every window. Reference-counted by the root
// controls: the first one loads it, the last one frees it. GUI thread only, unlocked.
#pragma once

#include "g/geometry.h"
#include "g/renderer.h"

namespace G {

class Renderer;

// Paints a control's background in place of the default recipe. `area` is given in the
// coordinates of the control's parent (normally the renderer itself), and the renderer's view
// is moved so that those coordinates land in the control's bitmap: the renderer paints its own
// surface as it stands, and the control receives the part under it.
class BackgroundRenderer {
public:
    virtual ~BackgroundRenderer() = default;
    virtual void PaintBackground(Renderer& renderer, const Rect& area) = 0;
};

// Lets an owner draw an item of a list widget or an owner-drawn button. `state` is the
// button state: 0 idle, 1 hovered, 2 pressed.
class ItemPainter {
public:
    virtual ~ItemPainter() = default;
    virtual void PaintItem(int id, Renderer& renderer, const Rect& area, int state) {}
};

// A text style of the manual display.
struct LayoutStyle {
    const Font* font = nullptr;
    Color color = 0xFF000000;
    int alignment = 1;
    float size = 10.0f;
    float spacingBefore = 0;
    float spacingAfter = 0;
    bool bold = false;
};

namespace theme {

constexpr int kPaletteSize = 34;
constexpr int kTextColor = 29;
constexpr int kAccent = 30;

// Shadow sheet geometry.
constexpr int kShadowLeft = 8;
constexpr int kShadowTop = 7;
constexpr int kShadowRight = 14;
constexpr int kShadowBottom = 14;
constexpr int kShadowCorner = 17;

// Opaque black for an index outside the palette.
Color Palette(int index);

// Counted by root controls. The first acquire loads images and fonts; the last release frees
// them and logs "Destroying Theme", earlier ones log "Not destroying Theme - still being used".
void Acquire();
void Release();
int References();

// Null while no root holds the Theme, or when a font or image could not be loaded.
const Font* NormalFont();
const Font* BoldFont();
const Font* MonoFont();
const Font* LargeFont();
const Font* MonoLargeFont();
const Image* ShadowImage();       // 149 x 149
const Image* TitleMarkerImage();  // 11 x 9
const Image* IconImage();         // 32 x 32
const Image* TopBarGlyphImage();  // 9 x 9

}  // namespace theme

// Decodes a PNG held in memory: colour type 2 gives a 3-byte bitmap in blue, green, red
// order, type 6 a 4-byte bitmap as stored. Anything else, or damaged data, gives null.
std::unique_ptr<Bitmap> DecodePng(const uint8_t* bytes, size_t size);

}  // namespace G
