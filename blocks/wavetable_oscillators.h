// The plain oscillators: a 32-bit phase accumulator reading the shared band-limited note
// tables, one table per note, no interpolation. Beside them the Monophone, which hands a
// folded, single-stream copy of its input on.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "engine/audio_block.h"

// Frequency to a 32-bit phase increment: frequency / rate * 2^32, truncated, all in float.
// Past 2^32 (a frequency at or above the sample rate) it wraps as a 64-bit conversion would,
// and past 2^63 it gives 0; nothing in the pitch laws guards against that.
uint32_t PhaseIncrementFor(float frequencyHz, float sampleRate);

// State and sample loop shared by the three table oscillators. Not a block type itself.
//
// Ports: 0 pitch modulation, added to the phase increment sample by sample (1.0 adds 1/32
// of a cycle per sample; the table choice does not follow it); 1 amplitude modulation,
// multiplying the output. A wired amplitude port that carries nothing for a voice
// silences that voice and freezes its phase.
class CTableOscBase : public CAudioBlock {
public:
    // Clears both ports and every voice's active flag.
    void PrepareBlock(int numSamples) override;

    // Per voice. `note` and the cooked pitch are written under the engine lock by SetNote
    // and from the GUI thread by ParameterChanged, hence the atomics; `phase` belongs to
    // Work alone. Phases are never reset, so voices run free across notes.
    std::atomic<float> note[kMaxVoices];
    uint32_t phase[kMaxVoices] = {};
    std::atomic<uint32_t> phaseIncrement[kMaxVoices];
    std::atomic<int32_t> tableIndex[kMaxVoices];  // 0..127, which note table to read

    std::atomic<float> amplitude{0.0f};  // "Amp" squared
    std::atomic<int32_t> waveform{0};    // 0 sine, 1 triangle, 2 sawtooth, 3 pulse
    std::atomic<int32_t> monoNote;       // pitch on the monophonic path, truncated

protected:
    CTableOscBase(VrokInstance* engine, float sampleRate, int initialMonoNote);

    // Amp and Waveform rows, the same in all three oscillators.
    void AmplitudeOrWaveformChanged(int index);
    // The note-following pitch law for one voice, from its `note` and "Pitch".
    void UpdateNotePitch(int voice);
    // Work of the note-following oscillators.
    void WorkFollowingNote(int voice, int numSamples);
    // Fills output row `outVoice` from the state of `stateVoice`, choosing one of four
    // sample loops once. Sets the active flag of `outVoice`.
    void Render(int stateVoice, int outVoice, int numSamples, bool ampConnected, bool pitchCounts);
};

// Follows the played note. "Pitch" detunes by -12..+12 semitones, "Amp" is squared,
// "Waveform" picks one of the four tables. Sounds on every voice the engine runs, note or
// not, unless its amplitude port is wired.
class COscBlock : public CTableOscBase {
public:
    COscBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return true; }
    std::string DescribeValue(int index, float value) override;
    void SetNote(float pitch, float velocity, int voice) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;
};

// Sounds exactly like COscBlock: same pitch, no octave shift, whatever its name suggests.
// It keeps a monophonic pitch path that its always-polyphonic answer leaves dormant.
class CSubOscBlock : public CTableOscBase {
public:
    CSubOscBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return true; }
    std::string DescribeValue(int index, float value) override;
    void SetNote(float pitch, float velocity, int voice) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    // Voice 0 from `monoNote`, with the table chosen in integer steps.
    void UpdateMonoPitch();
};

// Pitch from "Freq" alone; the played note plays no part. Polyphonic only when fed so.
// Ports as for COscBlock.
class CFixedOscBlock : public CTableOscBase {
public:
    CFixedOscBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void SetNote(float pitch, float velocity, int voice) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    // The fixed pitch law for one voice's state.
    void UpdatePitch(int voice);
};

// Port 0 is its audio input, copied through. Being monophonic, it is handed the sum of
// all voices of its polyphonic sources in voice 0, and its copy reaches every voice.
class CMonoBlock : public CAudioBlock {
public:
    CMonoBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool) override { return false; }
    std::string DescribeValue(int, float) override { return {}; }
    void Work(int voice, int numSamples) override;
};
