// The shaped oscillators: the stack's gain and detune laws, the increment limit, the
// synced pair's pitch, the pulse oscillator's duty, note resets and silent ports.
#include "blocks/shaped_oscillators.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <vector>

#include "blocks/block_harness.h"
#include "engine/wave_tables.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;
constexpr int kSine = 0, kSaw = 2;

float WaveValue(int waveform) { return float(waveform) / 3.0f; }

std::vector<float> Render(CAudioBlock& osc, int blocks, int voice = 0) {
    std::vector<float> out;
    while (blocks-- > 0) {
        Step(osc, kMaxFrames, voice + 1);
        out.insert(out.end(), osc.output[voice], osc.output[voice] + kMaxFrames);
    }
    return out;
}

// The lag in [minLag, maxLag] at which the signal best matches itself.
int BestLag(const std::vector<float>& x, int minLag, int maxLag) {
    int best = minLag;
    double bestError = 1e300;
    for (int lag = minLag; lag <= maxLag; ++lag) {
        double error = 0.0;
        for (size_t i = 0; i + size_t(lag) < x.size(); ++i) error += std::fabs(x[i] - x[i + size_t(lag)]);
        error /= double(x.size() - size_t(lag));
        if (error < bestError) bestError = error, best = lag;
    }
    return best;
}
}  // namespace

TEST(ShapedIncrement, GrainLimitAndReads) {
    EXPECT_EQ(shaped::IncrementFor(1000.7f), 4000u) << "truncated, then times 4";
    EXPECT_GT(shaped::IncrementFor(405798880.0f), 0u);
    EXPECT_EQ(shaped::IncrementFor(405798912.0f), 0u) << "0.3779 of the rate stops the oscillator";
    EXPECT_EQ(shaped::IncrementFor(NAN), 0u);
    EXPECT_EQ(shaped::IncrementFor(-1000.0f), uint32_t(-4000)) << "a negative factor runs backwards";

    WaveTable table{};
    table.samples[0] = 0, table.samples[1] = 1000, table.samples[2047] = -2000, table.samples[2048] = 0;
    const uint32_t half = 1u << 20;  // half way from entry 0 to entry 1
    EXPECT_EQ(shaped::Read16(table, half), 500);
    EXPECT_EQ(shaped::Read8(table, half), 500);
    EXPECT_EQ(shaped::Read16(table, 2047u << 21 | half), -1000)
        << "the last entry interpolates towards entry 0";

    const int32_t* window = shaped::SyncWindow();
    EXPECT_EQ(window[0], 16384);
    EXPECT_EQ(window[2048], 16384);
    EXPECT_EQ(window[3072], int32_t((1.0 - std::sin(3.14159265358979 / 4)) * 16384.0));
    EXPECT_EQ(window[4096], 0);
}

TEST(HyperGains, CountsAndWeightsAtChosenDiffuseValues) {
    struct Case {
        float diffuse;
        int count;
        float lastWeight;  // relative to the first
    };
    // At the exact integer (0.5 is x = 3) the newest oscillator jumps to full weight.
    const Case cases[] = {{0.0f, 1, 1.0f},         {0.5f - 1e-5f, 4, 0.9998f}, {0.5f, 5, 1.0f},
                          {0.5f + 1e-5f, 5, 0.0f}, {0.25f, 3, 0.25f},          {1.0f, 7, 1.0f}};
    for (const Case& c : cases) {
        CHyperOscBlock osc(&Engine(), kRate);
        osc.SetParameter(0, 0.5f);
        osc.SetParameter(2, c.diffuse);
        ASSERT_EQ(osc.numOscillators, c.count) << c.diffuse;
        const float x = c.diffuse * 6.0f;
        float sum = 0.0f;
        for (int k = 0; k < c.count; ++k) sum += osc.gain[k];
        EXPECT_NEAR(sum, 0.25f / (16000.0f - x * 1600.0f), 1e-9f) << c.diffuse;
        EXPECT_NEAR(osc.gain[c.count - 1] / osc.gain[0], c.lastWeight, 1e-3f) << c.diffuse;
    }
}

TEST(HyperGains, DetuneSignsAndSpreadShare) {
    CHyperOscBlock osc(&Engine(), kRate);
    osc.SetParameter(2, 1.0f);  // x = 6
    osc.SetParameter(3, 1.0f);
    const int signs[] = {0, -1, 1, 1, -1, -1, 1};
    EXPECT_EQ(osc.detuneRatio[0], 1.0f);
    for (int i = 1; i < 7; ++i)
        EXPECT_NEAR(std::log2(osc.detuneRatio[i]), signs[i] * i / (12.0 * 7.0), 1e-6) << i;
}

TEST(HyperWork, SingleOscillatorTunesAndScales) {
    CHyperOscBlock osc(&Engine(), kRate);
    osc.SetParameter(4, WaveValue(kSine));
    osc.SetParameter(2, 0.0f);
    osc.SetParameter(0, 1.0f);
    osc.SetNote(70.0f, 100.0f, 0);
    const std::vector<float> out = Render(osc, 40);
    EXPECT_NEAR(MeasureFrequency(out, kRate), 440.0, 0.05);
    float peak = 0.0f;
    for (float s : out) peak = std::max(peak, std::fabs(s));
    EXPECT_NEAR(peak, 1.0f, 0.01f) << "the tables' 16000 is divided out";

    // Seven oscillators at full spread still sound at the played pitch on average.
    osc.SetParameter(2, 1.0f);
    osc.SetParameter(3, 1.0f);
    EXPECT_NEAR(MeasureFrequency(Render(osc, 80), kRate), 440.0, 20.0);
}

TEST(ShapedEdges, EveryShapedOscillatorStopsAboveTheIncrementLimit) {
    std::unique_ptr<CShapedOscBase> oscs[] = {std::make_unique<CHyperOscBlock>(&Engine(), kRate),
                                              std::make_unique<CSyncOscBlock>(&Engine(), kRate),
                                              std::make_unique<CPWMOscBlock>(&Engine(), kRate)};
    // 0.3779 of 44100 Hz is 16665 Hz: note 70 + 12 log2(16665 / 440) = 132.9.
    for (auto& osc : oscs) {
        // One oscillator in the stack: the detuned ones would sit below the limit.
        if (dynamic_cast<CHyperOscBlock*>(osc.get())) osc->SetParameter(2, 0.0f);
        osc->SetNote(133.0f, 100.0f, 0);
        const std::vector<float> high = Render(*osc, 2);
        EXPECT_TRUE(osc->active[0]) << osc->name;
        EXPECT_EQ(osc->phaseIncrement[0], 0u) << osc->name;
        for (float s : high) ASSERT_EQ(s, high[0]) << osc->name << ": a standing phase gives a constant";
        osc->SetNote(132.5f, 100.0f, 0);
        Render(*osc, 1);
        EXPECT_GT(osc->phaseIncrement[0], 0u) << osc->name << ": just below the limit it runs";
    }
}

uint32_t FirstPhase(CAudioBlock& osc) {
    if (auto* hyper = dynamic_cast<CHyperOscBlock*>(&osc)) return hyper->phase[0][0];
    if (auto* sync = dynamic_cast<CSyncOscBlock*>(&osc)) return sync->phase[0];
    return dynamic_cast<CPWMOscBlock&>(osc).phase[0];
}

TEST(ShapedWork, WiredSilentAmplitudeFreezesTheVoiceAndTexts) {
    std::unique_ptr<CShapedOscBase> oscs[] = {std::make_unique<CHyperOscBlock>(&Engine(), kRate),
                                              std::make_unique<CSyncOscBlock>(&Engine(), kRate),
                                              std::make_unique<CPWMOscBlock>(&Engine(), kRate)};
    for (auto& osc : oscs) {
        Render(*osc, 1);
        const uint32_t phase = FirstPhase(*osc);
        Step(*osc, kMaxFrames, 1, [&] { WireSilent(*osc, 0); });
        EXPECT_FALSE(osc->active[0]) << osc->name;
        EXPECT_EQ(FirstPhase(*osc), phase) << osc->name;
        Step(*osc, kMaxFrames, 1, [&] { Feed(*osc, 0, 0, kMaxFrames, Const(0.5f)); });
        EXPECT_TRUE(osc->active[0]) << osc->name;
        EXPECT_NE(FirstPhase(*osc), phase) << osc->name;
        EXPECT_EQ(osc->DescribeValue(1, 0.5f), "50%") << osc->name << ": pitch in percent";
        EXPECT_EQ(osc->DescribeValue(0, 0.5f), "-12dB") << osc->name;
    }
}

TEST(SyncWork, PitchFollowsTheMaster) {
    CSyncOscBlock osc(&Engine(), kRate);
    osc.SetParameter(5, WaveValue(kSaw));
    osc.SetParameter(2, 0.3f);  // a slave 6.4 times the master, not a multiple of it
    for (float note : {58.0f, 70.0f, 82.0f}) {
        osc.SetNote(note, 100.0f, 0);
        const double period = kRate / (440.0 * std::pow(2.0, (note - 70.0) / 12.0));
        const std::vector<float> out = Render(osc, 16);
        const int lag =
            BestLag(std::vector<float>(out.begin() + 512, out.end()), int(period * 0.6), int(period * 1.6));
        EXPECT_NEAR(lag, period, 1.0) << "note " << note;
    }
}

TEST(SyncWork, AmountZeroIsStillARatioAndResetRestartsThePhase) {
    CSyncOscBlock osc(&Engine(), kRate);
    osc.SetParameter(2, 0.0f);
    EXPECT_FLOAT_EQ(osc.syncAmount, 0.1f);
    EXPECT_EQ(osc.syncFixed, uint32_t(0.1f * 65536.0f));
    osc.SetParameter(3, 1.0f);
    EXPECT_EQ(osc.windowOffset, 0) << "full sharpness: flat window";
    osc.SetParameter(3, 0.0f);
    EXPECT_EQ(osc.windowOffset, 2048);

    Render(osc, 1);
    ASSERT_NE(osc.phase[0], 0u);
    osc.SetParameter(4, 0.0f);
    osc.NoteOn(100, 0);
    EXPECT_NE(osc.phase[0], 0u) << "reset off";
    osc.SetParameter(4, 1.0f);
    osc.NoteOn(100, 0);
    EXPECT_EQ(osc.phase[0], 0u);
    EXPECT_EQ(osc.phaseIncrement[0], 0u);
}

TEST(PwmWork, DutyMeasuredFromAudio) {
    // On a sawtooth the low part of the pulse lasts half of "PW" of a cycle.
    struct Case {
        float width;
        float port;  // -1: unwired
        double lowFraction;
    };
    const Case cases[] = {
        {0.2f, -1, 0.1}, {0.5f, -1, 0.25}, {0.8f, -1, 0.4}, {0.5f, 0.6f, 0.4}, {0.5f, 2.0f, 0.5}};
    for (const Case& c : cases) {
        CPWMOscBlock osc(&Engine(), kRate);
        osc.SetParameter(4, WaveValue(kSaw));
        osc.SetParameter(2, c.width);
        osc.SetNote(46.0f, 100.0f, 0);  // 110 Hz: long, clean cycles
        std::vector<float> out;
        for (int b = 0; b < 40; ++b) {
            Step(osc, kMaxFrames, 1, [&] {
                if (c.port >= 0.0f) Feed(osc, 2, 0, kMaxFrames, Const(c.port));
            });
            out.insert(out.end(), osc.output[0], osc.output[0] + kMaxFrames);
        }
        double mean = 0.0;
        for (float s : out) mean += s;
        mean /= double(out.size());
        size_t low = 0;
        for (float s : out) low += s < mean;
        EXPECT_NEAR(double(low) / double(out.size()), c.lowFraction, 0.02) << c.width << " port " << c.port;
    }
}

TEST(PwmWork, PitchPortIsAFactor) {
    CPWMOscBlock osc(&Engine(), kRate);
    osc.SetNote(70.0f, 100.0f, 0);
    Render(osc, 1);
    const uint32_t plain = osc.phaseIncrement[0];
    uint32_t start = osc.phase[0];
    Step(osc, kMaxFrames, 1, [&] { Feed(osc, 1, 0, kMaxFrames, Const(-1.0f)); });
    EXPECT_EQ(osc.phase[0], start) << "-1 stops the oscillator";
    Step(osc, kMaxFrames, 1, [&] { Feed(osc, 1, 0, kMaxFrames, Const(1.0f)); });
    EXPECT_NEAR(double(osc.phaseIncrement[0]), 2.0 * plain, 8.0) << "+1 is an octave up";
}
