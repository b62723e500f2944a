// The drawn curve editors: stroke and cycle gestures of the area, the reshaping buttons, and
// the two block windows built on them.
#include "editor/curve_editors.h"

#include <algorithm>
#include <cmath>

#include "document/patch_records.h"
#include "document/vrok_doc.h"
#include "editor/vrok_doc_window.h"
#include "engine/audio_block.h"
#include "g/button.h"
#include "g/keys.h"
#include "g/renderer.h"

namespace editor {
namespace {

constexpr int kAreaX = 3;
// One pixel per waveshaper point: a right drag by 128 pixels is a whole turn.
constexpr int kAreaWidth = 128;
constexpr float kLiftPerPixel = 1.0f / 128.0f;
constexpr int kButtonHeight = 14;
constexpr float kArctanDrive = 3.0f;

const wchar_t* ButtonCaption(CurveBlockGui::Button button) {
    switch (button) {
        case CurveBlockGui::kReset:
            return L"reset";
        case CurveBlockGui::kSmooth:
            return L"smooth";
        case CurveBlockGui::kInvert:
            return L"invert";
        case CurveBlockGui::kArctan:
            return L"arctan";
        case CurveBlockGui::kFlip:
            return L"flip";
    }
    return L"";
}

// Wraps into 0..1 by whole steps, as a right drag moves the curve through the top and bottom.
float Wrap(float v) {
    while (v > 1.0f) v -= 1.0f;
    while (v < 0.0f) v += 1.0f;
    return v;
}

G::Color WithAlpha(G::Color c, uint32_t alpha) { return (c & 0x00FFFFFFu) | (alpha << 24); }

}  // namespace

// [SECTION] area

CurveArea::CurveArea(CurveBlockGui* ownerGui, int first, int points)
    : G::Window(ownerGui), owner(ownerGui), firstIndex(first), count(points) {}

float CurveArea::Point(int i) const {
    CAudioBlock* block = owner->patchBlock->block;
    return block ? std::clamp(block->values[firstIndex + i], 0.0f, 1.0f) : 0.0f;
}

int CurveArea::PointAt(int x) const {
    const int w = std::max(1, bounds.w);
    return std::clamp(x * count / w, 0, count - 1);
}

bool CurveArea::OnDraw(G::Renderer& renderer, G::Rect) {
    const float w = float(bounds.w);
    const float h = float(bounds.h);
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(owner->paleColorIndex)), G::FloatRect{0, 0, w, h});
    renderer.DrawLine(G::Pen{0x40000000, 1.0f}, 0, h / 2, w, h / 2);
    if (count > 0 && owner->patchBlock->block) {
        // One vertex per point at its column's centre, and the floor corners for the fill.
        std::vector<G::FloatPoint> points(count + 2);
        for (int i = 0; i < count; ++i) {
            points[i] = G::FloatPoint{(float(i) + 0.5f) * w / float(count), (1.0f - Point(i)) * (h - 1.0f)};
        }
        points[count] = G::FloatPoint{w, h};
        points[count + 1] = G::FloatPoint{0, h};
        renderer.FillPolygon(G::Brush::Solid(WithAlpha(G::theme::Palette(owner->strongColorIndex), 0x8C)),
                             points.data(), count + 2);
        renderer.DrawPolyline(G::Pen{0xFF000000, 1.0f}, points.data(), count);
    }
    renderer.StrokeRect(G::Pen{0xFF000000, 1.0f}, G::FloatRect{0.5f, 0.5f, w - 1.0f, h - 1.0f});
    return true;
}

void CurveArea::Press(int x, int y) {
    CaptureMouse();
    lastX = previousX = x;
    lastY = previousY = y;
    owner->canvas->doc.ActionStart(nullptr);
}

void CurveArea::Release() {
    if (HasCapture()) ReleaseMouse();
    owner->canvas->doc.ActionEnd(nullptr);
    owner->canvas->CountChange();
}

bool CurveArea::OnLeftDown(int x, int y) {
    if (drawing || rightDragging) return true;
    drawing = true;
    Press(x, y);
    Stroke(x, y);
    return true;
}

bool CurveArea::OnLeftUp(int, int) {
    if (!drawing) return true;
    drawing = false;
    Release();
    return true;
}

bool CurveArea::OnRightDown(int x, int y) {
    if (drawing || rightDragging) return true;
    rightDragging = true;
    Press(x, y);
    return true;
}

bool CurveArea::OnRightUp(int, int) {
    if (!rightDragging) return true;
    rightDragging = false;
    Release();
    return true;
}

bool CurveArea::OnMouseMove(int x, int y) {
    if (drawing) Stroke(x, y);
    if (rightDragging) Cycle(x, y);
    return drawing || rightDragging;
}

void CurveArea::Stroke(int x, int y) {
    const int w = std::max(1, bounds.w);
    const int h = std::max(1, bounds.h);
    x = std::clamp(x, 0, w);
    y = std::clamp(y, 0, h);
    if (G::CurrentModifiers() == G::kShiftDown) y = int(std::lround((1.0f - float(x) / float(w)) * float(h)));
    int from = PointAt(previousX);
    int to = PointAt(x);
    float fromValue = std::min(1.0f, float(h - previousY) / float(h));
    float toValue = std::min(1.0f, float(h - y) / float(h));
    previousX = x;
    previousY = y;
    if (from > to) {
        std::swap(from, to);
        std::swap(fromValue, toValue);
    }
    for (int i = from; i <= to; ++i) {
        const float t = to == from ? 1.0f : float(i - from) / float(to - from);
        owner->ValueChanged(nullptr, firstIndex + i, fromValue + (toValue - fromValue) * t);
    }
    Invalidate(nullptr);
}

void CurveArea::Cycle(int x, int y) {
    const int shift = (lastX - x) * count / std::max(1, bounds.w);
    const float lift = float(lastY - y) * kLiftPerPixel;
    lastX = x;
    lastY = y;
    if (shift == 0 && lift == 0.0f) return;
    std::vector<float> old(count);
    for (int i = 0; i < count; ++i) old[i] = Point(i);
    for (int i = 0; i < count; ++i) {
        const int from = ((i + shift) % count + count) % count;
        owner->ValueChanged(nullptr, firstIndex + i, Wrap(old[from] + lift));
    }
    Invalidate(nullptr);
}

// [SECTION] block window

CurveBlockGui::CurveBlockGui(VrokDocWindow* canvasWindow, PatchBlock* record, int first, int points,
                             std::vector<Button> buttonList, int windowHeight)
    : VrokBlockWindow(canvasWindow, record),
      firstIndex(first),
      count(points),
      buttons(std::move(buttonList)),
      height(windowHeight) {}

void CurveBlockGui::BuildWidgets() {
    VrokBlockWindow::BuildWidgets();
    CAudioBlock* block = patchBlock->block;
    if (!block || block->numParameters < firstIndex + count) return;
    const int top = panelHeight;
    // Two buttons to a row: the captions are too wide for four across the area.
    const int n = int(buttons.size());
    const int buttonRows = (n + 1) / 2;
    const int areaHeight = height - top - buttonRows * (kButtonHeight + 1) - 3;
    area = CreateArea();
    area->SetBounds(kAreaX, top, kAreaWidth, areaHeight);
    AddChild(area);
    for (int i = 0; i < n; ++i) {
        auto* button =
            new G::CustomButton(this, this, kFirstButtonId + buttons[i], ButtonCaption(buttons[i]));
        const int column = i % 2;
        const int left = kAreaX + column * kAreaWidth / 2;
        const int right = kAreaX + (column + 1) * kAreaWidth / 2;
        button->SetBounds(left, top + areaHeight + 2 + (i / 2) * (kButtonHeight + 1), right - left - 1,
                          kButtonHeight);
        AddChild(button);
    }
    panelHeight = height;
    SetSize(kBlockWindowWidth, panelHeight);
    drawnPoints.assign(block->values.begin() + firstIndex, block->values.begin() + firstIndex + count);
}

void CurveBlockGui::OnCommand(int id) {
    const int button = id - kFirstButtonId;
    if (!area || button < kReset || button > kFlip) return VrokBlockWindow::OnCommand(id);
    WriteCurve(Reshaped(Button(button)));
}

void CurveBlockGui::WriteCurve(const std::vector<float>& points) {
    VrokDoc& doc = canvas->doc;
    doc.ActionStart(nullptr);
    for (int i = 0; i < count && i < int(points.size()); ++i)
        ValueChanged(nullptr, firstIndex + i, points[i]);
    doc.ActionEnd(nullptr);
    area->Invalidate(nullptr);
}

std::vector<float> CurveBlockGui::Reshaped(Button button) const {
    std::vector<float> old(count);
    for (int i = 0; i < count; ++i) old[i] = area->Point(i);
    std::vector<float> out(old);
    switch (button) {
        case kReset:
            for (int i = 0; i < count; ++i) out[i] = ResetPoint(i);
            break;
        case kSmooth:
            // Three-point mean; the ends keep their value so the curve's limits stay put.
            for (int i = 1; i + 1 < count; ++i) out[i] = (old[i - 1] + old[i] + old[i + 1]) / 3.0f;
            break;
        case kInvert:
            for (int i = 0; i < count; ++i) out[i] = 1.0f - old[i];
            break;
        case kArctan: {
            // Soft saturation around the centre line, keeping the ends of the range.
            const float norm = std::atan(kArctanDrive);
            for (int i = 0; i < count; ++i)
                out[i] = 0.5f + 0.5f * std::atan(kArctanDrive * (2.0f * old[i] - 1.0f)) / norm;
            break;
        }
        case kFlip:
            std::reverse(out.begin(), out.end());
            break;
    }
    return out;
}

void CurveBlockGui::RefreshChangedValues() {
    VrokBlockWindow::RefreshChangedValues();
    CAudioBlock* block = patchBlock->block;
    if (!area || !block) return;
    if (!std::equal(drawnPoints.begin(), drawnPoints.end(), block->values.begin() + firstIndex)) {
        std::copy_n(block->values.begin() + firstIndex, count, drawnPoints.begin());
        area->Invalidate(nullptr);
    }
}

void CurveBlockGui::RefreshAllValues() {
    VrokBlockWindow::RefreshAllValues();
    if (area) area->Invalidate(nullptr);
}

// [SECTION] the two editors

WaveshaperGui::WaveshaperGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : CurveBlockGui(canvasWindow, record, 2, 128, {kReset, kSmooth, kInvert, kArctan}, 188) {}

float WaveshaperGui::ResetPoint(int i) const { return float(i) / float(count - 1); }

CurveArea* WaveshaperGui::CreateArea() { return new WaveshaperWaveArea(this, firstIndex, count); }

CustomEnvBlockGui::CustomEnvBlockGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : CurveBlockGui(canvasWindow, record, 4, 192, {kReset, kSmooth, kInvert, kFlip}, 190) {}

// Points hold 0..1 for outputs -1..1: the fall ends on the centre line, which is silence.
float CustomEnvBlockGui::ResetPoint(int i) const { return 1.0f - 0.5f * float(i) / float(count - 1); }

CurveArea* CustomEnvBlockGui::CreateArea() { return new CustomEnvEnvelopeArea(this, firstIndex, count); }

KeyTrackGui::KeyTrackGui(VrokDocWindow* canvasWindow, PatchBlock* record)
    : CurveBlockGui(canvasWindow, record, 0, 128, {kReset, kSmooth, kInvert, kFlip}, 150) {}

float KeyTrackGui::ResetPoint(int i) const { return float(i) / float(count - 1); }

CurveArea* KeyTrackGui::CreateArea() { return new KeyTrackEnvelopeArea(this, firstIndex, count); }

// [SECTION] advanced envelope

namespace {

// Parameter rows of the advanced envelope: the three bends' handles and the sustain level.
constexpr int kAdvancedSustain = 2;
constexpr int kBendFirst[3] = {5, 9, 14};  // "Attack x1", "Decay x1", "Release x1"
constexpr int kAdvancedAreaHeight = 64;
constexpr float kHandleReach = 5.0f;
constexpr const char* kStageNames[4] = {"Attack", "Decay", "Sustain", "Release"};
// The quarter each bend is drawn in: attack, decay, release (sustain is the third quarter).
constexpr int kBendQuarter[3] = {0, 1, 3};

}  // namespace

AdvancedEnvEnvelopeArea::AdvancedEnvEnvelopeArea(AdvancedEnvBlockGui* ownerGui)
    : G::Window(ownerGui), owner(ownerGui) {}

int AdvancedEnvEnvelopeArea::HandleParameter(int h) { return kBendFirst[h / 2] + 2 * (h % 2); }

float AdvancedEnvEnvelopeArea::QuarterWidth() const { return float(bounds.w - 1) / 4.0f; }

float AdvancedEnvEnvelopeArea::QuarterLeft(int stage) const { return 0.5f + float(stage) * QuarterWidth(); }

G::FloatPoint AdvancedEnvEnvelopeArea::HandleAt(int h) const {
    const std::vector<float>& v = owner->patchBlock->block->values;
    const int p = HandleParameter(h);
    const float top = 0.5f;
    const float height = float(bounds.h) - 1.0f;
    return G::FloatPoint{QuarterLeft(kBendQuarter[h / 2]) + std::clamp(v[p], 0.0f, 1.0f) * QuarterWidth(),
                         top + (1.0f - std::clamp(v[p + 1], 0.0f, 1.0f)) * height};
}

int AdvancedEnvEnvelopeArea::HandleNear(int x, int y) const {
    int best = -1;
    float bestDistance = kHandleReach * kHandleReach;
    for (int h = 0; h < kHandles; ++h) {
        const G::FloatPoint p = HandleAt(h);
        const float d = (p.x - float(x)) * (p.x - float(x)) + (p.y - float(y)) * (p.y - float(y));
        if (d <= bestDistance) best = h, bestDistance = d;
    }
    return best;
}

bool AdvancedEnvEnvelopeArea::OnDraw(G::Renderer& renderer, G::Rect) {
    const float w = float(bounds.w);
    const float h = float(bounds.h);
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(owner->paleColorIndex)), G::FloatRect{0, 0, w, h});
    CAudioBlock* block = owner->patchBlock->block;
    if (!block) return true;
    const float top = 0.5f;
    const float bottom = h - 0.5f;
    const float quarter = QuarterWidth();
    for (int stage = 0; stage < 4; ++stage) {
        const float left = QuarterLeft(stage);
        if (stage > 0) renderer.DrawLine(G::Pen{0x40000000, 1.0f}, left, 0, left, h);
        // A quarter is too narrow for the names: their initials mark the stages.
        renderer.DrawText(std::string_view(kStageNames[stage], 1), G::FloatRect{left + 1, 1, quarter - 2, 10},
                          G::theme::NormalFont(), G::TextAlign{1, 0}, 0x80000000);
    }
    const float sustainY =
        top + (1.0f - std::clamp(block->values[kAdvancedSustain], 0.0f, 1.0f)) * (bottom - top);
    renderer.DrawLine(G::Pen{0xFF000000, 1.0f}, QuarterLeft(2), sustainY, QuarterLeft(3), sustainY);
    for (int bend = 0; bend < 3; ++bend) {
        const float left = QuarterLeft(kBendQuarter[bend]);
        const bool rising = bend == 0;
        const G::FloatPoint start{left, rising ? bottom : top};
        const G::FloatPoint end{left + quarter, rising ? top : bottom};
        const G::FloatPoint first = HandleAt(2 * bend);
        const G::FloatPoint second = HandleAt(2 * bend + 1);
        renderer.DrawLine(G::Pen{0x80000000, 1.0f}, start.x, start.y, first.x, first.y);
        renderer.DrawLine(G::Pen{0x80000000, 1.0f}, end.x, end.y, second.x, second.y);
        const G::FloatPoint points[4] = {start, first, second, end};
        renderer.DrawCurve(G::Pen{0xFF000000, 1.5f}, points);
        for (const G::FloatPoint& p : {first, second}) {
            renderer.FillRect(G::Brush::Solid(G::theme::Palette(owner->strongColorIndex)),
                              G::FloatRect{p.x - 2.5f, p.y - 2.5f, 5, 5});
            renderer.StrokeRect(G::Pen{0xFF000000, 1.0f}, G::FloatRect{p.x - 2.5f, p.y - 2.5f, 5, 5});
        }
    }
    renderer.StrokeRect(G::Pen{0xFF000000, 1.0f}, G::FloatRect{0.5f, 0.5f, w - 1.0f, h - 1.0f});
    return true;
}

bool AdvancedEnvEnvelopeArea::OnLeftDown(int x, int y) {
    if (dragged >= 0) return true;
    dragged = HandleNear(x, y);
    if (dragged < 0) return true;
    CaptureMouse();
    owner->canvas->doc.ActionStart(nullptr);
    return true;
}

bool AdvancedEnvEnvelopeArea::OnMouseMove(int x, int y) {
    if (dragged < 0) return false;
    const int quarter = kBendQuarter[dragged / 2];
    const float u = std::clamp((float(x) - QuarterLeft(quarter)) / QuarterWidth(), 0.0f, 1.0f);
    const float v = std::clamp(1.0f - (float(y) - 0.5f) / (float(bounds.h) - 1.0f), 0.0f, 1.0f);
    const int p = HandleParameter(dragged);
    owner->ValueChanged(nullptr, p, u);
    owner->ValueChanged(nullptr, p + 1, v);
    Invalidate(nullptr);
    return true;
}

bool AdvancedEnvEnvelopeArea::OnLeftUp(int, int) {
    if (dragged < 0) return true;
    dragged = -1;
    if (HasCapture()) ReleaseMouse();
    owner->canvas->doc.ActionEnd(nullptr);
    owner->canvas->CountChange();
    return true;
}

bool AdvancedEnvBlockGui::RowHasWidget(int index) const {
    for (int first : kBendFirst)
        if (index >= first && index < first + 4) return false;
    return true;
}

void AdvancedEnvBlockGui::BuildWidgets() {
    VrokBlockWindow::BuildWidgets();
    CAudioBlock* block = patchBlock->block;
    if (!block || block->numParameters < kBendFirst[2] + 4) return;
    area = new AdvancedEnvEnvelopeArea(this);
    area->SetBounds(kAreaX, panelHeight, kAreaWidth, kAdvancedAreaHeight);
    AddChild(area);
    panelHeight += kAdvancedAreaHeight + 3;
    SetSize(kBlockWindowWidth, panelHeight);
    drawnHandles = block->values;
}

void AdvancedEnvBlockGui::RefreshChangedValues() {
    VrokBlockWindow::RefreshChangedValues();
    CAudioBlock* block = patchBlock->block;
    if (area && block && block->values != drawnHandles) {
        drawnHandles = block->values;
        area->Invalidate(nullptr);
    }
}

void AdvancedEnvBlockGui::RefreshAllValues() {
    VrokBlockWindow::RefreshAllValues();
    if (area) area->Invalidate(nullptr);
}

}  // namespace editor
