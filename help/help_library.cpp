// Reading the manual XML into articles.
#include "help/help_library.h"

#include <tinyxml.h>

#include <cctype>
#include <cstring>

#include "g/utf8.h"
#include "help/manual_resource.h"

namespace {

// Runs of whitespace become one space, as in HTML. `atLineStart` carries across items: a
// space that would open a line (after a heading, a break or another space) is dropped, so
// the writers may wrap the source freely.
std::string Collapse(const char* text, bool& atLineStart) {
    std::string out;
    for (const char* p = text; *p; ++p) {
        if (std::isspace(static_cast<unsigned char>(*p))) {
            if (!atLineStart) out += ' ';
            atLineStart = true;
        } else {
            out += *p;
            atLineStart = false;
        }
    }
    return out;
}

// A one-line text (title, screen name, heading): collapsed, with no space at either end.
std::wstring Line(const char* text) {
    bool atLineStart = true;
    std::string line = Collapse(text ? text : "", atLineStart);
    if (!line.empty() && line.back() == ' ') line.pop_back();
    return G::FromUtf8(line);
}

class ArticleBuilder {
public:
    explicit ArticleBuilder(HelpArticle& article) : article(article) {}

    void Heading(std::wstring text, int style) {
        article.items.push_back({TextLayoutItem::kHeading, style, std::move(text)});
        atLineStart = true;
    }

    // The heading line of a named entry, then the element's children in document order.
    void Walk(const TiXmlElement& element) {
        if (const char* name = element.Attribute("name")) Heading(Line(name), kStyleEntry);
        for (const TiXmlNode* node = element.FirstChild(); node; node = node->NextSibling()) {
            if (const TiXmlText* text = node->ToText()) {
                AddText(TextLayoutItem::kBody, kStyleBody, text->Value(), -1);
                continue;
            }
            const TiXmlElement* child = node->ToElement();
            if (!child) continue;  // comments
            const char* tag = child->Value();
            if (std::strcmp(tag, "h1") == 0 || std::strcmp(tag, "h2") == 0 || std::strcmp(tag, "h3") == 0) {
                Heading(Line(TextOf(*child).c_str()), kStyleTitle + (tag[1] - '1'));
            } else if (std::strcmp(tag, "a") == 0) {
                const char* href = child->Attribute("href");
                article.links.push_back({href ? href : ""});
                AddText(TextLayoutItem::kLink, kStyleLink, TextOf(*child),
                        static_cast<int>(article.links.size()) - 1);
            } else if (std::strcmp(tag, "br") == 0) {
                article.items.push_back({TextLayoutItem::kBreak, kStyleBody, {}});
                atLineStart = true;
            }
        }
    }

private:
    // All text inside an inline element, nested elements included.
    static std::string TextOf(const TiXmlElement& element) {
        std::string text;
        for (const TiXmlNode* node = element.FirstChild(); node; node = node->NextSibling()) {
            if (const TiXmlText* t = node->ToText())
                text += t->Value();
            else if (const TiXmlElement* e = node->ToElement())
                text += TextOf(*e);
        }
        return text;
    }

    void AddText(TextLayoutItem::Kind kind, int style, const std::string& raw, int link) {
        std::string text = Collapse(raw.c_str(), atLineStart);
        // A link keeps its item even when blank, so the link record and item stay paired.
        if (text.empty() && kind != TextLayoutItem::kLink) return;
        article.items.push_back({kind, style, G::FromUtf8(text), link});
    }

    HelpArticle& article;
    bool atLineStart = true;
};

void ReadSection(ArticleBuilder& builder, const TiXmlElement& block, const char* tag, const wchar_t* heading,
                 bool repeated, std::vector<std::string>* names) {
    const TiXmlElement* first = block.FirstChildElement(tag);
    if (!first) return;
    builder.Heading(heading, kStyleHeading);
    for (const TiXmlElement* e = first; e; e = repeated ? e->NextSiblingElement(tag) : nullptr) {
        if (names) names->push_back(e->Attribute("name") ? e->Attribute("name") : "");
        builder.Walk(*e);
    }
}

std::unique_ptr<HelpArticle> ReadArticle(const TiXmlElement& block, const HelpLibrary* library) {
    auto article = std::make_unique<HelpArticle>();
    article->library = library;
    article->name = block.Attribute("name") ? block.Attribute("name") : "";
    ArticleBuilder builder(*article);
    if (const TiXmlElement* title = block.FirstChildElement("title")) {
        article->title = Line(title->GetText());
        builder.Heading(article->title, kStyleTitle);
    }
    for (const TiXmlElement* s = block.FirstChildElement("screenname"); s;
         s = s->NextSiblingElement("screenname")) {
        article->screenNames.push_back(Line(s->GetText()));
        int type = -1;
        if (s->QueryIntAttribute("type", &type) != TIXML_SUCCESS) type = -1;
        article->screenTypes.push_back(type);
    }
    ReadSection(builder, block, "Introduction", L"Introduction", false, nullptr);
    ReadSection(builder, block, "Parameter", L"Parameters", true, &article->parameters);
    ReadSection(builder, block, "Input", L"Inputs", true, &article->inputs);
    ReadSection(builder, block, "Notes", L"Notes", false, nullptr);
    return article;
}

bool SameIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (std::tolower(static_cast<unsigned char>(a[i])) != std::tolower(static_cast<unsigned char>(b[i])))
            return false;
    return true;
}

}  // namespace

LayoutSet::LayoutSet() {
    struct Recipe {
        float size;
        bool bold;
        G::Color color;
        float before, after;
    };
    static constexpr Recipe kRecipes[kStyleCount] = {
        {12, false, 0xFF202020, 0, 0},  // body
        {18, true, 0xFF101010, 4, 6},   // title
        {14, true, 0xFF1C3C64, 10, 3},  // section heading
        {12, true, 0xFF202020, 6, 1},   // entry
        {12, false, 0xFF1A5FB4, 0, 0},  // link
    };
    for (int i = 0; i < kStyleCount; ++i) {
        const Recipe& r = kRecipes[i];
        fonts[i] = std::make_unique<G::Font>(r.size, r.bold, "Arial");
        styles[i].font = fonts[i].get();
        styles[i].color = r.color;
        styles[i].size = r.size;
        styles[i].spacingBefore = r.before;
        styles[i].spacingAfter = r.after;
        styles[i].bold = r.bold;
    }
}

HelpLibrary::HelpLibrary(std::string_view manualXml) {
    if (manualXml.empty()) return;
    TiXmlDocument document;
    // Spaces at the edges of a text node separate it from the link beside it, and TinyXML's
    // default trims them; the setting is global, so it is put back at once.
    bool condensed = TiXmlBase::IsWhiteSpaceCondensed();
    TiXmlBase::SetCondenseWhiteSpace(false);
    document.Parse(std::string(manualXml).c_str(), nullptr, TIXML_ENCODING_UTF8);
    TiXmlBase::SetCondenseWhiteSpace(condensed);
    if (document.Error()) {
        error = "line " + std::to_string(document.ErrorRow()) + ", column " +
                std::to_string(document.ErrorCol()) + ": " + document.ErrorDesc();
        return;
    }
    const TiXmlElement* root = document.RootElement();
    if (!root || std::strcmp(root->Value(), "manual") != 0) {
        error = "the root element is not <manual>";
        return;
    }
    for (const TiXmlElement* block = root->FirstChildElement("block"); block;
         block = block->NextSiblingElement("block"))
        articles.push_back(ReadArticle(*block, this));
}

std::unique_ptr<HelpLibrary> HelpLibrary::LoadEmbedded() {
    return std::make_unique<HelpLibrary>(FetchResourceText("manual"));
}

const HelpArticle* HelpLibrary::Find(std::string_view key) const {
    for (const auto& article : articles)
        if (article->name == key) return article.get();
    std::wstring wide = G::FromUtf8(key);
    for (const auto& article : articles)
        for (const std::wstring& screenName : article->screenNames)
            if (screenName == wide) return article.get();
    return nullptr;
}

const HelpArticle* HelpLibrary::FindBlock(std::string_view displayName, int type) const {
    std::wstring wide = G::FromUtf8(displayName);
    const HelpArticle* untyped = nullptr;
    for (const auto& article : articles) {
        for (size_t i = 0; i < article->screenNames.size(); ++i) {
            if (article->screenNames[i] != wide) continue;
            if (article->screenTypes[i] == type) return article.get();
            if (article->screenTypes[i] < 0 && !untyped) untyped = article.get();
        }
    }
    return untyped;
}

const HelpArticle* HelpLibrary::FindTopic(std::string_view topic) const {
    for (const auto& article : articles)
        if (SameIgnoringCase(article->name, topic)) return article.get();
    for (const auto& article : articles) {
        for (const std::wstring& screenName : article->screenNames)
            if (SameIgnoringCase(G::ToUtf8(screenName), topic)) return article.get();
        if (SameIgnoringCase(G::ToUtf8(article->title), topic)) return article.get();
    }
    return nullptr;
}

const LayoutSet& HelpLibrary::Styles() const {
    if (!styles) styles = std::make_unique<LayoutSet>();
    return *styles;
}
