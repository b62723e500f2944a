// The built `vrok` command end to end: a rendered A4 is at 440 Hz whether it comes by MIDI
// or by pattern, an input patch passes a file through, info prints one JSON document, and
// convert reads both formats and writes stable bytes. Error cases are in cli_errors.sh.
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

#include "app/audio_file.h"

namespace fs = std::filesystem;

namespace {

struct Outcome {
    int status;
    std::string out, err;
};

std::string ReadAll(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

class AppCommandLine : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() /
              ("vrok_cli_" + std::to_string(getpid()) + "_" +
               ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }

    Outcome Vrok(const std::string& arguments) {
        const std::string command = std::string(VROK_BINARY) + " " + arguments + " >" + (dir / "out.txt").string() +
                                    " 2>" + (dir / "err.txt").string();
        const int raw = std::system(command.c_str());
        return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, ReadAll(dir / "out.txt"), ReadAll(dir / "err.txt")};
    }

    // Interleaved stereo of a WAV file, with its rate.
    static std::vector<float> ReadWav(const fs::path& path, int* rate) {
        SF_INFO info{};
        SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
        if (!file) return {};
        std::vector<float> samples(size_t(info.frames) * size_t(info.channels));
        sf_readf_float(file, samples.data(), info.frames);
        sf_close(file);
        *rate = info.samplerate;
        return info.channels == 2 ? samples : std::vector<float>{};
    }

    // The frequency in 20..4000 Hz, to 1 Hz, with the most energy in the left channel
    // over frames [from, to).
    static double PeakFrequency(const std::vector<float>& stereo, int rate, size_t from, size_t to) {
        double best = 0.0, bestPower = -1.0;
        for (int f = 20; f <= 4000; ++f) {
            // Goertzel: one multiply-add per sample for each frequency tried.
            const double coefficient = 2.0 * std::cos(2.0 * M_PI * f / rate);
            double s1 = 0.0, s2 = 0.0;
            for (size_t i = from; i < to; ++i) {
                const double s0 = stereo[2 * i] + coefficient * s1 - s2;
                s2 = s1;
                s1 = s0;
            }
            const double power = s1 * s1 + s2 * s2 - coefficient * s1 * s2;
            if (power > bestPower) bestPower = power, best = f;
        }
        return best;
    }

    fs::path dir;
};

TEST_F(AppCommandLine, PlayedA4PeaksAt440Hz) {
    const fs::path wav = dir / "a4.wav";
    const Outcome run = Vrok("render " VROK_EXAMPLES_DIR "/sine_a4.vrkx --play A4@0-1 --seconds 1 -o " + wav.string());
    ASSERT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(run.err, "");
    int rate = 0;
    const std::vector<float> audio = ReadWav(wav, &rate);
    ASSERT_EQ(audio.size(), 2u * 44100u);
    EXPECT_EQ(PeakFrequency(audio, rate, 4410, 26460), 440.0);
}

TEST_F(AppCommandLine, PatternA4AtAnotherRateAlsoPeaksAt440Hz) {
    const fs::path wav = dir / "a4.wav";
    const Outcome run =
        Vrok("render " VROK_EXAMPLES_DIR "/sine_a4.vrkx --track A4@0 --rate 48000 --seconds 0.5 --format pcm24 -o " +
             wav.string());
    ASSERT_EQ(run.status, 0) << run.err;
    int rate = 0;
    const std::vector<float> audio = ReadWav(wav, &rate);
    ASSERT_EQ(rate, 48000);
    EXPECT_EQ(PeakFrequency(audio, rate, 4800, 24000), 440.0);
}

TEST_F(AppCommandLine, InputPatchPassesAFileThrough) {
    // Half a second of a 1 kHz sine at half scale, mono, at 22050 Hz: resampled on the way.
    const fs::path in = dir / "in.wav";
    SF_INFO info{};
    info.samplerate = 22050;
    info.channels = 1;
    info.format = SF_FORMAT_WAV | SF_FORMAT_FLOAT;
    std::vector<float> tone(11025);
    for (size_t i = 0; i < tone.size(); ++i) tone[i] = 0.5f * float(std::sin(2.0 * M_PI * 1000.0 * double(i) / 22050.0));
    SNDFILE* file = sf_open(in.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    sf_writef_float(file, tone.data(), sf_count_t(tone.size()));
    sf_close(file);

    const fs::path wav = dir / "out.wav";
    const Outcome run = Vrok("render " VROK_EXAMPLES_DIR "/input_pass.vrkx --input " + in.string() + " -o " + wav.string());
    ASSERT_EQ(run.status, 0) << run.err;
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

TEST_F(AppCommandLine, InfoJsonIsOneDocument) {
    const Outcome run = Vrok("info --json " VROK_EXAMPLES_DIR "/input_pass.vrkx");
    ASSERT_EQ(run.status, 0) << run.err;
    const nlohmann::json patch = nlohmann::json::parse(run.out);
    EXPECT_EQ(patch["blocks"][0]["name"], "Input");
    EXPECT_EQ(patch["wires"].size(), 1u);
    EXPECT_EQ(patch["globals"].size(), 23u);
}

TEST_F(AppCommandLine, ConvertWritesStableXml) {
    const fs::path first = dir / "first.vrkx", second = dir / "second.vrkx";
    ASSERT_EQ(Vrok("convert " VROK_EXAMPLES_DIR "/sine_a4.vrkx " + first.string()).status, 0);
    ASSERT_EQ(Vrok("convert " + first.string() + " " + second.string()).status, 0);
    EXPECT_EQ(ReadAll(first), ReadAll(second));
    EXPECT_EQ(ReadAll(first), ReadAll(VROK_EXAMPLES_DIR "/sine_a4.vrkx")) << "the examples are as the document writes";
}

TEST_F(AppCommandLine, ConvertReadsTheBinaryFormat) {
    // Two blocks (an oscillator and an output) and one wire, as an older binary file.
    std::vector<int32_t> words = {0, 2, 4, 30, 40, 0, 0, 0, 0, 200, 40, 0, 1, 0, 1, 0, 0};
    std::memcpy(&words[0], "vrok", 4);
    const float oscParameters[3] = {0.5f, 0.7f, 0.0f}, volume = 1.0f;
    std::memcpy(&words[5], oscParameters, sizeof oscParameters);
    std::memcpy(&words[11], &volume, sizeof volume);
    const fs::path vrk = dir / "old.vrk", vrkx = dir / "new.vrkx";
    std::ofstream(vrk, std::ios::binary).write(reinterpret_cast<const char*>(words.data()), std::streamsize(words.size() * 4));

    const Outcome run = Vrok("convert " + vrk.string() + " " + vrkx.string());
    ASSERT_EQ(run.status, 0) << run.err;
    const nlohmann::json patch = nlohmann::json::parse(Vrok("info --json " + vrkx.string()).out);
    ASSERT_EQ(patch["blocks"].size(), 2u);
    EXPECT_EQ(patch["blocks"][0]["parameters"][1]["value"], 0.7);
    EXPECT_EQ(patch["wires"], nlohmann::json::parse(R"([{"from":0,"to":1,"input":0}])"));
}

TEST(AppWavWriter, CountsSamplesOutsideFullScale) {
    const fs::path path = fs::temp_directory_path() / ("vrok_clip_" + std::to_string(getpid()) + ".wav");
    const WriteResult result = WriteStereoWav(path.string(), {2.0f, -3.0f, 0.5f, 1.0f, -1.0f, 0.0f}, 44100, SampleFormat::Pcm16);
    EXPECT_TRUE(result.ok) << result.error;
    EXPECT_EQ(result.clippedSamples, 2);
    fs::remove(path);
}

TEST(AppWavWriter, AnUnfinishedWriteLeavesNothing) {
    const fs::path dir = fs::temp_directory_path() / ("vrok_unfinished_" + std::to_string(getpid()));
    fs::create_directories(dir);
    {
        StereoWavWriter writer;
        ASSERT_TRUE(writer.Open((dir / "x.wav").string(), 44100, SampleFormat::Float, nullptr));
        const float frame[2] = {0.1f, 0.2f};
        writer.Write(frame, 1);
    }
    EXPECT_TRUE(fs::is_empty(dir));
    fs::remove_all(dir);
}

}  // namespace
