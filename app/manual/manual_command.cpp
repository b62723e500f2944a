// `vrok manual`: the index, one article, or suggestions for a topic that names none.
#include "app/manual/manual_command.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "app/commands.h"
#include "document/block_types.h"
#include "g/utf8.h"
#include "help/help_library.h"
#include "help/plain_text.h"

namespace app {
namespace {

std::string Lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

size_t EditDistance(const std::string& a, const std::string& b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// Blocks without a palette code of their own (the external knobs, the large displays) come last.
constexpr int kNoMenu = 0x1000;

// The palette group of a block article, from the first block type it names; 0 for the rest.
int GroupOf(const HelpArticle& article) {
    for (int type : article.screenTypes) {
        const BlockType* row = type >= 0 ? FindBlockType(type) : nullptr;
        if (row) return row->paletteCode > 0 ? row->paletteCode >> 8 : kNoMenu;
    }
    return 0;
}

const char* GroupTitle(int group) {
    switch (group) {
        case 0:
            return "Start, sound design and global settings";
        case kPaletteGenerators:
            return "Generators";
        case kPaletteModifiers:
            return "Modifiers";
        case kPaletteControllers:
            return "Controllers";
        case kPaletteOutputs:
            return "Outputs";
        case kPaletteDisplays:
            return "Displays";
        default:
            return "Other blocks";
    }
}

}  // namespace

std::string ManualIndex(const HelpLibrary& library) {
    std::map<int, std::vector<const HelpArticle*>> groups;
    size_t nameWidth = 0;
    for (const auto& article : library.Articles()) {
        groups[GroupOf(*article)].push_back(article.get());
        nameWidth = std::max(nameWidth, article->name.size());
    }
    std::string out =
        "The Vrok manual. \"vrok manual TOPIC\" prints an article; TOPIC is a name below,\n"
        "a block's name as the editor shows it, or a title.\n";
    for (const auto& [group, articles] : groups) {
        out += std::string("\n") + GroupTitle(group) + "\n";
        for (const HelpArticle* article : articles) {
            std::string name = article->name;
            name.resize(nameWidth, ' ');
            out += "  " + name + "  " + G::ToUtf8(article->title) + "\n";
        }
    }
    return out;
}

std::vector<std::string> SuggestTopics(const HelpLibrary& library, const std::string& topic) {
    const std::string wanted = Lower(topic);
    std::vector<std::pair<size_t, std::string>> found;
    for (const auto& article : library.Articles()) {
        std::vector<std::string> keys = {article->name, G::ToUtf8(article->title)};
        for (const std::wstring& screenName : article->screenNames) keys.push_back(G::ToUtf8(screenName));
        size_t best = std::string::npos;
        for (const std::string& key : keys) {
            const std::string candidate = Lower(key);
            if (candidate.empty()) continue;
            // A key containing the topic ranks by how much more it says.
            if (wanted.size() >= 3 && candidate.find(wanted) != std::string::npos)
                best = std::min(best, (candidate.size() - wanted.size()) / 4);
            const size_t distance = EditDistance(candidate, wanted);
            if (distance <= std::max<size_t>(2, wanted.size() / 3)) best = std::min(best, distance);
        }
        if (best != std::string::npos) found.emplace_back(best, article->name);
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> names;
    for (const auto& [distance, name] : found) {
        if (names.size() == 5) break;
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
    return names;
}

int TerminalColumns() {
    int columns = 0;
    if (const char* text = std::getenv("COLUMNS")) columns = std::atoi(text);
    winsize size{};
    if (columns <= 0 && isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0)
        columns = size.ws_col;
    if (columns <= 0) columns = 80;
    return std::max(columns, 20);
}

std::unique_ptr<HelpLibrary> LoadManualFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    if (!file || file.bad()) {
        PrintError(path + ": cannot read the manual");
        return nullptr;
    }
    auto library = std::make_unique<HelpLibrary>(text.str());
    if (!library->Error().empty()) {
        PrintError(path + ": " + library->Error());
        return nullptr;
    }
    if (library->Articles().empty()) {
        PrintError(path + ": the manual has no articles");
        return nullptr;
    }
    return library;
}

int RunManual(const std::string& topic, const std::string& manualFile) {
    std::unique_ptr<HelpLibrary> library;
    if (!manualFile.empty()) {
        library = LoadManualFile(manualFile);
        if (!library) return 1;
    } else {
        library = HelpLibrary::LoadEmbedded();
        if (!library->Error().empty()) {
            PrintError("manual: the built-in manual is broken: " + library->Error());
            return 1;
        }
        if (library->Articles().empty()) {
            PrintError("manual: the built-in manual has no articles");
            return 1;
        }
    }
    if (topic.empty()) {
        std::fputs(ManualIndex(*library).c_str(), stdout);
        return 0;
    }
    if (const HelpArticle* article = library->FindTopic(topic)) {
        std::fputs(PlainTextArticle(*article, TerminalColumns()).c_str(), stdout);
        return 0;
    }
    std::string message = "manual: no article \"" + topic + "\"";
    const std::vector<std::string> suggestions = SuggestTopics(*library, topic);
    for (size_t i = 0; i < suggestions.size(); ++i)
        message += (i == 0 ? "; did you mean: " : ", ") + suggestions[i];
    PrintError(message + " (vrok manual lists every article)");
    return 2;
}

}  // namespace app
