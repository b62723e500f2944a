// The terminal rendering of an article, on the same line breaking as the display.
#include "help/plain_text.h"

#include <algorithm>

#include "g/utf8.h"
#include "help/text_layout.h"

namespace {

// Joins a link to its target's name without a breaking space; printed as a plain space.
constexpr wchar_t kNoBreak = L'\u00A0';

// One column per character, one row per line; a heading has a blank row above it and, for the
// title and section headings, a row below for its underline.
class ColumnMetrics : public TextMetrics {
public:
    float Width(std::wstring_view text, int) const override { return static_cast<float>(text.size()); }
    float LineHeight(int) const override { return 1; }
    float SpaceBefore(int style) const override { return 1; }
    float SpaceAfter(int style) const override { return Underline(style) ? 1 : 0; }

    static char Underline(int style) { return style == kStyleTitle ? '=' : style == kStyleHeading ? '-' : 0; }
};

std::vector<TextLayoutItem> TerminalItems(const HelpArticle& article) {
    std::vector<TextLayoutItem> items = article.items;
    for (TextLayoutItem& item : items) {
        if (item.kind == TextLayoutItem::kHeading && item.style == kStyleEntry) item.text = L"* " + item.text;
        if (item.kind == TextLayoutItem::kLink && item.link >= 0) {
            // A trailing space of the link text goes after the target, where it separates words.
            bool space = !item.text.empty() && item.text.back() == L' ';
            if (space) item.text.pop_back();
            item.text += kNoBreak + (L"[→" + G::FromUtf8(article.links[item.link].href) + L"]");
            if (space) item.text += L' ';
        }
    }
    return items;
}

}  // namespace

std::string PlainTextArticle(const HelpArticle& article, int columns) {
    ColumnMetrics metrics;
    TextLayout layout =
        LayOutItems(TerminalItems(article), static_cast<float>(std::max(columns, 1)), metrics);
    std::wstring out;
    int row = 0;
    size_t underline = 0;  // width of the heading lines met so far
    for (size_t i = 0; i < layout.lines.size(); ++i) {
        const TextLine& line = layout.lines[i];
        for (; row < static_cast<int>(line.y); ++row) out += L'\n';
        std::wstring text;
        for (int r = line.firstRun; r < line.endRun; ++r) {
            const TextRun& run = layout.runs[r];
            text.resize(static_cast<size_t>(run.x), L' ');
            text += run.text;
        }
        std::replace(text.begin(), text.end(), kNoBreak, L' ');
        out += text + L'\n';
        ++row;
        underline = std::max(underline, text.size());
        char mark = ColumnMetrics::Underline(line.heading);
        bool lastOfHeading = i + 1 == layout.lines.size() || layout.lines[i + 1].heading != line.heading ||
                             layout.lines[i + 1].y != line.y + 1;
        if (mark && lastOfHeading) {
            out += std::wstring(underline, mark) + L'\n';
            ++row;
        }
        if (line.heading < 0 || lastOfHeading) underline = 0;
    }
    return G::ToUtf8(out);
}
