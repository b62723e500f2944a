// Pixel buffers: every control draws into its own 3-byte bitmap; PNG images are 4-byte.
#pragma once

#include <cstdint>
#include <memory>

namespace G {

class Image {
public:
    virtual ~Image() = default;
};

// Rows are packed with no padding. Three bytes a pixel are blue, green, red, top-down, the
// window surface's order; four bytes a pixel keep PNG order: red, green, blue, alpha.
class Bitmap : public Image {
public:
    // Filled with 0xFF (white, or opaque white for 4-byte bitmaps).
    Bitmap(int width, int height, int bytesPerPixel);

    int width;
    int height;
    int bytesPerPixel;
    std::unique_ptr<uint8_t[]> data;

    uint8_t* Row(int y) { return data.get() + static_cast<size_t>(y) * width * bytesPerPixel; }
    const uint8_t* Row(int y) const { return data.get() + static_cast<size_t>(y) * width * bytesPerPixel; }
};

}  // namespace G
