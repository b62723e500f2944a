// WAV output through libsndfile, written to a temporary name and put in place at the end.
#include "app/audio_file.h"

#include <fcntl.h>
#include <sndfile.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "app/interrupt.h"
#include "engine/atomic_file.h"

namespace {

// One write system call per this many frames (512 KiB of float stereo) instead of one per
// render call.
constexpr size_t kFramesPerWrite = 65536;

int SndfileFormat(SampleFormat format) {
    switch (format) {
        case SampleFormat::Pcm16: return SF_FORMAT_WAV | SF_FORMAT_PCM_16;
        case SampleFormat::Pcm24: return SF_FORMAT_WAV | SF_FORMAT_PCM_24;
        case SampleFormat::Float: break;
    }
    return SF_FORMAT_WAV | SF_FORMAT_FLOAT;
}

std::string TemporaryDirectory() {
    const char* dir = std::getenv("TMPDIR");
    return dir && *dir ? dir : "/tmp";
}

}  // namespace

StereoWavWriter::~StereoWavWriter() { Abort(); }

bool StereoWavWriter::Open(const std::string& destination, int sampleRate, SampleFormat format, std::string* failure) {
    Abort();
    path = destination;
    error.clear();
    clipped = 0;
    WriteTarget resolved;
    if (!ResolveWriteTarget(path, &resolved, failure)) return false;
    target = resolved.path;
    inPlace = resolved.inPlace;
    if (inPlace) {
        temporary = TemporaryDirectory() + "/vrok-render-XXXXXX";
        const int fd = ::mkstemp(temporary.data());
        if (fd < 0) {
            if (failure) *failure = path + ": cannot make a temporary file in " + TemporaryDirectory();
            return false;
        }
        ::close(fd);
    } else {
        temporary = target + ".part" + std::to_string(getpid());
    }
    app::InstallInterruptCleanup();
    app::RemoveOnInterrupt(temporary.c_str());
    SF_INFO info{};
    info.samplerate = sampleRate;
    info.channels = 2;
    info.format = SndfileFormat(format);
    file = sf_open(temporary.c_str(), SFM_WRITE, &info);
    if (!file) {
        if (failure) *failure = path + ": cannot write: " + sf_strerror(nullptr);
        std::remove(temporary.c_str());
        app::RemoveOnInterrupt(nullptr);
        return false;
    }
    // Integer formats clip rather than wrap. The float format's PEAK chunk carries the time
    // of writing; without it the same render gives the same bytes.
    sf_command(file, SFC_SET_CLIPPING, nullptr, SF_TRUE);
    sf_command(file, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    pending.reserve(kFramesPerWrite * 2);
    return true;
}

bool StereoWavWriter::Write(const float* interleaved, long frames) {
    if (!file || !error.empty()) return false;
    for (long i = 0; i < frames * 2; ++i)
        if (!(std::fabs(interleaved[i]) <= 1.0f)) ++clipped;
    pending.insert(pending.end(), interleaved, interleaved + frames * 2);
    return pending.size() < kFramesPerWrite * 2 || Flush();
}

bool StereoWavWriter::Flush() {
    const sf_count_t frames = sf_count_t(pending.size() / 2);
    const bool written = sf_writef_float(file, pending.data(), frames) == frames;
    pending.clear();
    if (!written) error = sf_strerror(file);
    return written;
}

bool StereoWavWriter::CopyToTarget() {
    const int from = ::open(temporary.c_str(), O_RDONLY);
    const int to = ::open(target.c_str(), O_WRONLY);
    bool copied = from >= 0 && to >= 0;
    char chunk[1 << 16];
    while (copied) {
        const ssize_t got = ::read(from, chunk, sizeof chunk);
        if (got <= 0) {
            copied = got == 0;
            break;
        }
        for (ssize_t done = 0; copied && done < got;) {
            const ssize_t put = ::write(to, chunk + done, size_t(got - done));
            copied = put > 0;
            done += put;
        }
    }
    if (!copied && error.empty()) error = std::strerror(errno);
    if (from >= 0) ::close(from);
    if (to >= 0 && ::close(to) != 0) copied = false;
    return copied;
}

WriteResult StereoWavWriter::Finish() {
    WriteResult result;
    result.clippedSamples = clipped;
    if (!file) {
        result.error = path + ": nothing was written";
        return result;
    }
    if (error.empty() && !pending.empty()) Flush();
    const bool closed = sf_close(file) == 0;
    file = nullptr;
    bool placed = closed && error.empty();
    if (placed) placed = inPlace ? CopyToTarget() : std::rename(temporary.c_str(), target.c_str()) == 0;
    if (inPlace || !placed) std::remove(temporary.c_str());
    app::RemoveOnInterrupt(nullptr);
    if (!closed || !error.empty()) {
        result.error = path + ": write failed: " + (error.empty() ? "cannot close file" : error);
        return result;
    }
    if (!placed) {
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
    pending.clear();
    std::remove(temporary.c_str());
    app::RemoveOnInterrupt(nullptr);
}

WriteResult WriteStereoWav(const std::string& path, const std::vector<float>& interleaved, int sampleRate,
                           SampleFormat format) {
    StereoWavWriter writer;
    WriteResult result;
    if (!writer.Open(path, sampleRate, format, &result.error)) return result;
    writer.Write(interleaved.data(), long(interleaved.size() / 2));
    return writer.Finish();
}
