// The shipped manual against the code: it must load, cover every block type, name exactly each
// block's parameters, and link only to articles that exist. Each failure lists everything
// missing at once, so one run shows the whole gap.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "blocks/block_harness.h"
#include "document/block_types.h"
#include "engine/audio_block.h"
#include "g/utf8.h"
#include "help/help_library.h"
#include "help/manual_resource.h"

namespace {

const HelpLibrary& Manual() {
    static std::unique_ptr<HelpLibrary> library = HelpLibrary::LoadEmbedded();
    return *library;
}

std::string Join(const std::vector<std::string>& lines) {
    std::string out;
    for (const std::string& line : lines) out += "\n  " + line;
    return out;
}

std::string Label(const BlockType& row) { return std::to_string(row.type) + " \"" + row.displayName + "\""; }

TEST(ManualContent, TheEmbeddedManualIsWellFormedAndLoads) {
    EXPECT_TRUE(Manual().Error().empty()) << "manual.xml: " << Manual().Error();
    EXPECT_FALSE(Manual().Articles().empty());
    std::map<std::string, int> names;
    for (const auto& article : Manual().Articles()) ++names[article->name];
    std::vector<std::string> repeated;
    for (const auto& [name, count] : names)
        if (count > 1 || name.empty()) repeated.push_back("\"" + name + "\" x" + std::to_string(count));
    EXPECT_TRUE(repeated.empty()) << "article names must be present and unique:" << Join(repeated);
    EXPECT_NE(Manual().Find("Default"), nullptr) << "no home page (screen name \"Default\")";
}

TEST(ManualContent, EveryBlockTypeHasAnArticleFoundByDisplayNameAndType) {
    std::vector<std::string> missing;
    for (const BlockType& row : BlockTypes()) {
        if (!row.create || !row.displayName) continue;
        const HelpArticle* article = Manual().FindBlock(row.displayName, row.type);
        bool typed = false;
        if (article)
            for (size_t i = 0; i < article->screenNames.size(); ++i)
                typed |= article->screenTypes[i] == row.type &&
                         G::ToUtf8(article->screenNames[i]) == row.displayName;
        if (!typed) missing.push_back(Label(row));
    }
    EXPECT_TRUE(missing.empty()) << "block types with no <screenname type=\"N\">display name</screenname>:"
                                 << Join(missing);
}

TEST(ManualContent, EachBlockArticleNamesEveryParameterOfItsBlockExactlyOnce) {
    std::vector<std::string> problems;
    for (const BlockType& row : BlockTypes()) {
        if (!row.create || !row.displayName) continue;
        const HelpArticle* article = Manual().FindBlock(row.displayName, row.type);
        if (!article) continue;  // reported by the coverage test
        std::unique_ptr<CAudioBlock> block(CreateBlock(harness::Engine(), row.type, 44100.0f));
        if (!block) {
            problems.push_back(Label(row) + ": the block could not be created");
            continue;
        }
        std::set<std::string> actual(block->names.begin(), block->names.end());
        std::map<std::string, int> documented;
        for (const std::string& name : article->parameters) ++documented[name];
        for (const std::string& name : actual) {
            int count = documented.count(name) ? documented[name] : 0;
            if (count != 1)
                problems.push_back(Label(row) + " (article \"" + article->name + "\"): parameter \"" + name +
                                   "\" has " + std::to_string(count) + " entries");
        }
        for (const auto& [name, count] : documented)
            if (!actual.count(name))
                problems.push_back(Label(row) + " (article \"" + article->name + "\"): entry \"" + name +
                                   "\" names no parameter of the block");
    }
    EXPECT_TRUE(problems.empty()) << "Parameter entries out of step with the blocks:" << Join(problems);
}

TEST(ManualContent, EveryLinkLeadsToAnArticle) {
    std::vector<std::string> broken;
    for (const auto& article : Manual().Articles())
        for (const HelpLink& link : article->links)
            if (!Manual().Find(link.href))
                broken.push_back("\"" + article->name + "\" -> \"" + link.href + "\"");
    EXPECT_TRUE(broken.empty()) << "links to no article:" << Join(broken);
}

}  // namespace
