// The `--input` sound file: read through libsndfile, made stereo, and resampled with
// libsamplerate when its rate differs from the render's.
#pragma once

#include <string>
#include <vector>

namespace app {

// Interleaved stereo in -1..1 at `sampleRate`. A mono file feeds both channels. Throws
// InputError naming the file when it cannot be read or has more than two channels.
std::vector<float> ReadInputFile(const std::string& path, int sampleRate);

}  // namespace app
