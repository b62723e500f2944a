// The audio path: input split, rendering in pieces, interleaving, the energy answer, and a
// change of the host's rate.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <future>
#include <vector>

#include "machine/machine_support.h"

using namespace fake;

namespace {

class MachineWork : public ::testing::Test {
protected:
    void SetUp() override { machine.Init(nullptr); }
    // Interleaved stereo frames holding `value` in both channels from frame `from` on.
    static std::vector<float> Buffer(int frames, float value, int from = 0) {
        std::vector<float> samples(size_t(frames) * 2, 0.0f);
        std::fill(samples.begin() + 2 * from, samples.end(), value);
        return samples;
    }

    fake::Host host;
    mi machine{host};
};

TEST_F(MachineWork, SinePatchSoundsWithModeZeroReplacingTheInput) {
    MakeSinePatch(*machine.document);
    std::vector<float> samples = Buffer(128, 12345.0f);
    EXPECT_TRUE(machine.Work(samples.data(), 128, 0));
    EXPECT_GT(machine.energy, 0.0f);
    float peak = 0.0f;
    for (float x : samples) peak = std::max(peak, std::fabs(x));
    EXPECT_GT(peak, 100.0f);
    EXPECT_LT(peak, 12345.0f) << "the input was replaced, not mixed";
}

TEST_F(MachineWork, SilenceAndBadArgumentsAnswerFalse) {
    // The default patch filters the input; silence in is silence out, and no energy.
    std::vector<float> samples = Buffer(64, 0.0f);
    EXPECT_FALSE(machine.Work(samples.data(), 64, kWorkRead | kWorkWrite));
    for (float x : samples) ASSERT_EQ(x, 0.0f);
    EXPECT_FALSE(machine.Work(nullptr, 64, kWorkRead));
    EXPECT_FALSE(machine.Work(samples.data(), 0, kWorkRead));
    EXPECT_FALSE(machine.WorkMonoToStereo(nullptr, nullptr, 64, 0));
}

TEST_F(MachineWork, InputPatchPassesTheHostBufferInPiecesOnlyWithTheReadBit) {
    MakeInputPatch(*machine.document);
    std::vector<float> samples = Buffer(64, 1000.0f);
    EXPECT_FALSE(machine.Work(samples.data(), 64, kWorkWrite));
    EXPECT_EQ(samples[10], 0.0f);

    const int frames = 1000;
    samples.resize(size_t(frames) * 2);
    for (int i = 0; i < frames; ++i) samples[2 * i] = samples[2 * i + 1] = float(i + 1);
    EXPECT_TRUE(machine.Work(samples.data(), frames, kWorkRead));
    for (int i : {0, 255, 256, 511, 512, 999}) {
        EXPECT_NEAR(samples[2 * i], float(i + 1), 0.01f * float(i + 1)) << "frame " << i;
        EXPECT_EQ(samples[2 * i], samples[2 * i + 1]);
    }
}

TEST_F(MachineWork, EnergyCountsElementsNotFrames) {
    MakeInputPatch(*machine.document);
    // Sound only in the second half of the frames: the sum looks at the first half of the
    // interleaved elements, which are all silent, so the answer is "no sound".
    std::vector<float> samples = Buffer(128, 1000.0f, 64);
    EXPECT_FALSE(machine.Work(samples.data(), 128, kWorkRead));
    EXPECT_NE(samples[2 * 100], 0.0f);
    // From frame 32 on the first half of the elements holds frames 32..63, both channels.
    samples = Buffer(128, 1000.0f, 32);
    EXPECT_TRUE(machine.Work(samples.data(), 128, kWorkRead));
    float expected = 0.0f;
    for (int i = 0; i < 128; ++i) expected += samples[i] * samples[i];
    EXPECT_NEAR(machine.energy, expected, 1e-5f * expected);
}

TEST_F(MachineWork, MonoToStereoRendersWithoutInputs) {
    MakeSinePatch(*machine.document);
    std::vector<float> out(512, 0.0f);
    EXPECT_TRUE(machine.WorkMonoToStereo(nullptr, out.data(), 256, 0));
    float expected = 0.0f;
    for (float x : out) expected += x * x;
    EXPECT_FLOAT_EQ(machine.energy, expected) << "every frame, both channels";
    MakeInputPatch(*machine.document);
    std::vector<float> in(512, 1000.0f);
    EXPECT_FALSE(machine.WorkMonoToStereo(in.data(), out.data(), 256, kWorkRead));
}

TEST_F(MachineWork, RateChangeRebuildsAndReappliesGlobals) {
    MakeSinePatch(*machine.document);
    VrokInstance& engine = Engine(machine);
    machine.MidiNote(0, 60, 100);
    engine.numVoices = 3;  // out of step with the global setting, as a lost state would be
    std::vector<float> samples = Buffer(64, 0.0f);
    machine.Work(samples.data(), 64, 0);
    EXPECT_EQ(engine.numVoices, 3) << "no change of rate, nothing reapplied";
    EXPECT_TRUE(engine.noteHeld[61]);

    host.master.samplesPerSec = 48000;
    machine.Work(samples.data(), 64, 0);
    EXPECT_EQ(machine.hostSampleRate, 48000.0f);
    EXPECT_EQ(engine.numVoices, 8) << "the polyphony setting was sent again";
    EXPECT_FALSE(engine.noteHeld[61]) << "resetting the voice count releases all notes";
    for (const auto& patchBlock : machine.document->patchBlocks)
        EXPECT_EQ(patchBlock->block->sampleRate, 48000.0f);
    EXPECT_EQ(engine.sampleRate, 44100.0f) << "only Init sets the engine's own rate";
}

TEST_F(MachineWork, AudioTriggerPlaysFromTheInputAndKeepsTheLockOrder) {
    // The trigger takes the engine lock from inside Work, under the machine lock. Host
    // calls on other threads take the engine lock alone (MIDI) or the machine lock first
    // (Tick with a knob byte, which sets an external knob under the engine lock): with one
    // order for everybody, the audio thread always gets through.
    VrokDoc& doc = *machine.document;
    doc.ClearAll();
    doc.SetParameter(doc.AddBlock(52, -1, 10, 10), 0, 1.0f);  // prescale 1: full scale reads 1
    doc.AddBlock(13, -1, 60, 10);
    VrokInstance& engine = Engine(machine);
    std::vector<float> loud = Buffer(64, 16000.0f), quiet = Buffer(64, 0.0f);
    std::vector<float> samples;
    for (int b = 0; b < 100; ++b) machine.Work((samples = loud).data(), 64, kWorkRead);
    EXPECT_TRUE(engine.noteHeld[60]) << "the input's rise played note 60";
    for (int b = 0; b < 200; ++b) machine.Work((samples = quiet).data(), 64, kWorkRead);
    EXPECT_FALSE(engine.noteHeld[60]);

    std::atomic<bool> stop{false};
    auto audio = std::async(std::launch::async, [&] {
        std::vector<float> buffer;
        for (int b = 0; b < 3000; ++b) machine.Work((buffer = b % 60 < 30 ? loud : quiet).data(), 64, kWorkRead);
    });
    auto host = std::async(std::launch::async, [&] {
        for (int i = 0; !stop; ++i) {
            machine.MidiNote(0, 30 + i % 20, i % 2 ? 0 : 100);
            machine.globalValues[0] = uint8_t(i % 129);
            machine.Tick();
        }
    });
    const bool finished = audio.wait_for(std::chrono::seconds(60)) == std::future_status::ready;
    stop = true;
    ASSERT_TRUE(finished) << "the audio thread is stuck";
    host.wait();
}

}  // namespace
