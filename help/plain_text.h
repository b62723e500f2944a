// Articles as text for a terminal: wrapped to a number of columns, the title underlined with
// "=", section headings with "-", entries marked "* ", and each link followed by the name
// of its article, as in "the LFO [→lfo]", so a reader can ask for it next.
#pragma once

#include <string>

#include "help/help_library.h"

// The article as UTF-8 lines ending in "\n". Widths count characters, one column each.
std::string PlainTextArticle(const HelpArticle& article, int columns);
