// Fonts: a face name resolved through fontconfig to a file, loaded into AGG's FreeType engine
// with gray 8-bit glyphs and a glyph cache.
#include <fontconfig/fontconfig.h>
#include <strings.h>

#include <optional>
#include <vector>

#include "g/font_record.h"
#include "g/renderer.h"

namespace G {
namespace {

struct FaceFile {
    std::string path;
    int index = 0;
};

// The Windows faces the theme asks for are rarely installed here; metric-compatible or
// look-alike families stand in, the original name first in case it is present.
std::vector<const char*> Candidates(const std::string& face) {
    if (strcasecmp(face.c_str(), "Arial") == 0) return {"Arial", "Liberation Sans", "Arimo"};
    if (strcasecmp(face.c_str(), "Lucida Console") == 0) {
        return {"Lucida Console", "DejaVu Sans Mono", "Liberation Mono"};
    }
    return {face.c_str()};
}

bool HasFamily(FcPattern* match, const char* family) {
    FcChar8* value = nullptr;
    for (int i = 0; FcPatternGetString(match, FC_FAMILY, i, &value) == FcResultMatch; ++i) {
        if (strcasecmp(reinterpret_cast<const char*>(value), family) == 0) return true;
    }
    return false;
}

// fontconfig always answers with some face; only one of the asked family counts as found.
std::optional<FaceFile> FindFamily(const char* family, bool bold) {
    if (!FcInit()) return std::nullopt;
    FcPattern* pattern = FcPatternCreate();
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(family));
    FcPatternAddInteger(pattern, FC_WEIGHT, bold ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
    FcPatternAddInteger(pattern, FC_SLANT, FC_SLANT_ROMAN);
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(nullptr, pattern, &result);
    FcPatternDestroy(pattern);
    std::optional<FaceFile> found;
    FcChar8* file = nullptr;
    if (match && HasFamily(match, family) && FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch) {
        found = FaceFile{reinterpret_cast<const char*>(file), 0};
        FcPatternGetInteger(match, FC_INDEX, 0, &found->index);
    }
    if (match) FcPatternDestroy(match);
    return found;
}

std::optional<FaceFile> Resolve(const std::string& face, bool bold) {
    for (const char* family : Candidates(face)) {
        if (auto found = FindFamily(family, bold)) return found;
    }
    return std::nullopt;
}

}  // namespace

Font::Font(float sizePx, bool bold, const std::string& face) : size(sizePx) {
    std::optional<FaceFile> file = Resolve(face, bold);
    if (!file || !(sizePx > 0)) return;
    auto font = std::make_shared<FontRecord>();
    FontRecord::Engine& engine = font->engine;
    if (!engine.load_font(file->path.c_str(), file->index, agg::glyph_ren_agg_gray8)) return;
    engine.hinting(false);
    engine.flip_y(true);
    engine.height(sizePx);
    engine.width(0);
    font->file = file->path;
    font->lineValue = -engine.descender();
    font->cache.precache(32, 127);
    record = std::move(font);
}

Font::~Font() = default;

}  // namespace G
