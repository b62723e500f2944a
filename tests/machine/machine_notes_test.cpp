// Pattern rows and MIDI becoming key presses: the note byte conversion, velocity doubling,
// the release rules of tracks, the MIDI channel rule, and external knobs.
#include <gtest/gtest.h>

#include "machine/machine_support.h"

using namespace fake;

namespace {

class MachineNotes : public ::testing::Test {
protected:
    void SetUp() override {
        machine.Init(nullptr);
        machine.SetNumTracks(4);
    }
    bool Held(int note) { return Engine(machine).noteHeld[note] != 0; }
    int Velocity(int note) { return Engine(machine).noteVelocity[note]; }
    void TickRow() {
        machine.Tick();
        ClearRow(machine);
    }

    fake::Host host;
    mi machine{host};
};

TEST(MachineNoteByte, ConvertsOctaveAndSemitone) {
    EXPECT_EQ(ConvertNoteByte(0x41), 54);
    EXPECT_EQ(ConvertNoteByte(0x9C), 125);
    EXPECT_EQ(ConvertNoteByte(0x01), 6);
}

TEST_F(MachineNotes, PatternNoteIsConvertedAndVelocityDoubled) {
    SetTrack(machine, 0, 0x41, 0x40);
    TickRow();
    EXPECT_TRUE(Held(54));
    EXPECT_EQ(Velocity(54), 0x80);
}

TEST_F(MachineNotes, EmptyVelocityPlaysAt254AndZeroAtZero) {
    SetTrack(machine, 0, 0x41);
    SetTrack(machine, 1, 0x9C, 0);
    TickRow();
    EXPECT_EQ(Velocity(54), 254);
    EXPECT_TRUE(Held(125)) << "velocity 0 is a note on, not a release";
    EXPECT_EQ(Velocity(125), 0);
}

TEST_F(MachineNotes, NoteOffByteReleasesTheTracksNote) {
    SetTrack(machine, 2, 0x41);
    TickRow();
    TickRow();  // an empty row changes nothing
    EXPECT_TRUE(Held(54));
    SetTrack(machine, 2, machine::kNoteOff);
    TickRow();
    EXPECT_FALSE(Held(54));
    EXPECT_EQ(machine.trackPlaying[2], 0);
}

TEST_F(MachineNotes, NewNoteOnATrackReleasesTheOldOneButARepeatDoesNot) {
    SetTrack(machine, 0, 0x41);
    TickRow();
    SetTrack(machine, 0, 0x41);
    TickRow();
    EXPECT_TRUE(Held(54));
    EXPECT_EQ(Engine(machine).heldNotes.size(), 2u) << "a repeat sends no release";
    SetTrack(machine, 0, 0x45);
    TickRow();
    EXPECT_FALSE(Held(54));
    EXPECT_TRUE(Held(58));
}

TEST_F(MachineNotes, TracksPastNumTracksAreIgnored) {
    SetTrack(machine, 4, 0x41);
    TickRow();
    EXPECT_FALSE(Held(54));
}

TEST_F(MachineNotes, StopReleasesPatternNotesAndLeavesMidiNotes) {
    SetTrack(machine, 0, 0x41);
    TickRow();
    machine.MidiNote(0, 60, 100);
    machine.Stop();
    EXPECT_FALSE(Held(54));
    EXPECT_TRUE(Held(61));
}

TEST_F(MachineNotes, MidiNoteArrivesOneUpAndVelocityZeroReleases) {
    machine.MidiNote(0, 60, 100);
    EXPECT_TRUE(Held(61));
    EXPECT_EQ(Velocity(61), 100) << "MIDI velocity is not doubled";
    machine.MidiNote(0, 60, 0);
    EXPECT_FALSE(Held(61));
}

TEST_F(MachineNotes, MidiOutOfRangeIsIgnored) {
    machine.MidiNote(0, 200, 100);
    machine.MidiNote(0, -1, 100);
    EXPECT_TRUE(Engine(machine).heldNotes.empty());
}

TEST_F(MachineNotes, NoChannelAndNoHostFilteringIgnoresAllMidi) {
    host.acceptsEveryChannel = false;
    machine.midiChannel = 0;
    for (int channel = 0; channel < 16; ++channel) machine.MidiNote(channel, 60, 100);
    EXPECT_FALSE(Held(61));
}

TEST_F(MachineNotes, SelectedChannelPassesWithoutHostFiltering) {
    host.acceptsEveryChannel = false;
    machine.midiChannel = 3;
    machine.MidiNote(1, 60, 100);
    machine.MidiNote(3, 62, 100);
    EXPECT_FALSE(Held(61));
    EXPECT_FALSE(Held(63));
    machine.MidiNote(2, 64, 100);
    EXPECT_TRUE(Held(65));
}

TEST_F(MachineNotes, HostFilteringAcceptsEveryChannel) {
    host.acceptsEveryChannel = true;
    machine.midiChannel = 3;
    machine.MidiNote(9, 60, 100);
    EXPECT_TRUE(Held(61));
}

// No external knob block exists yet, so the knob is pointed at the output block's first
// parameter, which is what SetExternalKnob drives.
class MachineKnobs : public MachineNotes {
protected:
    void SetUp() override {
        MachineNotes::SetUp();
        MakeSinePatch(*machine.document);
        VrokInstance& engine = Engine(machine);
        outputSlot = machine.document->patchBlocks[1]->block->index;
        engine.extKnobPresent[2] = 1;
        engine.extKnobSlot[2] = outputSlot;
    }
    float Value() { return Engine(machine).blocks[outputSlot]->values[0]; }
    int outputSlot = -1;
};

TEST_F(MachineKnobs, KnobByteScalesOntoZeroToOne) {
    machine.globalValues[2] = 0x80;
    TickRow();
    EXPECT_FLOAT_EQ(Value(), 1.0f);
    machine.globalValues[2] = 0x40;
    TickRow();
    EXPECT_FLOAT_EQ(Value(), 0.5f);
    machine.globalValues[2] = 0;
    TickRow();
    EXPECT_FLOAT_EQ(Value(), 0.0f);
}

TEST_F(MachineKnobs, NoValueByteChangesNothing) {
    machine.globalValues[2] = 0x40;
    TickRow();
    machine.globalValues[2] = machine::kNoValueByte;
    TickRow();
    EXPECT_FLOAT_EQ(Value(), 0.5f);
}

TEST_F(MachineKnobs, KnobWithoutItsBlockIsLost) {
    const float before = Value();
    machine.globalValues[5] = 0x80;
    TickRow();
    EXPECT_FLOAT_EQ(Value(), before);
}

TEST_F(MachineKnobs, EditorKnobMovesTheHostParameter) {
    machine.listener->ValueChanged(nullptr, 2, 0.5f);
    machine.listener->ValueChanged(nullptr, 7, 0.999f);
    ASSERT_EQ(host.changes.size(), 2u);
    EXPECT_EQ(host.changes[0].group, machine::kGroupGlobal);
    EXPECT_EQ(host.changes[0].track, 0);
    EXPECT_EQ(host.changes[0].parameter, 2);
    EXPECT_EQ(host.changes[0].value, 64);
    EXPECT_EQ(host.changes[1].value, 127) << "truncated, not rounded";
    EXPECT_EQ(machine.listener->DescribeValue(0, 0.5f), "50");
    EXPECT_EQ(machine.listener->DescribeValue(0, 0.12345f), "12.3");
}

}  // namespace
