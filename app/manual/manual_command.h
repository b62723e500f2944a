// `vrok manual [TOPIC]`: the built-in manual for people who read in a terminal. Without a topic
// it lists the articles; with one it prints that article wrapped to the terminal. Needs no
// display: the manual is read and laid out as text only.
#pragma once

#include <memory>
#include <string>
#include <vector>

class HelpLibrary;

namespace app {

// Exit status: 0 printed; 1 the manual is empty, broken or unreadable; 2 no article matches.
// `manualFile`, when given, is read in place of the built-in manual: a manual being written
// can be read before it is built in.
int RunManual(const std::string& topic, const std::string& manualFile = "");

// A manual from a file; null, after a message naming the file, when it cannot be read, is
// malformed or has no articles.
std::unique_ptr<HelpLibrary> LoadManualFile(const std::string& path);

// The article list: block articles under their palette group, the rest (start page,
// tutorials, global settings) first, each line "name  title".
std::string ManualIndex(const HelpLibrary& library);
// Up to five article names whose name, screen name or title is near `topic`: containing it,
// or within a few typing mistakes. Closest first.
std::vector<std::string> SuggestTopics(const HelpLibrary& library, const std::string& topic);
// COLUMNS when set to a number, else the terminal's width, else 80; never below 20.
int TerminalColumns();

}  // namespace app
