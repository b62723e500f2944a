// The wave table cache file: where it lives, loading it, and rebuilding and rewriting it
// when it is missing or unusable. Runs at engine construction, never on the audio thread.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>
#include <vector>

#include "engine/atomic_file.h"
#include "engine/wave_tables.h"

namespace {

constexpr const char* kCacheFileName = "Vrok_WaveTableCache.dat";
constexpr const char* kNoteCacheFileName = "Vrok_NoteTableCache.dat";
constexpr size_t kNoteTableBytes = sizeof(NoteTables::Table) * kNumWaveforms * NoteTables::kCount;

// The note table file's header, written as it lies in memory: a file made where byte order
// or layout differ fails the layout check and is rebuilt.
struct NoteCacheHeader {
    char magic[8];
    uint32_t layout[4];
    uint64_t checksum;
};
constexpr size_t kNoteCacheBytes = sizeof(NoteCacheHeader) + kNoteTableBytes;
constexpr NoteCacheHeader kNoteCacheHeader = {
    {'V', 'r', 'o', 'k', 'N', 'o', 't', 'e'},
    {kNumWaveforms, NoteTables::kCount, kWaveTableLength, 0x01020304u},
    0};
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
    // The sets are read a table at a time; a larger buffer keeps that to a few system calls.
    // (glibc ignores the size unless it is given the buffer too.)
    std::vector<char> buffer(size_t(1) << 16);
    std::setvbuf(file, buffer.data(), _IOFBF, buffer.size());
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

// Fletcher-style sums over the tables' bits, eight side by side (word i feeds lane i % 8)
// so that the loop vectorises: any changed or moved word changes the result, and it costs
// far less than reading the file.
uint64_t NoteTablesChecksum(const NoteTables::Table* tables) {
    constexpr int kLanes = 8;
    static_assert(kWaveTableLength % kLanes == 0);
    uint32_t a[kLanes], b[kLanes] = {};
    std::fill_n(a, kLanes, 1u);
    for (int t = 0; t < kNumWaveforms * NoteTables::kCount; ++t)
        for (int i = 0; i < kWaveTableLength; i += kLanes)
            for (int k = 0; k < kLanes; ++k) {
                a[k] += std::bit_cast<uint32_t>(tables[t][i + k]);
                b[k] += a[k];
            }
    uint64_t sum = 0;
    for (int k = 0; k < kLanes; ++k) sum = (sum ^ (uint64_t(a[k]) << 32 | b[k])) * 0x100000001B3ull;
    return sum;
}

// Creates the cache's directory; false when it cannot exist.
bool MakeCacheDirectory(const std::string& path) {
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    return !error;
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
    if (!MakeCacheDirectory(path)) return;
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

std::string NoteTableCachePath() {
    const std::string dir = CacheDirectory();
    if (dir.empty()) return std::string();
    return dir + "/" + kNoteCacheFileName;
}

// Mapped rather than read: the pages come straight from the page cache, with no copy and
// no fresh memory to fault in, which was a quarter of a short render's start. The file is
// only ever replaced whole by a rename, never rewritten in place, so the mapped pages stay
// as they were for as long as the mapping lives.
const NoteTables::Table* NoteTables::MapCache(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return nullptr;
    struct stat status {};
    void* mapping = MAP_FAILED;
    if (::fstat(fd, &status) == 0 && S_ISREG(status.st_mode) && size_t(status.st_size) == kNoteCacheBytes)
        mapping = ::mmap(nullptr, kNoteCacheBytes, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
    ::close(fd);
    if (mapping == MAP_FAILED) return nullptr;
    const auto* header = static_cast<const NoteCacheHeader*>(mapping);
    const auto* tables = reinterpret_cast<const Table*>(static_cast<const char*>(mapping) + sizeof(NoteCacheHeader));
    if (std::memcmp(header->magic, kNoteCacheHeader.magic, sizeof header->magic) == 0 &&
        std::memcmp(header->layout, kNoteCacheHeader.layout, sizeof header->layout) == 0 &&
        header->checksum == NoteTablesChecksum(tables))
        return tables;
    ::munmap(mapping, kNoteCacheBytes);
    return nullptr;
}

void NoteTables::UnmapCache(const Table* tables) {
    ::munmap(const_cast<char*>(reinterpret_cast<const char*>(tables)) - sizeof(NoteCacheHeader), kNoteCacheBytes);
}

bool NoteTables::WriteCache(const std::string& path, const Table* tables) {
    if (!MakeCacheDirectory(path)) return false;
    NoteCacheHeader header = kNoteCacheHeader;
    header.checksum = NoteTablesChecksum(tables);
    return WriteFileAtomically(path, [&](std::FILE* file) {
        return std::fwrite(&header, sizeof header, 1, file) == 1 &&
               std::fwrite(tables, 1, kNoteTableBytes, file) == kNoteTableBytes;
    });
}

void LoadOrBuildWaveTables(WaveTableSet (&sets)[kNumWaveforms]) {
    const std::string path = WaveTableCachePath();
    if (!path.empty() && LoadCache(path, sets)) return;
    BuildAll(sets);
    if (!path.empty()) SaveCache(path, sets);
}
