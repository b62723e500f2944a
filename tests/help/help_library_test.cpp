// Reading small manuals into articles: sections and their headings, inline elements, whitespace,
// lookups, and the manuals that must give no articles without failing.
#include "help/help_library.h"

#include <gtest/gtest.h>
#include <tinyxml.h>

#include <string>
#include <vector>

#include "engine/log.h"
#include "g/utf8.h"
#include "help/manual_resource.h"

namespace {

// An item as "kind:style:text" ("B" break, "H" heading, "T" body, "L" link with its href).
std::vector<std::string> Describe(const HelpArticle& article) {
    std::vector<std::string> out;
    for (const TextLayoutItem& item : article.items) {
        std::string text = G::ToUtf8(item.text);
        switch (item.kind) {
            case TextLayoutItem::kHeading:
                out.push_back("H" + std::to_string(item.style) + ":" + text);
                break;
            case TextLayoutItem::kBody:
                out.push_back("T:" + text);
                break;
            case TextLayoutItem::kLink:
                out.push_back("L:" + text + "->" + article.links[item.link].href);
                break;
            case TextLayoutItem::kBreak:
                out.push_back("B");
                break;
        }
    }
    return out;
}

std::string Manual(const std::string& blocks) {
    return "<?xml version=\"1.0\"?>\n<manual>" + blocks + "</manual>";
}

TEST(HelpLibrary, SectionsComeInTheirOrderWithTheirHeadingsWhateverTheSourceOrder) {
    HelpLibrary library(Manual(R"(
<block name="osc">
  <Notes>Watch the level.</Notes>
  <Input name="Pitch modulation input">Adds semitones.</Input>
  <screenname type="4">|Osc</screenname>
  <Parameter name="Wave">Picks the shape.</Parameter>
  <title>Oscillator</title>
  <Introduction>Makes a tone.</Introduction>
  <Parameter name="Fine">Tunes by cents.</Parameter>
  <screenname>Osc</screenname>
</block>)"));
    ASSERT_EQ(library.Articles().size(), 1u);
    const HelpArticle& a = *library.Articles()[0];
    EXPECT_EQ(a.name, "osc");
    EXPECT_EQ(a.title, L"Oscillator");
    EXPECT_EQ(a.library, &library);
    EXPECT_EQ(a.screenNames, (std::vector<std::wstring>{L"|Osc", L"Osc"}));
    EXPECT_EQ(a.screenTypes, (std::vector<int>{4, -1}));
    EXPECT_EQ(a.parameters, (std::vector<std::string>{"Wave", "Fine"}));
    EXPECT_EQ(a.inputs, (std::vector<std::string>{"Pitch modulation input"}));
    EXPECT_EQ(Describe(a),
              (std::vector<std::string>{"H1:Oscillator", "H2:Introduction", "T:Makes a tone.",
                                        "H2:Parameters", "H3:Wave", "T:Picks the shape.", "H3:Fine",
                                        "T:Tunes by cents.", "H2:Inputs", "H3:Pitch modulation input",
                                        "T:Adds semitones.", "H2:Notes", "T:Watch the level."}));
}

TEST(HelpLibrary, AbsentSectionsAddNoHeadingAndOnlyTheFirstSingleSectionCounts) {
    HelpLibrary library(Manual(R"(<block name="a"><Notes>one</Notes><Notes>two</Notes></block>
<block name="b"></block><block><title>Nameless</title></block>)"));
    ASSERT_EQ(library.Articles().size(), 3u);
    EXPECT_EQ(Describe(*library.Articles()[0]), (std::vector<std::string>{"H2:Notes", "T:one"}));
    EXPECT_TRUE(library.Articles()[1]->items.empty());
    EXPECT_EQ(library.Articles()[2]->name, "");
    EXPECT_EQ(Describe(*library.Articles()[2]), (std::vector<std::string>{"H1:Nameless"}));
}

struct InlineCase {
    const char* body;
    std::vector<std::string> items;
};

class HelpLibraryInline : public testing::TestWithParam<InlineCase> {};

TEST_P(HelpLibraryInline, IntroductionReadsAs) {
    HelpLibrary library(Manual(std::string("<block name=\"x\"><Introduction>") + GetParam().body +
                               "</Introduction></block>"));
    ASSERT_EQ(library.Articles().size(), 1u) << library.Error();
    std::vector<std::string> items = Describe(*library.Articles()[0]);
    items.erase(items.begin());  // the "Introduction" heading
    EXPECT_EQ(items, GetParam().items);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, HelpLibraryInline,
    testing::Values(
        // Whitespace of any kind collapses, and none opens a paragraph.
        InlineCase{"\n   Two\tlines\n   of   text.\n", {"T:Two lines of text. "}},
        // Spaces beside a link survive on both sides; one space is kept where two meet.
        InlineCase{"See <a href=\"lfo\">the LFO</a> for more.", {"T:See ", "L:the LFO->lfo", "T: for more."}},
        InlineCase{"See <a href=\"lfo\"> the LFO </a> now", {"T:See ", "L:the LFO ->lfo", "T:now"}},
        // Breaks end a line; the space after one is dropped, so a new paragraph starts flush.
        InlineCase{"One.<br/><br/>\n  Two.", {"T:One.", "B", "B", "T:Two."}},
        // Inline headings keep their level; h1 uses the title style.
        InlineCase{"<h1>Big</h1><h2> Mid\n level </h2><h3>Small</h3>text",
                   {"H1:Big", "H2:Mid level", "H3:Small", "T:text"}},
        // A link without href still pairs with a record; unknown elements and comments vanish.
        InlineCase{"<a>bare</a><b>bold</b><!-- note -->end", {"L:bare->", "T:end"}},
        // Entities and multi-byte text come through whole.
        InlineCase{"5 &lt; 6 &amp; 1–2 × ½", {"T:5 < 6 & 1–2 × ½"}}));

TEST(HelpLibrary, FindsByNameThenScreenNameAndBlocksByDisplayNameAndType) {
    HelpLibrary library(Manual(R"(
<block name="output"><screenname type="0">Output</screenname></block>
<block name="stereooutput"><screenname type="25">Output</screenname></block>
<block name="extknob"><screenname type="13">ExtKnob T</screenname><screenname type="14">ExtKnob T</screenname></block>
<block name="generic"><screenname>Filter</screenname><title>Any filter</title></block>
<block name="filter2"><screenname type="56">Filter</screenname></block>
<block name="Output"><title>Named like a screen name</title></block>)"));
    auto nameOf = [](const HelpArticle* a) { return a ? a->name : std::string("(none)"); };
    EXPECT_EQ(nameOf(library.Find("stereooutput")), "stereooutput");
    EXPECT_EQ(nameOf(library.Find("Output")), "Output");  // a name wins over a screen name
    EXPECT_EQ(nameOf(library.Find("ExtKnob T")), "extknob");
    EXPECT_EQ(nameOf(library.Find("output ")), "(none)");
    EXPECT_EQ(nameOf(library.FindBlock("Output", 0)), "output");
    EXPECT_EQ(nameOf(library.FindBlock("Output", 25)), "stereooutput");
    EXPECT_EQ(nameOf(library.FindBlock("ExtKnob T", 14)), "extknob");
    EXPECT_EQ(nameOf(library.FindBlock("Filter", 56)), "filter2");
    EXPECT_EQ(nameOf(library.FindBlock("Filter", 1)), "generic");  // untyped screen name as fallback
    EXPECT_EQ(nameOf(library.FindBlock("Output", 7)), "(none)");
    EXPECT_EQ(nameOf(library.FindTopic("STEREOOUTPUT")), "stereooutput");
    EXPECT_EQ(nameOf(library.FindTopic("extknob t")), "extknob");
    EXPECT_EQ(nameOf(library.FindTopic("any FILTER")), "generic");
    EXPECT_EQ(nameOf(library.FindTopic("nothing")), "(none)");
}

TEST(HelpLibrary, EmptyOrMalformedManualsGiveNoArticles) {
    struct Case {
        std::string text;
        bool reportsError;
    };
    const Case cases[] = {
        {"", false},
        {"<manual></manual>", false},
        {"<manual><block name=\"a\"><title>x</title></manual>", true},  // unclosed block
        {"<notmanual><block name=\"a\"/></notmanual>", true},
        {"just words", true},
        {std::string("<manual>\0<block name=\"a\"/></manual>", 35), true},
    };
    for (const Case& c : cases) {
        HelpLibrary library(c.text);
        EXPECT_TRUE(library.Articles().empty()) << c.text;
        EXPECT_EQ(!library.Error().empty(), c.reportsError) << c.text << ": " << library.Error();
        EXPECT_EQ(library.Find("a"), nullptr);
        EXPECT_EQ(library.FindBlock("a", 1), nullptr);
    }
}

TEST(HelpLibrary, ReadingTheManualLeavesTinyXmlsWhitespaceSettingAlone) {
    ASSERT_TRUE(TiXmlBase::IsWhiteSpaceCondensed());
    HelpLibrary library(Manual("<block name=\"a\"/>"));
    EXPECT_TRUE(TiXmlBase::IsWhiteSpaceCondensed());
}

std::vector<std::string> logged;

TEST(ManualResource, OnlyTheNameManualIsFoundAndEachFetchLogsItsLine) {
    LogSink previous = SetLogSink([](int, const char* text) { logged.push_back(text); });
    logged.clear();
    std::string text = FetchResourceText("manual");
    EXPECT_NE(text.find("<manual>"), std::string::npos);
    EXPECT_EQ(FetchResourceText("manuals"), text);  // six characters decide
    EXPECT_EQ(FetchResourceText("manua"), "");
    EXPECT_EQ(FetchResourceText("images"), "");
    SetLogSink(previous);
    EXPECT_EQ(logged,
              (std::vector<std::string>{"Found manual resource! Loading!", "Found manual resource! Loading!",
                                        "Failed to find manual resource", "Failed to find manual resource"}));
}

TEST(LayoutSet, FiveStylesOnOneSansFaceWithDistinctHeadings) {
    HelpLibrary library("");
    const LayoutSet& set = library.Styles();
    EXPECT_EQ(&set, &library.Styles());
    for (int i = 0; i < kStyleCount; ++i) {
        EXPECT_EQ(set.styles[i].font, set.fonts[i].get());
        EXPECT_TRUE(set.fonts[i]->IsValid()) << "style " << i;
    }
    EXPECT_GT(set.styles[kStyleTitle].size, set.styles[kStyleHeading].size);
    EXPECT_GT(set.styles[kStyleHeading].size, set.styles[kStyleBody].size);
    EXPECT_NE(set.styles[kStyleLink].color, set.styles[kStyleBody].color);
}

}  // namespace
