// The WAV writer converts to integers itself: its files must equal, byte for byte, what
// libsndfile makes from the same floats, in every format, across the flush boundary.
#include "app/audio_file.h"

#include <gtest/gtest.h>
#include <sndfile.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>

namespace {

namespace fs = std::filesystem;

std::vector<char> FileBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::vector<char>(std::istreambuf_iterator<char>(in), {});
}

// What libsndfile writes when handed the floats themselves, clipping on, no PEAK chunk.
void WriteThroughLibrary(const fs::path& path, const std::vector<float>& samples, int format) {
    SF_INFO info{};
    info.samplerate = 44100;
    info.channels = 2;
    info.format = SF_FORMAT_WAV | format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr);
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    sf_command(file, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    sf_writef_float(file, samples.data(), sf_count_t(samples.size() / 2));
    sf_close(file);
}

// Edges of the integer grids, values past full scale, NaN and infinities, a fine ramp
// through the rounding points of both grids, and noise; long enough to flush twice.
std::vector<float> Samples(long* outside) {
    const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<float> samples = {0.0f,          -0.0f,
                                  1.0f,          -1.0f,
                                  0.5f,          1.0000001f,
                                  -1.0000001f,   0.99999994f,
                                  -0.99999994f,  2.0f,
                                  -3.0f,         1e30f,
                                  -1e30f,        inf,
                                  -inf,          nan,
                                  -nan,          0.5f / 32768,
                                  1.5f / 32768,  -0.5f / 32768,
                                  -1.5f / 32768, 32767.5f / 32768};
    for (int i = -70000; i < 70000; ++i) samples.push_back(float(i) / 65536.0f);
    for (int i = -70000; i < 70000; ++i) samples.push_back(float(i) / (65536.0f * 256.0f));
    std::mt19937 random(7);
    std::uniform_real_distribution<float> noise(-1.2f, 1.2f);
    while (samples.size() < 2 * 150001) samples.push_back(noise(random));
    *outside = 0;
    for (float x : samples) *outside += !(std::fabs(x) <= 1.0f);
    return samples;
}

class AudioFile : public ::testing::Test {
protected:
    void SetUp() override {
        dir = fs::temp_directory_path() / ("vrok_audio_file_" + std::to_string(::getpid()));
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }
    fs::path dir;
};

}  // namespace

TEST_F(AudioFile, WriterMatchesLibraryConversionByteForByte) {
    long outside = 0;
    const std::vector<float> samples = Samples(&outside);
    const struct {
        SampleFormat ours;
        int library;
    } formats[] = {{SampleFormat::Pcm16, SF_FORMAT_PCM_16},
                   {SampleFormat::Pcm24, SF_FORMAT_PCM_24},
                   {SampleFormat::Float, SF_FORMAT_FLOAT}};
    for (const auto& format : formats) {
        SCOPED_TRACE(format.library);
        StereoWavWriter writer;
        ASSERT_TRUE(writer.Open((dir / "ours.wav").string(), 44100, format.ours, nullptr));
        // Uneven pieces, as a render hands them over: the conversion's tail paths and the
        // flush inside a piece are all taken.
        const long frames = long(samples.size() / 2);
        for (long at = 0, piece = 1; at < frames; at += piece, piece = piece * 3 % 997 + 1)
            ASSERT_TRUE(writer.Write(samples.data() + 2 * at, std::min(piece, frames - at)));
        const WriteResult result = writer.Finish();
        ASSERT_TRUE(result.ok) << result.error;
        EXPECT_EQ(result.clippedSamples, outside);

        WriteThroughLibrary(dir / "library.wav", samples, format.library);
        const std::vector<char> ours = FileBytes(dir / "ours.wav"), library = FileBytes(dir / "library.wav");
        ASSERT_EQ(ours.size(), library.size());
        EXPECT_TRUE(ours == library);
    }
}
