// The three envelopes.
//
// [SECTION] EnvelopeState
// [SECTION] CEnvelopeBlock
// [SECTION] Curves and AdvancedEnvelopeState
// [SECTION] CAdvancedEnvelope
// [SECTION] CCustomEnvelopeBlock
#include "blocks/envelopes.h"

#include <algorithm>
#include <cmath>

#include "blocks/vector_lanes.h"
#include "engine/value_format.h"
#include "engine/vrok_instance.h"

namespace {
// "(value x 2 - 1) x 100" followed by "%".
std::string BipolarPercent(float v) { return FormatSignificant((v * 2.0f - 1.0f) * 100.0f, 3) + "%"; }
}  // namespace

// [SECTION] EnvelopeState

void EnvelopeState::Start() {
    const int n = EnvelopeLengthSamples(*attack, rate);
    total = remaining = n;
    if (stage == kStageIdle) {
        value = 0.0f;
        delta = 1.0f / float(n);
    } else {
        // A retrigger rises from the present level: no jump, and the full attack length.
        delta = (1.0f - value) / float(n);
    }
    stage = kStageAttack;
}

void EnvelopeState::Release() {
    if (stage == kStageIdle) return;
    const int n = EnvelopeLengthSamples(*release, rate);
    total = remaining = n;
    stage = kStageRelease;
    delta = -value / float(n);
}

void EnvelopeState::EnterStage() {
    ++stage;
    if (stage == kStageDecay) {
        const int n = EnvelopeLengthSamples(*decay, rate);
        total = remaining = n;
        // The slope is fixed here: a later "Sustain" moves nothing until the next note.
        delta = -(1.0f - *sustain) / float(n);
    } else if (stage == kStageSustain) {
        if (value <= 0.001f) {
            stage = kStageIdle;
            value = 0.0f;
        }
        total = remaining = 100;
        delta = 0.0f;
    } else {
        stage = kStageIdle;
        value = 0.0f;
        delta = 0.0f;
    }
}

float EnvelopeState::Step() {
    value += delta;
    if (stage != kStageSustain) --remaining;
    if (remaining == 0) EnterStage();
    return value;
}

void EnvelopeState::Render(float* out, int n) {
    int i = 0;
    while (i < n && stage != kStageIdle) {
        if (stage == kStageSustain) {
            // Sustain never ends by itself, and its delta is 0: the level stands.
            std::fill(out + i, out + n, value);
            return;
        }
        // Runs of plain steps up to and including the one that ends the stage.
        // A stage with no length (never from parameters in 0..1) would never end.
        const int run = remaining > 0 ? std::min(remaining, n - i) : n - i;
        float v = value;
        const float d = delta;
        for (int k = 0; k < run; ++k) {
            v += d;
            out[i + k] = v;
        }
        value = v;
        remaining -= run;
        i += run;
        if (remaining == 0) {
            EnterStage();
            out[i - 1] = value;
        }
    }
    std::fill(out + i, out + n, 0.0f);
}

#if defined(__x86_64__)
namespace {
// Eight states per register, all groups stepping through the same runs.
VROK_AVX2 void RenderLanes(EnvelopeState* const* lanes, float* const* rows, int count, int numGroups, int i,
                           int run) {
    __m256 value[kMaxVoices / 8], delta[kMaxVoices / 8];
    for (int g = 0; g < numGroups; ++g) {
        alignas(32) float v[8], d[8];
        for (int k = 0; k < 8; ++k) {
            const EnvelopeState* s = lanes[g * 8 + k];
            v[k] = s ? s->value : 0.0f;
            d[k] = s ? s->delta : 0.0f;
        }
        value[g] = _mm256_load_ps(v);
        delta[g] = _mm256_load_ps(d);
    }
    int j = 0;
    for (; j + 8 <= run; j += 8) {
        for (int g = 0; g < numGroups; ++g) {
            __m256 r[8];
            r[0] = _mm256_add_ps(value[g], delta[g]);
            for (int k = 1; k < 8; ++k) r[k] = _mm256_add_ps(r[k - 1], delta[g]);
            value[g] = r[7];
            Transpose8(r);
            for (int k = 0; k < 8; ++k) _mm256_storeu_ps(rows[g * 8 + k] + i + j, r[k]);
        }
    }
    for (; j < run; ++j) {
        for (int g = 0; g < numGroups; ++g) {
            value[g] = _mm256_add_ps(value[g], delta[g]);
            alignas(32) float v[8];
            _mm256_store_ps(v, value[g]);
            for (int k = 0; k < 8; ++k) rows[g * 8 + k][i + j] = v[k];
        }
    }
    for (int g = 0; g < numGroups; ++g) {
        alignas(32) float v[8];
        _mm256_store_ps(v, value[g]);
        for (int k = 0; k < 8 && g * 8 + k < count; ++k) lanes[g * 8 + k]->value = v[k];
    }
}
}  // namespace
#endif

void EnvelopeState::RenderTogether(EnvelopeState* const* states, float* const* out, int count, int n) {
#if defined(__x86_64__)
    if (CpuHasAvx2()) {
        float scratch[kMaxFrames];
        EnvelopeState* lanes[kMaxVoices] = {};
        float* rows[kMaxVoices];
        const int numGroups = (count + 7) / 8;
        for (int k = 0; k < numGroups * 8; ++k) {
            lanes[k] = k < count ? states[k] : nullptr;
            rows[k] = k < count ? out[k] : scratch;
        }
        int i = 0;
        while (i < n) {
            // The longest run in which no voice changes stage. Sustain adds a delta of 0
            // and an ended voice adds 0 to 0, so both ride along unchanged.
            int run = n - i;
            for (int k = 0; k < count; ++k)
                if (lanes[k]->IsRamping() && lanes[k]->remaining > 0)
                    run = std::min(run, lanes[k]->remaining);
            RenderLanes(lanes, rows, count, numGroups, i, run);
            i += run;
            for (int k = 0; k < count; ++k) {
                EnvelopeState& s = *lanes[k];
                if (!s.IsRamping()) continue;
                s.remaining -= run;
                if (s.remaining == 0) {
                    s.EnterStage();
                    rows[k][i - 1] = s.value;
                }
            }
        }
        return;
    }
#endif
    for (int k = 0; k < count; ++k) states[k]->Render(out[k], n);
}

// [SECTION] CEnvelopeBlock

namespace {
enum : int { kAttack, kDecay, kSustain, kRelease, kVelocity, kEnvelopeParamCount };

constexpr ParamRow kEnvelopeRows[kEnvelopeParamCount] = {
    // name         kind                 default  value text
    {"Attack", ParamKind::Slider, 0.0f, ValueText::EnvelopeTime},
    {"Decay", ParamKind::Slider, 0.2f, ValueText::EnvelopeTime},
    {"Sustain", ParamKind::Slider, 0.3f, ValueText::Percent},
    {"Release", ParamKind::Slider, 0.5f, ValueText::EnvelopeTime},
    {"Velocity", ParamKind::SliderAlt, 1.0f, ValueText::Custom},
};
// A pure source: no ports at all.
constexpr int kEnvelopePorts = 0;
}  // namespace

CEnvelopeBlock::CEnvelopeBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    ConfigureFromRows(kEnvelopeRows, kEnvelopePorts, kCategoryControllers, "|Envelope");
    for (EnvelopeState& s : states) {
        s.rate = sampleRate;
        s.attack = &values[kAttack];
        s.decay = &values[kDecay];
        s.sustain = &values[kSustain];
        s.release = &values[kRelease];
    }
}

std::string CEnvelopeBlock::DescribeValue(int index, float value) {
    if (index == kVelocity) return BipolarPercent(value);
    return DescribeRowValue(kEnvelopeRows, index, value, sampleRate);
}

void CEnvelopeBlock::NoteOn(int velocity, int voice) {
    if (monophonic) voice = 0;
    states[voice].Start();
    velocityAmount[voice] = (values[kVelocity] * 2.0f - 1.0f) * float(velocity) * (1.0f / 127.0f);
    noteVelocityAmount[voice] = velocityAmount[voice];
    noteAttack[voice] = values[kAttack];
    noteDecay[voice] = values[kDecay];
    noteSustain[voice] = values[kSustain];
    noteRelease[voice] = values[kRelease];
}

void CEnvelopeBlock::NoteOff(int voice) {
    if (monophonic) {
        for (EnvelopeState& s : states) s.Release();
        return;
    }
    EnvelopeState& s = states[voice];
    // Where the drawn shape stood, in quarters of its width: attack, decay, a unit of
    // sustain, then release.
    const float q = s.total != 0 ? float(s.total - s.remaining) / float(s.total) : 0.0f;
    const float a = noteAttack[voice], d = noteDecay[voice];
    float position = 0.0f;
    if (s.stage == kStageAttack)
        position = a * q;
    else if (s.stage == kStageDecay)
        position = a + d * q;
    else if (s.stage == kStageSustain)
        position = a + d + 1.0f;
    releaseStage[voice] = s.stage;
    releasePosition[voice] = position * 0.25f;
    s.Release();
}

void CEnvelopeBlock::Work(int voice, int numSamples) {
    if (voice == 0 && !monophonic && engine->numVoices > 1) {
        EnvelopeState* sounding[kMaxVoices];
        float* rows[kMaxVoices];
        int count = 0;
        std::fill(std::begin(doneTogether), std::end(doneTogether), false);
        for (int v = 0; v < engine->numVoices; ++v) {
            if (states[v].stage == kStageIdle) continue;
            sounding[count] = &states[v];
            rows[count++] = output[v];
            doneTogether[v] = true;
        }
        EnvelopeState::RenderTogether(sounding, rows, count, numSamples);
        for (int v = 0; v < engine->numVoices; ++v)
            if (doneTogether[v]) Finish(v, numSamples);
    }
    if (doneTogether[voice]) {
        doneTogether[voice] = false;
        return;
    }
    active[voice] = 0;
    EnvelopeState& s = states[voice];
    if (s.stage == kStageIdle) return;
    s.Render(output[voice], numSamples);
    Finish(voice, numSamples);
}

void CEnvelopeBlock::Finish(int voice, int numSamples) {
    active[voice] = 1;
    if (states[voice].stage != kStageRelease)
        lastLevel[voice] = output[voice][numSamples - 1] * velocityAmount[voice];
    displayResetPending = true;
}

// [SECTION] Curves and AdvancedEnvelopeState

void RasteriseCurve(const CurvePoint (&p)[4], float* table) {
    // Power basis of the cubic, per axis.
    auto basis = [](float p0, float p1, float p2, float p3, float(&k)[4]) {
        k[0] = p0;
        k[1] = 3.0f * (p1 - p0);
        k[2] = 3.0f * (p2 - p1) - k[1];
        k[3] = p3 - p0 - k[1] - k[2];
    };
    float kx[4], ky[4];
    basis(p[0].x, p[1].x, p[2].x, p[3].x, kx);
    basis(p[0].y, p[1].y, p[2].y, p[3].y, ky);
    auto chord = [table](float x0, float y0, float x1, float y1) {
        x0 *= float(kCurveSize), x1 *= float(kCurveSize);
        if (x1 < x0) std::swap(x0, x1), std::swap(y0, y1);
        if (x1 < 0.0f || x1 == x0) return;
        const float slope = (y1 - y0) / (x1 - x0);
        if (x0 < 0.0f) y0 -= slope * x0, x0 = 0.0f;
        if (x1 > float(kCurveSize)) x1 = float(kCurveSize);
        float y = y0;
        for (int j = int(x0); j < int(x1); ++j, y += slope) table[j] = y;
    };
    float px = p[0].x, py = p[0].y;
    for (int k = 1; k < 30; ++k) {
        const float t = float(k) / 30.0f;
        const float x = ((kx[3] * t + kx[2]) * t + kx[1]) * t + kx[0];
        const float y = ((ky[3] * t + ky[2]) * t + ky[1]) * t + ky[0];
        chord(px, py, x, y);
        px = x, py = y;
    }
    chord(px, py, p[3].x, p[3].y);
    table[kCurveSize] = table[kCurveSize - 1];
}

float ReadCurve(const float* table, float u) {
    const float at = u * float(kCurveSize - 1);
    // Below the start only a stage of undefined length (a negative modulated sum) drifts
    // there; it reads the first entry rather than outside the table.
    if (!(at > 0.0f)) return table[0];
    const int i = int(at);
    if (i >= kCurveSize - 1) return table[kCurveSize - 1];
    return table[i] + (table[i + 1] - table[i]) * (at - float(i));
}

void AdvancedEnvelopeState::ComputeRate() {
    StageCurves& c = *curves;
    switch (stage) {
        case kStageAttack:
            c.attackRate = 1.0f / float(EnvelopeLengthSamples(*c.attack + c.attackMod, rate));
            break;
        case kStageDecay:
            c.decayRate = 1.0f / float(EnvelopeLengthSamples(*c.decay + c.decayMod, rate));
            break;
        case kStageSustain: {
            sustainLevel = std::clamp(*c.sustain + c.sustainMod, 0.0f, 1.0f);
            const float x = *c.sustainDecay * 2.0f - 1.0f;
            if (x >= -0.01f && x <= 0.01f) {
                c.driftRate = 0.0f;
            } else {
                const float sign = x < 0.0f ? -1.0f : 1.0f;
                c.driftRate = sign / float(EnvelopeLengthSamples(1.0f - std::fabs(x), rate));
            }
            break;
        }
        case kStageRelease:
            c.releaseRate = 1.0f / float(EnvelopeLengthSamples(*c.release + c.releaseMod, rate));
            break;
        default:
            break;
    }
}

float AdvancedEnvelopeState::Step() {
    StageCurves& c = *curves;
    switch (stage) {
        case kStageAttack:
            // From the curve's start whatever the level was: a retrigger jumps.
            value = ReadCurve(c.attackCurve, progress);
            progress += c.attackRate;
            if (progress >= 1.0f) {
                progress = 0.0f;
                stage = kStageDecay;
                ComputeRate();
            }
            break;
        case kStageDecay: {
            const float s = std::clamp(*c.sustain + c.sustainMod, 0.0f, 1.0f);
            sustainLevel = s;
            value = ReadCurve(c.decayCurve, progress) * (1.0f - s) + s;
            progress += c.decayRate;
            if (progress >= 1.0f) {
                progress = 0.0f;
                stage = kStageSustain;
                drift = 0.0f;
                ComputeRate();
            }
            break;
        }
        case kStageSustain:
            value = sustainLevel + drift;
            drift += c.driftRate;
            value = std::min(value, 1.0f);
            if (value <= 0.0f) {
                startLevel = value;
                stage = kStageIdle;
                progress = 0.0f;
            }
            break;
        case kStageRelease:
            progress += c.releaseRate;
            value = ReadCurve(c.releaseCurve, progress) * startLevel;
            if (progress >= 1.0f) {
                stage = kStageIdle;
                progress = 0.0f;
            }
            break;
        default:
            break;
    }
    return value;
}

// [SECTION] CAdvancedEnvelope

namespace {
enum : int {
    kAdvAttack,
    kAdvDecay,
    kAdvSustain,
    kAdvRelease,
    kAmount,
    kAttackX1,
    kDecayX1 = kAttackX1 + 4,
    kSustainDecay = kDecayX1 + 4,
    kReleaseX1,
    kAdvancedParamCount = kReleaseX1 + 4
};

constexpr ParamRow kAdvancedRows[kAdvancedParamCount] = {
    // name              kind                 default  value text
    {"Attack", ParamKind::Slider, 0.1f, ValueText::EnvelopeTime},
    {"Decay", ParamKind::Slider, 0.2f, ValueText::EnvelopeTime},
    {"Sustain", ParamKind::Slider, 0.4f, ValueText::Percent},
    {"Release", ParamKind::Slider, 0.5f, ValueText::EnvelopeTime},
    {"Amount", ParamKind::SliderAlt, 1.0f, ValueText::Custom},
    {"Attack x1", ParamKind::Slider, 0.0f, ValueText::Empty},
    {"Attack y1", ParamKind::Slider, 0.5f, ValueText::Empty},
    {"Attack x2", ParamKind::Slider, 0.5f, ValueText::Empty},
    {"Attack y2", ParamKind::Slider, 1.0f, ValueText::Empty},
    {"Decay x1", ParamKind::Slider, 0.0f, ValueText::Empty},
    {"Decay y1", ParamKind::Slider, 0.5f, ValueText::Empty},
    {"Decay x2", ParamKind::Slider, 0.5f, ValueText::Empty},
    {"Decay y2", ParamKind::Slider, 0.0f, ValueText::Empty},
    {"Sustain decay", ParamKind::SliderAlt, 0.5f, ValueText::Custom},
    {"Release x1", ParamKind::Slider, 0.0f, ValueText::Empty},
    {"Release y1", ParamKind::Slider, 0.5f, ValueText::Empty},
    {"Release x2", ParamKind::Slider, 0.5f, ValueText::Empty},
    {"Release y2", ParamKind::Slider, 0.0f, ValueText::Empty},
};
// Modulation of attack, decay, sustain and release, then the output multiplier.
constexpr int kAdvancedPorts = 5;
constexpr int kMultiplierPort = 4;
}  // namespace

CAdvancedEnvelope::CAdvancedEnvelope(VrokInstance* engine, float sampleRate)
    : CAudioBlock(engine, sampleRate) {
    // The curves must point at the parameters before ParameterChanged draws them.
    ConfigureFromRows(kAdvancedRows, kAdvancedPorts, kCategoryControllers, "|Advanced Envelope");
    for (int v = 0; v < kMaxVoices; ++v) {
        StageCurves& c = curves[v];
        c.attack = &values[kAdvAttack];
        c.decay = &values[kAdvDecay];
        c.sustain = &values[kAdvSustain];
        c.release = &values[kAdvRelease];
        c.sustainDecay = &values[kSustainDecay];
        states[v].rate = sampleRate;
        states[v].curves = &c;
    }
}

std::string CAdvancedEnvelope::DescribeValue(int index, float value) {
    if (index == kAmount) return BipolarPercent(value);
    if (index == kSustainDecay) {
        if (value == 0.5f) return "off";
        const std::string time = FormatEnvelopeTime(1.0f - std::fabs(value * 2.0f - 1.0f), sampleRate);
        return (value < 0.5f ? "fall in " : "rise in ") + time;
    }
    return DescribeRowValue(kAdvancedRows, index, value, sampleRate);
}

void CAdvancedEnvelope::RebuildCurve(int first) {
    const CurvePoint p1{values[first], values[first + 1]}, p2{values[first + 2], values[first + 3]};
    for (StageCurves& c : curves) {
        CurvePoint(&points)[4] = first == kAttackX1  ? c.attackPoints
                                 : first == kDecayX1 ? c.decayPoints
                                                     : c.releasePoints;
        points[1] = p1, points[2] = p2;
        RasteriseCurve(points, first == kAttackX1  ? c.attackCurve
                               : first == kDecayX1 ? c.decayCurve
                                                   : c.releaseCurve);
    }
}

void CAdvancedEnvelope::ParameterChanged(int index) {
    if (index == kAmount) {
        amountScale.store((values[kAmount] - 0.5f) * 2.0f, std::memory_order_relaxed);
        RebuildCurve(kAttackX1);
    } else if (index >= kAttackX1 && index < kDecayX1) {
        RebuildCurve(kAttackX1);
    } else if (index >= kDecayX1 && index < kSustainDecay) {
        RebuildCurve(kDecayX1);
    } else if (index >= kReleaseX1 && index < kAdvancedParamCount) {
        RebuildCurve(kReleaseX1);
    }
}

void CAdvancedEnvelope::NoteOn(int velocity, int voice) {
    if (monophonic) voice = 0;
    AdvancedEnvelopeState& s = states[voice];
    s.total = s.remaining = EnvelopeLengthSamples(values[kAdvAttack], s.rate);
    s.startLevel = s.stage == kStageIdle ? 0.0f : s.value;
    s.progress = 0.0f;
    s.stage = kStageAttack;
}

void CAdvancedEnvelope::NoteOff(int voice) {
    auto release = [](AdvancedEnvelopeState& s) {
        if (s.stage == kStageIdle) return;
        s.stage = kStageRelease;
        s.progress = 0.0f;
        s.startLevel = s.value;
        s.ComputeRate();
    };
    if (!monophonic) {
        release(states[voice]);
        return;
    }
    for (AdvancedEnvelopeState& s : states) release(s);
}

void CAdvancedEnvelope::Work(int voice, int numSamples) {
    active[voice] = 0;
    AdvancedEnvelopeState& s = states[voice];
    if (s.stage == kStageIdle) return;
    StageCurves& c = curves[voice];
    auto firstSample = [&](int port) {
        return PortConnected(port) && PortHasData(port, voice) ? ports[port]->buffer[voice][0] : 0.0f;
    };
    c.attackMod = firstSample(kAdvAttack);
    c.decayMod = firstSample(kAdvDecay);
    c.sustainMod = firstSample(kAdvSustain);
    c.releaseMod = firstSample(kAdvRelease);
    noteAttack[voice] = std::clamp(values[kAdvAttack] + c.attackMod, 0.0f, 1.0f);
    noteDecay[voice] = std::clamp(values[kAdvDecay] + c.decayMod, 0.0f, 1.0f);
    noteSustain[voice] = std::clamp(values[kAdvSustain] + c.sustainMod, 0.0f, 1.0f);
    noteRelease[voice] = std::clamp(values[kAdvRelease] + c.releaseMod, 0.0f, 1.0f);
    s.ComputeRate();
    const float amount = amountScale.load(std::memory_order_relaxed);
    const float* multiplier = PortConnected(kMultiplierPort) && PortHasData(kMultiplierPort, voice)
                                  ? ports[kMultiplierPort]->buffer[voice]
                                  : nullptr;
    float* out = output[voice];
    int i = 0;
    for (; i < numSamples && s.stage != kStageIdle; ++i) {
        const float v = s.Step() * amount;
        out[i] = multiplier ? multiplier[i] * v : v;
    }
    std::fill(out + i, out + numSamples, 0.0f);
    active[voice] = 1;
    displayResetPending = true;
}

// [SECTION] CCustomEnvelopeBlock

namespace {
enum : int { kSpeed, kLoop, kCustomSustain, kSustainPoint };

constexpr ParamRow kCustomHeadRows[CCustomEnvelopeBlock::kFirstPoint] = {
    // name             kind                default  value text
    {"Speed", ParamKind::Slider, 0.6f, ValueText::Percent},
    {"Loop", ParamKind::Switch, 0.2f, ValueText::Percent},
    {"Sustain", ParamKind::Switch, 0.3f, ValueText::Empty},
    {"Sustain point", ParamKind::Slider, 0.5f, ValueText::Empty},
};
// The head rows, then 192 curve points alike, drawn by the envelope editor.
constexpr ParamRow kCurvePointRow = {"env", ParamKind::Hidden, 0.5f, ValueText::Empty};
constexpr int kCustomParamCount = CCustomEnvelopeBlock::kFirstPoint + CCustomEnvelopeBlock::kPoints;

struct CustomRows {
    ParamRow rows[kCustomParamCount];
    constexpr CustomRows() : rows() {
        for (int i = 0; i < kCustomParamCount; ++i)
            rows[i] = i < CCustomEnvelopeBlock::kFirstPoint ? kCustomHeadRows[i] : kCurvePointRow;
    }
};
constexpr CustomRows kCustomRows;
// Only the speed is modulated.
constexpr int kCustomPorts = 1;
constexpr int kSpeedPort = 0;
constexpr int kLastPoint = CCustomEnvelopeBlock::kPoints - 1;
}  // namespace

CCustomEnvelopeBlock::CCustomEnvelopeBlock(VrokInstance* engine, float sampleRate)
    : CAudioBlock(engine, sampleRate) {
    ConfigureFromRows(kCustomRows.rows, kCustomPorts, kCategoryControllers, "|Custom Envelope");
}

float CCustomEnvelopeBlock::StepFor(float speed) const {
    return 192.0f / (15.0f * float(EnvelopeLengthSamples(1.0f - speed, sampleRate)));
}

void CCustomEnvelopeBlock::ParameterChanged(int index) {
    if (index == kSpeed) {
        stepPerSample.store(StepFor(values[kSpeed]), std::memory_order_relaxed);
    } else if (index == kLoop) {
        loop.store(values[kLoop] >= 0.5f, std::memory_order_relaxed);
    } else if (index == kCustomSustain) {
        sustainOn.store(values[kCustomSustain] >= 0.5f, std::memory_order_relaxed);
    } else if (index == kSustainPoint) {
        sustainPosition.store(values[kSustainPoint] * float(kPoints), std::memory_order_relaxed);
    } else if (index >= kFirstPoint && index < kFirstPoint + kPoints) {
        // The editor writes points directly, so the value is clamped here as well.
        values[index] = std::clamp(values[index], 0.0f, 1.0f);
        curve[index - kFirstPoint] = values[index] * 2.0f - 1.0f;
        curve[kPoints] = curve[0];
        curve[kPoints + 1] = curve[kPoints];
    }
}

std::string CCustomEnvelopeBlock::DescribeValue(int index, float value) {
    if (index < 0 || index >= kFirstPoint) return {};
    return DescribeRowValue(kCustomHeadRows, index, value, sampleRate);
}

void CCustomEnvelopeBlock::NoteOn(int velocity, int voice) {
    if (monophonic) voice = 0;
    stage[voice] = 1;
    position[voice] = 0.0f;
    released[voice] = 0;
}

void CCustomEnvelopeBlock::NoteOff(int voice) {
    for (int v = 0; v < kMaxVoices; ++v) {
        if (monophonic ? stage[v] == 0 : v != voice) continue;
        released[v] = 1;
        stage[v] = 3;
    }
}

float CCustomEnvelopeBlock::Read(float at) const {
    // A position just below 0 extrapolates from the first two points; anything beyond the
    // curve (a NaN from the speed port, or a speed of undefined length) reads point 0.
    if (!(at > -1.0f && at < float(kPoints + 1))) at = 0.0f;
    const int i = int(at);
    return curve[i] + (curve[i + 1] - curve[i]) * (at - float(i));
}

void CCustomEnvelopeBlock::Work(int voice, int numSamples) {
    active[voice] = 0;
    float* out = output[voice];
    if (stage[voice] == 0) {
        // An envelope that ends off zero keeps sending its last point.
        if (curve[kLastPoint] == 0.0f) return;
        std::fill_n(out, numSamples, curve[kLastPoint]);
    } else if (stage[voice] == 2) {
        const float hold = sustainPosition.load(std::memory_order_relaxed);
        std::fill_n(out, numSamples, curve[int(hold)]);
        position[voice] = hold;
    } else {
        const bool modulated = PortConnected(kSpeedPort) && PortHasData(kSpeedPort, voice);
        const float* speed = ports[kSpeedPort]->buffer[voice];
        const float step = stepPerSample.load(std::memory_order_relaxed);
        const float hold = sustainPosition.load(std::memory_order_relaxed);
        const bool holds = sustainOn.load(std::memory_order_relaxed);
        const bool loops = loop.load(std::memory_order_relaxed);
        float p = position[voice];
        for (int i = 0; i < numSamples; ++i) {
            p += modulated ? StepFor(std::clamp(speed[i] + values[kSpeed], 0.0f, 1.0f)) : step;
            // Caught here, the position still runs on to the end of the block; the next
            // Work snaps it back to the sustain point.
            if (holds && stage[voice] < 2 && p >= hold) {
                stage[voice] = 2;
                p = hold;
            }
            if (p > float(kLastPoint)) {
                if (!loops) {
                    stage[voice] = 0;
                    std::fill(out + i, out + numSamples, curve[kLastPoint]);
                    break;
                }
                // Unmodulated, the wrap may leave a slightly negative position, and the next
                // read extrapolates from the first two points.
                if (modulated) {
                    p = std::fmod(p, float(kPoints));
                } else {
                    while (p > float(kLastPoint)) p -= float(kPoints);
                }
            }
            out[i] = Read(p);
        }
        position[voice] = p;
    }
    active[voice] = 1;
    displayResetPending = true;
}
