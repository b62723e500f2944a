// The render loop: summing rules, monophonic copies, voice retirement, master stage.
#include <gtest/gtest.h>

#include <string>

#include "engine/probe_blocks.h"

using namespace probe;

namespace {

// Records the order of the master stage; adds a mark so a test can see it ran.
class RecordingEffect : public MasterEffect {
public:
    RecordingEffect(std::string name, std::string* trace) : name(std::move(name)), trace(trace) {}
    void Process(StereoBuffers buffers, int numSamples) override {
        *trace += name;
        for (int i = 0; i < numSamples; ++i) buffers.left[i] += 1.0f;
    }
    std::string name;
    std::string* trace;
};

class Render : public ::testing::Test {
protected:
    void SetUp() override { Calls().clear(); }
    void Run(int numSamples = 64) { engine.Render({left, right}, numSamples); }
    std::vector<int> WorkVoices(int slot) const {
        std::vector<int> voices;
        for (const Call& c : Calls())
            if (c.what == "Work" && c.slot == slot) voices.push_back(c.voice);
        return voices;
    }
    VrokInstance engine{Factory};
    float left[kMaxFrames] = {};
    float right[kMaxFrames] = {};
};

TEST_F(Render, MonophonicChainRunsOnceAndCopiesRowZero) {
    engine.SetVoiceCount(4, false);
    int knob = Insert(engine, kMonoSource), amp = Insert(engine, kPass), out = Insert(engine, kOutput);
    engine.Connect(knob, amp, 0);
    engine.Connect(amp, out, 0);
    engine.RebuildOrder();
    At(engine, out).hasOutputWork = true;  // the probe output mixes nothing, but lets the graph run
    Run(32);
    EXPECT_EQ(WorkVoices(knob), std::vector<int>{0});
    EXPECT_EQ(WorkVoices(amp), std::vector<int>{0});
    EXPECT_EQ(WorkVoices(out), std::vector<int>{0});
    CAudioBlock& a = *engine.blocks[amp];
    for (int v = 1; v < 4; ++v) {
        EXPECT_EQ(a.active[v], 1);
        EXPECT_EQ(a.output[v][31], a.output[0][31]);
    }
    EXPECT_FLOAT_EQ(a.output[3][0], knob * 0.001f) << "rows are copies of voice 0, not of voice 3";
}

TEST_F(Render, PolyphonicChainRunsEveryVoiceAscending) {
    engine.SetVoiceCount(4, false);
    int osc = Insert(engine, kPolySource), amp = Insert(engine, kPass), out = Insert(engine, kOutput);
    engine.Connect(osc, amp, 0);
    engine.Connect(amp, out, 0);
    engine.RebuildOrder();
    At(engine, out).hasOutputWork = true;
    Run();
    for (int slot : {osc, amp, out}) EXPECT_EQ(WorkVoices(slot), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_FLOAT_EQ(engine.blocks[amp]->output[2][5], (osc + 2) * 0.001f);
}

TEST_F(Render, PortsSumAllWiresAndKnowSilentFromUnwired) {
    engine.SetVoiceCount(4, false);
    int x = Insert(engine, kPolySource), y = Insert(engine, kPolySource), amp = Insert(engine, kPass);
    int out = Insert(engine, kOutput);
    engine.Connect(x, amp, 0);
    engine.Connect(y, amp, 0);
    engine.Connect(amp, out, 0);
    engine.RebuildOrder();
    At(engine, out).hasOutputWork = true;
    At(engine, x).muted[3] = true;
    At(engine, y).muted[3] = true;
    At(engine, y).muted[1] = true;
    Run();
    InputPort& port = *engine.blocks[amp]->ports[0];
    EXPECT_FLOAT_EQ(port.buffer[0][0], (x + y) * 0.001f);
    EXPECT_FLOAT_EQ(port.buffer[1][0], (x + 1) * 0.001f);
    EXPECT_TRUE(port.hasConnection);
    EXPECT_EQ(port.written[3], 0) << "wired, but silent in voice 3";
    EXPECT_EQ(engine.blocks[amp]->active[3], 0);
    EXPECT_FALSE(engine.blocks[amp]->ports[1]->hasConnection);
}

TEST_F(Render, MonophonicConsumerFoldsPolyphonicVoicesIntoRowZero) {
    engine.SetVoiceCount(3, false);
    int osc = Insert(engine, kPolySource), knob = Insert(engine, kMonoSource);
    int out = Insert(engine, kOutput);
    engine.Connect(osc, out, 0);
    engine.Connect(knob, out, 1);
    engine.RebuildOrder();
    // An output counts as monophonic only when nothing polyphonic feeds it, so make one.
    engine.blocks[out]->monophonic = true;
    engine.blocks[knob]->monophonic = true;
    At(engine, out).hasOutputWork = true;
    Run();
    EXPECT_FLOAT_EQ(engine.blocks[out]->ports[0]->buffer[0][0], (3 * osc + 0 + 1 + 2) * 0.001f);
    EXPECT_FLOAT_EQ(engine.blocks[out]->ports[1]->buffer[0][0], knob * 0.001f)
        << "a monophonic source counts once, not once per voice";
}

TEST_F(Render, VoiceSilentInEveryOutputIsRetired) {
    engine.SetVoiceCount(4, false);
    int osc = Insert(engine, kPolySource), out = Insert(engine, kOutput);
    engine.Connect(osc, out, 0);
    engine.RebuildOrder();
    At(engine, out).hasOutputWork = true;
    for (int note : {60, 61, 62, 63}) engine.PressKey(note, 100);
    At(engine, osc).muted[2] = true;
    Run();
    EXPECT_EQ(engine.voiceActive[2], 0);
    EXPECT_EQ(engine.voiceActive[1], 1);
    EXPECT_EQ(engine.noteHeld[engine.voiceNote[2]], 1) << "the key stays down";
}

TEST_F(Render, WithoutOutputWorkTheGraphStandsStillButEffectsRun) {
    std::string trace;
    engine.reverb = std::make_unique<RecordingEffect>("R", &trace);
    engine.delay = std::make_unique<RecordingEffect>("D", &trace);
    engine.chorus = std::make_unique<RecordingEffect>("C", &trace);
    engine.reverbOn = engine.delayOn = engine.chorusOn = true;
    int osc = Insert(engine, kPolySource), out = Insert(engine, kOutput);
    engine.Connect(osc, out, 0);
    engine.RebuildOrder();
    Run(16);
    EXPECT_EQ(WorkVoices(osc).size(), 0u);
    EXPECT_EQ(trace, "CDR") << "chorus, delay, reverb, in that order";
    EXPECT_EQ(left[15], 3.0f);
    EXPECT_EQ(left[16], 0.0f);

    engine.delayOn = false;
    trace.clear();
    Run(16);
    EXPECT_EQ(trace, "CR");
}

TEST_F(Render, ZeroOrOversizedBuffersTouchNothing) {
    std::string trace;
    engine.chorus = std::make_unique<RecordingEffect>("C", &trace);
    engine.chorusOn = true;
    int osc = Insert(engine, kPolySource), out = Insert(engine, kOutput);
    engine.Connect(osc, out, 0);
    engine.RebuildOrder();
    At(engine, out).hasOutputWork = true;
    Calls().clear();
    Run(0);
    Run(-5);
    Run(kMaxFrames + 1);
    EXPECT_TRUE(trace.empty());
    EXPECT_TRUE(Calls().empty());
    EXPECT_EQ(left[0], 0.0f);
}

TEST_F(Render, GlidesAdvanceOnlyWhileTheGraphRuns) {
    int osc = Insert(engine, kPolySource), out = Insert(engine, kOutput);
    engine.Connect(osc, out, 0);
    engine.RebuildOrder();
    engine.SetPortamento(0.5f);
    engine.PressKey(60, 100);
    Run(64);
    EXPECT_EQ(engine.portamentoPosition[0], 0.0f) << "no output work, no glide";
    At(engine, out).hasOutputWork = true;
    Run(64);
    EXPECT_FLOAT_EQ(engine.portamentoPosition[0], 64.0f * engine.portamentoRate);
}

}  // namespace
