// The three envelopes: stage lengths measured from rendered rows, retriggers, the voice an
// ended envelope frees in the engine, the drawn curves and the custom curve's loop rules.
#include "blocks/envelopes.h"

#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "blocks/block_harness.h"
#include "document/block_types.h"
#include "engine/value_format.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;

// Renders `numSamples` samples of voice 0 in blocks of kMaxFrames; an inactive block counts
// as a row of NaN so that "silent" is told apart from "zeros".
std::vector<float> Render(CAudioBlock& block, int numSamples) {
    std::vector<float> row;
    while (int(row.size()) < numSamples) {
        const int n = std::min(kMaxFrames, numSamples - int(row.size()));
        Step(block, n);
        for (int i = 0; i < n; ++i) row.push_back(block.active[0] ? block.output[0][i] : NAN);
    }
    return row;
}

// Index of the first sample from which the row stays at its final value.
int SettlesAt(const std::vector<float>& row) {
    int i = int(row.size()) - 1;
    while (i > 0 && row[i - 1] == row.back()) --i;
    return i;
}

int Samples(float value) { return EnvelopeLengthSamples(value, kRate); }
}  // namespace

TEST(EnvelopesTable, NamesPortsAndPolyphony) {
    struct Row {
        int type;
        const char* name;
        int parameters, ports;
    };
    for (const Row& row : {Row{2, "|Envelope", 5, 0}, Row{55, "|Advanced Envelope", 18, 5},
                           Row{23, "|Custom Envelope", 196, 1}}) {
        std::unique_ptr<CAudioBlock> block(CreateBlock(Engine(), row.type, kRate));
        ASSERT_TRUE(block) << row.type;
        EXPECT_EQ(block->name, row.name);
        EXPECT_EQ(block->numParameters, row.parameters) << row.name;
        EXPECT_EQ(block->numPorts, row.ports) << row.name;
        EXPECT_EQ(block->category, kCategoryControllers) << row.name;
        EXPECT_TRUE(block->IsPolyphonic(false)) << row.name;
    }
}

TEST(EnvelopesText, TimesPercentagesAndSustainDecay) {
    CEnvelopeBlock envelope(&Engine(), kRate);
    EXPECT_EQ(envelope.DescribeValue(0, 0.0f), "1ms");
    EXPECT_EQ(envelope.DescribeValue(3, 1.0f), "6000ms");
    EXPECT_EQ(envelope.DescribeValue(2, 0.3f), "30%");
    EXPECT_EQ(envelope.DescribeValue(4, 0.25f), "-50%");
    CAdvancedEnvelope advanced(&Engine(), kRate);
    EXPECT_EQ(advanced.DescribeValue(13, 0.5f), "off");
    EXPECT_EQ(advanced.DescribeValue(13, 0.0f), "fall in 1ms");
    EXPECT_EQ(advanced.DescribeValue(13, 0.75f), "rise in " + FormatEnvelopeTime(0.5f, kRate));
    EXPECT_EQ(advanced.DescribeValue(4, 0.0f), "-100%");
    EXPECT_EQ(advanced.DescribeValue(6, 0.3f), "");
    CCustomEnvelopeBlock custom(&Engine(), kRate);
    EXPECT_EQ(custom.DescribeValue(0, 0.6f), "60%");
    EXPECT_EQ(custom.DescribeValue(100, 0.6f), "");
}

TEST(EnvelopesWork, StageLengthsFromRenderedRows) {
    CEnvelopeBlock envelope(&Engine(), kRate);
    envelope.SetParameter(0, 0.0f);  // 64 samples, never less
    envelope.SetParameter(1, 0.1f);
    envelope.SetParameter(2, 0.5f);
    envelope.SetParameter(3, 0.15f);
    Step(envelope, 16);
    EXPECT_EQ(envelope.active[0], 0) << "idle before any note";
    envelope.NoteOn(100, 0);
    const int attack = 64, decay = Samples(0.1f), release = Samples(0.15f);
    const std::vector<float> held = Render(envelope, attack + decay + 300);
    EXPECT_NEAR(held[attack - 1], 1.0f, 1e-5f) << "peak at the attack's last sample";
    EXPECT_LT(held[attack - 2], held[attack - 1]);
    EXPECT_LT(held[attack], held[attack - 1]) << "decay starts right after";
    EXPECT_EQ(SettlesAt(held), attack + decay - 1) << "sustain from the decay's last sample on";
    // The level is where the additions left it, not snapped to 0.5.
    EXPECT_NEAR(held.back(), 0.5f, 1e-4f);
    envelope.NoteOff(0);
    const std::vector<float> tail = Render(envelope, release + 300);
    EXPECT_GT(tail[release - 2], 0.0f);
    EXPECT_EQ(tail[release - 1], 0.0f) << "release ends on its last sample";
    EXPECT_TRUE(std::isnan(tail[release + 260])) << "idle envelope leaves the voice inactive";
}

TEST(EnvelopesWork, SustainAtOrNearZeroEndsTheVoiceAfterDecay) {
    for (float sustain : {0.0f, 0.0005f}) {
        CEnvelopeBlock envelope(&Engine(), kRate);
        envelope.SetParameter(1, 0.0f);
        envelope.SetParameter(2, sustain);
        envelope.NoteOn(127, 0);
        const std::vector<float> row = Render(envelope, 3 * kMaxFrames);
        EXPECT_EQ(row[127], 0.0f) << sustain << ": the decay's last sample is the end";
        EXPECT_GT(row[126], 0.0f) << sustain;
        EXPECT_TRUE(std::isnan(row[2 * kMaxFrames])) << sustain << ": no release, the voice is over";
    }
}

TEST(EnvelopesWork, RetriggerRisesFromThePresentLevelOverTheFullAttack) {
    CEnvelopeBlock envelope(&Engine(), kRate);
    envelope.SetParameter(0, 0.2f);
    envelope.SetParameter(2, 0.6f);
    envelope.NoteOn(100, 0);
    Render(envelope, 20000);
    envelope.NoteOff(0);
    const float before = Render(envelope, 1000).back();
    ASSERT_GT(before, 0.1f);
    envelope.NoteOn(100, 0);
    const int attack = Samples(0.2f);
    const std::vector<float> row = Render(envelope, attack + 10);
    EXPECT_NEAR(row[0], before + (1.0f - before) / float(attack), 1e-6f) << "no jump";
    EXPECT_NEAR(row[attack - 1], 1.0f, 1e-4f);
    EXPECT_LT(row[attack - 2], row[attack - 1]);
}

TEST(EnvelopesWork, RenderedRunsMatchSampleBySampleSteps) {
    const float attack = 0.0f, decay = 0.05f, sustain = 0.4f, release = 0.03f;
    EnvelopeState runs, steps;
    for (EnvelopeState* s : {&runs, &steps}) {
        s->rate = kRate, s->attack = &attack, s->decay = &decay, s->sustain = &sustain, s->release = &release;
        s->Start();
    }
    // Odd block lengths put stage ends anywhere in a block; a release and a retrigger on the way.
    float row[kMaxFrames];
    for (int b = 0; b < 60; ++b) {
        if (b == 20) runs.Release(), steps.Release();
        if (b == 23) runs.Start(), steps.Start();
        if (b == 40) runs.Release(), steps.Release();
        const int n = 1 + (b * 37) % kMaxFrames;
        runs.Render(row, n);
        for (int i = 0; i < n; ++i) {
            const float expected = steps.stage == kStageIdle ? 0.0f : steps.Step();
            ASSERT_EQ(row[i], expected) << "block " << b << " sample " << i;
        }
        ASSERT_EQ(runs.stage, steps.stage) << b;
        ASSERT_EQ(runs.remaining, steps.remaining) << b;
    }
    EXPECT_EQ(runs.stage, kStageIdle);
}

TEST(EnvelopesWork, MonophonicNotesDriveTheSharedState) {
    CEnvelopeBlock envelope(&Engine(), kRate);
    envelope.monophonic = true;
    envelope.NoteOn(100, 5);
    EXPECT_EQ(envelope.states[0].stage, kStageAttack);
    EXPECT_EQ(envelope.states[5].stage, kStageIdle);
    envelope.NoteOff(9);
    EXPECT_EQ(envelope.states[0].stage, kStageRelease) << "every sounding state is released";
}

TEST(EnvelopesWork, VoicesRenderedTogetherMatchVoicesRenderedAlone) {
    constexpr int kVoices = 7;
    CEnvelopeBlock together(&Engine(kVoices), kRate);
    std::vector<std::unique_ptr<CEnvelopeBlock>> alone;
    for (int v = 0; v < kVoices; ++v)
        alone.push_back(std::make_unique<CEnvelopeBlock>(&Engine(kVoices), kRate));
    auto each = [&](auto&& action) {
        action(together, -1);
        for (int v = 0; v < kVoices; ++v) action(*alone[v], v);
    };
    each([](CEnvelopeBlock& e, int) {
        e.SetParameter(0, 0.05f);
        e.SetParameter(1, 0.1f);
        e.SetParameter(2, 0.4f);
        e.SetParameter(3, 0.12f);
    });
    for (int b = 0; b < 40; ++b) {
        const int n = b % 5 == 2 ? 101 : kMaxFrames;
        for (int v = 0; v < kVoices; ++v) {
            // Staggered notes, retriggers during release, and releases during attack.
            if (b == v || b == 20 + v) together.NoteOn(100, v), alone[v]->NoteOn(100, 0);
            if (b == v + 6 || b == 21 + v) together.NoteOff(v), alone[v]->NoteOff(0);
        }
        if (b == 25) each([](CEnvelopeBlock& e, int) { e.SetParameter(2, 0.0f); });
        Step(together, n, kVoices);
        for (int v = 0; v < kVoices; ++v) {
            Step(*alone[v], n, 1);
            ASSERT_EQ(together.active[v], alone[v]->active[0]) << v << " " << b;
            if (!together.active[v]) continue;
            for (int i = 0; i < n; ++i)
                ASSERT_EQ(together.output[v][i], alone[v]->output[0][i])
                    << "voice " << v << " block " << b << " " << i;
        }
    }
    Engine(1);
}

TEST(EnvelopesEngine, VoiceGoesFreeWhenItsEnvelopeEnds) {
    VrokInstance engine(CreateBlock);
    int osc, filter, amp, env, out;
    engine.InsertBlock(4, -1, &osc);
    engine.InsertBlock(1, -1, &filter);
    engine.InsertBlock(6, -1, &amp);
    engine.InsertBlock(2, -1, &env);
    engine.InsertBlock(0, -1, &out);
    engine.Connect(osc, filter, 0);
    engine.Connect(filter, amp, 0);
    engine.Connect(env, amp, 1);
    engine.Connect(amp, out, 0);
    engine.RebuildOrder();
    engine.SetVoiceCount(16, false);
    CAudioBlock& envelope = *engine.blocks[env];
    envelope.SetParameter(1, 0.0f);  // decay 64 samples
    envelope.SetParameter(2, 0.0f);  // no sustain: the note ends with its key down
    envelope.SetParameter(3, 0.0f);
    float left[kMaxFrames], right[kMaxFrames];
    auto render = [&] {
        std::fill_n(left, kMaxFrames, 0.0f), std::fill_n(right, kMaxFrames, 0.0f);
        engine.Render({left, right}, kMaxFrames);
    };
    for (int v = 0; v < 16; ++v) engine.PressKey(40 + v, 100);
    render();
    for (int v = 0; v < 16; ++v) EXPECT_EQ(engine.voiceActive[v], 1) << v << " sounds during its attack";
    render();
    for (int v = 0; v < 16; ++v) {
        EXPECT_EQ(engine.voiceActive[v], 0) << v << " is free though its key is down";
        EXPECT_EQ(engine.blocks[amp]->active[v], 0) << v;
    }
    // The freed voices take new notes; released ones end after their release.
    envelope.SetParameter(2, 0.5f);
    for (int v = 0; v < 16; ++v) engine.PressKey(60 + v, 100);
    render();
    for (int v = 0; v < 16; ++v) EXPECT_EQ(engine.voiceActive[v], 1) << v;
    for (int v = 0; v < 16; ++v) engine.ReleaseKey(60 + v);
    render();
    render();
    for (int v = 0; v < 16; ++v) EXPECT_EQ(engine.blocks[out]->active[v], 0) << v << " tail over";
    for (int i = 0; i < kMaxFrames; ++i) ASSERT_EQ(left[i], 0.0f) << i;
}

TEST(EnvelopeCurves, RasterisedChordsFollowTheCurve) {
    float table[kCurveSize + 1] = {};
    // Control points on the diagonal make the cubic a straight line.
    RasteriseCurve({{0, 0}, {1 / 3.0f, 1 / 3.0f}, {2 / 3.0f, 2 / 3.0f}, {1, 1}}, table);
    // Each chord starts its steps at the entry below its left end: up to one entry late.
    for (int j = 0; j < kCurveSize; j += 31) EXPECT_NEAR(table[j], j / 1024.0f, 1.0f / 1024.0f) << j;
    EXPECT_EQ(table[kCurveSize], table[kCurveSize - 1]) << "guard entry";
    EXPECT_NEAR(ReadCurve(table, 0.5f), 0.5f * 1023.0f / 1024.0f, 1.0f / 1024.0f);
    EXPECT_EQ(ReadCurve(table, 1.02f), table[kCurveSize - 1]) << "past the end holds the last entry";
    // Only a stage of undefined length runs backwards; it reads the first entry.
    EXPECT_EQ(ReadCurve(table, -0.5f), table[0]);
    EXPECT_EQ(ReadCurve(table, NAN), table[0]);
    // A curve that never reaches x > 0 leaves the table as it was.
    float untouched[kCurveSize + 1];
    std::fill(std::begin(untouched), std::end(untouched), 7.0f);
    RasteriseCurve({{0, 0}, {0, 0.5f}, {0, 0.7f}, {0, 1}}, untouched);
    EXPECT_EQ(untouched[10], 7.0f);
}

TEST(AdvancedEnvelopeWork, StagesRatesAndSustainDrift) {
    CAdvancedEnvelope envelope(&Engine(), kRate);
    envelope.SetParameter(0, 0.0f);   // attack 64 samples
    envelope.SetParameter(1, 0.0f);   // decay 64
    envelope.SetParameter(2, 0.25f);  // sustain
    envelope.NoteOn(100, 0);
    std::vector<float> row = Render(envelope, 1024);
    EXPECT_EQ(row[0], 0.0f) << "the attack curve starts at 0";
    EXPECT_NEAR(row[127], 0.25f, 0.02f) << "decay ends at the sustain level";
    EXPECT_EQ(row[600], 0.25f) << "sustain decay 0.5 holds for ever";
    // At "Sustain decay" 0 the level falls by 1/64 per sample and the voice ends.
    envelope.SetParameter(13, 0.0f);
    envelope.NoteOn(100, 0);
    row = Render(envelope, 512);
    const int start = 128;
    EXPECT_NEAR(row[start] - row[start + 1], 1.0f / 64.0f, 1e-6f);
    EXPECT_EQ(row[start + 20], 0.0f) << "zeros once the drift reaches 0";
    EXPECT_TRUE(std::isnan(Render(envelope, 16)[0])) << "then idle";
}

TEST(AdvancedEnvelopeWork, AmountScalesAndPortFourMultiplies) {
    CAdvancedEnvelope envelope(&Engine(), kRate);
    envelope.SetParameter(4, 0.25f);  // amount -0.5
    envelope.SetParameter(0, 0.0f);
    envelope.NoteOn(100, 0);
    Step(envelope, 64, 1, [&] { Feed(envelope, 4, 0, 64, Const(2.0f)); });
    CAdvancedEnvelope plain(&Engine(), kRate);
    plain.SetParameter(0, 0.0f);
    plain.NoteOn(100, 0);
    Step(plain, 64);
    for (int i = 0; i < 64; i += 7) EXPECT_FLOAT_EQ(envelope.output[0][i], -plain.output[0][i]) << i;
    // A retrigger jumps back to the start of the attack curve.
    plain.NoteOn(100, 0);
    Step(plain, 4);
    EXPECT_EQ(plain.output[0][0], 0.0f);
}

TEST(CustomEnvelopeWork, SpeedLoopSustainAndWrap) {
    CCustomEnvelopeBlock custom(&Engine(), kRate);
    custom.SetParameter(0, 1.0f);  // 192 points in 960 samples
    custom.SetParameter(1, 0.0f);
    custom.SetParameter(2, 0.0f);
    for (int j = 0; j < 192; ++j) custom.SetParameter(4 + j, j < 191 ? j / 191.0f : 0.5f);
    EXPECT_EQ(custom.curve[192], custom.curve[0]) << "wrap point";
    custom.NoteOn(100, 0);
    std::vector<float> row = Render(custom, 1200);
    EXPECT_NEAR(row[479], -1.0f + 2.0f * 96.0f / 191.0f, 1e-3f) << "half way after 480 samples";
    EXPECT_EQ(row[1000], 0.0f) << "ended: the last point, which is 0";
    EXPECT_TRUE(std::isnan(Render(custom, 16)[0])) << "an end at exactly 0 is silent";
    // Loop and sustain together: held at the sustain point until NoteOff, then looping.
    custom.SetParameter(1, 1.0f);
    custom.SetParameter(2, 1.0f);
    custom.SetParameter(3, 0.25f);  // point 48
    custom.NoteOn(100, 0);
    Render(custom, 512);
    row = Render(custom, 256);
    EXPECT_EQ(row[0], custom.curve[48]);
    EXPECT_EQ(row[255], custom.curve[48]);
    custom.NoteOff(0);
    row = Render(custom, 5000);
    EXPECT_EQ(custom.stage[0], 3) << "released and looping, never idle";
    EXPECT_FALSE(std::isnan(row.back()));
    // Out-of-range point values are clamped in place.
    custom.values[10] = 3.0f;
    custom.ParameterChanged(10);
    EXPECT_EQ(custom.values[10], 1.0f);
    EXPECT_EQ(custom.curve[6], 1.0f);
}

TEST(CustomEnvelopeEdges, NotANumberSpeedNeverReadsOutsideTheCurve) {
    CCustomEnvelopeBlock custom(&Engine(), kRate);
    custom.NoteOn(100, 0);
    for (int b = 0; b < 4; ++b) Step(custom, 64, 1, [&] { Feed(custom, 0, 0, 64, Const(NAN)); });
    EXPECT_EQ(custom.active[0], 1);
}
