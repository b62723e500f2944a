// The display block windows: the shared base with its picture window and tick, the scope, the
// filter response and the output level.
#include "editor/display_guis.h"

#include <algorithm>
#include <cmath>
#include <complex>
#include <numbers>

#include "blocks/analysers.h"
#include "blocks/envelopes.h"
#include "blocks/eq_formant.h"
#include "blocks/filters.h"
#include "blocks/followers.h"
#include "document/patch_records.h"
#include "document/vrok_doc.h"
#include "editor/vrok_doc_window.h"
#include "engine/vrok_instance.h"
#include "g/parameter_knob.h"
#include "g/renderer.h"

namespace editor {
namespace {

constexpr int kDisplayX = 2;
constexpr int kDisplayWidth = kBlockWindowWidth - 4;
constexpr int kScopeTarget = 303;
constexpr G::Color kScopePen = 0xFF00FF00;
constexpr G::Color kScopeFill = 0x5000FF00;
constexpr double kLowestHz = 22.0;
constexpr double kHighestHz = 22528.0;

G::Color WithAlpha(G::Color c, uint32_t alpha) { return (c & 0x00FFFFFFu) | (alpha << 24); }

// Black through dark green to black, top to bottom: the scope and meter face.
G::Brush ScopeFace(float h) {
    return G::Brush::Gradient({0, 0}, {0, h}, {{0.0f, 0xFF000000}, {0.5f, 0xFF002800}, {1.0f, 0xFF000000}});
}

}  // namespace

// [SECTION] picture window

DisplayBlockDisplayArea::DisplayBlockDisplayArea(DisplayBlockGui* ownerGui)
    : G::Window(ownerGui), owner(ownerGui) {}

bool DisplayBlockDisplayArea::OnDraw(G::Renderer& renderer, G::Rect) {
    owner->DrawDisplay(renderer, 0, 0, bounds.w, bounds.h);
    return true;
}

bool DisplayBlockDisplayArea::OnLeftDown(int x, int y) {
    pressX = x;
    pressY = y;
    pressed = true;
    ++presses;
    SetFocus();
    CaptureMouse();
    owner->OnDisplayClick(0, 0, bounds.w, bounds.h, std::clamp(x, 0, bounds.w), std::clamp(y, 0, bounds.h));
    owner->canvas->doc.ActionStart(nullptr);
    return true;
}

bool DisplayBlockDisplayArea::OnLeftUp(int, int) {
    if (!pressed) return true;
    pressed = false;
    owner->canvas->doc.ActionEnd(nullptr);
    if (HasCapture()) ReleaseMouse();
    return true;
}

bool DisplayBlockDisplayArea::OnMouseEnter(int, int) {
    hover = true;
    return true;
}

bool DisplayBlockDisplayArea::OnMouseLeave(int, int) {
    hover = false;
    return true;
}

// [SECTION] base

DisplayBlockGui::DisplayBlockGui(VrokDocWindow* canvasWindow, PatchBlock* record, int height, bool tick)
    : VrokBlockWindow(canvasWindow, record), ticking(tick), displayHeight(height) {}

DisplayBlockGui::~DisplayBlockGui() {
    if (ticking) RemoveTimerClient(this);
}

void DisplayBlockGui::BuildWidgets() {
    VrokBlockWindow::BuildWidgets();
    const int top = panelHeight;
    area = new DisplayBlockDisplayArea(this);
    area->SetBounds(kDisplayX, top, kDisplayWidth, displayHeight);
    AddChild(area);
    panelHeight = top + displayHeight + 3;
    SetSize(kBlockWindowWidth, panelHeight);
    if (ticking) AddTimerClient(this);
}

void DisplayBlockGui::OnTimer(int) {
    if (ticking && area && PictureChanged()) area->Invalidate(nullptr);
}

void DisplayBlockGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    renderer.FillRectOpen(G::Brush::Solid(G::theme::Palette(paleColorIndex)),
                          G::FloatRect{float(x), float(y), float(w), float(h)});
    renderer.StrokeRect(G::Pen{0xFF000000, 1.0f}, G::FloatRect{x + 0.5f, y + 0.5f, w - 1.0f, h - 1.0f});
}

// [SECTION] scope

ScopeGui::ScopeGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : DisplayBlockGui(canvasWindow, record, 64, true) {}

CScopeBlock* ScopeGui::Scope() const { return dynamic_cast<CScopeBlock*>(patchBlock->block); }

int ScopeGui::TakeSamples(int w) {
    CScopeBlock* scope = Scope();
    if (!scope) return 0;
    const int stride = std::max(1, scope->stride.load(std::memory_order_relaxed));
    const int target = std::min(2 * w, kScopeTarget) * stride;
    const int channelCount = scope->polyphonic.load(std::memory_order_relaxed) ? kMaxVoices : 1;
    int live = 0;
    float chunk[512];
    for (int c = 0; c < kMaxVoices; ++c) {
        Channel& channel = channels[c];
        channel.live = false;
        if (c >= channelCount) continue;
        ScopeRing& ring = scope->rings[c];
        if (ring.Available() > target && stride == 1) ring.SkipToNewest(target);
        int got = 0;
        while ((got = ring.Read(chunk, int(std::size(chunk)))) > 0) {
            channel.live = true;
            for (int i = 0; i < got; ++i) {
                if (channel.phase++ % stride != 0) continue;
                channel.ring[channel.write] = std::clamp(chunk[i], -1.0f, 1.0f);
                channel.write = (channel.write + 1) % kRingLength;
                channel.filled = std::min(channel.filled + 1, kRingLength);
            }
            channel.phase %= stride;
        }
        live += channel.live;
    }
    return live;
}

void ScopeGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    CScopeBlock* scope = Scope();
    if (!scope) return DisplayBlockGui::DrawDisplay(renderer, x, y, w, h);
    renderer.FillRect(ScopeFace(float(h)), G::FloatRect{float(x), float(y), float(w), float(h)});
    TakeSamples(w);
    const bool sync = scope->sync.load(std::memory_order_relaxed);
    if (scope->polyphonic.load(std::memory_order_relaxed)) {
        for (int v = 0; v < kMaxVoices; ++v) {
            if (!channels[v].live) continue;
            const G::Color hue = G::HueColor(float(v) * 360.0f / float(kMaxVoices));
            DrawChannel(renderer, channels[v], w, h, sync, hue, WithAlpha(hue, 0x50));
        }
    } else {
        DrawChannel(renderer, channels[0], w, h, sync, kScopePen, kScopeFill);
    }
    renderer.StrokeRect(G::Pen{G::theme::Palette(28), 1.0f},
                        G::FloatRect{x + 0.5f, y + 0.5f, w - 1.0f, h - 1.0f});
}

void ScopeGui::DrawChannel(G::Renderer& renderer, const Channel& channel, int w, int h, bool sync,
                           G::Color stroke, G::Color fill) {
    if (w < 3) return;
    const int count = w - 1;
    // Oldest first: the newest 2w samples (silence where the ring is not yet filled).
    const int span = std::min(2 * w, kRingLength);
    float recent[2 * kRingLength];
    for (int i = 0; i < span; ++i) {
        const int back = span - i;
        recent[i] =
            back <= channel.filled ? channel.ring[(channel.write - back + kRingLength) % kRingLength] : 0.0f;
    }
    int start = span - count;
    if (sync) {
        start = span / 2;
        for (int i = span / 2; i > 0; --i) {
            if (recent[i - 1] < 0.0f && recent[i] >= 0.0f) {
                start = i;
                break;
            }
        }
        start = std::min(start, span - count);
    }
    // Vertices sit on pixel centres, so a flat trace is one crisp row.
    const float centre = float(h) / 2.0f;
    const float scale = centre - 1.0f;
    const float row = centre + 0.5f;
    G::FloatPoint points[kRingLength + 2];
    points[0] = G::FloatPoint{0.5f, row};
    for (int i = 0; i < count; ++i)
        points[i + 1] = G::FloatPoint{float(i) + 0.5f, row - recent[start + i] * scale};
    points[count + 1] = G::FloatPoint{float(count) - 0.5f, row};
    renderer.FillPolygon(G::Brush::Solid(fill), points, count + 2);
    renderer.DrawPolyline(G::Pen{stroke, 1.0f}, points + 1, count);
}

// [SECTION] filter

FilterGui::FilterGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : DisplayBlockGui(canvasWindow, record, 48, true) {}

CFilterBlock* FilterGui::Filter() const { return dynamic_cast<CFilterBlock*>(patchBlock->block); }

double FilterGui::ColumnHz(int c) {
    return kLowestHz * std::pow(kHighestHz / kLowestHz, double(c) / double(kColumns));
}

double FilterGui::Magnitude(const float (&set)[5], double hz, double sampleRate) {
    const double w = std::min(std::numbers::pi, 2.0 * std::numbers::pi * hz / sampleRate);
    const std::complex<double> z1 = std::polar(1.0, -w);
    const std::complex<double> z2 = z1 * z1;
    const std::complex<double> num = double(set[0]) + double(set[1]) * z1 + double(set[2]) * z2;
    const std::complex<double> den = 1.0 + double(set[3]) * z1 + double(set[4]) * z2;
    return std::abs(den) > 0.0 ? std::abs(num) / std::abs(den) : 0.0;
}

void FilterGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    CFilterBlock* filter = Filter();
    DisplayBlockGui::DrawDisplay(renderer, x, y, w, h);
    if (!filter || w < 3 || h < 3) return;
    if (filter->displayChanged.load(std::memory_order_relaxed)) {
        filter->ReadSnapshots(sets);
        haveSnapshot = true;
    }
    if (!haveSnapshot) return;
    // Gain 1 sits at half height; resonant peaks above twice that are clipped.
    const float scale = float(h - 2) / 2.0f;
    const double rate = filter->sampleRate;
    auto curve = [&](const float(&set)[5], G::FloatPoint* points) {
        for (int c = 0; c <= kColumns; ++c) {
            const float gain = float(Magnitude(set, ColumnHz(c), rate)) * scale;
            points[c] = G::FloatPoint{float(x) + 1.0f + float(c) * float(w - 2) / float(kColumns),
                                      float(y + h - 1) + 0.5f - std::clamp(gain, 0.0f, float(h - 2))};
        }
    };
    G::FloatPoint points[kColumns + 3];
    for (int v = 0; v < filter->engine->numVoices && v < kMaxVoices; ++v) {
        if (!filter->active[v] || std::equal(sets[v], sets[v] + 5, sets[CFilterBlock::kReference])) continue;
        curve(sets[v], points);
        renderer.DrawPolyline(G::Pen{WithAlpha(G::HueColor(float(v) * 360.0f / kMaxVoices), 100), 1.0f},
                              points, kColumns + 1);
    }
    curve(sets[CFilterBlock::kReference], points);
    points[kColumns + 1] = G::FloatPoint{float(x + w - 1), float(y + h - 1)};
    points[kColumns + 2] = G::FloatPoint{float(x + 1), float(y + h - 1)};
    const G::Color pale = G::theme::Palette(paleColorIndex);
    renderer.FillPolygon(G::Brush::Solid(WithAlpha(G::Brighten(pale, 20), 0x8C)), points, kColumns + 3);
    renderer.DrawPolyline(G::Pen{0xFF000000, 1.0f}, points, kColumns + 1);
}

// [SECTION] output level

OutputGui::OutputGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : DisplayBlockGui(canvasWindow, record, 10, true) {}

void OutputGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    CAudioBlock* block = patchBlock->block;
    if (!block) return DisplayBlockGui::DrawDisplay(renderer, x, y, w, h);
    const float level = std::clamp(block->GetLevel(), 0.0f, 1.0f);
    const float fw = float(w);
    const G::FloatRect all{float(x), float(y), fw, float(h)};
    // The dark brush under the whole bar, the bright one up to the level; both run green to
    // red over twice the width, so only the loudest levels turn orange.
    renderer.FillRect(G::Brush::Gradient({float(x), 0}, {float(x) + 2 * fw, 0},
                                         {{0.0f, 0xFF003000}, {0.5f, 0xFF303000}, {1.0f, 0xFF300000}}),
                      all);
    renderer.FillRect(G::Brush::Gradient({float(x), 0}, {float(x) + 2 * fw, 0},
                                         {{0.0f, 0xFF00E000}, {0.5f, 0xFFE0E000}, {1.0f, 0xFFE00000}}),
                      G::FloatRect{float(x), float(y), fw * level, float(h)});
    renderer.StrokeRect(G::Pen{0xFF000000, 1.0f}, G::FloatRect{x + 0.5f, y + 0.5f, fw - 1.0f, h - 1.0f});
}

// [SECTION] VU meter

VuMeterGui::VuMeterGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : DisplayBlockGui(canvasWindow, record, 12, true) {}

float VuMeterGui::BarLength(float level, int w) {
    if (!(level > 0.0f)) return 0.0f;
    const float db = 20.0f * std::log10(level);
    return float(w) * std::clamp((db - kFloorDb) / (kCeilingDb - kFloorDb), 0.0f, 1.0f);
}

void VuMeterGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    auto* vu = dynamic_cast<CVuBlock*>(patchBlock->block);
    if (!vu) return DisplayBlockGui::DrawDisplay(renderer, x, y, w, h);
    const float fw = float(w);
    renderer.FillRect(ScopeFace(float(h)), G::FloatRect{float(x), float(y), fw, float(h)});
    const float length = BarLength(vu->displayMeter.load(std::memory_order_relaxed), w);
    renderer.FillRect(G::Brush::Gradient({float(x), 0}, {float(x) + fw, 0},
                                         {{0.0f, 0xFF00C000}, {0.8f, 0xFFE0E000}, {1.0f, 0xFFE00000}}),
                      G::FloatRect{float(x), float(y) + 2, length, float(h) - 4});
    const float zero = BarLength(1.0f, w);
    renderer.DrawLine(G::Pen{0xFFFFFFFF, 1.0f}, float(x) + zero + 0.5f, float(y), float(x) + zero + 0.5f,
                      float(y + h));
    renderer.StrokeRect(G::Pen{G::theme::Palette(28), 1.0f},
                        G::FloatRect{x + 0.5f, y + 0.5f, fw - 1.0f, h - 1.0f});
}

// [SECTION] large scope

LargeScopeGui::LargeScopeGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : DisplayBlockGui(canvasWindow, record, 96, true) {}

void LargeScopeGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    auto* scope = dynamic_cast<CLargeScopeBlock*>(patchBlock->block);
    if (!scope) return DisplayBlockGui::DrawDisplay(renderer, x, y, w, h);
    renderer.FillRect(ScopeFace(float(h)), G::FloatRect{float(x), float(y), float(w), float(h)});
    float row[kMaxFrames];
    const int n = scope->display.Read(row);
    if (w >= 3) {
        const float row0 = float(y) + float(h) / 2.0f + 0.5f;
        const float scale = float(h) / 2.0f - 1.0f;
        G::FloatPoint points[kBlockWindowWidth];
        const int count = std::min(w - 1, kBlockWindowWidth);
        for (int i = 0; i < count; ++i) {
            const float s = n > 0 ? std::clamp(row[int64_t(i) * n / count], -1.0f, 1.0f) : 0.0f;
            points[i] = G::FloatPoint{float(x + i) + 0.5f, row0 - s * scale};
        }
        renderer.DrawPolyline(G::Pen{kScopePen, 1.0f}, points, count);
    }
    renderer.StrokeRect(G::Pen{G::theme::Palette(28), 1.0f},
                        G::FloatRect{x + 0.5f, y + 0.5f, w - 1.0f, h - 1.0f});
}

// [SECTION] envelope

EnvGui::EnvGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : DisplayBlockGui(canvasWindow, record, 40, true) {}

std::array<G::FloatPoint, 5> EnvGui::Shape(int w, int h) const {
    const std::vector<float>& v = patchBlock->block->values;
    const float stage = float(w - 3) / 4.0f;
    const float top = 1.5f;
    const float bottom = float(h) - 1.5f;
    const float sustainY = bottom - std::clamp(v[2], 0.0f, 1.0f) * (bottom - top);
    const float attackX = 1.5f + std::clamp(v[0], 0.0f, 1.0f) * stage;
    const float decayX = attackX + std::clamp(v[1], 0.0f, 1.0f) * stage;
    const float sustainX = decayX + stage;
    const float releaseX = sustainX + std::clamp(v[3], 0.0f, 1.0f) * stage;
    return {G::FloatPoint{1.5f, bottom}, G::FloatPoint{attackX, top}, G::FloatPoint{decayX, sustainY},
            G::FloatPoint{sustainX, sustainY}, G::FloatPoint{releaseX, bottom}};
}

void EnvGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    DisplayBlockGui::DrawDisplay(renderer, x, y, w, h);
    auto* env = dynamic_cast<CEnvelopeBlock*>(patchBlock->block);
    if (!env || w < 8 || h < 4) return;
    std::array<G::FloatPoint, 5> shape = Shape(w, h);
    for (G::FloatPoint& p : shape) p.x += float(x), p.y += float(y);
    renderer.DrawPolyline(G::Pen{0xFF000000, 1.0f}, shape.data(), int(shape.size()));
    // Each sounding voice: its stage's share of the way along that stage's segment, at its level.
    const int voices = std::min(env->engine->numVoices, kMaxVoices);
    for (int v = 0; v < voices; ++v) {
        const EnvelopeState& s = env->states[v];
        const int stage = s.stage;
        if (stage == kStageIdle || stage > kStageRelease) continue;
        // Sustain has no length: its dot waits halfway along the held segment.
        float done = s.total > 0 ? 1.0f - float(s.remaining) / float(s.total) : 1.0f;
        if (stage == kStageSustain) done = 0.5f;
        const G::FloatPoint a = shape[stage - 1];
        const G::FloatPoint b = shape[stage];
        const float px = a.x + (b.x - a.x) * std::clamp(done, 0.0f, 1.0f);
        const float top = shape[1].y;
        const float bottom = shape[0].y;
        const float py = bottom - std::clamp(s.value, 0.0f, 1.0f) * (bottom - top);
        renderer.FillEllipse(G::Brush::Solid(G::HueColor(float(v) * 360.0f / float(kMaxVoices))),
                             G::FloatRect{px - 2.5f, py - 2.5f, 5.0f, 5.0f});
    }
}

// [SECTION] spectra

namespace {

// Magnitude of a full-scale sine in a capture: the capture holds half of each voice's signal,
// and the window's mean (0.54 for Hamming) scales the peak bin of n/2.
float FullScaleMagnitude(int n, double windowMean) { return float(0.5 * windowMean * double(n) / 2.0); }

float ToDb(float magnitude, float fullScale) {
    return magnitude > 0.0f ? 20.0f * std::log10(magnitude / fullScale) : -200.0f;
}

}  // namespace

SpectrumGui::SpectrumGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : DisplayBlockGui(canvasWindow, record, 64, true) {}

void SpectrumGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    auto* spectrum = dynamic_cast<CSpectrumBlock*>(patchBlock->block);
    if (!spectrum) return DisplayBlockGui::DrawDisplay(renderer, x, y, w, h);
    renderer.FillRect(ScopeFace(float(h)), G::FloatRect{float(x), float(y), float(w), float(h)});
    std::array<float, 128>& bars = spectrum->displayState;
    std::vector<float> capture;
    if (spectrum->capture.Take(capture)) {
        const std::vector<float> magnitudes =
            MagnitudeSpectrum(capture, spectrum->hamming.data(), CSpectrumBlock::kLength);
        const float fullScale = FullScaleMagnitude(CSpectrumBlock::kLength, 0.54);
        for (size_t i = 0; i < bars.size(); ++i) {
            const float level = std::clamp(1.0f - ToDb(magnitudes[i + 1], fullScale) / kFloorDb, 0.0f, 1.0f);
            bars[i] = std::max(level, bars[i] - kFallPerTick);
        }
    } else {
        for (float& bar : bars) bar = std::max(0.0f, bar - kFallPerTick);
    }
    const int columns = std::min<int>(int(bars.size()), w - 2);
    const float bottom = float(y + h - 1);
    const G::Brush brush = G::Brush::Gradient({0, float(y + h)}, {0, float(y)},
                                              {{0.0f, 0xFF00A000}, {0.7f, 0xFFE0E000}, {1.0f, 0xFFE00000}});
    for (int c = 0; c < columns; ++c) {
        const float height = bars[size_t(c)] * float(h - 2);
        if (height > 0.0f)
            renderer.FillRect(brush, G::FloatRect{float(x + 1 + c), bottom - height, 1.0f, height});
    }
    renderer.StrokeRect(G::Pen{G::theme::Palette(28), 1.0f},
                        G::FloatRect{x + 0.5f, y + 0.5f, w - 1.0f, h - 1.0f});
}

SpectrumAnalyserGui::SpectrumAnalyserGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : DisplayBlockGui(canvasWindow, record, kSize + 2, true) {
    std::fill_n(picture.data.get(), size_t(kSize) * kSize * 3, uint8_t(0));
    levelsDb.fill(kFloorDb);
}

bool SpectrumAnalyserGui::TakeColumn() {
    auto* analyser = dynamic_cast<CMegaSpectrumBlock*>(patchBlock->block);
    if (!analyser || !analyser->capture.Take(capture)) return false;
    const bool kaiser = analyser->mode.load(std::memory_order_relaxed);
    const double* window = kaiser ? analyser->kaiserBessel.data() : analyser->hamming.data();
    double windowMean = 0.0;
    for (int i = 0; i < CMegaSpectrumBlock::kLength; ++i) windowMean += window[i];
    windowMean /= CMegaSpectrumBlock::kLength;
    const std::vector<float> magnitudes = MagnitudeSpectrum(capture, window, CMegaSpectrumBlock::kLength);
    const float fullScale = FullScaleMagnitude(CMegaSpectrumBlock::kLength, windowMean);
    const float start = analyser->visibleStart.load(std::memory_order_relaxed);
    const float end = analyser->visibleEnd.load(std::memory_order_relaxed);
    const float falloff = analyser->falloff.load(std::memory_order_relaxed);
    const float perRow = std::max(1e-3f, (end - start) / float(kSize));
    const int lastBin = int(magnitudes.size()) - 1;
    // One column to the left, then the new one at the right edge; row 0 is the top.
    for (int row = 0; row < kSize; ++row) {
        uint8_t* p = picture.Row(row);
        std::memmove(p, p + 3, size_t(kSize - 1) * 3);
    }
    for (int r = 0; r < kSize; ++r) {
        // Loudest bin under the row, so that a narrow peak shows when zoomed out.
        const int first = std::clamp(int(start + float(r) * perRow), 0, lastBin);
        const int last = std::clamp(int(start + float(r + 1) * perRow), first, lastBin);
        float peak = 0.0f;
        for (int b = first; b <= last; ++b) peak = std::max(peak, magnitudes[size_t(b)]);
        levelsDb[size_t(r)] = std::max(ToDb(peak, fullScale), levelsDb[size_t(r)] - falloff);
        const float t = std::clamp(1.0f - levelsDb[size_t(r)] / kFloorDb, 0.0f, 1.0f);
        const uint32_t rgb = analyser->colourRamp[size_t(t * float(analyser->colourRamp.size() - 1))];
        uint8_t* p = picture.Row(kSize - 1 - r) + (kSize - 1) * 3;
        p[0] = uint8_t(rgb), p[1] = uint8_t(rgb >> 8), p[2] = uint8_t(rgb >> 16);
    }
    return true;
}

void SpectrumAnalyserGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    auto* analyser = dynamic_cast<CMegaSpectrumBlock*>(patchBlock->block);
    if (!analyser) return DisplayBlockGui::DrawDisplay(renderer, x, y, w, h);
    TakeColumn();
    renderer.FillRect(G::Brush::Solid(0xFF000000), G::FloatRect{float(x), float(y), float(w), float(h)});
    renderer.BlitBitmap(picture, G::Rect{0, 0, std::min(kSize, w - 2), std::min(kSize, h - 2)}, x + 1, y + 1);
    // Faint lines at 100 Hz, 1 kHz and 10 kHz where the zoomed range shows them.
    const float start = analyser->visibleStart.load(std::memory_order_relaxed);
    const float end = analyser->visibleEnd.load(std::memory_order_relaxed);
    for (double hz : {100.0, 1000.0, 10000.0}) {
        const double bin = hz * CMegaSpectrumBlock::kLength / double(analyser->sampleRate);
        const double row = (bin - start) * kSize / std::max(1e-3, double(end - start));
        if (row < 0.0 || row >= kSize) continue;
        const float lineY = float(y + kSize) - std::floor(float(row)) + 0.5f;
        renderer.DrawLine(G::Pen{0x60FFFFFF, 1.0f}, float(x + 1), lineY,
                          float(x + 1 + std::min(kSize, w - 2)), lineY);
    }
    renderer.StrokeRect(G::Pen{G::theme::Palette(28), 1.0f},
                        G::FloatRect{x + 0.5f, y + 0.5f, w - 1.0f, h - 1.0f});
}

// [SECTION] EQ

EqGui::EqGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : DisplayBlockGui(canvasWindow, record, 48, true) {}

bool EqGui::PictureChanged() {
    auto* eq = dynamic_cast<CEqBlock*>(patchBlock->block);
    return eq && eq->displayChanged.load(std::memory_order_relaxed);
}

void EqGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    DisplayBlockGui::DrawDisplay(renderer, x, y, w, h);
    auto* eq = dynamic_cast<CEqBlock*>(patchBlock->block);
    if (!eq || w < 3 || h < 3) return;
    eq->displayChanged.store(false, std::memory_order_relaxed);
    const float middle = float(y) + float(h) / 2.0f;
    const float perDb = (float(h) / 2.0f - 1.0f) / kRangeDb;
    renderer.DrawLine(G::Pen{0x40000000, 1.0f}, float(x + 1), middle + 0.5f, float(x + w - 1), middle + 0.5f);
    G::FloatPoint points[FilterGui::kColumns + 1];
    for (int c = 0; c <= FilterGui::kColumns; ++c) {
        double gain = 1.0;
        for (const EqBand& band : eq->bands)
            gain *= FilterGui::Magnitude(band.c, FilterGui::ColumnHz(c), eq->sampleRate);
        const float db = gain > 0.0 ? float(20.0 * std::log10(gain)) : -kRangeDb;
        points[c] = G::FloatPoint{float(x) + 1.0f + float(c) * float(w - 2) / float(FilterGui::kColumns),
                                  middle + 0.5f - std::clamp(db, -kRangeDb, kRangeDb) * perDb};
    }
    renderer.DrawPolyline(G::Pen{0xFF000000, 1.0f}, points, FilterGui::kColumns + 1);
}

// [SECTION] VU tracker

VUTrackerGui::VUTrackerGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : DisplayBlockGui(canvasWindow, record, 48, true) {}

float VUTrackerGui::NeedleAngle(float level) {
    return std::clamp(level, 0.0f, 1.0f) * 0.3926875f - 0.19634375f;
}

void VUTrackerGui::DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) {
    auto* tracker = dynamic_cast<CVUTrackerBlock*>(patchBlock->block);
    if (!tracker) return DisplayBlockGui::DrawDisplay(renderer, x, y, w, h);
    renderer.FillRect(ScopeFace(float(h)), G::FloatRect{float(x), float(y), float(w), float(h)});
    const float cx = float(x) + float(w) / 2.0f;
    const float cy = float(y + h) - 2.0f;
    const float radius = std::min(float(w) / 2.0f, float(h)) - 3.0f;
    renderer.StrokeArc(G::Pen{0xFF406040, 1.0f}, cx - radius, cy - radius, 2 * radius, 2 * radius, 180.0f,
                       180.0f);
    auto needle = [&](float angle, G::Color color) {
        renderer.DrawLine(G::Pen{color, 1.0f}, cx, cy, cx + radius * std::sin(angle),
                          cy - radius * std::cos(angle));
    };
    float mixPower = 0.0f;
    const int voices = std::min(tracker->engine->numVoices, kMaxVoices);
    for (int v = 0; v < voices; ++v) {
        if (!tracker->active[v]) continue;
        const float power = std::max(0.0f, tracker->power[v]);
        mixPower += power;
        const float angle = NeedleAngle(std::sqrt(power));
        const G::Color hue = G::HueColor(float(v) * 360.0f / float(kMaxVoices));
        // Degrees for the wedge, measured from the vertical.
        renderer.FillPie(G::Brush::Solid(WithAlpha(hue, 0x50)), cx - radius, cy - radius, 2 * radius,
                         2 * radius, -90.0f, angle * 57.29747f);
        needle(angle, hue);
    }
    needle(NeedleAngle(std::sqrt(mixPower)), 0xFF00FF00);
    renderer.StrokeRect(G::Pen{G::theme::Palette(28), 1.0f},
                        G::FloatRect{x + 0.5f, y + 0.5f, w - 1.0f, h - 1.0f});
}

}  // namespace editor
