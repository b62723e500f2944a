// Patch loading with the checks a command line wants before the readers run.
#include "app/patch_load.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "app/note_arguments.h"
#include "document/vrok_doc.h"
#include "machine/machine.h"

namespace app {

std::vector<std::string> LoadPatch(mi& machine, const std::string& path) {
    std::error_code code;
    if (std::filesystem::is_directory(path, code)) throw InputError(path + ": is a directory, not a patch file");
    {
        std::ifstream probe(path, std::ios::binary);
        if (!probe) throw InputError(path + ": cannot read file: " + std::strerror(errno));
    }
    LoadReport report;
    if (!machine.LoadPatchFile(path, &report)) {
        std::string message;
        for (const LoadProblem& problem : report) {
            if (!message.empty()) message += '\n';
            message += problem.Format();
        }
        throw InputError(message.empty() ? path + ": not a patch file" : message);
    }
    std::vector<std::string> warnings;
    for (const LoadProblem& problem : report) {
        const std::string line = problem.Format();
        if (std::find(warnings.begin(), warnings.end(), line) == warnings.end()) warnings.push_back(line);
    }
    return warnings;
}

}  // namespace app
