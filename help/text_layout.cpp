// Word wrapping of article items.
#include "help/text_layout.h"

#include <algorithm>

#include "g/renderer.h"

float FontMetrics::Width(std::wstring_view text, int style) const {
    return G::Renderer::MeasureText(text, set.styles[style].font).width;
}

// A font that failed to load measures 0; its size still keeps the lines apart.
float FontMetrics::LineHeight(int style) const {
    const G::LayoutStyle& s = set.styles[style];
    return std::max(G::Renderer::MeasureText(L"", s.font).height, s.size) + 2;
}

float FontMetrics::SpaceBefore(int style) const { return set.styles[style].spacingBefore; }
float FontMetrics::SpaceAfter(int style) const { return set.styles[style].spacingAfter; }

int TextLayout::LinkAt(float x, float y) const {
    for (const TextRun& run : runs)
        if (run.link >= 0 && x >= run.x && x < run.x + run.width && y >= run.y && y < run.y + run.height)
            return run.link;
    return -1;
}

namespace {

struct Piece {
    std::wstring text;
    int style;
    int link;
};

class LineBuilder {
public:
    LineBuilder(float width, const TextMetrics& metrics, TextLayout& out)
        : width(width), metrics(metrics), out(out) {}

    void Text(const std::wstring& text, int style, int link) {
        for (wchar_t c : text) {
            if (c == L' ') {
                FlushWord();
                // The space takes the style of what precedes it, so an underline can span it.
                if (!Empty()) pendingSpace = metrics.Width(L" ", style);
            } else {
                if (word.empty() || word.back().style != style || word.back().link != link)
                    word.push_back({{}, style, link});
                word.back().text += c;
            }
        }
    }

    void Break() {
        FlushWord();
        EndLine();
    }

    void Heading(const std::wstring& text, int style) {
        FlushWord();
        if (!Empty()) EndLine();
        if (!out.lines.empty()) y += metrics.SpaceBefore(style);
        heading = style;
        Text(text, style, -1);
        FlushWord();
        if (!Empty()) EndLine();
        heading = -1;
        y += metrics.SpaceAfter(style);
    }

    void Finish() {
        FlushWord();
        if (!Empty()) EndLine();
        out.height = y;
    }

private:
    bool Empty() const { return out.runs.size() == static_cast<size_t>(lineStart); }

    void Place(std::wstring text, int style, int link, float w) {
        out.runs.push_back({x, 0, w, 0, style, link, std::move(text)});
        x += w;
    }

    void FlushWord() {
        if (word.empty()) return;
        float total = 0;
        for (const Piece& p : word) total += metrics.Width(p.text, p.style);
        if (!Empty() && x + pendingSpace + total > width) EndLine();
        if (!Empty()) x += pendingSpace;
        pendingSpace = 0;
        if (total <= width - x) {
            for (Piece& p : word) {
                float w = metrics.Width(p.text, p.style);
                Place(std::move(p.text), p.style, p.link, w);
            }
        } else {
            for (Piece& p : word) Cut(p);
        }
        word.clear();
    }

    // A word wider than the line, cut between characters: each line takes as much as fits,
    // and at least one character, so the layout always moves on.
    void Cut(const Piece& piece) {
        std::wstring_view rest = piece.text;
        while (!rest.empty()) {
            size_t n = 0;
            while (n < rest.size() && x + metrics.Width(rest.substr(0, n + 1), piece.style) <= width) ++n;
            if (n == 0 && !Empty()) {
                EndLine();
                continue;
            }
            n = std::max<size_t>(n, 1);
            float w = metrics.Width(rest.substr(0, n), piece.style);
            Place(std::wstring(rest.substr(0, n)), piece.style, piece.link, w);
            rest.remove_prefix(n);
            if (!rest.empty()) EndLine();
        }
    }

    void EndLine() {
        int end = static_cast<int>(out.runs.size());
        float height = metrics.LineHeight(heading >= 0 ? heading : kStyleBody);
        for (int i = lineStart; i < end; ++i)
            height = std::max(height, metrics.LineHeight(out.runs[i].style));
        for (int i = lineStart; i < end; ++i) {
            out.runs[i].y = y;
            out.runs[i].height = height;
        }
        out.lines.push_back({y, height, heading, lineStart, end});
        y += height;
        x = 0;
        pendingSpace = 0;
        lineStart = end;
    }

    float width;
    const TextMetrics& metrics;
    TextLayout& out;
    std::vector<Piece> word;  // the word being read, possibly over several items
    float x = 0, y = 0;
    float pendingSpace = 0;
    int lineStart = 0;
    int heading = -1;
};

}  // namespace

TextLayout LayOutItems(const std::vector<TextLayoutItem>& items, float width, const TextMetrics& metrics) {
    TextLayout layout;
    LineBuilder builder(width, metrics, layout);
    for (const TextLayoutItem& item : items) {
        switch (item.kind) {
            case TextLayoutItem::kHeading:
                builder.Heading(item.text, item.style);
                break;
            case TextLayoutItem::kBody:
            case TextLayoutItem::kLink:
                builder.Text(item.text, item.style, item.link);
                break;
            case TextLayoutItem::kBreak:
                builder.Break();
                break;
        }
    }
    builder.Finish();
    return layout;
}
