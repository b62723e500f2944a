// The master chorus and delay alone: ring lengths, the chorus's delay range and settings,
// and the delay's echo spacing, feedback, polarity and paired reads.
#include <gtest/gtest.h>

#include <cmath>
#include <utility>
#include <vector>

#include "fx/chorus.h"
#include "fx/delay_ring.h"
#include "fx/master_delay.h"

namespace {

// A stereo signal processed in calls of up to 256 frames.
struct Signal {
    explicit Signal(int frames) : left(size_t(frames), 0.0f), right(size_t(frames), 0.0f) {}
    template <class Effect>
    void Through(Effect& effect) {
        for (size_t at = 0; at < left.size(); at += kMaxFrames) {
            const int n = int(std::min<size_t>(kMaxFrames, left.size() - at));
            effect.Process(StereoBuffers{left.data() + at, right.data() + at}, n);
        }
    }
    // Indexes of the nonzero samples of one channel.
    static std::vector<int> Hits(const std::vector<float>& x) {
        std::vector<int> hits;
        for (size_t i = 0; i < x.size(); ++i)
            if (x[i] != 0.0f) hits.push_back(int(i));
        return hits;
    }
    // Each echo as its first frame and value; an echo is a run of nonzero frames.
    static std::vector<std::pair<int, float>> Echoes(const std::vector<float>& x) {
        std::vector<std::pair<int, float>> echoes;
        int previous = -2;
        for (int i : Hits(x)) {
            if (i > previous + 1) echoes.emplace_back(i, x[size_t(i)]);
            previous = i;
        }
        return echoes;
    }
    std::vector<float> left, right;
};

TEST(DelayRingLength, RoundsLengthLessAHalfToEven) {
    struct Row {
        float length;
        int size;
    } rows[] = {{13230.0f, 13230}, {13231.0f, 13230}, {13232.0f, 13232}, {44100.0f, 44100},
                {22051.0f, 22050}, {13230.6f, 13230}, {13231.2f, 13231}, {0.0f, 1}};
    for (const Row& row : rows) EXPECT_EQ(DelayRing(row.length).size, row.size) << row.length;
}

TEST(DelayRingLength, ARunOfSamplesWrapsLikeSinglePushes) {
    DelayRing single(10.0f), run(10.0f);
    const float x[23] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19, 20, 21, 22, 23};
    for (int start : {0, 7, 8}) {  // 7 samples, then 1, then 15: past the end twice
        const int n = start == 0 ? 7 : start == 7 ? 1 : 15;
        for (int i = 0; i < n; ++i) single.Push(x[start + i]);
        run.PushRun(x + start, n);
        ASSERT_EQ(run.write, single.write) << start;
        for (int i = 0; i < single.size; ++i) ASSERT_EQ(run.data[i], single.data[i]) << start << " " << i;
    }
}

// [SECTION] Chorus

TEST(ChorusRange, TapsStayWithinCentreAndDepthWhateverTheRate) {
    for (float rate : {22050.0f, 44100.0f, 96000.0f}) {
        MasterChorus chorus(rate);
        const float low = rate * 0.015f, high = rate * 0.021f;
        for (int position = 0; position < kChorusTable; ++position) {
            for (float t : {0.0f, 0.5f, 0.999f}) {
                const float d = chorus.TapDelay(position, t);
                ASSERT_GE(d, low - 0.01f) << rate << " " << position;
                ASSERT_LE(d, high + 0.01f) << rate << " " << position;
            }
        }
    }
}

TEST(ChorusRange, ImpulseEchoesOnlyBetween15And21Milliseconds) {
    MasterChorus chorus(44100.0f);
    chorus.wet = 1.0f;
    chorus.SetSpeed(0.8f);
    Signal signal(2048);
    signal.left[0] = signal.right[0] = 1000.0f;
    signal.Through(chorus);
    for (const std::vector<float>* channel : {&signal.left, &signal.right}) {
        const std::vector<int> hits = Signal::Hits(*channel);
        ASSERT_FALSE(hits.empty());
        // The cubic reads one sample either side of the point it interpolates.
        EXPECT_GE(hits.front(), int(44100 * 0.015f) - 2);
        EXPECT_LE(hits.back(), int(44100 * 0.021f) + 2);
    }
}

TEST(ChorusWork, WetZeroPassesInputWhileTheRingsFill) {
    MasterChorus chorus(44100.0f);
    chorus.SetSpeed(0.5f);
    Signal signal(1024);
    for (int i = 0; i < 1024; ++i) signal.left[i] = signal.right[i] = float(i % 97) - 48.0f;
    const Signal input = signal;
    signal.Through(chorus);
    EXPECT_EQ(signal.left, input.left);
    EXPECT_EQ(signal.right, input.right);
    EXPECT_EQ(chorus.ringLeft.data[500], input.left[500]);
}

TEST(ChorusSettings, SpeedIsOnePointFourTimesSquareHertzAtAnyRate) {
    for (float rate : {22050.0f, 44100.0f, 96000.0f}) {
        MasterChorus chorus(rate);
        for (float s : {0.0f, 0.25f, 0.5f, 1.0f}) {
            chorus.SetSpeed(s);
            const double hertz = double(chorus.phaseStep) * rate / 4294967296.0;
            EXPECT_NEAR(hertz, 1.4 * s * s, 1e-4) << rate << " " << s;
        }
    }
}

TEST(ChorusSettings, FullPhasingLeadsTheRightChannelBySixthOfACycle) {
    MasterChorus chorus(44100.0f);
    chorus.SetPhasing(1.0f);
    EXPECT_NEAR(double(chorus.phaseOffset) / 4294967296.0, 1.0 / 6.0, 1e-3);
    chorus.SetPhasing(0.0f);
    EXPECT_EQ(chorus.phaseOffset, 0u);
}

// [SECTION] Delay

// A delay at 44100 Hz with a two-sample click on the left at frame 0 (so the paired read
// cannot miss it), run for `frames`.
Signal Click(MasterDelay& delay, int frames, bool stereo = false) {
    Signal signal(frames);
    signal.left[0] = signal.left[1] = 1000.0f;
    if (stereo) signal.right[0] = signal.right[1] = 1000.0f;
    signal.Through(delay);
    return signal;
}

TEST(DelayEcho, ShortestLengthsPerModeAndPairedReads) {
    struct Row {
        int mode;
        int echoAt;
    } rows[] = {{MasterDelay::kNormal, 2205}, {MasterDelay::kSpaced, 2205}, {MasterDelay::kWiden, 133}};
    for (const Row& row : rows) {
        MasterDelay delay(44100.0f);
        delay.wet = 1.0f;
        delay.feedback = 0.0f;
        delay.cross = 0.0f;
        delay.SetMode(row.mode);
        delay.SetLength(0.0f);
        Signal signal(row.echoAt + 8);
        signal.left[0] = 1000.0f;  // an even slot: read twice
        signal.left[3] = 500.0f;   // an odd slot: never read
        signal.Through(delay);
        EXPECT_EQ(Signal::Hits(signal.left), (std::vector<int>{row.echoAt, row.echoAt + 1})) << row.mode;
    }
}

TEST(DelayEcho, FeedbackScalesEachRepeatAndFlipsItsPolarity) {
    MasterDelay delay(44100.0f);
    delay.wet = 1.0f;
    delay.cross = 0.0f;
    delay.feedback = 0.6f * 0.9999f;
    delay.SetLength(0.0f);  // 2204.95 frames
    const Signal out = Click(delay, 3 * 2205 + 8);
    const auto echoes = Signal::Echoes(out.left);
    ASSERT_EQ(echoes.size(), 3u);
    // A repeat lands on a pair whose odd half is never read, so later repeats drift by
    // a frame: the delay's coarse grain.
    EXPECT_EQ(echoes[0].first, 2205);
    EXPECT_EQ(echoes[1].first, 4411);
    EXPECT_FLOAT_EQ(echoes[0].second, -1000.0f);
    EXPECT_FLOAT_EQ(echoes[1].second / echoes[0].second, -delay.feedback);
    EXPECT_FLOAT_EQ(echoes[2].second / echoes[1].second, -delay.feedback);
    EXPECT_TRUE(Signal::Hits(out.right).empty()) << "no cross, nothing on the right";
}

TEST(DelayEcho, FullCrossPingPongsWithAlternatingSigns) {
    MasterDelay delay(44100.0f);
    delay.wet = 1.0f;
    delay.feedback = 0.5f;
    delay.SetLength(0.0f);
    ASSERT_EQ(delay.cross, 1.0f);
    const Signal out = Click(delay, 3 * 2205 + 8);
    using Echo = std::pair<int, float>;
    EXPECT_EQ(Signal::Echoes(out.right), (std::vector<Echo>{{2205, -1000.0f}, {6617, -250.0f}}))
        << "odd repeats on the other side, inverted";
    EXPECT_EQ(Signal::Echoes(out.left), (std::vector<Echo>{{4411, 500.0f}})) << "even ones back, upright";
}

TEST(DelayEcho, HalfCrossSumsBothLoopsToMono) {
    MasterDelay delay(44100.0f);
    delay.wet = 1.0f;
    delay.cross = 0.5f;
    delay.SetLength(0.0f);
    const Signal out = Click(delay, 2205 + 8);
    EXPECT_FLOAT_EQ(out.left[2205], out.right[2205]);
    EXPECT_FLOAT_EQ(out.left[2205], -500.0f);
}

TEST(DelayWork, WetZeroPassesInputWhileTheRingsFill) {
    MasterDelay delay(44100.0f);
    delay.wet = 0.0f;
    Signal signal(1000);
    for (int i = 0; i < 1000; ++i) signal.left[i] = signal.right[i] = float(i);
    const Signal input = signal;
    signal.Through(delay);
    EXPECT_EQ(signal.left, input.left);
    EXPECT_EQ(delay.ringLeft.data[999], -999.0f) << "stored negated, crossed over from the right";
}

TEST(DelaySettings, SpacingSplitsTheChannelsOnlyOutsideNormalMode) {
    MasterDelay delay(44100.0f);
    delay.SetSpacing(1.0f);
    EXPECT_EQ(delay.lengthLeft, delay.lengthRight) << "normal mode ignores spacing";
    delay.SetMode(MasterDelay::kSpaced);
    EXPECT_FLOAT_EQ(delay.lengthLeft, 1.95f * delay.baseLength);
    EXPECT_FLOAT_EQ(delay.lengthRight, 0.05f * delay.baseLength);
    delay.SetSpacing(0.5f);
    EXPECT_FLOAT_EQ(delay.lengthLeft, delay.lengthRight);
}

TEST(DelayEdges, LengthPastTheRingWrapsInsteadOfReadingOutside) {
    MasterDelay delay(44100.0f);
    delay.wet = 1.0f;
    delay.feedback = 0.0f;
    delay.cross = 0.0f;
    delay.SetMode(MasterDelay::kSpaced);
    delay.SetLength(1.0f);
    delay.SetSpacing(1.0f);  // left: 1.95 rings, heard 0.95 ring later
    ASSERT_GT(delay.lengthLeft, float(delay.ringLeft.size));
    const Signal out = Click(delay, 44100);
    const std::vector<int> hits = Signal::Hits(out.left);
    ASSERT_FALSE(hits.empty());
    EXPECT_NEAR(hits.front(), delay.lengthLeft - float(delay.ringLeft.size), 2.0f);
}

}  // namespace
