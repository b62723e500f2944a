// Input file reading and rate conversion.
#include "app/input_file.h"

#include <samplerate.h>
#include <sndfile.h>

#include <cmath>

#include "app/note_arguments.h"

namespace app {

std::vector<float> ReadInputFile(const std::string& path, int sampleRate) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) throw InputError(path + ": cannot read sound file: " + sf_strerror(nullptr));
    struct Closer {
        SNDFILE* file;
        ~Closer() { sf_close(file); }
    } closer{file};
    if (info.channels < 1 || info.channels > 2)
        throw InputError(path + ": has " + std::to_string(info.channels) + " channels; only mono or stereo can be fed");
    if (info.samplerate <= 0) throw InputError(path + ": has no sample rate");
    // An hour of audio is far more than a render wants, and keeps the sizes below sane.
    if (info.frames < 0 || info.frames > sf_count_t(info.samplerate) * 3600)
        throw InputError(path + ": is longer than an hour");

    std::vector<float> data(size_t(info.frames) * size_t(info.channels));
    const sf_count_t got = sf_readf_float(file, data.data(), info.frames);
    if (got != info.frames) throw InputError(path + ": read failed: " + sf_strerror(file));

    std::vector<float> stereo(size_t(info.frames) * 2);
    for (sf_count_t i = 0; i < info.frames; ++i) {
        stereo[size_t(i) * 2] = data[size_t(i * info.channels)];
        stereo[size_t(i) * 2 + 1] = data[size_t(i * info.channels + info.channels - 1)];
    }
    if (info.samplerate == sampleRate || info.frames == 0) return stereo;

    const double ratio = double(sampleRate) / double(info.samplerate);
    std::vector<float> converted(size_t(std::ceil(double(info.frames) * ratio)) * 2 + 2);
    SRC_DATA src{};
    src.data_in = stereo.data();
    src.input_frames = long(info.frames);
    src.data_out = converted.data();
    src.output_frames = long(converted.size() / 2);
    src.src_ratio = ratio;
    const int error = src_simple(&src, SRC_SINC_MEDIUM_QUALITY, 2);
    if (error != 0) throw InputError(path + ": cannot convert its sample rate: " + src_strerror(error));
    converted.resize(size_t(src.output_frames_gen) * 2);
    return converted;
}

}  // namespace app
