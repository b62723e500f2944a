// UTF-8 encoding of wide strings.
#include "g/utf8.h"

namespace G {

void AppendUtf8(std::string& out, uint32_t code) {
    if (code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) code = 0xFFFD;
    if (code < 0x80) {
        out += static_cast<char>(code);
    } else if (code < 0x800) {
        out += static_cast<char>(0xC0 | (code >> 6));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        out += static_cast<char>(0xE0 | (code >> 12));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | (code >> 18));
        out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
        out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
        out += static_cast<char>(0x80 | (code & 0x3F));
    }
}

std::string ToUtf8(std::wstring_view text) {
    std::string out;
    out.reserve(text.size());
    for (wchar_t c : text) AppendUtf8(out, static_cast<uint32_t>(c));
    return out;
}

std::wstring FromUtf8(std::string_view text) {
    std::wstring out;
    out.reserve(text.size());
    size_t i = 0;
    while (i < text.size()) {
        auto byte = [&](size_t k) { return static_cast<unsigned char>(text[k]); };
        unsigned char lead = byte(i);
        int extra = lead < 0x80             ? 0
                    : (lead & 0xE0) == 0xC0 ? 1
                    : (lead & 0xF0) == 0xE0 ? 2
                    : (lead & 0xF8) == 0xF0 ? 3
                                            : -1;
        uint32_t code = extra == 0 ? lead : extra == 1 ? lead & 0x1F : extra == 2 ? lead & 0x0F : lead & 0x07;
        bool good = extra >= 0 && i + extra < text.size();
        for (int k = 1; good && k <= extra; ++k) {
            if ((byte(i + k) & 0xC0) != 0x80)
                good = false;
            else
                code = (code << 6) | (byte(i + k) & 0x3F);
        }
        static constexpr uint32_t kSmallest[4] = {0, 0x80, 0x800, 0x10000};
        if (good && (code < kSmallest[extra] || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)))
            good = false;
        if (!good) {
            out += L'\uFFFD';
            ++i;
            continue;
        }
        out += static_cast<wchar_t>(code);
        i += extra + 1;
    }
    return out;
}

}  // namespace G
