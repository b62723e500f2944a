// The analysers: blocks at the end of a chain that capture a signal for a display (two
// scopes, a VU meter, two spectra). Work writes on the audio thread; one display reads on
// the GUI thread, polling every 25 ms, without a lock.
//
// How a reader never draws a torn frame:
//  - ScopeRing: every slot is an atomic float, and two totals bracket each write: `writing`
//    is raised (with a release fence) before slots are overwritten, `written` after they
//    are complete. A reader takes only samples below `written`, and after copying them
//    checks `writing` (behind an acquire fence): any slot the writer may have reached
//    meanwhile is dropped from the copy, never drawn.
//  - SpectrumCapture: a hand-over by the fill position alone. The writer fills only while
//    the position is below the limit and publishes each advance with a release store; a
//    reader touches the array only once the position is at or past the limit, when the
//    writer no longer writes below it, and hands it back by storing 0.
//  - RowSnapshot (the large scope's last block): a sequence lock over atomic floats; a
//    reader retries while the sequence was odd or moved during its copy.
//  - Single values (the VU meter) are one atomic store each, published once per sample block.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/audio_block.h"

// [SECTION] Capture primitives

// One writer (the audio thread), one reader (a display). The writer never waits: it
// overwrites the oldest samples when the reader falls behind.
class ScopeRing {
public:
    // Sizes the ring; not while either side runs. Allocates.
    void Allocate(int length);
    int Length() const { return length; }

    // [Writer] `n` samples of `x` times `gain`, or zeros when `x` is null.
    void Write(const float* x, float gain, int n);

    // [Reader] Samples written and not yet read, at most the ring's length.
    int Available() const;
    // Drops all but the newest `keep` unread samples.
    void SkipToNewest(int keep);
    // Copies up to `max` of the oldest unread samples to `dest` and marks them read.
    // Returns how many were copied; samples the writer overtook during the copy are left
    // out, so what is returned is always whole.
    int Read(float* dest, int max);
    // Discards everything unread: the ring reads as empty until new samples arrive.
    void Reset();

private:
    int length = 0;
    std::unique_ptr<std::atomic<float>[]> slots;
    int writePosition = 0;               // the writer's
    std::atomic<uint64_t> writing{0};    // total the writer may have reached
    std::atomic<uint64_t> written{0};    // total complete
    std::atomic<uint64_t> readTotal{0};  // the reader's: total read or skipped
};

// The capture array of a spectrum block, filled by Work from a fill position up to a limit,
// then frozen until a reader takes it and rewinds.
class SpectrumCapture {
public:
    // `limit` is where capture stops advancing; the array leaves room for the writes of
    // sample blocks that start just below the limit and for the blocks after it.
    explicit SpectrumCapture(int limit);

    // [Writer] The fill position this sample block writes at; taken once in PrepareBlock.
    int BeginBlock();
    float* At(int position) { return samples.data() + position; }
    // Advances by `n` from the block's position if that was below the limit.
    void EndBlock(int blockPosition, int n);

    // [Reader] When full, copies the captured samples (the fill position's worth) into
    // `dest`, rewinds, and returns true; otherwise false and `dest` is untouched.
    bool Take(std::vector<float>& dest);
    int FillPosition() const { return fill.load(std::memory_order_acquire); }
    int Limit() const { return limit; }

private:
    int limit;
    std::vector<float> samples;
    std::atomic<int> fill{0};
};

// The last rendered row of a block, behind a sequence lock.
class RowSnapshot {
public:
    // [Writer]
    void Publish(const float* row, int n);
    // [Reader] Copies the newest row into `dest` (kMaxFrames entries) and returns its
    // length; 0 before the first.
    int Read(float* dest) const;

private:
    std::atomic<uint32_t> sequence{0};
    std::atomic<int> size{0};
    std::array<std::atomic<float>, kMaxFrames> row{};
};

// The Kaiser-Bessel-derived window over 2048 points, symmetric, in double precision.
std::vector<double> KaiserBesselDerivedWindow();
// The colour ramp of the spectrum analyser: 1023 colours 0xRRGGBB from black through blue,
// red and yellow to white.
std::vector<uint32_t> SpectrumColourRamp();
// Magnitudes of the first n/2 + 1 bins of the windowed capture (n = 256 or 2048 values,
// `window` of n entries). GUI thread; allocates on the first call for each n.
std::vector<float> MagnitudeSpectrum(const std::vector<float>& capture, const double* window, int n);

// [SECTION] Blocks

// A two-second ring per voice. "polyphonic" on: each voice into its own ring; off: the sum
// of the voices into ring 0, once the last voice has run. "gain" is 0..2. Any change of
// "polyphonic" empties the rings. Runs even when nothing is wired behind it.
class CScopeBlock : public CAudioBlock {
public:
    CScopeBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return false; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    // Clears the port and the mix row.
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;
    void Reset() override;

    // Working values; each one store, read by Work and the display.
    std::atomic<float> gain{1.0f};
    std::atomic<bool> polyphonic{true};
    std::atomic<int> stride{1};  // display decimation: 1, or 1/128 s of samples when "slow"
    std::atomic<bool> sync{false};
    ScopeRing rings[kMaxVoices];
    float mixRow[kMaxFrames] = {};
};

// Passes its input through to its row and shows that row. Monophonic once it drops out of
// every chain.
class CLargeScopeBlock : public CAudioBlock {
public:
    CLargeScopeBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int, float) override { return {}; }
    void Work(int voice, int numSamples) override;
    void Reset() override;

    int lastBlockSize = 0;
    RowSnapshot display;  // the last written row
};

// The sum over voices of each voice's mean absolute value, per sample block.
class CVuBlock : public CAudioBlock {
public:
    CVuBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int, float) override { return {}; }
    // Clears the port and starts a new meter sum.
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;

    float meter = 0.0f;  // Work's running sum
    bool meterDone = false;
    std::atomic<float> displayMeter{0.0f};  // the last complete sum, for the display
};

// Shared capture scheme of the two spectra: each sample block adds half of every written
// voice's row at the fill position, which advances once per sample block until the limit.
class CSpectrumBase : public CAudioBlock {
public:
    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;

    SpectrumCapture capture;
    bool firstVoice = false;
    int lastBlockSize = 0;
    int liveVoices = 0;                     // voices written in this sample block
    std::array<float, 128> displayState{};  // the panel's, zero until it draws

protected:
    CSpectrumBase(VrokInstance* engine, float sampleRate, int limit);

private:
    int blockPosition = 0;
};

// 256 samples through a Hamming window.
class CSpectrumBlock : public CSpectrumBase {
public:
    static constexpr int kLimit = 257;
    static constexpr int kLength = 256;

    CSpectrumBlock(VrokInstance* engine, float sampleRate);
    std::string DescribeValue(int, float) override { return {}; }

    std::array<double, kLength> hamming;
};

// 2048 samples, Hamming or Kaiser-Bessel-derived window, a zoomable bin range and a
// colour ramp for a scrolling picture.
class CMegaSpectrumBlock : public CSpectrumBase {
public:
    static constexpr int kLimit = 2049;
    static constexpr int kLength = 2048;

    CMegaSpectrumBlock(VrokInstance* engine, float sampleRate);
    std::string DescribeValue(int index, float value) override;
    // Any change recomputes the visible bin range.
    void ParameterChanged(int index) override;

    std::atomic<float> zoom{1.0f};    // 1..17
    std::atomic<float> offset{0.0f};  // 0..1, where the zoomed range sits
    std::atomic<bool> mode{false};
    std::atomic<float> falloff{14.1f};
    std::atomic<float> visibleStart{0.0f}, visibleEnd{1024.0f};  // in bins
    std::array<double, kLength> hamming;
    std::vector<double> kaiserBessel;
    std::vector<uint32_t> colourRamp;
    std::vector<uint32_t> colours = std::vector<uint32_t>(128 * 128, 0);  // the panel's picture
};
