// UTF-8 encoding and decoding of the toolkit's wide strings, for window titles, the clipboard, printing
// and the manual.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace G {

// Surrogates and code points past Unicode become U+FFFD.
void AppendUtf8(std::string& out, uint32_t code);
std::string ToUtf8(std::wstring_view text);
// Decodes UTF-8; a malformed or overlong sequence, a surrogate or a truncated tail gives one
// U+FFFD per bad byte, so text from outside never stops decoding half way.
std::wstring FromUtf8(std::string_view text);

}  // namespace G
