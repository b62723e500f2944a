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
#include "fx/arpeggiator.h"
#include "machine/machine.h"

using namespace app;

// Plans name only the members they set; the rest keep their defaults.
#pragma GCC diagnostic ignored "-Wmissing-field-initializers"

namespace {

constexpr int kRate = 44100;

class AppRender : public ::testing::Test {
protected:
    void SetUp() override { machine.Init(nullptr); }
    // Block `type` (slot 0, its parameter `index` at `value`) into an output at full volume
    // (slot 1). A sine oscillator, Patch(4, 2, 0.0f), sounds on every voice, note or not.
    void Patch(int type, int index, float value) {
        VrokDoc& doc = *machine.document;
        doc.ClearAll();
        PatchBlock *source = doc.AddBlock(type, -1, 10, 10), *out = doc.AddBlock(0, -1, 120, 10);
        doc.SetParameter(source, index, value);
        doc.SetParameter(out, 0, 1.0f);
        doc.AddConnection(source, out, 0);
    }
    // Renders `plan`, keeping the size of every Work call and the frame it started at.
    RenderStats Run(const RenderPlan& plan) {
        long frame = 0;
        return RenderWithMachine(machine, host, plan, BuildSchedule(plan, kRate, host.samplesPerTickExact),
                                 [&](const float* samples, int frames) {
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
    const RenderPlan plan{.midiNotes = {{0.5, 0, 62, 100}, {0.5, 0, 60, 0}, {0.1, 0, 60, 100}}};
    const Schedule schedule = BuildSchedule(plan, kRate, 5250.0);
    ASSERT_EQ(schedule.midi.size(), 3u);
    EXPECT_EQ(schedule.midi[0].frame, 4410);
    EXPECT_EQ(schedule.midi[1].event.velocity, 0);
    EXPECT_EQ(schedule.midi[2].event.note, 62);
    EXPECT_EQ(schedule.lastEventFrame, 22050);
}

// A release goes before a press on its frame only when its key was down before that frame:
// a note shorter than a frame (or a MIDI file's drum hit) must still end.
TEST(AppSchedule, AReleaseStaysAfterAPressOnItsOwnFrame) {
    struct Case {
        const char* name;
        std::vector<MidiNoteEvent> events;
        std::vector<int> velocities;  // of the scheduled events, in order
    };
    const Case cases[] = {
        {"shorter than a frame", {{0.5, 0, 60, 100}, {0.5, 0, 60, 0}}, {100, 0}},
        {"ends and starts again", {{0.5, 0, 60, 90}, {0.5, 0, 60, 0}, {0.1, 0, 60, 100}}, {100, 0, 90}},
        {"restarts and is hit",
         {{0.1, 0, 60, 100}, {0.5, 0, 60, 90}, {0.5, 0, 60, 0}, {0.5, 0, 60, 0}},
         {100, 0, 90, 0}},
        {"other channel", {{0.1, 1, 60, 100}, {0.5, 0, 60, 90}, {0.5, 0, 60, 0}}, {100, 90, 0}},
    };
    for (const Case& c : cases) {
        const Schedule schedule = BuildSchedule({.midiNotes = c.events}, kRate, 5250.0);
        std::vector<int> velocities;
        for (const auto& at : schedule.midi) velocities.push_back(at.event.velocity);
        EXPECT_EQ(velocities, c.velocities) << c.name;
    }
}

TEST_F(AppRender, ANoteShorterThanAFrameLeavesNoKeyDown) {
    Patch(4, 2, 0.0f);
    Run({.seconds = 0.2, .midiNotes = {{0.1, 0, 60, 100}, {0.1000001, 0, 60, 0}}});
    const VrokInstance& engine = *machine.document->engine;
    EXPECT_EQ(engine.noteHeld[61], 0);
    EXPECT_TRUE(engine.heldNotes.empty());
    EXPECT_TRUE(std::none_of(std::begin(engine.voiceActive), std::end(engine.voiceActive),
                             [](uint8_t a) { return a; }));
}

TEST(AppSchedule, TrackNotesShareTracksOnlyWhenTheyDoNotOverlap) {
    // At 10 ticks per second: A4 over ticks 0..10, C5 over 5..15, E5 from tick 10 reuses
    // A4's track, whose release on that tick it overrides.
    const RenderPlan plan{.trackNotes = {{69, {}, 0.0, 1.0}, {72, 64, 0.5, 1.5}, {76, {}, 1.0, {}}}};
    const Schedule schedule = BuildSchedule(plan, kRate, kRate / 10.0);
    EXPECT_EQ(schedule.numTracks, 2);
    const std::vector<TrackCell>& tick10 = schedule.rows.at(10);
    ASSERT_EQ(tick10.size(), 2u);
    EXPECT_TRUE(tick10[0].track == 0 && tick10[0].note == machine::kNoteOff);
    EXPECT_TRUE(tick10[1].track == 0 && ConvertNoteByte(tick10[1].note) == 77) << int(tick10[1].note);
    EXPECT_EQ(schedule.rows.at(5)[0].velocity, 64);
    EXPECT_EQ(schedule.rows.at(0)[0].velocity, machine::kNoValueByte);
    EXPECT_EQ(schedule.lastEventFrame, 15 * kRate / 10);
}

TEST(AppSchedule, RefusesSeventeenHeldTrackNotesAndNotesOutsideThePattern) {
    RenderPlan plan;
    for (int i = 0; i < 16; ++i) plan.trackNotes.push_back({60 + i, {}, 0.0, {}});
    EXPECT_NO_THROW(BuildSchedule(plan, kRate, 5250.0));
    plan.trackNotes.push_back({40, {}, 3.0, {}});
    EXPECT_THROW(BuildSchedule(plan, kRate, 5250.0), UsageError);
    for (NoteArgument note : {NoteArgument{4, {}, 0.0, {}}, NoteArgument{60, 129, 0.0, {}}}) {
        plan.trackNotes = {note};
        EXPECT_THROW(BuildSchedule(plan, kRate, 5250.0), UsageError) << note.note;
    }
}

TEST_F(AppRender, WorkIsSplitAtEveryEventAndTickAndNeverExceeds256) {
    EXPECT_EQ(Run({.seconds = 0.2, .midiNotes = {{0.01, 0, 69, 100}, {0.0123, 0, 69, 0}}}).frames, 8820);
    EXPECT_EQ(std::accumulate(sizes.begin(), sizes.end(), 0L), 8820);
    EXPECT_LE(*std::max_element(sizes.begin(), sizes.end()), kMaxFrames);
    for (long boundary : {441L, 542L, 5250L}) EXPECT_TRUE(starts.count(boundary)) << boundary;
}

TEST_F(AppRender, TrackNotePlaysThroughTickAndIsReleasedOnItsTick) {
    std::vector<std::pair<long, bool>> held;
    onPiece = [&](long frame) { held.push_back({frame, machine.document->engine->noteHeld[70] != 0}); };
    Run({.seconds = 0.5, .trackNotes = {{69, {}, 0.0, 0.2}}});  // the release lands on tick 2, frame 10500
    for (const auto& [frame, isHeld] : held) EXPECT_EQ(isHeld, frame < 10500) << frame;
    EXPECT_EQ(machine.document->engine->noteVelocity[70], 254);
}

TEST_F(AppRender, KnobsArriveWithTheFirstTick) {
    Patch(4, 2, 0.0f);
    VrokInstance& engine = *machine.document->engine;
    // No external knob block exists yet: knob 3 is pointed at the output's volume.
    engine.extKnobPresent[2] = 1;
    engine.extKnobSlot[2] = 1;
    Run({.seconds = 0.01, .knobs = {-1, -1, 32, -1, -1, -1, -1, -1}});
    EXPECT_FLOAT_EQ(engine.blocks[1]->values[0], 0.25f);
}

TEST_F(AppRender, InputIsFedUntilItEnds) {
    Patch(49, 0, 1.0f);  // the host's input at full volume
    Run({.seconds = 0.05, .input = std::vector<float>(2 * 1000, 0.5f)});
    EXPECT_TRUE(starts.count(1000));
    EXPECT_NEAR(audio[0], 0.5f, 0.01f);
    EXPECT_NEAR(audio[2 * 999 + 1], 0.5f, 0.01f);
    EXPECT_EQ(audio[2 * 1000], 0.0f);
}

TEST_F(AppRender, RenderEndsHalfASecondIntoSilenceOrThirtySecondsIntoTheTail) {
    RenderStats stats = Run({.midiNotes = {{0.25, 0, 60, 100}}});
    EXPECT_FALSE(stats.stillSounding);
    EXPECT_GE(stats.frames, 11025 + 22050);
    EXPECT_LT(stats.frames, 11025 + 22050 + kMaxFrames);

    Patch(4, 2, 0.0f);
    stats = Run({.midiNotes = {{0.0, 0, 69, 100}, {1.0, 0, 69, 0}}});
    EXPECT_TRUE(stats.stillSounding);
    EXPECT_EQ(stats.frames, 31 * kRate) << "endless sound is cut";
}

TEST(AppRenderTempo, TheHostTempoTimesTheArpeggiatorSteps) {
    for (double bpm : {120.0, 60.0}) {
        CommandLineHost host(kRate, bpm, 4);
        mi machine(host);
        machine.Init(nullptr);
        VrokDoc& doc = *machine.document;
        doc.ClearAll();
        PatchBlock *osc = doc.AddBlock(4, -1, 10, 10), *out = doc.AddBlock(0, -1, 120, 10);
        doc.AddConnection(osc, out, 0);
        ASSERT_NE(doc.AddBlock(44, -1, 10, 120), nullptr);
        const CGlobalArpeggioBlock& arp = *doc.engine->arpeggiator;
        // Sixteen steps to the measure: a step is a quarter of a beat.
        const double stepFrames = double(host.master.samplesPerTick) * 4 * 4 / 16;
        const RenderPlan plan{.seconds = 3.0, .midiNotes = {{0.0, 0, 60, 100}}};
        std::vector<long> stepStarts;
        long frame = 0;
        int lastStep = -1;
        RenderWithMachine(machine, host, plan, BuildSchedule(plan, kRate, host.samplesPerTickExact),
                          [&](const float*, int frames) {
                              if (arp.stepIndex != lastStep) stepStarts.push_back(frame);
                              lastStep = arp.stepIndex;
                              frame += frames;
                              return true;
                          });
        ASSERT_GE(stepStarts.size(), 8u) << bpm;
        const double spacing = double(stepStarts.back() - stepStarts[1]) / double(stepStarts.size() - 2);
        EXPECT_NEAR(spacing, stepFrames, kMaxFrames / 4.0) << bpm;
    }
}

}  // namespace
