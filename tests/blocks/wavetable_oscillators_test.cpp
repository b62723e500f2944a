// The table oscillators and the Monophone: tuning, table choice, silence rules, texts.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <memory>
#include <vector>

#include "blocks/block_harness.h"
#include "blocks/wavetable_oscillators.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;

// `blocks` sample blocks of voice 0, end to end.
std::vector<float> Render(CAudioBlock& osc, int blocks) {
    std::vector<float> out;
    while (blocks-- > 0) {
        Step(osc, kMaxFrames);
        out.insert(out.end(), osc.output[0], osc.output[0] + kMaxFrames);
    }
    return out;
}
}  // namespace

TEST(OscParameters, WaveformRoundingPolyphonyAndTexts) {
    COscBlock osc(&Engine(), kRate);
    // 0.5 * 3 = 1.5 rounds to the even 2.
    const std::pair<float, int> rounding[] = {{0.0f, 0}, {0.5f, 2}, {0.7f, 2}, {0.9f, 3}, {1.0f, 3}};
    for (auto [value, index] : rounding) {
        osc.SetParameter(2, value);
        EXPECT_EQ(osc.waveform, index) << value;
    }
    CFixedOscBlock fixed(&Engine(), kRate);
    EXPECT_TRUE(osc.IsPolyphonic(false) && !fixed.IsPolyphonic(false) && fixed.IsPolyphonic(true));
    EXPECT_EQ(osc.DescribeValue(0, 0.75f), "6") << "semitones";
    EXPECT_EQ(osc.DescribeValue(1, 0.5f), "-12dB") << "decibels of the square";
}

TEST(OscPitch, Note70AtCentreSounds440Hz) {
    std::unique_ptr<CTableOscBase> oscs[] = {std::make_unique<COscBlock>(&Engine(), kRate),
                                             std::make_unique<CSubOscBlock>(&Engine(), kRate)};
    for (auto& osc : oscs) {
        osc->SetParameter(2, 0.0f);  // sine, so every crossing is a period
        osc->SetNote(70.0f, 100.0f, 0);
        EXPECT_NEAR(MeasureFrequency(Render(*osc, 40), kRate), 440.0, 0.01) << osc->name;
        osc->SetParameter(0, 1.0f);  // +12 semitones
        EXPECT_NEAR(MeasureFrequency(Render(*osc, 40), kRate), 880.0, 0.02) << osc->name;
    }
}

TEST(OscPitch, A4IncrementIsTheSinglePrecisionOneBitForBit) {
    COscBlock osc(&Engine(), kRate);
    osc.SetNote(70.0f, 100.0f, 0);
    // 440 / 44100 * 2^32 in single precision; double precision would give 42852281.
    EXPECT_EQ(osc.phaseIncrement[0], 42852280u);
    EXPECT_EQ(PhaseIncrementFor(440.0f, 48000.0f), 39370532u);
}

TEST(OscPitch, PitchPortAndTableClamping) {
    COscBlock osc(&Engine(), kRate);
    const uint32_t increment = osc.phaseIncrement[0];
    const int table = osc.tableIndex[0];
    Step(osc, kMaxFrames, 1, [&] { Feed(osc, 0, 0, kMaxFrames, Const(1.0f)); });
    EXPECT_EQ(osc.phase[0], uint32_t(kMaxFrames * (increment + (1u << 27)))) << "a 32nd of a cycle per unit";
    EXPECT_EQ(osc.tableIndex[0], table) << "the port leaves the table";
    // Within -16..16 the step wraps the phase; beyond, and for NaN, it is half a cycle.
    const std::pair<float, int32_t> steps[] = {{-15.5f, -2080374784}, {-16.0f, INT32_MIN}, {16.0f, INT32_MIN},
                                               {-1e9f, INT32_MIN},    {1e30f, INT32_MIN},  {NAN, INT32_MIN}};
    for (auto [modulation, step] : steps) {
        osc.phase[0] = 0;
        Step(osc, 4, 1, [&] { Feed(osc, 0, 0, 4, Const(modulation)); });
        EXPECT_EQ(osc.phase[0], 4 * (increment + uint32_t(step))) << modulation;
    }

    // The table follows the clamped note; the frequency does not.
    for (auto [voice, note] : {std::pair{0, -20.0f}, {1, 118.0f}, {2, 130.0f}, {4, NAN}})
        osc.SetNote(note, 0.0f, voice);
    EXPECT_EQ(osc.tableIndex[0], 0);
    EXPECT_TRUE(osc.tableIndex[4] == 0 && osc.phaseIncrement[4] == 0) << "a NaN pitch reads table 0 and stands still";
    EXPECT_TRUE(osc.tableIndex[1] == 127 && osc.tableIndex[2] == 127);
    EXPECT_NEAR(double(osc.phaseIncrement[2]) / osc.phaseIncrement[1], 2.0, 1e-6);
    osc.SetParameter(0, 0.75f);  // +6 semitones for every voice
    osc.SetNote(60.7f, 0.0f, 3);
    EXPECT_EQ(osc.tableIndex[3], 77) << "6 + 60.7 + 11, rounded down";
}

TEST(OscPitch, SetNoteAndSampleRateLeavePhaseRunning) {
    COscBlock osc(&Engine(), kRate);
    Step(osc, 101);
    const uint32_t phase = osc.phase[0];
    EXPECT_EQ(phase, 101u * osc.phaseIncrement[0]);
    osc.SetNote(50.0f, 0.0f, 0);
    EXPECT_EQ(osc.phase[0], phase);
    const uint32_t at50 = osc.phaseIncrement[0];
    osc.SetSampleRate(22050.0f);
    EXPECT_EQ(osc.phaseIncrement[0], at50) << "a new rate waits for the next note";
    osc.SetNote(50.0f, 0.0f, 0);
    EXPECT_NEAR(double(osc.phaseIncrement[0]) / at50, 2.0, 1e-6);
}

TEST(OscWork, AmpPortAndAmpZero) {
    COscBlock osc(&Engine(2), kRate);
    // Voice 1 gets nothing on the wired amp port: its phase freezes and it stays inactive.
    Step(osc, 64, 2, [&] { Feed(osc, 1, 0, 64, Const(0.5f)); WireSilent(osc, 1); });
    EXPECT_TRUE(osc.active[0] == 1 && osc.phase[0] != 0u);
    EXPECT_TRUE(osc.active[1] == 0 && osc.phase[1] == 0u);
    const float* table = NoteTables::Get(osc.waveform, osc.tableIndex[0]);
    EXPECT_FLOAT_EQ(osc.output[0][63], (0.5f * osc.amplitude) * table[(osc.phaseIncrement[0] * 64u) >> 21]);

    osc.ports[1]->hasConnection = false;
    osc.SetParameter(1, 0.0f);
    osc.output[0][5] = 1.0f;
    Step(osc, 64);
    EXPECT_EQ(osc.active[0], 1);
    EXPECT_EQ(osc.output[0][5], 0.0f) << "Amp 0 without a port writes zeros";
    Step(osc, 64, 1, [&] { Feed(osc, 1, 0, 64, Const(1.0f)); });
    EXPECT_EQ(osc.active[0], 0) << "with a wired amp port, Amp 0 is silence";

    CFixedOscBlock fixed(&Engine(), kRate);
    fixed.SetParameter(1, 0.0f);
    Step(fixed, 64);
    EXPECT_EQ(fixed.active[0], 1);
    fixed.monophonic = true;
    Step(fixed, 64);
    EXPECT_EQ(fixed.active[0], 0) << "the monophonic path treats Amp 0 as silence";
}

// Every sample against the one-by-one law, over lengths that leave a remainder after the
// eight-sample passes and long enough for the phase to wrap, with and without the amp port.
TEST(OscWork, EverySampleFollowsThePhaseLaw) {
    const auto ramp = [](int i) { return 0.25f + 0.01f * float(i); };
    for (bool ampWired : {false, true}) {
        for (int frames : {256, 37, 7}) {
            COscBlock osc(&Engine(), kRate);
            osc.SetNote(99.0f, 0.0f, 0);
            uint32_t phase = 0;
            for (int pass = 0; pass < 3; ++pass) {
                Step(osc, frames, 1, [&] {
                    if (ampWired) Feed(osc, 1, 0, frames, ramp);
                });
                const float* table = NoteTables::Get(osc.waveform, osc.tableIndex[0]);
                for (int i = 0; i < frames; ++i) {
                    phase += osc.phaseIncrement[0];
                    const float s = table[phase >> 21];
                    const float expected = ampWired ? (ramp(i) * osc.amplitude) * s : s * osc.amplitude;
                    ASSERT_EQ(osc.output[0][i], expected) << frames << " frames, pass " << pass << ", sample " << i;
                }
            }
            EXPECT_EQ(osc.phase[0], phase);
        }
    }
}

TEST(OscText, FixedOscShowsA77SemitoneHigherPitchThanItPlays) {
    CFixedOscBlock fixed(&Engine(), kRate);
    EXPECT_EQ(fixed.DescribeValue(0, 0.5f), "329.63Hz");
    EXPECT_EQ(fixed.DescribeValue(0, 1.0f), "5274Hz");
    fixed.SetNote(20.0f, 0.0f, 0);  // the note plays no part
    EXPECT_NEAR(fixed.phaseIncrement[0] / 4294967296.0 * kRate, 3.8585, 1e-3);
    EXPECT_EQ(fixed.tableIndex[0], 78);
    fixed.SetParameter(0, 1.0f);
    EXPECT_NEAR(MeasureFrequency(Render(fixed, 40), kRate), 61.735, 0.01);
    EXPECT_EQ(fixed.tableIndex[0], 126);
}

TEST(MonoWork, CopiesWrittenInputOnly) {
    CMonoBlock mono(&Engine(), kRate);
    EXPECT_TRUE(mono.monophonic && mono.defaultMonophonic && mono.hasAudioInput && !mono.IsPolyphonic(true));
    Step(mono, 16, 1, [&] { Feed(mono, 0, 0, 16, [](int i) { return i * 0.25f; }); });
    EXPECT_TRUE(mono.active[0] == 1 && mono.output[0][15] == 3.75f);
    Step(mono, 16, 1, [&] { WireSilent(mono, 0); });
    EXPECT_EQ(mono.active[0], 0);
}
