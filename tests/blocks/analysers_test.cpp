// The analysers: what each captures, their limits and windows, and that a display reading
// concurrently with Work never gets a torn frame.
#include "blocks/analysers.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <random>
#include <thread>
#include <vector>

#include "blocks/block_harness.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;

std::vector<float> ReadAll(ScopeRing& ring) {
    std::vector<float> out(size_t(ring.Length()));
    out.resize(size_t(ring.Read(out.data(), ring.Length())));
    return out;
}

bool AllEqual(const std::vector<float>& x, float value) {
    for (float s : x)
        if (s != value) return false;
    return true;
}
}  // namespace

TEST(ScopeCapture, PolyphonicRingsHoldEachVoiceTimesGain) {
    CScopeBlock scope(&Engine(3), kRate);
    EXPECT_TRUE(scope.isOutput);
    EXPECT_EQ(scope.rings[0].Length(), 88200) << "two seconds";
    scope.SetParameter(0, 1.0f);  // gain 2
    Step(scope, 100, 3, [&] {
        Feed(scope, 0, 0, 100, Const(0.25f));
        Feed(scope, 0, 2, 100, Const(-0.125f));
    });
    EXPECT_FALSE(scope.active[0]) << "a scope makes no output";
    const std::vector<float> v0 = ReadAll(scope.rings[0]), v1 = ReadAll(scope.rings[1]),
                             v2 = ReadAll(scope.rings[2]);
    ASSERT_EQ(v0.size(), 100u);
    EXPECT_TRUE(AllEqual(v0, 0.5f));
    EXPECT_TRUE(AllEqual(v1, 0.0f) && v1.size() == 100u) << "an unwritten voice records silence";
    EXPECT_TRUE(AllEqual(v2, -0.25f));
    EXPECT_EQ(scope.rings[0].Available(), 0) << "read once";
    EXPECT_TRUE(scope.displayResetPending);
    Engine(1);
}

TEST(ScopeCapture, MixRowGoesToRingZeroOnceAndSwitchingEmptiesRings) {
    CScopeBlock scope(&Engine(2), kRate);
    Step(scope, 64, 2, [&] {
        Feed(scope, 0, 0, 64, Const(0.25f));
        Feed(scope, 0, 1, 64, Const(0.25f));
    });
    ASSERT_EQ(scope.rings[1].Available(), 64);
    scope.SetParameter(1, 0.0f);  // polyphonic off: every ring empties
    for (ScopeRing& ring : scope.rings) EXPECT_EQ(ring.Available(), 0);

    Step(scope, 64, 2, [&] {
        Feed(scope, 0, 0, 64, Const(0.25f));
        Feed(scope, 0, 1, 64, Const(0.5f));
    });
    const std::vector<float> mix = ReadAll(scope.rings[0]);
    EXPECT_EQ(mix.size(), 64u) << "written once, after the last voice";
    EXPECT_TRUE(AllEqual(mix, 0.75f));
    EXPECT_EQ(scope.rings[1].Available(), 0);
    scope.SetParameter(1, 0.39f);
    EXPECT_FALSE(scope.polyphonic) << "on from 0.4";
    scope.SetParameter(2, 1.0f);
    EXPECT_EQ(scope.stride, 344) << "slow at 44100 Hz";
    scope.Reset();
    EXPECT_TRUE(scope.monophonic);
    Engine(1);
}

TEST(ScopeCapture, RingKeepsTheNewestWhenTheReaderFallsBehind) {
    ScopeRing ring;
    ring.Allocate(1000);
    std::vector<float> x(256);
    for (int block = 0; block < 10; ++block) {
        for (int i = 0; i < 256; ++i) x[size_t(i)] = float(block * 256 + i);
        ring.Write(x.data(), 1.0f, 256);
    }
    EXPECT_EQ(ring.Available(), 1000);
    std::vector<float> got(2000);
    ASSERT_EQ(ring.Read(got.data(), 2000), 1000);
    EXPECT_EQ(got[0], 1560.0f) << "the oldest kept sample";
    EXPECT_EQ(got[999], 2559.0f);
    ring.Write(x.data(), 1.0f, 10);
    ring.SkipToNewest(3);
    ASSERT_EQ(ring.Read(got.data(), 100), 3);
    EXPECT_EQ(got[0], x[7]);
}

// A writer thread fills the ring with a running count while a reader drains it: every chunk
// the reader gets must be a run of consecutive values, or it would draw a torn frame.
TEST(ScopeCapture, ConcurrentReaderNeverSeesATornFrame) {
    ScopeRing ring;
    ring.Allocate(512);  // small, so the writer laps the reader often
    std::atomic<bool> done{false};
    std::thread writer([&] {
        std::mt19937 random(7);
        float x[kMaxFrames];
        float next = 0.0f;
        while (!done.load()) {
            const int n = 1 + int(random() % kMaxFrames);
            for (int i = 0; i < n; ++i) x[i] = next++;
            ring.Write(x, 1.0f, n);
            if (next > 8.0e6f) next = 0.0f;  // stay where floats count exactly
        }
    });
    std::vector<float> got(512);
    long chunks = 0, broken = 0;
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
    while (std::chrono::steady_clock::now() < until) {
        const int n = ring.Read(got.data(), 512);
        for (int i = 1; i < n; ++i)
            if (got[size_t(i)] != got[size_t(i - 1)] + 1.0f && got[size_t(i)] != 0.0f) ++broken;
        chunks += n > 0;
    }
    done = true;
    writer.join();
    EXPECT_GT(chunks, 0);
    EXPECT_EQ(broken, 0);
}

// The other two hand-overs under the same kind of load: a row snapshot is always one whole
// row, and a taken spectrum capture is whole sample blocks in the order they were written.
TEST(CaptureConcurrency, SnapshotRowsAndSpectrumCapturesArriveWhole) {
    RowSnapshot snapshot;
    CSpectrumBlock spectrum(&Engine(), kRate);
    std::atomic<bool> done{false};
    std::thread writer([&] {
        float row[kMaxFrames];
        for (int k = 1; !done.load(); ++k) {
            std::fill_n(row, kMaxFrames, float(k));
            snapshot.Publish(row, kMaxFrames);
            Step(spectrum, 64, 1, [&] { Feed(spectrum, 0, 0, 64, Const(float(k))); });
        }
    });
    float shown[kMaxFrames];
    std::vector<float> taken;
    long rows = 0, captures = 0, broken = 0;
    const auto until = std::chrono::steady_clock::now() + std::chrono::milliseconds(300);
    while (std::chrono::steady_clock::now() < until) {
        const int n = snapshot.Read(shown);
        for (int i = 1; i < n; ++i) broken += shown[i] != shown[0];
        rows += n > 0;
        if (spectrum.capture.Take(taken)) {
            ++captures;
            for (size_t block = 0; block < taken.size() / 64; ++block)
                for (size_t i = 1; i < 64; ++i) broken += taken[block * 64 + i] != taken[block * 64];
            for (size_t block = 1; block < taken.size() / 64; ++block)
                broken += taken[block * 64] != taken[(block - 1) * 64] + 0.5f;
        }
    }
    done = true;
    writer.join();
    EXPECT_GT(rows, 0);
    EXPECT_GT(captures, 0);
    EXPECT_EQ(broken, 0);
}

TEST(LargeScopeCapture, CopiesAndPublishesItsRow) {
    CLargeScopeBlock scope(&Engine(), kRate);
    Step(scope, 32, 1, [&] { Feed(scope, 0, 0, 32, [](int i) { return float(i); }); });
    EXPECT_TRUE(scope.active[0]);
    float shown[kMaxFrames];
    ASSERT_EQ(scope.display.Read(shown), 32);
    EXPECT_EQ(shown[31], 31.0f);
    Step(scope, 32, 1);
    EXPECT_FALSE(scope.active[0]);
    EXPECT_EQ(scope.output[0][5], 0.0f) << "an unwritten port zeroes the row";
    scope.Reset();
    EXPECT_TRUE(scope.monophonic);
    ASSERT_EQ(scope.display.Read(shown), 32);
    EXPECT_EQ(shown[31], 0.0f);
}

TEST(VuCapture, MeterSumsTheMeanAbsoluteOfEveryVoice) {
    CVuBlock vu(&Engine(3), kRate);
    Step(vu, 128, 3, [&] {
        for (int v = 0; v < 3; ++v) Feed(vu, 0, v, 128, [](int i) { return i % 2 ? 0.5f : -0.5f; });
    });
    EXPECT_FLOAT_EQ(vu.meter, 1.5f);
    EXPECT_FLOAT_EQ(vu.displayMeter, 1.5f);
    EXPECT_TRUE(vu.meterDone);
    // Two voices silent: their rows are zeroed and count nothing.
    Step(vu, 128, 3, [&] { Feed(vu, 0, 1, 128, Const(0.25f)); });
    EXPECT_FLOAT_EQ(vu.displayMeter, 0.25f);
    EXPECT_FALSE(vu.active[0]);
    EXPECT_EQ(vu.output[0][3], 0.0f);
    Engine(1);
}

TEST(SpectrumCapture, FillStopsAtTheLimitUntilTaken) {
    struct Case {
        int limit, blockSize;
        std::vector<int> positions;  // after each sample block
    };
    const Case cases[] = {
        {CSpectrumBlock::kLimit, 256, {256, 512, 512}},
        {CSpectrumBlock::kLimit, 100, {100, 200, 300, 300}},
        {CMegaSpectrumBlock::kLimit, 256, {256, 512, 768, 1024, 1280, 1536, 1792, 2048, 2304, 2304}}};
    for (const Case& c : cases) {
        std::unique_ptr<CSpectrumBase> block;
        if (c.limit == CSpectrumBlock::kLimit)
            block = std::make_unique<CSpectrumBlock>(&Engine(), kRate);
        else
            block = std::make_unique<CMegaSpectrumBlock>(&Engine(), kRate);
        for (int expected : c.positions) {
            Step(*block, c.blockSize, 1, [&] { Feed(*block, 0, 0, c.blockSize, Const(1.0f)); });
            EXPECT_EQ(block->capture.FillPosition(), expected) << c.limit << "/" << c.blockSize;
        }
        std::vector<float> taken;
        ASSERT_TRUE(block->capture.Take(taken));
        EXPECT_EQ(int(taken.size()), c.positions.back());
        EXPECT_EQ(taken[0], 0.5f) << "half of each sample";
        EXPECT_EQ(block->capture.FillPosition(), 0) << "rewound";
        EXPECT_FALSE(block->capture.Take(taken)) << "nothing new yet";
    }
}

TEST(SpectrumCapture, VoicesAddAndSilentFirstVoiceZeroes) {
    CSpectrumBlock spectrum(&Engine(2), kRate);
    Step(spectrum, 256, 2, [&] {
        Feed(spectrum, 0, 0, 256, Const(1.0f));
        Feed(spectrum, 0, 1, 256, Const(0.5f));
    });
    Step(spectrum, 256, 2, [&] { Feed(spectrum, 0, 1, 256, Const(1.0f)); });
    std::vector<float> taken;
    ASSERT_TRUE(spectrum.capture.Take(taken));
    EXPECT_FLOAT_EQ(taken[10], 0.75f);
    EXPECT_FLOAT_EQ(taken[300], 0.5f) << "the silent first voice cleared the stale entries";
    Engine(1);
}

TEST(SpectrumCapture, SinePeakLandsInItsBin) {
    struct Case {
        bool mega;
        int bin;
    };
    for (const Case c : {Case{false, 10}, Case{true, 64}, Case{true, 700}}) {
        std::unique_ptr<CSpectrumBase> block;
        const int length = c.mega ? CMegaSpectrumBlock::kLength : CSpectrumBlock::kLength;
        if (c.mega)
            block = std::make_unique<CMegaSpectrumBlock>(&Engine(), kRate);
        else
            block = std::make_unique<CSpectrumBlock>(&Engine(), kRate);
        int t = 0;
        while (block->capture.FillPosition() < block->capture.Limit()) {
            Step(*block, kMaxFrames, 1, [&] {
                Feed(*block, 0, 0, kMaxFrames,
                     [&](int i) { return float(std::sin(2.0 * M_PI * c.bin * (t + i) / length)); });
            });
            t += kMaxFrames;
        }
        std::vector<float> taken;
        ASSERT_TRUE(block->capture.Take(taken));
        const double* window = c.mega ? static_cast<CMegaSpectrumBlock&>(*block).kaiserBessel.data()
                                      : static_cast<CSpectrumBlock&>(*block).hamming.data();
        const std::vector<float> magnitudes = MagnitudeSpectrum(taken, window, length);
        ASSERT_EQ(int(magnitudes.size()), length / 2 + 1);
        const auto peak = std::max_element(magnitudes.begin(), magnitudes.end()) - magnitudes.begin();
        EXPECT_EQ(peak, c.bin) << "length " << length;
    }
}

TEST(MegaSpectrum, VisibleRangeWindowsAndRamp) {
    CMegaSpectrumBlock mega(&Engine(), kRate);
    EXPECT_EQ(mega.visibleStart, 0.0f);
    EXPECT_EQ(mega.visibleEnd, 1024.0f) << "zoom 1 shows bins 0 to 1024";
    mega.SetParameter(0, 1.0f);
    mega.SetParameter(1, 1.0f);
    EXPECT_FLOAT_EQ(mega.zoom, 17.0f);
    EXPECT_FLOAT_EQ(mega.visibleEnd - mega.visibleStart, 1024.0f / 17.0f);
    EXPECT_FLOAT_EQ(mega.visibleEnd, 1024.0f) << "offset 1 shows the top bins";
    mega.SetParameter(3, 1.0f);
    EXPECT_FLOAT_EQ(mega.falloff, 0.1f);

    const std::vector<double>& kbd = mega.kaiserBessel;
    ASSERT_EQ(kbd.size(), 2048u);
    for (int i = 0; i < 1024; ++i) ASSERT_EQ(kbd[size_t(i)], kbd[size_t(2047 - i)]) << i;
    for (int i = 1; i < 1024; ++i) ASSERT_GT(kbd[size_t(i)], kbd[size_t(i - 1)]) << "rising to the middle";
    EXPECT_GT(kbd[1023], 0.99);
    EXPECT_LT(kbd[1023], 1.0) << "the total plus one keeps the top below 1";
    EXPECT_NEAR(mega.hamming[1024], 1.0, 1e-6);
    EXPECT_NEAR(mega.hamming[0], 0.08, 1e-9);

    const std::vector<uint32_t>& ramp = mega.colourRamp;
    ASSERT_EQ(ramp.size(), 1023u);
    EXPECT_EQ(ramp[254], 254u);
    EXPECT_EQ(ramp[255], 0xFFu);
    EXPECT_EQ(ramp[510], 0xFF0000u) << "blue has turned red";
    EXPECT_EQ(ramp[766], 0xFFFF00u);
    EXPECT_EQ(ramp[1022], 0xFFFFFFu);
}
