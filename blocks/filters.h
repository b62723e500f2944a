// The resonant filters: one second-order section per voice, low-pass, high-pass, band-pass
// or band reject. "Filter" ramps its coefficients for smooth sweeps and keeps snapshots for
// its response display; the second "Filter" is cheaper and can follow the played note.
#pragma once

#include <atomic>
#include <string>

#include "engine/audio_block.h"

// One second-order section in transposed direct form II, all single precision. `extra`
// is cleared with the state and never read; the layout is what the response display and
// the delay filter expect.
struct BiquadRecord {
    float targetB0 = 1.0f, targetB1 = 0.0f, targetB2 = 0.0f, targetA1 = 0.0f, targetA2 = 0.0f;
    float s0 = 0.0f, s1 = 0.0f;
    float extra[5] = {};
    float currentB0 = 1.0f, currentB1 = 0.0f, currentB2 = 0.0f, currentA1 = 0.0f, currentA2 = 0.0f;

    // Pass-through, state cleared, current equal to target.
    void MakeFresh() { *this = BiquadRecord{}; }
    // s0, s1 and the five unread floats.
    void ClearState();
    void CurrentToTarget();
    // Zeroes s0, s1 and extra[0] when both state words are below 2^-19 in magnitude. The
    // threshold lies far above the denormal range on purpose: it also ends quiet tails.
    void GuardDenormals();
    // Clears the state once it is past 2^16 or not a number. Coefficients that jump
    // between the ends of the range at high Q pump a transposed section up without bound,
    // until it overflows; no signal a patch plays comes near this level otherwise.
    void GuardRunaway();
    // y = b0 x + s0; s0 = b1 x + s1 - a1 y; s1 = b2 x - a2 y, with the target coefficients.
    float Tick(float x) {
        float y = targetB0 * x + s0;
        s0 = targetB1 * x + s1 - targetA1 * y;
        s1 = targetB2 * x - targetA2 * y;
        return y;
    }
    // The recursion over `m` samples with the current coefficients stepping per sample by
    // (target - start) * `stepScale`, each step after the sample's output; current ends
    // equal to target. `in` null means silence. `in` and `out` may be the same row.
    void RampedRun(const float* in, float* out, int m, float stepScale);
};

// RampedRun of `count` sections at once, each over its own rows, sample for sample the
// same results as one call per section. The sections are independent, so running them
// side by side hides the latency of the recursion. `in` rows may not be null.
void RampedRunTogether(BiquadRecord* const* records, const float* const* in, float* const* out, int count,
                       int m, float stepScale);

// The polynomials that stand in for cosine and sine, in double with w rounded to single:
// C(w) = 1 - w^2/2 + w^4/24 and S(w) = w + w^3/6 + w^5/120. The plus sign of the cube in
// S is how the filters have always sounded; it is not the sine series and must stay.
double PolyCos(float w);
double PolySin(float w);
// w = 2 pi f / rate in double, rounded to single.
float AngularFrequency(double frequencyHz, double sampleRate);

// The shared cutoff law, in single precision: per tenth of the range the quadratic
// 0.32p^2 + 0.68p + 1 rises from 1 to 2 on top of 2^i * 22 Hz. 0 gives 22 Hz, 0.5 gives
// 704 Hz and 1 gives 22528 Hz. The value is clamped to 0..1.
float FilterCutoffHz(float value);

// The filter with the drawn response. Ports: 0 audio, 1 cutoff and 2 resonance
// modulation, each added to its stored value and clamped. Coefficients ramp per sample
// toward a design made once a block, or every 64 samples under modulation.
class CFilterBlock : public CAudioBlock {
public:
    static constexpr int kReference = kMaxVoices;  // record designed from the knobs alone

    CFilterBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    // A velocity other than the voice's last makes its section a fresh pass-through.
    void NoteOn(int velocity, int voice) override;
    void ParameterChanged(int index) override;
    // Copies the designed coefficients into the write bank for the display.
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;
    void Reset() override;

    // Q of this class: (14 r^3 + 5 r + 1)^2, r clamped to 0..1, so 1 to 400.
    static float ResonanceQ(float value);
    // Designs `record`'s target for `type` from the cutoff and resonance values, with the
    // gain rule, at `rate`. No state is touched.
    static void Design(BiquadRecord& record, int type, float cutoffValue, float resonanceValue, float rate);

    // Display side: when `displayChanged` is set, copies bank `snapshotRead` into `sets`
    // (17 sets of b0 b1 b2 a1 a2), swaps the banks and clears the flag. GUI thread.
    void ReadSnapshots(float (&sets)[kMaxVoices + 1][5]);

    BiquadRecord records[kMaxVoices + 1];
    bool wasActive[kMaxVoices] = {};
    bool resetPending[kMaxVoices] = {};
    int lastNoteValue[kMaxVoices];
    float snapshots[2][kMaxVoices + 1][5] = {};
    int snapshotRead = 0;
    int snapshotWrite = 1;
    std::atomic<int> filterType{0};
    std::atomic<float> cutoffValue{0.5f};
    std::atomic<bool> displayChanged{false};

private:
    // The steps of one voice's design: pending reset, design, guards, jump to target.
    void DesignVoice(int voice, float cutoff, float resonance);
    // The same steps with the coefficients designed already.
    void ApplyDesign(int voice, const BiquadRecord& designed);
    // Cutoff and resonance values at sample `i` of `voice`, with written ports added.
    float ModulatedCutoff(int voice, int i) const;
    float ModulatedResonance(int voice, int i) const;
    // At the first voice's Work: every voice with input and no modulation, designed in
    // voice order and filtered side by side. Their Work calls then find them done.
    void RunUnmodulatedVoicesTogether(int numSamples);
    // The same for voices under modulation, chunk by chunk, each with its own designs.
    void RunModulatedVoicesTogether(int numSamples);

    bool doneTogether[kMaxVoices] = {};
};

// The cheaper filter: no ramp, no gain rule, coefficients replaced at once, every 32
// samples when port 1 is wired. With "KeyTrack" on the cutoff follows the note. Ports: 0
// audio, 1 cutoff modulation; port 2 exists but is never read. Its state survives silence.
class CFilterBlock2 : public CAudioBlock {
public:
    CFilterBlock2(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    void SetNote(float pitch, float velocity, int voice) override;
    void NoteOn(int velocity, int voice) override {}
    void ParameterChanged(int index) override;
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;
    void Reset() override {}

    // Designs `voice`'s coefficients with `modulation` added to the cutoff. Types above 3
    // design nothing, so the band reject button keeps the last coefficients: old patches
    // rely on that.
    void DesignVoice(int voice, float modulation);

    BiquadRecord records[kMaxVoices];
    bool tailPending[kMaxVoices] = {};
    std::atomic<float> notePitch[kMaxVoices];
    std::atomic<int> filterType{0};
    std::atomic<float> cutoffValue{0.5f};
    std::atomic<bool> keyTrack{false};
    std::atomic<bool> displayChanged{false};
};
