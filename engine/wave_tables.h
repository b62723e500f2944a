// Band-limited single-cycle tables. Two families hold the same four waveforms in the
// same order (0 sine, 1 triangle, 2 sawtooth, 3 pulse):
//  - WaveTableSet: int16 tables per engine, chosen by phase increment, cached on disk;
//  - NoteTables: float tables shared by the process, chosen by note.
// Both are built at construction, never on the audio thread.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

constexpr int kNumWaveforms = 4;
constexpr int kWaveTableLength = 2048;

struct WaveTable {
    // One cycle, then a guard sample equal to sample 0 for interpolation without a wrap test.
    int16_t samples[kWaveTableLength + 1];
    // Phase increments below this value may use this table.
    uint32_t maxIncrement;
};
static_assert(sizeof(WaveTable) == 4104, "totalBytes in the cache records the in-memory size");

class WaveTableSet {
public:
    // Builds the set from one cycle of `source` (kWaveTableLength values), one table per
    // `centsPerTable` over ten octaves, each table cutting the harmonics the previous kept.
    void Build(const float* source, int centsPerTable);
    // Cache section: numTables, totalBytes, table length, then per table the samples and
    // maxIncrement, little-endian. Read returns false and leaves the set empty when the
    // section is not a valid one.
    bool Read(std::FILE* file);
    bool Write(std::FILE* file) const;
    // First table whose maxIncrement is above `increment`; the last table past the end.
    // The set must not be empty.
    const WaveTable& TableFor(uint32_t increment) const;

    std::vector<WaveTable> tables;
    int numTables = 0;
    int totalBytes = 0;
};

// The one-cycle sources each family is built from, for i in 0..2047.
float WaveTableSource(int waveform, int i);
float NoteTableSource(int waveform, int i);

// Fills the four sets of an engine: from the cache file if it is valid, otherwise by
// building them and writing the cache atomically (temporary file, then rename). A cache
// that cannot be written is not an error. Allocates; never on the audio thread.
void LoadOrBuildWaveTables(WaveTableSet (&sets)[kNumWaveforms]);
// The cache file's path: $VROK_CACHE_DIR, else $XDG_CACHE_HOME/vrok, else ~/.cache/vrok,
// followed by "Vrok_WaveTableCache.dat".
std::string WaveTableCachePath();

// The note tables' cache file, beside the wave table cache: "Vrok_NoteTableCache.dat".
std::string NoteTableCachePath();

// Process-wide float tables, 128 per waveform, reference-counted by the engines: the
// first Acquire loads them from their cache file or builds them (and rewrites the cache
// atomically), the last Release frees them. Thread-safe.
class NoteTables {
public:
    static constexpr int kCount = 128;
    using Table = float[kWaveTableLength];
    static void Acquire();
    static void Release();
    // Table `index` (0..127) of `waveform`; valid while any engine lives.
    static const Table& Get(int waveform, int index) { return sets[waveform][index]; }

    // The cache file's contents: a header, then the kNumWaveforms * kCount tables as they lie
    // in memory, so a file from a machine of other byte order or float layout is refused.
    // MapCache maps the file read-only and returns its tables, or null for a file that is not
    // exactly what WriteCache makes; UnmapCache undoes it. WriteCache goes through a
    // temporary file and a rename, so a mapped file is never changed under its readers.
    static const Table* MapCache(const std::string& path);
    static void UnmapCache(const Table* tables);
    static bool WriteCache(const std::string& path, const Table* tables);

private:
    static void Build(Table* tables);

    static const Table* sets[kNumWaveforms];
};
