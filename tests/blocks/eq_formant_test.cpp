// EQ and formant: gains measured from sine renders, the all-pass "off" band, the one block
// of stale tail, and the vowel filter's long-run stability and clean restarts.
#include "blocks/eq_formant.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>
#include <vector>

#include "blocks/block_harness.h"
#include "document/block_types.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;

// RMS gain of voice 0 for a unit sine at `hertz`, measured after a settling second.
double SineGain(CAudioBlock& block, double hertz) {
    const int blocks = int(kRate / kMaxFrames) * 2;
    double in = 0.0, out = 0.0;
    long n = 0;
    for (int b = 0; b < blocks; ++b) {
        Step(block, kMaxFrames, 1, [&] {
            Feed(block, 0, 0, kMaxFrames, [&](int i) {
                return float(std::sin(2.0 * std::numbers::pi * hertz * double(n + i) / kRate));
            });
        });
        for (int i = 0; i < kMaxFrames; ++i, ++n) {
            if (b < blocks / 2) continue;
            const double x = std::sin(2.0 * std::numbers::pi * hertz * double(n) / kRate);
            in += x * x;
            out += double(block.output[0][i]) * double(block.output[0][i]);
        }
    }
    return std::sqrt(out / in);
}

// Stored "dB" value for a gain in decibels.
float StoredDb(float db) { return db / 50.0f + 0.5f; }
}  // namespace

TEST(EqFormantTable, NamesParametersPortsAndChoices) {
    std::unique_ptr<CAudioBlock> eq(CreateBlock(Engine(), 57, kRate));
    std::unique_ptr<CAudioBlock> formant(CreateBlock(Engine(), 59, kRate));
    ASSERT_TRUE(eq && formant);
    EXPECT_EQ(eq->name, "Eq");
    EXPECT_EQ(eq->numParameters, 12);
    EXPECT_EQ(eq->numPorts, 1);
    EXPECT_EQ(formant->name, "Formant");
    EXPECT_EQ(formant->numParameters, 3);
    EXPECT_EQ(formant->numPorts, 2);
    EXPECT_EQ(eq->ParameterChoices(8), (std::vector<std::wstring>{L"off", L"peak", L"low", L"high"}));
    EXPECT_EQ(formant->ParameterChoices(2), (std::vector<std::wstring>{L"A", L"E", L"I", L"O", L"U"}));
    EXPECT_EQ(eq->DescribeValue(5, 1.0f), "2e+04 Hz");
    EXPECT_EQ(eq->DescribeValue(7, 0.74f), "12 dB");
    EXPECT_EQ(eq->DescribeValue(6, 0.0f), "0.01");
    EXPECT_EQ(formant->DescribeValue(0, 0.25f), "25%");
}

TEST(EqDesign, DefaultBandsAreAllPassesAtTheirCurveFrequencies) {
    CEqBlock eq(&Engine(), kRate);
    const float expected[] = {70.4f, 704.0f, 7040.0f};  // the curve at 1/6, 1/2 and 5/6
    for (int b = 0; b < 3; ++b) {
        EXPECT_EQ(eq.bands[b].type, EqBand::kOff);
        EXPECT_NEAR(eq.bands[b].frequency, expected[b], expected[b] * 0.02f) << b;
    }
    EXPECT_EQ(CEqBlock::FrequencyHz(1.0f), 20000.0f);
    EXPECT_EQ(CEqBlock::FrequencyHz(0.0f), 22.0f);
    for (double hz : {50.0, 704.0, 3000.0, 12000.0}) EXPECT_NEAR(SineGain(eq, hz), 1.0, 0.01) << hz;
}

TEST(EqDesign, PeakAndShelvesGiveTheAskedGain) {
    struct Case {
        float type;  // stored TYPE
        float db;
        double probeRatio;  // probe frequency relative to the band's
    };
    for (const Case& c : {Case{0.34f, 12.0f, 1.0}, Case{0.34f, -9.0f, 1.0}, Case{0.34f, 0.0f, 1.0},
                          Case{0.67f, 6.0f, 0.05}, Case{1.0f, -6.0f, 8.0}}) {
        CEqBlock eq(&Engine(), kRate);
        eq.SetParameter(4, c.type);
        eq.SetParameter(5, 0.5f);  // 704 Hz
        eq.SetParameter(6, 0.1f);
        eq.SetParameter(7, StoredDb(c.db));
        const double hz = eq.bands[1].frequency * c.probeRatio;
        const double gainDb = 20.0 * std::log10(SineGain(eq, hz));
        EXPECT_NEAR(gainDb, c.db, 0.2) << c.type << " " << c.db;
    }
}

TEST(EqWork, AStoppedVoiceRendersOneStaleBlockThenIsSilentWithCleanHistory) {
    CEqBlock eq(&Engine(3), kRate);
    Step(eq, 64, 3, [&] { Feed(eq, 0, 2, 64, Const(0.5f)); });
    EXPECT_EQ(eq.active[2], 1);
    EXPECT_EQ(eq.active[0], 0);
    Step(eq, 64, 3);
    EXPECT_EQ(eq.active[2], 1);
    for (const EqHistory& h : eq.history[2]) EXPECT_TRUE(h.x1 == 0 && h.x2 == 0 && h.y1 == 0 && h.y2 == 0);
    Step(eq, 64, 3);
    EXPECT_EQ(eq.active[2], 0);
}

TEST(EqWork, MovingABandClearsItsHistoryInEveryVoice) {
    CEqBlock eq(&Engine(), kRate);
    Step(eq, 64, 2, [&] {
        Feed(eq, 0, 0, 64, Const(0.5f));
        Feed(eq, 0, 1, 64, Const(0.5f));
    });
    eq.SetParameter(9, 0.3f);
    for (int v = 0; v < 2; ++v) {
        EXPECT_EQ(eq.history[v][2].x1, 0.0f);
        EXPECT_NE(eq.history[v][1].x1, 0.0f);
    }
}

TEST(FormantWork, StaysFiniteAndBoundedOverLongNoiseWithMovingMorph) {
    // Every pair of vowels, morphed across its whole range: the "A" to "U" blends in the
    // middle are unstable by their coefficients and must be caught, not left to overflow.
    std::minstd_rand random(7);
    std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
    for (int pair = 0; pair < 25; ++pair) {
        CFormantBlock formant(&Engine(), kRate);
        formant.SetParameter(1, float(pair / 5) / 4.0f);
        formant.SetParameter(2, float(pair % 5) / 4.0f);
        float peak = 0.0f;
        const int blocks = int(kRate * 4 / kMaxFrames);
        for (int b = 0; b < blocks; ++b) {
            Step(formant, kMaxFrames, 1, [&] {
                Feed(formant, 0, 0, kMaxFrames, [&](int) { return unit(random); });
                Feed(formant, 1, 0, kMaxFrames, Const(float(b % 100) / 100.0f));
            });
            for (int i = 0; i < kMaxFrames; ++i) {
                ASSERT_TRUE(std::isfinite(formant.output[0][i])) << pair << " block " << b;
                peak = std::max(peak, std::fabs(formant.output[0][i]));
            }
        }
        EXPECT_GT(peak, 0.01f) << pair;
        EXPECT_LT(peak, 60.0f) << pair;
        // Blends away from the unstable middle keep to the level of the vowels themselves.
        if (pair / 5 + pair % 5 != 4 || pair == 12) {
            EXPECT_LT(peak, 2.0f) << pair;
        }
    }
}

TEST(FormantWork, SameVowelsIgnoreMorphAndALostInputStartsClean) {
    CFormantBlock still(&Engine(), kRate), moved(&Engine(), kRate);
    for (CFormantBlock* f : {&still, &moved}) {
        f->SetParameter(1, 0.25f);
        f->SetParameter(2, 0.25f);
    }
    moved.SetParameter(0, 0.8f);
    auto saw = [](int i) { return float(i % 100) / 50.0f - 1.0f; };
    for (int b = 0; b < 10; ++b) {
        Step(still, kMaxFrames, 1, [&] { Feed(still, 0, 0, kMaxFrames, saw); });
        Step(moved, kMaxFrames, 1, [&] { Feed(moved, 0, 0, kMaxFrames, saw); });
        for (int i = 0; i < kMaxFrames; ++i) ASSERT_EQ(still.output[0][i], moved.output[0][i]);
    }
    // The input goes: inactive and histories cleared; the next signal starts as if new.
    Step(moved, kMaxFrames);
    EXPECT_EQ(moved.active[0], 0);
    for (double h : moved.history[0]) EXPECT_EQ(h, 0.0);
    CFormantBlock fresh(&Engine(), kRate);
    fresh.SetParameter(1, 0.25f);
    fresh.SetParameter(2, 0.25f);
    Step(moved, kMaxFrames, 1, [&] { Feed(moved, 0, 0, kMaxFrames, saw); });
    Step(fresh, kMaxFrames, 1, [&] { Feed(fresh, 0, 0, kMaxFrames, saw); });
    for (int i = 0; i < kMaxFrames; ++i) ASSERT_EQ(moved.output[0][i], fresh.output[0][i]);
}

TEST(FormantWork, MorphPortIsSampledOncePerBlock) {
    CFormantBlock a(&Engine(), kRate), b(&Engine(), kRate);
    auto saw = [](int i) { return float(i % 100) / 50.0f - 1.0f; };
    Step(a, kMaxFrames, 1, [&] {
        Feed(a, 0, 0, kMaxFrames, saw);
        Feed(a, 1, 0, kMaxFrames, [](int i) { return i == 0 ? 0.5f : 0.0f; });
    });
    b.SetParameter(0, 0.5f);
    Step(b, kMaxFrames, 1, [&] { Feed(b, 0, 0, kMaxFrames, saw); });
    for (int i = 0; i < kMaxFrames; ++i) ASSERT_EQ(a.output[0][i], b.output[0][i]);
}
