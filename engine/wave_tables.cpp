// Building, reading, writing and selecting wave tables, and the process-wide note tables.
// Everything here except TableFor runs at construction; TableFor runs on the audio thread.
#include "engine/wave_tables.h"

#include <sys/mman.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

#include "engine/fft.h"

namespace {

using engine::FftComplex;
using engine::FftForward;
using engine::FftInverse;

constexpr double kTwoPi = 6.283185307179586476925286766559;
constexpr int kHarmonics = kWaveTableLength / 2;
// Ten octaves of tables.
constexpr int kSpanCents = 1200 * 10;
// One table sample is 2^21 of a 32-bit phase, so an increment of r * 2^21 plays a table
// at r times its base rate.
constexpr double kIncrementPerSample = 2097152.0;
// Amplitude of the integer tables: headroom for the overshoot of band-limited edges.
constexpr double kIntegerScale = 16000.0;
// Bytes of one table in the cache file: the samples, then maxIncrement.
constexpr long kTableBytesOnDisk = (kWaveTableLength + 1) * 2 + 4;
// At one cent per table Build makes this many; no valid section holds more, so a larger
// count is corrupt and is refused before anything is allocated.
constexpr int kMaxTablesInSection = kSpanCents;

int TableCount(int centsPerTable) {
    // (1200 * log2(1024) + cents - 1) / cents, exact in integers.
    int count = (kSpanCents + centsPerTable - 1) / centsPerTable;
    return count < 1 ? 1 : count;
}

void PutLe32(unsigned char* out, uint32_t v) {
    for (int b = 0; b < 4; ++b) out[b] = static_cast<unsigned char>(v >> (8 * b));
}

uint32_t GetLe32(const unsigned char* in) {
    return uint32_t(in[0]) | uint32_t(in[1]) << 8 | uint32_t(in[2]) << 16 | uint32_t(in[3]) << 24;
}

void PutTable(unsigned char* out, const WaveTable& table) {
    for (int i = 0; i <= kWaveTableLength; ++i) {
        uint16_t s = static_cast<uint16_t>(table.samples[i]);
        out[2 * i] = static_cast<unsigned char>(s);
        out[2 * i + 1] = static_cast<unsigned char>(s >> 8);
    }
    PutLe32(out + 2 * (kWaveTableLength + 1), table.maxIncrement);
}

void GetTable(const unsigned char* in, WaveTable& table) {
    for (int i = 0; i <= kWaveTableLength; ++i)
        table.samples[i] = static_cast<int16_t>(uint16_t(in[2 * i]) | uint16_t(in[2 * i + 1]) << 8);
    table.maxIncrement = GetLe32(in + 2 * (kWaveTableLength + 1));
}

}  // namespace

// [SECTION] Sources

float WaveTableSource(int waveform, int i) {
    const double p = i * 0.00048828125;
    switch (waveform) {
    case 0: return float(std::sin(i * kTwoPi / kWaveTableLength));
    case 1: return float(p < 0.5 ? 4.0 * p - 1.0 : 1.0 - 4.0 * (p - 0.5));
    case 2: return float(2.0 * p - 1.0);
    default: return i < 1024 ? -1.0f : 1.0f;
    }
}

float NoteTableSource(int waveform, int i) {
    switch (waveform) {
    case 0: return float(std::sin(i * kTwoPi / kWaveTableLength));
    case 1: return i < 1024 ? (i - 512) / 512.0f : -(i - 1536) / 512.0f;
    case 2: return (i - 1024) / 1024.0f;
    default: return i < 1024 ? -1.0f : 1.0f;
    }
}

// [SECTION] WaveTableSet

void WaveTableSet::Build(const float* source, int centsPerTable) {
    // Built whole in locals first, so the set is never seen half-made.
    const int count = TableCount(centsPerTable);
    std::vector<WaveTable> built(count);
    std::vector<FftComplex> spectrum(kWaveTableLength);
    std::vector<FftComplex> cycle(kWaveTableLength);

    for (int i = 0; i < kWaveTableLength; ++i) spectrum[i] = FftComplex(source[i], 0.0);
    FftForward(spectrum.data());

    for (int t = 0; t < count; ++t) {
        const double r = std::pow(2.0, t * double(centsPerTable) / 1200.0);
        // The spectrum carries over from the table before, so each table only cuts more;
        // table 0 (r = 1) keeps all 1024 harmonics.
        const int firstCut = 1 + int(kHarmonics / r);
        for (int k = firstCut; k <= kHarmonics; ++k) {
            spectrum[k] = 0.0;
            spectrum[kWaveTableLength - k] = 0.0;
        }
        cycle = spectrum;
        FftInverse(cycle.data());
        WaveTable& table = built[t];
        for (int i = 0; i < kWaveTableLength; ++i)
            table.samples[i] = static_cast<int16_t>(cycle[i].real() * kIntegerScale);
        table.samples[kWaveTableLength] = table.samples[0];
        table.maxIncrement = static_cast<uint32_t>(r * kIncrementPerSample);
    }

    tables = std::move(built);
    numTables = count;
    totalBytes = count * int(sizeof(WaveTable));
}

bool WaveTableSet::Read(std::FILE* file) {
    tables.clear();
    numTables = 0;
    totalBytes = 0;

    unsigned char header[12];
    if (std::fread(header, 1, sizeof header, file) != sizeof header) return false;
    const int32_t count = static_cast<int32_t>(GetLe32(header));
    const int32_t bytes = static_cast<int32_t>(GetLe32(header + 4));
    const int32_t length = static_cast<int32_t>(GetLe32(header + 8));
    if (length != kWaveTableLength) return false;
    if (count < 1 || count > kMaxTablesInSection) return false;
    if (int64_t(bytes) != int64_t(count) * int64_t(sizeof(WaveTable))) return false;

    // One table's bytes at a time: a buffer for the whole section would cost as many fresh
    // pages as the tables themselves, a large part of a short render's start.
    std::vector<WaveTable> loaded(count);
    unsigned char raw[kTableBytesOnDisk];
    for (int t = 0; t < count; ++t) {
        if (std::fread(raw, 1, sizeof raw, file) != sizeof raw) return false;
        WaveTable& table = loaded[t];
        GetTable(raw, table);
        // Cheap checks that the bytes are tables at all: Build always writes the guard
        // and raises the increment limit from table to table.
        if (table.samples[kWaveTableLength] != table.samples[0]) return false;
        if (t > 0 && table.maxIncrement <= loaded[t - 1].maxIncrement) return false;
    }

    tables = std::move(loaded);
    numTables = count;
    totalBytes = bytes;
    return true;
}

bool WaveTableSet::Write(std::FILE* file) const {
    unsigned char header[12];
    PutLe32(header, static_cast<uint32_t>(numTables));
    PutLe32(header + 4, static_cast<uint32_t>(totalBytes));
    PutLe32(header + 8, kWaveTableLength);
    if (std::fwrite(header, 1, sizeof header, file) != sizeof header) return false;

    std::vector<unsigned char> raw(tables.size() * kTableBytesOnDisk);
    for (size_t t = 0; t < tables.size(); ++t) PutTable(raw.data() + t * kTableBytesOnDisk, tables[t]);
    return std::fwrite(raw.data(), 1, raw.size(), file) == raw.size();
}

const WaveTable& WaveTableSet::TableFor(uint32_t increment) const {
    // Linear on purpose: at most 120 entries, scanned once per note or sample block.
    for (const WaveTable& table : tables)
        if (table.maxIncrement > increment) return table;
    return tables.back();
}

// [SECTION] NoteTables

const NoteTables::Table* NoteTables::sets[kNumWaveforms] = {};

namespace {

std::mutex noteTablesMutex;
int noteTablesUsers = 0;
bool setsMapped = false;  // the tables lie in the mapped cache file, not on the heap

// Harmonics whose frequency in this scale passes this limit are cut.
constexpr double kNoteTableCutHz = 27500.0;

}  // namespace

void NoteTables::Build(Table* tables) {
    std::vector<FftComplex> source(kWaveTableLength);
    std::vector<FftComplex> cycle(kWaveTableLength);
    for (int w = 0; w < kNumWaveforms; ++w) {
        for (int i = 0; i < kWaveTableLength; ++i) source[i] = FftComplex(NoteTableSource(w, i), 0.0);
        // Every table starts from the same full spectrum, so one forward transform
        // serves all 128.
        FftForward(source.data());
        Table* made = tables + w * kCount;
        for (int n = 0; n < kCount; ++n) {
            const double f = 440.0 * std::pow(2.0, (n + 67 - 70) / 12.0);
            cycle = source;
            for (int k = 0; k < kWaveTableLength; ++k) {
                const double x = k <= kHarmonics ? k / double(kWaveTableLength)
                                                 : -(kWaveTableLength - k) / double(kWaveTableLength);
                if (std::fabs(f * x) > kNoteTableCutHz) cycle[k] = 0.0;
            }
            FftInverse(cycle.data());
            for (int i = 0; i < kWaveTableLength; ++i) made[n][i] = float(cycle[i].real());
        }
    }
}

namespace {

// Tables built without a cache fill 4 MiB. Asked for in 2 MiB pages where the kernel offers
// them, they arrive in two page faults instead of a thousand.
NoteTables::Table* AllocateTables() {
    constexpr size_t kBytes = sizeof(NoteTables::Table) * kNumWaveforms * NoteTables::kCount;
    constexpr size_t kHugePage = size_t(2) << 20;
    void* memory = std::aligned_alloc(kHugePage, (kBytes + kHugePage - 1) / kHugePage * kHugePage);
    if (!memory) throw std::bad_alloc();
#if defined(MADV_HUGEPAGE)
    madvise(memory, kBytes, MADV_HUGEPAGE);
#endif
    return static_cast<NoteTables::Table*>(memory);
}

struct TablesFree {
    void operator()(NoteTables::Table* tables) const { std::free(tables); }
};

}  // namespace

void NoteTables::Acquire() {
    std::lock_guard<std::mutex> lock(noteTablesMutex);
    if (noteTablesUsers++ > 0) return;

    const std::string path = NoteTableCachePath();
    const Table* block = path.empty() ? nullptr : MapCache(path);
    setsMapped = block != nullptr;
    if (!block) {
        // One block for all waveforms; every table is written before it is read.
        std::unique_ptr<Table[], TablesFree> made(AllocateTables());
        Build(made.get());
        // Only the cache is lost when it cannot be written.
        if (!path.empty()) WriteCache(path, made.get());
        block = made.release();
    }
    for (int w = 0; w < kNumWaveforms; ++w) sets[w] = block + w * kCount;
}

void NoteTables::Release() {
    std::lock_guard<std::mutex> lock(noteTablesMutex);
    // An unmatched Release is a caller's bug; ignoring it beats freeing tables in use.
    if (noteTablesUsers == 0 || --noteTablesUsers > 0) return;
    if (setsMapped)
        UnmapCache(sets[0]);
    else
        std::free(const_cast<Table*>(sets[0]));
    for (const Table*& tablesOfWave : sets) tablesOfWave = nullptr;
}
