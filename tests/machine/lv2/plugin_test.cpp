// The LV2 plug-ins linked in and driven through their descriptors, with the engine in
// view: MIDI semantics, knobs, tempo, state, patch files, options, a host without features.
#include <gtest/gtest.h>
#include <lv2/atom/atom.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>

#include <cmath>
#include <cstdio>
#include <memory>
#include <string>

#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/lv2/lv2_test_host.h"
#include "machine/lv2/vrok_plugin.h"

extern "C" const LV2_Descriptor* lv2_descriptor(uint32_t index);

namespace {

const bool privateEnvironment = lv2test::UsePrivateEnvironment();

using lv2test::Driver;
using lv2test::Event;
using lv2test::Midi;
using lv2test::NoteOff;
using lv2test::NoteOn;
using lv2test::TestFeatures;

const std::string kExamples = VROK_EXAMPLES_DIR;
const std::string kSine = kExamples + "/sine_a4.vrkx";
constexpr double kRate = 44100.0;
// Engine note numbers are one above MIDI's.
constexpr int kA4 = 69;

// One plug-in instance with its host; deleted through the descriptor.
struct Instance {
    explicit Instance(bool effect = false, float rate = 44100.0f, bool withWorker = true)
        : features(rate, withWorker),
          descriptor(lv2_descriptor(effect ? 1 : 0)),
          handle(descriptor->instantiate(descriptor, rate, "", features.List())),
          driver(descriptor, handle, features, effect) {
        descriptor->activate(handle);
    }
    ~Instance() {
        descriptor->deactivate(handle);
        descriptor->cleanup(handle);
    }
    lv2::Plugin& plugin() { return *static_cast<lv2::Plugin*>(handle); }
    VrokInstance& engine() { return *plugin().Machine().document->engine; }

    TestFeatures features;
    const LV2_Descriptor* descriptor;
    LV2_Handle handle;
    Driver driver;
};

bool AnyWarningHas(const TestFeatures& features, const std::string& text) {
    for (const std::string& w : features.warnings)
        if (w.find(text) != std::string::npos) return true;
    return false;
}

std::vector<uint8_t> Bytes(const std::string& text) { return {text.begin(), text.end()}; }

TEST(Lv2Descriptors, TwoPluginsUnderTheirUris) {
    ASSERT_NE(lv2_descriptor(0), nullptr);
    ASSERT_NE(lv2_descriptor(1), nullptr);
    EXPECT_EQ(lv2_descriptor(2), nullptr);
    EXPECT_STREQ(lv2_descriptor(0)->URI, "urn:vrok:lv2:instrument");
    EXPECT_STREQ(lv2_descriptor(1)->URI, "urn:vrok:lv2:effect");
    EXPECT_EQ(lv2_descriptor(0)->extension_data("urn:nothing"), nullptr);
}

TEST(Lv2Events, SustainKeepsReleasedNotesUntilThePedalLifts) {
    Instance vrok;
    vrok.driver.Render(
        256, 256,
        {NoteOn(0, kA4), Midi(10, {0xB0, 64, 127}), NoteOff(20, kA4), NoteOn(30, 72), NoteOff(40, 72)});
    EXPECT_TRUE(vrok.engine().noteHeld[kA4 + 1]);
    EXPECT_TRUE(vrok.engine().noteHeld[72 + 1]);
    // A sustained key struck again stays held after the pedal lifts.
    vrok.driver.Render(256, 256, {NoteOn(0, 72), Midi(10, {0xB0, 64, 0})});
    EXPECT_FALSE(vrok.engine().noteHeld[kA4 + 1]);
    EXPECT_TRUE(vrok.engine().noteHeld[72 + 1]);
}

TEST(Lv2Events, AllNotesOffForgetsSustainedNotes) {
    Instance vrok;
    vrok.driver.Render(64, 64,
                       {Midi(0, {0xB0, 64, 127}), NoteOn(1, 60), NoteOff(2, 60), Midi(3, {0xB0, 123, 0})});
    EXPECT_FALSE(vrok.engine().noteHeld[61]);
    vrok.driver.Render(64, 64, {NoteOn(0, 62), Midi(1, {0xB0, 64, 0})});
    EXPECT_TRUE(vrok.engine().noteHeld[63]) << "a note played after all-notes-off is not a sustained one";
}

TEST(Lv2Events, ControllersReachTheEngine) {
    struct Case {
        std::vector<uint8_t> message;
        float modWheel, aftertouch, bend;
    };
    const Case cases[] = {
        {{0xB0, 1, 127}, 1.0f, 0.0f, 0.0f},
        {{0xB3, 1, 0}, 0.0f, 0.0f, 0.0f},
        {{0xD0, 64}, 0.0f, 64.0f / 127.0f, 0.0f},
        {{0xA5, 60, 127}, 0.0f, 1.0f, 0.0f},
        {{0xE0, 0x7F, 0x7F}, 0.0f, 0.0f, 8191.0f / 8192.0f},
        {{0xE0, 0x00, 0x00}, 0.0f, 0.0f, -1.0f},
        {{0xE0, 0x00, 0x40}, 0.0f, 0.0f, 0.0f},
        // Cut-off messages change nothing.
        {{0xE0, 0x7F}, 0.0f, 0.0f, 0.0f},
        {{0xB0, 1}, 0.0f, 0.0f, 0.0f},
    };
    for (const Case& c : cases) {
        Instance vrok;
        vrok.driver.Render(64, 64, {Midi(5, c.message)});
        EXPECT_FLOAT_EQ(vrok.engine().modWheel, c.modWheel) << int(c.message[0]);
        EXPECT_FLOAT_EQ(vrok.engine().aftertouch, c.aftertouch) << int(c.message[0]);
        EXPECT_FLOAT_EQ(vrok.engine().bend, c.bend) << int(c.message[0]);
    }
}

TEST(Lv2Events, PitchBendMovesTheSoundingNote) {
    Instance vrok;
    vrok.driver.LoadPatch(kSine);
    // The patch's bend range is 12 semitones: full bend up is an octave, less one step.
    const auto out = vrok.driver.Render(44100, 256, {NoteOn(0, kA4), Midi(22050, {0xE0, 0x7F, 0x7F})});
    EXPECT_NEAR(lv2test::MeasureHz(out.left, 2000, 22050, kRate), 440.0, 0.5);
    EXPECT_NEAR(lv2test::MeasureHz(out.left, 24000, 44100, kRate), 440.0 * std::pow(2.0, 8191.0 / 8192.0),
                1.0);
}

TEST(Lv2Events, TempoSetsTheBarLength) {
    Instance vrok;
    vrok.driver.Render(64, 64);
    EXPECT_EQ(vrok.engine().samplesPerBar, 88200) << "120 BPM before the host says otherwise";
    Event tempo;
    tempo.frame = 3;
    tempo.beatsPerMinute = 150.0;
    vrok.driver.Render(64, 64, {tempo});
    EXPECT_EQ(vrok.engine().samplesPerBar, 70560);
    tempo.beatsPerMinute = 1e9;  // beyond any tempo: held at the fastest
    vrok.driver.Render(64, 64, {tempo});
    EXPECT_EQ(vrok.engine().samplesPerBar, 44100 * 60 / 1000 * 4);
}

TEST(Lv2Knobs, PortAutomationDrivesTheExternalKnob) {
    Instance vrok;
    vrok.driver.LoadPatch(kSine);
    VrokInstance& engine = vrok.engine();
    // No knob block exists yet: aim knob 1 at the output block's volume, as a knob block would.
    int outputSlot = -1;
    for (int s = 0; s < kMaxBlocks; ++s)
        if (engine.blocks[s] && engine.blocks[s]->type == 0) outputSlot = s;
    ASSERT_GE(outputSlot, 0);
    engine.extKnobPresent[0] = 1;
    engine.extKnobSlot[0] = outputSlot;

    vrok.driver.knobs[0] = 128.0f;
    const auto loud = vrok.driver.Render(4096, 1000, {NoteOn(0, kA4)});
    EXPECT_FLOAT_EQ(engine.blocks[outputSlot]->values[0], 1.0f);
    vrok.driver.knobs[0] = 32.0f;
    const auto quiet = vrok.driver.Render(4096, 1000);
    EXPECT_FLOAT_EQ(engine.blocks[outputSlot]->values[0], 0.25f);
    // Amplitude is the square of the stored value.
    EXPECT_NEAR(lv2test::Rms(quiet.left, 1000, 4096) / lv2test::Rms(loud.left, 1000, 4096), 0.0625, 0.002);
    // Out of range is held at the ends; NaN leaves the knob where it was.
    vrok.driver.knobs[0] = 500.0f;
    vrok.driver.Render(64, 64);
    EXPECT_FLOAT_EQ(engine.blocks[outputSlot]->values[0], 1.0f);
    vrok.driver.knobs[0] = std::nanf("");
    vrok.driver.Render(64, 64);
    EXPECT_FLOAT_EQ(engine.blocks[outputSlot]->values[0], 1.0f);
}

TEST(Lv2Ports, LatencyIsZero) {
    Instance vrok;
    vrok.driver.Render(64, 64);
    EXPECT_EQ(vrok.driver.latency, 0.0f);
}

TEST(Lv2Patch, FileMessageLoadsOnTheWorkerAndIsAnnounced) {
    Instance vrok;
    const uint32_t before = vrok.plugin().Generation();
    Event set;
    set.patchFile = kSine;
    vrok.driver.Render(64, 64, {set});
    EXPECT_EQ(vrok.plugin().Generation(), before) << "the audio thread never loads a file";
    vrok.driver.Render(64, 64);
    EXPECT_EQ(vrok.plugin().Generation(), before + 1);
    EXPECT_EQ(vrok.driver.NotifiedFiles(), std::vector<std::string>{kSine});
    Event get;
    get.patchGet = true;
    vrok.driver.Render(64, 64, {get});
    EXPECT_EQ(vrok.driver.NotifiedFiles(), std::vector<std::string>{kSine});
    const auto out = vrok.driver.Render(8192, 256, {NoteOn(0, kA4)});
    EXPECT_NEAR(lv2test::MeasureHz(out.left, 1000, 8192, kRate), 440.0, 0.5);
}

TEST(Lv2Patch, UnreadableFileGivesTheDefaultPatchWithAWarning) {
    Instance vrok;
    vrok.driver.LoadPatch(kSine);
    vrok.driver.LoadPatch(kExamples + "/README.md");
    EXPECT_TRUE(AnyWarningHas(vrok.features, "not a patch"));
    Instance fresh;
    EXPECT_EQ(vrok.driver.SaveState()[0].value, fresh.driver.SaveState()[0].value);
}

TEST(Lv2Patch, WithoutAWorkerTheMessageIsRefusedAloud) {
    Instance vrok(false, 44100.0f, false);
    Event set;
    set.patchFile = kSine;
    vrok.driver.Render(64, 64, {set});
    vrok.driver.Render(64, 64);
    EXPECT_TRUE(AnyWarningHas(vrok.features, "no worker"));
}

TEST(Lv2State, SavedPatchPlaysIdenticallyInAFreshInstance) {
    Instance first;
    first.driver.LoadPatch(kSine);
    const auto saved = first.driver.SaveState();
    ASSERT_EQ(saved.size(), 1u);
    EXPECT_EQ(saved[0].key, first.features.Map("urn:vrok:lv2:patchState"));
    EXPECT_EQ(saved[0].type, first.features.Map(LV2_ATOM__Chunk));

    Instance second;
    ASSERT_EQ(second.driver.RestoreState(saved), LV2_STATE_SUCCESS);
    // Saved again before it ever ran: the restored patch, not the one playing.
    EXPECT_EQ(second.driver.SaveState()[0].value, saved[0].value);
    const std::vector<Event> notes = {NoteOn(10, kA4), NoteOn(3000, 76), NoteOff(6000, 76)};
    first.descriptor->deactivate(first.handle);
    first.descriptor->activate(first.handle);
    second.descriptor->deactivate(second.handle);
    second.descriptor->activate(second.handle);
    const auto a = first.driver.Render(8192, 512, notes);
    const auto b = second.driver.Render(8192, 512, notes);
    EXPECT_EQ(a.left, b.left);
    EXPECT_EQ(a.right, b.right);
    EXPECT_GT(lv2test::Rms(a.left, 0, 8192), 0.01);
}

// A mono 16-bit WAV of a 300 Hz tone, for a sampler to hold.
std::string WriteToneWav() {
    const std::string path = std::string(VROK_LV2_TEST_OUTPUT) + "/tone.wav";
    const uint32_t frames = 11025, rate = 44100, bytes = frames * 2;
    std::FILE* file = std::fopen(path.c_str(), "wb");
    auto u32 = [&](uint32_t v) { std::fwrite(&v, 4, 1, file); };
    auto u16 = [&](uint16_t v) { std::fwrite(&v, 2, 1, file); };
    std::fwrite("RIFF", 1, 4, file);
    u32(36 + bytes);
    std::fwrite("WAVEfmt ", 1, 8, file);
    u32(16), u16(1), u16(1), u32(rate), u32(rate * 2), u16(2), u16(16);
    std::fwrite("data", 1, 4, file);
    u32(bytes);
    for (uint32_t i = 0; i < frames; ++i)
        u16(uint16_t(int16_t(12000.0 * std::sin(2.0 * M_PI * 300.0 * i / rate))));
    std::fclose(file);
    return path;
}

// The sample travels inside the state: the fresh instance reads no file.
TEST(Lv2State, PatchWithASampleRestoresExactly) {
    Instance first;
    VrokDoc& doc = *first.plugin().Machine().document;
    doc.ClearAll();
    PatchBlock* sampler = doc.AddBlock(58, -1, 40, 60);
    PatchBlock* amplitude = doc.AddBlock(10, -1, 40, 160);
    PatchBlock* output = doc.AddBlock(0, -1, 200, 60);
    ASSERT_TRUE(sampler && amplitude && output);
    doc.AddConnection(amplitude, sampler, 1);
    doc.AddConnection(sampler, output, 0);
    const std::string wav = WriteToneWav();
    ASSERT_NE(doc.LoadSampleInto(sampler, wav), nullptr);
    ASSERT_FALSE(doc.samples.empty());
    ASSERT_FALSE(doc.samples[0]->data.empty());
    const auto saved = first.driver.SaveState();
    std::remove(wav.c_str());
    const std::string text(saved[0].value.begin(), saved[0].value.end());
    EXPECT_NE(text.find("sampledata="), std::string::npos);

    Instance second;
    ASSERT_EQ(second.driver.RestoreState(saved), LV2_STATE_SUCCESS);
    EXPECT_EQ(second.driver.SaveState()[0].value, saved[0].value);
    for (Instance* i : {&first, &second}) {
        i->descriptor->deactivate(i->handle);
        i->descriptor->activate(i->handle);
    }
    const auto a = first.driver.Render(6000, 256, {NoteOn(0, kA4)});
    const auto b = second.driver.Render(6000, 256, {NoteOn(0, kA4)});
    EXPECT_EQ(a.left, b.left);
    EXPECT_GT(lv2test::Rms(b.left, 0, 6000), 0.001);
}

TEST(Lv2State, CorruptOrForeignStateRestoresTheDefaultPatchWithAWarning) {
    Instance reference;
    const auto defaultState = reference.driver.SaveState()[0].value;
    const LV2_URID patchState = reference.features.Map("urn:vrok:lv2:patchState");
    const LV2_URID chunk = reference.features.Map(LV2_ATOM__Chunk);
    std::vector<uint8_t> hugeLength = {0xFF, 0xFF, 0xFF, 0x7F, '<', 's'};
    std::vector<uint8_t> pastTheEnd = {200, 0, 0, 0, '<', 's', 't'};
    std::vector<uint8_t> notAPatch = {9, 0, 0, 0};
    const auto html = Bytes("<html/>");
    notAPatch.insert(notAPatch.end(), html.begin(), html.end());
    notAPatch.resize(notAPatch.size() + 2);
    struct Case {
        const char* what;
        std::vector<Driver::Stored> values;
    };
    const Case cases[] = {
        {"garbage", {{patchState, chunk, Bytes("\x01\x02garbage")}}},
        {"empty", {{patchState, chunk, {}}}},
        {"huge length", {{patchState, chunk, hugeLength}}},
        {"length past the end", {{patchState, chunk, pastTheEnd}}},
        {"another document", {{patchState, chunk, notAPatch}}},
        {"foreign type", {{patchState, reference.features.Map(LV2_ATOM__String), Bytes("<storables/>")}}},
    };
    for (const Case& c : cases) {
        Instance vrok;
        vrok.driver.LoadPatch(kSine);
        vrok.features.warnings.clear();
        EXPECT_EQ(vrok.driver.RestoreState(c.values), LV2_STATE_SUCCESS) << c.what;
        EXPECT_TRUE(AnyWarningHas(vrok.features, "default patch")) << c.what;
        EXPECT_EQ(vrok.driver.SaveState()[0].value, defaultState) << c.what;
        vrok.driver.Render(1024, 256, {NoteOn(0, kA4)});
    }
}

// Hosts restore a session's state, then activate: the restored patch must survive, even
// while an editor still holds the machine before it and the hand-over has to wait.
TEST(Lv2State, ActivationAfterRestoreKeepsTheRestoredPatch) {
    Instance source;
    source.driver.LoadPatch(kSine);
    const auto saved = source.driver.SaveState();
    Instance vrok;
    vrok.plugin().PinCurrent();
    vrok.driver.LoadPatch(kExamples + "/input_pass.vrkx");
    vrok.descriptor->deactivate(vrok.handle);
    ASSERT_EQ(vrok.driver.RestoreState(saved), LV2_STATE_SUCCESS);
    vrok.descriptor->activate(vrok.handle);
    EXPECT_EQ(vrok.driver.SaveState()[0].value, saved[0].value);
    // The editor lets go of the old machine, as it does when it follows the swap.
    vrok.plugin().Unpin();
    vrok.plugin().FreeRetired();
    const auto out = vrok.driver.Render(8192, 256, {NoteOn(0, kA4)});
    EXPECT_NEAR(lv2test::MeasureHz(out.left, 1000, 8192, kRate), 440.0, 0.5);
}

TEST(Lv2State, StateWithoutAPatchKeepsThePatchPlaying) {
    Instance vrok;
    vrok.driver.LoadPatch(kSine);
    const auto before = vrok.driver.SaveState()[0].value;
    vrok.features.warnings.clear();
    EXPECT_EQ(vrok.driver.RestoreState(
                  {{vrok.features.Map("urn:other:gain"), vrok.features.Map(LV2_ATOM__Chunk), Bytes("1234")}}),
              LV2_STATE_SUCCESS);
    EXPECT_TRUE(vrok.features.warnings.empty());
    EXPECT_EQ(vrok.driver.SaveState()[0].value, before);
}

TEST(Lv2State, PresetNamingAPatchFilePlaysIt) {
    Instance vrok;
    const std::string path = kSine;
    std::vector<uint8_t> value(path.begin(), path.end());
    value.push_back(0);
    ASSERT_EQ(vrok.driver.RestoreState(
                  {{vrok.features.Map("urn:vrok:lv2:patchFile"), vrok.features.Map(LV2_ATOM__Path), value}}),
              LV2_STATE_SUCCESS);
    const auto out = vrok.driver.Render(8192, 256, {NoteOn(0, kA4)});
    EXPECT_NEAR(lv2test::MeasureHz(out.left, 1000, 8192, kRate), 440.0, 0.5);
    EXPECT_EQ(vrok.driver.NotifiedFiles().size(), 0u) << "announced once, in the block that took it";
}

TEST(Lv2Options, SampleRateChangeKeepsThePitch) {
    Instance vrok;
    vrok.driver.LoadPatch(kSine);
    const auto* options =
        static_cast<const LV2_Options_Interface*>(vrok.driver.Extension(LV2_OPTIONS__interface));
    ASSERT_NE(options, nullptr);
    float rate = 48000.0f;
    LV2_Options_Option set[] = {{LV2_OPTIONS_INSTANCE, 0, vrok.features.Map(LV2_PARAMETERS__sampleRate),
                                 sizeof rate, vrok.features.Map(LV2_ATOM__Float), &rate},
                                {LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr}};
    EXPECT_EQ(options->set(vrok.handle, set), uint32_t(LV2_OPTIONS_SUCCESS));
    const auto out = vrok.driver.Render(9600, 256, {NoteOn(0, kA4)});
    EXPECT_NEAR(lv2test::MeasureHz(out.left, 1000, 9600, 48000.0), 440.0, 0.5);

    LV2_Options_Option get[] = {set[0], set[1]};
    get[0].value = nullptr;
    EXPECT_EQ(options->get(vrok.handle, get), uint32_t(LV2_OPTIONS_SUCCESS));
    EXPECT_EQ(*static_cast<const float*>(get[0].value), 48000.0f);
    // Impossible rates and unknown keys are refused and change nothing.
    rate = -5.0f;
    EXPECT_EQ(options->set(vrok.handle, set), uint32_t(LV2_OPTIONS_ERR_BAD_VALUE));
    set[0].key = vrok.features.Map("urn:other:option");
    EXPECT_EQ(options->set(vrok.handle, set), uint32_t(LV2_OPTIONS_ERR_BAD_KEY));
}

TEST(Lv2Host, HostWithoutFeaturesStillPlays) {
    const LV2_Descriptor* effect = lv2_descriptor(1);
    LV2_Handle handle = effect->instantiate(effect, 44100.0, "", nullptr);
    ASSERT_NE(handle, nullptr);
    float in[300], outL[300], outR[300], knob = 64.0f;
    for (int i = 0; i < 300; ++i) in[i] = 0.1f * std::sin(0.1f * float(i));
    for (uint32_t p = 0; p < 15; ++p) effect->connect_port(handle, p, nullptr);
    effect->connect_port(handle, 2, outL);
    effect->connect_port(handle, 3, outR);
    effect->connect_port(handle, 4, &knob);
    effect->connect_port(handle, 13, in);
    effect->connect_port(handle, 14, in);
    effect->activate(handle);
    effect->run(handle, 300);
    for (float s : outL) EXPECT_TRUE(std::isfinite(s));
    effect->deactivate(handle);
    effect->cleanup(handle);
}

TEST(Lv2Host, UnusableSampleRateFallsBackWithAWarning) {
    Instance vrok(false, 0.0f);
    EXPECT_TRUE(AnyWarningHas(vrok.features, "unusable"));
    vrok.driver.LoadPatch(kSine);
    const auto out = vrok.driver.Render(8192, 256, {NoteOn(0, kA4)});
    EXPECT_NEAR(lv2test::MeasureHz(out.left, 1000, 8192, kRate), 440.0, 0.5);
}

}  // namespace
