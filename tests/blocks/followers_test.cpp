// Followers and triggers: trigger and release crossings of the envelope follower with its
// 100-sample hold, the dynamics follower's slew, the tracker's ring-down, and audio-trigger
// notes reaching the voices once per crossing.
#include "blocks/followers.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "blocks/block_harness.h"
#include "document/block_types.h"
#include "engine/value_format.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;

// `blocks` sample blocks of a sine of amplitude `level` (0: a wire with no signal).
void Drive(CAudioBlock& block, int blocks, float level, int numSamples = kMaxFrames) {
    for (int b = 0; b < blocks; ++b) {
        Step(block, numSamples, 1, [&] {
            if (level > 0.0f)
                Feed(block, 0, 0, numSamples, [&](int i) { return level * std::sin(0.05f * float(i)); });
            else
                WireSilent(block, 0);
        });
    }
}
}  // namespace

TEST(FollowersTable, NamesCategoriesAndPorts) {
    struct Row {
        int type;
        const char* name;
        int parameters, ports, category;
    };
    for (const Row& row : {Row{51, "EnvTrigger", 6, 1, kCategoryControllers},
                           Row{54, "Dyn. Follower", 6, 1, kCategoryControllers},
                           Row{52, "Audio Trigger", 3, 0, kCategoryGlobalTriggers},
                           Row{41, "VU Tracker", 2, 1, kCategoryModifiers}}) {
        std::unique_ptr<CAudioBlock> block(CreateBlock(Engine(), row.type, kRate));
        ASSERT_TRUE(block);
        EXPECT_EQ(block->name, row.name);
        EXPECT_EQ(block->numParameters, row.parameters);
        EXPECT_EQ(block->numPorts, row.ports);
        EXPECT_EQ(block->category, row.category);
    }
}

TEST(LevelDetectorStep, SettlesOnTheRootMeanSquare) {
    LevelDetector detector(5.0f, kRate);
    float level = 0.0f;
    for (int i = 0; i < int(kRate); ++i) level = detector.Step(0.25f);
    EXPECT_NEAR(level, 0.5f, 1e-3f);
}

TEST(EnvelopeFollowerWork, TriggersHoldsSustainsAndReleasesOnCrossings) {
    CEnvelopeFollower follower(&Engine(), kRate);
    follower.SetParameter(1, 0.0f);  // attack: 64 samples
    follower.SetParameter(2, 0.0f);  // release: 64 samples
    EnvelopeState& env = follower.states[0];
    // Quiet input below "Trig. Level" (0.5): nothing starts.
    Drive(follower, 40, 0.3f);
    EXPECT_EQ(env.stage, kStageIdle);
    EXPECT_EQ(follower.active[0], 0);
    // Loud input: the level rises through 0.5, and the attack starts on that sample.
    int started = -1, held = -1, sustained = -1;
    for (int i = 0; i < 20000 && sustained < 0; ++i) {
        Step(follower, 1, 1, [&] { Feed(follower, 0, 0, 1, Const(1.0f)); });
        if (started < 0 && env.stage == kStageAttack) started = i;
        if (held < 0 && env.stage == kStageDecay) held = i;
        if (sustained < 0 && env.stage == kStageSustain) sustained = i;
    }
    ASSERT_GE(started, 0);
    // The sample that starts the attack is its first step.
    EXPECT_EQ(held - started, 63);
    EXPECT_EQ(sustained - held, 100);
    EXPECT_NEAR(follower.output[0][0], 1.0f, 1e-4f);  // "Mod. Scale" 1.0 sends the level as it is
    // Silence: the level falls below "Rel. Level", release runs out, the voice goes idle.
    Drive(follower, 1, 0.0f);
    EXPECT_EQ(follower.active[0], 1);
    int blocks = 0;
    while (follower.active[0] && blocks < 200) Drive(follower, 1, 0.0f), ++blocks;
    EXPECT_EQ(env.stage, kStageIdle);
    EXPECT_LT(blocks, 200);
    EXPECT_LT(follower.GetLevel(), 0.5f);
}

TEST(EnvelopeFollowerWork, UnwiredIdleVoiceIsInactive) {
    CEnvelopeFollower follower(&Engine(), kRate);
    Step(follower, 64);
    EXPECT_EQ(follower.active[0], 0);
}

TEST(DynamicsFollowerWork, SlewsTowardTheScaledLevelAboveTheThreshold) {
    CDynamicsFollower follower(&Engine(), kRate);
    follower.SetParameter(3, 0.2f);  // threshold 0.2
    follower.SetParameter(4, 0.4f);  // top 0.6: range scale 2.5
    follower.SetParameter(1, 0.0f);  // 1/64 per sample up
    const float up = 1.0f / float(EnvelopeLengthSamples(0.0f, kRate));
    // A steady level of 0.4 (constant input 0.4, pregain 2 -> 0.8... so feed 0.2).
    for (int b = 0; b < 200; ++b)
        Step(follower, kMaxFrames, 1, [&] { Feed(follower, 0, 0, kMaxFrames, Const(0.2f)); });
    EXPECT_NEAR(follower.output[0][kMaxFrames - 1], (0.4f - 0.2f) * 2.5f, 1e-3f);
    // Below the threshold it slews back down to 0, never below.
    for (int b = 0; b < 400; ++b) Drive(follower, 1, 0.0f);
    EXPECT_EQ(follower.output[0][kMaxFrames - 1], 0.0f);
    EXPECT_EQ(follower.active[0], 1);
    // A step up is limited to the attack slope per sample.
    Step(follower, kMaxFrames, 1, [&] { Feed(follower, 0, 0, kMaxFrames, Const(2.0f)); });
    for (int i = 1; i < kMaxFrames; ++i)
        ASSERT_LE(follower.output[0][i] - follower.output[0][i - 1], up * 1.001f);
    // No room above the threshold: the scale keeps its last value.
    follower.SetParameter(4, 0.0f);
    EXPECT_FLOAT_EQ(follower.rangeScale.load(), 2.5f);
}

TEST(VuTrackerWork, RingsDownAfterTheInputAndPeakModeHasNoFactor) {
    CVUTrackerBlock mean(&Engine(), kRate), peak(&Engine(), kRate);
    mean.SetParameter(1, 0.39f);
    peak.SetParameter(1, 0.4f);
    mean.SetParameter(0, 0.0f);  // a 64-sample time constant
    peak.SetParameter(0, 0.0f);
    for (CVUTrackerBlock* t : {&mean, &peak})
        for (int b = 0; b < 100; ++b)
            Step(*t, kMaxFrames, 1, [&] { Feed(*t, 0, 0, kMaxFrames, Const(0.5f)); });
    EXPECT_NEAR(mean.output[0][0], 0.5f * 1.7f, 1e-3f);
    EXPECT_NEAR(peak.output[0][0], 0.5f, 1e-3f);
    int blocks = 0;
    while (blocks < 10000) {
        Step(mean, kMaxFrames);
        if (!mean.active[0]) break;
        ++blocks;
    }
    EXPECT_GT(blocks, 1);
    EXPECT_LT(blocks, 10000);
    EXPECT_LE(mean.power[0], 0.000001f);
}

namespace {
// An engine whose patch is one audio trigger block; counts note-ons through the voices.
struct TriggerPatch {
    TriggerPatch() : engine(CreateBlock) {
        engine.PrepareWaveTables();
        engine.SetVoiceCount(4, false);
        engine.InsertBlock(52, -1, &slot);
        engine.RebuildOrder();
        trigger = dynamic_cast<CGlobalEnvTriggerBlock*>(engine.blocks[slot]);
        trigger->SetParameter(0, 1.0f);  // prescale 1
    }
    // One host buffer of a constant at host scale, `value` in 0..1 of full scale.
    void Feed(float value, int numSamples = kMaxFrames) {
        std::vector<float> left(size_t(numSamples), value * kHostScale), right = left;
        engine.RunInputs({left.data(), right.data()}, numSamples);
    }
    VrokInstance engine;
    int slot = -1;
    CGlobalEnvTriggerBlock* trigger = nullptr;
};
}  // namespace

TEST(AudioTrigger, OneNotePerCrossingReachesTheVoiceLogic) {
    TriggerPatch patch;
    int notesOn = 0;
    bool wasHeld = false;
    auto count = [&] {
        const bool held = patch.engine.noteHeld[CGlobalEnvTriggerBlock::kNote] != 0;
        if (held && !wasHeld) ++notesOn;
        wasHeld = held;
    };
    for (int round = 0; round < 3; ++round) {
        // Up and staying up: one note, held.
        for (int b = 0; b < 200; ++b) patch.Feed(0.5f), count();
        EXPECT_EQ(notesOn, round + 1);
        EXPECT_TRUE(wasHeld);
        EXPECT_EQ(patch.engine.voiceNote[patch.engine.voiceCursor.load() % 4], 60);
        // Down: released, no new note.
        for (int b = 0; b < 200; ++b) patch.Feed(0.0f), count();
        EXPECT_FALSE(wasHeld);
        EXPECT_EQ(notesOn, round + 1);
    }
    EXPECT_GT(patch.trigger->GetLevel(), -1.0f);
}
