// Splitting a message into its lines. Texts come from several line-ending traditions (the
// editor's warnings use "\r"), and every one of them must break a line.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace G {

// Lines of `text`, broken at "\r\n", "\r" or "\n"; an empty text is one empty line.
std::vector<std::string> SplitLines(std::string_view text);

}  // namespace G
