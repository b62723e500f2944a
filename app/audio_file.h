// Writing rendered audio to a sound file through libsndfile, without ever leaving a
// half-written file behind.
#pragma once

#include <string>
#include <vector>

enum class SampleFormat { Float, Pcm16, Pcm24 };

struct WriteResult {
    bool ok = false;
    std::string error;     // what went wrong, naming the file
    long clippedSamples = 0;  // samples outside -1..1 (clipped in the integer formats)
};

// Writes interleaved stereo at `sampleRate` as a WAV file: first to a temporary file
// beside `path`, then renamed over it, so a failure leaves no partial output.
WriteResult WriteStereoWav(const std::string& path, const std::vector<float>& interleaved, int sampleRate,
                           SampleFormat format);
