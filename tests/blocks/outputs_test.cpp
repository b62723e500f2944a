// The output blocks and their knee, this family's type table rows, and one whole patch.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "blocks/block_harness.h"
#include "blocks/outputs.h"
#include "document/block_types.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;

struct Host {
    float left[kMaxFrames], right[kMaxFrames];
    explicit Host(float fill = 0.0f) { std::fill_n(left, kMaxFrames, fill), std::fill_n(right, kMaxFrames, fill); }
    StereoBuffers Buffers() { return {left, right}; }
};

// One sample block with voice v's input at values[v], then OutputWork.
void MixVoices(CAudioBlock& block, std::initializer_list<float> values, Host& host, int numSamples = 8) {
    int v = 0;
    Step(block, numSamples, int(values.size()), [&] { for (float x : values) Feed(block, 0, v++, numSamples, Const(x)); });
    block.OutputWork(host.Buffers(), numSamples, kHostScale);
}
}  // namespace

TEST(OutputsKnee, ShapeAtHostScale) {
    for (float s : {31999.0f, 32000.0f}) EXPECT_EQ(OutputKnee(s, kHostScale), s) << "full scale and below pass unchanged";
    EXPECT_NEAR(OutputKnee(32010.0f, kHostScale), 32010.0f, 0.01f) << "the bend starts smoothly";
    EXPECT_EQ(OutputKnee(96000.0f, kHostScale), 63999.0f);  // and -63999 by the symmetry below
    for (float s = 32500.0f, previous = 32000.0f; s < 100000.0f; s += 500.0f) {
        const float y = OutputKnee(s, kHostScale);
        EXPECT_TRUE(y >= previous && y <= 63999.0f && OutputKnee(-s, kHostScale) == -y) << s << " -> " << y;
        previous = y;
    }
}

TEST(OutputsWork, VolumeKneeAndUntouchedRows) {
    COutputBlock out(&Engine(2), kRate);
    out.SetParameter(0, 1.0f);
    Host full, hot, quarter(1.0f), kept(7.0f);
    MixVoices(out, {1.0f}, full);
    MixVoices(out, {3.0f}, hot);
    EXPECT_EQ(full.left[0], 32000.0f);
    EXPECT_TRUE(hot.left[7] == 63999.0f && hot.right[7] == 63999.0f) << hot.left[7] << " " << hot.right[7];
    out.SetParameter(0, 0.5f);
    MixVoices(out, {1.0f}, quarter);
    EXPECT_EQ(quarter.left[3], 1.0f + 8000.0f) << "a quarter of full scale, added to what the rows held";

    // Silent, sampleless and disconnected blocks leave the host rows exactly as they were.
    Step(out, 8, 2, [&] { WireSilent(out, 0); });
    EXPECT_TRUE(out.active[0] == 0 && out.peak == 0.0f);
    out.OutputWork(kept.Buffers(), 8, kHostScale);
    MixVoices(out, {0.5f}, kept, 0);
    out.disconnected = true;
    MixVoices(out, {0.5f}, kept);
    EXPECT_GT(out.peak, 0.0f);
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(kept.left[i] == 7.0f && kept.right[i] == 7.0f) << i;
}

TEST(OutputsWork, EverySampleIsTheKneeOfItsOwnValue) {
    // Runs of eight (or four) below the knee take a fast path; any run with one sample at or past
    // it, or NaN, take the knee sample by sample. Both must give the knee's own values.
    COutputBlock out(&Engine(1), kRate);
    out.SetParameter(0, 0.8f);
    const float level = 0.8f * 0.8f * kHostScale;
    for (int n : {256, 37}) {
        auto x = [](int i) { return i == 77 || i == 13 ? NAN : 2.5f * std::sin(0.05f * float(i)); };
        Step(out, n, 1, [&] { Feed(out, 0, 0, n, x); });
        Host host(3.0f);
        out.OutputWork(host.Buffers(), n, kHostScale);
        for (int i = 0; i < n; ++i) {
            const float expected = 3.0f + OutputKnee(level * x(i), kHostScale);
            if (std::isnan(expected)) {
                EXPECT_TRUE(std::isnan(host.left[i]) && std::isnan(host.right[i])) << i;
                continue;
            }
            ASSERT_EQ(host.left[i], expected) << n << " " << i;
            ASSERT_EQ(host.right[i], expected) << n << " " << i;
        }
    }
}

TEST(OutputsWork, PeakAndMeter) {
    COutputBlock mono(&Engine(2), kRate);
    CPanOutputBlock pan(&Engine(2), kRate);
    EXPECT_TRUE(!mono.IsPolyphonic(true) && pan.IsPolyphonic(true));
    Host host;
    MixVoices(mono, {0.5f, -0.75f}, host);
    MixVoices(pan, {0.5f, -0.75f}, host);
    EXPECT_EQ(mono.active[1], 1);
    EXPECT_FLOAT_EQ(mono.mixBuffer[0], -0.25f);
    EXPECT_FLOAT_EQ(mono.peak, 0.5f) << "peak of the running sum";
    EXPECT_FLOAT_EQ(pan.peak, 0.75f) << "peak of single voices";
    pan.SetParameter(0, 0.0f);  // the meter ignores the pan
    Step(mono, 8);
    Step(pan, 8);
    EXPECT_FLOAT_EQ(mono.GetLevel(), 0.5f * 0.25f);
    EXPECT_FLOAT_EQ(pan.GetLevel(), 0.75f * 0.25f);
    EXPECT_EQ(mono.peak, 0.0f);

    // The peak sees every sample, inside the wide loops (4 or 8 lanes) and in the tail, and
    // skips NaN: a NaN later in the same lane must not wipe out the peak found there.
    for (CAudioBlock* b : {static_cast<CAudioBlock*>(&mono), static_cast<CAudioBlock*>(&pan)}) {
        for (int n : {37, 256}) {
            for (int at : {3, 20, 36, 100, 255}) {
                if (at >= n) continue;
                auto x = [=](int i) {
                    return i == at ? -0.9f : (i == at + 16 || i == at + 32 || i == 5) ? NAN : 0.1f;
                };
                Step(*b, n, 1, [&] { Feed(*b, 0, 0, n, x); });
                EXPECT_EQ(b == &mono ? mono.peak : pan.peak, 0.9f) << b->name << " at " << at << " of " << n;
            }
        }
    }

    // The mono mix is each sample's plain sum of the voices, in voice order.
    auto voice = [](int v) {
        return [v](int i) { return std::sin(0.37f * float(i) + float(v)) * float(v + 1); };
    };
    Step(mono, 256, 3, [&] { for (int v = 0; v < 3; ++v) Feed(mono, 0, v, 256, voice(v)); });
    for (int i = 0; i < 256; ++i) {
        const float expected = (voice(0)(i) + voice(1)(i)) + voice(2)(i);
        ASSERT_EQ(mono.mixBuffer[i], expected) << i;
    }
}

TEST(OutputsWork, PanPlacesTheSignal) {
    CPanOutputBlock pan(&Engine(), kRate);
    EXPECT_EQ(pan.DescribeValue(0, 0.5f), "center");
    pan.SetParameter(0, 0.0f);
    Host left, right;
    MixVoices(pan, {1.0f}, left);
    EXPECT_FLOAT_EQ(left.left[0], 8000.0f);
    EXPECT_EQ(left.right[0], 0.0f);
    Step(pan, 8, 1, [&] { Feed(pan, 0, 0, 8, Const(1.0f)); Feed(pan, 1, 0, 8, Const(2.0f)); });  // pan clamped to 1
    pan.OutputWork(right.Buffers(), 8, kHostScale);
    EXPECT_NEAR(right.left[0], 0.0f, 1e-3f);
    EXPECT_FLOAT_EQ(right.right[0], 8000.0f);
}

TEST(OutputsPatch, OscillatorIntoOutputSoundsOnEveryVoice) {
    VrokInstance engine(CreateBlock);
    engine.SetVoiceCount(4, false);
    int osc = -1, out = -1;
    ASSERT_TRUE(engine.InsertBlock(4, -1, &osc) && engine.InsertBlock(0, -1, &out));
    ASSERT_NE(engine.Connect(osc, out, 0), nullptr);
    engine.RebuildOrder();
    for (int note = 60; note < 64; ++note) engine.PressKey(note, 100);
    Host host;
    engine.Render(host.Buffers(), kMaxFrames);
    float loudest = 0.0f;
    for (int i = 0; i < kMaxFrames; ++i) {
        EXPECT_EQ(host.left[i], host.right[i]) << i;
        loudest = std::max(loudest, std::fabs(host.left[i]));
    }
    EXPECT_TRUE(loudest > 1000.0f && loudest <= 63999.0f) << loudest;
    for (int v = 0; v < 4; ++v) EXPECT_EQ(engine.blocks[out]->active[v], 1) << v;
}
