// The sampler and arpeggiator block windows.
#include "editor/player_guis.h"

#include <algorithm>

#include "blocks/sampler.h"
#include "document/patch_records.h"
#include "document/vrok_doc.h"
#include "editor/vrok_doc_window.h"
#include "fx/arpeggiator.h"
#include "g/button.h"
#include "g/parameter_knob.h"
#include "g/renderer.h"
#include "g/root_control.h"

namespace editor {
namespace {

constexpr int kFirstStepParameter = 4;
constexpr int kBoxPitch = 11;
constexpr int kBoxSize = 9;
constexpr G::Color kBoxPen = 0xFFB2B2B2;
// Past the pattern's length: still there to be switched, but faint.
constexpr G::Color kUnusedBoxPen = 0xFFE0E0E0;
// Two rows of eight: sixteen boxes in a row would not fit the block's width.
constexpr int kBoxesPerRow = 8;

}  // namespace

// [SECTION] sampler

void SimpleSamplerGui::BuildWidgets() {
    VrokBlockWindow::BuildWidgets();
    const int top = panelHeight;
    auto* button = new G::CustomButton(this, this, kLoadButtonId, L"load sample");
    button->SetBounds(2, top, kBlockWindowWidth - 4, kRowHeight);
    AddChild(button);
    nameY = top + kRowHeight + 1;
    panelHeight = nameY + kRowHeight + 1;
    SetSize(kBlockWindowWidth, panelHeight);
}

bool SimpleSamplerGui::OnDraw(G::Renderer& renderer, G::Rect clip) {
    VrokBlockWindow::OnDraw(renderer, clip);
    const std::string name = SampleName();
    shownName = name;
    renderer.DrawText(std::string_view("Sample: " + (name.empty() ? std::string("none") : name)),
                      G::Rect{3, nameY, bounds.w - 6, kRowHeight}, G::theme::NormalFont(), G::TextAlign{0, 1},
                      0xFF000000);
    return true;
}

void SimpleSamplerGui::RefreshChangedValues() {
    VrokBlockWindow::RefreshChangedValues();
    if (SampleName() != shownName) Invalidate(nullptr);
}

std::string SimpleSamplerGui::SampleName() const {
    auto* player = dynamic_cast<CSimpleSamplerBlock*>(patchBlock->block);
    auto* sample = player ? dynamic_cast<SampleContainer*>(player->sample) : nullptr;
    return sample ? sample->sampleName : std::string();
}

void SimpleSamplerGui::OnCommand(int id) {
    if (id != kLoadButtonId) return VrokBlockWindow::OnCommand(id);
    G::NativeWindow* native = canvas->Native();
    if (!native) return;
    G::FileDialogRequest request;
    request.title = "Load..";
    request.filterLabel = "Sample files";
    request.extensions = {".wav", ".aif", ".aiff", ".flac", ".ogg"};
    std::string path;
    if (native->OpenFileDialog(request, path) && !path.empty()) LoadSample(path);
}

bool SimpleSamplerGui::LoadSample(const std::string& path) {
    VrokDoc& doc = canvas->doc;
    SampleContainer* sample = doc.LoadSampleInto(patchBlock, path);
    if (!sample) return false;
    if (!sample->problems.empty()) {
        std::string text = "Cannot load " + path;
        text += ":\r" + sample->problems.front();
        // The load was one undo step: taking it back restores the old frames and link.
        doc.Undo();
        if (G::NativeWindow* native = canvas->Native())
            native->ShowMessageBox(text + "\rThe sampler is unchanged.", "Load..", G::MessageBoxKind::Ok);
        Invalidate(nullptr);
        return false;
    }
    canvas->CountChange();
    Invalidate(nullptr);
    return true;
}

// [SECTION] arpeggiator

ArpTickerDisplay::ArpTickerDisplay(ArpGui* ownerGui) : G::Window(ownerGui), owner(ownerGui) {}

int ArpTickerDisplay::StepAt(int x, int y) const {
    if (x < 0 || y < 0 || x % kBoxPitch >= kBoxSize || y % kBoxPitch >= kBoxSize) return -1;
    const int column = x / kBoxPitch;
    const int step = (y / kBoxPitch) * kBoxesPerRow + column;
    return column < kBoxesPerRow && step < kArpSteps ? step : -1;
}

G::Rect ArpTickerDisplay::Box(int step) {
    return G::Rect{(step % kBoxesPerRow) * kBoxPitch, (step / kBoxesPerRow) * kBoxPitch, kBoxSize, kBoxSize};
}

bool ArpTickerDisplay::OnDraw(G::Renderer& renderer, G::Rect) {
    owner->PaintBackground(renderer, G::Rect{0, 0, bounds.w, bounds.h});
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(owner->paleColorIndex)),
                      G::FloatRect{0, 0, float(bounds.w), float(bounds.h)});
    CAudioBlock* block = owner->patchBlock->block;
    if (!block) return true;
    shownStep = owner->CurrentStep();
    auto* arp = dynamic_cast<CGlobalArpeggioBlock*>(block);
    const int length = arp ? arp->tickCount.load(std::memory_order_relaxed) : kArpSteps;
    const G::Color fill = G::theme::Palette(owner->strongColorIndex);
    for (int i = 0; i < kArpSteps; ++i) {
        const G::Rect r = Box(i);
        const float x = float(r.x);
        const float y = float(r.y);
        if (i == shownStep) renderer.FillRect(G::Brush::Solid(fill), G::FloatRect{x, y, kBoxSize, kBoxSize});
        renderer.StrokeRect(G::Pen{i < length ? kBoxPen : kUnusedBoxPen, 1.0f},
                            G::FloatRect{x + 0.5f, y + 0.5f, kBoxSize - 1.0f, kBoxSize - 1.0f});
        // A switched-on step carries a dot, so the pattern reads at a glance.
        if (block->values[kFirstStepParameter + i] >= 0.5f)
            renderer.FillRect(G::Brush::Solid(0xFF000000), G::FloatRect{x + 3, y + 3, 3, 3});
    }
    return true;
}

bool ArpTickerDisplay::OnLeftDown(int x, int y) {
    if (const int step = StepAt(x, y); step >= 0) owner->ToggleStep(step);
    return true;
}

ArpGui::~ArpGui() { RemoveTimerClient(this); }

void ArpGui::BuildWidgets() {
    VrokBlockWindow::BuildWidgets();
    if (!dynamic_cast<CGlobalArpeggioBlock*>(patchBlock->block)) return;
    const int top = panelHeight;
    ticker = new ArpTickerDisplay(this);
    const int rows = (kArpSteps + kBoxesPerRow - 1) / kBoxesPerRow;
    ticker->SetBounds(4, top + 2, kBoxesPerRow * kBoxPitch, rows * kBoxPitch);
    AddChild(ticker);
    panelHeight = top + rows * kBoxPitch + 5;
    SetSize(kBlockWindowWidth, panelHeight);
    AddTimerClient(this);
}

int ArpGui::CurrentStep() const {
    auto* arp = dynamic_cast<CGlobalArpeggioBlock*>(patchBlock->block);
    if (!arp || arp->arpMode.load(std::memory_order_relaxed) == CGlobalArpeggioBlock::kOff) return -1;
    return arp->stepIndex.load(std::memory_order_relaxed);
}

void ArpGui::OnTimer(int) {
    if (ticker && CurrentStep() != ticker->shownStep) ticker->Invalidate(nullptr);
}

void ArpGui::ToggleStep(int step) {
    CAudioBlock* block = patchBlock->block;
    if (!block || step < 0 || step >= kArpSteps) return;
    const int index = kFirstStepParameter + step;
    canvas->doc.ActionStart(nullptr);
    ValueChanged(nullptr, index, block->values[index] >= 0.5f ? 0.0f : 1.0f);
    canvas->doc.ActionEnd(nullptr);
    RefreshAllValues();
    ticker->Invalidate(nullptr);
}

// [SECTION] knob

void KnobBlockGui::BuildWidgets() {
    CAudioBlock* block = patchBlock->block;
    if (!block || block->numParameters < 1) return VrokBlockWindow::BuildWidgets();
    constexpr int kKnobSize = 56;
    widgets.assign(block->numParameters, nullptr);
    shownValues.assign(block->numParameters, 0.0f);
    const float value = std::clamp(block->values[0], 0.0f, 1.0f);
    auto* knob = new G::ParameterKnob(this, this, 0, value, G::ParameterKnob::kModeBipolar,
                                      G::ParameterKnob::kStyleLarge);
    knob->name = L"knob";
    knob->colorIndex = strongColorIndex;
    knob->background = this;
    AddChild(knob);
    knob->SetBounds((kBlockWindowWidth - kKnobSize) / 2, kRowHeight + 2, kKnobSize, kKnobSize);
    widgets[0] = knob;
    shownValues[0] = value;
    panelHeight = kRowHeight + kKnobSize + 6;
    SetSize(kBlockWindowWidth, panelHeight);
}

}  // namespace editor
