// Runs a fuzz entry over saved inputs without libFuzzer: every file named, and every file
// in every directory named, once each, in name order. A crash or a failed check ends the
// process with the input's name printed last, which fails the test that runs it.
// "--optional DIR" names a directory that may not exist yet (a target's regressions).
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "fuzz_support.h"

namespace fs = std::filesystem;

int main(int argc, char** argv) {
    std::vector<fs::path> inputs;
    for (int i = 1; i < argc; ++i) {
        const bool optional = std::string(argv[i]) == "--optional" && i + 1 < argc;
        if (optional) ++i;
        const fs::path arg = argv[i];
        if (fs::is_directory(arg)) {
            for (const fs::directory_entry& entry : fs::directory_iterator(arg))
                if (entry.is_regular_file()) inputs.push_back(entry.path());
        } else if (fs::is_regular_file(arg)) {
            inputs.push_back(arg);
        } else if (!optional) {
            std::fprintf(stderr, "replay: %s: no such file or directory\n", argv[i]);
            return 2;
        }
    }
    std::sort(inputs.begin(), inputs.end());
    if (inputs.empty()) {
        std::fprintf(stderr, "replay: no inputs\n");
        return 2;
    }
    for (const fs::path& path : inputs) {
        std::ifstream file(path, std::ios::binary);
        const std::vector<char> bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        std::fprintf(stderr, "replay: %s\n", path.c_str());
        LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    }
    std::printf("replay: %zu inputs\n", inputs.size());
    return 0;
}
