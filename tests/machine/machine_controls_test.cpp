// What a live keyboard sends beside notes: the pitch wheel through the bend range, the mod
// wheel and aftertouch for the blocks that read them, the sustain pedal, the two "off"
// controllers, all under the machine's channel rule.
#include <gtest/gtest.h>

#include <algorithm>

#include "machine/machine_support.h"

using namespace fake;

namespace {

class MachineControls : public ::testing::Test {
protected:
    void SetUp() override { machine.Init(nullptr); }
    // Keys down as the engine counts them, whether or not a voice was free for them.
    bool Held(int midiNote) {
        const auto& held = Engine(machine).heldNotes;
        return std::find(held.begin(), held.end(), midiNote + 1) != held.end();
    }

    fake::Host host;
    mi machine{host};
};

TEST_F(MachineControls, PitchWheelBendsInUnitsOfTheBendRange) {
    struct Row {
        int wheel;
        float bend;
    };
    for (const Row row : {Row{8192, 0.0f}, Row{16383, 8191.0f / 8192.0f}, Row{0, -1.0f}, Row{12288, 0.5f},
                          Row{-5, -1.0f}, Row{99999, 8191.0f / 8192.0f}}) {
        machine.MidiPitchBend(0, row.wheel);
        EXPECT_FLOAT_EQ(Engine(machine).bend, row.bend) << "wheel " << row.wheel;
    }
}

TEST_F(MachineControls, ModWheelAndAftertouchReachTheEngineScaledToOne) {
    machine.MidiControlChange(0, 1, 127);
    machine.MidiChannelPressure(0, 64);
    EXPECT_FLOAT_EQ(Engine(machine).modWheel, 1.0f);
    EXPECT_FLOAT_EQ(Engine(machine).aftertouch, 64.0f / 127.0f);
    machine.MidiControlChange(0, 1, 300);  // clamped, not wrapped
    machine.MidiChannelPressure(0, -3);
    EXPECT_FLOAT_EQ(Engine(machine).modWheel, 1.0f);
    EXPECT_FLOAT_EQ(Engine(machine).aftertouch, 0.0f);
}

TEST_F(MachineControls, SustainPedalHoldsReleasesUntilItComesUp) {
    machine.MidiNote(0, 60, 100);
    machine.MidiControlChange(0, 64, 127);
    machine.MidiNote(0, 60, 0);
    machine.MidiNote(0, 64, 90);
    machine.MidiNote(0, 64, 0);
    machine.MidiNote(0, 67, 90);  // still down when the pedal comes up
    EXPECT_TRUE(Held(60) && Held(64) && Held(67)) << "releases wait while the pedal is down";
    machine.MidiControlChange(0, 64, 100);  // still down: nothing changes
    EXPECT_TRUE(Held(60));
    machine.MidiControlChange(0, 64, 63);
    EXPECT_FALSE(Held(60));
    EXPECT_FALSE(Held(64));
    EXPECT_TRUE(Held(67)) << "a key still down stays";
    machine.MidiNote(0, 67, 0);
    EXPECT_FALSE(Held(67)) << "with the pedal up a release acts at once";
}

TEST_F(MachineControls, NoteStruckAgainUnderThePedalIsNotReleasedTwice) {
    machine.MidiControlChange(0, 64, 127);
    machine.MidiNote(0, 60, 100);
    machine.MidiNote(0, 60, 0);
    machine.MidiNote(0, 60, 100);  // struck again and held
    machine.MidiControlChange(0, 64, 0);
    EXPECT_TRUE(Held(60)) << "the key is down again, so the pedal does not release it";
}

TEST_F(MachineControls, AllNotesOffAndAllSoundOffReleaseHeldAndSustainedNotes) {
    for (int controller : {123, 120}) {
        machine.MidiNote(0, 60, 100);
        machine.MidiNote(0, 127, 100);
        machine.MidiControlChange(0, 64, 127);
        machine.MidiNote(0, 72, 100);
        machine.MidiNote(0, 72, 0);
        machine.MidiControlChange(0, controller, 0);
        EXPECT_TRUE(Engine(machine).heldNotes.empty()) << "controller " << controller;
        machine.MidiControlChange(0, 64, 0);
        EXPECT_TRUE(Engine(machine).heldNotes.empty()) << "nothing left for the pedal to release";
    }
}

TEST_F(MachineControls, ControlsFollowTheChannelRule) {
    host.acceptsEveryChannel = false;
    machine.midiChannel = 3;  // channel index 2 only
    machine.MidiPitchBend(5, 0);
    machine.MidiControlChange(5, 1, 127);
    machine.MidiChannelPressure(5, 127);
    machine.MidiControlChange(5, 64, 127);
    EXPECT_EQ(Engine(machine).bend, 0.0f);
    EXPECT_EQ(Engine(machine).modWheel, 0.0f);
    EXPECT_EQ(Engine(machine).aftertouch, 0.0f);
    EXPECT_FALSE(machine.sustainDown);
    machine.MidiPitchBend(2, 0);
    machine.MidiControlChange(2, 64, 127);
    EXPECT_EQ(Engine(machine).bend, -1.0f);
    EXPECT_TRUE(machine.sustainDown);
}

}  // namespace
