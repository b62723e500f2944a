// WAV output through libsndfile, written to a temporary name and renamed.
#include "app/audio_file.h"

#include <sndfile.h>
#include <unistd.h>

#include <cmath>
#include <cstdio>

namespace {
int SndfileFormat(SampleFormat format) {
    switch (format) {
        case SampleFormat::Pcm16: return SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        case SampleFormat::Pcm24: return SF_FORMAT_WAV | SF_FORMAT_PCM_24;
        case SampleFormat::Float: break;
    }
    return SF_FORMAT_WAV | SF_FORMAT_FLOAT;
}
}  // namespace

WriteResult WriteStereoWav(const std::string& path, const std::vector<float>& interleaved, int sampleRate,
                           SampleFormat format) {
    WriteResult result;
    for (float x : interleaved)
        if (!(std::fabs(x) <= 1.0f)) ++result.clippedSamples;

    const std::string temporary = path + ".part" + std::to_string(getpid());
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = 2;
    info.format = SndfileFormat(format);
    SNDFILE* file = sf_open(temporary.c_str(), SFM_WRITE, &info);
    if (!file) {
        result.error = path + ": cannot write: " + sf_strerror(nullptr);
        return result;
    }
    // Integer formats clip rather than wrap.
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    const sf_count_t frames = sf_count_t(interleaved.size() / 2);
    const sf_count_t written = sf_writef_float(file, interleaved.data(), frames);
    const std::string writeError = written == frames ? "" : sf_strerror(file);
    if (sf_close(file) != 0 || !writeError.empty()) {
        std::remove(temporary.c_str());
        result.error = path + ": write failed: " + (writeError.empty() ? "cannot close file" : writeError);
        return result;
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        result.error = path + ": cannot move the finished file into place";
        return result;
    }
    result.ok = true;
    return result;
}
