// UTF-8 encoding of the toolkit's wide strings, for window titles, the clipboard and printing.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace G {

// Surrogates and code points past Unicode become U+FFFD.
void AppendUtf8(std::string& out, uint32_t code);
std::string ToUtf8(std::wstring_view text);

}  // namespace G
