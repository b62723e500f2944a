// The two filters: cutoff and resonance laws, measured magnitude against the designed
// response, silence and state rules, the voices run side by side, and stability under
// abuse.
#include "blocks/filters.h"

#include <gtest/gtest.h>

#include <cmath>
#include <complex>
#include <numbers>
#include <vector>

#include "blocks/block_harness.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;

// Steady-state gain of voice 0 for a unit sine at `hz`: the output is projected onto the
// input's sine and cosine over a whole number of periods at the end of `blocks` blocks.
double MeasureGain(CAudioBlock& filter, double hz, int blocks = 120) {
    const double step = 2.0 * std::numbers::pi * hz / kRate;
    std::vector<double> phases;
    std::vector<float> out;
    for (int b = 0; b < blocks; ++b) {
        Step(filter, kMaxFrames, 1, [&] {
            Feed(filter, 0, 0, kMaxFrames, [&](int) {
                phases.push_back(step * double(phases.size()));
                return float(std::sin(phases.back()));
            });
        });
        out.insert(out.end(), filter.output[0], filter.output[0] + kMaxFrames);
    }
    const double period = kRate / hz;
    const int length = int(std::round(std::floor(8000.0 / period) * period));
    double in = 0.0, quadrature = 0.0;
    for (size_t i = out.size() - length; i < out.size(); ++i) {
        in += out[i] * std::sin(phases[i]);
        quadrature += out[i] * std::cos(phases[i]);
    }
    return 2.0 / length * std::hypot(in, quadrature);
}

// |H| at `hz` of a record's target coefficients, in double.
double DesignedGain(const BiquadRecord& r, double hz) {
    const std::complex<double> z1 = std::polar(1.0, -2.0 * std::numbers::pi * hz / kRate);
    const std::complex<double> num = double(r.targetB0) + z1 * (double(r.targetB1) + z1 * double(r.targetB2));
    const std::complex<double> den = 1.0 + z1 * (double(r.targetA1) + z1 * double(r.targetA2));
    return std::abs(num / den);
}

// A deterministic rough input: a saw with a little noise.
float Rough(int n) {
    const unsigned u = unsigned(n);
    return float(u * 37u % 200u) / 100.0f - 1.0f + float(u * 7919u % 13u) * 0.01f;
}
}  // namespace

TEST(FiltersTable, CutoffCurveResonanceScaleAndTexts) {
    EXPECT_EQ(FilterCutoffHz(0.0f), 22.0f);
    EXPECT_EQ(FilterCutoffHz(0.5f), 704.0f);
    EXPECT_EQ(FilterCutoffHz(1.0f), 22528.0f) << "no limit near Nyquist";
    EXPECT_EQ(FilterCutoffHz(2.0f), 22528.0f) << "clamped";
    EXPECT_LT(FilterCutoffHz(0.55f), 1000.0f);
    EXPECT_GT(FilterCutoffHz(0.551f), 1000.0f);
    EXPECT_EQ(CFilterBlock::ResonanceQ(0.0f), 1.0f);
    EXPECT_EQ(CFilterBlock::ResonanceQ(1.0f), 400.0f);
    CFilterBlock filter(&Engine(), kRate);
    EXPECT_EQ(filter.name, "Filter");
    EXPECT_EQ(filter.numPorts, 3);
    EXPECT_EQ(filter.DescribeValue(0, 0.5f), "704Hz");
    EXPECT_EQ(filter.DescribeValue(1, 0.25f), "25%");
    EXPECT_EQ(filter.DescribeValue(2, 0.5f), "");
    CFilterBlock2 second(&Engine(), kRate);
    EXPECT_EQ(second.numParameters, 4);
    EXPECT_EQ(second.DescribeValue(0, 1.0f), "22528Hz");
    EXPECT_TRUE(filter.IsPolyphonic(true) && !second.IsPolyphonic(false));
}

TEST(FiltersTable, GainRuleAndBandRejectButton) {
    BiquadRecord a, b;
    // Low-pass DC gain is the gain rule's scale: about 1.138 at Q 1, 0.405 at Q 400.
    CFilterBlock::Design(a, 0, 0.5f, 0.0f, kRate);
    EXPECT_NEAR(DesignedGain(a, 0.0), 1.138, 1e-3);
    CFilterBlock::Design(a, 0, 0.5f, 1.0f, kRate);
    EXPECT_NEAR(DesignedGain(a, 0.0), 0.405, 1e-3);
    // Type 4 (stored 1.0) is the band reject of type 3 at half gain instead of the rule.
    CFilterBlock::Design(a, 3, 0.5f, 0.3f, kRate);
    CFilterBlock::Design(b, 4, 0.5f, 0.3f, kRate);
    const float q = CFilterBlock::ResonanceQ(0.3f);
    const float rule = float(double((40.0f - 5.0f * q) / (25.0f * q + 40.0f)) + 0.6);
    EXPECT_FLOAT_EQ(b.targetB0 / a.targetB0, 0.5f / rule);
    EXPECT_EQ(a.targetA1, b.targetA1);
}

TEST(FiltersWork, MeasuredMagnitudeMatchesTheDesign) {
    struct Case {
        float type, cutoff, resonance;
        double hz;
    };
    const Case cases[] = {
        {0.0f, 0.5f, 0.0f, 100},  {0.0f, 0.5f, 0.0f, 704},   {0.0f, 0.5f, 0.3f, 3000},
        {0.34f, 0.5f, 0.0f, 100}, {0.34f, 0.5f, 0.2f, 5000}, {0.67f, 0.6f, 0.5f, 1408},
        {0.8f, 0.6f, 0.2f, 1408}, {1.0f, 0.6f, 0.2f, 300},
    };
    for (const Case& c : cases) {
        CFilterBlock filter(&Engine(), kRate);
        filter.SetParameter(2, c.type);
        filter.SetParameter(0, c.cutoff);
        filter.SetParameter(1, c.resonance);
        const double measured = MeasureGain(filter, c.hz);
        const double designed = DesignedGain(filter.records[0], c.hz);
        EXPECT_NEAR(measured, designed, 2e-3 + 5e-3 * designed) << c.type << " at " << c.hz << " Hz";
    }
}

TEST(FiltersWork, PassAndStopBandsAndAGrowingPeak) {
    auto gain = [](float type, float resonance, double hz) {
        CFilterBlock filter(&Engine(), kRate);
        filter.SetParameter(2, type);
        filter.SetParameter(1, resonance);
        return MeasureGain(filter, hz);
    };
    EXPECT_GT(gain(0.0f, 0.0f, 100), 1.0) << "low-pass passes below 704 Hz";
    EXPECT_LT(gain(0.0f, 0.0f, 6000), 0.03) << "and stops above";
    EXPECT_LT(gain(0.34f, 0.0f, 60), 0.02) << "high-pass stops below";
    EXPECT_GT(gain(0.34f, 0.0f, 8000), 0.9) << "and passes above";
    double last = 0.0;
    for (float r : {0.0f, 0.2f, 0.4f, 0.6f}) {
        const double peak = gain(0.0f, r, 704);
        EXPECT_GT(peak, last * 1.5) << "resonance " << r;
        last = peak;
    }
}

TEST(FiltersWork, StateClearedTwoBlocksAfterTheInputEnds) {
    CFilterBlock filter(&Engine(), kRate);
    filter.SetParameter(1, 0.6f);
    Step(filter, 64);
    EXPECT_EQ(filter.active[0], 1) << "a silent voice reports zeros as written";
    for (int i = 0; i < 64; ++i) ASSERT_EQ(filter.output[0][i], 0.0f);
    Step(filter, kMaxFrames, 1, [&] { Feed(filter, 0, 0, kMaxFrames, Rough); });
    Step(filter, kMaxFrames);
    EXPECT_NE(filter.output[0][200], 0.0f) << "falling silent: the state rings on";
    Step(filter, kMaxFrames);
    EXPECT_NE(filter.output[0][10], 0.0f) << "first silent block: one more ringing run";
    EXPECT_EQ(filter.records[0].s0, 0.0f);
    EXPECT_EQ(filter.records[0].s1, 0.0f);
    Step(filter, kMaxFrames);
    for (int i = 0; i < kMaxFrames; ++i) ASSERT_EQ(filter.output[0][i], 0.0f) << i;
}

TEST(FiltersWork, VoicesRunTogetherMatchVoicesRunAlone) {
    constexpr int kVoices = 7;
    CFilterBlock together(&Engine(kVoices), kRate);
    // Blocks 0..5 plain, 6..11 with the cutoff modulated.
    std::vector<std::unique_ptr<CFilterBlock>> alone;
    for (int v = 0; v < kVoices; ++v) {
        alone.push_back(std::make_unique<CFilterBlock>(&Engine(kVoices), kRate));
        alone.back()->monophonic = true;  // one voice, through the one-voice path
    }
    auto signal = [](int v, int b) { return [v, b](int i) { return Rough(i * (v + 1) + b * 31) * 0.3f; }; };
    for (int b = 0; b < 12; ++b) {
        const int n = b == 5 || b == 9 ? 250 : kMaxFrames;  // a block that is not a multiple of four
        if (b == 3) {
            together.SetParameter(0, 0.8f);
            for (auto& f : alone) f->SetParameter(0, 0.8f);
        }
        // From block 6 on the cutoff is modulated, differently in each voice.
        auto sweep = [b](int voice) { return [voice, b](int i) { return 0.3f * Rough(i + 17 * voice + b); }; };
        Step(together, n, kVoices, [&] {
            for (int v = 0; v < kVoices; ++v) {
                Feed(together, 0, v, n, signal(v, b));
                if (b >= 6) Feed(together, 1, v, n, sweep(v));
            }
        });
        for (int v = 0; v < kVoices; ++v) {
            Step(*alone[v], n, 1, [&] {
                Feed(*alone[v], 0, 0, n, signal(v, b));
                if (b >= 6) Feed(*alone[v], 1, 0, n, sweep(v));
            });
            ASSERT_EQ(together.active[v], 1);
            for (int i = 0; i < n; ++i)
                ASSERT_EQ(together.output[v][i], alone[v]->output[0][i])
                    << "voice " << v << " block " << b << " " << i;
        }
    }
    Engine(1);
}

TEST(FiltersWork, DisplayReadsTheSnapshotBankAudioWroteAndSwapsBanks) {
    CFilterBlock filter(&Engine(), kRate);
    filter.SetParameter(0, 0.3f);  // off every chain: the knob feeds the display itself
    float sets[kMaxVoices + 1][5] = {};
    ASSERT_TRUE(filter.displayChanged.load());
    const int written = filter.snapshotWrite;
    filter.ReadSnapshots(sets);
    const BiquadRecord& reference = filter.records[CFilterBlock::kReference];
    EXPECT_EQ(sets[CFilterBlock::kReference][0], reference.targetB0);
    EXPECT_EQ(sets[CFilterBlock::kReference][4], reference.targetA2);
    EXPECT_NE(filter.snapshotWrite, filter.snapshotRead);
    EXPECT_NE(filter.snapshotRead, written) << "the display hands the bank it read back to the audio side";
    EXPECT_FALSE(filter.displayChanged.load());
    sets[CFilterBlock::kReference][0] = 42.0f;
    filter.ReadSnapshots(sets);
    EXPECT_EQ(sets[CFilterBlock::kReference][0], 42.0f) << "nothing new: nothing copied";
}

TEST(FiltersEdges, NewVelocityMakesAPassThroughSameVelocityKeepsRinging) {
    for (int velocity : {100, 90}) {
        CFilterBlock filter(&Engine(), kRate);
        filter.SetParameter(1, 0.5f);
        filter.NoteOn(100, 0);
        Step(filter, kMaxFrames, 1, [&] { Feed(filter, 0, 0, kMaxFrames, Rough); });
        filter.NoteOn(velocity, 0);
        Step(filter, kMaxFrames, 1, [&] { Feed(filter, 0, 0, kMaxFrames, Const(0.5f)); });
        if (velocity == 100)
            EXPECT_NE(filter.output[0][0], 0.5f) << "same value: the state rings on";
        else
            EXPECT_EQ(filter.output[0][0], 0.5f) << "new value: a fresh pass-through section";
    }
}

TEST(FiltersEdges, ShortModulatedBlockKeepsTheOldCoefficients) {
    CFilterBlock moved(&Engine(), kRate), still(&Engine(), kRate);
    for (CFilterBlock* f : {&moved, &still}) {
        Step(*f, 64, 1, [&] {
            Feed(*f, 0, 0, 64, Rough);
            Feed(*f, 1, 0, 64, Const(0.1f));
        });
    }
    moved.SetParameter(0, 0.9f);
    for (CFilterBlock* f : {&moved, &still}) {
        Step(*f, 63, 1, [&] {
            Feed(*f, 0, 0, 63, Rough);
            Feed(*f, 1, 0, 63, Const(0.1f));
        });
    }
    for (int i = 0; i < 63; ++i) ASSERT_EQ(moved.output[0][i], still.output[0][i]) << i;
}

TEST(FiltersEdges, NoRunawayAtFullResonanceUnderExtremeModulation) {
    for (float type : {0.0f, 0.34f, 0.67f, 0.8f, 1.0f}) {
        CFilterBlock filter(&Engine(), kRate);
        filter.SetParameter(2, type);
        filter.SetParameter(1, 1.0f);
        float largest = 0.0f;
        for (int b = 0; b < 2000; ++b) {
            Step(filter, kMaxFrames, 1, [&] {
                Feed(filter, 0, 0, kMaxFrames, [b](int i) { return Rough(b * kMaxFrames + i); });
                // Cutoff slammed between the ends of its range, resonance pushed past full.
                Feed(filter, 1, 0, kMaxFrames,
                     [b](int i) { return ((b * kMaxFrames + i) / 97) % 2 ? 1.0f : -1.0f; });
                Feed(filter, 2, 0, kMaxFrames, Const(1.0f));
            });
            for (int i = 0; i < kMaxFrames; ++i) {
                ASSERT_TRUE(std::isfinite(filter.output[0][i])) << "type " << type << " block " << b;
                largest = std::max(largest, std::fabs(filter.output[0][i]));
            }
        }
        // Unguarded, the state overflows within a hundred blocks; the guard holds it near its limit.
        EXPECT_LT(largest, 1e7f) << "type " << type;
    }
    CFilterBlock2 second(&Engine(), kRate);
    second.SetParameter(1, 1.0f);
    second.SetParameter(3, 1.0f);
    for (int b = 0; b < 500; ++b) {
        second.SetNote(float(b % 128), 100.0f, 0);
        Step(second, kMaxFrames, 1, [&] {
            Feed(second, 0, 0, kMaxFrames, Rough);
            Feed(second, 1, 0, kMaxFrames, [](int i) { return i % 64 < 32 ? 1.0f : -1.0f; });
        });
        for (int i = 0; i < kMaxFrames; ++i) ASSERT_TRUE(std::isfinite(second.output[0][i])) << b;
    }
}

TEST(Filter2Work, BandRejectButtonKeepsCoefficientsAndTailsLastOneBlock) {
    CFilterBlock2 filter(&Engine(), kRate);
    filter.SetParameter(2, 1.0f);
    Step(filter, 64, 1, [&] { Feed(filter, 0, 0, 64, Rough); });
    for (int i = 0; i < 64; ++i) ASSERT_EQ(filter.output[0][i], Rough(i)) << "never designed: pass-through";
    filter.SetParameter(2, 0.0f);
    Step(filter, 64, 1, [&] { Feed(filter, 0, 0, 64, Rough); });
    const BiquadRecord lowPass = filter.records[0];
    filter.SetParameter(2, 1.0f);
    Step(filter, 64, 1, [&] { Feed(filter, 0, 0, 64, Rough); });
    EXPECT_EQ(filter.records[0].targetB0, lowPass.targetB0) << "the last design stays";
    Step(filter, 64);
    EXPECT_EQ(filter.active[0], 1) << "one block of tail";
    Step(filter, 64);
    EXPECT_EQ(filter.active[0], 0);
}

TEST(Filter2Work, ZeroResonanceIsHeavilyDampedAndKeyTrackFollowsThePitch) {
    CFilterBlock2 damped(&Engine(), kRate);
    EXPECT_LT(MeasureGain(damped, 704), 0.05) << "Q 0.01, not a neutral response";
    auto gainAt440 = [](float pitch) {
        CFilterBlock2 filter(&Engine(), kRate);
        filter.SetParameter(1, 0.5f);
        filter.SetParameter(3, 1.0f);
        filter.SetNote(pitch, 100.0f, 0);
        return MeasureGain(filter, 440);
    };
    EXPECT_GT(gainAt440(70.0f), 5.0) << "cutoff on the note: the resonance peak";
    EXPECT_LT(gainAt440(94.0f), 1.2) << "two octaves up, 440 Hz is in the pass band";
}
