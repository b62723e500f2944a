// Line breaking of article items, in columns (every character one unit wide) where the answer
// can be written down, and in pixels on the real fonts.
#include "help/text_layout.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "g/utf8.h"
#include "help/help_library.h"
#include "help/plain_text.h"

namespace {

class Columns : public TextMetrics {
public:
    float Width(std::wstring_view text, int) const override { return static_cast<float>(text.size()); }
    float LineHeight(int style) const override { return style == kStyleTitle ? 2 : 1; }
};

TextLayoutItem Body(const std::wstring& text) { return {TextLayoutItem::kBody, kStyleBody, text}; }
TextLayoutItem Link(const std::wstring& text, int link) {
    return {TextLayoutItem::kLink, kStyleLink, text, link};
}
TextLayoutItem Break() { return {TextLayoutItem::kBreak, kStyleBody, {}}; }
TextLayoutItem Heading(const std::wstring& text, int style) {
    return {TextLayoutItem::kHeading, style, text};
}

// Each line as its text, runs placed at their columns.
std::vector<std::string> Lines(const TextLayout& layout) {
    std::vector<std::string> out;
    for (const TextLine& line : layout.lines) {
        std::wstring text;
        for (int r = line.firstRun; r < line.endRun; ++r) {
            text.resize(static_cast<size_t>(layout.runs[r].x), L' ');
            text += layout.runs[r].text;
        }
        out.push_back(G::ToUtf8(text));
    }
    return out;
}

struct WrapCase {
    std::vector<TextLayoutItem> items;
    float width;
    std::vector<std::string> lines;
};

class WrapAtWidth : public testing::TestWithParam<WrapCase> {};

TEST_P(WrapAtWidth, GivesLines) {
    TextLayout layout = LayOutItems(GetParam().items, GetParam().width, Columns());
    EXPECT_EQ(Lines(layout), GetParam().lines);
    if (GetParam().width > 0)
        for (const TextRun& run : layout.runs)
            EXPECT_LE(run.x + run.width, GetParam().width) << G::ToUtf8(run.text);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, WrapAtWidth,
    testing::Values(
        WrapCase{{Body(L"The quick brown fox jumps")}, 10, {"The quick", "brown fox", "jumps"}},
        // A line may fill the width exactly.
        WrapCase{{Body(L"The quick brown fox jumps")}, 9, {"The quick", "brown fox", "jumps"}},
        WrapCase{{Body(L"The quick brown fox jumps")}, 8, {"The", "quick", "brown", "fox", "jumps"}},
        // Only a word wider than the line is cut, and it starts a line of its own.
        WrapCase{{Body(L"a abcdefghij b")}, 4, {"a", "abcd", "efgh", "ij b"}},
        // A link and the full stop after it are one word.
        WrapCase{{Body(L"See the "), Link(L"LFO", 0), Body(L". Then")}, 7, {"See the", "LFO.", "Then"}},
        // Spaces never open a line; breaks end one, and two make an empty line.
        WrapCase{{Body(L"one "), Break(), Body(L"two"), Break(), Break(), Body(L"three")},
                 20,
                 {"one", "two", "", "three"}},
        // Multi-byte characters count as one and are never split.
        WrapCase{{Body(L"½×½ ééé ×")}, 3, {"½×½", "ééé", "×"}},
        WrapCase{{Body(L"ééééé")}, 2, {"éé", "éé", "é"}},
        // No width at all still moves on, one character per line.
        WrapCase{{Body(L"ab")}, 0, {"a", "b"}}));

TEST(TextLayout, HeadingsStandOnLinesOfTheirOwnWithTheirSpacingAndHeight) {
    class Spaced : public Columns {
    public:
        float SpaceBefore(int style) const override { return style == kStyleHeading ? 5 : 0; }
        float SpaceAfter(int style) const override { return style == kStyleTitle ? 3 : 0; }
    };
    TextLayout layout = LayOutItems({Heading(L"Big title words", kStyleTitle), Body(L"text"),
                                     Heading(L"Part", kStyleHeading), Body(L"more")},
                                    10, Spaced());
    EXPECT_EQ(Lines(layout), (std::vector<std::string>{"Big title", "words", "text", "Part", "more"}));
    std::vector<float> tops, heights;
    std::vector<int> headings;
    for (const TextLine& line : layout.lines) {
        tops.push_back(line.y);
        heights.push_back(line.height);
        headings.push_back(line.heading);
    }
    EXPECT_EQ(tops, (std::vector<float>{0, 2, 7, 13, 14}));
    EXPECT_EQ(heights, (std::vector<float>{2, 2, 1, 1, 1}));
    EXPECT_EQ(headings, (std::vector<int>{kStyleTitle, kStyleTitle, -1, kStyleHeading, -1}));
    EXPECT_EQ(layout.height, 15);
}

TEST(TextLayout, LinksAreHitWhereTheirWordsStand) {
    TextLayout layout =
        LayOutItems({Body(L"Go to "), Link(L"the LFO", 0), Body(L" or "), Link(L"home", 1)}, 12, Columns());
    ASSERT_EQ(Lines(layout), (std::vector<std::string>{"Go to the", "LFO or home"}));
    EXPECT_EQ(layout.LinkAt(6.5f, 0.5f), 0);    // "the"
    EXPECT_EQ(layout.LinkAt(1.0f, 1.5f), 0);    // "LFO" on the next line
    EXPECT_EQ(layout.LinkAt(8.0f, 1.5f), 1);    // "home"
    EXPECT_EQ(layout.LinkAt(1.0f, 0.5f), -1);   // plain text
    EXPECT_EQ(layout.LinkAt(11.5f, 1.5f), -1);  // past the end of the line
    EXPECT_EQ(layout.LinkAt(6.5f, 2.5f), -1);   // below the text
}

TEST(TextLayout, FontMetricsKeepEveryLineInsideTheWidthInPixels) {
    HelpLibrary library("");
    FontMetrics metrics(library.Styles());
    std::vector<TextLayoutItem> items = {
        Heading(L"Oscillator", kStyleTitle),
        Body(L"A steady tone at the pitch of the note, with a choice of waves: sine, "
             L"saw, square and triangle, and a fine tune of ±½ semitone. See "),
        Link(L"the envelope", 0), Body(L" for shaping it.")};
    size_t previousLines = 1000;
    for (float width : {120.0f, 200.0f, 300.0f}) {
        TextLayout layout = LayOutItems(items, width, metrics);
        std::string all;
        for (const TextRun& run : layout.runs) {
            EXPECT_LE(run.x + run.width, width + 0.01f) << G::ToUtf8(run.text);
            EXPECT_GT(run.height, 10.0f);
            all += G::ToUtf8(run.text) + " ";
        }
        EXPECT_NE(all.find("±½ "), std::string::npos);  // words whole, characters whole
        EXPECT_LT(layout.lines.size(), previousLines) << "at " << width;
        previousLines = layout.lines.size();
        EXPECT_GT(layout.height, layout.lines.back().y);
    }
}

TEST(PlainText, AnArticleReadsInATerminal) {
    HelpLibrary library(R"(<manual><block name="lfo"><title>Low frequency oscillator</title>
<screenname type="3">LFO</screenname>
<Introduction>Moves a <a href="filter">filter's cutoff</a> slowly.<br/><br/>Try it on pitch.</Introduction>
<Parameter name="Rate">From 0.01 to 20 Hz.</Parameter></block></manual>)");
    ASSERT_EQ(library.Articles().size(), 1u);
    EXPECT_EQ(PlainTextArticle(*library.Articles()[0], 24),
              "Low frequency oscillator\n"
              "========================\n"
              "\n"
              "Introduction\n"
              "------------\n"
              "Moves a filter's\n"
              "cutoff [→filter] slowly.\n"
              "\n"
              "Try it on pitch.\n"
              "\n"
              "Parameters\n"
              "----------\n"
              "\n"
              "* Rate\n"
              "From 0.01 to 20 Hz.\n");
    // The link's target stays with its last word, whatever the width.
    std::string narrow = PlainTextArticle(*library.Articles()[0], 16);
    EXPECT_NE(narrow.find("\ncutoff [→filter]\n"), std::string::npos) << narrow;
}

}  // namespace
