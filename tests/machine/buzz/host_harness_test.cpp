// The built machine libraries, opened and driven by our own host: descriptions, the scan,
// notes and pitch in any chunking, the three buffer shapes, saved state, commands, MIDI,
// and host data no host should send.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>

#include "machine/buzz/harness_host.h"

namespace {

using namespace harness;
namespace fs = std::filesystem;

constexpr double kA4Pitch = 293.66;  // a-4 is engine note 63
constexpr double kE5Pitch = 440.0;   // e-5 is engine note 70
constexpr int kSinePatch = 3;
constexpr int kPatchAttribute = 1;

// A patch folder for the whole program: a stereo pass as patch 0, a sine as patch 3.
class PatchFolder : public ::testing::Environment {
public:
    void SetUp() override {
        root = fs::temp_directory_path() / ("vrok-harness-" + std::to_string(getpid()));
        const fs::path patches = root / "vrok" / "patches";
        fs::create_directories(patches);
        fs::copy_file(fs::path(VROK_TEST_DIR) / "stereo_pass.vrkx", patches / "0 pass.vrkx");
        fs::copy_file(fs::path(VROK_EXAMPLES_DIR) / "sine_a4.vrkx", patches / "003-sine.vrkx");
        setenv("XDG_DATA_HOME", root.c_str(), 1);
        setenv("VROK_CACHE_DIR", (root / "cache").c_str(), 1);
    }
    void TearDown() override { fs::remove_all(root); }
    fs::path root;
};
const auto* const patchFolder = ::testing::AddGlobalTestEnvironment(new PatchFolder);

Library& Effect() {
    static Library library(VROK_FX_LIBRARY);
    return library;
}
Library& Synth() {
    static Library library(VROK_SYNTH_LIBRARY);
    return library;
}

int ThreadCount() {
    int count = 0;
    for ([[maybe_unused]] const auto& entry : fs::directory_iterator("/proc/self/task")) ++count;
    return count;
}

// A sine generator with the sine patch, tracks set for two voices.
std::unique_ptr<Hosted> SineSynth(Callbacks& callbacks, CMachineDataInput* state = nullptr) {
    auto synth = std::make_unique<Hosted>(Synth(), callbacks, state);
    synth->machine->SetNumTracks(2);
    if (!state) synth->Attribute(kPatchAttribute) = kSinePatch;
    return synth;
}

std::vector<float> Sine(int frames, double hz, float amplitude, int channels = 1) {
    std::vector<float> out(size_t(frames * channels));
    for (int i = 0; i < frames; ++i)
        out[size_t(i * channels)] = amplitude * float(std::sin(2.0 * M_PI * hz * i / 44100.0));
    return out;
}

TEST(Description, BothLibrariesDescribeTheMachineTheHostLists) {
    struct Row {
        Library& library;
        int type, flags, attributes;
        const char *name, *shortName;
    };
    const Row rows[] = {
        {Effect(), 2, 0x1A000, 1, "Qorvat Vrok Modular FX (2013.0.1)", "[VROK] fx"},
        {Synth(), 1, 0x1A001, 2, "Qorvat Vrok Modular Synth (2013.0.1)", "[VROK] synth"},
    };
    for (const Row& row : rows) {
        const CMachineInfo& info = *row.library.getInfo();
        SCOPED_TRACE(row.shortName);
        EXPECT_EQ(info.type, row.type);
        EXPECT_EQ(info.version, 65);
        EXPECT_EQ(info.flags, row.flags);
        EXPECT_EQ(info.minTracks, 1);
        EXPECT_EQ(info.maxTracks, 16);
        ASSERT_EQ(info.numGlobalParameters, 8);
        ASSERT_EQ(info.numTrackParameters, 2);
        EXPECT_STREQ(info.name, row.name);
        EXPECT_STREQ(info.shortName, row.shortName);
        EXPECT_STREQ(info.commands, "Open Gui\nLoad Vrokfile");
        for (int k = 0; k < 8; ++k) {
            const CMachineParameter& p = *info.parameters[k];
            EXPECT_EQ(std::string(p.name), "Knob " + std::to_string(k + 1));
            EXPECT_EQ(p.type, kParamByte);
            EXPECT_EQ(p.maxValue, 0x80);
            EXPECT_EQ(p.noValue, 0xFF);
            EXPECT_EQ(p.flags, kParamFlagState);
            EXPECT_EQ(p.defValue, 0x40);
        }
        const CMachineParameter& note = *info.parameters[8];
        const CMachineParameter& velocity = *info.parameters[9];
        EXPECT_STREQ(note.name, "Note");
        EXPECT_EQ(note.type, kParamNote);
        EXPECT_EQ(note.maxValue, 0x9C);
        EXPECT_STREQ(velocity.name, "Velocity");
        EXPECT_EQ(velocity.defValue, 0x80);
        ASSERT_EQ(info.numAttributes, row.attributes);
        EXPECT_STREQ(info.attributes[0]->name, "Midi Channel");
        EXPECT_EQ(info.attributes[0]->maxValue, 16);
        if (row.attributes == 2) {
            EXPECT_STREQ(info.attributes[1]->name, "Patch");
        }
    }
}

TEST(Scan, ListingMachinesStartsNoThreadAndWritesNoFile) {
    const fs::path cacheDir = std::getenv("VROK_CACHE_DIR");
    fs::remove_all(cacheDir);
    const int threads = ThreadCount();
    for (Library* library : {&Effect(), &Synth()}) {
        Callbacks callbacks;
        callbacks.withHelper = true;
        Hosted listed(*library, callbacks);
        // Instance objects keep the value blocks where the host expects them.
        const auto* base = reinterpret_cast<const char*>(listed.machine);
        EXPECT_EQ(reinterpret_cast<const char*>(&listed.machine->GlobalVals) - base, 8);
        EXPECT_EQ(reinterpret_cast<const char*>(&listed.machine->pCB) - base, 40);
        for (int k = 0; k < 8; ++k)
            for (int v = 0; v <= 0x80; ++v) listed.machine->DescribeValue(k, v);
        EXPECT_EQ(ThreadCount(), threads);
    }
    EXPECT_FALSE(fs::exists(cacheDir)) << "the scan touched the wave table cache";
}

TEST(Scan, AHostThatHandsOverNothingStillGetsAWorkingMachine) {
    for (Library* library : {&Effect(), &Synth()}) {
        CMachineInterface* bare = library->createMachine();
        bare->Init(nullptr);
        bare->SetNumTracks(1);
        bare->Tick();
        float samples[512] = {};
        bare->Work(samples, 256, kWorkModeRead | kWorkModeWrite);
        bare->WorkMonoToStereo(nullptr, samples, 256, kWorkModeWrite);
        bare->Command(0);
        bare->Stop();
        delete bare;
    }
}

TEST(Generator, PatternNotesSoundAtTheMappedPitchInAnyChunking) {
    Callbacks callbacks;
    auto synth = SineSynth(callbacks);
    synth->Note(0, 0x4A);  // a-4
    for (int first : {1, 100, 256}) {
        const auto stereo = synth->RenderStereo(8192, first);
        EXPECT_NEAR(Pitch(Channel(stereo, 0)), kA4Pitch, 0.3) << "first chunk " << first;
        EXPECT_EQ(Channel(stereo, 0), Channel(stereo, 1));
    }
    synth->Note(0, 0x55, 0x40);  // e-5 on the same track releases a-4 first
    EXPECT_NEAR(Pitch(Channel(synth->RenderStereo(8192), 0)), kE5Pitch, 0.3);

    // The mono shape mixes both channels down and stays inside the host's buffer.
    std::vector<float> mono(4096 + 8, 777.0f);
    for (int done = 0, n = 1; done < 4096; done += n, n = n % 256 + 1) {
        n = std::min(n, 4096 - done);
        EXPECT_TRUE(synth->machine->Work(mono.data() + done, n, kWorkModeWrite));
    }
    EXPECT_EQ(mono[4096], 777.0f);
    EXPECT_NEAR(Pitch(std::vector<float>(mono.begin(), mono.begin() + 4096)), kE5Pitch, 0.5);

    synth->machine->Stop();
    synth->Note(0, 0x4A);
    EXPECT_NEAR(Pitch(Channel(synth->RenderStereo(8192), 0)), kA4Pitch, 0.3);
}

TEST(Effect, MonoWorkPassesTheInputWithinItsBuffer) {
    Callbacks callbacks;
    Hosted effect(Effect(), callbacks);
    effect.Tick();  // patch 0: the input pass
    const std::vector<float> input = Sine(6000, 1000.0, 6553.6f);
    std::vector<float> samples = input;
    samples.resize(input.size() + 4, -1.0f);
    for (int done = 0, n = 1; done < 6000; done += n, n = (n * 7 + 13) % 256 + 1) {
        n = std::min(n, 6000 - done);
        effect.machine->Work(samples.data() + done, n, kWorkModeRead | kWorkModeWrite);
    }
    EXPECT_EQ(samples[6000], -1.0f) << "Work wrote past the mono buffer";
    for (size_t i = 0; i < input.size(); ++i) ASSERT_NEAR(samples[i], input[i], 0.01f) << i;
}

TEST(Effect, HelperRouteGivesTrueStereoInPlace) {
    Callbacks callbacks;
    callbacks.withHelper = true;
    Hosted effect(Effect(), callbacks);
    EXPECT_EQ(callbacks.helper.channels, 2);
    EXPECT_NE(callbacks.extension, nullptr);
    effect.Tick();
    // 1 kHz left, 500 Hz right: each comes out on its own side.
    std::vector<float> samples = Sine(4096, 1000.0, 3000.0f, 2);
    const std::vector<float> right = Sine(4096, 500.0, 1000.0f);
    for (size_t i = 0; i < right.size(); ++i) samples[2 * i + 1] = right[i];
    for (int done = 0; done < 4096; done += 256)
        effect.machine->WorkMonoToStereo(samples.data() + 2 * done, samples.data() + 2 * done, 256, 3);
    EXPECT_NEAR(Pitch(Channel(samples, 0)), 1000.0, 0.5);
    EXPECT_NEAR(Pitch(Channel(samples, 1)), 500.0, 0.5);
    EXPECT_NEAR(Peak(Channel(samples, 1)), 1000.0f, 10.0f) << "the channels mixed";

    // Mono in, stereo out: both channels carry the input.
    const std::vector<float> mono = Sine(512, 1000.0, 3000.0f);
    std::vector<float> out(1024, 5.0f);
    EXPECT_TRUE(effect.machine->WorkMonoToStereo(const_cast<float*>(mono.data()), out.data(), 256, 3));
    EXPECT_TRUE(
        effect.machine->WorkMonoToStereo(const_cast<float*>(mono.data()) + 256, out.data() + 512, 256, 3));
    EXPECT_EQ(Channel(out, 0), Channel(out, 1));
    EXPECT_NEAR(Channel(out, 0)[300], mono[300], 0.01f);
}

TEST(State, SavedStateRestoresTheSameBytesAndTheSameSound) {
    Callbacks callbacks;
    auto first = SineSynth(callbacks);
    first->Note(0, 0x4A);
    Stream saved;
    first->machine->Save(&saved);
    ASSERT_GT(saved.bytes.size(), 12u);

    auto second = SineSynth(callbacks, &saved);
    Stream again;
    second->machine->Save(&again);
    EXPECT_EQ(again.bytes, saved.bytes);

    // Same notes on both: the restored patch sounds as the chosen one does, sample for sample.
    first->Note(0, 0x55);
    second->Note(0, 0x55);
    const auto a = first->RenderStereo(4000);
    const auto b = second->RenderStereo(4000);
    EXPECT_NEAR(Pitch(Channel(a, 0)), kE5Pitch, 0.3);
    EXPECT_EQ(a, b);
}

TEST(Commands, WithoutAWindowBothCommandsRefuseClearly) {
    Callbacks callbacks;
    Hosted effect(Effect(), callbacks);
    effect.machine->Command(0);
    effect.machine->Command(1);
    effect.machine->Command(2);
    effect.machine->Command(-1);
    ASSERT_EQ(callbacks.messages.size(), 2u);
    EXPECT_NE(callbacks.messages[0].find("no editor"), std::string::npos) << callbacks.messages[0];
    EXPECT_NE(callbacks.messages[1].find("vrok/patches"), std::string::npos) << callbacks.messages[1];
}

TEST(Midi, OnlyTheAttributeChannelPlays) {
    Callbacks callbacks;
    auto synth = SineSynth(callbacks);
    synth->Note(0, 0x4A);
    synth->Attribute(0) = 3;  // channel 2; the host sends no AttributesChanged
    synth->Tick();
    synth->Note(0, 0xFF);
    synth->machine->MidiNote(0, 69, 100);  // another channel: ignored
    EXPECT_NEAR(Pitch(Channel(synth->RenderStereo(8192), 0)), kA4Pitch, 0.3);
    synth->machine->MidiNote(2, 69, 100);  // note 69 arrives as 70: 440 Hz
    EXPECT_NEAR(Pitch(Channel(synth->RenderStereo(8192), 0)), kE5Pitch, 0.3);
    synth->machine->MidiNote(2, 69, 0);
    synth->machine->MidiNote(2, 300, 100);
    synth->machine->MidiNote(2, 60, -40);
    synth->machine->MidiNote(2, 60, 1000);
    EXPECT_LT(Peak(synth->RenderStereo(512)), 40000.0f);
}

TEST(BadHostData, OutOfRangeBytesAndTrackCountsPlayOrAreIgnored) {
    Callbacks callbacks;
    auto synth = SineSynth(callbacks);
    for (int tracks : {17, 1000, -3, 0, 16}) {
        synth->machine->SetNumTracks(tracks);
        for (int value : {0x00, 0x0D, 0x40, 0x4F, 0x81, 0x9D, 0xC3, 0xFE}) {
            for (int t = 0; t < 16; ++t) {
                synth->Track(t, 0) = uint8_t(value);
                synth->Track(t, 1) = uint8_t(value ^ 0x5A);
            }
            for (int k = 0; k < 8; ++k) synth->Global(k) = uint8_t(value + k);
            synth->Attribute(0) = value - 100;
            synth->Attribute(1) = -value;
            synth->Tick();
            const auto out = synth->RenderStereo(300);
            for (float x : out)
                ASSERT_TRUE(std::isfinite(x) && std::fabs(x) < 1e6f) << tracks << " " << value;
        }
    }
    // A playable note still plays afterwards.
    synth->Attribute(kPatchAttribute) = kSinePatch;
    synth->Note(0, 0x4A);
    EXPECT_NEAR(Pitch(Channel(synth->RenderStereo(8192), 0)), kA4Pitch, 0.3);
}

TEST(BadHostData, ShortLongOrGarbageStateKeepsOrLoadsThePatch) {
    Callbacks callbacks;
    auto source = SineSynth(callbacks);
    source->Tick();
    Stream good;
    source->machine->Save(&good);

    std::vector<uint8_t> longer = good.bytes;
    longer.insert(longer.end(), 5000, 0xA5);
    std::vector<uint8_t> cut(good.bytes.begin(), good.bytes.begin() + long(good.bytes.size() / 2));
    std::vector<uint8_t> garbage(3000);
    for (size_t i = 0; i < garbage.size(); ++i) garbage[i] = uint8_t(i * 131 + 7);
    std::vector<uint8_t> hugeLength = {0xFF, 0xFF, 0xFF, 0x7F, '<', 'x'};
    std::vector<uint8_t> smallLength = {0x10, 0x27, 0, 0, '<', 's', 't'};
    struct Row {
        const char* what;
        std::vector<uint8_t> bytes;
        bool sine;  // the saved sine patch is restored; otherwise the built-in patch stays
    };
    const Row rows[] = {
        {"empty", {}, false},
        {"two bytes", {3, 0}, false},
        {"cut in half", cut, false},
        {"trailing bytes", longer, true},
        {"garbage", garbage, false},
        {"huge length", hugeLength, false},
        {"length past the end", smallLength, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        Stream state(row.bytes);
        Hosted restored(Synth(), callbacks, &state);
        restored.Note(0, 0x55);
        const auto out = Channel(restored.RenderStereo(8192), 0);
        if (row.sine)
            EXPECT_NEAR(Pitch(out), kE5Pitch, 0.3);
        else
            EXPECT_EQ(Peak(out), 0.0f) << "the built-in patch makes no sound without input";
    }
}

}  // namespace
