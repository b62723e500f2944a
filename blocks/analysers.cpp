// The analysers (Scope, Large Scope, VU-meter, Spectrum, Spectrum Analyser) and the
// lock-free captures a display reads them through.
//
// [SECTION] ScopeRing
// [SECTION] SpectrumCapture
// [SECTION] RowSnapshot
// [SECTION] Windows, colour ramp, magnitudes
// [SECTION] CScopeBlock
// [SECTION] CLargeScopeBlock
// [SECTION] CVuBlock
// [SECTION] CSpectrumBase, CSpectrumBlock, CMegaSpectrumBlock
#include "blocks/analysers.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/fft.h"
#include "engine/value_format.h"
#include "engine/vrok_instance.h"

// [SECTION] ScopeRing

void ScopeRing::Allocate(int newLength) {
    length = std::max(newLength, 1);
    slots = std::make_unique<std::atomic<float>[]>(size_t(length));
    for (int i = 0; i < length; ++i) slots[i].store(0.0f, std::memory_order_relaxed);
    writePosition = 0;
    writing.store(0);
    written.store(0);
    readTotal.store(0);
}

void ScopeRing::Write(const float* x, float gain, int n) {
    const uint64_t total = written.load(std::memory_order_relaxed);
    // Announce the slots about to change before touching them; a reader that sees one of
    // the new values is bound to see this total too.
    writing.store(total + uint64_t(n), std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_release);
    for (int i = 0; i < n; ++i) {
        slots[writePosition].store(x ? x[i] * gain : 0.0f, std::memory_order_relaxed);
        if (++writePosition == length) writePosition = 0;
    }
    written.store(total + uint64_t(n), std::memory_order_release);
}

int ScopeRing::Available() const {
    const uint64_t available =
        written.load(std::memory_order_acquire) - readTotal.load(std::memory_order_relaxed);
    return int(std::min<uint64_t>(available, uint64_t(length)));
}

void ScopeRing::SkipToNewest(int keep) {
    const uint64_t end = written.load(std::memory_order_acquire);
    const uint64_t from = end - std::min<uint64_t>(end, uint64_t(std::max(keep, 0)));
    if (from > readTotal.load(std::memory_order_relaxed)) readTotal.store(from, std::memory_order_relaxed);
}

int ScopeRing::Read(float* dest, int max) {
    if (length == 0 || max <= 0) return 0;
    const uint64_t end = written.load(std::memory_order_acquire);
    uint64_t start = readTotal.load(std::memory_order_relaxed);
    // Whatever is older than one ring's length is gone already.
    if (end - start > uint64_t(length)) start = end - uint64_t(length);
    const int count = int(std::min<uint64_t>(end - start, uint64_t(max)));
    for (int i = 0; i < count; ++i)
        dest[i] = slots[(start + uint64_t(i)) % uint64_t(length)].load(std::memory_order_relaxed);
    std::atomic_thread_fence(std::memory_order_acquire);
    const uint64_t reached = writing.load(std::memory_order_relaxed);
    // Slots below reached - length may hold newer samples than the ones asked for.
    int torn = 0;
    if (reached > uint64_t(length) && reached - uint64_t(length) > start)
        torn = int(std::min<uint64_t>(reached - uint64_t(length) - start, uint64_t(count)));
    if (torn > 0) std::memmove(dest, dest + torn, sizeof(float) * size_t(count - torn));
    readTotal.store(start + uint64_t(count), std::memory_order_relaxed);
    return count - torn;
}

void ScopeRing::Reset() {
    readTotal.store(written.load(std::memory_order_acquire), std::memory_order_relaxed);
}

// [SECTION] SpectrumCapture

// The fill position starts below the limit and a block adds at most kMaxFrames, so the
// frozen position is below limit + kMaxFrames, and the blocks after it write one more row.
SpectrumCapture::SpectrumCapture(int limit) : limit(limit), samples(size_t(limit + 2 * kMaxFrames), 0.0f) {}

int SpectrumCapture::BeginBlock() { return fill.load(std::memory_order_acquire); }

void SpectrumCapture::EndBlock(int blockPosition, int n) {
    // The test comes before the addition, so the position may end past the limit.
    if (blockPosition < limit) fill.store(blockPosition + n, std::memory_order_release);
}

bool SpectrumCapture::Take(std::vector<float>& dest) {
    const int position = fill.load(std::memory_order_acquire);
    if (position < limit) return false;
    dest.assign(samples.begin(), samples.begin() + position);
    fill.store(0, std::memory_order_release);
    return true;
}

// [SECTION] RowSnapshot

void RowSnapshot::Publish(const float* values, int n) {
    const uint32_t s = sequence.load(std::memory_order_relaxed);
    sequence.store(s + 1, std::memory_order_relaxed);  // odd: a write is under way
    std::atomic_thread_fence(std::memory_order_release);
    for (int i = 0; i < n; ++i) row[size_t(i)].store(values[i], std::memory_order_relaxed);
    size.store(n, std::memory_order_relaxed);
    sequence.store(s + 2, std::memory_order_release);
}

int RowSnapshot::Read(float* dest) const {
    for (;;) {
        const uint32_t before = sequence.load(std::memory_order_acquire);
        if (before & 1u) continue;
        const int n = size.load(std::memory_order_relaxed);
        for (int i = 0; i < n; ++i) dest[i] = row[size_t(i)].load(std::memory_order_relaxed);
        std::atomic_thread_fence(std::memory_order_acquire);
        if (sequence.load(std::memory_order_relaxed) == before) return n;
    }
}

// [SECTION] Windows, colour ramp, magnitudes

namespace {
template <size_t N>
std::array<double, N> Hamming(double step) {
    std::array<double, N> w;
    for (size_t i = 0; i < N; ++i) w[i] = 0.54 - 0.46 * std::cos(step * double(i));
    return w;
}
}  // namespace

std::vector<double> KaiserBesselDerivedWindow() {
    constexpr int kHalf = 1024;
    std::vector<double> running(kHalf);
    double sum = 0.0;
    for (int i = 0; i < kHalf; ++i) {
        const double t = 4.0 * i / 2048.0 - 1.0;
        const double u = std::sqrt(1.0 - t * t) * 3.14159265358979323846 / 2.0;
        sum += std::cyl_bessel_i(0.0, u);
        running[size_t(i)] = sum;
    }
    const double total = running[kHalf - 1];
    std::vector<double> w(2 * kHalf);
    for (int i = 0; i < kHalf; ++i) {
        w[size_t(i)] = std::sqrt(running[size_t(i)] / (total + 1.0));
        w[size_t(2 * kHalf - 1 - i)] = w[size_t(i)];
    }
    return w;
}

std::vector<uint32_t> SpectrumColourRamp() {
    std::vector<uint32_t> ramp;
    ramp.reserve(255 + 3 * 256);
    for (uint32_t i = 0; i < 255; ++i) ramp.push_back(i);                       // black to blue
    for (uint32_t i = 0; i < 256; ++i) ramp.push_back(0xFFu + i * 0xFFFFu);     // blue to red
    for (uint32_t i = 0; i < 256; ++i) ramp.push_back(0xFF0000u + i * 0x100u);  // red to yellow
    for (uint32_t i = 0; i < 256; ++i) ramp.push_back(0xFFFF00u + i);           // yellow to white
    return ramp;
}

std::vector<float> MagnitudeSpectrum(const std::vector<float>& capture, const double* window, int n) {
    std::vector<double> windowed(size_t(n), 0.0);
    for (int i = 0; i < n && size_t(i) < capture.size(); ++i)
        windowed[size_t(i)] = double(capture[size_t(i)]) * window[i];
    const std::vector<double> magnitudes = engine::RealMagnitudes(windowed);
    return std::vector<float>(magnitudes.begin(), magnitudes.end());
}

// [SECTION] CScopeBlock

namespace {
enum : int { kScopeGain, kScopePolyphonic, kScopeSlow, kScopeSync, kScopeParamCount };

constexpr ParamRow kScopeRows[kScopeParamCount] = {
    // name          kind               default  value text
    {"gain", ParamKind::Slider, 0.5f, ValueText::Custom},
    {"polyphonic", ParamKind::Switch, 1.0f, ValueText::Custom},
    {"slow", ParamKind::Switch, 0.0f, ValueText::Custom},
    {"sync", ParamKind::Switch, 0.0f, ValueText::Custom},
};
// The analysers' one port is their audio input.
constexpr int kAnalyserPorts = 1;

bool SwitchOn(float v) { return v >= 0.4f; }
std::string SwitchText(bool on) { return on ? "on" : "off"; }
}  // namespace

CScopeBlock::CScopeBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    isOutput = true;
    // Two seconds at the rate the block is made at; a later change of rate keeps the
    // rings, since a display may be reading them.
    for (ScopeRing& ring : rings) ring.Allocate(int(sampleRate * 2.0f));
    ConfigureFromRows(kScopeRows, kAnalyserPorts, kCategoryOutputs, "Scope");
}

std::string CScopeBlock::DescribeValue(int index, float value) {
    if (index == kScopeGain) return FormatSignificant(value * 2.0f, 3) + "x";
    if (index > kScopeGain && index < kScopeParamCount) return SwitchText(SwitchOn(value));
    return {};
}

void CScopeBlock::ParameterChanged(int index) {
    const float v = values[index];
    switch (index) {
        case kScopeGain:
            gain.store(v * 2.0f, std::memory_order_relaxed);
            break;
        case kScopePolyphonic:
            polyphonic.store(SwitchOn(v), std::memory_order_relaxed);
            // Emptying is the reader's side of each ring, and this runs on the display's
            // thread, so the writer is never disturbed.
            for (ScopeRing& ring : rings) ring.Reset();
            break;
        case kScopeSlow:
            stride.store(SwitchOn(v) ? int(sampleRate * 0.0078125f) : 1, std::memory_order_relaxed);
            break;
        case kScopeSync:
            sync.store(SwitchOn(v), std::memory_order_relaxed);
            break;
        default:
            break;
    }
}

void CScopeBlock::PrepareBlock(int numSamples) {
    CAudioBlock::PrepareBlock(numSamples);
    std::fill_n(mixRow, numSamples, 0.0f);
}

void CScopeBlock::Work(int voice, int numSamples) {
    active[voice] = 0;  // a scope makes no output of its own
    const InputPort& port = *ports[0];
    const float g = gain.load(std::memory_order_relaxed);
    const bool poly = polyphonic.load(std::memory_order_relaxed);
    if (poly) {
        rings[voice].Write(port.written[voice] ? port.buffer[voice] : nullptr, g, numSamples);
    } else if (port.written[voice]) {
        for (int i = 0; i < numSamples; ++i) mixRow[i] += port.buffer[voice][i];
    }
    if (voice == engine->numVoices - 1 || monophonic) {
        if (!poly) rings[0].Write(mixRow, g, numSamples);
        displayResetPending = true;
    }
}

void CScopeBlock::Reset() { monophonic = true; }

// [SECTION] CLargeScopeBlock

CLargeScopeBlock::CLargeScopeBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(nullptr, 0, kAnalyserPorts, kCategoryOutputs, "Large Scope");
}

void CLargeScopeBlock::Work(int voice, int numSamples) {
    lastBlockSize = numSamples;
    active[voice] = 0;
    if (!PortHasData(0, voice)) {
        std::fill_n(output[voice], numSamples, 0.0f);
        return;
    }
    std::memcpy(output[voice], ports[0]->buffer[voice], sizeof(float) * size_t(numSamples));
    active[voice] = 1;
    displayResetPending = true;
    if (voice == 0) display.Publish(output[0], numSamples);
}

void CLargeScopeBlock::Reset() {
    monophonic = true;
    std::fill_n(output[0], lastBlockSize, 0.0f);
    display.Publish(output[0], lastBlockSize);
}

// [SECTION] CVuBlock

CVuBlock::CVuBlock(VrokInstance* engine, float sampleRate) : CAudioBlock(engine, sampleRate) {
    hasAudioInput = true;
    ConfigureFromRows(nullptr, 0, kAnalyserPorts, kCategoryOutputs, "VU-meter");
}

void CVuBlock::PrepareBlock(int numSamples) {
    CAudioBlock::PrepareBlock(numSamples);
    meter = 0.0f;
    meterDone = false;
}

void CVuBlock::Work(int voice, int numSamples) {
    displayResetPending = true;
    active[voice] = 0;
    float sum = 0.0f;
    if (!PortHasData(0, voice)) {
        std::fill_n(output[voice], numSamples, 0.0f);
    } else {
        const float* in = ports[0]->buffer[voice];
        for (int i = 0; i < numSamples; ++i) {
            output[voice][i] = in[i];
            sum += std::fabs(in[i]);
        }
        active[voice] = 1;
    }
    if (!meterDone) meter += sum / float(numSamples);
    if (voice == engine->numVoices - 1 || monophonic) {
        // Published once complete, so a display never shows a sum of only some voices.
        if (!meterDone) displayMeter.store(meter, std::memory_order_relaxed);
        meterDone = true;
    }
}

// [SECTION] CSpectrumBase, CSpectrumBlock, CMegaSpectrumBlock

CSpectrumBase::CSpectrumBase(VrokInstance* engine, float sampleRate, int limit)
    : CAudioBlock(engine, sampleRate), capture(limit) {
    hasAudioInput = true;
}

void CSpectrumBase::PrepareBlock(int numSamples) {
    CAudioBlock::PrepareBlock(numSamples);
    firstVoice = true;
    blockPosition = capture.BeginBlock();
}

void CSpectrumBase::Work(int voice, int numSamples) {
    lastBlockSize = numSamples;
    active[voice] = 0;
    liveVoices = 0;
    float* at = capture.At(blockPosition);
    if (!PortHasData(0, voice)) {
        std::fill_n(output[voice], numSamples, 0.0f);
        if (firstVoice) {
            std::fill_n(at, numSamples, 0.0f);
            firstVoice = false;
        }
    } else {
        const float* in = ports[0]->buffer[voice];
        std::memcpy(output[voice], in, sizeof(float) * size_t(numSamples));
        if (firstVoice) {
            for (int i = 0; i < numSamples; ++i) at[i] = in[i] * 0.5f;
            firstVoice = false;
        } else {
            for (int i = 0; i < numSamples; ++i) at[i] += in[i] * 0.5f;
        }
        active[voice] = 1;
        ++liveVoices;
    }
    displayResetPending = true;
    if (voice == engine->numVoices - 1 || monophonic) capture.EndBlock(blockPosition, numSamples);
}

CSpectrumBlock::CSpectrumBlock(VrokInstance* engine, float sampleRate)
    : CSpectrumBase(engine, sampleRate, kLimit), hamming(Hamming<kLength>(0.024542969)) {
    ConfigureFromRows(nullptr, 0, kAnalyserPorts, kCategoryOutputs, "Spectrum");
}

namespace {
enum : int { kMegaZoom, kMegaOffset, kMegaMode, kMegaFalloff, kMegaParamCount };

constexpr ParamRow kMegaRows[kMegaParamCount] = {
    // name       kind               default  value text
    {"zoom", ParamKind::Slider, 0.0f, ValueText::Custom},
    {"offset", ParamKind::Slider, 0.0f, ValueText::Percent},
    {"mode", ParamKind::Switch, 0.0f, ValueText::Custom},
    {"falloff", ParamKind::Slider, 0.0f, ValueText::Custom},
};
}  // namespace

CMegaSpectrumBlock::CMegaSpectrumBlock(VrokInstance* engine, float sampleRate)
    : CSpectrumBase(engine, sampleRate, kLimit),
      hamming(Hamming<kLength>(0.003067871)),
      kaiserBessel(KaiserBesselDerivedWindow()),
      colourRamp(SpectrumColourRamp()) {
    ConfigureFromRows(kMegaRows, kAnalyserPorts, kCategoryOutputs, "Spectrum Analyser");
}

std::string CMegaSpectrumBlock::DescribeValue(int index, float value) {
    switch (index) {
        case kMegaZoom:
            return FormatSignificant(value * 16.0f + 1.0f, 3) + "x";
        case kMegaMode:
            return value > 0.5f ? "Kaiser-Bessel" : "Hamming";
        case kMegaFalloff:
            return FormatSignificant((14.0f - value * 14.0f) + 0.1f, 3);
        default:
            return DescribeRowValue(kMegaRows, index, value, sampleRate);
    }
}

void CMegaSpectrumBlock::ParameterChanged(int index) {
    const float v = values[index];
    switch (index) {
        case kMegaZoom:
            zoom.store(v * 16.0f + 1.0f, std::memory_order_relaxed);
            break;
        case kMegaOffset:
            offset.store(v, std::memory_order_relaxed);
            break;
        case kMegaMode:
            mode.store(v > 0.5f, std::memory_order_relaxed);
            break;
        case kMegaFalloff:
            falloff.store((14.0f - v * 14.0f) + 0.1f, std::memory_order_relaxed);
            break;
        default:
            return;
    }
    const float z = zoom.load(std::memory_order_relaxed);
    const float width = 1024.0f / z;
    const float start = z == 1.0f ? 0.0f : (1024.0f - width) * offset.load(std::memory_order_relaxed);
    visibleStart.store(start, std::memory_order_relaxed);
    visibleEnd.store(start + width, std::memory_order_relaxed);
}
