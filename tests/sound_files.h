// Sound files made by the tests themselves through libsndfile, and sparse WAV headers for
// sizes no test should write out.
#pragma once

#include <sndfile.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

namespace soundfiles {

// Writes interleaved `frames` (channels per frame) in `format` (SF_FORMAT_* major | subtype).
inline bool Write(const std::string& path, int format, int rate, int channels,
                  const std::vector<float>& frames) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    if (!file) return false;
    const sf_count_t count = sf_count_t(frames.size()) / channels;
    const bool ok = sf_writef_float(file, frames.data(), count) == count;
    sf_close(file);
    return ok;
}

// A mono 32-bit float WAV whose header announces `frames` frames, extended to that size as
// a sparse file, so it costs no disk space.
inline bool WriteSparseFloatWav(const std::string& path, uint32_t frames) {
    const uint32_t dataBytes = frames * 4;
    std::ofstream out(path, std::ios::binary);
    auto u32 = [&](uint32_t v) { out.write(reinterpret_cast<const char*>(&v), 4); };
    auto u16 = [&](uint16_t v) { out.write(reinterpret_cast<const char*>(&v), 2); };
    out.write("RIFF", 4), u32(36 + dataBytes), out.write("WAVEfmt ", 8), u32(16);
    u16(3), u16(1), u32(44100), u32(44100 * 4), u16(4), u16(32);  // IEEE float, mono
    out.write("data", 4), u32(dataBytes);
    out.close();
    return truncate(path.c_str(), off_t(44) + off_t(dataBytes)) == 0;
}

}  // namespace soundfiles
