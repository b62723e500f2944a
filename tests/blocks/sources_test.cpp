// Noise, impulse, the input blocks and the pan law they share with the outputs.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "blocks/block_harness.h"
#include "blocks/pan_law.h"
#include "blocks/sources.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;

// Hands `block` one host buffer of constant left and right values, at host scale.
void HostInput(CAudioBlock& block, float left, float right, int numSamples = 8) {
    float l[kMaxFrames], r[kMaxFrames];
    std::fill_n(l, numSamples, left), std::fill_n(r, numSamples, right);
    block.InputWork({l, r}, numSamples, kHostScale);
}
}  // namespace

TEST(PanLaw, GainsAreCosineAndSineSquared) {
    for (int i = 0; i <= 100; ++i) {
        const float p = i / 100.0f;
        // Exact at the angle rounded to 2^20 steps per turn; the two tables add float error only.
        const double theta = std::round(double(PanAngle(p)) * 1048576.0 / (2.0 * M_PI)) * 2.0 * M_PI / 1048576.0;
        const PanGains g = PanGainsForValue(p);
        EXPECT_NEAR(g.left, std::cos(theta) * std::cos(theta), 5e-7) << p;
        EXPECT_NEAR(g.right, std::sin(theta) * std::sin(theta), 5e-7) << p;
    }
    // The angle constant sits a hair under pi / 2, so the centre leans left by 2.4e-5.
    EXPECT_NEAR(PanGainsForValue(0.5f).left, 0.500024f, 1e-6);
    EXPECT_EQ(PanGainsForValue(0.0f).right, 0.0f);
}

TEST(NoiseWork, OneRowSharedByAllVoicesAndSilenceRules) {
    CNoiseBlock noise(&Engine(3), kRate);
    EXPECT_TRUE(noise.IsPolyphonic(true) && !noise.IsPolyphonic(false));
    Step(noise, kMaxFrames, 3);
    const float* row = noise.noiseRow;
    for (int i = 0; i < kMaxFrames; ++i)
        EXPECT_TRUE(noise.output[0][i] == row[i] * 0.25f && noise.output[1][i] == noise.output[0][i] &&
                    noise.output[2][i] == noise.output[0][i]) << i;
    const auto [lo, hi] = std::minmax_element(row, row + kMaxFrames);
    EXPECT_TRUE(*lo >= -1.0f && *lo < -0.5f && *hi > 0.5f && *hi <= 1.0f) << *lo << " " << *hi;
    const float first = row[0];
    Step(noise, 32, 2, [&] { Feed(noise, 0, 0, 32, Const(2.0f)); WireSilent(noise, 0); });
    EXPECT_NE(row[0], first) << "a new row every sample block";
    EXPECT_EQ(noise.output[0][7], 0.25f * row[7] * 2.0f);
    EXPECT_EQ(noise.active[0], 1);
    EXPECT_EQ(noise.active[1], 0) << "wired but silent port";
    noise.SetParameter(0, 0.0f);
    Step(noise, 32, 2);
    EXPECT_EQ(noise.active[0], 0) << "Amplitude 0 is inactive, not zeros";
}

TEST(ImpulseWork, FiresOnceOneSamplePerNote) {
    CImpulseBlock impulse(&Engine(2), kRate);
    EXPECT_TRUE(impulse.IsPolyphonic(false));
    Step(impulse, 16, 2);
    EXPECT_EQ(impulse.active[0], 0);
    impulse.NoteOn(100, 1);
    impulse.NoteOn(5, 1);
    impulse.output[1][3] = 9.0f;
    Step(impulse, 16, 2);
    EXPECT_TRUE(impulse.active[0] == 0 && impulse.active[1] == 1);
    EXPECT_EQ(impulse.output[1][0], 1.0f) << "velocity plays no part";
    for (int i = 1; i < 16; ++i) EXPECT_EQ(impulse.output[1][i], 0.0f) << i;
    Step(impulse, 16, 2);
    EXPECT_EQ(impulse.active[1], 0) << "two NoteOns in one block fire once";
    impulse.SetParameter(0, 0.5f);
    impulse.NoteOn(0, 0);
    Step(impulse, 16, 1, [&] { Feed(impulse, 0, 0, 16, Const(-2.0f)); });
    EXPECT_EQ(impulse.output[0][0], -0.5f);
}

TEST(InputWork, LevelRowVolumePortSilenceAndDisconnection) {
    CInputBlock input(&Engine(), kRate);
    EXPECT_TRUE(input.hasInputWork && !input.IsPolyphonic(true));
    HostInput(input, 16000.0f, -32000.0f, 64);  // (0.5 - 1) / 2
    EXPECT_FLOAT_EQ(input.inputRow[10], -0.25f);
    EXPECT_FLOAT_EQ(input.inputLevel, 0.25f);
    Step(input, 64);
    EXPECT_EQ(input.active[0], 1);
    EXPECT_FLOAT_EQ(input.output[0][10], -0.25f * 0.25f);
    EXPECT_FLOAT_EQ(input.GetLevel(), 0.25f * 0.25f);

    HostInput(input, 32000.0f, 32000.0f);
    Step(input, 8, 1, [&] { Feed(input, 0, 0, 8, Const(-1.5f)); });
    EXPECT_EQ(input.active[0], 1);
    EXPECT_FLOAT_EQ(input.output[0][3], 1.0f) << "port added before squaring: (-1.5 + 0.5)^2 = 1";
    Step(input, 8, 1, [&] { WireSilent(input, 0); });
    EXPECT_EQ(input.active[0], 0);
    HostInput(input, 0.0f, 0.0f);
    Step(input, 8, 1, [&] { Feed(input, 0, 0, 8, Const(1.0f)); });
    EXPECT_EQ(input.active[0], 0) << "silent input is inactive, volume port or not";

    HostInput(input, 3200.0f, 3200.0f);
    input.disconnected = true;
    HostInput(input, 0.0f, 0.0f);
    EXPECT_FLOAT_EQ(input.inputLevel, 0.1f) << "a disconnected block keeps its level and row";
    EXPECT_FLOAT_EQ(input.inputRow[7], 0.1f);
}

TEST(InputPanWork, PansScalesSurvivesANaNLevelAndDisconnection) {
    CInputPanBlock pan(&Engine(), kRate);
    EXPECT_EQ(pan.DescribeValue(0, 0.25f), "50% left");
    pan.SetParameter(0, 0.0f);  // all left
    pan.SetParameter(1, 1.0f);
    HostInput(pan, 16000.0f, 32000.0f);
    Step(pan, 8);
    EXPECT_NEAR(pan.output[0][0], 0.5f, 1e-6);
    // The pan port pushes the stored left all the way right; the volume port adds to "Volume".
    Step(pan, 8, 1, [&] { Feed(pan, 0, 0, 8, Const(5.0f)); Feed(pan, 1, 0, 8, Const(-2.0f)); });
    EXPECT_NEAR(pan.output[0][0], 1.0f, 1e-6) << "right row at (1 - 2)^2";

    // Opposite signs give a NaN level, which is not above 0: the wired volume port is
    // passed over for the stored volume, and the block still sounds.
    pan.SetParameter(1, 0.5f);
    HostInput(pan, 16000.0f, -16000.0f);
    EXPECT_TRUE(std::isnan(pan.inputLevel));
    Step(pan, 8, 1, [&] { WireSilent(pan, 1); });
    EXPECT_EQ(pan.active[0], 1);
    EXPECT_FLOAT_EQ(pan.output[0][0], 0.5f * 0.25f);
    HostInput(pan, 0.0f, 0.0f);
    Step(pan, 8);
    EXPECT_EQ(pan.active[0], 0);

    HostInput(pan, 3200.0f, 3200.0f);
    pan.disconnected = true;
    HostInput(pan, 0.0f, 0.0f);
    EXPECT_FLOAT_EQ(pan.inputLevel, 0.1f) << "a disconnected block keeps its level and rows";
    EXPECT_FLOAT_EQ(pan.rightRow[7], 0.1f);
}
