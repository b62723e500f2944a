// Oscillators that shape their sound from several phases at once: a stack of up to seven
// detuned copies, a hard-synced pair with a smoothed reset, and a pulse made from two reads
// of one table. Unlike the plain oscillators they read the engine's 16-bit band tables with
// linear interpolation, and choose the table from the phase increment itself.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

#include "engine/audio_block.h"

struct WaveTable;

namespace shaped {

// Increments at or above this (0.3779 of the sample rate, as freqFraction * 2^30) stop the
// oscillator instead of letting it alias.
constexpr float kMaxIncrementArgument = 405798912.0f;

// freqFraction * 2^30 (times any modulation factor) to a phase increment: truncated, then
// shifted left by 2, so increments have a grain of 4; 0 at or above the limit and for NaN.
// A negative argument runs the phase backwards.
uint32_t IncrementFor(float argument);

// Linear interpolation in a 16-bit table: top 11 bits of the phase pick the entry, the next
// 16 (or 8) the fraction. The guard entry after the cycle stands in for entry 0.
int32_t Read16(const WaveTable& table, uint32_t phase);
int32_t Read8(const WaveTable& table, uint32_t phase);

// The sync window: 2048 entries of 16384, then a falling quarter sine to 0, then a last 0.
constexpr int kSyncWindowLength = 4097;
const int32_t* SyncWindow();

// One sample of the hard-synced pair at master phase `phase`: `syncFixed` is the slave
// ratio times 65536 / 16, `windowOffset` 0..2048 how far into the falling window a cycle
// starts. The value before the final doubling and the amplitude.
int32_t SyncSample(const WaveTable& table, uint32_t phase, uint32_t syncFixed, int32_t windowOffset);

// One sample of the pulse oscillator: the difference of two reads `offset` apart.
inline int32_t PwmSample(const WaveTable& table, uint32_t phase, uint32_t offset) {
    return Read8(table, phase) - Read8(table, phase + offset);
}

}  // namespace shaped

// Pitch state shared by the three: per voice the note, frequency / rate, and the increment
// the last Work used. The pitch law is the plain oscillators'.
class CShapedOscBase : public CAudioBlock {
public:
    bool IsPolyphonic(bool) override { return true; }
    // "Amp" in decibels of its square; every other row, switches included, in percent.
    std::string DescribeValue(int index, float value) override;
    void SetNote(float pitch, float velocity, int voice) override;

    // Written by SetNote under the engine lock and by ParameterChanged on the GUI thread.
    std::atomic<float> note[kMaxVoices];
    std::atomic<float> freqFraction[kMaxVoices];
    uint32_t phaseIncrement[kMaxVoices] = {};  // Work's own: the increment it left
    std::atomic<int32_t> waveform{2};          // 0 sine, 1 triangle, 2 sawtooth, 3 pulse

protected:
    CShapedOscBase(VrokInstance* engine, float sampleRate, int pitchIndex, int waveformIndex);
    // freqFraction of `voice` from its note and "Pitch".
    void UpdatePitch(int voice);
    void UpdateAllPitches();
    void UpdateWaveform();
    const WaveTable& TableFor(uint32_t increment) const;

private:
    int pitchIndex, waveformIndex;
};

// Up to seven detuned copies of one oscillator. "Diffuse" sets how many sound (a new one
// fades in by the square of the fractional part, and stands at full weight at once at an
// exact integer), "Spread" the detune. Port 0 multiplies the output; wired but silent for
// a voice, it silences the voice and its phases stand. Phases run free, never reset.
class CHyperOscBlock : public CShapedOscBase {
public:
    static constexpr int kMaxOscillators = 7;

    CHyperOscBlock(VrokInstance* engine, float sampleRate);

    void ParameterChanged(int index) override;
    // Holds `lock` throughout.
    void Work(int voice, int numSamples) override;

    // What the sample loops read, replaced only under `lock`.
    float detuneRatio[kMaxOscillators] = {1.0f};
    float gain[kMaxOscillators] = {};
    int numOscillators = 1;
    uint32_t phase[kMaxVoices][kMaxOscillators] = {};
    // Guards the hand-over of the arrays above from the parameter path to Work.
    std::mutex lock;

private:
    // The gain law, then the detune law, both computed aside and copied under the lock.
    void UpdateGainsAndDetune(bool gains);
};

// What the sync and pulse oscillators share: one phase per voice that "Phase reset" may
// restart at a note, and three ports (0 amplitude, 1 pitch, 2 the shape's own control).
class CResettingOscBase : public CShapedOscBase {
public:
    // With "Phase reset" on, the note restarts the voice's phase and forgets its last
    // increment.
    void NoteOn(int velocity, int voice) override;

    std::atomic<float> ampScale{0.0f};  // "Amp" squared over 16000, the tables' scale
    std::atomic<bool> phaseReset{false};
    // Work's, except that NoteOn (under the engine lock, between Work calls) may zero it.
    uint32_t phase[kMaxVoices] = {};

protected:
    using CShapedOscBase::CShapedOscBase;
    // One Work call: the silence rule of the amplitude port, the table for the voice's
    // increment, then the sample loop for the ports that carry data. `control` is the
    // shape's control without modulation; `third` turns a port-2 sample into it.
    template <class Third, class Sample>
    void RenderVoice(int voice, int numSamples, uint32_t control, Third third, Sample sample);
};

// A slave at 16 * ("Amount" + 0.1) times the master frequency, restarting with each master
// cycle, faded by a window whose length "Sharpness" sets and crossfaded into its next
// cycle over the master's last sixteenth. Ports: 0 amplitude, 1 pitch (a factor: -1
// stops, +1 is an octave up), 2 amount.
class CSyncOscBlock : public CResettingOscBase {
public:
    CSyncOscBlock(VrokInstance* engine, float sampleRate);

    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    std::atomic<float> syncAmount{0.6f};
    std::atomic<uint32_t> syncFixed{0};
    std::atomic<int32_t> windowOffset{0};
};

// A pulse from the difference of two reads of one table, half of "PW" of a cycle apart: a
// sawtooth becomes a pulse of that width, other waveforms a comb-like shape. Ports: 0
// amplitude, 1 pitch (a factor, as for CSyncOscBlock), 2 pulse width.
class CPWMOscBlock : public CResettingOscBase {
public:
    CPWMOscBlock(VrokInstance* engine, float sampleRate);

    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    std::atomic<float> pulseWidth{0.5f};
    std::atomic<uint32_t> phaseOffset{0};  // -pulseWidth/2 of a cycle
};
