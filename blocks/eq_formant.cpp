// The EQ and the vowel filter.
//
// [SECTION] CEqBlock
// [SECTION] CFormantBlock
#include "blocks/eq_formant.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "engine/value_format.h"

// [SECTION] CEqBlock

namespace {
constexpr int kEqParamCount = CEqBlock::kBands * 4;
enum : int { kBandType, kBandFreq, kBandWidth, kBandGain };

struct EqRows {
    ParamRow rows[kEqParamCount];
    constexpr EqRows() : rows() {
        for (int b = 0; b < CEqBlock::kBands; ++b) {
            const float freq = (float(b) + 0.5f) / 3.0f;
            rows[4 * b + kBandType] = {"TYPE", ParamKind::ButtonStrip, 0.0f, ValueText::Custom};
            rows[4 * b + kBandFreq] = {"Freq", ParamKind::Slider, freq > 1.0f ? 1.0f : freq,
                                       ValueText::Custom};
            rows[4 * b + kBandWidth] = {"Width", ParamKind::Slider, 0.5f, ValueText::Custom};
            rows[4 * b + kBandGain] = {"dB", ParamKind::Slider, 0.5f, ValueText::Custom};
        }
    }
};
constexpr EqRows kEqRows;
constexpr int kEqPorts = 1;
constexpr int kSignalPort = 0;

// ln(2) / 2: the bandwidth in octaves becomes the sinh argument.
constexpr double kHalfLn2 = 0.34657359027997264;

float EqWidth(float v) { return v * 9.99f + 0.01f; }
float EqGainDb(float v) { return (v - 0.5f) * 50.0f; }

// The biquad over `n` samples; `in` and `out` may be the same row.
void RunBand(const EqBand& band, EqHistory& h, const float* in, float* out, int n) {
    const float c0 = band.c[0], c1 = band.c[1], c2 = band.c[2], c3 = band.c[3], c4 = band.c[4];
    float y1 = h.y1, y2 = h.y2, x1 = h.x1, x2 = h.x2;
    for (int i = 0; i < n; ++i) {
        const float x = in[i];
        const float y = c0 * x + c1 * x1 + c2 * x2 - c3 * y1 - c4 * y2;
        x2 = x1, x1 = x, y2 = y1, y1 = y;
        out[i] = y;
    }
    h = {y1, y2, x1, x2};
}
}  // namespace

void EqBand::Design(float sampleRate) {
    // Below 40 kHz the top of the curve lies past Nyquist, where the design divides by a
    // sine near zero; such a band is held just under it.
    const double f = std::min(double(frequency), double(sampleRate) * 0.49);
    const double w = 2.0 * std::numbers::pi * f / double(sampleRate);
    const double s = std::sin(w), cw = std::cos(w);
    const double alpha = s * std::sinh(kHalfLn2 * double(width) * w / s);
    const double A = std::pow(10.0, double(gainDb) * 0.025);
    const double beta = std::sqrt(A) / double(width);
    double b0, b1, b2, a0, a1, a2;
    switch (type) {
        case kPeak:
            b0 = 1.0 + alpha * A, b1 = -2.0 * cw, b2 = 1.0 - alpha * A;
            a0 = 1.0 + alpha / A, a1 = -2.0 * cw, a2 = 1.0 - alpha / A;
            break;
        case kLowShelf:
            b0 = A * ((A + 1.0) - (A - 1.0) * cw + beta * s);
            b1 = 2.0 * A * ((A - 1.0) - (A + 1.0) * cw);
            b2 = A * ((A + 1.0) - (A - 1.0) * cw - beta * s);
            a0 = (A + 1.0) + (A - 1.0) * cw + beta * s;
            a1 = -2.0 * (A - 1.0) - 2.0 * (A + 1.0) * cw;
            a2 = (A + 1.0) + (A - 1.0) * cw - beta * s;
            break;
        case kHighShelf:
            b0 = A * ((A + 1.0) + (A - 1.0) * cw + beta * s);
            b1 = -2.0 * A * ((A - 1.0) + (A + 1.0) * cw);
            b2 = A * ((A + 1.0) + (A - 1.0) * cw - beta * s);
            a0 = (A + 1.0) - (A - 1.0) * cw + beta * s;
            a1 = 2.0 * ((A - 1.0) - (A + 1.0) * cw);
            a2 = (A + 1.0) - (A - 1.0) * cw - beta * s;
            break;
        default:  // all-pass
            b0 = 1.0 - alpha, b1 = -2.0 * cw, b2 = 1.0 + alpha;
            a0 = 1.0 + alpha, a1 = -2.0 * cw, a2 = 1.0 - alpha;
            break;
    }
    c[0] = float(b0 / a0), c[1] = float(b1 / a0), c[2] = float(b2 / a0);
    c[3] = float(a1 / a0), c[4] = float(a2 / a0);
}

CEqBlock::CEqBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(kEqRows.rows, kEqPorts, kCategoryModifiers, "Eq");
}

float CEqBlock::FrequencyHz(float value) {
    const float v = std::clamp(value, 0.0f, 1.0f);
    const float x = 10.0f * v;
    const int i = int(x);
    const float p = x - float(i);
    return std::min((0.32f * p * p + 0.68f * p + 1.0f) * std::exp2(float(i)) * 22.0f, 20000.0f);
}

void CEqBlock::ParameterChanged(int index) {
    if (index < 0 || index >= kEqParamCount) return;
    const int b = index / 4;
    const float* v = &values[size_t(4 * b)];
    EqBand band;
    band.type = std::clamp(int(v[kBandType] * 3.0f), 0, 3);
    band.frequency = FrequencyHz(v[kBandFreq]);
    band.width = EqWidth(v[kBandWidth]);
    band.gainDb = EqGainDb(v[kBandGain]);
    band.Design(sampleRate);
    // The editor's thread designs while Work may run: the band is replaced whole, and its
    // histories start again (the click is part of the block's sound).
    bands[b] = band;
    for (auto& voice : history) voice[b] = {};
    displayChanged.store(true, std::memory_order_relaxed);
}

std::string CEqBlock::DescribeValue(int index, float value) {
    switch (index % 4) {
        case kBandFreq:
            return FormatSignificant(FrequencyHz(value), 3) + " Hz";
        case kBandWidth:
            return FormatSignificant(EqWidth(value), 3);
        case kBandGain:
            return FormatSignificant(EqGainDb(value), 3) + " dB";
        default:
            return {};
    }
}

std::vector<std::wstring> CEqBlock::ParameterChoices(int index) {
    if (index % 4 != kBandType) return {};
    return {L"off", L"peak", L"low", L"high"};
}

void CEqBlock::PrepareBlock(int numSamples) {
    std::fill_n(output[0], numSamples, 0.0f);
    CAudioBlock::PrepareBlock(numSamples);
}

void CEqBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    const float* in = ports[kSignalPort]->buffer[voice];
    float* out = output[voice];
    if (PortHasData(kSignalPort, voice)) {
        RunBand(bands[0], history[voice][0], in, out, numSamples);
        for (int b = 1; b < kBands; ++b) RunBand(bands[b], history[voice][b], out, out, numSamples);
        tail[voice] = 1;
        active[voice] = 1;
    } else if (tail[voice]) {
        // One more block over whatever the row still holds, then clean histories.
        RunBand(bands[0], history[voice][0], in, out, numSamples);
        history[voice][0] = {};
        for (int b = 1; b < kBands; ++b) {
            RunBand(bands[b], history[voice][b], out, out, numSamples);
            history[voice][b] = {};
        }
        tail[voice] = 0;
        active[voice] = 1;
    }
}

// [SECTION] CFormantBlock

namespace {
enum : int { kMorph, kVowelA, kVowelB, kFormantParamCount };

constexpr ParamRow kFormantRows[kFormantParamCount] = {
    {"Morph", ParamKind::Slider, 0.0f, ValueText::Percent},
    {"A", ParamKind::ButtonStrip, 0.0f, ValueText::Percent},
    {"B", ParamKind::ButtonStrip, 0.5f, ValueText::Percent},
};
constexpr int kFormantPorts = 2;
constexpr int kMorphPort = 1;
constexpr int kVowels = 5;

// Per vowel: the input's factor, then the factors of the ten histories, newest first.
constexpr double kVowelTable[kVowels][CFormantBlock::kOrder + 1] = {
    {8.11044e-06, 8.943665402, -36.83889529, 92.01697887, -154.337906, 181.6233289, -151.8651235, 89.09614114,
     -35.10298511, 8.388101016, -0.923313471},
    {4.36215e-06, 8.90438318, -36.55179099, 91.05750846, -152.422234, 179.1170248, -149.6496211, 87.78352223,
     -34.60687431, 8.282228154, -0.914150747},
    {3.33819e-06, 8.893102966, -36.49532826, 90.96543286, -152.4545478, 179.4835618, -150.315433, 88.43409371,
     -34.98612086, 8.407803364, -0.932568035},
    {1.13572e-06, 8.994734087, -37.2084849, 93.22900521, -156.6929844, 184.596544, -154.3755513, 90.49663749,
     -35.58964535, 8.478996281, -0.929252233},
    {4.0943e-07, 8.997322763, -37.20218544, 93.11385476, -156.2530937, 183.7080141, -153.2631681, 89.59539726,
     -35.12454591, 8.338655623, -0.910251753},
};

// Far above any level a signal of full scale reaches inside the filter (about 2e-4), and
// about 50 at the output.
constexpr float kRunaway = 0.01f;

int VowelIndex(float v) { return std::clamp(int(v * 4.0f), 0, kVowels - 1); }
}  // namespace

CFormantBlock::CFormantBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(kFormantRows, kFormantPorts, kCategoryModifiers, "Formant");
}

void CFormantBlock::ParameterChanged(int index) {
    if (index == kVowelA) vowelA.store(VowelIndex(values[kVowelA]), std::memory_order_relaxed);
    if (index == kVowelB) vowelB.store(VowelIndex(values[kVowelB]), std::memory_order_relaxed);
}

std::string CFormantBlock::DescribeValue(int index, float value) {
    if (index < 0 || index >= kFormantParamCount) return {};
    return FormatPercent(value);
}

std::vector<std::wstring> CFormantBlock::ParameterChoices(int index) {
    if (index != kVowelA && index != kVowelB) return {};
    return {L"A", L"E", L"I", L"O", L"U"};
}

void CFormantBlock::Work(int voice, int numSamples) {
    double* h = history[voice];
    if (!PortConnected(kSignalPort) || !PortHasData(kSignalPort, voice)) {
        active[voice] = 0;
        std::fill_n(h, kOrder, 0.0);
        return;
    }
    active[voice] = 1;
    float m = values[kMorph];
    if (PortConnected(kMorphPort) && PortHasData(kMorphPort, voice))
        m = std::clamp(ports[kMorphPort]->buffer[voice][0] + m, 0.0f, 1.0f);
    const double* a = kVowelTable[vowelA.load(std::memory_order_relaxed)];
    const double* b = kVowelTable[vowelB.load(std::memory_order_relaxed)];
    double e[kOrder + 1];
    for (int k = 0; k <= kOrder; ++k) e[k] = a[k] * (1.0 - double(m)) + b[k] * double(m);
    const float* in = ports[kSignalPort]->buffer[voice];
    float* out = output[voice];
    for (int i = 0; i < numSamples; ++i) {
        double sum = double(in[i]) * 3.0517578e-05 * e[0];
        for (int k = 0; k < kOrder; ++k) sum += e[k + 1] * h[k];
        float s = float(sum);
        if (!(std::fabs(s) < kRunaway)) {
            // Blends between "A" and "U" around the middle put poles outside the unit
            // circle, and a NaN fed in would ring for good: start the filter over.
            std::fill_n(h, kOrder, 0.0);
            s = 0.0f;
        }
        for (int k = kOrder - 1; k > 0; --k) h[k] = h[k - 1];
        h[0] = s;
        out[i] = s * 32768.0f * 0.025118865f * 6.0f;
    }
}
