// The built bundle as a DAW meets it: found through LV2_PATH by lilv, described by its
// Turtle, instantiated, played with MIDI atoms at every block size, and its state carried
// through lilv's own save and restore into a fresh instance.
#include <gtest/gtest.h>
#include <lilv/lilv.h>
#include <lv2/atom/atom.h>
#include <lv2/core/lv2.h>
#include <lv2/state/state.h>

#include <cmath>
#include <memory>
#include <string>

#include "machine/lv2/lv2_test_host.h"

namespace {

const bool privateEnvironment = lv2test::UsePrivateEnvironment();

using lv2test::Driver;
using lv2test::NoteOn;
using lv2test::TestFeatures;

const char* const kInstrument = "urn:vrok:lv2:instrument";
const char* const kEffect = "urn:vrok:lv2:effect";
const std::string kExamples = VROK_EXAMPLES_DIR;
const std::string kTestData = VROK_LV2_TEST_DATA;
constexpr double kRate = 44100.0;

// One lilv world for the whole program, loaded from LV2_PATH as a host does.
class World {
public:
    World() : world(lilv_world_new()) { lilv_world_load_all(world); }
    ~World() { lilv_world_free(world); }
    const LilvPlugin* Find(const char* uri) const {
        LilvNode* node = lilv_new_uri(world, uri);
        const LilvPlugin* plugin = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), node);
        lilv_node_free(node);
        return plugin;
    }
    LilvNode* Uri(const char* uri) const { return lilv_new_uri(world, uri); }
    LilvWorld* world;
};

World& TheWorld() {
    static World world;
    return world;
}

// A lilv instance with the test host's features.
struct Instance {
    explicit Instance(const char* uri)
        : plugin(TheWorld().Find(uri)),
          instance(plugin ? lilv_plugin_instantiate(plugin, kRate, features.List()) : nullptr),
          driver(instance ? lilv_instance_get_descriptor(instance) : nullptr,
                 instance ? lilv_instance_get_handle(instance) : nullptr, features, uri == kEffect) {
        lilv_instance_activate(instance);
    }
    ~Instance() {
        lilv_instance_deactivate(instance);
        lilv_instance_free(instance);
    }
    TestFeatures features;
    const LilvPlugin* plugin;
    LilvInstance* instance;
    Driver driver;
};

std::string NodeText(const LilvNode* node) { return node ? lilv_node_as_string(node) : std::string(); }

TEST(Lv2Bundle, FoundThroughLv2PathWithTheirPorts) {
    struct Expected {
        const char* uri;
        uint32_t ports;
        const char* lastSymbol;
    };
    for (const Expected& e : {Expected{kInstrument, 13, "latency"}, Expected{kEffect, 15, "in_r"}}) {
        const LilvPlugin* plugin = TheWorld().Find(e.uri);
        ASSERT_NE(plugin, nullptr) << e.uri << " not found; LV2_PATH=" << (getenv("LV2_PATH") ?: "");
        EXPECT_EQ(lilv_plugin_get_num_ports(plugin), e.ports);
        EXPECT_EQ(NodeText(lilv_port_get_symbol(plugin, lilv_plugin_get_port_by_index(plugin, e.ports - 1))),
                  e.lastSymbol);
        EXPECT_TRUE(lilv_plugin_has_latency(plugin));
        EXPECT_EQ(lilv_plugin_get_latency_port_index(plugin), 12u);
        LilvNodes* required = lilv_plugin_get_required_features(plugin);
        EXPECT_EQ(lilv_nodes_size(required), 0u) << "a plug-in that demands nothing loads everywhere";
        lilv_nodes_free(required);
        std::vector<float> minimum(e.ports), maximum(e.ports), defaults(e.ports);
        lilv_plugin_get_port_ranges_float(plugin, minimum.data(), maximum.data(), defaults.data());
        for (uint32_t knob = 0; knob < 8; ++knob) {
            const LilvPort* port = lilv_plugin_get_port_by_index(plugin, 4 + knob);
            EXPECT_EQ(NodeText(lilv_port_get_symbol(plugin, port)), "knob" + std::to_string(knob + 1));
            EXPECT_EQ(minimum[4 + knob], 0.0f);
            EXPECT_EQ(maximum[4 + knob], 128.0f);
            EXPECT_EQ(defaults[4 + knob], 64.0f);
        }
        LilvNode* midi = TheWorld().Uri("http://lv2plug.in/ns/ext/midi#MidiEvent");
        EXPECT_TRUE(lilv_port_supports_event(plugin, lilv_plugin_get_port_by_index(plugin, 0), midi));
        lilv_node_free(midi);
    }
    LilvNode* instrumentClass = TheWorld().Uri(LV2_CORE__InstrumentPlugin);
    EXPECT_TRUE(lilv_node_equals(
        lilv_plugin_class_get_uri(lilv_plugin_get_class(TheWorld().Find(kInstrument))), instrumentClass));
    lilv_node_free(instrumentClass);
}

// Each note's click lands on its own frame, and each note sounds at its own pitch, however
// the host cuts the buffer.
TEST(Lv2Bundle, NotesArriveOnTheirFrameAtEveryBlockSize) {
    const std::vector<lv2test::Event> clicks = {NoteOn(100, 60), NoteOn(777, 62), NoteOn(3001, 64),
                                                NoteOn(9000, 65)};
    for (uint32_t blockSize : {1u, 64u, 256u, 1000u, 4096u}) {
        Instance vrok(kInstrument);
        ASSERT_NE(vrok.instance, nullptr);
        vrok.driver.LoadPatch(kTestData + "/impulse.vrkx");
        const auto out = vrok.driver.Render(12000, blockSize, clicks);
        size_t from = 0;
        for (const auto& click : clicks) {
            const long at = lv2test::FirstAbove(out.left, from, 0.5f);
            EXPECT_EQ(at, click.frame) << "block size " << blockSize;
            from = size_t(std::max(at, 0L)) + 1;
        }
        EXPECT_EQ(lv2test::FirstAbove(out.left, from, 0.5f), -1) << "block size " << blockSize;
    }
    for (uint32_t blockSize : {1u, 64u, 256u, 1000u, 4096u}) {
        Instance vrok(kInstrument);
        vrok.driver.LoadPatch(kExamples + "/sine_a4.vrkx");
        const auto out = vrok.driver.Render(30000, blockSize,
                                            {NoteOn(0, 69), lv2test::NoteOff(14000, 69), NoteOn(15000, 81)});
        EXPECT_NEAR(lv2test::MeasureHz(out.left, 500, 15000, kRate), 440.0, 0.5)
            << "block size " << blockSize;
        EXPECT_NEAR(lv2test::MeasureHz(out.right, 15500, 30000, kRate), 880.0, 1.0)
            << "block size " << blockSize;
    }
}

TEST(Lv2Bundle, EffectPlaysItsInputThroughThePatch) {
    Instance vrok(kEffect);
    vrok.driver.LoadPatch(kExamples + "/input_pass.vrkx");
    lv2test::Stereo input;
    for (int i = 0; i < 5000; ++i) {
        input.left.push_back(0.5f * std::sin(2.0f * float(M_PI) * 1000.0f * float(i) / 44100.0f));
        input.right.push_back(0.25f * std::sin(2.0f * float(M_PI) * 300.0f * float(i) / 44100.0f));
    }
    const auto out = vrok.driver.Render(5000, 1000, {}, &input);
    // The input block takes the mix of both channels; the output block sends it to both.
    for (int i = 0; i < 5000; i += 7) {
        ASSERT_NEAR(out.left[i], 0.5f * (input.left[i] + input.right[i]), 1e-5f) << i;
        ASSERT_EQ(out.left[i], out.right[i]) << i;
    }
}

// lilv writes the state as Turtle, as a session file holds it, and reads it back.
TEST(Lv2Bundle, StateThroughLilvRestoresIdenticalSound) {
    std::string turtle;
    lv2test::Stereo before;
    const std::vector<lv2test::Event> notes = {NoteOn(0, 69), NoteOn(2000, 74), NoteOn(5000, 57)};
    {
        Instance first(kInstrument);
        first.driver.LoadPatch(kExamples + "/sine_a4.vrkx");
        lilv_instance_deactivate(first.instance);
        lilv_instance_activate(first.instance);
        LilvState* state = lilv_state_new_from_instance(
            first.plugin, first.instance, first.features.UridMap(), nullptr, nullptr, nullptr, nullptr,
            nullptr, nullptr, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, first.features.List());
        ASSERT_NE(state, nullptr);
        char* text = lilv_state_to_string(TheWorld().world, first.features.UridMap(),
                                          first.features.UridUnmap(), state, "urn:vrok:test:state", nullptr);
        turtle = text;
        lilv_free(text);
        lilv_state_free(state);
        before = first.driver.Render(8192, 300, notes);
    }
    EXPECT_NE(turtle.find("urn:vrok:lv2:patchState"), std::string::npos);

    Instance second(kInstrument);
    LilvState* state =
        lilv_state_new_from_string(TheWorld().world, second.features.UridMap(), turtle.c_str());
    ASSERT_NE(state, nullptr);
    lilv_state_restore(state, second.instance, nullptr, nullptr, 0, second.features.List());
    lilv_state_free(state);
    lilv_instance_deactivate(second.instance);
    lilv_instance_activate(second.instance);
    const auto after = second.driver.Render(8192, 300, notes);
    EXPECT_EQ(before.left, after.left);
    EXPECT_EQ(before.right, after.right);
    EXPECT_NEAR(lv2test::MeasureHz(after.left, 500, 2000, kRate), 440.0, 1.0);
}

// The host's tempo times the arpeggiator's steps: a sixteenth of a four-beat bar at its
// default speed.
TEST(Lv2Bundle, HostTempoTimesTheArpeggiator) {
    for (double bpm : {120.0, 150.0, 97.0}) {
        lv2test::Event tempo;
        tempo.beatsPerMinute = bpm;
        const double bar = kRate * 60.0 / bpm * 4.0;
        Instance vrok(kInstrument);
        vrok.driver.LoadPatch(kTestData + "/arp_impulse.vrkx");
        const auto out = vrok.driver.Render(60000, 512, {tempo, NoteOn(0, 60)});
        std::vector<long> clicks;
        for (long at = lv2test::FirstAbove(out.left, 0, 0.5f); at >= 0;
             at = lv2test::FirstAbove(out.left, size_t(at) + 1, 0.5f))
            clicks.push_back(at);
        ASSERT_GE(clicks.size(), 5u) << bpm;
        // Steps fall on the engine's block grid, so each lands within one block of the beat;
        // over many steps the average is exact.
        for (size_t i = 1; i < clicks.size(); ++i)
            EXPECT_NEAR(double(clicks[i] - clicks[i - 1]), bar / 16.0, 257.0) << bpm << " step " << i;
        EXPECT_NEAR(double(clicks.back() - clicks.front()) / double(clicks.size() - 1), bar / 16.0, 30.0)
            << bpm;
    }
}

// A rolling transport's position puts the arpeggiator's next step on the host's grid.
TEST(Lv2Bundle, TransportPositionAlignsTheArpeggiator) {
    Instance vrok(kInstrument);
    vrok.driver.LoadPatch(kTestData + "/arp_impulse.vrkx");
    lv2test::Event position;
    position.frame = 1000;
    position.beatsPerMinute = 120.0;
    position.barBeat = 0.1;  // 0.4 of a step into the bar: the next step is 0.6 of a step away
    const double step = kRate * 60.0 / 120.0 / 4.0;
    const auto out = vrok.driver.Render(20000, 256, {NoteOn(0, 60), position});
    const long first = lv2test::FirstAbove(out.left, 1001, 0.5f);
    EXPECT_NEAR(double(first), 1000.0 + 0.6 * step, 256.0);
    const long second = lv2test::FirstAbove(out.left, size_t(first) + 1, 0.5f);
    EXPECT_NEAR(double(second - first), step, 256.0);
}

// The bundle's presets name patch files inside it; lilv hands the plug-in their full path.
TEST(Lv2Bundle, PresetsLoadTheirPatches) {
    LilvNode* presetClass = TheWorld().Uri("http://lv2plug.in/ns/ext/presets#Preset");
    int count = 0;
    for (const char* uri : {kInstrument, kEffect}) {
        Instance vrok(uri);
        LilvNodes* presets = lilv_plugin_get_related(vrok.plugin, presetClass);
        LILV_FOREACH(nodes, i, presets) {
            const LilvNode* preset = lilv_nodes_get(presets, i);
            ++count;
            lilv_world_load_resource(TheWorld().world, preset);
            LilvState* state = lilv_state_new_from_world(TheWorld().world, vrok.features.UridMap(), preset);
            ASSERT_NE(state, nullptr) << NodeText(preset);
            lilv_state_restore(state, vrok.instance, nullptr, nullptr, 0, vrok.features.List());
            lilv_state_free(state);
            // The block that takes the new patch announces its file.
            vrok.driver.Render(256, 256);
            const auto files = vrok.driver.NotifiedFiles();
            ASSERT_EQ(files.size(), 1u) << NodeText(preset);
            EXPECT_NE(files[0].find("/vrok.lv2/patches/"), std::string::npos) << files[0];
            EXPECT_TRUE(vrok.features.warnings.empty())
                << NodeText(preset) << ": " << vrok.features.warnings[0];
            const auto out = vrok.driver.Render(8192, 256, {NoteOn(0, 69)});
            if (NodeText(preset) == "urn:vrok:lv2:preset-sine")
                EXPECT_NEAR(lv2test::MeasureHz(out.left, 1000, 8192, kRate), 440.0, 0.5);
        }
        lilv_nodes_free(presets);
    }
    lilv_node_free(presetClass);
    EXPECT_EQ(count, 6);
}

}  // namespace
