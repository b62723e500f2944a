// Voice allocation, legato, glides and the voice count.
#include <algorithm>
#include <utility>

#include "engine/log.h"
#include "engine/probe_blocks.h"

using namespace probe;

namespace {

std::vector<std::string> logged;
void Capture(int, const char* text) { logged.emplace_back(text); }

using Sent = std::vector<std::pair<int, float>>;  // (voice, value) per call

class Voices : public EngineTest {
protected:
    void SetUp() override {
        Chain({osc, Add(kOutput)});
        Calls().clear();
    }
    void Press(std::initializer_list<int> notes) {
        for (int note : notes) engine.PressKey(note, 100);
    }
    int VoiceOf(int note) const {
        for (int v = 0; v < engine.numVoices; ++v)
            if (engine.voiceActive[v] && engine.voiceNote[v] == note) return v;
        return -1;
    }
    Sent OscCalls(const std::string& what) const {
        Sent sent;
        for (const Call& c : CallsOf(what, osc)) sent.emplace_back(c.voice, c.value);
        return sent;
    }
    const int osc = Add(kPolySource);
};

TEST_F(Voices, FullVoicesDropANewNoteAndARepeatRestartsItsOwnVoice) {
    engine.SetVoiceCount(4, false);
    Press({60, 61, 62, 63});
    Calls().clear();
    Press({70});
    EXPECT_TRUE(Calls().empty()) << "no block hears of a dropped note";
    EXPECT_EQ(VoiceOf(70), -1);
    for (int note : {60, 61, 62, 63}) EXPECT_GE(VoiceOf(note), 0) << "no voice stolen from " << note;
    EXPECT_EQ(engine.heldNotes.back(), 70) << "the dropped note stays in the held list";

    const int voice = VoiceOf(62);
    engine.PressKey(62, 90);
    EXPECT_EQ(OscCalls("NoteOn"), (Sent{{voice, 90.0f}}));
    EXPECT_EQ(engine.voiceCursor.load(), voice);
}

TEST_F(Voices, ReleasedNoteFreesItsVoiceAndComesBackToIt) {
    engine.SetVoiceCount(4, false);
    Press({60, 61, 62});
    const int voice = VoiceOf(60);
    Calls().clear();
    engine.ReleaseKey(60);
    EXPECT_EQ(OscCalls("NoteOff"), (Sent{{voice, 0.0f}}));
    EXPECT_FALSE(engine.noteHeld[60]);
    EXPECT_EQ(engine.voiceActive[voice], 0) << "a released voice is free at once";
    Press({64, 60});  // 64 moves the cursor elsewhere
    EXPECT_EQ(VoiceOf(60), voice);
}

TEST_F(Voices, SetNoteGoesOutBeforeNoteOnWithTheFullPitch) {
    engine.SetVoiceCount(2, false);
    engine.transpose = 3.0f;
    engine.bendRange = 2.0f;
    engine.bend = 0.5f;
    Press({60});
    auto first = [](const char* what) {
        return std::find_if(Calls().begin(), Calls().end(), [&](const Call& c) { return c.what == what; });
    };
    ASSERT_NE(first("NoteOn"), Calls().end());
    ASSERT_LT(first("SetNote"), first("NoteOn"));
    EXPECT_FLOAT_EQ(first("SetNote")->value, 64.0f);
}

TEST_F(Voices, OneVoiceLegatoAndRetrigger) {
    engine.SetVoiceCount(1, true);
    Press({60, 64});
    EXPECT_EQ(OscCalls("NoteOn").size(), 1u) << "the second key glides in legato";
    Calls().clear();
    engine.ReleaseKey(64);
    EXPECT_EQ(OscCalls("SetNote"), (Sent{{0, 60.0f}})) << "back to the held key";
    EXPECT_TRUE(OscCalls("NoteOn").empty() && OscCalls("NoteOff").empty());
    engine.ReleaseKey(60);
    EXPECT_EQ(OscCalls("NoteOff"), (Sent{{0, 0.0f}}));
    Calls().clear();
    Press({64});
    EXPECT_EQ(OscCalls("NoteOn").size(), 1u) << "a note after the release retriggers";

    engine.SetVoiceCount(1, false);
    Calls().clear();
    Press({60});
    engine.ReleaseKey(60);
    Press({62, 64});
    EXPECT_EQ(OscCalls("NoteOn").size(), 2u) << "retriggering voice: with the voice taken, 64 is dropped";
    EXPECT_EQ(engine.voiceNote[0], 62);
}

TEST_F(Voices, VoiceCountIsLimitedAndReleasesAllNotes) {
    struct Row { int count; bool mono; int voices; bool monophonic; };
    for (const Row& r : {Row{0, true, 1, true}, {1, false, 1, false}, {40, true, 16, false}, {3, true, 3, false}}) {
        engine.SetVoiceCount(r.count, r.mono);
        EXPECT_EQ(engine.numVoices, r.voices) << r.count;
        EXPECT_EQ(engine.monophonic, r.monophonic) << r.count;
    }
    Press({60, 67});
    engine.SetVoiceCount(8, false);
    EXPECT_TRUE(engine.heldNotes.empty());
    EXPECT_EQ(std::count(std::begin(engine.voiceActive), std::end(engine.voiceActive), 1), 0);
}

TEST_F(Voices, OutOfRangeNotesSoundWithoutKeyStateAndHeldListStaysBounded) {
    logged.clear();
    LogSink previous = SetLogSink(Capture);
    engine.SetVoiceCount(2, false);
    Press({200, -3});
    EXPECT_GE(VoiceOf(200), 0);
    EXPECT_EQ(std::count(logged.begin(), logged.end(), "help!"), 2);
    engine.ReleaseKey(200);
    engine.ReleaseKey(-3);
    EXPECT_EQ(VoiceOf(200), -1);
    SetLogSink(previous);

    for (int i = 0; i < 3 * kMaxHeldNotes; ++i) Press({60});
    EXPECT_EQ(int(engine.heldNotes.size()), kMaxHeldNotes);
    engine.ReleaseKey(60);
    EXPECT_TRUE(engine.heldNotes.empty());
}

TEST_F(Voices, GlideStartsAtTheLastNoteMovesLinearlyAndEndsWhenTurnedOff) {
    engine.SetPortamento(1.0f);
    EXPECT_EQ(engine.portamentoLength, 264600.0f);
    engine.SetPortamento(0.0001f);
    EXPECT_GE(engine.portamentoLength, 64.0f);

    engine.SetVoiceCount(2, false);
    engine.SetPortamento(0.5f);
    EXPECT_TRUE(engine.portamentoOn);
    const float length = engine.portamentoLength;
    engine.lastNote = 50;
    Press({60});
    const int voice = VoiceOf(60);
    EXPECT_TRUE(OscCalls("SetNote").empty()) << "the first pitch comes from the glide";
    EXPECT_EQ(OscCalls("NoteOn").size(), 1u);
    engine.AdvanceGlides(int(length / 4));
    ASSERT_EQ(OscCalls("SetNote").size(), 1u);
    EXPECT_NEAR(OscCalls("SetNote")[0].second, 52.5f, 0.01f);
    engine.AdvanceGlides(int(length));
    EXPECT_EQ(engine.portamentoPosition[voice], 1.0f);
    EXPECT_FLOAT_EQ(engine.voicePitch[voice], 60.0f);
    Calls().clear();
    engine.AdvanceGlides(64);
    EXPECT_TRUE(OscCalls("SetNote").empty()) << "a finished glide sends nothing";

    Press({67});
    const int other = VoiceOf(67);
    engine.SetPortamento(0.0f);
    EXPECT_FALSE(engine.portamentoOn);
    EXPECT_EQ(engine.voicePitch[other], 67.0f) << "turning it off ends the glide at its target";
    EXPECT_EQ(engine.portamentoPosition[other], 1.0f);
}

TEST_F(Voices, ArpeggiatorSwitchReleasesHeldNotes) {
    engine.SetVoiceCount(2, false);
    Press({60});
    engine.SetArpeggiatorActive(true);
    EXPECT_TRUE(engine.arpeggiatorActive);
    EXPECT_FALSE(engine.noteHeld[60]);
    EXPECT_EQ(VoiceOf(60), -1);
}

TEST_F(Voices, NewNotesStartAfterTheCursorWrapAroundAndShareItWithOtherEngines) {
    engine.SetVoiceCount(4, false);
    VrokInstance::voiceCursor = 2;
    Press({60, 61, 62, 63});
    EXPECT_EQ((std::vector<int>{VoiceOf(60), VoiceOf(61), VoiceOf(62), VoiceOf(63)}), (std::vector<int>{3, 0, 1, 2}));
    engine.ReleaseKey(61);
    engine.ReleaseKey(62);
    Press({64});
    EXPECT_EQ(VoiceOf(64), 0) << "the search starts after the last voice started, 2";

    VrokInstance other(Factory);
    int osc = -1, out = -1;
    other.InsertBlock(kPolySource, -1, &osc);
    other.InsertBlock(kOutput, -1, &out);
    other.Connect(osc, out, 0);
    other.RebuildOrder();
    other.SetVoiceCount(4, false);
    other.PressKey(60, 100);
    EXPECT_EQ(other.voiceNote[1], 60) << "the cursor is the whole process's: after voice 0 comes 1";
    engine.SetVoiceCount(3, false);
    VrokInstance::voiceCursor = 11;  // left by an engine with more voices
    Press({70});
    EXPECT_EQ(VoiceOf(70), 0) << "taken modulo the local count: (11 + 1) % 3";
}

}  // namespace
