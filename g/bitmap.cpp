// The packed pixel buffer every control draws into.
#include "g/bitmap.h"

#include <algorithm>
#include <cstring>

namespace G {

Bitmap::Bitmap(int width, int height, int bytesPerPixel)
    : width(std::max(width, 0)), height(std::max(height, 0)), bytesPerPixel(bytesPerPixel == 4 ? 4 : 3) {
    size_t bytes = static_cast<size_t>(this->width) * this->height * this->bytesPerPixel;
    data = std::make_unique<uint8_t[]>(bytes);
    std::memset(data.get(), 0xFF, bytes);
}

}  // namespace G
