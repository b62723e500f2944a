// Delay lines: the read's wrap rule, delay times from an impulse, tails that decay and then
// stop, the ramp's voice-0 reference, and a tracked line tuned to the note it plays.
#include "blocks/delays.h"

#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "blocks/block_harness.h"
#include "document/block_types.h"

using namespace harness;

namespace {
constexpr float kRate = 48000.0f;

// Renders `blocks` sample blocks of voice `voice`, an impulse of 1 at sample 0 of the first
// and nothing after. Returns the output, zeros where the voice was inactive.
std::vector<float> ImpulseResponse(CDelayBlock& delay, int blocks, int voice = 0) {
    std::vector<float> out;
    for (int b = 0; b < blocks; ++b) {
        Step(delay, kMaxFrames, voice + 1, [&] {
            if (b == 0) Feed(delay, 0, voice, kMaxFrames, [](int i) { return i == 0 ? 1.0f : 0.0f; });
        });
        for (int i = 0; i < kMaxFrames; ++i)
            out.push_back(delay.active[voice] ? delay.output[voice][i] : 0.0f);
    }
    return out;
}

// Silent blocks until every voice's tail has run out and its ramp is over. A new block
// owes every voice a tail, so a time set right after construction still ramps.
void Settle(CDelayBlock& delay, int voices = 1) {
    for (int b = 0; b < 1000; ++b) {
        Step(delay, kMaxFrames, voices);
        bool idle = true;
        for (int v = 0; v < voices; ++v) idle = idle && !delay.active[v];
        if (idle) return;
    }
    ADD_FAILURE() << "the tail never ran out";
}

// Sub-sample position of the largest magnitude in [from, to), by a parabola through the peak.
double PeakAt(const std::vector<float>& x, int from, int to) {
    int best = from;
    for (int i = from; i < to; ++i)
        if (std::fabs(x[size_t(i)]) > std::fabs(x[size_t(best)])) best = i;
    const double a = x[size_t(best - 1)], b = x[size_t(best)], c = x[size_t(best + 1)];
    const double denominator = a - 2.0 * b + c;
    return best + (denominator != 0.0 ? 0.5 * (a - c) / denominator : 0.0);
}
}  // namespace

TEST(DelayTable, NamesParametersAndPorts) {
    struct Row {
        int type;
        const char* name;
        int parameters;
    };
    for (const Row& row : {Row{19, "Delay", 2}, Row{20, "|Delay", 2}, Row{21, "|Filterdelay", 3}}) {
        std::unique_ptr<CAudioBlock> block(CreateBlock(Engine(), row.type, kRate));
        ASSERT_TRUE(block);
        EXPECT_EQ(block->name, row.name);
        EXPECT_EQ(block->numParameters, row.parameters);
        EXPECT_EQ(block->numPorts, 3);
        EXPECT_TRUE(block->hasAudioInput);
        EXPECT_TRUE(block->IsPolyphonic(true) && !block->IsPolyphonic(false));
    }
    CDelayBlock delay(&Engine(), kRate);
    EXPECT_EQ(delay.DescribeValue(0, 0.5f), "249 ms");
    EXPECT_EQ(delay.DescribeValue(1, 1.0f), "100%");
    CTrackDelayBlock tracked(&Engine(), kRate);
    EXPECT_EQ(tracked.DescribeValue(0, 0.75f), "6");
}

TEST(VoiceDelayLineRead, IntegerDelaysAreExactAndTheFarNeighbourWrapsToSlotZero) {
    VoiceDelayLine line(100.0f);  // 101 slots
    ASSERT_EQ(line.size, 101);
    for (int i = 0; i < line.size; ++i) line.data[size_t(i)] = float(i % 7) - 3.0f;
    line.write = 50;
    EXPECT_EQ(line.Read(10.0), line.data[40]);
    EXPECT_EQ(line.Read(60.0), line.data[91]);  // wraps backwards past slot 0
    // Half a slot past the last one: the neighbours above are slots 0 and 0 again, not 1.
    line.write = 0;
    line.data[99] = 1.0f, line.data[100] = 2.0f, line.data[0] = 3.0f, line.data[1] = 100.0f;
    const float ym = 1.0f, y0 = 2.0f, y1 = 3.0f, y2 = 3.0f, t = 0.5f;
    const float expected =
        (((1.5f * (y0 - y1) + 0.5f * (y2 - ym)) * t + (ym - 2.5f * y0 + 2.0f * y1 - 0.5f * y2)) * t +
         0.5f * (y1 - ym)) *
            t +
        y0;
    EXPECT_FLOAT_EQ(line.Read(-100.5), expected);
    // Delays past the line, and NaN, still read inside it.
    EXPECT_TRUE(std::isfinite(line.Read(1e9)));
    EXPECT_TRUE(std::isfinite(line.Read(-1e9)));
    EXPECT_TRUE(std::isfinite(line.Read(NAN)));
}

TEST(DelayTime, ImpulseComesBackAfterTheAskedSamples) {
    struct Case {
        float time;
        int samples;  // (rate - rate/1000) v^2 + rate/1000
    };
    for (const Case& c : {Case{0.0f, 48}, Case{0.5f, 12036}, Case{0.25f, 3045}}) {
        CDelayBlock delay(&Engine(), kRate);
        delay.SetParameter(0, c.time);
        Settle(delay);
        const std::vector<float> out = ImpulseResponse(delay, c.samples / kMaxFrames + 2);
        // The time is a float a hair off the whole number, so the read interpolates a little.
        int first = -1;
        for (size_t i = 0; i < out.size() && first < 0; ++i)
            if (std::fabs(out[i]) > 1e-3f) first = int(i);
        EXPECT_EQ(first, c.samples) << c.time;
        EXPECT_NEAR(out[size_t(c.samples)], 1.0f, 1e-3f);
    }
}

TEST(DelayTail, FeedbackDecaysAndThenTheVoiceGoesSilent) {
    CDelayBlock delay(&Engine(), kRate);
    delay.SetParameter(0, 0.0f);  // 48 samples
    delay.SetParameter(1, 0.5f);  // gain 0.495
    Settle(delay);
    const float tail = -6.9077554f / std::log(0.495f) * 48.0f + 48.0f;
    const std::vector<float> out = ImpulseResponse(delay, 12);
    // Echo k has gain 0.495^(k-1), exactly on the sample grid.
    for (int k = 1; k <= 8; ++k) EXPECT_NEAR(out[size_t(48 * k)], std::pow(0.495, k - 1), 1e-3) << k;
    // The voice renders its tail (counted from the block after the input) and then
    // reports nothing, with its state back at rest.
    const size_t silentFrom = size_t(std::ceil((tail + kMaxFrames) / kMaxFrames) + 1) * kMaxFrames;
    ASSERT_LT(silentFrom, out.size());
    for (size_t i = silentFrom; i < out.size(); ++i) ASSERT_EQ(out[i], 0.0f) << i;
    EXPECT_EQ(delay.tailSamples[0], 0.0f);
    EXPECT_NEAR(delay.currentDelay[0], 48.0f, 1e-4f);

    // No feedback: a tail of one delay, then silence flagged as not written.
    CDelayBlock dry(&Engine(), kRate);
    dry.SetParameter(0, 0.0f);
    Settle(dry);
    ImpulseResponse(dry, 1);
    EXPECT_NEAR(dry.tailSamples[0], 48.0f, 1e-4f);
    // Counted in whole blocks: the silence test passes once a block's length plus the tail
    // has gone by.
    Step(dry, kMaxFrames);
    EXPECT_EQ(dry.active[0], 1);
    Step(dry, kMaxFrames);
    EXPECT_EQ(dry.active[0], 1);
    Step(dry, kMaxFrames);
    EXPECT_EQ(dry.active[0], 0);
}

TEST(DelayTail, QuietFeedbackIsFlushedToExactZero) {
    CDelayBlock delay(&Engine(), kRate);
    delay.SetParameter(0, 0.0f);
    delay.SetParameter(1, 1.0f);  // 0.99: rings for hundreds of delays
    const std::vector<float> out = ImpulseResponse(delay, 1);
    (void)out;
    // Values below 2^-20 go into the line as 0: feed a tiny impulse into a fresh voice.
    Step(delay, kMaxFrames, 2,
         [&] { Feed(delay, 0, 1, kMaxFrames, [](int i) { return i == 0 ? 1e-7f : 0.0f; }); });
    for (int b = 0; b < 2; ++b) {
        Step(delay, kMaxFrames, 2);
        for (int i = 0; i < kMaxFrames; ++i) ASSERT_EQ(delay.output[1][i], 0.0f);
    }
}

TEST(DelayRamp, TimeChangeStepsFromVoiceZerosDelay) {
    CDelayBlock delay(&Engine(), kRate);
    delay.SetParameter(1, 0.5f);
    // Only voice 3 rings, at a delay of its own.
    delay.currentDelay[3] = 500.0f;
    delay.tailSamples[3] = 1000.0f;
    delay.currentDelay[0] = 12036.0f;
    for (int v = 0; v < kMaxVoices; ++v)
        if (v != 3) delay.tailSamples[v] = 0.0f;
    delay.SetParameter(0, 0.25f);  // 3045 samples
    const int ramp = int(kRate * 0.1f);
    EXPECT_EQ(delay.rampCount[3], ramp);
    EXPECT_FLOAT_EQ(delay.delayStep[3], (3045.0f - 12036.0f) / float(ramp));
    EXPECT_EQ(delay.currentDelay[1], 3045.0f);  // idle voices jump
    // After the ramp voice 3 stands where its own start plus voice 0's distance puts it.
    Step(delay, kMaxFrames, 4, [&] { Feed(delay, 0, 3, kMaxFrames, Const(0.0f)); });
    for (int b = 0; b < ramp / kMaxFrames + 1; ++b) Step(delay, kMaxFrames, 4);
    EXPECT_NEAR(delay.currentDelay[3], 500.0f + 3045.0f - 12036.0f, 0.5f);
}

TEST(TrackedDelay, EchoesRepeatAtThePeriodOfThePlayedNote) {
    struct Case {
        float pitch, time;
        double hertz;
    };
    // Pitch 70 is 440 Hz; "Time" shifts by up to an octave either way.
    for (const Case& c : {Case{70.0f, 0.5f, 440.0}, Case{58.0f, 0.5f, 220.0}, Case{70.0f, 1.0f, 880.0},
                          Case{82.0f, 0.0f, 440.0}, Case{70.0f, 0.25f, 311.12698}}) {
        CTrackDelayBlock delay(&Engine(), kRate);
        delay.SetParameter(0, c.time);
        delay.SetParameter(1, 0.9f);
        delay.SetNote(c.pitch, 100.0f, 0);
        Settle(delay);
        const std::vector<float> out = ImpulseResponse(delay, 24);
        const double period = kRate / c.hertz;
        const int echoes = int((out.size() - 2) / period) - 1;
        const double first = PeakAt(out, int(period * 0.5), int(period * 1.5));
        const double last = PeakAt(out, int(period * (echoes - 0.5)), int(period * (echoes + 0.5)));
        const double measured = kRate / ((last - first) / (echoes - 1));
        EXPECT_NEAR(measured, c.hertz, c.hertz * 0.001) << c.pitch << " " << c.time;
    }
}

TEST(TrackedDelay, FullFeedbackHasNoTailAndANewNoteGlides) {
    CTrackDelayBlock delay(&Engine(), kRate);
    delay.SetParameter(1, 1.0f);
    EXPECT_EQ(delay.feedbackGain.load(), 1.0f);
    delay.SetNote(70.0f, 100.0f, 0);
    EXPECT_EQ(delay.voiceTailTarget[0], -INFINITY);
    EXPECT_EQ(delay.rampCount[0], int(kRate * 0.0125f));
    Settle(delay);
    ImpulseResponse(delay, 1);
    Step(delay, kMaxFrames);  // the block after the input always renders
    Step(delay, kMaxFrames);
    EXPECT_EQ(delay.active[0], 0);
}

TEST(FilterDelay, RingsAndDiesAwayWithoutBlowingUp) {
    CFilterDelayBlock delay(&Engine(), kRate);
    delay.SetParameter(1, 0.95f);
    for (float cutoff : {0.0f, 0.5f, 1.0f}) {
        delay.SetParameter(2, cutoff);
        delay.SetNote(40.0f, 100.0f, 0);
        const std::vector<float> out = ImpulseResponse(delay, 400);
        float early = 0.0f, late = 0.0f;
        for (size_t i = 0; i < out.size(); ++i) {
            ASSERT_TRUE(std::isfinite(out[i]));
            (i < out.size() / 2 ? early : late) =
                std::max(i < out.size() / 2 ? early : late, std::fabs(out[i]));
        }
        EXPECT_GT(early, 0.0f) << cutoff;
        EXPECT_LT(late, early) << cutoff;
    }
}

TEST(DelaySteadyRun, MatchesTheSampleBySampleLoopBitForBit) {
    // A time port carrying zeros takes the general loop with the same delay; without it the
    // line runs in stretches. Delays from a few samples to nearly the whole line, with the
    // write position passing the line's end several times.
    for (float time : {0.0f, 0.0001f, 0.3f, 0.999f}) {
        CDelayBlock plain(&Engine(), kRate), stretched(&Engine(), kRate);
        for (CDelayBlock* d : {&plain, &stretched}) {
            d->SetParameter(0, time);
            d->SetParameter(1, 0.8f);  // the time ramps first: both take the general loop then
        }
        std::minstd_rand random(3);
        std::uniform_real_distribution<float> unit(-1.0f, 1.0f);
        for (int b = 0; b < 600; ++b) {
            std::vector<float> x(kMaxFrames);
            for (float& v : x) v = b < 300 ? unit(random) : 0.0f;
            const int n = b % 7 == 0 ? 100 : kMaxFrames;
            Step(plain, n, 1, [&] {
                Feed(plain, 0, 0, n, [&](int i) { return x[size_t(i)]; });
                Feed(plain, 1, 0, n, Const(0.0f));
            });
            Step(stretched, n, 1, [&] { Feed(stretched, 0, 0, n, [&](int i) { return x[size_t(i)]; }); });
            for (int i = 0; i < n; ++i)
                ASSERT_EQ(plain.output[0][i], stretched.output[0][i]) << time << " " << b;
        }
    }
}
