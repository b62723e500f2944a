// The built `vrok` command with samples and analysers: --sample and --sample-root load and
// tune a sampler, convert embeds the sample so the patch plays the same without the file,
// info lists it, and --scope-dump writes what the analysers captured.
#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>
#include <vector>

#include "app/child_process.h"
#include "sound_files.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

// Input (volume 1) into the sampler's amplitude at slot 1; the sampler through a VU meter
// and a spectrum analyser (which pass their input on, and run only on the way to an output)
// into an output, and into a scope, which runs by itself.
constexpr char kPatch[] = R"(<storables>
<BLOCK ID="0" TYPE="49" X="0" Y="0" POS="0" P0="1.0" />
<BLOCK ID="1" TYPE="58" X="100" Y="0" POS="1" P1="1.0" />
<BLOCK ID="2" TYPE="0" X="200" Y="0" POS="2" />
<BLOCK ID="3" TYPE="5" X="200" Y="60" POS="3" />
<BLOCK ID="4" TYPE="12" X="200" Y="120" POS="4" />
<BLOCK ID="5" TYPE="22" X="200" Y="180" POS="5" />
<CONNECTION ID="6" FROM="0" TO="1" INPUTID="1" />
<CONNECTION ID="7" FROM="1" TO="4" INPUTID="0" />
<CONNECTION ID="8" FROM="4" TO="5" INPUTID="0" />
<CONNECTION ID="9" FROM="5" TO="2" INPUTID="0" />
<CONNECTION ID="10" FROM="1" TO="3" INPUTID="0" />
</storables>
)";

using e2e::ReadAll;

std::vector<float> ReadLeft(const fs::path& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) return {};
    std::vector<float> stereo(size_t(info.frames) * size_t(info.channels));
    sf_readf_float(file, stereo.data(), info.frames);
    sf_close(file);
    std::vector<float> left;
    for (size_t i = 0; i < stereo.size(); i += size_t(info.channels)) left.push_back(stereo[i]);
    return left;
}

// The frequency in 100..2000 Hz, to 1 Hz, with the most energy, by Goertzel's recurrence.
double PeakFrequency(const std::vector<float>& x, int rate, size_t from, size_t to) {
    double best = 0.0, bestPower = -1.0;
    for (int f = 100; f <= 2000; ++f) {
        const double c = 2.0 * std::cos(2.0 * M_PI * f / rate);
        double s1 = 0.0, s2 = 0.0;
        for (size_t i = from; i < to && i < x.size(); ++i) s2 = std::exchange(s1, x[i] + c * s1 - s2);
        const double power = s1 * s1 + s2 * s2 - c * s1 * s2;
        if (power > bestPower) bestPower = power, best = f;
    }
    return best;
}

class SamplerCommandLine : public ::testing::Test {
protected:
    void SetUp() override {
        fs::create_directories(dir);
        std::ofstream(patch) << kPatch;
        // A steady full-scale input holds the sampler's amplitude at 1.
        ASSERT_TRUE(soundfiles::Write(dc.string(), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 2,
                                      std::vector<float>(2 * 44100, 1.0f)));
        // One second of 440 Hz recorded at 22050 Hz.
        std::vector<float> tone(22050);
        for (size_t i = 0; i < tone.size(); ++i)
            tone[i] = 0.5f * float(std::sin(2.0 * M_PI * 440.0 * double(i) / 22050.0));
        ASSERT_TRUE(soundfiles::Write(sample.string(), SF_FORMAT_WAV | SF_FORMAT_FLOAT, 22050, 1, tone));
    }
    void TearDown() override { fs::remove_all(dir); }

    int Vrok(const std::string& arguments) {
        const int raw = std::system((std::string(VROK_BINARY) + " " + arguments + " >" +
                                     (dir / "out.txt").string() + " 2>" + (dir / "err.txt").string())
                                        .c_str());
        out = ReadAll(dir / "out.txt"), err = ReadAll(dir / "err.txt");
        return WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
    }

    std::string Render(const fs::path& patchFile, const std::string& options, const fs::path& wav) {
        return "render " + patchFile.string() + " --input " + dc.string() +
               " --play A4@0-0.4 --seconds 0.5 " + options + " -o " + wav.string();
    }

    const fs::path dir =
        fs::temp_directory_path() / ("vrok_sampler_cli_" + std::to_string(getpid()) + "_" +
                                     ::testing::UnitTest::GetInstance()->current_test_info()->name());
    const fs::path patch = dir / "sampler.vrkx", dc = dir / "dc.wav", sample = dir / "tone.wav";
    std::string out, err;
};

}  // namespace

TEST_F(SamplerCommandLine, SampleOptionPlaysAtTheRootAndTheRootMovesIt) {
    struct Row {
        const char* root;
        double hz;
    };
    for (const Row row :
         {Row{"", 440.0}, Row{"--sample-root 1=220", 880.0}, Row{"--sample-root 1=880", 220.0}}) {
        const fs::path wav = dir / "out.wav";
        ASSERT_EQ(Vrok(Render(patch, "--sample 1=" + sample.string() + " " + row.root, wav)), 0) << err;
        EXPECT_EQ(err, "");
        EXPECT_EQ(PeakFrequency(ReadLeft(wav), 44100, 2205, 17640), row.hz) << row.root;
    }
    // Without a sample the sampler stays silent.
    ASSERT_EQ(Vrok(Render(patch, "", dir / "quiet.wav")), 0) << err;
    for (float s : ReadLeft(dir / "quiet.wav")) ASSERT_EQ(s, 0.0f);
}

TEST_F(SamplerCommandLine, ConvertEmbedsTheSampleAndInfoListsIt) {
    const fs::path direct = dir / "direct.wav", embedded = dir / "embedded.wav",
                   converted = dir / "embedded.vrkx";
    ASSERT_EQ(Vrok(Render(patch, "--sample 1=" + sample.string() + " --sample-root 1=330", direct)), 0)
        << err;
    ASSERT_EQ(Vrok("convert " + patch.string() + " " + converted.string() + " --sample 1=" + sample.string() +
                   " --sample-root 1=330"),
              0)
        << err;
    fs::remove(sample);  // the converted patch needs the file no longer
    ASSERT_EQ(Vrok(Render(converted, "", embedded)), 0) << err;
    EXPECT_EQ(ReadAll(embedded), ReadAll(direct)) << "plays identically from the patch";

    ASSERT_EQ(Vrok("info --json " + converted.string()), 0) << err;
    const json info = json::parse(out);
    ASSERT_EQ(info["samples"].size(), 1u);
    const json& listed = info["samples"][0];
    EXPECT_EQ(listed["name"], "tone");
    EXPECT_EQ(listed["frames"], 22050);
    EXPECT_EQ(listed["rate"], 22050.0);
    EXPECT_EQ(listed["root"], 330.0);
    EXPECT_EQ(listed["players"], json::array({1}));
    EXPECT_EQ(info["blocks"][1]["sample"], listed["key"]);
    ASSERT_EQ(Vrok("info " + converted.string()), 0) << err;
    EXPECT_NE(out.find("\"tone\" 22050 frames at 22050 Hz, root 330 Hz, key "), std::string::npos) << out;
    EXPECT_NE(out.find("played by slot 1"), std::string::npos) << out;
}

TEST_F(SamplerCommandLine, ScopeDumpHoldsWhatTheAnalysersCaptured) {
    const fs::path dump = dir / "scopes.json";
    ASSERT_EQ(Vrok(Render(patch, "--sample 1=" + sample.string() + " --scope-dump " + dump.string(),
                          dir / "o.wav")),
              0)
        << err;
    const json captured = json::parse(ReadAll(dump));
    const json& analysers = captured["analysers"];
    ASSERT_EQ(analysers.size(), 3u);
    EXPECT_EQ(analysers[0]["name"], "Scope");
    EXPECT_EQ(analysers[0]["slot"], 3);
    const json& ring = analysers[0]["rings"][0];
    EXPECT_EQ(ring["voice"], 0);
    EXPECT_EQ(ring["available"], 22050) << "half a second, all unread";
    EXPECT_EQ(ring["samples"].size(), 4096u);
    EXPECT_EQ(analysers[1]["name"], "VU-meter");
    EXPECT_NEAR(analysers[1]["meter"].get<double>(), 0.5 * 2.0 / M_PI, 0.02) << "the mean of |0.5 sin|";
    const json& spectrum = analysers[2];
    EXPECT_EQ(spectrum["name"], "Spectrum Analyser");
    EXPECT_EQ(spectrum["fill"], 2304);
    EXPECT_EQ(spectrum["window"], "hamming");
    EXPECT_EQ(spectrum["peakBin"], 20) << "440 Hz of 44100 in 2048 bins";
    EXPECT_EQ(spectrum["visibleEnd"], 1024.0);
}

TEST_F(SamplerCommandLine, BadSampleArgumentsAndFiles) {
    struct Row {
        std::string options;
        int status;
        std::string says;
    };
    const std::string text = (dir / "notes.wav").string();
    std::ofstream(text) << "not a sound\n";
    const Row rows[] = {{"--sample 2=" + sample.string(), 2, "slot 2 holds no sampler"},
                        {"--sample 1", 2, "expected SLOT=FILE"},
                        {"--sample 1=" + sample.string() + " --sample-root 1=-5", 2, "above 0"},
                        {"--sample-root 1=300", 2, "plays no sample"},
                        {"--sample 1=" + text, 1, text + ": cannot read as a sound file"},
                        {"--sample 1=" + (dir / "missing.ogg").string(), 1, "missing.ogg: cannot read"}};
    for (const Row& row : rows) {
        const fs::path wav = dir / "never.wav";
        EXPECT_EQ(Vrok(Render(patch, row.options, wav)), row.status) << row.options;
        EXPECT_EQ(err.rfind("vrok: ", 0), 0u) << err;
        EXPECT_NE(err.find(row.says), std::string::npos) << row.options << ": " << err;
        EXPECT_FALSE(fs::exists(wav)) << row.options;
    }
}
