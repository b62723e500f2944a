// Wave tables: the transform they are built with, their band limits, table selection, the
// cache file and its recovery from damage, and the shared note tables.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "engine/fft.h"
#include "engine/wave_tables.h"

namespace {

using engine::FftComplex;
namespace fs = std::filesystem;

constexpr double kPi = 3.14159265358979323846;
constexpr int kN = kWaveTableLength;
constexpr int kCents[kNumWaveforms] = {2400, 100, 100, 100};
// Truncating to int16 moves each sample by less than 1, so a cut bin holds less than
// kN of error in an unscaled transform: anything above is a harmonic that survived.
constexpr double kTruncationBound = kN;

template <typename Sample>
std::vector<FftComplex> SpectrumOf(const Sample* samples) {
    std::vector<FftComplex> x(samples, samples + kN);
    engine::FftForward(x.data());
    return x;
}

WaveTableSet BuildFrom(int waveform, int cents) {
    std::vector<float> source(kN);
    for (int i = 0; i < kN; ++i) source[i] = WaveTableSource(waveform, i);
    WaveTableSet set;
    set.Build(source.data(), cents);
    return set;
}

const WaveTableSet& Reference(int waveform) {
    static const WaveTableSet sets[kNumWaveforms] = {BuildFrom(0, 2400), BuildFrom(1, 100),
                                                     BuildFrom(2, 100), BuildFrom(3, 100)};
    return sets[waveform];
}

bool SameTables(const WaveTableSet& a, const WaveTableSet& b) {
    if (a.numTables != b.numTables || a.totalBytes != b.totalBytes || a.tables.size() != b.tables.size())
        return false;
    for (size_t t = 0; t < a.tables.size(); ++t)
        if (a.tables[t].maxIncrement != b.tables[t].maxIncrement ||
            !std::equal(std::begin(a.tables[t].samples), std::end(a.tables[t].samples), b.tables[t].samples))
            return false;
    return true;
}

std::vector<char> FileBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), {});
}

void WriteBytes(const std::string& path, const std::vector<char>& bytes) {
    std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(), std::streamsize(bytes.size()));
}

void PutLe32(std::vector<char>& bytes, size_t at, uint32_t v) {
    for (int b = 0; b < 4; ++b) bytes[at + b] = char(v >> (8 * b));
}

uint32_t GetLe32(const std::vector<char>& bytes, size_t at) {
    uint32_t v = 0;
    for (int b = 0; b < 4; ++b) v |= uint32_t(uint8_t(bytes[at + b])) << (8 * b);
    return v;
}

// Points the cache at a fresh directory for one test and puts the environment back after.
class WaveTablesCache : public ::testing::Test {
protected:
    void SetUp() override {
        if (const char* old = std::getenv("VROK_CACHE_DIR")) oldDir = old;
        std::string pattern = (fs::temp_directory_path() / "vrok_wavetables_XXXXXX").string();
        ASSERT_NE(::mkdtemp(pattern.data()), nullptr);
        root = pattern;
        ::setenv("VROK_CACHE_DIR", root.c_str(), 1);
    }
    void TearDown() override {
        if (oldDir.empty())
            ::unsetenv("VROK_CACHE_DIR");
        else
            ::setenv("VROK_CACHE_DIR", oldDir.c_str(), 1);
        std::error_code ignored;
        fs::remove_all(root, ignored);
    }
    std::string CachePath() const { return root + "/Vrok_WaveTableCache.dat"; }

    std::string root;
    std::string oldDir;
};

}  // namespace

TEST(WaveTablesFft, ForwardThenInverseIsIdentity) {
    std::mt19937 random(1234);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::vector<FftComplex> original(kN);
    for (auto& x : original) x = FftComplex(value(random), value(random));
    std::vector<FftComplex> x = original;
    engine::FftForward(x.data());
    engine::FftInverse(x.data());
    for (int i = 0; i < kN; ++i) ASSERT_LT(std::abs(x[i] - original[i]), 1e-12) << "at " << i;
}

TEST(WaveTablesFft, ForwardIsUnscaledWithNegativeExponent) {
    // A tone e^(+2 pi i 5 n / N) puts all of its N into bin 5.
    std::vector<FftComplex> x(kN);
    for (int n = 0; n < kN; ++n) x[n] = std::polar(1.0, 2.0 * kPi * 5 * n / kN);
    engine::FftForward(x.data());
    for (int k = 0; k < kN; ++k) ASSERT_LT(std::abs(x[k] - FftComplex(k == 5 ? kN : 0, 0)), 1e-9) << k;
}

TEST(WaveTablesBandLimit, EveryTableKeepsExactlyTheHarmonicsUpToItsLimit) {
    for (int w = 0; w < kNumWaveforms; ++w) {
        const WaveTableSet& set = Reference(w);
        const auto full = SpectrumOf(set.tables[0].samples);
        for (int t = 0; t < set.numTables; ++t) {
            SCOPED_TRACE("waveform " + std::to_string(w) + " table " + std::to_string(t));
            const double r = std::pow(2.0, t * kCents[w] / 1200.0);
            const auto x = SpectrumOf(set.tables[t].samples);
            for (int k = 1; k <= kN / 2; ++k) {
                const double magnitude = std::max(std::abs(x[k]), std::abs(x[kN - k]));
                if (k * r > kN / 2) {
                    ASSERT_LT(magnitude, kTruncationBound) << "harmonic " << k << " above 1024/r";
                } else if (std::abs(full[k]) > 4 * kTruncationBound) {
                    // Harmonics strong enough to tell from noise must come through unchanged.
                    ASSERT_NEAR(std::abs(x[k]), std::abs(full[k]), 2 * kTruncationBound) << "harmonic " << k;
                }
            }
        }
    }
}

TEST(WaveTablesBandLimit, FourthSineSpacedTableKeepsFourHarmonics) {
    // At 2400 cents table 4 plays 256 times faster: 1024 / 256 = 4 harmonics.
    const auto x = SpectrumOf(BuildFrom(2, 2400).tables[4].samples);
    for (int k = 1; k <= 4; ++k) EXPECT_GT(std::abs(x[k]), 1e6) << "harmonic " << k;
    for (int k = 5; k <= kN / 2; ++k) ASSERT_LT(std::abs(x[k]), kTruncationBound) << "harmonic " << k;

    // The sine uses one of the four and comes through whole, at a scale of 16000.
    for (int i = 0; i < kN; ++i)
        ASSERT_NEAR(Reference(0).tables[4].samples[i], 16000.0 * std::sin(2.0 * kPi * i / kN), 1.0) << i;
}

TEST(WaveTablesBandLimit, SetsHaveTheirSizesGuardsAndIncrementLimits) {
    const int expectedCounts[kNumWaveforms] = {5, 120, 120, 120};
    for (int w = 0; w < kNumWaveforms; ++w) {
        const WaveTableSet& set = Reference(w);
        ASSERT_EQ(set.numTables, expectedCounts[w]);
        ASSERT_EQ(int(set.tables.size()), set.numTables);
        EXPECT_EQ(set.totalBytes, set.numTables * 4104);
        for (const WaveTable& table : set.tables) ASSERT_EQ(table.samples[kN], table.samples[0]);
    }
    // Sine tables step two octaves, the others a semitone, from one table sample per step.
    for (int t = 0; t < 5; ++t) EXPECT_EQ(Reference(0).tables[t].maxIncrement, 2097152u << (2 * t));
    EXPECT_EQ(Reference(2).tables[12].maxIncrement, 4194304u);
    EXPECT_EQ(Reference(2).tables[119].maxIncrement, uint32_t(std::pow(2.0, 119 / 12.0) * 2097152.0));
}

TEST(WaveTablesSelect, IncrementPicksFirstTableWithHigherLimit) {
    for (int w = 0; w < kNumWaveforms; ++w) {
        const WaveTableSet& set = Reference(w);
        EXPECT_EQ(&set.TableFor(0), &set.tables[0]);
        for (int t = 0; t + 1 < set.numTables; ++t) {
            ASSERT_EQ(&set.TableFor(set.tables[t].maxIncrement - 1), &set.tables[t]);
            ASSERT_EQ(&set.TableFor(set.tables[t].maxIncrement), &set.tables[t + 1]);
        }
        EXPECT_EQ(&set.TableFor(set.tables.back().maxIncrement), &set.tables.back());
        EXPECT_EQ(&set.TableFor(0xFFFFFFFFu), &set.tables.back());
    }
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
    const std::string nested = root + "/a/b";
    ::setenv("VROK_CACHE_DIR", nested.c_str(), 1);
    WaveTableSet built[kNumWaveforms];
    LoadOrBuildWaveTables(built);
    for (int w = 0; w < kNumWaveforms; ++w) EXPECT_TRUE(SameTables(built[w], Reference(w)));

    // The directory was made and holds the cache alone: no temporary left behind.
    std::vector<fs::path> names;
    for (const auto& entry : fs::directory_iterator(nested)) names.push_back(entry.path().filename());
    ASSERT_EQ(names, std::vector<fs::path>{"Vrok_WaveTableCache.dat"});

    const std::string path = nested + "/Vrok_WaveTableCache.dat";
    const std::vector<char> bytes = FileBytes(path);
    ASSERT_EQ(bytes.size(), size_t(4 * 12 + (5 + 3 * 120) * 4102));
    EXPECT_EQ(GetLe32(bytes, 0), 5u);
    EXPECT_EQ(GetLe32(bytes, 4), 5u * 4104u);
    EXPECT_EQ(GetLe32(bytes, 8), 2048u);
    EXPECT_EQ(int16_t(uint8_t(bytes[14]) | uint8_t(bytes[15]) << 8), Reference(0).tables[0].samples[1]);
    EXPECT_EQ(GetLe32(bytes, 12 + 5 * 4102), 120u);

    WaveTableSet loaded[kNumWaveforms];
    LoadOrBuildWaveTables(loaded);
    for (int w = 0; w < kNumWaveforms; ++w) EXPECT_TRUE(SameTables(loaded[w], Reference(w)));

    // Write after Read gives the same file.
    std::FILE* in = std::fopen(path.c_str(), "rb");
    std::FILE* out = std::fopen(CachePath().c_str(), "wb");
    ASSERT_TRUE(in && out);
    WaveTableSet read[kNumWaveforms];
    for (auto& set : read) EXPECT_TRUE(set.Read(in) && set.Write(out));
    std::fclose(in);
    std::fclose(out);
    EXPECT_TRUE(FileBytes(CachePath()) == bytes);
}

TEST_F(WaveTablesCache, DamagedCacheIsRebuiltAndRewritten) {
    WaveTableSet sets[kNumWaveforms];
    LoadOrBuildWaveTables(sets);
    const std::vector<char> good = FileBytes(CachePath());
    const size_t second = 12 + 5 * 4102;

    std::vector<std::pair<const char*, std::vector<char>>> damages;
    auto damage = [&](const char* name, size_t at, uint32_t value) {
        damages.emplace_back(name, good);
        PutLe32(damages.back().second, at, value);
    };
    damages.emplace_back("empty", std::vector<char>());
    damages.emplace_back("cut in a header", std::vector<char>(good.begin(), good.begin() + 6));
    damages.emplace_back("cut in a table", std::vector<char>(good.begin(), good.begin() + good.size() / 2));
    damages.emplace_back("last byte missing", std::vector<char>(good.begin(), good.end() - 1));
    damages.emplace_back("trailing garbage", good);
    damages.back().second.push_back('x');
    damage("wrong length field", 8, 2047);
    damage("wrong length field in a later section", second + 8, 4096);
    damage("totalBytes mismatch", 4, 5 * 4102);
    damage("negative table count", 0, 0xFFFFFFFFu);
    // Well-formed, but the sine section lacks its last table: not what this build makes.
    damage("four sine tables", 0, 4);
    PutLe32(damages.back().second, 4, 4 * 4104);
    damages.back().second.erase(damages.back().second.begin() + 12 + 4 * 4102,
                                damages.back().second.begin() + second);
    damage("huge table count", 0, 500000);  // refused by its count, nothing allocated
    PutLe32(damages.back().second, 4, 500000u * 4104u);
    damages.emplace_back("guard sample differs", good);
    damages.back().second[12 + 2 * 2048] ^= 1;
    std::mt19937 random(99);
    damages.emplace_back("random garbage", std::vector<char>(good.size()));
    for (char& c : damages.back().second) c = char(random());

    for (const auto& [name, bytes] : damages) {
        SCOPED_TRACE(name);
        WriteBytes(CachePath(), bytes);
        WaveTableSet rebuilt[kNumWaveforms];
        LoadOrBuildWaveTables(rebuilt);
        for (int w = 0; w < kNumWaveforms; ++w) EXPECT_TRUE(SameTables(rebuilt[w], Reference(w))) << w;
        EXPECT_TRUE(FileBytes(CachePath()) == good) << "cache not rewritten";
    }

    // Read alone refuses a bad section and leaves the set empty.
    WriteBytes(CachePath(), damages[5].second);
    std::FILE* in = std::fopen(CachePath().c_str(), "rb");
    ASSERT_NE(in, nullptr);
    WaveTableSet set = Reference(1);
    EXPECT_FALSE(set.Read(in));
    std::fclose(in);
    EXPECT_TRUE(set.tables.empty() && set.numTables == 0 && set.totalBytes == 0);
}

TEST_F(WaveTablesCache, UnwritableDirectoryStillBuildsTables) {
    WriteBytes(root + "/plain_file", {'x'});
    ::setenv("VROK_CACHE_DIR", (root + "/plain_file/cache").c_str(), 1);
    WaveTableSet sets[kNumWaveforms];
    LoadOrBuildWaveTables(sets);
    for (int w = 0; w < kNumWaveforms; ++w) EXPECT_TRUE(SameTables(sets[w], Reference(w)));
    EXPECT_EQ(std::distance(fs::directory_iterator(root), fs::directory_iterator()), 1);
}

TEST(NoteTablesBuild, TablesCutHarmonicsAboveTheirLimitAndKeepTheRest) {
    NoteTables::Acquire();
    for (int w = 0; w < kNumWaveforms; ++w) {
        std::vector<float> source(kN);
        for (int i = 0; i < kN; ++i) source[i] = NoteTableSource(w, i);
        const auto full = SpectrumOf(source.data());
        for (int n : {0, 60, 87, 100, 127}) {
            SCOPED_TRACE("waveform " + std::to_string(w) + " note " + std::to_string(n));
            const double f = 440.0 * std::pow(2.0, (n - 3) / 12.0);
            const auto x = SpectrumOf(NoteTables::Get(w, n));
            for (int k = 0; k < kN; ++k) {
                const double harmonic = k <= kN / 2 ? k : kN - k;
                const FftComplex expected = f * harmonic / kN > 27500.0 ? 0.0 : full[k];
                ASSERT_LT(std::abs(x[k] - expected), 1e-3) << "bin " << k;
            }
        }
    }
    // The top note keeps 99 harmonics: 27500 * 2048 / f(127) is just above 99.
    const auto top = SpectrumOf(NoteTables::Get(2, 127));
    EXPECT_GT(std::abs(top[99]), 1.0);
    EXPECT_LT(std::abs(top[100]), 1e-3);
    NoteTables::Release();
}

TEST(NoteTablesBuild, SharedUntilTheLastReleaseThenBuiltAgain) {
    NoteTables::Acquire();
    const float* first = NoteTables::Get(3, 64);
    NoteTables::Acquire();
    EXPECT_EQ(NoteTables::Get(3, 64), first);
    NoteTables::Release();
    // Still held once: contents intact.
    EXPECT_NEAR(NoteTables::Get(0, 0)[512], 1.0f, 1e-5f);
    NoteTables::Release();
    NoteTables::Release();  // unmatched: ignored rather than freeing tables twice
    NoteTables::Acquire();
    EXPECT_NEAR(NoteTables::Get(0, 0)[512], 1.0f, 1e-5f);
    NoteTables::Release();
}
