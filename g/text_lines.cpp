// Line splitting for message texts.
#include "g/text_lines.h"

namespace G {

std::vector<std::string> SplitLines(std::string_view text) {
    std::vector<std::string> lines(1);
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (c == '\r' || c == '\n') {
            // "\r\n" is one break.
            if (c == '\r' && i + 1 < text.size() && text[i + 1] == '\n') ++i;
            lines.emplace_back();
        } else {
            lines.back() += c;
        }
    }
    return lines;
}

}  // namespace G
