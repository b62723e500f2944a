// Base64 as the patch format uses it for sample data: the standard alphabet, "=" padding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace document {

std::string EncodeBase64(const uint8_t* bytes, size_t count);

// Lenient on purpose, as patches were written by hand and by other tools: characters
// outside the alphabet (line breaks, blanks) are skipped, and decoding stops at the first
// "=". A trailing group of fewer than 8 bits is dropped.
std::vector<uint8_t> DecodeBase64(std::string_view text);

}  // namespace document
