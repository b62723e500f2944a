// The AGG FreeType engine and glyph cache behind a `Font`. Only font.cpp and renderer.cpp see
// it, so AGG and FreeType headers stay out of the toolkit's public headers.
#pragma once

#include <agg_font_cache_manager.h>
#include <agg_font_freetype.h>

#include <string>

namespace G {

struct FontRecord {
    using Engine = agg::font_engine_freetype_int32;
    using Cache = agg::font_cache_manager<Engine>;

    FontRecord() : cache(engine) {}

    // Depth of a line below the baseline, in pixels: a text's height is this plus the size.
    double lineValue = 0;
    bool kerning = true;
    std::string file;  // the face file fontconfig chose
    Engine engine;
    Cache cache;
};

}  // namespace G
