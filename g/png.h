// Writing PNG files: window screenshots and bitmaps dumped by tests. Decoding lives beside the
// Theme (DecodePng in theme.h).
#pragma once

#include <cstdint>
#include <string>

#include "g/bitmap.h"

namespace G {

// Writes an 8-bit RGB PNG from the window surface's layout: blue, green, red, rows bottom-up,
// `rowLengthPixels` pixels apart. The file appears whole or not at all (written under a
// temporary name, then renamed). On failure returns false with a message in `error`.
bool WritePng(const std::string& path, const uint8_t* bgrBottomUp, int width, int height, int rowLengthPixels,
              std::string& error);

// A 3-byte bitmap becomes an RGB PNG, a 4-byte one RGBA, both top-down as stored. The reason
// for a failure goes to `error` when one is given.
bool WriteBitmapPng(const std::string& path, const Bitmap& bitmap, std::string* error = nullptr);

}  // namespace G
