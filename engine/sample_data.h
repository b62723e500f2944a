// A sample as the audio side sees it: a mono float array with its recording rate and root,
// behind the one lock that both a playing voice and a replacing load take, and the players
// that read it. The document's SampleContainer builds on this and adds persistence.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

class SampleData;

// Something that plays a sample and must let go of it when the sample goes away.
class SamplePlayer {
public:
    virtual ~SamplePlayer() = default;
    // If `sample` is `container`, leaves its list of players (under its lock) and forgets
    // it. Not on the audio thread.
    virtual void Detach(SampleData* container);

    // Changed only while no Render runs (the players take the engine lock for it), so the
    // audio thread reads it under the engine lock it holds.
    SampleData* sample = nullptr;
};

// A sample holds at most this many frames: playback positions are floats, which from
// 2^24 on cannot step by less than two frames, so a longer sample would stall or skip.
constexpr uint32_t kMaxSampleFrames = 1u << 24;

class SampleData {
public:
    SampleData();
    // Detaches every player that still reads this sample.
    virtual ~SampleData();
    SampleData(const SampleData&) = delete;
    SampleData& operator=(const SampleData&) = delete;

    // Replaces the frames under `lock`; the old array is freed after the lock is released.
    // Not on the audio thread; allocates. At most kMaxSampleFrames frames.
    void SetFrames(std::vector<float> frames);
    // Frees the frames under `lock`.
    void Clear() { SetFrames({}); }
    // A copy of the frames (without the guard entry). Only on the thread that replaces the
    // frames (the GUI's): it takes no lock, since the audio thread only reads them, so a
    // copy of a long sample never holds up a playing voice.
    std::vector<float> Frames() const;

    // Player list; both take `lock`. Not on the audio thread.
    void AddPlayer(SamplePlayer* player);
    void RemovePlayer(SamplePlayer* player);
    size_t NumPlayers();

    // `numFrames` frames, then one guard entry of 0 that an interpolating read at the last
    // frame may touch. Read or replaced only under `lock`.
    std::vector<float> data;
    uint32_t numFrames = 0;
    // The rate the frames were recorded at: a loaded sound file's own rate, or what the
    // patch stored. The frequency at which the frames sound as they stand: 440 Hz unless the
    // user sets it (VrokDoc::SetSampleRoot, `vrok render --sample-root`); a note at this
    // frequency plays the sample at its recorded speed. Both are saved with the sample,
    // written by the document on the GUI thread and read when a note starts.
    std::atomic<float> dataRate{44100.0f};
    std::atomic<float> rootFrequency{440.0f};
    // Held by a voice for the whole of its Work, and while the frames are replaced.
    std::mutex lock;

private:
    std::vector<SamplePlayer*> players;
};
