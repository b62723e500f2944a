// The theme's PNG images, embedded in the binary at build time (see embed.cmake).
#pragma once

#include <cstddef>

namespace resources {

struct EmbeddedImage {
    const unsigned char* data;
    size_t size;
};

// The PNG bytes of image `id`: 139 shadow sheet, 140 title marker, 141 icon, 142 top bar
// glyph. An unknown id gives {nullptr, 0}, as a missing resource would.
EmbeddedImage EmbeddedPng(int id);

}  // namespace resources
