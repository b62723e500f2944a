// Voice allocation, legato, glides and the voice count.
#include <gtest/gtest.h>

#include <cstring>

#include "engine/log.h"
#include "engine/probe_blocks.h"

using namespace probe;

namespace {

std::vector<std::string> logged;
void Capture(int, const char* text) { logged.emplace_back(text); }

class Voices : public ::testing::Test {
protected:
    void SetUp() override {
        osc = Insert(engine, kPolySource);
        engine.Connect(osc, Insert(engine, kOutput), 0);
        engine.RebuildOrder();
        Calls().clear();
    }
    int VoiceOf(int note) const {
        for (int v = 0; v < engine.numVoices; ++v)
            if (engine.voiceActive[v] && engine.voiceNote[v] == note) return v;
        return -1;
    }
    std::vector<Call> CallsOf(const std::string& what) const {
        std::vector<Call> out;
        for (const Call& c : Calls())
            if (c.what == what && c.slot == osc) out.push_back(c);
        return out;
    }
    VrokInstance engine{Factory};
    int osc = -1;
};

TEST_F(Voices, FullVoicesDropANewNoteWithoutStealing) {
    engine.SetVoiceCount(4, false);
    for (int note : {60, 61, 62, 63}) engine.PressKey(note, 100);
    Calls().clear();
    engine.PressKey(70, 100);
    EXPECT_TRUE(Calls().empty()) << "no block hears of a dropped note";
    EXPECT_EQ(VoiceOf(70), -1);
    for (int note : {60, 61, 62, 63}) EXPECT_GE(VoiceOf(note), 0);
    EXPECT_EQ(engine.heldNotes.back(), 70) << "the dropped note stays in the held list";
}

TEST_F(Voices, RepeatedNoteRestartsItsOwnVoice) {
    engine.SetVoiceCount(4, false);
    for (int note : {60, 61, 62, 63}) engine.PressKey(note, 100);
    int voice = VoiceOf(62);
    Calls().clear();
    engine.PressKey(62, 90);
    auto noteOns = CallsOf("NoteOn");
    ASSERT_EQ(noteOns.size(), 1u);
    EXPECT_EQ(noteOns[0].voice, voice);
    EXPECT_EQ(noteOns[0].value, 90.0f);
    EXPECT_EQ(engine.voiceCursor.load(), voice);
}

TEST_F(Voices, ReleasedNoteComesBackToTheSameVoice) {
    engine.SetVoiceCount(4, false);
    for (int note : {60, 61, 62}) engine.PressKey(note, 100);
    int voice = VoiceOf(60);
    engine.ReleaseKey(60);
    EXPECT_EQ(engine.voiceActive[voice], 0) << "a released voice is free at once";
    engine.PressKey(64, 100);  // moves the cursor elsewhere
    engine.PressKey(60, 100);
    EXPECT_EQ(VoiceOf(60), voice);
}

TEST_F(Voices, NoteOffReachesEveryVoiceOfThatNote) {
    engine.SetVoiceCount(2, false);
    engine.PressKey(60, 100);
    int voice = VoiceOf(60);
    Calls().clear();
    engine.ReleaseKey(60);
    auto offs = CallsOf("NoteOff");
    ASSERT_EQ(offs.size(), 1u);
    EXPECT_EQ(offs[0].voice, voice);
    EXPECT_FALSE(engine.noteHeld[60]);
}

TEST_F(Voices, SetNoteGoesOutBeforeNoteOnWithTheFullPitch) {
    engine.SetVoiceCount(2, false);
    engine.transpose = 3.0f;
    engine.bendRange = 2.0f;
    engine.bend = 0.5f;
    engine.PressKey(60, 100);
    auto& calls = Calls();
    auto setNote = std::find_if(calls.begin(), calls.end(), [&](const Call& c) { return c.what == "SetNote"; });
    auto noteOn = std::find_if(calls.begin(), calls.end(), [&](const Call& c) { return c.what == "NoteOn"; });
    ASSERT_NE(setNote, calls.end());
    ASSERT_NE(noteOn, calls.end());
    EXPECT_LT(setNote - calls.begin(), noteOn - calls.begin());
    EXPECT_FLOAT_EQ(setNote->value, 64.0f);
}

TEST_F(Voices, MonophonicLegatoReturnsToTheHeldKey) {
    engine.SetVoiceCount(1, true);
    engine.PressKey(60, 100);
    engine.PressKey(64, 100);
    EXPECT_EQ(CallsOf("NoteOn").size(), 1u) << "the second key glides in legato";
    Calls().clear();
    engine.ReleaseKey(64);
    auto notes = CallsOf("SetNote");
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0].value, 60.0f);
    EXPECT_TRUE(CallsOf("NoteOn").empty());
    EXPECT_TRUE(CallsOf("NoteOff").empty());
    engine.ReleaseKey(60);
    auto offs = CallsOf("NoteOff");
    ASSERT_EQ(offs.size(), 1u);
    EXPECT_EQ(offs[0].voice, 0);
}

TEST_F(Voices, MonophonicNewNoteAfterReleaseRetriggers) {
    engine.SetVoiceCount(1, true);
    engine.PressKey(60, 100);
    engine.ReleaseKey(60);
    Calls().clear();
    engine.PressKey(64, 100);
    EXPECT_EQ(CallsOf("NoteOn").size(), 1u);
}

TEST_F(Voices, SingleRetriggeringVoiceRestartsEveryNote) {
    engine.SetVoiceCount(1, false);
    engine.PressKey(60, 100);
    engine.ReleaseKey(60);
    engine.PressKey(62, 100);
    engine.PressKey(64, 100);
    EXPECT_EQ(CallsOf("NoteOn").size(), 2u) << "with the voice taken, 64 is dropped";
    EXPECT_EQ(engine.voiceNote[0], 62);
}

TEST_F(Voices, VoiceCountLimits) {
    engine.SetVoiceCount(0, true);
    EXPECT_EQ(engine.numVoices, 1);
    EXPECT_TRUE(engine.monophonic);
    engine.SetVoiceCount(1, false);
    EXPECT_EQ(engine.numVoices, 1);
    EXPECT_FALSE(engine.monophonic);
    engine.SetVoiceCount(40, true);
    EXPECT_EQ(engine.numVoices, 16);
    EXPECT_FALSE(engine.monophonic);
    engine.SetVoiceCount(3, true);
    EXPECT_FALSE(engine.monophonic);
}

TEST_F(Voices, VoiceCountReleasesAllNotes) {
    engine.SetVoiceCount(4, false);
    engine.PressKey(60, 100);
    engine.PressKey(67, 100);
    engine.SetVoiceCount(8, false);
    EXPECT_TRUE(engine.heldNotes.empty());
    EXPECT_EQ(std::count(std::begin(engine.voiceActive), std::end(engine.voiceActive), 1), 0);
}

TEST_F(Voices, OutOfRangeNotesSoundWithoutKeyStateAndLogHelp) {
    logged.clear();
    LogSink previous = SetLogSink(Capture);
    engine.SetVoiceCount(2, false);
    engine.PressKey(200, 100);
    engine.PressKey(-3, 100);
    EXPECT_GE(VoiceOf(200), 0);
    EXPECT_EQ(std::count(logged.begin(), logged.end(), "help!"), 2);
    engine.ReleaseKey(200);
    engine.ReleaseKey(-3);
    EXPECT_EQ(VoiceOf(200), -1);
    SetLogSink(previous);
}

TEST_F(Voices, HeldListStaysBoundedUnderRepeatedNotes) {
    engine.SetVoiceCount(2, false);
    for (int i = 0; i < 3 * kMaxHeldNotes; ++i) engine.PressKey(60, 100);
    EXPECT_EQ(int(engine.heldNotes.size()), kMaxHeldNotes);
    engine.ReleaseKey(60);
    EXPECT_TRUE(engine.heldNotes.empty());
}

TEST_F(Voices, PortamentoLengthFollowsTheEnvelopeCurve) {
    engine.SetPortamento(1.0f);
    EXPECT_EQ(engine.portamentoLength, 264600.0f);
    engine.SetPortamento(0.0001f);
    EXPECT_GE(engine.portamentoLength, 64.0f);
    EXPECT_TRUE(engine.portamentoOn);
}

TEST_F(Voices, GlideStartsAtTheLastNoteAndMovesLinearlyPerBlock) {
    engine.SetVoiceCount(2, false);
    engine.SetPortamento(0.5f);
    const float length = engine.portamentoLength;
    engine.lastNote = 50;
    engine.PressKey(60, 100);
    int voice = VoiceOf(60);
    EXPECT_TRUE(CallsOf("SetNote").empty()) << "the first pitch comes from the glide";
    EXPECT_EQ(CallsOf("NoteOn").size(), 1u);
    engine.AdvanceGlides(int(length / 4));
    auto notes = CallsOf("SetNote");
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_NEAR(notes[0].value, 52.5f, 0.01f);
    engine.AdvanceGlides(int(length));
    EXPECT_EQ(engine.portamentoPosition[voice], 1.0f);
    EXPECT_FLOAT_EQ(engine.voicePitch[voice], 60.0f);
    Calls().clear();
    engine.AdvanceGlides(64);
    EXPECT_TRUE(CallsOf("SetNote").empty()) << "a finished glide sends nothing";
}

TEST_F(Voices, TurningPortamentoOffEndsGlidesAtTheirTarget) {
    engine.SetVoiceCount(2, false);
    engine.SetPortamento(0.5f);
    engine.PressKey(60, 100);
    int voice = VoiceOf(60);
    engine.SetPortamento(0.0f);
    EXPECT_FALSE(engine.portamentoOn);
    EXPECT_EQ(engine.voicePitch[voice], 60.0f);
    EXPECT_EQ(engine.portamentoPosition[voice], 1.0f);
}

TEST_F(Voices, ArpeggiatorSwitchReleasesHeldNotes) {
    engine.SetVoiceCount(2, false);
    engine.PressKey(60, 100);
    engine.SetArpeggiatorActive(true);
    EXPECT_TRUE(engine.arpeggiatorActive);
    EXPECT_FALSE(engine.noteHeld[60]);
    EXPECT_EQ(VoiceOf(60), -1);
}

}  // namespace
