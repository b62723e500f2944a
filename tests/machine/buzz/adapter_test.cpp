// The adapter from inside: what the built library hides. Wave tables wait for real use,
// and the host's knob bytes reach the patch through the shell's external knob path.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include "machine/buzz/vrok_machine.h"
#include "machine/machine_support.h"

namespace {

class Adapter : public ::testing::Test {
protected:
    void SetUp() override {
        // An empty patch folder: patch 0 keeps the patch each test builds.
        folder = std::filesystem::temp_directory_path() / ("vrok-adapter-" + std::to_string(getpid()));
        std::filesystem::create_directories(folder);
        setenv("XDG_DATA_HOME", folder.c_str(), 1);
        synth.pMasterInfo = &master;
        synth.Init(nullptr);
        synth.SetNumTracks(1);
    }
    void TearDown() override { std::filesystem::remove_all(folder); }

    float RenderPeak() {
        float out[512] = {};
        synth.WorkMonoToStereo(nullptr, out, 256, buzz::kWorkModeWrite);
        float peak = 0.0f;
        for (float x : out) peak = std::max(peak, std::fabs(x));
        return peak;
    }

    std::filesystem::path folder;
    buzz::CMasterInfo master{120, 4, 44100, 5512, 0, 8.0f};
    buzz::VrokMachine synth{buzz::Variant::Generator};
};

TEST_F(Adapter, WaveTablesWaitForTheFirstTick) {
    VrokInstance& engine = fake::Engine(synth.Shell());
    EXPECT_FALSE(engine.waveTablesReady);
    synth.Tick();
    EXPECT_TRUE(engine.waveTablesReady);
}

TEST_F(Adapter, KnobBytesDriveTheExternalKnobBlock) {
    VrokDoc& doc = *synth.Shell().document;
    fake::MakeSinePatch(doc);
    // No external knob block exists yet; the output block stands in as knob 1's target,
    // its "Volume" being the first parameter that the knob sets.
    VrokInstance& engine = fake::Engine(synth.Shell());
    int output = -1;
    for (int slot = 0; slot < kMaxBlocks; ++slot)
        if (engine.blocks[slot] && engine.blocks[slot]->type == fake::kOutputType) output = slot;
    ASSERT_GE(output, 0);
    engine.extKnobPresent[0] = 1;
    engine.extKnobSlot[0] = output;

    auto* knobs = static_cast<uint8_t*>(synth.GlobalVals);
    struct Row {
        uint8_t byte;
        float volume;  // the block's stored value afterwards
    };
    const Row rows[] = {{0x80, 1.0f}, {0x40, 0.5f}, {0xFF, 0.5f}, {0x00, 0.0f}, {0xC3, 1.0f}};
    for (const Row& row : rows) {
        knobs[0] = row.byte;
        synth.Tick();
        EXPECT_FLOAT_EQ(engine.blocks[output]->values[0], row.volume) << int(row.byte);
    }
    knobs[0] = 0x00;
    synth.Tick();
    EXPECT_EQ(RenderPeak(), 0.0f);
    knobs[0] = 0x80;
    synth.Tick();
    EXPECT_GT(RenderPeak(), 1000.0f);
}

}  // namespace
