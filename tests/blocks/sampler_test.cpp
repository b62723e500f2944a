// The sampler block over a sample built in memory: pitch against the root and the rates,
// the end of the sample, restarts, the silence rules and letting go of a sample.
#include "blocks/sampler.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <memory>
#include <thread>
#include <vector>

#include "blocks/block_harness.h"

using namespace harness;

namespace {
constexpr float kRate = 44100.0f;

std::unique_ptr<SampleData> Sine(double hz, float dataRate, int frames) {
    auto sample = std::make_unique<SampleData>();
    std::vector<float> x(static_cast<size_t>(frames));
    for (int i = 0; i < frames; ++i) x[size_t(i)] = float(std::sin(2.0 * M_PI * hz * i / dataRate));
    sample->SetFrames(std::move(x));
    sample->dataRate = dataRate;
    return sample;
}

// Plays `note` on voice 0 with the amplitude port held at 1 for `blocks` sample blocks.
std::vector<float> Play(CSimpleSamplerBlock& sampler, float note, int blocks) {
    sampler.SetNote(note, 100.0f, 0);
    sampler.NoteOn(100, 0);
    std::vector<float> out;
    for (int b = 0; b < blocks; ++b) {
        Step(sampler, kMaxFrames, 1, [&] { Feed(sampler, 1, 0, kMaxFrames, Const(1.0f)); });
        out.insert(out.end(), sampler.output[0], sampler.output[0] + kMaxFrames);
    }
    return out;
}
}  // namespace

TEST(SamplerPitch, FollowsTheNoteAgainstRootAndRates) {
    struct Case {
        float note, dataRate, root;
        double expectedHz;
    };
    // A recording of 440 Hz: a note at its root plays it as recorded, whatever rate it was
    // recorded at; an octave up doubles; a root an octave low raises everything an octave.
    const Case cases[] = {{70, 44100, 440, 440}, {82, 44100, 440, 880}, {58, 44100, 440, 220},
                          {70, 22050, 440, 440}, {70, 44100, 220, 880}, {82, 22050, 880, 440}};
    for (const Case& c : cases) {
        auto sample = Sine(440.0, c.dataRate, 200000);
        sample->rootFrequency = c.root;
        CSimpleSamplerBlock sampler(&Engine(), kRate);
        sampler.SetParameter(1, 1.0f);
        sampler.SetSample(sample.get());
        EXPECT_NEAR(MeasureFrequency(Play(sampler, c.note, 40), kRate), c.expectedHz, c.expectedHz * 1e-3)
            << c.note << " " << c.dataRate << " " << c.root;
        sampler.SetSample(nullptr);
    }
}

TEST(SamplerPitch, PitchParameterMovesFrequencyButNotTheSound) {
    auto sample = Sine(440.0, kRate, 100000);
    CSimpleSamplerBlock sampler(&Engine(), kRate);
    sampler.SetSample(sample.get());
    sampler.SetNote(70.0f, 100.0f, 0);
    const float step = sampler.voices[0].step;
    EXPECT_NEAR(sampler.frequency[0], 440.0f, 0.01f);
    sampler.SetParameter(0, 1.0f);
    EXPECT_NEAR(sampler.frequency[0], 880.0f, 0.01f) << "moved with the parameter";
    sampler.SetNote(70.0f, 100.0f, 0);
    EXPECT_NEAR(sampler.frequency[0], 880.0f, 0.01f);
    EXPECT_EQ(sampler.voices[0].step, step) << "the step follows the note alone";
}

TEST(SamplerWork, EndOfSampleAndRestart) {
    auto sample = std::make_unique<SampleData>();
    sample->SetFrames(std::vector<float>(300, 1.0f));
    CSimpleSamplerBlock sampler(&Engine(), kRate);
    sampler.SetParameter(1, 1.0f);
    sampler.SetSample(sample.get());
    const std::vector<float> out = Play(sampler, 70.0f, 2);
    for (int i = 0; i < 300; ++i) ASSERT_EQ(out[size_t(i)], 1.0f) << i;
    for (size_t i = 300; i < out.size(); ++i) ASSERT_EQ(out[i], 0.0f) << i;
    EXPECT_FALSE(sampler.voices[0].playing);
    EXPECT_TRUE(sampler.active[0]) << "written zeros, not a silent voice";

    // A new note restarts at frame 0 without a crossfade, even mid-sample.
    Play(sampler, 70.0f, 1);
    sampler.NoteOn(100, 0);
    EXPECT_EQ(sampler.voices[0].position, 0.0f);
    EXPECT_TRUE(sampler.voices[0].playing);
}

TEST(SamplerWork, SilenceRules) {
    auto sample = std::make_unique<SampleData>();
    sample->SetFrames(std::vector<float>(1000, 0.5f));
    CSimpleSamplerBlock sampler(&Engine(4), kRate);
    // No sample: inactive on every voice.
    Step(sampler, kMaxFrames, 4, [&] { Feed(sampler, 1, 0, kMaxFrames, Const(1.0f)); });
    for (int v = 0; v < 4; ++v) EXPECT_FALSE(sampler.active[v]) << v;

    sampler.SetSample(sample.get());
    sampler.NoteOn(100, 0);
    // Amplitude port unwired: active, and the row is left as it was.
    std::fill_n(sampler.output[0], kMaxFrames, 7.0f);
    Step(sampler, kMaxFrames, 1);
    EXPECT_TRUE(sampler.active[0]);
    EXPECT_EQ(sampler.output[0][10], 7.0f);
    EXPECT_EQ(sampler.voices[0].position, 0.0f) << "nothing played";
    // Wired but silent for the voice: inactive.
    Step(sampler, kMaxFrames, 1, [&] { WireSilent(sampler, 1); });
    EXPECT_FALSE(sampler.active[0]);
    // Wired with "Amp" at 0: inactive.
    sampler.SetParameter(1, 0.0f);
    Step(sampler, kMaxFrames, 1, [&] { Feed(sampler, 1, 0, kMaxFrames, Const(1.0f)); });
    EXPECT_FALSE(sampler.active[0]);
    Engine(1);
}

TEST(SamplerLink, SampleGoingAwayDetachesItsPlayers) {
    auto sample = std::make_unique<SampleData>();
    sample->SetFrames({0.1f, 0.2f});
    CSimpleSamplerBlock a(&Engine(), kRate), b(&Engine(), kRate);
    a.SetSample(sample.get());
    b.SetSample(sample.get());
    EXPECT_EQ(sample->NumPlayers(), 2u);
    {
        CSimpleSamplerBlock gone(&Engine(), kRate);
        gone.SetSample(sample.get());
    }
    EXPECT_EQ(sample->NumPlayers(), 2u) << "a destroyed player leaves the list";
    sample.reset();
    EXPECT_EQ(a.sample, nullptr);
    EXPECT_EQ(b.sample, nullptr);
    Step(a, kMaxFrames, 1, [&] { Feed(a, 1, 0, kMaxFrames, Const(1.0f)); });
    EXPECT_FALSE(a.active[0]);
}

// The audio thread plays while the GUI thread keeps replacing the frames with shorter and
// longer ones: the sample's lock keeps every read inside the array it belongs to.
TEST(SamplerLink, FramesReplacedWhilePlaying) {
    auto sample = std::make_unique<SampleData>();
    sample->SetFrames(std::vector<float>(5000, 0.25f));
    CSimpleSamplerBlock sampler(&Engine(), kRate);
    sampler.SetParameter(1, 1.0f);
    sampler.SetSample(sample.get());
    sampler.SetNote(94.0f, 100.0f, 0);  // four frames per output sample
    std::atomic<bool> done{false};
    std::atomic<long> outside{0};
    std::thread audio([&] {
        while (!done.load()) {
            sampler.NoteOn(100, 0);
            for (int b = 0; b < 8; ++b) {
                Step(sampler, kMaxFrames, 1, [&] { Feed(sampler, 1, 0, kMaxFrames, Const(1.0f)); });
                for (int i = 0; i < kMaxFrames; ++i) outside += std::fabs(sampler.output[0][i]) > 0.5f;
            }
        }
    });
    for (int k = 0; k < 300; ++k)
        sample->SetFrames(std::vector<float>(size_t(10 + (k * 997) % 4000), k % 2 ? 0.5f : -0.5f));
    done = true;
    audio.join();
    EXPECT_EQ(outside.load(), 0);
}
