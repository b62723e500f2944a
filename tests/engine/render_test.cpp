// The render loop: summing rules, monophonic copies, voice retirement, master stage.
#include "engine/probe_blocks.h"

using namespace probe;

namespace {

class Render : public EngineTest {
protected:
    void Run(int numSamples = 64) { engine.Render({left, right}, numSamples); }
    float left[kMaxFrames] = {};
    float right[kMaxFrames] = {};
};

TEST_F(Render, MonophonicChainRunsOnceAndPolyphonicChainEveryVoiceAscending) {
    engine.SetVoiceCount(4, false);
    int knob = Add(kMonoSource), monoAmp = Add(kPass), monoOut = WorkingOutput();
    int osc = Add(kPolySource), polyAmp = Add(kPass), polyOut = WorkingOutput();
    Chain({knob, monoAmp, monoOut});
    Chain({osc, polyAmp, polyOut});
    Run(32);
    for (int slot : {knob, monoAmp, monoOut}) EXPECT_EQ(VoicesOf("Work", slot), std::vector<int>{0}) << slot;
    for (int slot : {osc, polyAmp, polyOut}) EXPECT_EQ(VoicesOf("Work", slot), (std::vector<int>{0, 1, 2, 3})) << slot;
    const CAudioBlock& a = *engine.blocks[monoAmp];
    for (int v = 1; v < 4; ++v) EXPECT_TRUE(a.active[v] == 1 && a.output[v][31] == a.output[0][31]) << v;
    EXPECT_FLOAT_EQ(a.output[3][0], knob * 0.001f) << "rows are copies of voice 0, not of voice 3";
    EXPECT_FLOAT_EQ(engine.blocks[polyAmp]->output[2][5], (osc + 2) * 0.001f);
}

TEST_F(Render, PortsSumAllWiresAndKnowSilentFromUnwired) {
    // A port read in place points at a lone source's row and takes a row of its own for a
    // sum; either way it reads as the copying port does, buffer after buffer.
    for (bool inPlace : {false, true}) {
        engine.ClearPatch();
        engine.SetVoiceCount(4, false);
        int x = Add(kPolySource), y = Add(kPolySource), amp = Add(kPass);
        engine.Connect(x, amp, 0);
        engine.Connect(y, amp, 0);
        Chain({amp, WorkingOutput()});
        const InputPort& port = *engine.blocks[amp]->ports[0];
        engine.blocks[amp]->ports[0]->readsInPlace = inPlace;
        At(x).muted[3] = At(y).muted[3] = At(y).muted[1] = true;
        Run();
        EXPECT_FLOAT_EQ(port.Row(0)[0], (x + y) * 0.001f);
        EXPECT_FLOAT_EQ(port.Row(1)[0], (x + 1) * 0.001f);
        EXPECT_EQ(port.Row(1) == engine.blocks[x]->output[1], inPlace) << "a lone source is read, not copied";
        EXPECT_EQ(port.Row(0), port.buffer[0]) << "a sum has its own row";
        EXPECT_FLOAT_EQ(engine.blocks[amp]->output[1][0], (x + 1) * 0.001f);
        EXPECT_TRUE(port.hasConnection);
        EXPECT_EQ(port.written[3], 0) << "wired, but silent in voice 3";
        EXPECT_EQ(engine.blocks[amp]->active[3], 0);
        EXPECT_FALSE(engine.blocks[amp]->ports[1]->hasConnection);
        // The next buffer voice 1 gets y too: its row must stop pointing at x's.
        At(y).muted[1] = false;
        Run();
        EXPECT_FLOAT_EQ(engine.blocks[amp]->output[1][0], (x + y + 2) * 0.001f);
        EXPECT_EQ(port.Row(1), port.buffer[1]);
    }
}

TEST_F(Render, WiresCountWhereverTheyLieInTheTable) {
    // The per-buffer walk stops after the highest entry in use: a wire made after others
    // that are gone since, and the first wire after a cleared patch, must both count.
    engine.SetVoiceCount(2, false);
    int x = Add(kPolySource), amp = Add(kPass);
    std::vector<Connection*> earlier;
    for (int k = 0; k < 10; ++k) earlier.push_back(engine.Connect(x, Add(kPass), 0));
    Chain({x, amp, WorkingOutput()});
    for (Connection* c : earlier) engine.Disconnect(c);
    Run();
    EXPECT_FLOAT_EQ(engine.blocks[amp]->ports[0]->buffer[1][0], (x + 1) * 0.001f);

    engine.ClearPatch();
    x = Add(kPolySource), amp = Add(kPass);
    Chain({x, amp, WorkingOutput()});
    Run();
    EXPECT_FLOAT_EQ(engine.blocks[amp]->ports[0]->buffer[1][0], (x + 1) * 0.001f);
}

TEST_F(Render, VoiceSilentInEveryOutputIsRetired) {
    engine.SetVoiceCount(4, false);
    int osc = Add(kPolySource);
    Chain({osc, WorkingOutput()});
    for (int note : {60, 61, 62, 63}) engine.PressKey(note, 100);
    At(osc).muted[2] = true;
    Run();
    EXPECT_EQ(engine.voiceActive[2], 0);
    EXPECT_EQ(engine.voiceActive[1], 1);
    EXPECT_EQ(engine.noteHeld[engine.voiceNote[2]], 1) << "the key stays down";
}

TEST_F(Render, MasterStageRunsChorusDelayReverbInOrderWithoutOutputWorkAndNotAtAllForBadSizes) {
    // Reference effects beside the engine's, fed the same rows by hand in the fixed order.
    MasterChorus chorus(44100.0f);
    MasterDelay delay(44100.0f);
    MasterReverb::Reverb reverb(44100.0f);
    chorus.wet = engine.chorus->wet = 0.5f;
    engine.reverbOn = engine.delayOn = engine.chorusOn = true;
    int osc = Add(kPolySource), out = Add(kOutput);
    Chain({osc, out});
    float refLeft[kMaxFrames], refRight[kMaxFrames];
    auto fill = [&](int call) {
        for (int i = 0; i < kMaxFrames; ++i) {
            left[i] = refLeft[i] = 1000.0f * float((i * 7 + call * 3) % 13) - 6000.0f;
            right[i] = refRight[i] = 800.0f * float((i * 5 + call) % 11) - 4000.0f;
        }
    };
    for (int call = 0; call < 400; ++call) {  // past the delay's and the reverb's lengths
        fill(call);
        Run(kMaxFrames);
        chorus.Process({refLeft, refRight}, kMaxFrames);
        delay.Process({refLeft, refRight}, kMaxFrames);
        reverb.Process({refLeft, refRight}, {refLeft, refRight}, kMaxFrames);
    }
    EXPECT_TRUE(VoicesOf("Work", osc).empty()) << "no output work, the graph stands still";
    for (int i = 0; i < kMaxFrames; ++i) {
        ASSERT_EQ(left[i], refLeft[i]) << i;
        ASSERT_EQ(right[i], refRight[i]) << i;
    }

    engine.delayOn = false;
    fill(0);
    Run(kMaxFrames);
    chorus.Process({refLeft, refRight}, kMaxFrames);
    reverb.Process({refLeft, refRight}, {refLeft, refRight}, kMaxFrames);
    EXPECT_EQ(left[100], refLeft[100]) << "a stage switched off is skipped, the others still run";

    At(out).hasOutputWork = true;
    Calls().clear();
    left[0] = 0.0f;
    for (int n : {0, -5, kMaxFrames + 1}) Run(n);
    EXPECT_TRUE(Calls().empty() && left[0] == 0.0f) << "bad sizes touch nothing";
}

TEST_F(Render, GlidesAdvanceOnlyWhileTheGraphRuns) {
    int out = Add(kOutput);
    Chain({Add(kPolySource), out});
    engine.SetPortamento(0.5f);
    engine.PressKey(60, 100);
    Run(64);
    EXPECT_EQ(engine.portamentoPosition[0], 0.0f) << "no output work, no glide";
    At(out).hasOutputWork = true;
    Run(64);
    EXPECT_FLOAT_EQ(engine.portamentoPosition[0], 64.0f * engine.portamentoRate);
}

TEST_F(Render, NotesAndRendersAfterClearPatchFindAnEmptyOrder) {
    engine.SetVoiceCount(2, false);
    Chain({Add(kPolySource), WorkingOutput()});
    engine.PressKey(60, 100);
    engine.ClearPatch();
    EXPECT_EQ(engine.orderCount, 0);
    engine.PressKey(62, 100);
    engine.ReleaseKey(60);
    Run();
    const int out = WorkingOutput();
    Chain({Add(kPolySource), out});
    Calls().clear();
    Run();
    EXPECT_EQ(CallsOf("Work", out).size(), 2u) << "a patch built afterwards runs";
}

}  // namespace
