// Shadow images: corners copied from the sheet, edges repeated from the middle of its strips.
// The sheet's edge strips are uniform along their length, so repeating one line draws what
// stretching them draws.
#include "editor/shadow_cache.h"

#include <cstring>

#include "g/renderer.h"
#include "g/theme.h"

namespace editor {
namespace {

constexpr int kSheetSize = 149;
constexpr int kCorner = G::theme::kShadowCorner;
constexpr int kStripMiddle = kCorner + 10;  // the middle of a 20-pixel edge strip

// Where output position `p` of an edge `length` long reads the sheet; -1 in the open middle.
int SheetPosition(int p, int length) {
    if (p < kCorner) return p;
    if (p >= length - kCorner) return kSheetSize - (length - p);
    return -1;
}

}  // namespace

const G::Bitmap* ShadowCache::Get(int w, int h) {
    const auto key = std::make_pair(w, h);
    if (auto found = images.find(key); found != images.end()) return found->second.get();
    const auto* sheet = dynamic_cast<const G::Bitmap*>(G::theme::ShadowImage());
    const int width = w + G::theme::kShadowLeft + G::theme::kShadowRight;
    const int height = h + G::theme::kShadowTop + G::theme::kShadowBottom;
    if (!sheet || sheet->bytesPerPixel != 4 || sheet->width < kSheetSize || sheet->height < kSheetSize ||
        width < 2 * kCorner || height < 2 * kCorner) {
        return nullptr;
    }
    auto image = std::make_unique<G::Bitmap>(width, height, 4);
    for (int y = 0; y < height; ++y) {
        const int sy = SheetPosition(y, height);
        uint8_t* out = image->Row(y);
        for (int x = 0; x < width; ++x, out += 4) {
            const int sx = SheetPosition(x, width);
            if (sx < 0 && sy < 0) {
                std::memset(out, 0, 4);  // no centre piece
                continue;
            }
            std::memcpy(out, sheet->Row(sy < 0 ? kStripMiddle : sy) + (sx < 0 ? kStripMiddle : sx) * 4, 4);
        }
    }
    return (images[key] = std::move(image)).get();
}

void ShadowCache::Draw(G::Renderer& renderer, int x, int y, int w, int h) {
    if (const G::Bitmap* image = Get(w, h)) {
        renderer.DrawImage(image, float(x - G::theme::kShadowLeft), float(y - G::theme::kShadowTop));
    } else {
        renderer.DrawShadow(x, y, w, h);
    }
}

}  // namespace editor
