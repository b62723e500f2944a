// The manual, read into articles: one per `block` element of the manual XML, each a flat list
// of items ready for layout (headings, body text, links, breaks). An article is found by its
// link name, by one of its screen names, or, for a block in the patch, by display name and
// type. GUI thread or command line; nothing here touches the engine.
#pragma once

#include <array>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "g/renderer.h"
#include "g/theme.h"

// The five text styles of the manual, by index into `LayoutSet::styles`.
enum LayoutStyleId : int {
    kStyleBody = 0,
    kStyleTitle = 1,    // the article's title, and inline h1
    kStyleHeading = 2,  // section headings ("Introduction", "Parameters"...), and inline h2
    kStyleEntry = 3,    // a parameter's or input's name, and inline h3
    kStyleLink = 4,
    kStyleCount = 5,
};

// One piece of an article. Body and link texts have their whitespace collapsed to single
// spaces and may begin or end with one; a heading stands on a line of its own.
struct TextLayoutItem {
    enum Kind { kHeading, kBody, kLink, kBreak };
    Kind kind = kBody;
    int style = kStyleBody;
    std::wstring text;
    int link = -1;  // index into the article's links, for kLink
};

struct HelpLink {
    std::string href;  // a name or screen name of the target article, UTF-8
};

class HelpLibrary;

struct HelpArticle {
    const HelpLibrary* library = nullptr;
    std::wstring title;
    std::vector<TextLayoutItem> items;
    std::vector<std::wstring> screenNames;
    std::vector<HelpLink> links;
    // Beside the record: the link name, the block type given with each screen name (-1 where
    // none is given), and the `name` of each Parameter and Input entry in order, which lets
    // the manual be checked against the blocks.
    std::string name;
    std::vector<int> screenTypes;
    std::vector<std::string> parameters;
    std::vector<std::string> inputs;
};

// The text styles of the items, all on "Arial" (fontconfig maps it to the sans face the
// system has). The fonts live as long as the set.
struct LayoutSet {
    LayoutSet();
    LayoutSet(const LayoutSet&) = delete;
    LayoutSet& operator=(const LayoutSet&) = delete;

    std::array<G::LayoutStyle, kStyleCount> styles;
    std::array<std::unique_ptr<G::Font>, kStyleCount> fonts;
};

class HelpLibrary {
public:
    // Reads the manual text; an empty or malformed text gives no articles, and `Error` says
    // what was wrong with a malformed one.
    explicit HelpLibrary(std::string_view manualXml);
    // The embedded manual, fetched under the name "manual".
    static std::unique_ptr<HelpLibrary> LoadEmbedded();

    const std::vector<std::unique_ptr<HelpArticle>>& Articles() const { return articles; }
    // Empty when the text parsed (or was empty); else "line L, column C: <what>".
    const std::string& Error() const { return error; }

    // The first article whose name, or else whose screen name, equals `key` exactly: the rule
    // for links and for the pages the editor asks for ("Default"). Null if none.
    const HelpArticle* Find(std::string_view key) const;
    // The article of a block in the patch: a screen name equal to `displayName` given with
    // `type`, else one given with no type. Display names repeat across types ("Output",
    // "Filter"), so the type decides.
    const HelpArticle* FindBlock(std::string_view displayName, int type) const;
    // For people typing a topic: name, screen name or title, ignoring ASCII case.
    const HelpArticle* FindTopic(std::string_view topic) const;

    // Text styles, built on first use so that readers with no display never load a font.
    const LayoutSet& Styles() const;

private:
    std::vector<std::unique_ptr<HelpArticle>> articles;
    std::string error;
    mutable std::unique_ptr<LayoutSet> styles;
};
