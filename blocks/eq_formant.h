// Fixed colourings: a three-band parametric EQ and a vowel filter that morphs between two
// of five vowels. Port 0 is the audio input of both.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "engine/audio_block.h"

// One EQ band: its settings and the normalised coefficients of its biquad.
struct EqBand {
    enum Type : int { kOff, kPeak, kLowShelf, kHighShelf };

    float frequency = 0.0f, width = 0.0f, gainDb = 0.0f;
    int type = kOff;
    float c[5] = {1.0f, 0.0f, 0.0f, 0.0f, 0.0f};

    // Designs c from the settings in double precision. "off" is an all-pass, not a bypass:
    // it keeps the level and still turns the phase around its frequency.
    void Design(float sampleRate);
};

// Direct-form history of one band in one voice.
struct EqHistory {
    float y1 = 0.0f, y2 = 0.0f, x1 = 0.0f, x2 = 0.0f;
};

// Three bands in series, each "off", "peak", low or high shelf. Moving any parameter clears
// its band's history, which clicks. A voice whose input stops renders one more block from
// the stale row and is then silent with clean histories.
class CEqBlock : public CAudioBlock {
public:
    static constexpr int kBands = 3;

    CEqBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    std::vector<std::wstring> ParameterChoices(int index) override;
    void ParameterChanged(int index) override;
    void PrepareBlock(int numSamples) override;
    void Work(int voice, int numSamples) override;

    // The cutoff law in hertz, capped at 20000.
    static float FrequencyHz(float value);

    EqBand bands[kBands];
    EqHistory history[kMaxVoices][kBands];
    uint8_t tail[kMaxVoices] = {};
    std::atomic<bool> displayChanged{true};
};

// A tenth-order all-pole vowel filter; "Morph" (plus port 1's first sample of each block)
// blends vowel "A" into vowel "B". The histories must be doubles: in single precision
// the recursion does not hold together.
class CFormantBlock : public CAudioBlock {
public:
    static constexpr int kOrder = 10;

    CFormantBlock(VrokInstance* engine, float sampleRate);

    bool IsPolyphonic(bool inputPolyphonic) override { return inputPolyphonic; }
    std::string DescribeValue(int index, float value) override;
    std::vector<std::wstring> ParameterChoices(int index) override;
    void ParameterChanged(int index) override;
    void Work(int voice, int numSamples) override;

    std::atomic<int> vowelA{0}, vowelB{2};
    double history[kMaxVoices][kOrder] = {};
};
