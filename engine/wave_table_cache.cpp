// The wave table cache file: where it lives, loading it, and rebuilding and rewriting it
// when it is missing or unusable. Runs at engine construction, never on the audio thread.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <vector>

#include "engine/atomic_file.h"
#include "engine/wave_tables.h"

namespace {

constexpr const char* kCacheFileName = "Vrok_WaveTableCache.dat";
// Cents per table: the sine has no harmonics to lose, so a few tables do.
constexpr int kCentsPerTable[kNumWaveforms] = {2400, 100, 100, 100};

std::string EnvironmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::string(value) : std::string();
}

std::string CacheDirectory() {
    std::string dir = EnvironmentValue("VROK_CACHE_DIR");
    if (!dir.empty()) return dir;
    dir = EnvironmentValue("XDG_CACHE_HOME");
    if (!dir.empty()) return dir + "/vrok";
    dir = EnvironmentValue("HOME");
    if (!dir.empty()) return dir + "/.cache/vrok";
    return std::string();
}

// True only for a file that holds exactly the four sections this build would make.
bool LoadCache(const std::string& path, WaveTableSet (&sets)[kNumWaveforms]) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) return false;
    bool valid = true;
    for (int w = 0; valid && w < kNumWaveforms; ++w) {
        valid = sets[w].Read(file);
        // A section from a build with other spacing would pick the wrong tables.
        const int expected = (12000 + kCentsPerTable[w] - 1) / kCentsPerTable[w];
        valid = valid && sets[w].numTables == expected;
    }
    // Trailing bytes mean the file is not what we wrote.
    valid = valid && std::fgetc(file) == EOF && !std::ferror(file);
    std::fclose(file);
    return valid;
}

void BuildAll(WaveTableSet (&sets)[kNumWaveforms]) {
    std::vector<float> source(kWaveTableLength);
    for (int w = 0; w < kNumWaveforms; ++w) {
        for (int i = 0; i < kWaveTableLength; ++i) source[i] = WaveTableSource(w, i);
        sets[w].Build(source.data(), kCentsPerTable[w]);
    }
}

// Another engine or process sees either the old cache or the whole new one. Any failure
// is ignored: the tables are built, only the cache is lost.
void SaveCache(const std::string& path, const WaveTableSet (&sets)[kNumWaveforms]) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    if (error) return;
    WriteFileAtomically(path, [&](std::FILE* file) {
        for (const WaveTableSet& set : sets)
            if (!set.Write(file)) return false;
        return true;
    });
}

}  // namespace

std::string WaveTableCachePath() {
    const std::string dir = CacheDirectory();
    if (dir.empty()) return std::string();
    return dir + "/" + kCacheFileName;
}

void LoadOrBuildWaveTables(WaveTableSet (&sets)[kNumWaveforms]) {
    const std::string path = WaveTableCachePath();
    if (!path.empty() && LoadCache(path, sets)) return;
    BuildAll(sets);
    if (!path.empty()) SaveCache(path, sets);
}
