// The shapers and level blocks.
//
// [SECTION] Shared
// [SECTION] CWaveShaper
// [SECTION] CClipperBlock
// [SECTION] CBitCrusherBlock
// [SECTION] CRescaleBlock
// [SECTION] CAmpBlock
// [SECTION] CInvertBlock
// [SECTION] CCrossfadeBlock
#include "blocks/shapers.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdint>
#include <numbers>

#include "blocks/vector_lanes.h"
#include "engine/value_format.h"

// [SECTION] Shared

namespace {
bool Counts(const CAudioBlock& block, int port, int voice) {
    return block.PortConnected(port) && block.PortHasData(port, voice);
}

const float* RowIfCounts(CAudioBlock& block, int port, int voice) {
    return Counts(block, port, voice) ? block.ports[port]->buffer[voice] : nullptr;
}

// Bipolar working value of a 0..1 parameter.
float Bipolar(float v) { return (v - 0.5f) * 2.0f; }
}  // namespace

// [SECTION] CWaveShaper

namespace {
enum : int { kScale, kOffset };
constexpr int kShaperParamCount = CWaveShaper::kFirstPoint + CWaveShaper::kPoints;

struct ShaperRows {
    ParamRow rows[kShaperParamCount];
    // The points start as a straight line from -1 to nearly 1.
    constexpr ShaperRows() : rows() {
        rows[kScale] = {"Scale", ParamKind::Slider, 0.5f, ValueText::Percent};
        rows[kOffset] = {"Offset", ParamKind::Slider, 0.5f, ValueText::Percent};
        for (int j = 0; j < CWaveShaper::kPoints; ++j)
            rows[CWaveShaper::kFirstPoint + j] = {"wav", ParamKind::Hidden, float(j) / 128.0f,
                                                  ValueText::Empty};
    }
};
constexpr ShaperRows kShaperRows;
// Signal, scale and offset; the points have no ports.
constexpr int kShaperPorts = 3;
constexpr int kSignalPort = 0, kScalePort = 1, kOffsetPort = 2;
constexpr float kLastPosition = float(CWaveShaper::kPoints - 1);

// The smoothing section: a low-pass at a quarter of the rate, the same at every rate.
BiquadRecord HalfBandSection() {
    const float w = std::numbers::pi_v<float> / 2.0f;
    const float c = std::cos(w), s = std::sin(w);
    const float n = 1.0f / (1.0f + s / 2.0f);
    BiquadRecord r;
    r.targetB0 = r.targetB2 = (1.0f - c) * n / 2.0f;
    r.targetB1 = (1.0f - c) * n;
    r.targetA1 = -2.0f * c * n;
    r.targetA2 = (1.0f - s / 2.0f) * n;
    r.CurrentToTarget();
    return r;
}
}  // namespace

CWaveShaper::CWaveShaper(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    std::fill(std::begin(sections), std::end(sections), HalfBandSection());
    ConfigureFromRows(kShaperRows.rows, kShaperPorts, kCategoryModifiers, "Waveshaper");
}

void CWaveShaper::ParameterChanged(int index) {
    const float v = values[index];
    if (index == kScale) {
        lookupScale.store(v * 0.95f * 64.0f + 3.2f, std::memory_order_relaxed);
        outputScale.store(1.0f / (v * 0.95f + 0.05f), std::memory_order_relaxed);
    } else if (index == kOffset) {
        lookupOffset.store(v * 128.0f, std::memory_order_relaxed);
    } else if (index >= kFirstPoint && index < kFirstPoint + kPoints) {
        shapeTable[index - kFirstPoint] = (v - 0.5f) * 2.0f;
        shapeTable[kPoints] = shapeTable[kPoints - 1];
    }
}

std::string CWaveShaper::DescribeValue(int index, float value) {
    if (index < 0 || index >= kFirstPoint) return {};
    return DescribeRowValue(kShaperRows.rows[index], value, sampleRate);
}

float CWaveShaper::Lookup(float position) const {
    // Written so that NaN lands on point 0 instead of indexing with an undefined integer.
    const float p = position > 0.0f ? std::min(position, kLastPosition) : 0.0f;
    const int i = int(p);
    const float t = p - float(i);
    return shapeTable[i] * (1.0f - t) + shapeTable[i + 1] * t;
}

void CWaveShaper::Work(int voice, int numSamples) {
    active[voice] = 0;
    BiquadRecord& section = sections[voice];
    float* out = output[voice];
    if (!PortHasData(kSignalPort, voice)) {
        for (int pass = 0; pass < 4; ++pass) section.Tick(0.0f);
        std::fill_n(out, numSamples, 0.0f);
        active[voice] = 1;
        return;
    }
    const float* in = ports[kSignalPort]->buffer[voice];
    const float* scaleMod = RowIfCounts(*this, kScalePort, voice);
    const float* offsetMod = RowIfCounts(*this, kOffsetPort, voice);
    const float offset = lookupOffset.load(std::memory_order_relaxed);
    float scale = lookupScale.load(std::memory_order_relaxed);
    float outScale = outputScale.load(std::memory_order_relaxed);
    float centre = Lookup(offset);
    for (int i = 0; i < numSamples; ++i) {
        float at = offset;
        if (offsetMod) {
            // The port reaches 127 points, not the knob's 128.
            at = offsetMod[i] * 127.0f + offset;
            centre = Lookup(at);
        }
        float position;
        if (scaleMod) {
            const float s = std::clamp(scaleMod[i] + values[kScale], 0.0f, 1.0f) * 0.95f + 0.05f;
            position = in[i] * s * 64.0f + at;
            outScale = 1.0f / s;
        } else {
            position = in[i] * scale + at;
        }
        const float y = Lookup(position) * outScale - centre * outScale;
        // As if at twice the rate: a zero between samples, then the shaped sample.
        section.Tick(0.0f);
        out[i] = section.Tick(y);
    }
    active[voice] = 1;
}

// [SECTION] CClipperBlock

namespace {
enum : int { kUpper, kLower, kClipperParamCount };

constexpr ParamRow kClipperRows[kClipperParamCount] = {
    // name            kind                  default  value text
    {"Upper limit", ParamKind::SliderAlt, 1.0f, ValueText::Custom},
    {"Lower limit", ParamKind::SliderAlt, 0.0f, ValueText::Custom},
};
constexpr int kUpperPort = 1, kLowerPort = 2;
}  // namespace

CClipperBlock::CClipperBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(kClipperRows, PortsFor(kClipperParamCount), kCategoryModifiers, "Clipper");
}

void CClipperBlock::ParameterChanged(int index) {
    // Computed in locals, stored last: Work may read between the stores.
    const float upper = Bipolar(values[kUpper]);
    const float lower = Bipolar(values[kLower]);
    const float rest = std::min(upper, std::max(lower, 0.0f));
    upperLimit.store(upper, std::memory_order_relaxed);
    lowerLimit.store(lower, std::memory_order_relaxed);
    restValue.store(rest, std::memory_order_relaxed);
    restIsSet.store(rest != 0.0f, std::memory_order_relaxed);
}

std::string CClipperBlock::DescribeValue(int index, float value) {
    if (index < 0 || index >= kClipperParamCount) return {};
    return FormatPercent(Bipolar(value));
}

void CClipperBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    const float* in = RowIfCounts(*this, kSignalPort, voice);
    const float* upperMod = RowIfCounts(*this, kUpperPort, voice);
    const float* lowerMod = RowIfCounts(*this, kLowerPort, voice);
    float* out = output[voice];
    const float upper = upperLimit.load(std::memory_order_relaxed);
    const float lower = lowerLimit.load(std::memory_order_relaxed);
    if (!in && !upperMod && !lowerMod) {
        if (!restIsSet.load(std::memory_order_relaxed)) return;
        std::fill_n(out, numSamples, restValue.load(std::memory_order_relaxed));
        active[voice] = 1;
        return;
    }
    for (int i = 0; i < numSamples; ++i) {
        const float u = upperMod ? std::clamp(upperMod[i] + upper, -1.0f, 1.0f) : upper;
        float l = lowerMod ? std::clamp(lowerMod[i] + lower, -1.0f, 1.0f) : lower;
        // With no signal, a modulated lower limit is first cut off at 0 from below.
        if (!in && lowerMod) l = std::max(l, 0.0f);
        const float x = in ? in[i] : 0.0f;
        // Lower first: crossed limits collapse the signal onto the upper one.
        out[i] = std::min(u, std::max(l, x));
    }
    active[voice] = 1;
}

// [SECTION] CBitCrusherBlock

namespace {
constexpr ParamRow kCrusherRows[] = {
    // name     kind               default  value text
    {"Bits", ParamKind::Slider, 0.0f, ValueText::Custom},
};
constexpr int kBitsPort = 1;

// The crossfade between two depths for a "Bits" value.
struct CrushDepth {
    int shift;
    float fraction;
    float scale;

    explicit CrushDepth(float bitsValue) {
        // A NaN from the port would make the shift undefined; it counts as 0.
        const float b = std::sqrt(bitsValue >= 0.0f ? bitsValue : 0.0f) * 20.0f;
        const float i = std::floor(b);
        shift = int(i);
        fraction = b - i;
        scale = (std::ldexp(1.0f, shift) * (1.0f - fraction) + std::ldexp(1.0f, shift + 1) * fraction) *
                (1.0f / 1048576.0f);
    }
    float Apply(float x) const {
        // Out of range the conversion yields what cvttss2si does, the "integer indefinite".
        const float scaled = x * 1048576.0f;
        const int32_t k = scaled >= -2147483648.0f && scaled < 2147483648.0f ? int32_t(scaled) : INT32_MIN;
        return (float(k >> shift) * (1.0f - fraction) + float(k >> (shift + 1)) * fraction) * scale;
    }
};
}  // namespace

float CrushSample(float x, float bitsValue) { return CrushDepth(bitsValue).Apply(x); }

CBitCrusherBlock::CBitCrusherBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(kCrusherRows, PortsFor(1), kCategoryModifiers, "BitCrusher");
}

std::string CBitCrusherBlock::DescribeValue(int index, float value) {
    if (index != 0) return {};
    return FormatSignificant(20.0f - std::sqrt(value) * 20.0f, 3);
}

void CBitCrusherBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    if (!PortHasData(kSignalPort, voice)) return;
    const float* in = ports[kSignalPort]->buffer[voice];
    float* out = output[voice];
    if (const float* bits = RowIfCounts(*this, kBitsPort, voice)) {
        for (int i = 0; i < numSamples; ++i)
            out[i] = CrushDepth(std::clamp(values[0] + bits[i], 0.0f, 1.0f)).Apply(in[i]);
    } else {
        const CrushDepth depth(values[0]);
        for (int i = 0; i < numSamples; ++i) out[i] = depth.Apply(in[i]);
    }
    active[voice] = 1;
}

// [SECTION] CRescaleBlock

namespace {
enum : int { kFactor, kRescaleOffset, kRescaleParamCount };

constexpr ParamRow kRescaleRows[kRescaleParamCount] = {
    // name       kind                  default  value text
    {"factor", ParamKind::SliderAlt, 1.0f, ValueText::Empty},
    {"offset", ParamKind::SliderAlt, 0.5f, ValueText::Empty},
};
constexpr int kFactorPort = 1, kAddPort = 2;
}  // namespace

CRescaleBlock::CRescaleBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(kRescaleRows, PortsFor(kRescaleParamCount), kCategoryModifiers, "Rescale");
}

void CRescaleBlock::ParameterChanged(int index) {
    if (index == kFactor) factor.store(values[kFactor] * 2.0f - 1.0f, std::memory_order_relaxed);
    if (index == kRescaleOffset)
        offset.store(values[kRescaleOffset] * 2.0f - 1.0f, std::memory_order_relaxed);
}

void CRescaleBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    const float f = factor.load(std::memory_order_relaxed);
    const float o = offset.load(std::memory_order_relaxed);
    const float* mul = RowIfCounts(*this, kFactorPort, voice);
    const float* add = RowIfCounts(*this, kAddPort, voice);
    float* out = output[voice];
    if (!PortHasData(kSignalPort, voice)) {
        if (add) {
            for (int i = 0; i < numSamples; ++i) out[i] = add[i] + o;
        } else {
            // Near 0 the block stays silent, so what follows it can sleep.
            if (std::fabs(o) <= 1e-5f) return;
            std::fill_n(out, numSamples, o);
        }
        active[voice] = 1;
        return;
    }
    const float* in = ports[kSignalPort]->buffer[voice];
    if (mul && add) {
        for (int i = 0; i < numSamples; ++i) out[i] = in[i] * f * mul[i] + o + add[i];
    } else if (mul) {
        for (int i = 0; i < numSamples; ++i) out[i] = in[i] * f * mul[i] + o;
    } else if (add) {
        for (int i = 0; i < numSamples; ++i) out[i] = in[i] * f + o + add[i];
    } else {
        for (int i = 0; i < numSamples; ++i) out[i] = in[i] * f + o;
    }
    active[voice] = 1;
}

// [SECTION] CAmpBlock

namespace {
constexpr ParamRow kAmpRows[] = {
    // name       kind               default  value text
    {"Factor", ParamKind::Slider, 0.5f, ValueText::Custom},
};
constexpr int kAmplitudePort = 1;

#if defined(__x86_64__)
// The modulated loop eight samples at a time, up to the last whole eight; returns where it
// stopped. The compiler will not vectorise the clamp on its own (the compares might trap).
// maxps(lo, m) is "m < lo ? lo : m" exactly, NaN included, and minps likewise, so this is
// the scalar loop to the bit.
VROK_AVX2 int AmplifyModulated(const float* in, const float* mod, float* out, float g, int n) {
    const __m256 lo = _mm256_set1_ps(-1.0f), hi = _mm256_set1_ps(1.0f), gv = _mm256_set1_ps(g);
    const __m256 magnitude = _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff));
    int i = 0;
    for (; i + 8 <= n; i += 8) {
        const __m256 m = _mm256_min_ps(hi, _mm256_max_ps(lo, _mm256_loadu_ps(mod + i)));
        const __m256 law = _mm256_mul_ps(m, _mm256_and_ps(m, magnitude));
        _mm256_storeu_ps(out + i, _mm256_mul_ps(_mm256_mul_ps(_mm256_loadu_ps(in + i), gv), law));
    }
    return i;
}
#else
int AmplifyModulated(const float*, const float*, float*, float, int) { return 0; }
#endif
}  // namespace

CAmpBlock::CAmpBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(kAmpRows, PortsFor(1), kCategoryModifiers, "Amplifier");
}

void CAmpBlock::ParameterChanged(int index) {
    if (index == 0) gain.store(values[0] * values[0] * 2.0f, std::memory_order_relaxed);
}

std::string CAmpBlock::DescribeValue(int index, float value) {
    if (index != 0) return {};
    return FormatDecibels(value * value * 2.0f);
}

void CAmpBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    if (!PortHasData(kSignalPort, voice)) return;
    const float* __restrict in = ports[kSignalPort]->buffer[voice];
    float* __restrict out = output[voice];
    const float g = gain.load(std::memory_order_relaxed);
    if (!PortConnected(kAmplitudePort)) {
        for (int i = 0; i < numSamples; ++i) out[i] = in[i] * g;
    } else {
        // Wired but silent for this voice: the voice stops.
        if (!PortHasData(kAmplitudePort, voice)) return;
        const float* __restrict mod = ports[kAmplitudePort]->buffer[voice];
        int i = CpuHasAvx2() ? AmplifyModulated(in, mod, out, g, numSamples) : 0;
        for (; i < numSamples; ++i) {
            float m = mod[i];
            m = m < -1.0f ? -1.0f : m;
            m = m > 1.0f ? 1.0f : m;
            out[i] = in[i] * g * (m * std::fabs(m));
        }
    }
    active[voice] = 1;
}

// [SECTION] CInvertBlock

CInvertBlock::CInvertBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(nullptr, 0, 1, kCategoryModifiers, "Invert");
}

void CInvertBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    if (!PortHasData(kSignalPort, voice)) return;
    const float* __restrict in = ports[kSignalPort]->buffer[voice];
    float* __restrict out = output[voice];
    // A sign flip, not a subtraction: zero becomes -0 and NaN stays NaN.
    for (int i = 0; i < numSamples; ++i)
        out[i] = std::bit_cast<float>(std::bit_cast<uint32_t>(in[i]) ^ 0x80000000u);
    active[voice] = 1;
}

// [SECTION] CCrossfadeBlock

namespace {
enum : int { kAmp1, kAmp2, kBalance, kAudio, kCrossfadeParamCount };

constexpr ParamRow kCrossfadeRows[kCrossfadeParamCount] = {
    // name     kind                  default  value text
    {"Amp 1", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Amp 2", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"X", ParamKind::SliderAlt, 0.5f, ValueText::Custom},
    {"Audio", ParamKind::Switch, 1.0f, ValueText::Bipolar},
};
// Two signals and the balance; the amplitudes and the mode have no ports.
constexpr int kCrossfadePorts = 3;
constexpr int kSignal1Port = 0, kSignal2Port = 1, kBalancePort = 2;
}  // namespace

CCrossfadeBlock::CCrossfadeBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(kCrossfadeRows, kCrossfadePorts, kCategoryModifiers, "Crossfade");
}

void CCrossfadeBlock::GainsAt(float b, bool audio, float& g1, float& g2) const {
    const float a1 = amp1.load(std::memory_order_relaxed), a2 = amp2.load(std::memory_order_relaxed);
    if (audio) {
        g1 = a1 * std::sqrt(1.0f - b);
        g2 = a2 * std::sqrt(b);
    } else {
        g1 = a1 * (1.0f - b);
        g2 = a2 * b;
    }
}

void CCrossfadeBlock::ParameterChanged(int index) {
    const float v = values[index];
    if (index == kAmp1) amp1.store(4.0f * v * v, std::memory_order_relaxed);
    if (index == kAmp2) amp2.store(4.0f * v * v, std::memory_order_relaxed);
    if (index == kBalance) balance.store(v, std::memory_order_relaxed);
    if (index == kAudio) audioMode.store(v >= 0.5f, std::memory_order_relaxed);
    float g1, g2;
    GainsAt(balance.load(std::memory_order_relaxed), false, g1, g2);
    linearGain1.store(g1, std::memory_order_relaxed);
    linearGain2.store(g2, std::memory_order_relaxed);
    GainsAt(balance.load(std::memory_order_relaxed), true, g1, g2);
    rootGain1.store(g1, std::memory_order_relaxed);
    rootGain2.store(g2, std::memory_order_relaxed);
}

std::string CCrossfadeBlock::DescribeValue(int index, float value) {
    if (index == kAmp1 || index == kAmp2) return FormatDecibels(4.0f * value * value);
    if (index == kBalance)
        return FormatSignificant(100.0f * (1.0f - value), 3) + "%:" + FormatSignificant(100.0f * value, 3) +
               "%";
    if (index < 0 || index >= kCrossfadeParamCount) return {};
    return DescribeRowValue(kCrossfadeRows, index, value, sampleRate);
}

void CCrossfadeBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    const float* s1 = PortHasData(kSignal1Port, voice) ? ports[kSignal1Port]->buffer[voice] : nullptr;
    const float* s2 = PortHasData(kSignal2Port, voice) ? ports[kSignal2Port]->buffer[voice] : nullptr;
    if (!s1 && !s2) return;
    const bool audio = audioMode.load(std::memory_order_relaxed);
    float* out = output[voice];
    if (const float* mod = RowIfCounts(*this, kBalancePort, voice)) {
        for (int i = 0; i < numSamples; ++i) {
            float g1, g2;
            GainsAt(std::clamp(mod[i] + values[kBalance], 0.0f, 1.0f), audio, g1, g2);
            out[i] = s1 && s2 ? s1[i] * g1 + s2[i] * g2 : s1 ? s1[i] * g1 : s2[i] * g2;
        }
    } else {
        const float g1 = (audio ? rootGain1 : linearGain1).load(std::memory_order_relaxed);
        const float g2 = (audio ? rootGain2 : linearGain2).load(std::memory_order_relaxed);
        if (s1 && s2) {
            for (int i = 0; i < numSamples; ++i) out[i] = s1[i] * g1 + s2[i] * g2;
        } else if (s1) {
            for (int i = 0; i < numSamples; ++i) out[i] = s1[i] * g1;
        } else {
            for (int i = 0; i < numSamples; ++i) out[i] = s2[i] * g2;
        }
    }
    active[voice] = 1;
}
