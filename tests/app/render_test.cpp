// The render loop: the schedule, where Work calls split, ticks and knobs, input feeding
// and where a render ends.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <set>

#include "app/render.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/machine.h"

using namespace app;

namespace {

constexpr int kRate = 44100;

// A sine oscillator (slot 0) into an output (slot 1) at full volume; it sounds on every
// voice, note or not.
void MakeSinePatch(VrokDoc& doc) {
    doc.ClearAll();
    PatchBlock* osc = doc.AddBlock(4, -1, 10, 10);
    PatchBlock* out = doc.AddBlock(0, -1, 120, 10);
    doc.SetParameter(osc, 2, 0.0f);  // Waveform: sine
    doc.SetParameter(out, 0, 1.0f);
    doc.AddConnection(osc, out, 0);
}

// The host's input into an output, both at full volume.
void MakeInputPatch(VrokDoc& doc) {
    doc.ClearAll();
    PatchBlock* in = doc.AddBlock(49, -1, 10, 10);
    PatchBlock* out = doc.AddBlock(0, -1, 120, 10);
    doc.SetParameter(in, 0, 1.0f);
    doc.SetParameter(out, 0, 1.0f);
    doc.AddConnection(in, out, 0);
}

class AppRender : public ::testing::Test {
protected:
    void SetUp() override { machine.Init(nullptr); }
    // Renders `plan`, keeping the size of every Work call and the frame it started at.
    RenderStats Run(const RenderPlan& plan) {
        const Schedule schedule = BuildSchedule(plan, kRate, host.samplesPerTickExact);
        long frame = 0;
        return RenderWithMachine(machine, host, plan, schedule, [&](const float* samples, int frames) {
            starts.insert(frame);
            sizes.push_back(frames);
            audio.insert(audio.end(), samples, samples + 2 * frames);
            if (onPiece) onPiece(frame);
            frame += frames;
            return true;
        });
    }

    CommandLineHost host{kRate, 126.0, 4};
    mi machine{host};
    std::set<long> starts;
    std::vector<int> sizes;
    std::vector<float> audio;
    std::function<void(long)> onPiece;
};

TEST(AppSchedule, ReleasesComeBeforePressesOnOneFrame) {
    RenderPlan plan;
    plan.midiNotes = {{0.5, 0, 62, 100}, {0.5, 0, 60, 0}, {0.1, 0, 60, 100}};
    const Schedule schedule = BuildSchedule(plan, kRate, 5250.0);
    ASSERT_EQ(schedule.midi.size(), 3u);
    EXPECT_EQ(schedule.midi[0].frame, 4410);
    EXPECT_EQ(schedule.midi[1].event.velocity, 0);
    EXPECT_EQ(schedule.midi[2].event.note, 62);
    EXPECT_EQ(schedule.lastEventFrame, 22050);
}

TEST(AppSchedule, TrackNotesShareTracksOnlyWhenTheyDoNotOverlap) {
    RenderPlan plan;
    // At 10 ticks per second: A4 over ticks 0..10, C5 over 5..15, E5 from tick 10 reuses
    // A4's track, whose release on that tick it overrides.
    plan.trackNotes = {{69, {}, 0.0, 1.0}, {72, 64, 0.5, 1.5}, {76, {}, 1.0, {}}};
    const Schedule schedule = BuildSchedule(plan, kRate, kRate / 10.0);
    EXPECT_EQ(schedule.numTracks, 2);
    const std::vector<TrackCell>& tick10 = schedule.rows.at(10);
    ASSERT_EQ(tick10.size(), 2u);
    EXPECT_EQ(tick10[0].track, 0);
    EXPECT_EQ(tick10[0].note, machine::kNoteOff);
    EXPECT_EQ(tick10[1].track, 0);
    EXPECT_EQ(ConvertNoteByte(tick10[1].note), 77);
    EXPECT_EQ(schedule.rows.at(5)[0].velocity, 64);
    EXPECT_EQ(schedule.rows.at(0)[0].velocity, machine::kNoValueByte);
    EXPECT_EQ(schedule.lastEventFrame, 15 * kRate / 10);
}

TEST(AppSchedule, SeventeenHeldTrackNotesAreRefused) {
    RenderPlan plan;
    for (int i = 0; i < 16; ++i) plan.trackNotes.push_back({60 + i, {}, 0.0, {}});
    EXPECT_NO_THROW(BuildSchedule(plan, kRate, 5250.0));
    plan.trackNotes.push_back({40, {}, 3.0, {}});
    EXPECT_THROW(BuildSchedule(plan, kRate, 5250.0), UsageError);
}

TEST(AppSchedule, TrackNotesOutsideThePatternRangeAreRefused) {
    RenderPlan plan;
    plan.trackNotes = {{4, {}, 0.0, {}}};
    EXPECT_THROW(BuildSchedule(plan, kRate, 5250.0), UsageError);
    plan.trackNotes = {{60, 129, 0.0, {}}};
    EXPECT_THROW(BuildSchedule(plan, kRate, 5250.0), UsageError);
}

TEST_F(AppRender, WorkIsSplitAtEveryEventAndTickAndNeverExceeds256) {
    RenderPlan plan;
    plan.seconds = 0.2;
    plan.midiNotes = {{0.01, 0, 69, 100}, {0.0123, 0, 69, 0}};
    const RenderStats stats = Run(plan);
    EXPECT_EQ(stats.frames, 8820);
    EXPECT_EQ(std::accumulate(sizes.begin(), sizes.end(), 0L), 8820);
    EXPECT_LE(*std::max_element(sizes.begin(), sizes.end()), kMaxFrames);
    for (long boundary : {441L, 542L, 5250L}) EXPECT_TRUE(starts.count(boundary)) << boundary;
}

TEST_F(AppRender, TrackNotePlaysThroughTickAndIsReleasedOnItsTick) {
    RenderPlan plan;
    plan.seconds = 0.5;
    plan.trackNotes = {{69, {}, 0.0, 0.2}};  // the release lands on tick 2, frame 10500
    std::vector<std::pair<long, bool>> held;
    onPiece = [&](long frame) { held.push_back({frame, machine.document->engine->noteHeld[70] != 0}); };
    Run(plan);
    for (const auto& [frame, isHeld] : held) EXPECT_EQ(isHeld, frame < 10500) << frame;
    EXPECT_EQ(machine.document->engine->noteVelocity[70], 254);
}

TEST_F(AppRender, KnobsArriveWithTheFirstTick) {
    MakeSinePatch(*machine.document);
    VrokInstance& engine = *machine.document->engine;
    // No external knob block exists yet: knob 3 is pointed at the output's volume.
    engine.extKnobPresent[2] = 1;
    engine.extKnobSlot[2] = 1;
    RenderPlan plan;
    plan.seconds = 0.01;
    plan.knobs[2] = 32;
    Run(plan);
    EXPECT_FLOAT_EQ(engine.blocks[1]->values[0], 0.25f);
}

TEST_F(AppRender, InputIsFedUntilItEnds) {
    MakeInputPatch(*machine.document);
    RenderPlan plan;
    plan.seconds = 0.05;
    plan.input.assign(2 * 1000, 0.5f);
    Run(plan);
    EXPECT_TRUE(starts.count(1000));
    EXPECT_NEAR(audio[0], 0.5f, 0.01f);
    EXPECT_NEAR(audio[2 * 999 + 1], 0.5f, 0.01f);
    EXPECT_EQ(audio[2 * 1000], 0.0f);
}

TEST_F(AppRender, SilentPatchStopsHalfASecondAfterTheLastEvent) {
    RenderPlan plan;
    plan.midiNotes = {{0.25, 0, 60, 100}};
    const RenderStats stats = Run(plan);
    EXPECT_FALSE(stats.stillSounding);
    EXPECT_GE(stats.frames, 11025 + 22050);
    EXPECT_LT(stats.frames, 11025 + 22050 + kMaxFrames);
}

TEST_F(AppRender, EndlessSoundIsCutAfterThirtySecondsOfTail) {
    MakeSinePatch(*machine.document);
    RenderPlan plan;
    plan.midiNotes = {{0.0, 0, 69, 100}, {1.0, 0, 69, 0}};
    const RenderStats stats = Run(plan);
    EXPECT_TRUE(stats.stillSounding);
    EXPECT_EQ(stats.frames, 31 * kRate);
}

}  // namespace
