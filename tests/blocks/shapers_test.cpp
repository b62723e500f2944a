// Shapers and level blocks: the waveshaper's identities, clipper, crusher, rescale, amp,
// invert and crossfade values, and which voices they leave silent.
#include "blocks/shapers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "blocks/block_harness.h"
#include "document/block_types.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;

float Ramp(int i) { return float(i) / 32.0f - 1.0f; }  // -1 up to nearly 1 over 64 samples
}  // namespace

TEST(ShapersTable, NamesPortsAndPolyphonyFollowTheInput) {
    struct Row {
        int type;
        const char* name;
        int parameters, ports;
    };
    for (const Row& row : {Row{24, "Waveshaper", 130, 3}, Row{40, "Clipper", 2, 3},
                           Row{34, "BitCrusher", 1, 2}, Row{26, "Rescale", 2, 3}, Row{6, "Amplifier", 1, 2},
                           Row{27, "Invert", 0, 1}, Row{46, "Crossfade", 4, 3}}) {
        std::unique_ptr<CAudioBlock> block(CreateBlock(Engine(), row.type, kRate));
        ASSERT_TRUE(block) << row.type;
        EXPECT_EQ(block->name, row.name);
        EXPECT_EQ(block->numParameters, row.parameters) << row.name;
        EXPECT_EQ(block->numPorts, row.ports) << row.name;
        EXPECT_EQ(block->category, kCategoryModifiers) << row.name;
        EXPECT_TRUE(block->IsPolyphonic(true) && !block->IsPolyphonic(false)) << row.name;
    }
}

TEST(ShapersText, DecibelsPercentagesAndBits) {
    CAmpBlock amp(&Engine(), kRate);
    EXPECT_EQ(amp.DescribeValue(0, 0.0f), "-inf");
    EXPECT_EQ(amp.DescribeValue(0, 0.5f), "-6.02dB");
    CCrossfadeBlock fade(&Engine(), kRate);
    EXPECT_EQ(fade.DescribeValue(0, 0.5f), "0dB");
    EXPECT_EQ(fade.DescribeValue(2, 0.25f), "75%:25%");
    EXPECT_EQ(fade.DescribeValue(3, 1.0f), "1");
    CBitCrusherBlock crusher(&Engine(), kRate);
    EXPECT_EQ(crusher.DescribeValue(0, 0.25f), "10");
    CClipperBlock clipper(&Engine(), kRate);
    EXPECT_EQ(clipper.DescribeValue(1, 0.25f), "-50%");
    CWaveShaper shaper(&Engine(), kRate);
    EXPECT_EQ(shaper.DescribeValue(1, 0.5f), "50%");
    EXPECT_EQ(shaper.DescribeValue(40, 0.5f), "");
}

TEST(WaveShaperWork, FullScaleCentredIsTheInputLowPassed) {
    CWaveShaper shaper(&Engine(), kRate);
    shaper.SetParameter(0, 1.0f);
    Step(shaper, 64, 1, [&] { Feed(shaper, 0, 0, 64, Ramp); });
    // The same half-band section fed a zero, then the input, per sample.
    CWaveShaper reference(&Engine(), kRate);
    BiquadRecord section = reference.sections[0];
    for (int i = 0; i < 64; ++i) {
        section.Tick(0.0f);
        ASSERT_NEAR(shaper.output[0][i], section.Tick(Ramp(i)), 1e-6f) << i;
    }
}

TEST(WaveShaperWork, ZeroStaysZeroAndSmallScaleSteepens) {
    CWaveShaper shaper(&Engine(), kRate);
    shaper.SetParameter(0, 0.0f);
    EXPECT_FLOAT_EQ(shaper.outputScale.load(), 20.0f);
    EXPECT_FLOAT_EQ(shaper.lookupScale.load(), 3.2f);
    // A bent curve: zero in, zero out, whatever the offset picks.
    for (int j = 0; j < CWaveShaper::kPoints; ++j)
        shaper.SetParameter(CWaveShaper::kFirstPoint + j, 0.5f + 0.5f * std::sin(j * 0.05f));
    shaper.SetParameter(1, 0.3f);
    Step(shaper, 64, 1, [&] { Feed(shaper, 0, 0, 64, Const(0.0f)); });
    for (int i = 0; i < 64; ++i) ASSERT_EQ(shaper.output[0][i], 0.0f) << i;
    Step(shaper, 64);
    EXPECT_EQ(shaper.active[0], 1) << "a waveshaper never reports a silent voice";
    for (int i = 0; i < 64; ++i) ASSERT_EQ(shaper.output[0][i], 0.0f);
}

TEST(ClipperWork, LimitsCrossedLimitsAndRestValue) {
    CClipperBlock clipper(&Engine(), kRate);
    clipper.SetParameter(0, 0.75f);  // upper 0.5
    clipper.SetParameter(1, 0.25f);  // lower -0.5
    Step(clipper, 64, 1, [&] { Feed(clipper, 0, 0, 64, Ramp); });
    for (int i = 0; i < 64; ++i) ASSERT_EQ(clipper.output[0][i], std::clamp(Ramp(i), -0.5f, 0.5f)) << i;
    Step(clipper, 64);
    EXPECT_EQ(clipper.active[0], 0) << "silence clipped to 0 stays silent";
    clipper.SetParameter(1, 0.9f);  // lower 0.8, above the upper limit
    Step(clipper, 64, 1, [&] { Feed(clipper, 0, 0, 64, Ramp); });
    for (int i = 0; i < 64; ++i) ASSERT_EQ(clipper.output[0][i], 0.5f) << "collapses onto the upper limit";
    clipper.SetParameter(0, 1.0f);
    Step(clipper, 64);
    EXPECT_EQ(clipper.active[0], 1) << "lower limit above 50% with no input: a constant";
    EXPECT_FLOAT_EQ(clipper.output[0][9], 0.8f);
    // Modulated upper limit with no signal: the formula with x = 0.
    clipper.SetParameter(1, 0.0f);
    Step(clipper, 64, 1, [&] { Feed(clipper, 1, 0, 64, Const(-1.5f)); });
    EXPECT_EQ(clipper.active[0], 1);
    EXPECT_EQ(clipper.output[0][0], -0.5f);
}

TEST(BitCrusherWork, DepthsAndCrossfade) {
    const float x = 0.3141592f;
    EXPECT_EQ(CrushSample(x, 0.0f), std::trunc(x * 1048576.0f) / 1048576.0f) << "0 is 20 bits, not a bypass";
    EXPECT_EQ(CrushSample(x, 1.0f), 0.0f) << "all 20 bits removed";
    EXPECT_EQ(CrushSample(-x, 1.0f), -1.0f) << "the shift rounds toward minus infinity";
    // b = 10: a quantisation to 10 bits.
    EXPECT_EQ(CrushSample(x, 0.25f), std::floor(x * 1024.0f) / 1024.0f);
    // b = 10.5 lies half way between 10 and 11 bits removed, in value and in scale.
    const float b = 10.5f / 20.0f;
    const int k = int(x * 1048576.0f);
    const float expected =
        ((k >> 10) * 0.5f + (k >> 11) * 0.5f) * ((1024.0f * 0.5f + 2048.0f * 0.5f) / 1048576.0f);
    EXPECT_NEAR(CrushSample(x, b * b), expected, 1e-6f);
    EXPECT_TRUE(std::isfinite(CrushSample(5000.0f, 0.5f))) << "overflow is a value, not a fault";
    CBitCrusherBlock crusher(&Engine(), kRate);
    Step(crusher, 16);
    EXPECT_EQ(crusher.active[0], 0);
}

TEST(RescaleWork, FactorOffsetPortsAndSleepingSilence) {
    CRescaleBlock rescale(&Engine(), kRate);
    rescale.SetParameter(0, 0.25f);  // factor -0.5
    rescale.SetParameter(1, 0.75f);  // offset 0.5
    Step(rescale, 64, 1, [&] {
        Feed(rescale, 0, 0, 64, Ramp);
        Feed(rescale, 1, 0, 64, Const(2.0f));
        Feed(rescale, 2, 0, 64, Const(0.25f));
    });
    for (int i = 0; i < 64; ++i)
        ASSERT_FLOAT_EQ(rescale.output[0][i], Ramp(i) * -0.5f * 2.0f + 0.5f + 0.25f) << i;
    Step(rescale, 64);
    EXPECT_EQ(rescale.active[0], 1);
    EXPECT_EQ(rescale.output[0][5], 0.5f) << "no signal: the offset";
    rescale.SetParameter(1, 0.500001f);
    Step(rescale, 64);
    EXPECT_EQ(rescale.active[0], 0) << "offset about 0: unwritten, so what follows can sleep";
    Step(rescale, 64, 1, [&] { Feed(rescale, 2, 0, 64, Const(0.25f)); });
    EXPECT_EQ(rescale.active[0], 1);
}

TEST(AmpWork, SquareLawsAndAWiredSilentPortStopsTheVoice) {
    CAmpBlock amp(&Engine(2), kRate);
    amp.SetParameter(0, 0.5f);  // gain 0.5
    Step(amp, 64, 1, [&] { Feed(amp, 0, 0, 64, Ramp); });
    for (int i = 0; i < 64; ++i) ASSERT_EQ(amp.output[0][i], Ramp(i) * 0.5f);
    const float mods[] = {-2.0f, -0.5f, 0.0f, 0.25f, 0.75f, 3.0f};
    Step(amp, 6, 2, [&] {
        Feed(amp, 0, 0, 6, Const(0.8f));
        Feed(amp, 0, 1, 6, Const(0.8f));
        Feed(amp, 1, 0, 6, [&](int i) { return mods[i]; });
    });
    for (int i = 0; i < 6; ++i) {
        const float m = std::clamp(mods[i], -1.0f, 1.0f);
        EXPECT_FLOAT_EQ(amp.output[0][i], 0.8f * 0.5f * m * std::fabs(m)) << i;
    }
    EXPECT_EQ(amp.active[1], 0) << "modulator silent in voice 1: that voice stops";
    // The vector loop and its scalar tail give the same values.
    Step(amp, 67, 1, [&] {
        Feed(amp, 0, 0, 67, Const(0.8f));
        Feed(amp, 1, 0, 67, [](int i) { return float(i) / 33.0f - 1.0f; });
    });
    for (int i = 0; i < 67; ++i) {
        const float m = float(i) / 33.0f - 1.0f;
        ASSERT_EQ(amp.output[0][i], 0.8f * 0.5f * (m * std::fabs(m))) << i;
    }
    Engine(1);
}

TEST(InvertWork, FlipsTheSignBitOnly) {
    CInvertBlock invert(&Engine(), kRate);
    Step(invert, 3, 1, [&] {
        Feed(invert, 0, 0, 3, [](int i) { return i == 0 ? 0.0f : i == 1 ? 0.25f : -1.5f; });
    });
    EXPECT_TRUE(std::signbit(invert.output[0][0])) << "0 becomes -0";
    EXPECT_EQ(invert.output[0][1], -0.25f);
    EXPECT_EQ(invert.output[0][2], 1.5f);
    Step(invert, 3);
    EXPECT_EQ(invert.active[0], 0);
}

TEST(CrossfadeWork, ModesOneSidedSignalsAndModulatedBalance) {
    CCrossfadeBlock fade(&Engine(), kRate);
    Step(fade, 4, 1, [&] {
        Feed(fade, 0, 0, 4, Const(1.0f));
        Feed(fade, 1, 0, 4, Const(1.0f));
    });
    EXPECT_NEAR(fade.output[0][0], std::sqrt(2.0f), 1e-6f)
        << "audio mode: the centre is 1.41 times one signal";
    fade.SetParameter(3, 0.0f);
    Step(fade, 4, 1, [&] {
        Feed(fade, 0, 0, 4, Const(1.0f));
        Feed(fade, 1, 0, 4, Const(1.0f));
    });
    EXPECT_EQ(fade.output[0][0], 1.0f) << "control mode: linear";
    fade.SetParameter(2, 0.25f);
    Step(fade, 4, 1, [&] { Feed(fade, 1, 0, 4, Const(2.0f)); });
    EXPECT_EQ(fade.output[0][0], 0.5f) << "only signal 2, a quarter of it";
    Step(fade, 4, 1, [&] {
        Feed(fade, 0, 0, 4, Const(1.0f));
        Feed(fade, 2, 0, 4, [](int i) { return i == 0 ? 5.0f : -0.25f; });
    });
    EXPECT_EQ(fade.output[0][0], 0.0f) << "balance pushed to 1: signal 1 gone";
    EXPECT_EQ(fade.output[0][1], 1.0f) << "balance 0: all of signal 1";
    Step(fade, 4, 1, [&] { Feed(fade, 2, 0, 4, Const(0.5f)); });
    EXPECT_EQ(fade.active[0], 0) << "no signal: modulation writes nothing";
}

TEST(ShapersEdges, NotANumberNeverIndexesOutsideATable) {
    CWaveShaper shaper(&Engine(), kRate);
    Step(shaper, 8, 1, [&] {
        Feed(shaper, 0, 0, 8, Const(NAN));
        Feed(shaper, 2, 0, 8, Const(NAN));
    });
    EXPECT_EQ(shaper.active[0], 1);
    CBitCrusherBlock crusher(&Engine(), kRate);
    Step(crusher, 8, 1, [&] {
        Feed(crusher, 0, 0, 8, Const(0.5f));
        Feed(crusher, 1, 0, 8, Const(NAN));
    });
    EXPECT_EQ(crusher.output[0][0], std::trunc(0.5f * 1048576.0f) / 1048576.0f) << "NaN bits count as 0";
}
