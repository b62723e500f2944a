// Pattern rows and MIDI becoming key presses: the note byte conversion, velocity doubling,
// the release rules of tracks, the MIDI channel rule, and external knobs.
#include <gtest/gtest.h>

#include <tuple>

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
    void SetTrack(int t, int note, int velocity = machine::kNoValueByte) {
        machine.trackValues[t].note = uint8_t(note);
        machine.trackValues[t].velocity = uint8_t(velocity);
    }
    void TickRow() {  // then clear every value column, as a host does between rows
        machine.Tick();
        for (auto& track : machine.trackValues) track = {};
        for (auto& knob : machine.globalValues) knob = machine::kNoValueByte;
    }

    fake::Host host;
    mi machine{host};
};

TEST_F(MachineNotes, PatternNotesAreConvertedAndVelocityDoubled) {
    EXPECT_EQ(ConvertNoteByte(0x01), 6);
    SetTrack(0, 0x41, 0x40);
    SetTrack(1, 0x9C, 0);
    SetTrack(2, 0x45);  // no velocity
    SetTrack(4, 0x31);  // past NumTracks: ignored
    TickRow();
    EXPECT_TRUE(Held(54));
    EXPECT_EQ(Velocity(54), 0x80);
    EXPECT_TRUE(Held(125)) << "velocity 0 is a note on, not a release";
    EXPECT_EQ(Velocity(125), 0);
    EXPECT_EQ(Velocity(58), 254);
    EXPECT_FALSE(Held(ConvertNoteByte(0x31)));
}

TEST_F(MachineNotes, TrackReleaseRules) {
    SetTrack(0, 0x41);
    SetTrack(2, 0x51);
    TickRow();
    TickRow();  // an empty row changes nothing
    SetTrack(0, 0x41);
    TickRow();
    EXPECT_TRUE(Held(54));
    EXPECT_EQ(Engine(machine).heldNotes.size(), 3u) << "a repeat sends no release";
    SetTrack(0, 0x45);
    SetTrack(2, machine::kNoteOff);
    TickRow();
    EXPECT_FALSE(Held(54)) << "a new note on a track releases the old one";
    EXPECT_TRUE(Held(58));
    EXPECT_FALSE(Held(ConvertNoteByte(0x51)));
    EXPECT_EQ(machine.trackPlaying[2], 0);

    machine.MidiNote(0, 60, 100);
    machine.Stop();
    EXPECT_FALSE(Held(58)) << "Stop releases pattern notes";
    EXPECT_TRUE(Held(61)) << "and leaves MIDI notes";
}

TEST_F(MachineNotes, MidiNoteArrivesOneUpUndoubledAndVelocityZeroReleases) {
    machine.MidiNote(0, 60, 100);
    EXPECT_TRUE(Held(61));
    EXPECT_EQ(Velocity(61), 100);
    machine.MidiNote(0, 60, 0);
    EXPECT_FALSE(Held(61));
    machine.MidiNote(0, 200, 100);
    machine.MidiNote(0, -1, 100);
    EXPECT_TRUE(Engine(machine).heldNotes.empty());
}

TEST_F(MachineNotes, MidiChannelRule) {
    struct Row {
        bool hostFiltering;
        int midiChannel, channel;
        bool passes;
    };
    std::vector<Row> rows = {{false, 3, 1, false}, {false, 3, 3, false}, {false, 3, 2, true}, {true, 3, 9, true}};
    for (int channel = 0; channel < 16; ++channel) rows.push_back({false, 0, channel, false});
    for (size_t i = 0; i < rows.size(); ++i) {
        host.acceptsEveryChannel = rows[i].hostFiltering;
        machine.midiChannel = rows[i].midiChannel;
        machine.MidiNote(rows[i].channel, int(i), 100);
        EXPECT_EQ(Held(int(i) + 1), rows[i].passes) << "filtering " << rows[i].hostFiltering << ", setting "
                                                    << rows[i].midiChannel << ", channel " << rows[i].channel;
    }
}

// No external knob block exists yet, so the knob is pointed at the output block's first
// parameter, which is what SetExternalKnob drives.
TEST_F(MachineNotes, KnobBytesScaleOntoTheKnobsBlock) {
    MakeSinePatch(*machine.document);
    VrokInstance& engine = Engine(machine);
    const int slot = machine.document->patchBlocks[1]->block->index;
    engine.extKnobPresent[2] = 1;
    engine.extKnobSlot[2] = slot;
    engine.blocks[slot]->values[0] = 0.5f;
    const struct {
        int column, byte;
        float expected;
        const char* what;
    } rows[] = {{5, 0x80, 0.5f, "a knob without its block is lost"},
                {2, 0x80, 1.0f, "0x80 is the top"},
                {2, 0x40, 0.5f, "0x40 is the middle"},
                {2, machine::kNoValueByte, 0.5f, "no value changes nothing"},
                {2, 0, 0.0f, "0 is the bottom"}};
    for (const auto& row : rows) {
        machine.globalValues[row.column] = uint8_t(row.byte);
        TickRow();
        EXPECT_FLOAT_EQ(engine.blocks[slot]->values[0], row.expected) << row.what;
    }
}

TEST_F(MachineNotes, EditorKnobMovesTheHostParameterTruncated) {
    // External knob panels reach the machine through the document.
    G::FloatParamListener* panelListener = machine.document->listener;
    ASSERT_EQ(panelListener, machine.listener.get());
    panelListener->ValueChanged(nullptr, 2, 0.5f);
    panelListener->ValueChanged(nullptr, 7, 0.999f);
    ASSERT_EQ(host.changes.size(), 2u);
    const auto& [group, track, parameter, value] = host.changes[0];
    EXPECT_EQ(std::tuple(group, track, parameter, value), std::tuple(machine::kGroupGlobal, 0, 2, 64));
    EXPECT_EQ(host.changes[1].value, 127);
    EXPECT_EQ(machine.listener->DescribeValue(0, 0.12345f), L"12.3");
}

}  // namespace
