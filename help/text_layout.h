// Placing an article's items in lines of a given width. Lines break only between words (at
// spaces, breaks and headings); a word made of several items, such as a link followed by a
// full stop, moves as one, and only a word wider than the whole line is cut, between
// characters. The same layout serves pixels (font metrics) and terminal columns.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "help/help_library.h"

// What the layout needs to know about the styles: widths of texts and heights of lines, in
// any unit, pixels or columns.
class TextMetrics {
public:
    virtual ~TextMetrics() = default;
    virtual float Width(std::wstring_view text, int style) const = 0;
    virtual float LineHeight(int style) const = 0;
    // Extra space above and below a heading line of `style`.
    virtual float SpaceBefore(int style) const { return 0; }
    virtual float SpaceAfter(int style) const { return 0; }
};

// The metrics of a LayoutSet's fonts, in pixels.
class FontMetrics : public TextMetrics {
public:
    explicit FontMetrics(const LayoutSet& set) : set(set) {}
    float Width(std::wstring_view text, int style) const override;
    float LineHeight(int style) const override;
    float SpaceBefore(int style) const override;
    float SpaceAfter(int style) const override;

private:
    const LayoutSet& set;
};

// One piece of text placed on a line: its box starts at (x, y), y being the top of the line.
struct TextRun {
    float x = 0, y = 0, width = 0, height = 0;
    int style = kStyleBody;
    int link = -1;
    std::wstring text;
};

struct TextLine {
    float y = 0, height = 0;
    int heading = -1;  // the style of a heading line, -1 for body lines
    int firstRun = 0, endRun = 0;
};

struct TextLayout {
    std::vector<TextRun> runs;
    std::vector<TextLine> lines;
    float height = 0;

    // The link under (x, y), or -1.
    int LinkAt(float x, float y) const;
};

TextLayout LayOutItems(const std::vector<TextLayoutItem>& items, float width, const TextMetrics& metrics);
