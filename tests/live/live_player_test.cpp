// The live player in process, without a device: it must sound exactly as `vrok render`
// does for the same notes and input, whatever the device's buffer size and wherever MIDI
// falls in a buffer, and its callback must allocate nothing.
// Its own program, because it replaces the global operator new with a counter.
#include "app/live/live_player.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <new>
#include <thread>

#include "app/patch_load.h"
#include "app/render.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/machine.h"
#include "support/allocation_counter.h"

namespace {

using allocation_counter::allocations;
using allocation_counter::armed;

constexpr int kRate = 44100;

// Interleaved stereo of the whole run.
using Audio = std::vector<float>;

struct Note {
    long frame;
    int note, velocity;
};

Audio Render(const std::string& patch, const std::vector<Note>& notes, const Audio& input, long frames) {
    app::CommandLineHost host(kRate, 126.0, 4);
    mi machine(host);
    machine.Init(nullptr);
    app::LoadPatch(machine, patch);
    app::RenderPlan plan;
    plan.seconds = double(frames) / kRate;
    for (const Note& n : notes) plan.midiNotes.push_back({double(n.frame) / kRate, 0, n.note, n.velocity});
    plan.input = input;
    Audio out;
    app::RenderWithMachine(machine, host, plan, app::BuildSchedule(plan, kRate, host.samplesPerTickExact),
                           [&](const float* samples, int n) {
                               out.insert(out.end(), samples, samples + 2 * n);
                               return true;
                           });
    return out;
}

// Plays the same through a LivePlayer in device buffers of `bufferFrames`, each note as
// a MIDI message at its frame within the buffer it falls in.
Audio Live(const std::string& patch, const std::vector<Note>& notes, const Audio& input, long frames,
           int bufferFrames, long* allocationsInCallbacks = nullptr) {
    live::LiveHost host(kRate, 0);
    mi machine(host);
    machine.Init(nullptr);
    app::LoadPatch(machine, patch);
    live::LivePlayer player(machine, host);
    const size_t size = size_t(bufferFrames);
    std::vector<float> inLeft(size), inRight(size), outLeft(size), outRight(size);
    std::vector<live::MidiEvent> events(live::kMaxMidiEventsPerBuffer);
    Audio out;
    allocations = 0;
    for (long start = 0; start < frames; start += bufferFrames) {
        const int n = int(std::min<long>(bufferFrames, frames - start));
        int numEvents = 0;
        for (const Note& note : notes) {
            if (note.frame < start || note.frame >= start + n) continue;
            live::MidiEvent& event = events[size_t(numEvents++)];
            event.frame = int(note.frame - start);
            event.size = 3;
            event.bytes[0] = note.velocity > 0 ? 0x90 : 0x80;
            event.bytes[1] = uint8_t(note.note);
            event.bytes[2] = uint8_t(note.velocity);
        }
        for (int i = 0; i < n; ++i) {
            const size_t at = size_t(start + i) * 2;
            inLeft[size_t(i)] = at < input.size() ? input[at] : 0.0f;
            inRight[size_t(i)] = at < input.size() ? input[at + 1] : 0.0f;
        }
        armed = true;
        player.Process(inLeft.data(), inRight.data(), outLeft.data(), outRight.data(), n, events.data(),
                       numEvents);
        armed = false;
        for (int i = 0; i < n; ++i) out.insert(out.end(), {outLeft[size_t(i)], outRight[size_t(i)]});
    }
    if (allocationsInCallbacks) *allocationsInCallbacks = allocations;
    return out;
}

struct Case {
    const char* name;
    int bufferFrames;
};

class LivePlayerBuffers : public ::testing::TestWithParam<Case> {};

TEST_P(LivePlayerBuffers, NotesSoundAsInARender) {
    const std::string patch = VROK_EXAMPLES_DIR "/sine_a4.vrkx";
    // Notes off the buffer grid, two on one frame, and one in the last frame of a buffer.
    const std::vector<Note> notes = {
        {100, 69, 100}, {5000, 69, 0}, {5000, 76, 90}, {8191, 76, 0}, {8191, 60, 127}};
    const long frames = 12000;
    const Audio rendered = Render(patch, notes, {}, frames);
    long callbackAllocations = -1;
    const Audio live = Live(patch, notes, {}, frames, GetParam().bufferFrames, &callbackAllocations);
    ASSERT_EQ(live.size(), rendered.size());
    EXPECT_EQ(live, rendered);
    EXPECT_EQ(callbackAllocations, 0) << "the audio callback allocated";
}

TEST_P(LivePlayerBuffers, InputPassesAsInARender) {
    const std::string patch = VROK_EXAMPLES_DIR "/input_pass.vrkx";
    const long frames = 12000;
    Audio input;
    for (long i = 0; i < frames; ++i)
        input.insert(input.end(),
                     {0.5f * float(std::sin(0.1 * double(i))), -0.3f * float(std::cos(0.013 * double(i)))});
    const Audio rendered = Render(patch, {}, input, frames);
    const Audio live = Live(patch, {}, input, frames, GetParam().bufferFrames);
    ASSERT_EQ(live.size(), rendered.size());
    float worst = 0.0f;
    for (size_t i = 0; i < live.size(); ++i) worst = std::max(worst, std::fabs(live[i] - rendered[i]));
    EXPECT_EQ(worst, 0.0f);
}

// Every kind of message the player understands, twice over in one buffer, with notes
// sounding: none of it may allocate.
TEST(LivePlayer, EveryMessageKindAllocatesNothing) {
    live::LiveHost host(kRate, 0);
    mi machine(host);
    machine.Init(nullptr);
    app::LoadPatch(machine, VROK_EXAMPLES_DIR "/sine_a4.vrkx");
    live::LivePlayer player(machine, host);
    const std::vector<std::vector<uint8_t>> messages = {
        {0x90, 60, 100}, {0x91, 64, 90}, {0xE0, 0x7F, 0x7F}, {0xB0, 1, 100}, {0xD0, 80},
        {0xB0, 64, 127}, {0x80, 60, 0},  {0x90, 64, 0},      {0xB0, 64, 0},  {0xB0, 123, 0},
        {0xB0, 120, 0},  {0xA0, 60, 10}, {0xC0, 5},          {0xF8},         {0xE0, 0, 0x40}};
    std::vector<live::MidiEvent> events;
    for (int round = 0; round < 2; ++round)
        for (size_t i = 0; i < messages.size(); ++i) {
            live::MidiEvent event;
            event.frame = int(round * 500 + i * 30);
            event.size = int(messages[i].size());
            std::copy(messages[i].begin(), messages[i].end(), event.bytes);
            events.push_back(event);
        }
    std::vector<float> in(1024, 0.25f), left(1024), right(1024);
    allocations = 0;
    armed = true;
    for (int buffer = 0; buffer < 4; ++buffer)
        player.Process(in.data(), in.data(), left.data(), right.data(), 1024, events.data(),
                       int(events.size()));
    armed = false;
    EXPECT_EQ(allocations, 0);
    EXPECT_GT(player.meter.longestCallbackNs.load(), 0) << "the callback's time is measured";
}

// Each callback is counted, and a light patch in 256-frame buffers costs the audio thread
// far less processor time than the 5.8 ms a buffer lasts, sanitizers or not: none is
// overworked, and the longest is measured.
TEST(LivePlayer, CallbacksAreCountedAndALightPatchNeverOverworks) {
    live::LiveHost host(kRate, 0);
    mi machine(host);
    machine.Init(nullptr);
    app::LoadPatch(machine, VROK_EXAMPLES_DIR "/sine_a4.vrkx");
    live::LivePlayer player(machine, host);
    live::MidiEvent note;
    note.size = 3;
    note.bytes[0] = 0x90;
    note.bytes[1] = 69;
    note.bytes[2] = 100;
    std::vector<float> left(256), right(256);
    for (int buffer = 0; buffer < 50; ++buffer)
        player.Process(nullptr, nullptr, left.data(), right.data(), 256, &note, buffer == 0 ? 1 : 0);
    EXPECT_EQ(player.meter.callbacks.load(), 50);
    EXPECT_EQ(player.meter.overworkedCallbacks.load(), 0);
    EXPECT_GT(player.meter.longestCallbackCpuNs.load(), 0);
    EXPECT_LE(player.meter.longestCallbackCpuNs.load(), player.meter.longestCallbackNs.load() + 1'000'000)
        << "processor time runs no faster than the clock";
}

// An edit that holds the engine for long (here half a second) must not hold up the
// callback: the buffer stays silent, and the note sent with it sounds at the start of the
// next buffer instead of being lost.
TEST(LivePlayer, LongEditSkipsTheBufferAndKeepsItsNotes) {
    live::LiveHost host(kRate, 0);
    mi machine(host);
    machine.Init(nullptr);
    app::LoadPatch(machine, VROK_EXAMPLES_DIR "/click.vrkx");
    live::LivePlayer player(machine, host);
    live::MidiEvent note;
    note.frame = 100;
    note.size = 3;
    note.bytes[0] = 0x90;
    note.bytes[1] = 60;
    note.bytes[2] = 100;
    std::vector<float> left(256), right(256);

    std::atomic<bool> holding{false};
    std::thread edit([&] {
        std::lock_guard guard(machine.document->engine->lock);
        holding = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
    });
    while (!holding) std::this_thread::yield();
    const auto started = std::chrono::steady_clock::now();
    player.Process(nullptr, nullptr, left.data(), right.data(), 256, &note, 1);
    const auto waited = std::chrono::steady_clock::now() - started;
    edit.join();
    EXPECT_LT(waited, std::chrono::milliseconds(250)) << "the callback waited for the edit";
    EXPECT_EQ(player.meter.skippedBuffers.load(), 1);
    // It waited its quarter of the 5.8 ms buffer before giving up, and the meter says so.
    EXPECT_GE(player.meter.longestWaitNs.load(), 1'400'000);
    EXPECT_TRUE(std::all_of(left.begin(), left.end(), [](float x) { return x == 0.0f; }));

    player.Process(nullptr, nullptr, left.data(), right.data(), 256, nullptr, 0);
    EXPECT_NE(left[0], 0.0f) << "the held-over note clicks at the next buffer's first frame";
    EXPECT_TRUE(std::all_of(left.begin() + 1, left.end(), [](float x) { return x == 0.0f; }));
}

INSTANTIATE_TEST_SUITE_P(Sizes, LivePlayerBuffers,
                         ::testing::Values(Case{"tiny", 16}, Case{"odd", 100}, Case{"usual", 256},
                                           Case{"split", 1024}, Case{"large", 4096}),
                         [](const auto& info) { return std::string(info.param.name); });

}  // namespace
