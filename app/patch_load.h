// Loading a patch file for a command: one message per problem, no partial results.
#pragma once

#include <string>
#include <vector>

class mi;

namespace app {

// Loads `path` (".vrkx", else ".vrk") into `machine`. Throws InputError, one line per
// problem, when the file cannot be read or is neither format. Returns one warning line
// per distinct thing the load skipped (a refused wire, an unknown block).
std::vector<std::string> LoadPatch(mi& machine, const std::string& path);

}  // namespace app
