// Wave tables: the transform, band limits, table selection, the cache files and their
// recovery from damage, and the shared note tables.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <random>

#include "engine/fft.h"
#include "engine/wave_tables.h"

namespace {

using engine::FftComplex;
namespace fs = std::filesystem;
using Bytes = std::vector<char>;

constexpr int kN = kWaveTableLength;
// Truncating to int16 moves each sample by less than 1, so a cut bin of an unscaled
// transform holds less than kN: anything above is a harmonic that survived.
constexpr double kBound = kN;

template <typename Sample>
std::vector<FftComplex> SpectrumOf(const Sample* samples) {
    std::vector<FftComplex> x(samples, samples + kN);
    engine::FftForward(x.data());
    return x;
}

WaveTableSet BuildFrom(int waveform, int cents) {
    float source[kN];
    for (int i = 0; i < kN; ++i) source[i] = WaveTableSource(waveform, i);
    WaveTableSet set;
    set.Build(source, cents);
    return set;
}

const WaveTableSet& Reference(int w) {
    static const WaveTableSet sets[] = {BuildFrom(0, 2400), BuildFrom(1, 100), BuildFrom(2, 100), BuildFrom(3, 100)};
    return sets[w];
}

// Loads or builds the four sets as an engine does; true when they are what a fresh build makes.
bool LoadGivesReference() {
    WaveTableSet sets[kNumWaveforms];
    LoadOrBuildWaveTables(sets);
    for (int w = 0; w < kNumWaveforms; ++w) {
        const WaveTableSet &a = sets[w], &b = Reference(w);
        if (a.numTables != b.numTables || a.totalBytes != b.totalBytes || a.tables.size() != b.tables.size())
            return false;
        for (size_t t = 0; t < a.tables.size(); ++t)
            if (a.tables[t].maxIncrement != b.tables[t].maxIncrement ||
                !std::equal(std::begin(a.tables[t].samples), std::end(a.tables[t].samples), b.tables[t].samples))
                return false;
    }
    return true;
}

Bytes FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(in), {});
}
void WriteBytes(const std::string& path, const Bytes& b) {
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(b.data(), std::streamsize(b.size()));
}
void PutLe32(Bytes& b, size_t at, uint32_t v) {
    for (int i = 0; i < 4; ++i) b[at + i] = char(v >> (8 * i));
}
uint32_t GetLe32(const Bytes& b, size_t at) {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= uint32_t(uint8_t(b[at + i])) << (8 * i);
    return v;
}

// Points the cache at a fresh directory for one test and puts the environment back after.
class WaveTablesCache : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* old = std::getenv("VROK_CACHE_DIR")) oldDir = old;
        root = (fs::temp_directory_path() / "vrok_wavetables_XXXXXX").string();
        ASSERT_NE(::mkdtemp(root.data()), nullptr);
        ::setenv("VROK_CACHE_DIR", root.c_str(), 1);
    }
    void TearDown() override {
        oldDir.empty() ? ::unsetenv("VROK_CACHE_DIR") : ::setenv("VROK_CACHE_DIR", oldDir.c_str(), 1);
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
    std::string CachePath() const { return root + "/Vrok_WaveTableCache.dat"; }
    std::string root, oldDir;
};

}  // namespace

TEST(WaveTables, FftIsUnscaledForwardAndIdentityRoundTrip) {
    // A tone e^(+2 pi i 5 n / N) puts all of its N into bin 5.
    std::vector<FftComplex> x(kN);
    for (int n = 0; n < kN; ++n) x[n] = std::polar(1.0, 2.0 * std::numbers::pi * 5 * n / kN);
    engine::FftForward(x.data());
    for (int k = 0; k < kN; ++k) ASSERT_LT(std::abs(x[k] - FftComplex(k == 5 ? kN : 0, 0)), 1e-9) << k;

    std::mt19937 random(1234);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    for (auto& v : x) v = FftComplex(value(random), value(random));
    const std::vector<FftComplex> original = x;
    engine::FftForward(x.data());
    engine::FftInverse(x.data());
    for (int i = 0; i < kN; ++i) ASSERT_LT(std::abs(x[i] - original[i]), 1e-12) << "at " << i;
}

TEST(WaveTables, EachTableKeepsExactlyTheHarmonicsUpToItsLimitAndIsPickedBelowIt) {
    for (int w = 0; w < kNumWaveforms; ++w) {
        const WaveTableSet& set = Reference(w);
        ASSERT_EQ(set.numTables, w == 0 ? 5 : 120);
        ASSERT_EQ(int(set.tables.size()), set.numTables);
        EXPECT_EQ(set.totalBytes, set.numTables * 4104);
        EXPECT_EQ(&set.TableFor(0), &set.tables[0]);
        EXPECT_EQ(&set.TableFor(set.tables.back().maxIncrement), &set.tables.back());
        EXPECT_EQ(&set.TableFor(0xFFFFFFFFu), &set.tables.back());
        const auto full = SpectrumOf(set.tables[0].samples);
        for (int t = 0; t < set.numTables; ++t) {
            SCOPED_TRACE("waveform " + std::to_string(w) + " table " + std::to_string(t));
            ASSERT_EQ(set.tables[t].samples[kN], set.tables[t].samples[0]) << "guard sample";
            if (t > 0) {  // an increment picks the first table whose limit is above it
                ASSERT_EQ(&set.TableFor(set.tables[t - 1].maxIncrement - 1), &set.tables[t - 1]);
                ASSERT_EQ(&set.TableFor(set.tables[t - 1].maxIncrement), &set.tables[t]);
            }
            const double r = std::pow(2.0, t * (w == 0 ? 2400 : 100) / 1200.0);
            const auto x = SpectrumOf(set.tables[t].samples);
            for (int k = 1; k <= kN / 2; ++k) {
                if (k * r > kN / 2) {
                    ASSERT_LT(std::max(std::abs(x[k]), std::abs(x[kN - k])), kBound) << "harmonic " << k;
                } else if (std::abs(full[k]) > 4 * kBound) {  // strong enough to tell from noise
                    ASSERT_NEAR(std::abs(x[k]), std::abs(full[k]), 2 * kBound) << "harmonic " << k;
                }
            }
        }
    }
    // Sine tables step two octaves, the others a semitone, from one table sample per step.
    for (int t = 0; t < 5; ++t) EXPECT_EQ(Reference(0).tables[t].maxIncrement, 2097152u << (2 * t));
    EXPECT_EQ(Reference(2).tables[12].maxIncrement, 4194304u);
    EXPECT_EQ(Reference(2).tables[119].maxIncrement, uint32_t(std::pow(2.0, 119 / 12.0) * 2097152.0));
    // The sine's table 4 keeps 4 harmonics, of which it uses one, whole, at a scale of 16000.
    for (int i = 0; i < kN; ++i)
        ASSERT_NEAR(Reference(0).tables[4].samples[i], 16000.0 * std::sin(2.0 * std::numbers::pi * i / kN), 1.0) << i;
}

TEST_F(WaveTablesCache, PathFollowsEnvironment) {
    const char* xdg = std::getenv("XDG_CACHE_HOME");
    const std::string oldXdg = xdg ? xdg : "";
    EXPECT_EQ(WaveTableCachePath(), CachePath());
    ::unsetenv("VROK_CACHE_DIR");
    ::setenv("XDG_CACHE_HOME", "/x/cache", 1);
    EXPECT_EQ(WaveTableCachePath(), "/x/cache/vrok/Vrok_WaveTableCache.dat");
    ::unsetenv("XDG_CACHE_HOME");
    if (const char* home = std::getenv("HOME")) {
        EXPECT_EQ(WaveTableCachePath(), std::string(home) + "/.cache/vrok/Vrok_WaveTableCache.dat");
    }
    if (xdg) ::setenv("XDG_CACHE_HOME", oldXdg.c_str(), 1);
}

TEST_F(WaveTablesCache, BuildWritesLayoutThatLoadsAndRewritesByteForByte) {
    const std::string nested = root + "/a/b", path = nested + "/Vrok_WaveTableCache.dat";
    ::setenv("VROK_CACHE_DIR", nested.c_str(), 1);
    EXPECT_TRUE(LoadGivesReference()) << "built";
    // The directory was made and holds the cache alone: no temporary left behind.
    std::vector<fs::path> names;
    for (const auto& entry : fs::directory_iterator(nested)) names.push_back(entry.path().filename());
    ASSERT_EQ(names, std::vector<fs::path>{"Vrok_WaveTableCache.dat"});

    const Bytes bytes = FileBytes(path);
    ASSERT_EQ(bytes.size(), size_t(4 * 12 + (5 + 3 * 120) * 4102));
    EXPECT_EQ((std::vector{GetLe32(bytes, 0), GetLe32(bytes, 4), GetLe32(bytes, 8), GetLe32(bytes, 12 + 5 * 4102)}),
              (std::vector<uint32_t>{5, 5 * 4104, 2048, 120})) << "table count, bytes, length; next count";
    EXPECT_EQ(int16_t(uint8_t(bytes[14]) | uint8_t(bytes[15]) << 8), Reference(0).tables[0].samples[1]);
    EXPECT_TRUE(LoadGivesReference()) << "loaded";

    // Write after Read gives the same file.
    std::FILE* in = std::fopen(path.c_str(), "rb");
    std::FILE* out = std::fopen(CachePath().c_str(), "wb");
    ASSERT_TRUE(in && out);
    for (int w = 0; w < kNumWaveforms; ++w) {
        WaveTableSet set;
        EXPECT_TRUE(set.Read(in) && set.Write(out)) << w;
    }
    std::fclose(in);
    std::fclose(out);
    EXPECT_TRUE(FileBytes(CachePath()) == bytes);
}

TEST_F(WaveTablesCache, DamagedCacheIsRebuiltAndRewrittenAndUnwritableOneIsNoError) {
    ASSERT_TRUE(LoadGivesReference());
    const Bytes good = FileBytes(CachePath());
    const size_t second = 12 + 5 * 4102;
    std::vector<std::pair<const char*, Bytes>> damages;
    auto with = [&](const char* name, auto edit) {
        Bytes bytes = good;
        edit(bytes);
        damages.emplace_back(name, std::move(bytes));
    };
    with("empty", [](Bytes& b) { b.clear(); });
    with("cut in a header", [](Bytes& b) { b.resize(6); });
    with("cut in a table", [](Bytes& b) { b.resize(b.size() / 2); });
    with("last byte missing", [](Bytes& b) { b.pop_back(); });
    with("trailing garbage", [](Bytes& b) { b.push_back('x'); });
    with("wrong length field", [](Bytes& b) { PutLe32(b, 8, 2047); });
    with("wrong length field in a later section", [&](Bytes& b) { PutLe32(b, second + 8, 4096); });
    with("totalBytes mismatch", [](Bytes& b) { PutLe32(b, 4, 5 * 4102); });
    with("negative table count", [](Bytes& b) { PutLe32(b, 0, 0xFFFFFFFFu); });
    with("huge table count", [](Bytes& b) { PutLe32(b, 0, 500000); PutLe32(b, 4, 500000u * 4104u); });
    with("guard sample differs", [](Bytes& b) { b[12 + 2 * 2048] ^= 1; });
    with("random garbage", [](Bytes& b) { std::mt19937 random(99); for (char& c : b) c = char(random()); });
    with("four sine tables", [&](Bytes& b) {  // well-formed, but not what this build makes
        PutLe32(b, 0, 4);
        PutLe32(b, 4, 4 * 4104);
        b.erase(b.begin() + 12 + 4 * 4102, b.begin() + second);
    });
    for (const auto& [name, bytes] : damages) {
        SCOPED_TRACE(name);
        WriteBytes(CachePath(), bytes);
        EXPECT_TRUE(LoadGivesReference());
        EXPECT_TRUE(FileBytes(CachePath()) == good) << "cache not rewritten";
    }

    // Read alone refuses a bad section and leaves the set empty.
    WriteBytes(CachePath(), damages[5].second);
    std::FILE* in = std::fopen(CachePath().c_str(), "rb");
    WaveTableSet set = Reference(1);
    EXPECT_FALSE(in && set.Read(in));
    if (in) std::fclose(in);
    EXPECT_TRUE(set.tables.empty() && set.numTables == 0 && set.totalBytes == 0);

    // A cache that cannot be written still leaves the tables built.
    WriteBytes(root + "/plain_file", {'x'});
    ::setenv("VROK_CACHE_DIR", (root + "/plain_file/cache").c_str(), 1);
    EXPECT_TRUE(LoadGivesReference());
    EXPECT_EQ(std::distance(fs::directory_iterator(root), fs::directory_iterator()), 2);
}

TEST_F(WaveTablesCache, NoteTablesCutHarmonicsAboveTheirLimitAndAreSharedUntilTheLastRelease) {
    NoteTables::Acquire();
    for (int w = 0; w < kNumWaveforms; ++w) {
        float source[kN];
        for (int i = 0; i < kN; ++i) source[i] = NoteTableSource(w, i);
        const auto full = SpectrumOf(source);
        for (int n : {0, 60, 87, 100, 127}) {  // 127 keeps 99 harmonics: 27500 * 2048 / f(127) is just above 99
            SCOPED_TRACE("waveform " + std::to_string(w) + " note " + std::to_string(n));
            const double f = 440.0 * std::pow(2.0, (n - 3) / 12.0);
            const auto x = SpectrumOf(NoteTables::Get(w, n));
            for (int k = 0; k < kN; ++k) {
                const FftComplex expected = f * std::min(k, kN - k) / kN > 27500.0 ? 0.0 : full[k];
                ASSERT_LT(std::abs(x[k] - expected), 1e-3) << "bin " << k;
            }
        }
    }
    const float* first = NoteTables::Get(3, 64);
    NoteTables::Acquire();
    EXPECT_EQ(NoteTables::Get(3, 64), first);
    NoteTables::Release();
    EXPECT_NEAR(NoteTables::Get(0, 0)[512], 1.0f, 1e-5f) << "still held once: contents intact";
    NoteTables::Release();
    NoteTables::Release();  // unmatched: ignored rather than freeing tables twice
    NoteTables::Acquire();
    EXPECT_NEAR(NoteTables::Get(0, 0)[512], 1.0f, 1e-5f) << "built again";
    NoteTables::Release();
}

namespace {

using NoteTableBits = std::vector<float>;

// Acquires the note tables (loading or building them), copies them out and releases them.
NoteTableBits AcquireNoteTables() {
    NoteTables::Acquire();
    NoteTableBits bits;
    for (int w = 0; w < kNumWaveforms; ++w)
        for (int n = 0; n < NoteTables::kCount; ++n)
            bits.insert(bits.end(), std::begin(NoteTables::Get(w, n)), std::end(NoteTables::Get(w, n)));
    NoteTables::Release();
    return bits;
}

bool SameBits(const NoteTableBits& a, const NoteTableBits& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

}  // namespace

TEST_F(WaveTablesCache, NoteTablesLoadFromTheirCacheAndRebuildADamagedOneSilently) {
    const std::string path = root + "/Vrok_NoteTableCache.dat";
    EXPECT_EQ(NoteTableCachePath(), path);
    const NoteTableBits built = AcquireNoteTables();
    const Bytes good = FileBytes(path);
    ASSERT_EQ(good.size(), 32 + size_t(kNumWaveforms) * NoteTables::kCount * kN * sizeof(float));
    struct stat before {};
    ASSERT_EQ(::stat(path.c_str(), &before), 0);
    EXPECT_TRUE(SameBits(AcquireNoteTables(), built)) << "loaded";
    struct stat after {};
    ASSERT_EQ(::stat(path.c_str(), &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino) << "a valid cache is read, not rewritten";

    std::vector<std::pair<const char*, Bytes>> damages;
    auto with = [&](const char* name, auto edit) {
        Bytes bytes = good;
        edit(bytes);
        damages.emplace_back(name, std::move(bytes));
    };
    with("empty", [](Bytes& b) { b.clear(); });
    with("cut in the header", [](Bytes& b) { b.resize(20); });
    with("cut in a table", [](Bytes& b) { b.resize(b.size() / 2); });
    with("trailing byte", [](Bytes& b) { b.push_back(0); });
    with("other magic", [](Bytes& b) { b[3] ^= 0x20; });
    with("other table count", [](Bytes& b) { PutLe32(b, 12, 127); });
    with("other byte order", [](Bytes& b) { std::swap(b[20], b[23]); std::swap(b[21], b[22]); });
    with("checksum changed", [](Bytes& b) { b[31] ^= 1; });
    with("one bit of a table flipped", [](Bytes& b) { b[32 + 3 * 8192 + 77] ^= 4; });
    with("two words swapped", [](Bytes& b) { std::swap_ranges(b.begin() + 64, b.begin() + 68, b.begin() + 96); });
    with("random garbage", [](Bytes& b) { std::mt19937 random(5); for (char& c : b) c = char(random()); });
    for (const auto& [name, bytes] : damages) {
        SCOPED_TRACE(name);
        WriteBytes(path, bytes);
        EXPECT_TRUE(SameBits(AcquireNoteTables(), built));
        EXPECT_TRUE(FileBytes(path) == good) << "cache not rewritten";
    }

    // A cache that cannot be written still leaves the tables built.
    WriteBytes(root + "/plain_file", {'x'});
    ::setenv("VROK_CACHE_DIR", (root + "/plain_file/cache").c_str(), 1);
    EXPECT_TRUE(SameBits(AcquireNoteTables(), built));
}
