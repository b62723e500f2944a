// The shaped oscillators (|HyperOsc, |SyncOsc, |PWMOsc) over the engine's 16-bit band tables.
//
// [SECTION] Shared: increment, interpolated reads, sync window, CShapedOscBase
// [SECTION] CHyperOscBlock
// [SECTION] CSyncOscBlock
// [SECTION] CPWMOscBlock
#include "blocks/shaped_oscillators.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "engine/value_format.h"
#include "engine/vrok_instance.h"
#include "engine/wave_tables.h"

// [SECTION] Shared: increment, interpolated reads, sync window, CShapedOscBase

namespace shaped {

namespace {
constexpr int kPhaseShift = 21;  // the top 11 bits index 2048 entries

// Truncation to 32 bits with wrap, for values past int32 that the laws do not guard; the
// clamp only keeps the conversion itself defined.
uint32_t WrapToUint32(double x) { return uint32_t(uint64_t(int64_t(std::clamp(x, -9.0e18, 9.0e18)))); }
}  // namespace

uint32_t IncrementFor(float argument) {
    if (!(argument < kMaxIncrementArgument)) return 0;
    return WrapToUint32(std::trunc(double(argument))) << 2;
}

// The products are taken in 64 bits: neighbouring entries of a band-limited edge can differ
// by more than 32767, and 32-bit products would overflow there. The guard entry after the
// cycle equals entry 0, so the neighbour needs no wrap.
int32_t Read16(const WaveTable& table, uint32_t phase) {
    const uint32_t i = phase >> kPhaseShift;
    const int64_t s0 = table.samples[i];
    const int64_t s1 = table.samples[i + 1];
    const int64_t f = (phase >> 5) & 0xFFFF;
    return int32_t(s0 + (((s1 - s0) * f) >> 16));
}

int32_t Read8(const WaveTable& table, uint32_t phase) {
    const uint32_t i = phase >> kPhaseShift;
    const int32_t s0 = table.samples[i];
    const int32_t s1 = table.samples[i + 1];
    const int32_t f = (phase >> 13) & 0xFF;
    return s0 + (((s1 - s0) * f) >> 8);
}

const int32_t* SyncWindow() {
    static const auto window = [] {
        std::array<int32_t, kSyncWindowLength> w{};
        constexpr double kQuarter = 3.14159265358979323846 / 2.0;
        for (int i = 0; i < 2048; ++i) {
            w[i] = 16384;
            w[2048 + i] = int32_t((1.0 - std::sin(i * kQuarter / 2048.0)) * 16384.0);
        }
        w[4096] = 0;
        return w;
    }();
    return window.data();
}

int32_t SyncSample(const WaveTable& table, uint32_t p, uint32_t syncFixed, int32_t windowOffset) {
    static const int32_t* const window = SyncWindow();
    // The slave runs at syncFixed / 65536 * 16 times the master and restarts with it.
    const uint32_t u = (p >> 12) * syncFixed;
    // The same slave moved to where it will stand once the master has wrapped.
    const uint32_t v = u + ((4096u - (syncFixed & 4095u)) << 20);
    const int32_t a = Read16(table, u) >> 1;
    const int32_t i = int32_t(p >> kPhaseShift) + windowOffset;
    const int32_t f = int32_t((p >> 5) & 0xFFFF);
    const int32_t w = window[i] + int32_t((int64_t(window[i + 1] - window[i]) * f) >> 16);
    int32_t s = (a * w) >> 14;
    if (p >= 0xF0000000u) {
        // Over the master's last sixteenth, crossfade into the next slave cycle.
        const int32_t b = Read16(table, v) >> 1;
        s += int32_t((int64_t(b - s) * int32_t((p >> 13) & 32767)) >> 15);
    }
    return s;
}

}  // namespace shaped

namespace {

// Ties go to the even neighbour: the default 0.5 is the sawtooth.
int32_t WaveformIndex(float value) { return int32_t(std::nearbyint(double(value) * 3.0)); }

// The tables run to about +-16000; the amplitude divides that out.
constexpr float kTableScale = 0.0000625f;

// freqFraction * 2^30, the argument of IncrementFor.
inline float IncrementArgument(float freqFraction) { return freqFraction * 1073741824.0f; }

}  // namespace

CShapedOscBase::CShapedOscBase(VrokInstance* engine, float sampleRate, int pitchIndex, int waveformIndex)
    : CAudioBlock(engine, sampleRate), pitchIndex(pitchIndex), waveformIndex(waveformIndex) {
    for (int v = 0; v < kMaxVoices; ++v) {
        note[v].store(80.0f, std::memory_order_relaxed);
        freqFraction[v].store(0.0f, std::memory_order_relaxed);
    }
}

std::string CShapedOscBase::DescribeValue(int index, float value) {
    if (index < 0 || index >= numParameters) return {};
    return index == 0 ? FormatDecibels(value * value) : FormatPercent(value);
}

void CShapedOscBase::SetNote(float pitch, float, int voice) {
    note[voice].store(pitch, std::memory_order_relaxed);
    UpdatePitch(voice);
}

void CShapedOscBase::UpdatePitch(int voice) {
    const float semitones =
        (values[pitchIndex] - 0.5f) * 24.0f + note[voice].load(std::memory_order_relaxed) - 70.0f;
    const float fraction = std::pow(2.0f, semitones * (1.0f / 12.0f)) * 440.0f / sampleRate;
    freqFraction[voice].store(fraction, std::memory_order_relaxed);
}

void CShapedOscBase::UpdateAllPitches() {
    for (int v = 0; v < kMaxVoices; ++v) UpdatePitch(v);
}

void CShapedOscBase::UpdateWaveform() {
    waveform.store(WaveformIndex(values[waveformIndex]), std::memory_order_relaxed);
}

const WaveTable& CShapedOscBase::TableFor(uint32_t increment) const {
    return engine->WaveTableFor(waveform.load(std::memory_order_relaxed), increment);
}

// [SECTION] CHyperOscBlock

namespace {
enum : int { kHyperAmp, kHyperPitch, kHyperDiffuse, kHyperSpread, kHyperWaveform, kHyperParamCount };

constexpr ParamRow kHyperRows[kHyperParamCount] = {
    // name        kind               default  value text
    {"Amp", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Pitch", ParamKind::Pitch, 0.5f, ValueText::Custom},
    {"Diffuse", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Spread", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Waveform", ParamKind::Wave, 0.5f, ValueText::Custom},
};
// One port, the amplitude: the rows themselves have none.
constexpr int kHyperPorts = 1;

// One oscillator of the stack into `out`: read, then advance (the opposite order to the
// plain oscillators). The first oscillator stores, the others add. Four samples per pass,
// as in the plain oscillators: left to itself the compiler would emulate a gather.
template <bool kFirst, bool kAmpMod>
uint32_t RunHyper(const WaveTable& table, float* __restrict out, const float* __restrict ampIn,
                  uint32_t phase, uint32_t increment, float gain, int n) {
    auto sample = [&](int i) {
        float s = float(shaped::Read16(table, phase)) * gain;
        phase += increment;
        if constexpr (kAmpMod) s *= ampIn[i];
        if constexpr (kFirst)
            out[i] = s;
        else
            out[i] += s;
    };
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        sample(i);
        sample(i + 1);
        sample(i + 2);
        sample(i + 3);
    }
    for (; i < n; ++i) sample(i);
    return phase;
}
}  // namespace

CHyperOscBlock::CHyperOscBlock(VrokInstance* engine, float sampleRate)
    : CShapedOscBase(engine, sampleRate, kHyperPitch, kHyperWaveform) {
    ConfigureFromRows(kHyperRows, kHyperPorts, kCategorySources, "|HyperOsc");
}

void CHyperOscBlock::ParameterChanged(int index) {
    switch (index) {
        case kHyperAmp:
            UpdateGainsAndDetune(true);
            break;
        case kHyperPitch:
            UpdateAllPitches();
            break;
        case kHyperDiffuse:
            UpdateGainsAndDetune(true);
            break;
        case kHyperSpread:
            UpdateGainsAndDetune(false);
            break;
        case kHyperWaveform:
            UpdateWaveform();
            break;
        default:
            break;
    }
}

void CHyperOscBlock::UpdateGainsAndDetune(bool gains) {
    // The constructor's rows run in order, so until "Diffuse" has its default it reads 0:
    // the stack starts as one oscillator at full weight.
    const float x = values[kHyperDiffuse] * 6.0f;
    const float whole = std::floor(x);
    int pendingOscillators = numOscillators;
    float pendingGain[kMaxOscillators] = {};
    if (gains) {
        const int extra = x <= 0.000001f ? 0 : std::min(int(whole) + 1, kMaxOscillators - 1);
        pendingOscillators = extra + 1;
        const float frac = x - whole;
        const float amp = values[kHyperAmp];
        // More oscillators may sum to more level: the divisor falls from 16000 to 6400.
        const float masterGain = amp * amp / (16000.0f - x * 0.1f * 16000.0f);
        float weights[kMaxOscillators];
        std::fill_n(weights, pendingOscillators, 1.0f);
        // The newest fades in by the square of the fraction, except at an exact integer,
        // where it jumps to full weight. That jump is part of the sound.
        if (std::fabs(frac) > 0.00001f) weights[pendingOscillators - 1] = frac * frac;
        float sum = 0.0f;
        for (int k = 0; k < pendingOscillators; ++k) sum += weights[k];
        for (int k = 0; k < pendingOscillators; ++k) pendingGain[k] = weights[k] / sum * masterGain;
    }
    // Spread in octaves, shared out so the total stays about constant as oscillators
    // join; signs run -, +, +, -, -, + by bit 1 of the index.
    float pendingRatio[kMaxOscillators] = {1.0f};
    const float spread = values[kHyperSpread];
    for (int i = 1; i < kMaxOscillators; ++i) {
        const float octaves = float(i) * spread / (12.0f * (x + 1.0f));
        pendingRatio[i] = std::pow(2.0f, (i & 2) ? octaves : -octaves);
    }
    std::lock_guard<std::mutex> guard(lock);
    if (gains) {
        std::copy_n(pendingGain, kMaxOscillators, gain);
        numOscillators = pendingOscillators;
    }
    std::copy_n(pendingRatio, kMaxOscillators, detuneRatio);
}

void CHyperOscBlock::Work(int voice, int numSamples) {
    std::lock_guard<std::mutex> guard(lock);
    active[voice] = 1;
    const bool ampConnected = PortConnected(0);
    if (ampConnected && !PortHasData(0, voice)) {
        active[voice] = 0;
        return;
    }
    float* out = output[voice];
    const float* ampIn = ports[0]->buffer[voice];
    const float argument = IncrementArgument(freqFraction[voice].load(std::memory_order_relaxed));
    for (int k = 0; k < numOscillators; ++k) {
        const uint32_t increment = shaped::IncrementFor(argument * detuneRatio[k]);
        const WaveTable& table = TableFor(increment);
        uint32_t& p = phase[voice][k];
        if (k == 0)
            p = ampConnected ? RunHyper<true, true>(table, out, ampIn, p, increment, gain[k], numSamples)
                             : RunHyper<true, false>(table, out, ampIn, p, increment, gain[k], numSamples);
        else
            p = ampConnected ? RunHyper<false, true>(table, out, ampIn, p, increment, gain[k], numSamples)
                             : RunHyper<false, false>(table, out, ampIn, p, increment, gain[k], numSamples);
    }
    phaseIncrement[voice] = shaped::IncrementFor(argument);  // the undetuned one, for inspection
}

// [SECTION] CSyncOscBlock

namespace {
enum : int {
    kSyncAmp,
    kSyncPitch,
    kSyncAmount,
    kSyncSharpness,
    kSyncPhaseReset,
    kSyncWaveform,
    kSyncParamCount
};

constexpr ParamRow kSyncRows[kSyncParamCount] = {
    // name           kind               default  value text
    {"Amp", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Pitch", ParamKind::Pitch, 0.5f, ValueText::Custom},
    {"Amount", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Sharpness", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Phase reset", ParamKind::Switch, 0.5f, ValueText::Custom},
    {"Waveform", ParamKind::Wave, 0.5f, ValueText::Custom},
};
// Amplitude, pitch and a third modulation input (amount or pulse width).
constexpr int kModPorts = 3;
enum : int { kAmpPort, kPitchPort, kThirdPort };

// What a Work call of the sync or pulse oscillator reads, gathered once.
struct ShapedRun {
    const WaveTable* table;
    float* out;
    const float* ampIn;
    const float* pitchIn;
    const float* thirdIn;
    float fraction;      // freqFraction of the voice
    uint32_t increment;  // fixed, or the last modulated one on return
    float scale;         // ampScale
};

// One loop per combination of the three ports, chosen before the loop. `Third` turns a
// port sample into the per-sample control (sync ratio or pulse offset); `Sample` makes one
// sample from phase, table and control.
template <bool kAmpMod, bool kPitchMod, bool kThirdMod, class Third, class Sample>
uint32_t RunShaped(ShapedRun& run, uint32_t phase, uint32_t fixedControl, int n, Third third, Sample sample) {
    const WaveTable& table = *run.table;
    uint32_t increment = run.increment;
    for (int i = 0; i < n; ++i) {
        if constexpr (kPitchMod)
            increment = shaped::IncrementFor(run.fraction * (run.pitchIn[i] + 1.0f) * 1073741824.0f);
        uint32_t control = fixedControl;
        if constexpr (kThirdMod) control = third(run.thirdIn[i]);
        float s = float(sample(table, phase, control)) * run.scale;
        phase += increment;
        if constexpr (kAmpMod) s *= run.ampIn[i];
        run.out[i] = s;
    }
    run.increment = increment;
    return phase;
}

template <class Third, class Sample>
uint32_t DispatchShaped(ShapedRun& run, bool amp, bool pitch, bool thirdMod, uint32_t phase, uint32_t control,
                        int n, Third third, Sample sample) {
    const int path = (amp ? 4 : 0) | (pitch ? 2 : 0) | (thirdMod ? 1 : 0);
    switch (path) {
        case 0:
            return RunShaped<false, false, false>(run, phase, control, n, third, sample);
        case 1:
            return RunShaped<false, false, true>(run, phase, control, n, third, sample);
        case 2:
            return RunShaped<false, true, false>(run, phase, control, n, third, sample);
        case 3:
            return RunShaped<false, true, true>(run, phase, control, n, third, sample);
        case 4:
            return RunShaped<true, false, false>(run, phase, control, n, third, sample);
        case 5:
            return RunShaped<true, false, true>(run, phase, control, n, third, sample);
        case 6:
            return RunShaped<true, true, false>(run, phase, control, n, third, sample);
        default:
            return RunShaped<true, true, true>(run, phase, control, n, third, sample);
    }
}

// The truncation of a modulated control past 32 bits wraps, as the fixed-point law does.
uint32_t WrapControl(double x) { return uint32_t(uint64_t(int64_t(std::clamp(x, -9.0e18, 9.0e18)))); }
}  // namespace

// The voice's running words go back to 0: its phase and the increment the last Work left,
// so a pitch-modulated block right after the note chooses its table afresh.
void CResettingOscBase::NoteOn(int, int voice) {
    if (!phaseReset.load(std::memory_order_relaxed)) return;
    phase[voice] = 0;
    phaseIncrement[voice] = 0;
}

template <class Third, class Sample>
void CResettingOscBase::RenderVoice(int voice, int numSamples, uint32_t control, Third third, Sample sample) {
    active[voice] = 1;
    const bool amp = PortConnected(kAmpPort);
    if (amp && !PortHasData(kAmpPort, voice)) {
        active[voice] = 0;
        return;
    }
    const bool pitch = PortConnected(kPitchPort) && PortHasData(kPitchPort, voice);
    const bool thirdMod = PortConnected(kThirdPort) && PortHasData(kThirdPort, voice);
    ShapedRun run{nullptr,
                  output[voice],
                  ports[kAmpPort]->buffer[voice],
                  ports[kPitchPort]->buffer[voice],
                  ports[kThirdPort]->buffer[voice],
                  freqFraction[voice].load(std::memory_order_relaxed),
                  phaseIncrement[voice],
                  ampScale.load(std::memory_order_relaxed)};
    // Modulated pitch keeps the table the last call's increment chose for the whole block.
    if (!pitch) run.increment = shaped::IncrementFor(IncrementArgument(run.fraction));
    run.table = &TableFor(run.increment);
    phase[voice] = DispatchShaped(run, amp, pitch, thirdMod, phase[voice], control, numSamples, third, sample);
    phaseIncrement[voice] = run.increment;
}

CSyncOscBlock::CSyncOscBlock(VrokInstance* engine, float sampleRate)
    : CResettingOscBase(engine, sampleRate, kSyncPitch, kSyncWaveform) {
    ConfigureFromRows(kSyncRows, kModPorts, kCategorySources, "|SyncOsc");
}

void CSyncOscBlock::ParameterChanged(int index) {
    const float v = values[index];
    switch (index) {
        case kSyncAmp:
            ampScale.store(v * v * kTableScale, std::memory_order_relaxed);
            break;
        case kSyncPitch:
            UpdateAllPitches();
            break;
        case kSyncAmount: {
            // Even at 0 the slave runs at 1.6 times the master.
            const float amount = v + 0.1f;
            syncAmount.store(amount, std::memory_order_relaxed);
            syncFixed.store(uint32_t(amount * 65536.0f), std::memory_order_relaxed);
            break;
        }
        case kSyncSharpness:
            windowOffset.store(int32_t((1.0f - v) * 2048.0f), std::memory_order_relaxed);
            break;
        case kSyncPhaseReset:
            phaseReset.store(v > 0.5f, std::memory_order_relaxed);
            break;
        case kSyncWaveform:
            UpdateWaveform();
            break;
        default:
            break;
    }
}

void CSyncOscBlock::Work(int voice, int numSamples) {
    const float amount = syncAmount.load(std::memory_order_relaxed);
    const int32_t offset = windowOffset.load(std::memory_order_relaxed);
    auto third = [amount](float x) {
        return WrapControl(std::trunc(std::max(x * 0.5f + amount, 0.0f) * 65536.0f));
    };
    auto sample = [offset](const WaveTable& t, uint32_t p, uint32_t a) {
        return shaped::SyncSample(t, p, a, offset) * 2;
    };
    RenderVoice(voice, numSamples, syncFixed.load(std::memory_order_relaxed), third, sample);
}

// [SECTION] CPWMOscBlock

namespace {
enum : int { kPwmAmp, kPwmPitch, kPwmWidth, kPwmPhaseReset, kPwmWaveform, kPwmParamCount };

constexpr ParamRow kPwmRows[kPwmParamCount] = {
    // name           kind               default  value text
    {"Amp", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Pitch", ParamKind::Pitch, 0.5f, ValueText::Custom},
    {"PW", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"Phase reset", ParamKind::Switch, 0.5f, ValueText::Custom},
    {"Waveform", ParamKind::Wave, 0.5f, ValueText::Custom},
};

// A width of 0..1 as a phase offset of 0 to minus half a cycle.
uint32_t WidthOffset(float width) { return uint32_t(int32_t(double(width) * -2147483648.0)); }
}  // namespace

CPWMOscBlock::CPWMOscBlock(VrokInstance* engine, float sampleRate)
    : CResettingOscBase(engine, sampleRate, kPwmPitch, kPwmWaveform) {
    ConfigureFromRows(kPwmRows, kModPorts, kCategorySources, "|PWMOsc");
}

void CPWMOscBlock::ParameterChanged(int index) {
    const float v = values[index];
    switch (index) {
        case kPwmAmp:
            ampScale.store(v * v * kTableScale, std::memory_order_relaxed);
            break;
        case kPwmPitch:
            UpdateAllPitches();
            break;
        case kPwmWidth:
            pulseWidth.store(v, std::memory_order_relaxed);
            phaseOffset.store(WidthOffset(v), std::memory_order_relaxed);
            break;
        case kPwmPhaseReset:
            phaseReset.store(v > 0.5f, std::memory_order_relaxed);
            break;
        case kPwmWaveform:
            UpdateWaveform();
            break;
        default:
            break;
    }
}

void CPWMOscBlock::Work(int voice, int numSamples) {
    const float width = pulseWidth.load(std::memory_order_relaxed);
    auto third = [width](float x) { return WidthOffset(std::clamp(x * 0.5f + width, 0.0f, 1.0f)); };
    auto sample = [](const WaveTable& t, uint32_t p, uint32_t d) { return shaped::PwmSample(t, p, d); };
    RenderVoice(voice, numSamples, phaseOffset.load(std::memory_order_relaxed), third, sample);
}
