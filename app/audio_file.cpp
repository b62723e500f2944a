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

StereoWavWriter::~StereoWavWriter() { Abort(); }

bool StereoWavWriter::Open(const std::string& target, int sampleRate, SampleFormat format, std::string* failure) {
    Abort();
    path = target;
    temporary = path + ".part" + std::to_string(getpid());
    error.clear();
    clipped = 0;
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = 2;
    info.format = SndfileFormat(format);
    file = sf_open(temporary.c_str(), SFM_WRITE, &info);
    if (!file) {
        if (failure) *failure = path + ": cannot write: " + sf_strerror(nullptr);
        return false;
    }
    // Integer formats clip rather than wrap.
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    return true;
}

bool StereoWavWriter::Write(const float* interleaved, long frames) {
    if (!file || !error.empty()) return false;
    for (long i = 0; i < frames * 2; ++i)
        if (!(std::fabs(interleaved[i]) <= 1.0f)) ++clipped;
    if (sf_writef_float(file, interleaved, frames) != frames) {
        error = sf_strerror(file);
        return false;
    }
    return true;
}

WriteResult StereoWavWriter::Finish() {
    WriteResult result;
    result.clippedSamples = clipped;
    if (!file) {
        result.error = path + ": nothing was written";
        return result;
    }
    const bool closed = sf_close(file) == 0;
    file = nullptr;
    if (!closed || !error.empty()) {
        std::remove(temporary.c_str());
        result.error = path + ": write failed: " + (error.empty() ? "cannot close file" : error);
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

void StereoWavWriter::Abort() {
    if (!file) return;
    sf_close(file);
    file = nullptr;
    std::remove(temporary.c_str());
}

WriteResult WriteStereoWav(const std::string& path, const std::vector<float>& interleaved, int sampleRate,
                           SampleFormat format) {
    StereoWavWriter writer;
    WriteResult result;
    if (!writer.Open(path, sampleRate, format, &result.error)) return result;
    writer.Write(interleaved.data(), long(interleaved.size() / 2));
    return writer.Finish();
}
