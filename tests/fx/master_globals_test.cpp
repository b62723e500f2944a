// The global settings of the patch as the master effects receive them: every event to its
// own effect, values clamped when stored, and the settings surviving a rate change that
// rebuilds the effects and drops their tails.
#include <gtest/gtest.h>
#include <tinyxml.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "document/patch_records.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"

namespace {

TEST(MasterGlobals, EveryEffectEventReachesItsOwnSetting) {
    struct Row {
        const char* name;
        float value;
        std::function<bool(const VrokInstance&)> holds;
    } rows[] = {
        {"Param_Reverb_WetDry", 0.7f, [](const VrokInstance& e) { return e.reverb->wetDry.value == 0.7f; }},
        {"Param_Reverb_Roomsize", 0.0f, [](const VrokInstance& e) { return e.reverb->lineDelay[3] == 87; }},
        {"Param_Reverb_Decay", 0.9f, [](const VrokInstance& e) { return e.reverb->decay.value == 0.9f; }},
        {"Param_Reverb_Damping", 0.8f, [](const VrokInstance& e) { return e.reverb->damping.value == 0.8f; }},
        {"Param_Reverb_ModAmount", 0.0f, [](const VrokInstance& e) { return e.reverb->modDepth == 0.0f; }},
        {"Param_Reverb_ModSpeed", 0.0f, [](const VrokInstance& e) { return e.reverb->lfoStep == 0.0f; }},
        {"Param_Chorus_WetDry", 0.6f, [](const VrokInstance& e) { return e.chorus->wet == 0.6f; }},
        {"Param_Chorus_Speed", 0.0f, [](const VrokInstance& e) { return e.chorus->phaseStep == 0u; }},
        {"Param_Chorus_Phasing", 0.0f, [](const VrokInstance& e) { return e.chorus->phaseOffset == 0u; }},
        {"Param_Delay_WetDry", 0.9f, [](const VrokInstance& e) { return e.delay->wet == 0.9f; }},
        {"Param_Delay_Type", 1.0f,
         [](const VrokInstance& e) { return e.delay->mode == MasterDelay::kWiden; }},
        {"Param_Delay_Length", 0.2f, [](const VrokInstance& e) { return e.delay->lengthValue == 0.2f; }},
        {"Param_Delay_Cross", 0.3f, [](const VrokInstance& e) { return e.delay->cross == 0.3f; }},
        {"Param_Delay_Feedback", 1.0f, [](const VrokInstance& e) { return e.delay->feedback == 0.9999f; }},
        {"Param_Delay_Spacing", 1.0f, [](const VrokInstance& e) { return e.delay->spacing == 0.95f; }},
    };
    for (const Row& row : rows) {
        VrokDoc doc;
        ASSERT_FALSE(row.holds(*doc.engine)) << row.name << " holds before the change";
        ASSERT_TRUE(doc.global->SetValue(row.name, row.value)) << row.name;
        EXPECT_TRUE(row.holds(*doc.engine)) << row.name;
    }
}

TEST(MasterGlobals, ValuesOutsideTheRangeAreClampedWhenStored) {
    VrokDoc doc;
    doc.global->SetValue("Param_Delay_Feedback", 7.0f);
    EXPECT_EQ(doc.global->Value("Param_Delay_Feedback"), 1.0f);
    EXPECT_FLOAT_EQ(doc.engine->delay->feedback, 0.9999f) << "the loop gain stays below 1";

    TiXmlElement element("GLOBAL");
    element.SetAttribute("Param_Reverb_WetDry", "-3");
    element.SetAttribute("Param_Chorus_WetDry", "2.5");
    doc.global->Load(element);
    EXPECT_EQ(doc.global->Value("Param_Reverb_WetDry"), 0.0f);
    EXPECT_EQ(doc.engine->reverb->wetDry.value, 0.0f);
    EXPECT_EQ(doc.engine->chorus->wet, 1.0f);
}

TEST(MasterGlobals, RateChangeDropsTheTailsAndKeepsTheSettings) {
    VrokDoc doc;
    VrokInstance& engine = *doc.engine;
    PatchGlobal& global = *doc.global;
    for (const char* name : {"Param_Reverb_Enable", "Param_Chorus_Enable", "Param_Delay_Enable"})
        global.SetValue(name, 1.0f);
    global.SetValue("Param_Reverb_Roomsize", 0.0f);
    global.SetValue("Param_Chorus_WetDry", 0.5f);
    global.SetValue("Param_Delay_Length", 0.1f);
    EXPECT_FLOAT_EQ(engine.reverb->decay.value, 0.5f);
    EXPECT_FLOAT_EQ(engine.reverb->modAmount.value, 0.25f) << "the patch's defaults, not the reverb's own";
    float left[kMaxFrames], right[kMaxFrames];
    for (int call = 0; call < 50; ++call) {
        std::fill_n(left, kMaxFrames, 5000.0f);
        std::fill_n(right, kMaxFrames, -5000.0f);
        engine.Render({left, right}, kMaxFrames);
    }
    ASSERT_NE(engine.reverb->dampState[0], 0.0f);

    engine.ChangeSampleRate(48000.0f);
    doc.ReapplyGlobals();
    EXPECT_EQ(engine.reverb->sampleRate, 48000.0f);
    EXPECT_EQ(engine.chorus->sampleRate, 48000);
    EXPECT_EQ(engine.delay->ringLeft.size, 48000);
    const float* buffer = engine.reverb->delayBuffer.get();
    EXPECT_TRUE(std::all_of(buffer, buffer + engine.reverb->bufferSize, [](float x) { return x == 0.0f; }));
    EXPECT_EQ(engine.reverb->lineDelay[0], 64);
    EXPECT_EQ(engine.chorus->wet, 0.5f);
    EXPECT_EQ(engine.delay->lengthValue, 0.1f);
    EXPECT_TRUE(engine.reverbOn && engine.chorusOn && engine.delayOn);
}

TEST(MasterGlobals, TempoSyncIsKeptButChangesNothingHeard) {
    // A click through the delay at two tempos, with the switch off and on: one sound.
    auto render = [](float sync, int samplesPerBar) {
        VrokDoc doc;
        doc.global->SetValue("Param_Delay_Enable", 1.0f);
        doc.global->SetValue("Param_Delay_TempoSync", sync);
        doc.engine->samplesPerBar = samplesPerBar;
        std::vector<float> out;
        float left[kMaxFrames], right[kMaxFrames];
        for (int call = 0; call < 200; ++call) {
            std::fill_n(left, kMaxFrames, 0.0f);
            std::fill_n(right, kMaxFrames, 0.0f);
            if (call == 0) left[0] = left[1] = 20000.0f;
            doc.engine->Render({left, right}, kMaxFrames);
            out.insert(out.end(), left, left + kMaxFrames);
        }
        EXPECT_EQ(doc.global->Value("Param_Delay_TempoSync"), sync) << "stored";
        return out;
    };
    const std::vector<float> plain = render(0.0f, 84672);
    EXPECT_EQ(render(1.0f, 84672), plain);
    EXPECT_EQ(render(1.0f, 44100), plain);
}

}  // namespace
