// The output blocks and their knee, the type table entries of this family set, and one
// whole patch rendered through the engine.
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
    float left[kMaxFrames];
    float right[kMaxFrames];
    explicit Host(float fill = 0.0f) {
        std::fill(std::begin(left), std::end(left), fill);
        std::fill(std::begin(right), std::end(right), fill);
    }
    StereoBuffers Buffers() { return {left, right}; }
};

// One sample block of `block` with voice v's input at values[v], then its OutputWork.
void MixVoices(CAudioBlock& block, std::initializer_list<float> values, Host& host, int numSamples = 8) {
    int voices = int(values.size());
    Step(block, numSamples, voices, [&] {
        int v = 0;
        for (float x : values) Feed(block, 0, v++, numSamples, [x](int) { return x; });
    });
    block.OutputWork(host.Buffers(), numSamples, kHostScale);
}
}  // namespace

TEST(OutputsTable, RowsPortsAndFlags) {
    COutputBlock mono(&Engine(), kRate);
    CPanOutputBlock pan(&Engine(), kRate);
    EXPECT_EQ(mono.names, (std::vector<std::string>{"Volume"}));
    EXPECT_EQ(mono.kinds, (std::vector<int>{7}));
    EXPECT_EQ(pan.names, (std::vector<std::string>{"pan", "volume"}));
    EXPECT_EQ(pan.kinds, (std::vector<int>{8, 7}));
    EXPECT_EQ(mono.numPorts, 1);
    EXPECT_EQ(pan.numPorts, 2);
    for (CAudioBlock* b : {static_cast<CAudioBlock*>(&mono), static_cast<CAudioBlock*>(&pan)}) {
        EXPECT_EQ(b->name, "Output");
        EXPECT_EQ(b->category, kCategoryOutputs);
        EXPECT_TRUE(b->isOutput && b->hasOutputWork && b->hasAudioInput);
        EXPECT_NE(dynamic_cast<COutputCommon*>(b), nullptr);
    }
    EXPECT_FALSE(mono.IsPolyphonic(true));
    EXPECT_TRUE(pan.IsPolyphonic(true));
    EXPECT_EQ(mono.DescribeValue(0, 0.0f), "-inf");
    EXPECT_EQ(pan.DescribeValue(0, 0.5f), "center");
    EXPECT_EQ(pan.DescribeValue(0, 1.0f), "100% right");
}

TEST(OutputsKnee, ShapeAtHostScale) {
    EXPECT_EQ(OutputKnee(31999.0f, kHostScale), 31999.0f);
    EXPECT_EQ(OutputKnee(32000.0f, kHostScale), 32000.0f) << "full scale enters at u = 0 and leaves unchanged";
    EXPECT_EQ(OutputKnee(96000.0f, kHostScale), 63999.0f);
    EXPECT_EQ(OutputKnee(-96000.0f, kHostScale), -63999.0f);
    EXPECT_NEAR(OutputKnee(32010.0f, kHostScale), 32010.0f, 0.01f) << "the bend starts smoothly";
    float previous = 32000.0f;
    for (float s = 32500.0f; s < 100000.0f; s += 500.0f) {
        float y = OutputKnee(s, kHostScale);
        EXPECT_GE(y, previous) << s;
        EXPECT_LE(y, 63999.0f) << s;
        EXPECT_EQ(OutputKnee(-s, kHostScale), -y);
        previous = y;
    }
}

TEST(OutputsWork, VolumeAndKneeReachTheHostRows) {
    COutputBlock out(&Engine(), kRate);
    out.SetParameter(0, 1.0f);
    Host full;
    MixVoices(out, {1.0f}, full);
    EXPECT_EQ(full.left[0], 32000.0f);
    Host hot;
    MixVoices(out, {3.0f}, hot);
    EXPECT_EQ(hot.left[7], 63999.0f);
    EXPECT_EQ(hot.right[7], 63999.0f);
    out.SetParameter(0, 0.5f);
    Host quarter(1.0f);
    MixVoices(out, {1.0f}, quarter);
    EXPECT_EQ(quarter.left[3], 1.0f + 8000.0f) << "added to what the rows held";
}

TEST(OutputsWork, SilentOrDisconnectedBlockLeavesRowsUntouched) {
    COutputBlock out(&Engine(2), kRate);
    Host host(7.0f);
    Step(out, 8, 2, [&] { WireSilent(out, 0); });
    EXPECT_EQ(out.active[0], 0);
    EXPECT_EQ(out.peak, 0.0f);
    out.OutputWork(host.Buffers(), 8, kHostScale);

    MixVoices(out, {0.5f}, host, 0);  // no samples
    out.disconnected = true;
    MixVoices(out, {0.5f}, host);
    EXPECT_GT(out.peak, 0.0f);
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(host.left[i] == 7.0f && host.right[i] == 7.0f) << i;
}

TEST(OutputsWork, PeakAndMeter) {
    COutputBlock mono(&Engine(2), kRate);
    CPanOutputBlock pan(&Engine(2), kRate);
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
}

TEST(OutputsWork, PeakSkipsNaNAndSeesEverySample) {
    COutputBlock mono(&Engine(), kRate);
    CPanOutputBlock pan(&Engine(), kRate);
    for (CAudioBlock* b : {static_cast<CAudioBlock*>(&mono), static_cast<CAudioBlock*>(&pan)}) {
        for (int at : {3, 20, 36}) {  // inside the wide loop and in the tail
            // A NaN later in the same lane must not wipe out the peak found there.
            int nan = at + 16 < 37 ? at + 16 : 5;
            Step(*b, 37, 1, [&] {
                Feed(*b, 0, 0, 37, [=](int i) { return i == at ? -0.9f : i == nan ? NAN : 0.1f; });
            });
            float peak = b == &mono ? mono.peak : pan.peak;
            EXPECT_EQ(peak, 0.9f) << b->name << " at " << at;
        }
    }
}

TEST(OutputsWork, PanPlacesTheSignal) {
    CPanOutputBlock pan(&Engine(), kRate);
    pan.SetParameter(0, 0.0f);
    Host left;
    MixVoices(pan, {1.0f}, left);
    EXPECT_FLOAT_EQ(left.left[0], 8000.0f);
    EXPECT_EQ(left.right[0], 0.0f);

    Host right;
    Step(pan, 8, 1, [&] {
        Feed(pan, 0, 0, 8, [](int) { return 1.0f; });
        Feed(pan, 1, 0, 8, [](int) { return 2.0f; });  // clamped to fully right
    });
    pan.OutputWork(right.Buffers(), 8, kHostScale);
    EXPECT_NEAR(right.left[0], 0.0f, 1e-3f);
    EXPECT_FLOAT_EQ(right.right[0], 8000.0f);
}

TEST(BlockTypes, FamilyTypesCreateTheirBlocks) {
    const std::pair<int, int> typeCategory[] = {{0, 3},  {4, 0},  {7, 0},  {10, 0}, {18, 0},
                                                {25, 3}, {39, 0}, {49, 0}, {50, 0}, {53, 2}};
    for (auto [type, category] : typeCategory) {
        std::unique_ptr<CAudioBlock> block(CreateBlock(Engine(), type, kRate));
        ASSERT_NE(block, nullptr) << type;
        EXPECT_EQ(block->type, type);
        EXPECT_EQ(block->name, FindBlockType(type)->displayName) << type;
        EXPECT_EQ(block->category, category) << type;
    }
}

TEST(OutputsPatch, OscillatorIntoOutputSoundsOnEveryVoice) {
    VrokInstance engine(CreateBlock);
    engine.SetVoiceCount(4, false);
    int osc = -1, out = -1;
    ASSERT_TRUE(engine.InsertBlock(4, -1, &osc));
    ASSERT_TRUE(engine.InsertBlock(0, -1, &out));
    ASSERT_NE(engine.Connect(osc, out, 0), nullptr);
    engine.RebuildOrder();
    for (int note = 60; note < 64; ++note) engine.PressKey(note, 100);
    Host host;
    engine.Render(host.Buffers(), kMaxFrames);
    float loudest = 0.0f;
    for (int i = 0; i < kMaxFrames; ++i) {
        EXPECT_EQ(host.left[i], host.right[i]);
        loudest = std::max(loudest, std::fabs(host.left[i]));
    }
    EXPECT_GT(loudest, 1000.0f);
    EXPECT_LE(loudest, 63999.0f);
    for (int v = 0; v < 4; ++v) EXPECT_EQ(engine.blocks[out]->active[v], 1) << v;
}
