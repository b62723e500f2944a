// `vrok manual`: the index groups the articles, near misses are suggested, the width follows
// COLUMNS, and the built command prints articles that fit the terminal with no display at all.
// Its error lines are in cli_errors.sh.
#include "app/manual/manual_command.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>

#include "app/child_process.h"
#include "g/utf8.h"
#include "help/help_library.h"

namespace {

namespace fs = std::filesystem;

const std::string kManualFile = VROK_HELP_TEST_DATA_DIR "/test_manual.xml";

std::unique_ptr<HelpLibrary> TestManual() { return std::make_unique<HelpLibrary>(e2e::ReadAll(kManualFile)); }

TEST(ManualCommand, TheIndexPutsGuidesFirstThenBlocksByPaletteGroupAndTheRestLast) {
    EXPECT_EQ(app::ManualIndex(*TestManual()),
              "The Vrok manual. \"vrok manual TOPIC\" prints an article; TOPIC is a name below,\n"
              "a block's name as the editor shows it, or a title.\n"
              "\n"
              "Start, sound design and global settings\n"
              "  default       Test manual\n"
              "\n"
              "Generators\n"
              "  oscillator    Oscillator\n"
              "\n"
              "Modifiers\n"
              "  filter        Filter\n"
              "\n"
              "Outputs\n"
              "  output        Output (mono)\n"
              "  stereooutput  Output (stereo)\n"
              "\n"
              "Other blocks\n"
              "  largescope    Large Scope\n");
}

TEST(ManualCommand, SuggestionsAreNearMissesClosestFirst) {
    auto library = TestManual();
    struct Case {
        const char* topic;
        std::vector<std::string> names;
    };
    const Case cases[] = {
        {"oscilator", {"oscillator"}},          // a letter missing
        {"FILTRE", {"filter"}},                 // letters swapped, any case
        {"outpt", {"output", "stereooutput"}},  // near "output", which both have as screen name
        {"stereo", {"stereooutput"}},           // part of a name
        {"osc", {"oscillator"}},                // near the screen name "|Osc"
        {"zzzzzz", {}},
    };
    for (const Case& c : cases) EXPECT_EQ(app::SuggestTopics(*library, c.topic), c.names) << c.topic;
}

TEST(ManualCommand, ColumnsComeFromTheEnvironmentWithAFloor) {
    const char* saved = std::getenv("COLUMNS");
    const std::string keep = saved ? saved : "";
    struct Case {
        const char* value;
        int columns;
    };
    for (const Case& c : {Case{"57", 57}, Case{"5", 20}, Case{"300", 300}}) {
        setenv("COLUMNS", c.value, 1);
        EXPECT_EQ(app::TerminalColumns(), c.columns) << c.value;
    }
    if (!isatty(STDOUT_FILENO)) {
        setenv("COLUMNS", "wide", 1);
        EXPECT_EQ(app::TerminalColumns(), 80);
        unsetenv("COLUMNS");
        EXPECT_EQ(app::TerminalColumns(), 80);
    }
    if (saved)
        setenv("COLUMNS", keep.c_str(), 1);
    else
        unsetenv("COLUMNS");
}

// Runs the built command without a display; stdout into `out`.
int Vrok(const std::string& arguments, std::string& out) {
    const fs::path file = fs::temp_directory_path() / ("vrok_manual_" + std::to_string(getpid()) + ".txt");
    const int raw = std::system(("env -u DISPLAY " + std::string(VROK_BINARY) + " " + arguments + " >" +
                                 file.string() + " 2>/dev/null")
                                    .c_str());
    out = e2e::ReadAll(file);
    fs::remove(file);
    return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
}

TEST(ManualCommand, ArticlesPrintWithoutADisplayAndFitTheColumns) {
    std::string out;
    ASSERT_EQ(Vrok("manual", out), 0);
    EXPECT_NE(out.find("\n  default  "), std::string::npos) << out;
    std::string byName, byTitle, byScreenName;
    ASSERT_EQ(Vrok("manual --file " + kManualFile + " oscillator", byName), 0);
    ASSERT_EQ(Vrok("manual --file " + kManualFile + " OSCILLATOR", byTitle), 0);
    ASSERT_EQ(Vrok("manual --file " + kManualFile + " '|osc'", byScreenName), 0);
    EXPECT_EQ(byTitle, byName);
    EXPECT_EQ(byScreenName, byName);
    for (int columns : {24, 40, 80}) {
        setenv("COLUMNS", std::to_string(columns).c_str(), 1);
        ASSERT_EQ(Vrok("manual --file " + kManualFile + " oscillator", out), 0);
        unsetenv("COLUMNS");
        EXPECT_EQ(out.rfind("Oscillator\n==========\n", 0), 0u) << out;
        EXPECT_NE(out.find("[→filter]"), std::string::npos);
        std::istringstream lines(out);
        for (std::string line; std::getline(lines, line);)
            EXPECT_LE(G::FromUtf8(line).size(), size_t(columns)) << line;
    }
}

}  // namespace
