// VrokBlockWindow: panel building, drawing, gestures, port commands and menus, and the path
// from a widget gesture to an undoable parameter change.
// Index: [SECTION] port buttons, construction, drawing, gestures, ports and menus,
// parameter changes, document links.
#include "editor/vrok_block_window.h"

#include <tinyxml.h>

#include <algorithm>
#include <cstdio>

#include "document/vrok_doc.h"
#include "document/xml_attributes.h"
#include "editor/editor_menus.h"
#include "editor/param_widgets.h"
#include "editor/vrok_doc_window.h"
#include "engine/log.h"
#include "engine/vrok_instance.h"
#include "g/button.h"
#include "g/keys.h"
#include "g/menu.h"
#include "g/parameter_knob.h"
#include "g/renderer.h"
#include "g/root_control.h"

namespace editor {
namespace {

constexpr int kTitleHeight = 12;
constexpr int kTriggerTitleInset = 9;
constexpr int kMarkerWidth = 11;
constexpr int kPanelLift = 50;
constexpr int kPortRow0 = 2;
constexpr int kInsertGap = 20;
constexpr const char* kBlockPrefix = "[Block]";

// A port button that also lets a wire be dragged from the output arrow to an input port.
class PortButton : public LittleVrokButton {
public:
    PortButton(VrokBlockWindow* owner, int id, int shape)
        : LittleVrokButton(owner, owner, id, shape), window(owner) {}

    bool OnLeftDown(int x, int y) override {
        LittleVrokButton::OnLeftDown(x, y);
        // A press starts a wire that a drag can finish, from either end; a click finishes one
        // already started.
        if (!window->canvas->IsConnecting()) {
            if (id == kOutputButtonId) window->canvas->SetConnectionSource(window);
            if (IsInput()) window->canvas->SetConnectionTarget(window, id);
        }
        return true;
    }
    // Input boxes get a dark rim: the audio input is in the title's own colour.
    bool OnDraw(G::Renderer& renderer, G::Rect clip) override {
        LittleVrokButton::OnDraw(renderer, clip);
        if (shape == kBox) {
            renderer.StrokeRect(G::Pen{0xFF404040, 1.0f},
                                G::FloatRect{0.5f, 0.5f, bounds.w - 1.0f, bounds.h - 1.0f});
        }
        return true;
    }
    bool OnMouseMove(int x, int y) override {
        if (!HasCapture() || !window->canvas->IsConnecting()) return false;
        LocalToCanvas(x, y);
        window->canvas->UpdateConnectionPreview(x, y);
        return true;
    }
    bool OnLeftUp(int x, int y) override {
        const bool outside = x < 0 || y < 0 || x >= bounds.w || y >= bounds.h;
        if ((id == kOutputButtonId || IsInput()) && outside && press.IsPressed()) {
            int cx = x;
            int cy = y;
            LocalToCanvas(cx, cy);
            ApplyRelease();
            // May connect, which redraws windows but deletes none.
            window->canvas->FinishConnectionDrag(cx, cy);
            return true;
        }
        // Last: the command may delete this button's block window.
        return LittleVrokButton::OnLeftUp(x, y);
    }

private:
    bool IsInput() const { return id >= 0 && id < window->NumInputs(); }
    void LocalToCanvas(int& x, int& y) {
        LocalToGlobal(x, y);
        window->canvas->GlobalToLocal(x, y);
    }
    void ApplyRelease() {
        if (press.Release()) Invalidate(nullptr);
        ReleaseMouse();
    }
    VrokBlockWindow* window;
};

std::string ValueText(float value) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3g", value * 100.0f);
    return text;
}

}  // namespace

void CategoryColors(int category, int& strong, int& pale) {
    switch (category) {
        case kCategorySources:
            strong = 16, pale = 17;
            break;
        case kCategoryControllers:
            strong = 22, pale = 23;
            break;
        case kCategoryModifiers:
            strong = 20, pale = 21;
            break;
        case kCategoryOutputs:
            strong = 18, pale = 19;
            break;
        default:
            strong = 24, pale = 25;
            break;
    }
}

// [SECTION] construction

VrokBlockWindow::VrokBlockWindow(VrokDocWindow* canvasWindow, PatchBlock* record)
    : G::Window(canvasWindow), patchBlock(record), canvas(canvasWindow) {
    Attach(patchBlock);
    if (CAudioBlock* block = patchBlock->block) {
        CategoryColors(block->category, strongColorIndex, paleColorIndex);
        title = block->name;
    }
    titleColorIndex = strongColorIndex;
}

VrokBlockWindow::~VrokBlockWindow() { Detach(patchBlock); }

void VrokBlockWindow::Build() {
    BuildWidgets();
    BuildPortButtons();
    if (CAudioBlock* block = patchBlock->block) {
        block->width = kBlockWindowWidth;
        block->height = panelHeight;
    }
    Show();
}

void VrokBlockWindow::BuildWidgets() {
    CAudioBlock* block = patchBlock->block;
    if (!block) {
        panelHeight = kTitleHeight + 3;
        SetSize(kBlockWindowWidth, panelHeight);
        return;
    }
    const int x = NumInputs() > (block->hasAudioInput ? 1 : 0) ? 13 : 2;
    int y = kRowHeight;
    widgets.assign(block->numParameters, nullptr);
    shownValues.assign(block->numParameters, 0.0f);
    // The panel is laid out before the widgets exist, so full-width kinds know the width.
    SetSize(kBlockWindowWidth, block->numParameters * kRowHeight + 15);
    const int rows = std::min(block->numParameters, kMaxWidgetRows);
    for (int i = 0; i < rows; ++i) {
        if (!RowHasWidget(i)) continue;
        WidgetPlan plan;
        plan.kind = block->kinds[i];
        plan.index = i;
        plan.value = std::clamp(block->values[i], 0.0f, 1.0f);
        plan.x = x;
        plan.y = y;
        plan.panelWidth = kBlockWindowWidth;
        plan.strongColor = strongColorIndex;
        plan.paleColor = paleColorIndex;
        plan.label = Widen(block->names[i]);
        if (plan.kind == int(ParamKind::ButtonStrip)) plan.choices = block->ParameterChoices(i);
        G::Control* widget = MakeParamWidget(this, this, plan);
        widgets[i] = widget;
        shownValues[i] = plan.value;
        if (!widget) continue;
        widget->background = this;
        y += std::max(widget->Height() + 1, kRowHeight);
    }
    panelHeight = y + 1;
    SetSize(kBlockWindowWidth, panelHeight);
}

void VrokBlockWindow::BuildPortButtons() {
    CAudioBlock* block = patchBlock->block;
    if (!block) return;
    for (int port = 0; port < NumInputs(); ++port) {
        auto* button = new PortButton(this, port, LittleVrokButton::kBox);
        AddChild(button);
        const bool strong = block->hasAudioInput && port == 0;
        button->colorIndex = strong ? strongColorIndex : paleColorIndex;
        button->background = this;
        button->SetBounds(1, PortY(port) - 5, 10, 9);
    }
    if (HasOutput()) {
        auto* arrow = new PortButton(this, kOutputButtonId, LittleVrokButton::kArrow);
        AddChild(arrow);
        arrow->colorIndex = strongColorIndex;
        arrow->background = this;
        arrow->SetBounds(bounds.w - 13, 2, 12, 9);
    }
    if (block->hasCornerButton) {
        auto* cross = new PortButton(this, kDeleteButtonId, LittleVrokButton::kCross);
        AddChild(cross);
        cross->hoverColorIndex = 31;
        cross->background = this;
        cross->SetBounds(HasOutput() ? bounds.w - 24 : bounds.w - 11, 2, 9, 9);
    }
}

int VrokBlockWindow::NumInputs() const { return patchBlock->block ? patchBlock->block->numPorts : 0; }

bool VrokBlockWindow::HasTriggerPort() const { return patchBlock->block && patchBlock->block->hasAudioInput; }

bool VrokBlockWindow::HasOutput() const { return patchBlock->block && !patchBlock->block->isOutput; }

int VrokBlockWindow::PortY(int port) const {
    // The audio input sits in the title strip; parameter ports follow their rows.
    const int row = port + (HasTriggerPort() ? 0 : 1);
    return kPortRow0 + kRowHeight * row + 5;
}

int VrokBlockWindow::InputPortAt(int x, int y) const {
    if (x < -4 || x > 16) return -1;
    for (int port = 0; port < NumInputs(); ++port) {
        if (std::abs(y - PortY(port)) <= kRowHeight / 2) return port;
    }
    return -1;
}

// [SECTION] drawing

void VrokBlockWindow::PaintBackground(G::Renderer& renderer, const G::Rect&) {
    const float w = float(bounds.w);
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(10)), G::FloatRect{0, 0, w, float(bounds.h)});
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(titleColorIndex)),
                      G::FloatRect{0, 0, w, kTitleHeight});
    const G::Color pale = G::theme::Palette(paleColorIndex);
    const float top = kTitleHeight;
    const float height = float(panelHeight - 13);
    if (height > 0) {
        renderer.FillRect(
            G::Brush::Gradient({0, top}, {0, top + height},
                               {{0.0f, pale}, {0.2f, G::Brighten(pale, kPanelLift)}, {1.0f, pale}}),
            G::FloatRect{0, top, w, height});
    }
}

void VrokBlockWindow::DrawBackground(G::Renderer& renderer, const G::Rect& clip) {
    PaintBackground(renderer, clip);
}

bool VrokBlockWindow::OnDraw(G::Renderer& renderer, G::Rect) {
    DrawBackground(renderer, G::Rect{0, 0, bounds.w, bounds.h});
    renderer.StrokeRect(G::Pen{G::theme::Palette(28), 1.0f},
                        G::FloatRect{0.5f, 0.5f, bounds.w - 1.0f, panelHeight - 1.0f});
    int x = HasTriggerPort() ? kTriggerTitleInset : 0;
    std::string_view text = title;
    while (!text.empty() && text.front() == '|') {
        renderer.DrawImage(G::theme::TitleMarkerImage(), float(x + 2), 2.0f);
        x += kMarkerWidth;
        text.remove_prefix(1);
    }
    const G::Color ink = G::theme::Palette(textColorIndex);
    renderer.DrawText(text, G::Rect{x, 0, bounds.w - x, kTitleHeight}, G::theme::BoldFont(),
                      G::TextAlign{0, 1}, ink);
    CAudioBlock* block = patchBlock->block;
    if (!block) return true;
    for (size_t i = 0; i < widgets.size(); ++i) {
        G::Control* widget = widgets[i];
        if (!widget) continue;
        const auto kind = static_cast<ParamKind>(block->kinds[i]);
        if (kind != ParamKind::Knob && kind != ParamKind::KnobAlt && kind != ParamKind::Pitch &&
            kind != ParamKind::Switch) {
            continue;
        }
        const int left = widget->bounds.x + widget->bounds.w;
        renderer.DrawText(std::string_view(block->names[i]),
                          G::Rect{left, widget->bounds.y, bounds.w - 1 - left, kTitleHeight},
                          G::theme::NormalFont(), G::TextAlign{0, 1}, 0xFF000000);
    }
    return true;
}

// [SECTION] gestures

bool VrokBlockWindow::OnLeftDown(int, int) {
    const unsigned modifiers = G::CurrentModifiers();
    SetFocus();
    if (modifiers == G::kAltDown) {
        if (!selected) {
            canvas->ClearSelection();
            canvas->Select(this);
        }
        canvas->Duplicate(this);
        return true;
    }
    BringToFront(false);
    if (modifiers == 0 && !selected) canvas->ClearSelection();
    if (modifiers == G::kShiftDown && selected) {
        canvas->Deselect(this);
        return true;
    }
    if (modifiers == 0 || modifiers == G::kShiftDown) {
        canvas->Select(this);
        canvas->ShowBlockHelp(this);
    }
    StartDrag(false);
    return true;
}

void VrokBlockWindow::StartDrag(bool duplicate) {
    CaptureMouse();
    canvas->PointerInCanvas(lastDragX, lastDragY);
    canvas->doc.ActionStart(patchBlock);
    dragging = true;
    duplicating = duplicate;
    canvas->draggingSelection = true;
    canvas->InvalidateSelection();
}

bool VrokBlockWindow::OnMouseMove(int x, int y) {
    if (canvas->IsConnecting()) {
        LocalToGlobal(x, y);
        canvas->GlobalToLocal(x, y);
        canvas->UpdateConnectionPreview(x, y);
        return true;
    }
    if (!dragging) return false;
    int cx = 0;
    int cy = 0;
    canvas->PointerInCanvas(cx, cy);
    const int dx = cx - lastDragX;
    const int dy = cy - lastDragY;
    lastDragX = cx;
    lastDragY = cy;
    if (dx != 0 || dy != 0) canvas->MoveSelection(dx, dy);
    return true;
}

bool VrokBlockWindow::OnLeftUp(int, int) {
    if (HasCapture()) ReleaseMouse();
    if (dragging) {
        canvas->doc.ActionEnd(patchBlock);
        dragging = false;
        canvas->draggingSelection = false;
    }
    if (duplicating) {
        duplicating = false;
        canvas->doc.ActionEnd(nullptr);
    }
    canvas->InvalidateSelection();
    return true;
}

bool VrokBlockWindow::OnKeyDown(int key) {
    const unsigned modifiers = G::CurrentModifiers();
    if (modifiers == 0 && key == G::key::kDelete) {
        canvas->DeleteSelection();  // may delete this window
        return true;
    }
    if (modifiers == G::kShiftDown && key == 'V' && patchBlock->block) {
        const std::string text = canvas->ClipboardText();
        if (text.rfind(kBlockPrefix, 0) == 0) {
            TiXmlDocument xml;
            document::ParseXmlText(xml, text.substr(std::char_traits<char>::length(kBlockPrefix)));
            TiXmlElement* element = xml.Error() ? nullptr : xml.FirstChildElement("Block");
            int type = -1;
            if (element && element->QueryIntAttribute("TYPE", &type) == TIXML_SUCCESS &&
                type == patchBlock->block->type) {
                // The block keeps its identity and place; only its settings come from the text.
                element->SetAttribute("ID", patchBlock->id);
                element->SetAttribute("POS", patchBlock->block->index);
                element->SetAttribute("X", patchBlock->block->posX);
                element->SetAttribute("Y", patchBlock->block->posY);
                canvas->doc.ActionStart(patchBlock);
                patchBlock->Load(*element);
                canvas->doc.ActionEnd(patchBlock);
                RefreshAllValues();
                TellChanged(patchBlock, this);
                return true;
            }
        }
    }
    return canvas->OnKeyDown(key);
}

bool VrokBlockWindow::OnKeyUp(int key) { return canvas->OnKeyUp(key); }

bool VrokBlockWindow::OnFocusChanged(bool) {
    G::Rect area = bounds;
    area.x -= 4;
    area.y -= 4;
    area.w += 8;
    area.h += 8;
    G::ExpandForShadow(area);
    canvas->Invalidate(&area);
    return true;
}

void VrokBlockWindow::SetSelected(bool on) {
    if (selected == on) return;
    selected = on;
    G::Rect area = bounds;
    G::ExpandForShadow(area);
    canvas->Invalidate(&area);
}

// [SECTION] ports and menus

void VrokBlockWindow::OnCommand(int commandId) {
    if (commandId == kOutputButtonId) {
        canvas->SetConnectionSource(this);
    } else if (commandId == kDeleteButtonId) {
        canvas->CancelConnection();
        canvas->DeleteBlockOf(this);  // deletes this window: nothing may follow
    } else if (commandId >= 0 && commandId < NumInputs()) {
        canvas->SetConnectionTarget(this, commandId);
    }
}

void VrokBlockWindow::OnAltCommand(int commandId) {
    if (commandId == kOutputButtonId) {
        ShowOutputMenu();
    } else if (commandId >= 0 && commandId < NumInputs()) {
        ShowInputMenu(commandId);
    }
}

void VrokBlockWindow::ShowOutputMenu() {
    G::RightClickMenu menu(this);
    menu.Add(1, "Disconnect all");
    AddBlockEntries(*menu.Add(0, "Insert Modifier before all"), Submenu::Modify);
    AddBlockEntries(*menu.Add(0, "Analyse output"), Submenu::Analyse);
    const int choice = canvas->RunMenuAtCursor(menu);
    if (choice == 0) return;
    canvas->SetLastClick(bounds.x + bounds.w + kInsertGap, bounds.y);
    VrokDoc& doc = canvas->doc;
    std::vector<std::pair<PatchBlock*, int>> targets;
    std::vector<PatchConnection*> leaving;
    for (auto& wire : doc.patchConnections) {
        if (wire->connection && wire->fromBlock == patchBlock) {
            leaving.push_back(wire.get());
            targets.emplace_back(wire->toBlock, wire->connection->toPort);
        }
    }
    if (choice == 1) {
        doc.ActionStart(nullptr);
        for (PatchConnection* wire : leaving) doc.DeleteObject(wire);
        doc.ActionEnd(nullptr);
    } else if (choice & kAnalyserBit) {
        doc.ActionStart(nullptr);
        if (PatchBlock* made = canvas->CreateBlockFromMenu(choice)) doc.AddConnection(patchBlock, made, 0);
        doc.ActionEnd(nullptr);
    } else if (choice & kModifierBit) {
        doc.ActionStart(nullptr);
        for (PatchConnection* wire : leaving) doc.DeleteObject(wire);
        if (PatchBlock* made = canvas->CreateBlockFromMenu(choice)) {
            doc.AddConnection(patchBlock, made, 0);
            for (auto [target, input] : targets) doc.AddConnection(made, target, input);
        }
        doc.ActionEnd(nullptr);
    }
    canvas->DocumentChanged();
}

void VrokBlockWindow::ShowInputMenu(int port) {
    G::RightClickMenu menu(this);
    menu.Add(1, "Disconnect all");
    AddBlockEntries(*menu.Add(0, "Insert Modifier after all"), Submenu::Modify);
    AddBlockEntries(*menu.Add(0, "Attach Controller"), Submenu::Control);
    const int choice = canvas->RunMenuAtCursor(menu);
    if (choice == 0) return;
    canvas->SetLastClick(bounds.x - kInsertGap - kBlockWindowWidth, bounds.y + kRowHeight * port);
    VrokDoc& doc = canvas->doc;
    std::vector<PatchConnection*> entering;
    std::vector<PatchBlock*> sources;
    for (auto& wire : doc.patchConnections) {
        if (wire->connection && wire->toBlock == patchBlock && wire->connection->toPort == port) {
            entering.push_back(wire.get());
            sources.push_back(wire->fromBlock);
        }
    }
    doc.ActionStart(nullptr);
    if (choice == 1) {
        for (PatchConnection* wire : entering) doc.DeleteObject(wire);
    } else if (choice & kModifierBit) {
        for (PatchConnection* wire : entering) doc.DeleteObject(wire);
        if (PatchBlock* made = canvas->CreateBlockFromMenu(choice)) {
            for (PatchBlock* source : sources) doc.AddConnection(source, made, 0);
            doc.AddConnection(made, patchBlock, port);
        }
    } else if (PatchBlock* made = canvas->CreateBlockFromMenu(choice)) {
        doc.AddConnection(made, patchBlock, port);
    }
    doc.ActionEnd(nullptr);
    canvas->DocumentChanged();
}

// [SECTION] parameter changes

void VrokBlockWindow::BeginChange(G::FloatParamGenerator*, int) { canvas->doc.ActionStart(nullptr); }

void VrokBlockWindow::ValueChanged(G::FloatParamGenerator*, int index, float value) {
    CAudioBlock* block = patchBlock->block;
    if (!block || index < 0 || index >= block->numParameters) return;
    VrokDoc& doc = canvas->doc;
    doc.ActionStart(patchBlock);
    value = std::clamp(value, 0.0f, 1.0f);
    block->values[index] = value;
    block->ParameterChanged(index);
    doc.ActionEnd(patchBlock);
    if (index < int(shownValues.size())) shownValues[index] = value;
    canvas->CountChange();
    TellChanged(patchBlock, this);
}

void VrokBlockWindow::EndChange(G::FloatParamGenerator*, int) { canvas->doc.ActionEnd(nullptr); }

std::wstring VrokBlockWindow::DescribeValue(int index, float value) {
    std::string text = patchBlock->block ? patchBlock->block->DescribeValue(index, value) : std::string();
    if (text.empty()) text = ValueText(value);
    return Widen(text);
}

// [SECTION] document links

void VrokBlockWindow::RefreshAllValues() {
    CAudioBlock* block = patchBlock->block;
    if (!block) return;
    for (size_t i = 0; i < widgets.size() && i < size_t(block->numParameters); ++i) {
        const float value = std::clamp(block->values[i], 0.0f, 1.0f);
        shownValues[i] = value;
        if (widgets[i]) ShowParamValue(widgets[i], value);
    }
}

void VrokBlockWindow::RefreshChangedValues() {
    CAudioBlock* block = patchBlock->block;
    if (!block) return;
    for (size_t i = 0; i < widgets.size() && i < size_t(block->numParameters); ++i) {
        const float value = std::clamp(block->values[i], 0.0f, 1.0f);
        if (!widgets[i] || value == shownValues[i]) continue;
        shownValues[i] = value;
        ShowParamValue(widgets[i], value);
    }
}

void VrokBlockWindow::StorableChanged(int source, Storable*) {
    CAudioBlock* block = patchBlock->block;
    if (!block) return;
    const int x = block->posX + canvas->scrollX;
    const int y = block->posY + canvas->scrollY;
    if (x != bounds.x || y != bounds.y) {
        canvas->InvalidateBlockArea(this);
        SetPosition(x, y);
        canvas->UpdateConnectionGeometry(patchBlock);
        canvas->InvalidateBlockArea(this);
    }
    if (source != Token()) RefreshAllValues();
    const int knob = ExternalKnobIndex(block->type);
    if (knob >= 0 && block->numParameters > 0 && canvas->doc.listener) {
        canvas->doc.listener->ValueChanged(nullptr, knob, block->values[0]);
    }
}

void VrokBlockWindow::StorableRemoved(int, Storable*) {
    Detach(patchBlock);
    canvas->BlockWindowGone(this);
    delete this;
}

}  // namespace editor
