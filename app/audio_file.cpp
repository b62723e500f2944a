// WAV output through libsndfile, written to a temporary name and put in place at the end.
#include "app/audio_file.h"

#include <fcntl.h>
#include <sndfile.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "app/interrupt.h"
#include "blocks/vector_lanes.h"
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

// libsndfile turns a float x into an integer sample as x * 2^31 (in float), clipped to the
// int32 range, rounded to nearest, of which it keeps the top 16 or 24 bits; NaN becomes
// INT32_MIN. Doing the same here, in a loop that vectorises, lets it write integers it
// only copies, with identical files. `Out` int16_t keeps the top 16 bits; int32_t keeps
// them all (libsndfile drops the low 8 for 24-bit files). Returns the number of samples
// outside -1..1 (NaN included).
#if defined(__x86_64__)
// ToIntegers' loop sixteen samples at a time, for the whole multiples of sixteen; the same
// bounds, rounding and NaN rule, so the same integers. Returns the samples outside -1..1.
template <typename Out>
VROK_AVX2 long ToIntegersSixteen(const float* in, long count, Out* out) {
    constexpr int kDrop = sizeof(Out) == 2 ? 16 : 0;
    const __m256 scale = _mm256_set1_ps(2147483648.0f), top = _mm256_set1_ps(2147483520.0f);
    const __m256 bottom = _mm256_set1_ps(-2147483648.0f), one = _mm256_set1_ps(1.0f);
    const __m256 magnitude = _mm256_castsi256_ps(_mm256_set1_epi32(0x7FFFFFFF));
    __m256i outsideLanes = _mm256_setzero_si256();
    for (long i = 0; i + 16 <= count; i += 16) {
        __m256i lanes[2];
        for (int half = 0; half < 2; ++half) {
            const __m256 x = _mm256_loadu_ps(in + i + 8 * half);
            outsideLanes = _mm256_sub_epi32(
                outsideLanes, _mm256_castps_si256(_mm256_cmp_ps(_mm256_and_ps(x, magnitude), one, _CMP_NLE_UQ)));
            const __m256 clipped = _mm256_max_ps(bottom, _mm256_min_ps(top, _mm256_mul_ps(x, scale)));
            lanes[half] = _mm256_srai_epi32(_mm256_cvtps_epi32(clipped), kDrop);
        }
        if constexpr (sizeof(Out) == 2) {
            // The pack works within each 128-bit half; the permute puts the halves in order.
            const __m256i packed = _mm256_permute4x64_epi64(_mm256_packs_epi32(lanes[0], lanes[1]), 0xD8);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), packed);
        } else {
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i), lanes[0]);
            _mm256_storeu_si256(reinterpret_cast<__m256i*>(out + i + 8), lanes[1]);
        }
    }
    int32_t counts[8];
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(counts), outsideLanes);
    long outside = 0;
    for (int32_t c : counts) outside += c;
    return outside;
}
#endif

template <typename Out>
long ToIntegers(const float* in, long count, Out* out) {
    static_assert(sizeof(Out) == 2 || sizeof(Out) == 4);
    constexpr int kDrop = sizeof(Out) == 2 ? 16 : 0;
    constexpr float kScale = 2147483648.0f;
    long outside = 0, i = 0;
#if defined(__x86_64__)
    if (CpuHasAvx2()) {
        outside = ToIntegersSixteen(in, count, out);
        i = count / 16 * 16;
    }
#endif
#if defined(__SSE2__)
    const __m128 scale = _mm_set1_ps(kScale), top = _mm_set1_ps(2147483520.0f), bottom = _mm_set1_ps(-kScale);
    const __m128 one = _mm_set1_ps(1.0f), magnitude = _mm_castsi128_ps(_mm_set1_epi32(0x7FFFFFFF));
    __m128i outsideLanes = _mm_setzero_si128();
    for (; i + 8 <= count; i += 8) {
        __m128i lanes[2];
        for (int half = 0; half < 2; ++half) {
            const __m128 x = _mm_loadu_ps(in + i + 4 * half);
            // Not-less-or-equal is true for NaN, like the scalar count; its mask lanes are -1.
            outsideLanes =
                _mm_sub_epi32(outsideLanes, _mm_castps_si128(_mm_cmpnle_ps(_mm_and_ps(x, magnitude), one)));
            // min and max return their second operand for NaN, so NaN reaches the conversion
            // and becomes INT32_MIN there. The top bound is the largest float below 2^31,
            // whose kept bits equal INT32_MAX's.
            const __m128 clipped = _mm_max_ps(bottom, _mm_min_ps(top, _mm_mul_ps(x, scale)));
            lanes[half] = _mm_srai_epi32(_mm_cvtps_epi32(clipped), kDrop);
        }
        if constexpr (sizeof(Out) == 2) {
            // After the shift every lane fits in 16 bits, so the saturating pack only packs.
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_packs_epi32(lanes[0], lanes[1]));
        } else {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), lanes[0]);
            _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i + 4), lanes[1]);
        }
    }
    int32_t counts[4];
    _mm_storeu_si128(reinterpret_cast<__m128i*>(counts), outsideLanes);
    outside += long(counts[0]) + counts[1] + counts[2] + counts[3];
#endif
    for (; i < count; ++i) {
        if (!(std::fabs(in[i]) <= 1.0f)) ++outside;
        const float scaled = in[i] * kScale;
        int32_t value = INT32_MIN;
        if (scaled >= 2147483647.0) {
            value = INT32_MAX;
        } else if (scaled > -2147483648.0) {
            value = int32_t(std::lrintf(scaled));
        }
        out[i] = Out(value >> kDrop);
    }
    return outside;
}

long CountOutside(const float* in, long count) {
    long outside = 0;
    for (long i = 0; i < count; ++i) outside += !(std::fabs(in[i]) <= 1.0f);
    return outside;
}

std::string TemporaryDirectory() {
    const char* dir = std::getenv("TMPDIR");
    return dir && *dir ? dir : "/tmp";
}

}  // namespace

StereoWavWriter::~StereoWavWriter() { Abort(); }

bool StereoWavWriter::Open(const std::string& destination, int sampleRate, SampleFormat sampleFormat,
                           std::string* failure) {
    Abort();
    path = destination;
    error.clear();
    clipped = 0;
    pendingFrames = 0;
    format = sampleFormat;
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
    // The float format's PEAK chunk carries the time of writing; without it the same
    // render gives the same bytes.
    sf_command(file, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    const size_t capacity = kFramesPerWrite * 2;
    pendingFloats.resize(format == SampleFormat::Float ? capacity : 0);
    pendingShorts.resize(format == SampleFormat::Pcm16 ? capacity : 0);
    pendingInts.resize(format == SampleFormat::Pcm24 ? capacity : 0);
    return true;
}

bool StereoWavWriter::Write(const float* interleaved, long frames) {
    if (!file || !error.empty()) return false;
    while (frames > 0) {
        const long take = std::min(frames, long(kFramesPerWrite) - pendingFrames);
        const size_t at = size_t(pendingFrames) * 2;
        switch (format) {
            case SampleFormat::Pcm16:
                clipped += ToIntegers(interleaved, take * 2, pendingShorts.data() + at);
                break;
            case SampleFormat::Pcm24:
                clipped += ToIntegers(interleaved, take * 2, pendingInts.data() + at);
                break;
            case SampleFormat::Float:
                clipped += CountOutside(interleaved, take * 2);
                std::copy_n(interleaved, take * 2, pendingFloats.data() + at);
                break;
        }
        pendingFrames += take;
        interleaved += take * 2;
        frames -= take;
        if (pendingFrames == long(kFramesPerWrite) && !Flush()) return false;
    }
    return true;
}

bool StereoWavWriter::Flush() {
    const sf_count_t frames = pendingFrames;
    sf_count_t written = 0;
    switch (format) {
        case SampleFormat::Pcm16:
            written = sf_writef_short(file, pendingShorts.data(), frames);
            break;
        case SampleFormat::Pcm24:
            written = sf_writef_int(file, pendingInts.data(), frames);
            break;
        case SampleFormat::Float:
            written = sf_writef_float(file, pendingFloats.data(), frames);
            break;
    }
    pendingFrames = 0;
    if (written != frames) error = sf_strerror(file);
    return written == frames;
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
    if (error.empty() && pendingFrames > 0) Flush();
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
    pendingFrames = 0;
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
