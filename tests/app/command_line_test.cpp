// The built `vrok` command end to end: a rendered A4 is at 440 Hz whether it comes by note
// or by pattern, an input patch passes a file through, and convert reads both formats and
// writes stable bytes that info lists as JSON. Error cases are in cli_errors.sh.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include "app/audio_file.h"
#include "app/child_process.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

using e2e::ReadAll;

// Interleaved stereo of a WAV file, with its rate; empty if it is not stereo.
std::vector<float> ReadWav(const fs::path& path, int* rate) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file || info.channels != 2) return {};
    std::vector<float> samples(size_t(info.frames) * 2);
    sf_readf_float(file, samples.data(), info.frames);
    sf_close(file);
    *rate = info.samplerate;
    return samples;
}

// The frequency in 20..4000 Hz, to 1 Hz, with the most energy in the left channel over
// frames [from, to), by Goertzel's recurrence.
double PeakFrequency(const std::vector<float>& stereo, int rate, size_t from, size_t to) {
    double best = 0.0, bestPower = -1.0;
    for (int f = 20; f <= 4000; ++f) {
        const double c = 2.0 * std::cos(2.0 * M_PI * f / rate);
        double s1 = 0.0, s2 = 0.0;
        for (size_t i = from; i < to; ++i) s2 = std::exchange(s1, stereo[2 * i] + c * s1 - s2);
        const double power = s1 * s1 + s2 * s2 - c * s1 * s2;
        if (power > bestPower) bestPower = power, best = f;
    }
    return best;
}

// The pitch in Hz at which the left channel matches itself over frames [from, from + 4410),
// searched between 20 and 1000 Hz: a note's period, whatever its strongest harmonic. Twice
// the period matches about as well, so the shortest lag within 10 % of the best one wins.
double PeriodPitch(const std::vector<float>& stereo, int rate, size_t from) {
    std::vector<double> match(size_t(rate / 20), 0.0);
    double best = 0.0;
    for (size_t lag = size_t(rate / 1000); lag < match.size(); ++lag) {
        for (size_t i = from; i < from + 4410; ++i)
            match[lag] += double(stereo[2 * i]) * stereo[2 * (i + lag)];
        best = std::max(best, match[lag]);
    }
    for (size_t lag = size_t(rate / 1000) + 1; lag + 1 < match.size(); ++lag)
        if (match[lag] >= 0.9 * best && match[lag] >= match[lag - 1] && match[lag] >= match[lag + 1])
            return double(rate) / double(lag);
    return 0.0;
}

class AppCommandLine : public ::testing::Test {
protected:
    void SetUp() override { fs::create_directories(dir); }
    void TearDown() override { fs::remove_all(dir); }

    // Runs `vrok arguments`; returns the exit status, with stdout and stderr in out and err.
    int Vrok(const std::string& arguments) {
        const int raw = std::system((std::string(VROK_BINARY) + " " + arguments + " >" + (dir / "out.txt").string() +
                                     " 2>" + (dir / "err.txt").string()).c_str());
        out = ReadAll(dir / "out.txt"), err = ReadAll(dir / "err.txt");
        return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    }

    const fs::path dir = fs::temp_directory_path() / ("vrok_cli_" + std::to_string(getpid()) + "_" +
                                                     ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::string out, err;
};

TEST_F(AppCommandLine, A4PeaksAt440HzByNoteAndByPattern) {
    struct Row { const char* options; int rate; size_t frames, from, to; };
    const Row rows[] = {{"--play A4@0-1 --seconds 1", 44100, 44100, 4410, 26460},
                        {"--track A4@0 --rate 48000 --seconds 0.5 --format pcm24", 48000, 24000, 4800, 24000}};
    for (const Row& row : rows) {
        const fs::path wav = dir / "a4.wav";
        ASSERT_EQ(Vrok("render " VROK_EXAMPLES_DIR "/sine_a4.vrkx " + std::string(row.options) + " -o " + wav.string()), 0)
            << row.options << ": " << err;
        EXPECT_EQ(err, "") << row.options;
        int rate = 0;
        const std::vector<float> audio = ReadWav(wav, &rate);
        ASSERT_EQ(audio.size(), 2 * row.frames) << row.options;
        EXPECT_EQ(rate, row.rate) << row.options;
        EXPECT_EQ(PeakFrequency(audio, rate, row.from, row.to), 440.0) << row.options;
    }
}

TEST_F(AppCommandLine, InputPatchPassesAFileThrough) {
    // Half a second of a 1 kHz sine at half scale, mono, at 22050 Hz: resampled on the way.
    const fs::path in = dir / "in.wav", wav = dir / "out.wav";
    SF_INFO info{0, 22050, 1, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 0, 0};
    std::vector<float> tone(11025);
    for (size_t i = 0; i < tone.size(); ++i) tone[i] = 0.5f * float(std::sin(2.0 * M_PI * 1000.0 * double(i) / 22050.0));
    SNDFILE* file = sf_open(in.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    sf_writef_float(file, tone.data(), sf_count_t(tone.size()));
    sf_close(file);

    ASSERT_EQ(Vrok("render " VROK_EXAMPLES_DIR "/input_pass.vrkx --input " + in.string() + " -o " + wav.string()), 0) << err;
    int rate = 0;
    const std::vector<float> audio = ReadWav(wav, &rate);
    const size_t frames = audio.size() / 2;
    EXPECT_GE(frames, 22050u + 22050u) << "the input, then half a second of silence";
    EXPECT_LT(frames, 22050u + 22050u + 512u);
    double power = 0.0;
    for (size_t i = 2205; i < 19845; ++i) power += double(audio[2 * i]) * audio[2 * i];
    EXPECT_NEAR(std::sqrt(power / (19845 - 2205)), 0.5 / std::sqrt(2.0), 0.02);
    EXPECT_EQ(PeakFrequency(audio, rate, 2205, 19845), 1000.0);
    EXPECT_EQ(audio[2 * 30000], 0.0f);
}

TEST_F(AppCommandLine, EnvelopeExamplesEndWhenTheirReleaseEnds) {
    for (const char* name : {"subtractive.vrkx", "shaped.vrkx"}) {
        const std::string patch = std::string(VROK_EXAMPLES_DIR "/") + name;
        const fs::path copy = dir / "copy.vrkx", wav = dir / "voice.wav";
        ASSERT_EQ(Vrok("convert " + patch + " " + copy.string()), 0) << err;
        EXPECT_EQ(ReadAll(copy), ReadAll(patch)) << name << ": the examples are as the document writes";
        // No --seconds: the render stops half a second after the last voice fell silent.
        ASSERT_EQ(Vrok("render " + patch + " --play C3@0-0.3 -o " + wav.string()), 0) << err;
        int rate = 0;
        const std::vector<float> audio = ReadWav(wav, &rate);
        const double seconds = double(audio.size() / 2) / rate;
        EXPECT_GT(seconds, 0.8) << name << ": the release sounds after the note";
        EXPECT_LT(seconds, 1.6) << name << ": and the voice is over with it";
        float peak = 0.0f;
        for (float x : audio) peak = std::max(peak, std::fabs(x));
        EXPECT_GT(peak, 0.05f) << name;
        EXPECT_LT(peak, 1.0f) << name;
    }
}

TEST_F(AppCommandLine, ModulationExamplesPlayAndThePluckTunesToItsNote) {
    for (const char* name : {"pluck.vrkx", "vowel_pad.vrkx", "lfo_filter.vrkx"}) {
        const std::string patch = std::string(VROK_EXAMPLES_DIR "/") + name;
        const fs::path copy = dir / "copy.vrkx", wav = dir / "mod.wav";
        ASSERT_EQ(Vrok("convert " + patch + " " + copy.string()), 0) << err;
        EXPECT_EQ(ReadAll(copy), ReadAll(patch)) << name << ": the examples are as the document writes";
        ASSERT_EQ(Vrok("render " + patch + " --play A3@0-1 --seconds 1.5 -o " + wav.string()), 0) << err;
        int rate = 0;
        const std::vector<float> audio = ReadWav(wav, &rate);
        float peak = 0.0f;
        for (float x : audio) {
            ASSERT_TRUE(std::isfinite(x)) << name;
            peak = std::max(peak, std::fabs(x));
        }
        EXPECT_GT(peak, 0.02f) << name;
        EXPECT_LT(peak, 1.0f) << name;
        // The tracked delay rings at the played note, A3 at 220 Hz: the string's period is
        // where the sound best matches itself. Its harmonics are all about as strong.
        if (std::string(name) == "pluck.vrkx") {
            EXPECT_NEAR(PeriodPitch(audio, rate, 4410), 220.0, 2.0);
        }
    }
}

// Each tutorial's finished patch, played as examples/README.md plays it: stored as the
// document writes it, finite, loud enough to hear yet below full scale, at the pitch its
// tutorial names where it names one, and with its sound over (or nearly) when the file ends.
TEST_F(AppCommandLine, TutorialPatchesPlayAsTheirTutorialsPromise) {
    struct Row {
        const char* patch;
        std::string options;
        double pitch;  // Hz of the period a tenth of a second long from frame pitchFrom; 0 checks none
        size_t pitchFrom;
    };
    const std::string bass = (dir / "bass.wav").string();
    const Row rows[] = {
        // A2 over a pulse an octave down: the pair repeats at 55 Hz.
        {"tut_bass.vrkx",
         "--play A2@0-0.4 --play A2@0.5-0.7 --play C3@0.75-1.1 --play E3@1.25-1.45 --play G2@1.5-2.2", 55.0,
         4410},
        {"tut_pad.vrkx", "--play C3@0-4 --play G3@0-4 --play C4@0-4 --play E4@0-4 --seconds 8", 0.0, 0},
        {"tut_pluck.vrkx", "--play A3@0.3-1 --play E4@0.8-1.5 --play A4@1.3-2", 220.0, 17640},
        {"tut_vowel.vrkx", "--play A3@0-1 --play C4@0.9-1.5 --play E4@1.5-2.5 --play D4@2.6-3.5", 220.0,
         22050},
        {"tut_arpeggio.vrkx", "--tempo 120 --play C4@0-4 --play E4@0-4 --play G4@0-4 --seconds 6", 0.0, 0},
        // Runs after the bass, whose render is its input.
        {"tut_effect.vrkx", "--input " + bass, 0.0, 0},
    };
    for (const Row& row : rows) {
        const std::string patch = std::string(VROK_EXAMPLES_DIR "/") + row.patch;
        const std::string name = row.patch;
        const fs::path copy = dir / "copy.vrkx";
        const fs::path wav = name == "tut_bass.vrkx" ? fs::path(bass) : dir / "tutorial.wav";
        ASSERT_EQ(Vrok("convert " + patch + " " + copy.string()), 0) << name << ": " << err;
        EXPECT_EQ(ReadAll(copy), ReadAll(patch)) << name << ": the examples are as the document writes";
        ASSERT_EQ(Vrok("render " + patch + " " + row.options + " -o " + wav.string()), 0)
            << name << ": " << err;
        EXPECT_EQ(err, "") << name << ": nothing beyond full scale";
        int rate = 0;
        const std::vector<float> audio = ReadWav(wav, &rate);
        ASSERT_GT(audio.size(), size_t(2 * rate)) << name;
        float peak = 0.0f;
        for (float x : audio) {
            ASSERT_TRUE(std::isfinite(x)) << name;
            peak = std::max(peak, std::fabs(x));
        }
        EXPECT_GT(peak, 0.15f) << name;
        EXPECT_LT(peak, 0.9f) << name;
        // Loudest and last tenth of a second, in RMS: the tail has died 30 dB or more.
        const size_t tenth = size_t(rate) / 10, frames = audio.size() / 2;
        double loudest = 0.0, last = 0.0;
        for (size_t start = 0; start + tenth <= frames; start += tenth) {
            double power = 0.0;
            for (size_t i = start; i < start + tenth; ++i) power += double(audio[2 * i]) * audio[2 * i];
            loudest = std::max(loudest, power);
            last = power;
        }
        EXPECT_LT(last, loudest * 1e-3) << name;
        if (row.pitch > 0.0) {
            EXPECT_NEAR(PeriodPitch(audio, rate, row.pitchFrom), row.pitch, row.pitch * 0.02) << name;
        }
    }
}

TEST_F(AppCommandLine, ModWheelAndAftertouchReachTheirBlocks) {
    // A sine whose level is the mod wheel (or the aftertouch): silent until the controller
    // moves half a second in, then sounding.
    for (const auto& [type, option] : {std::pair{47, std::string("--cc 1=127@0.5")},
                                       std::pair{48, std::string("--aftertouch 127@0.5")}}) {
        const fs::path patch = dir / "wheel.vrkx", wav = dir / "wheel.wav";
        std::ofstream(patch) << "<storables>\n<BLOCK ID=\"1\" TYPE=\"4\" POS=\"0\" P2=\"0\" />\n"
                                "<BLOCK ID=\"2\" TYPE=\"0\" POS=\"1\" P0=\"1\" />\n<BLOCK ID=\"3\" TYPE=\""
                             << type
                             << "\" POS=\"2\" />\n<CONNECTION ID=\"4\" FROM=\"0\" TO=\"1\" INPUTID=\"0\" />\n"
                                "<CONNECTION ID=\"5\" FROM=\"2\" TO=\"0\" INPUTID=\"1\" />\n</storables>\n";
        ASSERT_EQ(Vrok("render " + patch.string() + " --play A4@0-1 --seconds 1 " + option + " -o " + wav.string()),
                  0)
            << err;
        int rate = 0;
        const std::vector<float> audio = ReadWav(wav, &rate);
        float before = 0.0f, after = 0.0f;
        for (size_t i = 0; i < audio.size() / 2; ++i)
            (i < size_t(rate) / 2 ? before : after) =
                std::max(i < size_t(rate) / 2 ? before : after, std::fabs(audio[2 * i]));
        EXPECT_EQ(before, 0.0f) << option;
        EXPECT_GT(after, 0.1f) << option;
    }
}

TEST_F(AppCommandLine, ConvertWritesStableXmlAndReadsTheBinaryFormat) {
    const fs::path first = dir / "first.vrkx", second = dir / "second.vrkx";
    ASSERT_EQ(Vrok("convert " VROK_EXAMPLES_DIR "/sine_a4.vrkx " + first.string()), 0) << err;
    ASSERT_EQ(Vrok("convert " + first.string() + " " + second.string()), 0) << err;
    EXPECT_EQ(ReadAll(first), ReadAll(second));
    EXPECT_EQ(ReadAll(first), ReadAll(VROK_EXAMPLES_DIR "/sine_a4.vrkx")) << "the examples are as the document writes";

    // Two blocks (an oscillator and an output) and one wire, as an older binary file.
    std::vector<int32_t> words = {0, 2, 4, 30, 40, 0, 0, 0, 0, 200, 40, 0, 1, 0, 1, 0, 0};
    const float oscParameters[3] = {0.5f, 0.7f, 0.0f}, volume = 1.0f;
    std::memcpy(&words[0], "vrok", 4);
    std::memcpy(&words[5], oscParameters, sizeof oscParameters);
    std::memcpy(&words[11], &volume, sizeof volume);
    const fs::path vrk = dir / "old.vrk", vrkx = dir / "new.vrkx";
    std::ofstream(vrk, std::ios::binary).write(reinterpret_cast<const char*>(words.data()), std::streamsize(words.size() * 4));
    ASSERT_EQ(Vrok("convert " + vrk.string() + " " + vrkx.string()), 0) << err;
    ASSERT_EQ(Vrok("info --json " + vrkx.string()), 0) << err;
    const json patch = json::parse(out);
    ASSERT_EQ(patch["blocks"].size(), 2u);
    EXPECT_EQ(patch["blocks"][0]["parameters"][1]["value"], 0.7);
    EXPECT_EQ(patch["wires"], json::parse(R"([{"from":0,"to":1,"input":0}])"));
}

TEST_F(AppCommandLine, WavWriterCountsClipsAndLeavesNothingUnfinished) {
    const WriteResult result = WriteStereoWav((dir / "clip.wav").string(), {2.0f, -3.0f, 0.5f, 1.0f, -1.0f, 0.0f}, 44100,
                                              SampleFormat::Pcm16);
    EXPECT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.clippedSamples, 2);
    fs::remove(dir / "clip.wav");
    {
        StereoWavWriter writer;
        ASSERT_TRUE(writer.Open((dir / "x.wav").string(), 44100, SampleFormat::Float, nullptr));
        const float frame[2] = {0.1f, 0.2f};
        writer.Write(frame, 1);
    }
    EXPECT_TRUE(fs::is_empty(dir));
}

}  // namespace
