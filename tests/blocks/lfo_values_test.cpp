// Control sources: LFO rate and shape measured from rendered rows, its silent and stale
// cases, random holds, knob laws, velocity glide, key tracking and the engine's wheels.
#include "blocks/lfo_values.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <set>
#include <vector>

#include "blocks/block_harness.h"
#include "document/block_types.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;
// A low rate keeps the slowest LFO's cycles to a few hundred sample blocks.
constexpr float kSlowRate = 8000.0f;

std::vector<float> RenderLfo(CLFOBlock& lfo, int samples) {
    std::vector<float> rows;
    for (int done = 0; done < samples; done += kMaxFrames) {
        Step(lfo, kMaxFrames);
        rows.insert(rows.end(), lfo.output[0], lfo.output[0] + kMaxFrames);
    }
    return rows;
}
}  // namespace

TEST(ControlSourcesTable, NamesCategoriesAndPolyphony) {
    struct Row {
        int type;
        const char* name;
        int parameters, ports;
        bool polyFromShared;  // IsPolyphonic(false)
    };
    for (const Row& row :
         {Row{3, "LFO", 3, 2, false}, Row{35, "|Random", 0, 0, true}, Row{8, "Knob", 1, 0, false},
          Row{13, "ExtKnob T", 1, 0, false}, Row{31, "ExtKnob T", 1, 0, false},
          Row{17, "|Velocity", 0, 0, true}, Row{33, "|Keytrack", 128, 0, true},
          Row{48, "|Aftertouch", 0, 0, false}, Row{47, "|ModWheel", 0, 0, false}}) {
        std::unique_ptr<CAudioBlock> block(CreateBlock(Engine(), row.type, kRate));
        ASSERT_TRUE(block) << row.type;
        EXPECT_EQ(block->name, row.name);
        EXPECT_EQ(block->numParameters, row.parameters) << row.name;
        EXPECT_EQ(block->numPorts, row.ports) << row.name;
        EXPECT_EQ(block->category, kCategoryControllers) << row.name;
        EXPECT_EQ(block->IsPolyphonic(false), row.polyFromShared) << row.name;
        EXPECT_FALSE(block->hasAudioInput) << row.name;
    }
}

TEST(ExternalKnobs, EachTypeCarriesItsKnobNumber) {
    const int types[] = {13, 14, 15, 16, 28, 29, 30, 31};
    for (int k = 0; k < 8; ++k) {
        std::unique_ptr<CAudioBlock> block(CreateBlock(Engine(), types[k], kRate));
        auto* knob = dynamic_cast<CExtKnobBlock*>(block.get());
        ASSERT_TRUE(knob) << types[k];
        EXPECT_EQ(knob->knobNumber, types[k]);
        EXPECT_EQ(ExternalKnobIndex(types[k]), k);
    }
}

TEST(LfoRate, MeasuredFrequencyAtBottomDefaultAndTop) {
    struct Case {
        float stored;
        double hertz;
    };
    for (const Case& c : {Case{0.0f, 0.21484375}, Case{0.6f, 1.71875}, Case{1.0f, 6.875}}) {
        CLFOBlock lfo(&Engine(), kSlowRate);
        lfo.SetParameter(0, c.stored);
        lfo.SetParameter(1, 1.0f);
        lfo.SetParameter(2, 0.0f);  // sine
        const int samples = int(kSlowRate * 3.5 / c.hertz);
        const double measured = MeasureFrequency(RenderLfo(lfo, samples), kSlowRate);
        EXPECT_NEAR(measured, c.hertz, c.hertz * 0.005) << c.stored;
    }
    CLFOBlock lfo(&Engine(), kRate);
    EXPECT_EQ(lfo.DescribeValue(0, 0.6f), "1.72Hz");
    EXPECT_EQ(lfo.DescribeValue(1, 0.5f), "50%");
}

TEST(LfoShape, EachWaveformHasItsSignature) {
    // Over whole cycles: the sine peaks at the amplitude, the pulse holds two levels, the
    // saw spends equal time everywhere and jumps once a cycle, the triangle never jumps.
    struct Case {
        float stored;
        const char* shape;
    };
    for (const Case& c :
         {Case{0.0f, "sine"}, Case{0.33f, "triangle"}, Case{0.66f, "saw"}, Case{1.0f, "pulse"}}) {
        CLFOBlock lfo(&Engine(), kSlowRate);
        lfo.SetParameter(0, 1.0f);
        lfo.SetParameter(1, 0.5f);  // amplitude 0.25
        lfo.SetParameter(2, c.stored);
        const std::vector<float> x = RenderLfo(lfo, int(kSlowRate * 2));
        float maxStep = 0.0f, peak = 0.0f;
        std::set<float> levels;
        for (size_t i = 1; i < x.size(); ++i) {
            maxStep = std::max(maxStep, std::fabs(x[i] - x[i - 1]));
            peak = std::max(peak, std::fabs(x[i]));
            levels.insert(x[i]);
        }
        SCOPED_TRACE(c.shape);
        EXPECT_NEAR(peak, 0.25f, 0.02f);
        if (c.stored == 0.0f || c.stored == 0.33f) {
            EXPECT_LT(maxStep, 0.01f);
        }
        if (c.stored == 0.66f) {
            EXPECT_GT(maxStep, 0.3f);
        }
        if (c.stored == 1.0f) {
            EXPECT_LE(levels.size(), 24u);  // two levels and the table's band-limited edges
        }
    }
}

TEST(LfoActivity, SilentAmpIsInactiveAndASilentPortKeepsTheStaleRow) {
    CLFOBlock lfo(&Engine(), kRate);
    lfo.SetParameter(1, 0.0f);
    Step(lfo, 64);
    EXPECT_EQ(lfo.active[0], 0);
    WireSilent(lfo, 1);
    Step(lfo, 64, 1, [&] { WireSilent(lfo, 1); });
    EXPECT_EQ(lfo.active[0], 0);

    lfo.SetParameter(1, 1.0f);
    Step(lfo, 64, 1, [&] { Feed(lfo, 1, 0, 64, Const(1.0f)); });
    ASSERT_EQ(lfo.active[0], 1);
    const std::vector<float> before(lfo.output[0], lfo.output[0] + 64);
    Step(lfo, 64, 1, [&] { WireSilent(lfo, 1); });
    EXPECT_EQ(lfo.active[0], 1);
    EXPECT_EQ(std::vector<float>(lfo.output[0], lfo.output[0] + 64), before);
}

TEST(LfoFrequencyPort, OneAddsTwoToTheNineteenthPerSample) {
    CLFOBlock plain(&Engine(), kRate), pushed(&Engine(), kRate);
    Step(plain, 100);
    Step(pushed, 100, 1, [&] { Feed(pushed, 0, 0, 100, Const(1.0f)); });
    EXPECT_EQ(pushed.phase[0] - plain.phase[0], 100u * 524288u);
}

TEST(RandomSource, HoldsPerVoiceUntilTheNextNote) {
    CRandomBlock random(&Engine(), kRate);
    Step(random, 16, 2);
    EXPECT_EQ(random.output[1][0], 0.0f);  // never had a note
    std::set<float> drawn;
    for (int note = 0; note < 50; ++note) {
        random.NoteOn(100, 0);
        Step(random, 16);
        const float v = random.output[0][0];
        EXPECT_GE(v, -1.0f);
        EXPECT_LE(v, 1.0f);
        EXPECT_EQ(random.output[0][15], v);
        drawn.insert(v);
        random.NoteOff(0);
        Step(random, 16);
        EXPECT_EQ(random.output[0][0], v);
    }
    EXPECT_GT(drawn.size(), 45u);
    EXPECT_LT(*drawn.begin(), -0.5f);
    EXPECT_GT(*drawn.rbegin(), 0.5f);
}

TEST(KnobLaw, DisplayIsStraightAndOutputASignedSquare) {
    struct Case {
        float stored, sent;
        const char* text;
    };
    for (int type : {8, 13, 29}) {
        std::unique_ptr<CAudioBlock> knob(CreateBlock(Engine(), type, kRate));
        for (const Case& c : {Case{0.5f, 0.0f, "0"}, Case{0.0f, -1.0f, "-1"}, Case{1.0f, 1.0f, "1"},
                              Case{0.75f, 0.25f, "0.5"}, Case{0.25f, -0.25f, "-0.5"}}) {
            knob->SetParameter(0, c.stored);
            Step(*knob, 8);
            EXPECT_EQ(knob->output[0][7], c.sent) << type << " " << c.stored;
            EXPECT_EQ(knob->active[0], 1);
            EXPECT_EQ(knob->DescribeValue(0, c.stored), c.text);
        }
    }
}

TEST(VelocitySource, SquareLawGlidingOverFortySamples) {
    CVelocityBlock velocity(&Engine(), kRate);
    velocity.NoteOn(127, 0);
    Step(velocity, 64);
    EXPECT_NEAR(velocity.output[0][0], 0.025f, 1e-6f);
    EXPECT_LT(velocity.output[0][38], 1.0f);
    EXPECT_NEAR(velocity.output[0][39], 1.0f, 1e-5f);
    EXPECT_EQ(velocity.output[0][63], velocity.output[0][39]);
    // The next note glides from where the last one stands.
    velocity.NoteOn(64, 0);
    Step(velocity, 64);
    const float target = (64.0f / 127.0f) * (64.0f / 127.0f);
    EXPECT_GT(velocity.output[0][0], 0.9f);
    EXPECT_NEAR(velocity.output[0][63], target, 1e-5f);
}

TEST(KeyTracking, StepsByKeyFollowsTheDrawnCurveAndClampsTheEnds) {
    CKeyTrackBlock keys(&Engine(), kRate);
    struct Case {
        float pitch, expected;
    };
    for (const Case& c : {Case{0.0f, -1.0f}, Case{127.0f, 1.0f}, Case{70.6f, 70.0f / 127.0f * 2.0f - 1.0f},
                          Case{-1.0f, -1.0f}, Case{300.0f, 1.0f}, Case{NAN, -1.0f}}) {
        keys.SetNote(c.pitch, 100.0f, 3);
        Step(keys, 4, 4);
        EXPECT_NEAR(keys.output[3][3], c.expected, 1e-6f) << c.pitch;
    }
    // Two voices on two notes; redrawing a key acts at once on the voice holding it.
    keys.SetNote(60.0f, 100.0f, 0);
    keys.SetNote(72.0f, 100.0f, 1);
    keys.SetParameter(72, 0.5f);
    Step(keys, 4, 2);
    EXPECT_NEAR(keys.output[0][0], 60.0f / 127.0f * 2.0f - 1.0f, 1e-6f);
    EXPECT_EQ(keys.output[1][0], 0.0f);
}

TEST(EngineWheels, AftertouchAndModWheelTakeTheEngineValuePerBlock) {
    VrokInstance& engine = Engine();
    CAftertouchBlock pressure(&engine, kRate);
    CModWheelBlock wheel(&engine, kRate);
    EXPECT_TRUE(pressure.monophonic && wheel.monophonic);
    engine.aftertouch = 0.25f;
    engine.modWheel = 0.75f;
    Step(pressure, 8);
    Step(wheel, 8);
    // A change after PrepareBlock waits for the next block.
    engine.aftertouch = 1.0f;
    pressure.Work(0, 8);
    EXPECT_EQ(pressure.output[0][7], 0.25f);
    EXPECT_EQ(wheel.output[0][7], 0.75f);
    Step(pressure, 8);
    EXPECT_EQ(pressure.output[0][0], 1.0f);
    engine.aftertouch = 0.0f;
    engine.modWheel = 0.0f;
}
