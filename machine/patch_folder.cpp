// Patch files found by number in the user's patch folder.
#include "machine/patch_folder.h"

#include <cstdlib>
#include <filesystem>

namespace machine {

namespace {

bool IsPatchExtension(const std::filesystem::path& path) {
    const std::string extension = path.extension().string();
    return extension == ".vrkx" || extension == ".vrk";
}

// The leading decimal number of `name`, or -1 when it does not start with one or the
// number runs into the rest of the name without a separator.
int LeadingNumber(const std::string& name) {
    size_t digits = 0;
    long value = 0;
    while (digits < name.size() && name[digits] >= '0' && name[digits] <= '9') {
        value = value * 10 + (name[digits] - '0');
        if (value > kMaxPatchNumber) return -1;
        ++digits;
    }
    if (digits == 0 || digits == name.size()) return -1;
    return int(value);
}

}  // namespace

std::string PatchFolder() {
    const char* dataHome = std::getenv("XDG_DATA_HOME");
    if (dataHome && dataHome[0] == '/') return std::string(dataHome) + "/vrok/patches";
    const char* home = std::getenv("HOME");
    if (home && home[0]) return std::string(home) + "/.local/share/vrok/patches";
    return {};
}

std::string FindPatchFile(const std::string& folder, int number) {
    if (folder.empty()) return {};
    std::error_code error;
    std::filesystem::directory_iterator it(folder, error);
    std::string best;
    for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        const std::filesystem::path& path = it->path();
        if (!it->is_regular_file(error) || !IsPatchExtension(path)) continue;
        const std::string name = path.filename().string();
        if (LeadingNumber(name) != number) continue;
        if (best.empty() || path.string() < best) best = path.string();
    }
    return best;
}

}  // namespace machine
