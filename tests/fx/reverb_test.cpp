// The master reverb alone, and through the engine where the master stage's float mode
// matters: sizes, delays, the tail, the dry path and the damping rules.
#include "fx/reverb.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <vector>

#include "engine/vrok_instance.h"

namespace {

using MasterReverb::Reverb;

bool IsDenormal(float x) { return x != 0.0f && std::fpclassify(x) == FP_SUBNORMAL; }

// Renders `numSamples` of silence after an optional impulse, in calls of 256.
void RunSilence(Reverb& reverb, int numSamples, float first = 0.0f) {
    float left[kMaxFrames], right[kMaxFrames];
    for (int done = 0; done < numSamples; done += kMaxFrames) {
        std::fill_n(left, kMaxFrames, 0.0f);
        std::fill_n(right, kMaxFrames, 0.0f);
        if (done == 0) left[0] = right[0] = first;
        reverb.Process({left, right}, {left, right}, kMaxFrames);
    }
}

void Set(Reverb& reverb, MasterReverb::ReverbParameter& parameter, float value) {
    parameter.value = value;
    reverb.ParameterUpdated(&parameter);
}

TEST(ReverbSize, BufferIsThePowerOfTwoAboveFourHalfSecondLines) {
    struct Row {
        float rate;
        uint32_t floats;
    } rows[] = {
        {44100.0f, 131072}, {48000.0f, 131072}, {22050.0f, 65536}, {96000.0f, 262144}, {8000.0f, 16384}};
    for (const Row& row : rows) {
        Reverb reverb(row.rate);
        EXPECT_EQ(reverb.bufferSize, row.floats) << row.rate;
        EXPECT_EQ(reverb.bufferMask, row.floats - 1) << row.rate;
    }
}

TEST(ReverbSize, RoomsizeZeroGivesTheShortLinesAtAnyRate) {
    for (float rate : {22050.0f, 44100.0f, 96000.0f}) {
        Reverb reverb(rate);
        Set(reverb, reverb.roomSize, 0.0f);
        EXPECT_EQ(std::vector<int>(reverb.lineDelay, reverb.lineDelay + 4),
                  (std::vector<int>{64, 73, 82, 87}))
            << rate;
    }
    // Full modulation is limited to five samples inside the shortest line where the rate
    // would allow more.
    Reverb fast(96000.0f);
    Set(fast, fast.roomSize, 0.0f);
    Set(fast, fast.modAmount, 1.0f);
    EXPECT_FLOAT_EQ(fast.modDepth, 59.0f);
    Set(fast, fast.modAmount, 0.0f);
    EXPECT_EQ(fast.modDepth, 0.0f);
}

TEST(ReverbSize, RoomsizeOneMakesTheLongestLineTheWholeHalfSecondLessTheShortest) {
    Reverb reverb(44100.0f);
    Set(reverb, reverb.roomSize, 1.0f);
    const float span = float(reverb.maxDelay) - reverb.minDelay;
    EXPECT_NEAR(float(reverb.lineDelay[3]), span, 2.0f);
    EXPECT_LT(reverb.lineDelay[3], int(reverb.bufferSize / 4)) << "every line fits in the buffer";
}

TEST(ReverbWork, WetZeroPassesTheInputUnchangedWhileTheNetworkRuns) {
    Reverb reverb(44100.0f);
    Set(reverb, reverb.wetDry, 0.0f);
    float left[kMaxFrames], right[kMaxFrames], inLeft[kMaxFrames], inRight[kMaxFrames];
    for (int call = 0; call < 20; ++call) {
        for (int i = 0; i < kMaxFrames; ++i) {
            inLeft[i] = left[i] = 9000.0f * std::sin(0.01f * float(call * kMaxFrames + i));
            inRight[i] = right[i] = -7000.0f * std::cos(0.003f * float(call * kMaxFrames + i));
        }
        reverb.Process({left, right}, {left, right}, kMaxFrames);
        for (int i = 0; i < kMaxFrames; ++i) ASSERT_TRUE(left[i] == inLeft[i] && right[i] == inRight[i]) << i;
    }
    float energy = 0.0f;
    for (uint32_t i = 0; i < reverb.bufferSize; ++i) energy += std::fabs(reverb.delayBuffer[i]);
    EXPECT_GT(energy, 0.0f) << "the lines fill while the wet path is closed";
}

TEST(ReverbWork, FirstEchoComesOneLineDelayLaterWithNoDirectPathInTheWetSignal) {
    Reverb reverb(44100.0f);
    Set(reverb, reverb.wetDry, 1.0f);
    Set(reverb, reverb.roomSize, 0.0f);
    Set(reverb, reverb.modAmount, 0.0f);
    std::vector<float> left(256, 0.0f), right(256, 0.0f);
    left[0] = 1000.0f;
    reverb.Process({left.data(), right.data()}, {left.data(), right.data()}, 256);
    int first = -1;
    for (int i = 0; i < 256 && first < 0; ++i)
        if (left[i] != 0.0f) first = i;
    EXPECT_EQ(first, 64) << "the shortest line, read before this sample's write";
}

TEST(ReverbWork, ModulationAtRestLeavesTheDampingAsCooked) {
    Reverb reverb(44100.0f);
    Set(reverb, reverb.modSpeed, 0.0f);
    EXPECT_EQ(reverb.lfoStep, 0.0f);
    RunSilence(reverb, 44100);  // the offsets settle on their frozen targets
    for (int i = 0; i < 4; ++i)
        EXPECT_FLOAT_EQ(reverb.dampCoef[i], 2 * reverb.dampRatio[i] / (reverb.dampRatio[i] + 1));
    Set(reverb, reverb.modSpeed, 1.0f);
    RunSilence(reverb, 2 * kMaxFrames);  // line 0 starts at sine 0 and moves from the second call
    const float open = 1.7f * reverb.dampRatio[0];
    EXPECT_NEAR(reverb.dampCoef[0], 2 * open / (open + 1), 2e-3f) << "a moving line opens its damping";
}

TEST(ReverbWork, EqualHalfLivesLeaveTheLowPassOpen) {
    Reverb reverb(44100.0f);
    Set(reverb, reverb.modAmount, 0.0f);
    // Low half-life at Decay 0 is rate/100 = 441; Damping d gives the high one.
    // Find d with H = L: u^2 * rate * 15 + 10 = 441.
    const float u = std::sqrt(431.0f / (44100.0f * 15.0f));
    const float d = std::pow((1.0f - u - 0.81f) / 0.17f, 2.0f);
    Set(reverb, reverb.decay, 0.0f);
    Set(reverb, reverb.damping, d);
    for (int i = 0; i < 4; ++i) EXPECT_NEAR(reverb.dampCoef[i], 1.0f, 1e-3f) << i;
}

TEST(ReverbTail, DecaysToExactSilenceWithoutNaNOrDenormalsOverALongRender) {
    // Through the engine, whose master stage sets the float mode the tail relies on.
    VrokInstance engine([](VrokInstance&, int, float) -> CAudioBlock* { return nullptr; });
    engine.reverbOn = true;
    Reverb& reverb = *engine.reverb;
    Set(reverb, reverb.decay, 0.2f);
    Set(reverb, reverb.wetDry, 1.0f);
    float left[kMaxFrames], right[kMaxFrames];
    float early = 0.0f, late = 0.0f;
    const int calls = 60 * 44100 / kMaxFrames;  // a minute of silence after one click
    for (int call = 0; call < calls; ++call) {
        std::fill_n(left, kMaxFrames, 0.0f);
        std::fill_n(right, kMaxFrames, 0.0f);
        if (call == 0) left[0] = right[0] = 32000.0f;
        engine.Render({left, right}, kMaxFrames);
        for (int i = 0; i < kMaxFrames; ++i) {
            ASSERT_TRUE(std::isfinite(left[i]) && std::isfinite(right[i])) << call;
            ASSERT_FALSE(IsDenormal(left[i]) || IsDenormal(right[i])) << call;
            const float level = std::fabs(left[i]) + std::fabs(right[i]);
            if (call < 100) early = std::max(early, level);
            if (call >= calls - 100) late = std::max(late, level);
        }
    }
    EXPECT_GT(early, 100.0f);
    EXPECT_EQ(late, 0.0f) << "the tail ends in zeros, not in a floor of tiny numbers";
    for (uint32_t i = 0; i < reverb.bufferSize; ++i) ASSERT_FALSE(IsDenormal(reverb.delayBuffer[i])) << i;
    for (float state : reverb.dampState) EXPECT_EQ(state, 0.0f);
}

TEST(ReverbTail, MasterStageFlushesDenormalsToZero) {
    // A denormal left in the one-pole memory, which the network itself never clears:
    // with flushing in force it reads as zero and is gone after one sample, where the
    // one-pole alone would only shrink it.
    VrokInstance engine([](VrokInstance&, int, float) -> CAudioBlock* { return nullptr; });
    engine.reverbOn = true;
    for (float& state : engine.reverb->dampState) state = 1e-40f;
    ASSERT_TRUE(IsDenormal(engine.reverb->dampState[0]));
    float left[1] = {}, right[1] = {};
    engine.Render({left, right}, 1);
    for (float state : engine.reverb->dampState) EXPECT_EQ(state, 0.0f);
}

TEST(ReverbEdges, BadValuesNeverEnterTheBuffer) {
    Reverb reverb(44100.0f);
    Set(reverb, reverb.roomSize, 0.0f);
    float left[kMaxFrames] = {}, right[kMaxFrames] = {};
    left[0] = std::nanf("");
    right[1] = INFINITY;
    reverb.Process({left, right}, {left, right}, kMaxFrames);
    for (uint32_t i = 0; i < reverb.bufferSize; ++i) ASSERT_TRUE(std::isfinite(reverb.delayBuffer[i])) << i;
}

}  // namespace
