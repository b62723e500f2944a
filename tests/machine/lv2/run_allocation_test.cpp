// The plug-ins' audio thread allocates nothing: notes, controllers, tempo, knob moves,
// patch messages and the hand-over of a restored patch, at several block sizes. Its own
// program, because it replaces the global operator new with a counter.
#include <gtest/gtest.h>
#include <lv2/state/state.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <new>
#include <thread>

#include "machine/lv2/lv2_test_host.h"
#include "support/allocation_counter.h"


extern "C" const LV2_Descriptor* lv2_descriptor(uint32_t index);

namespace {

using allocation_counter::allocations;
using allocation_counter::armed;

const bool privateEnvironment = lv2test::UsePrivateEnvironment();

using lv2test::Event;
using lv2test::Midi;
using lv2test::NoteOff;
using lv2test::NoteOn;

bool inRun = false;
void ArmDuringRun(bool starting) {
    inRun = starting;
    armed.store(starting, std::memory_order_relaxed);
}
// The host's own callbacks allocate on its side of the line.
void PauseInHostCalls(bool entering) { armed.store(inRun && !entering, std::memory_order_relaxed); }

TEST(Lv2Run, AllocatesNothingOnTheAudioThread) {
    for (uint32_t index : {0u, 1u}) {
        // No worker: the patch message is refused with a warning, and what Run sets aside
        // stays until a call off the audio thread frees it.
        lv2test::TestFeatures features(44100.0f, false);
        lv2test::hostCallHook = PauseInHostCalls;
        const LV2_Descriptor* descriptor = lv2_descriptor(index);
        LV2_Handle handle = descriptor->instantiate(descriptor, 44100.0, "", features.List());
        lv2test::Driver driver(descriptor, handle, features, index == 1);
        descriptor->activate(handle);
        Event tempo, get, set;
        tempo.frame = 40;
        tempo.beatsPerMinute = 97.0;
        get.frame = 50;
        get.patchGet = true;
        set.frame = 60;
        set.patchFile = "/nonexistent.vrkx";
        const std::vector<Event> events = {NoteOn(0, 60),
                                           NoteOn(10, 64),
                                           Midi(20, {0xE0, 0, 0x60}),
                                           Midi(30, {0xB0, 1, 90}),
                                           Midi(31, {0xD0, 50}),
                                           tempo,
                                           get,
                                           set,
                                           Midi(70, {0xB0, 64, 127}),
                                           NoteOff(80, 60),
                                           Midi(90, {0xB0, 64, 0}),
                                           Midi(95, {0xB0, 123, 0})};
        driver.aroundRun = ArmDuringRun;
        allocations = 0;
        for (uint32_t blockSize : {1u, 100u, 256u, 4096u}) {
            driver.knobs[2] = float(blockSize % 129);
            driver.Render(5000, blockSize, events);
        }
        // A restored patch waiting for Run: taking it allocates nothing either.
        driver.aroundRun = nullptr;
        const auto saved = driver.SaveState();
        driver.RestoreState(saved);
        driver.aroundRun = ArmDuringRun;
        driver.Render(512, 256, events);
        driver.aroundRun = nullptr;
        lv2test::hostCallHook = nullptr;
        EXPECT_EQ(allocations.load(), 0) << descriptor->URI;
        descriptor->deactivate(handle);
        descriptor->cleanup(handle);
    }
}

// Restores from another thread while the audio thread plays: every block is whole, and
// the last restored patch is the one that plays.
TEST(Lv2Run, RestoresBesideRunningAudio) {
    lv2test::TestFeatures features;
    const LV2_Descriptor* descriptor = lv2_descriptor(0);
    LV2_Handle handle = descriptor->instantiate(descriptor, 44100.0, "", features.List());
    lv2test::Driver driver(descriptor, handle, features, false);
    descriptor->activate(handle);
    driver.LoadPatch(std::string(VROK_EXAMPLES_DIR) + "/sine_a4.vrkx");
    const auto saved = driver.SaveState();
    std::atomic<bool> done{false};
    std::thread restorer([&] {
        const auto* state =
            static_cast<const LV2_State_Interface*>(descriptor->extension_data(LV2_STATE__interface));
        for (int i = 0; i < 20; ++i) {
            lv2test::Driver::Stored copy = saved[0];
            std::vector<lv2test::Driver::Stored> values = {copy};
            state->restore(
                handle,
                [](LV2_State_Handle h, uint32_t, size_t* size, uint32_t* type,
                   uint32_t* flags) -> const void* {
                    auto& v = (*static_cast<std::vector<lv2test::Driver::Stored>*>(h))[0];
                    *size = v.value.size();
                    *type = v.type;
                    *flags = 0;
                    return v.value.data();
                },
                &values, 0, nullptr);
        }
        done = true;
    });
    while (!done) {
        const auto out = driver.Render(2048, 256, {NoteOn(0, 69)});
        for (float s : out.left) ASSERT_TRUE(std::isfinite(s));
    }
    restorer.join();
    const auto out = driver.Render(8192, 256, {NoteOn(0, 69)});
    EXPECT_NEAR(lv2test::MeasureHz(out.left, 1000, 8192, 44100.0), 440.0, 0.5);
    descriptor->deactivate(handle);
    descriptor->cleanup(handle);
}

}  // namespace
