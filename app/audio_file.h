// Writing rendered audio to a sound file through libsndfile, without ever leaving a
// half-written file behind.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

typedef struct sf_private_tag SNDFILE;  // as sndfile.h declares it

enum class SampleFormat { Float, Pcm16, Pcm24 };

struct WriteResult {
    bool ok = false;
    std::string error;     // what went wrong, naming the file
    long clippedSamples = 0;  // samples outside -1..1 (clipped in the integer formats)
};

// A stereo WAV file written piece by piece into a temporary file, which only Finish puts
// in place. For a regular file (or a link to one) the temporary lies beside the target and
// is renamed over it; a device such as /dev/null or a pipe is written in one go from a
// temporary in $TMPDIR, since a WAV header cannot be patched there afterwards. Pieces are
// gathered in memory and written in large blocks. Destroyed unfinished, or interrupted by
// Ctrl-C, it removes the temporary file.
class StereoWavWriter {
public:
    StereoWavWriter() = default;
    ~StereoWavWriter();
    StereoWavWriter(const StereoWavWriter&) = delete;
    StereoWavWriter& operator=(const StereoWavWriter&) = delete;

    // False, with `error` naming the file, when the temporary file cannot be made.
    bool Open(const std::string& path, int sampleRate, SampleFormat sampleFormat, std::string* error);
    // Interleaved stereo in -1..1; samples outside are counted (and clipped by the integer
    // formats). False once a write has failed.
    bool Write(const float* interleaved, long frames);
    // Closes and puts the file in place; after a failure the temporary file is gone.
    WriteResult Finish();
    // Closes and removes the temporary file.
    void Abort();

private:
    bool Flush();
    bool CopyToTarget();

    SNDFILE* file = nullptr;
    std::string path, target, temporary, error;
    bool inPlace = false;
    SampleFormat format = SampleFormat::Float;
    // Interleaved frames not yet handed to libsndfile, already in the file's sample format
    // (only the vector of that format is used), so libsndfile only copies them.
    std::vector<float> pendingFloats;
    std::vector<int16_t> pendingShorts;
    std::vector<int32_t> pendingInts;
    long pendingFrames = 0;
    long clipped = 0;
};

// Writes interleaved stereo at `sampleRate` as a WAV file in one go.
WriteResult WriteStereoWav(const std::string& path, const std::vector<float>& interleaved, int sampleRate,
                           SampleFormat format);
