// VrokDocWindow gestures: presses, rubber band, keyboard, menus, selection, moving, deleting,
// duplicating and making wires.
#include <algorithm>
#include <cstdlib>

#include "editor/editor_menus.h"
#include "editor/focus_target.h"
#include "editor/top_bar.h"
#include "editor/vrok_block_window.h"
#include "editor/vrok_connection_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/vrok_instance.h"
#include "g/keys.h"
#include "g/menu.h"
#include "g/root_control.h"

namespace editor {
namespace {

constexpr int kRandomSpread = 100;
constexpr int kRandomInset = 10;
constexpr int kAnalyserDrop = 20;
constexpr int kPlainKnobType = 8;
constexpr int kExternalKnobTypes[kNumExtKnobs] = {13, 14, 15, 16, 28, 29, 30, 31};

G::Rect GrowBand(G::Rect r) { return G::Rect{r.x - 2, r.y - 2, r.w + 4, r.h + 4}; }

bool Overlaps(const G::Rect& a, const G::Rect& b) {
    return a.x < b.x + b.w && b.x < a.x + a.w && a.y < b.y + b.h && b.y < a.y + a.h;
}

}  // namespace

// [SECTION] presses and the rubber band

bool VrokDocWindow::OnLeftDown(int x, int y) {
    TakeKeyboard();
    CancelConnection();
    if (!selected.empty() && G::CurrentModifiers() != G::kShiftDown) {
        ClearSelection();
        ShowManualPage("Default");
    }
    if (VrokConnectionWindow* wire = ArrowAt(x, y)) {
        ArrowMenu(wire, x, y);
        return true;
    }
    bandActive = true;
    bandStartX = bandX = x;
    bandStartY = bandY = y;
    LocalToGlobal(bandStartX, bandStartY);
    LocalToGlobal(bandX, bandY);
    CaptureMouse();
    return true;
}

bool VrokDocWindow::OnLeftUp(int, int) {
    if (HasCapture()) {
        ReleaseMouse();
        TakeKeyboard();
        if (bandActive) {
            bandActive = false;
            const G::Rect last = GrowBand(BandRect());
            Invalidate(&last);
        }
    }
    if (connecting) CancelConnection();
    return true;
}

bool VrokDocWindow::OnMouseMove(int x, int y) {
    if (connecting) {
        UpdateConnectionPreview(x, y);
        return true;
    }
    if (bandActive) UpdateBand(x, y);
    return false;
}

void VrokDocWindow::UpdateBand(int x, int y) {
    const G::Rect before = GrowBand(BandRect());
    bandX = x;
    bandY = y;
    LocalToGlobal(bandX, bandY);
    if (G::CurrentModifiers() != G::kShiftDown) ClearSelection();
    const G::Rect band = BandRect();
    for (VrokBlockWindow* w : blockWindows) {
        if (!w->selected && Overlaps(band, w->bounds)) Select(w);
    }
    Invalidate(&before);
    const G::Rect after = GrowBand(band);
    Invalidate(&after);
}

bool VrokDocWindow::OnRightDown(int x, int y) {
    TakeKeyboard();
    SetLastClick(x, y);
    if (VrokConnectionWindow* wire = ArrowAt(x, y)) {
        ArrowMenu(wire, x, y);
    } else {
        ShowCanvasMenu(x, y);
    }
    TakeKeyboard();
    return true;
}

VrokConnectionWindow* VrokDocWindow::ArrowAt(int x, int y) const {
    // In document order, as the wires were made.
    for (const auto& record : doc.patchConnections) {
        for (VrokConnectionWindow* wire : connectionWindows) {
            if (wire->connection == record.get() &&
                wire->ArrowContains(float(x - scrollX), float(y - scrollY)))
                return wire;
        }
    }
    return nullptr;
}

void VrokDocWindow::ShowCanvasMenu(int x, int y) {
    G::RightClickMenu menu(this);
    BuildCanvasMenu(menu);
    const int choice = menu.RunAt(this, x, y);
    if (choice != 0) OnCommand(choice);
}

void VrokDocWindow::ArrowMenu(VrokConnectionWindow* wire, int x, int y) {
    G::RightClickMenu menu(this);
    menu.Add(1, "Disconnect");
    AddBlockEntries(*menu.Add(0, "Insert Modifier"), Submenu::Modify);
    AddBlockEntries(*menu.Add(0, "Add Analyzer"), Submenu::Analyse);
    SetLastClick(x, y);
    const int choice = menu.RunAt(this, x, y);
    PatchConnection* record = wire->connection;
    if (choice == 1) {
        Disconnect(record);
        return;
    }
    PatchBlock* source = record->fromBlock;
    PatchBlock* target = record->toBlock;
    const int input = record->connection ? record->connection->toPort : 0;
    if (choice & kAnalyserBit) {
        doc.ActionStart(nullptr);
        lastClickY += kAnalyserDrop;
        if (PatchBlock* made = CreateBlockFromMenu(choice)) doc.AddConnection(source, made, 0);
        doc.ActionEnd(nullptr);
    } else if (choice & kModifierBit) {
        doc.ActionStart(nullptr);
        Disconnect(record);  // the wire's window is gone after this
        if (PatchBlock* made = CreateBlockFromMenu(choice)) {
            doc.AddConnection(source, made, 0);
            doc.AddConnection(made, target, input);
        }
        doc.ActionEnd(nullptr);
    }
    lastClickX = lastClickY = kNoClick;
    DocumentChanged();
}

// [SECTION] commands

void VrokDocWindow::SetLastClick(int x, int y) {
    lastClickX = x;
    lastClickY = y;
}

PatchBlock* VrokDocWindow::CreateBlockFromMenu(int id) {
    const int type = BlockTypeForMenuId(id);
    if (type < 0) return nullptr;
    int x = std::rand() % kRandomSpread + kRandomInset;
    int y = std::rand() % kRandomSpread + kRandomInset;
    if (lastClickX != kNoClick) {
        x = lastClickX - scrollX;
        y = lastClickY - scrollY;
        lastClickX = lastClickY = kNoClick;
    }
    PatchBlock* made = doc.AddBlock(type, -1, std::max(0, x), std::max(0, y));
    CountChange();
    LayoutScrollers();
    return made;
}

void VrokDocWindow::OnCommand(int id) {
    switch (id) {
        case kCommandClear:
            ConfirmAndClear();
            break;
        case kCommandLoad: {
            G::FileDialogRequest request;
            request.title = "Load..";
            request.filterLabel = "[VROK] files";
            request.extensions = {".vrkx", ".vrk"};
            std::string path;
            if (G::NativeWindow* native = Native(); native && native->OpenFileDialog(request, path))
                Load(path);
            break;
        }
        case kCommandSave: {
            G::FileDialogRequest request;
            request.title = "Save file to..";
            request.filterLabel = "Vrok XML files";
            request.extensions = {".vrkx"};
            std::string path;
            // The dialog adds the default extension to a bare name.
            if (G::NativeWindow* native = Native(); native && native->SaveFileDialog(request, path))
                Save(path);
            break;
        }
        case kCommandUndo:
            Undo();
            break;
        case kCommandRedo:
            Redo();
            break;
        case kCommandHelp:
            ToggleManual();
            break;
        case kCommandWiki:
            if (G::NativeWindow* native = Native()) native->OpenUrl(kWikiAddress);
            break;
        default:
            CreateBlockFromMenu(id);
            break;
    }
}

void VrokDocWindow::Undo() {
    doc.Undo();
    CountChange();
    DocumentChanged();
}

void VrokDocWindow::Redo() {
    doc.Redo();
    CountChange();
    DocumentChanged();
}

// [SECTION] keyboard

bool VrokDocWindow::OnKeyDown(int key) {
    CountChange();
    const unsigned modifiers = G::CurrentModifiers();
    if (modifiers == 0 && key == G::key::kDelete) {
        DeleteSelection();
        return true;
    }
    if (modifiers != G::kShiftDown) return topBar && topBar->KeyboardDown(key);
    switch (key) {
        case 'A':
            SelectAll();
            return topBar && topBar->KeyboardDown(key);
        case 'C':
            Copy();
            return true;
        case 'N':
            ConfirmAndClear();
            return true;
        case 'V':
            Paste();
            return true;
        case 'X':
            Copy();
            DeleteSelection();
            return true;
        case 'Y':
            Redo();
            TakeKeyboard();
            return true;
        case 'Z':
            Undo();
            TakeKeyboard();
            return true;
        default:
            if (topBar) topBar->KeyboardDown(key);
            return false;
    }
}

bool VrokDocWindow::OnKeyUp(int key) { return topBar && topBar->KeyboardUp(key); }

void VrokDocWindow::TakeKeyboard() {
    if (focusTarget && !focusTarget->HasFocus()) focusTarget->SetFocus();
}

// [SECTION] selection, moving, deleting, duplicating

void VrokDocWindow::Select(VrokBlockWindow* window) {
    if (std::find(selected.begin(), selected.end(), window) != selected.end()) return;
    selected.push_back(window);
    window->SetSelected(true);
}

void VrokDocWindow::Deselect(VrokBlockWindow* window) {
    std::erase(selected, window);
    window->SetSelected(false);
}

void VrokDocWindow::ClearSelection() {
    for (VrokBlockWindow* w : selected) w->SetSelected(false);
    selected.clear();
}

void VrokDocWindow::SelectAll() {
    for (VrokBlockWindow* w : blockWindows) Select(w);
}

void VrokDocWindow::MoveSelection(int dx, int dy) {
    for (VrokBlockWindow* w : selected) {
        InvalidateBlockArea(w);
        CAudioBlock* block = w->patchBlock->block;
        if (!block) continue;
        doc.ActionStart(w->patchBlock);
        block->posX = std::max(0, block->posX + dx);
        block->posY = std::max(0, block->posY + dy);
        doc.ActionEnd(w->patchBlock);
    }
    for (VrokBlockWindow* w : selected) {
        if (CAudioBlock* block = w->patchBlock->block)
            w->SetPosition(block->posX + scrollX, block->posY + scrollY);
        UpdateConnectionGeometry(w->patchBlock);
        InvalidateBlockArea(w);
    }
    CountChange();
    LayoutScrollers();
}

void VrokDocWindow::DeleteSelection() {
    doc.ActionStart(nullptr);
    CancelConnection();
    std::vector<PatchBlock*> doomed;
    for (VrokBlockWindow* w : selected) doomed.push_back(w->patchBlock);
    for (PatchBlock* patchBlock : doomed) doc.DeleteBlock(patchBlock);
    doc.ActionEnd(nullptr);
    CountChange();
    LayoutScrollers();
    // A deleted window that had the keyboard gave it up.
    TakeKeyboard();
}

void VrokDocWindow::DeleteBlockOf(VrokBlockWindow* window) {
    doc.DeleteBlock(window->patchBlock);
    CountChange();
    LayoutScrollers();
}

void VrokDocWindow::Duplicate(VrokBlockWindow* clicked) {
    doc.ActionStart(nullptr);
    std::vector<std::pair<PatchBlock*, PatchBlock*>> copies;  // original, copy
    for (VrokBlockWindow* w : std::vector<VrokBlockWindow*>(selected)) {
        CAudioBlock* block = w->patchBlock->block;
        if (!block) continue;
        int type = block->type;
        if (ExternalKnobIndex(type) >= 0) {
            // Each host knob drives one block: a copy takes a free knob, or becomes a plain one.
            type = kPlainKnobType;
            for (int knob = 0; knob < kNumExtKnobs; ++knob) {
                if (!doc.engine->extKnobPresent[knob]) {
                    type = kExternalKnobTypes[knob];
                    break;
                }
            }
        }
        PatchBlock* made = doc.AddBlock(type, -1, block->posX, block->posY);
        if (!made) continue;
        const int count = std::min(block->numParameters, made->block->numParameters);
        for (int i = 0; i < count; ++i) {
            made->block->values[i] = std::clamp(block->values[i], 0.0f, 1.0f);
            made->block->ParameterChanged(i);
        }
        if (VrokBlockWindow* copyWindow = WindowOf(made)) {
            copyWindow->BringToFront(false);
            copyWindow->StorableChanged(-1, made);
        }
        copies.emplace_back(w->patchBlock, made);
    }
    auto copyOf = [&](const PatchBlock* original) -> PatchBlock* {
        for (auto [from, to] : copies)
            if (from == original) return to;
        return nullptr;
    };
    std::vector<PatchConnection*> wires;
    for (auto& wire : doc.patchConnections) wires.push_back(wire.get());
    for (PatchConnection* wire : wires) {
        PatchBlock* from = copyOf(wire->fromBlock);
        PatchBlock* to = copyOf(wire->toBlock);
        if (wire->connection && from && to) doc.AddConnection(from, to, wire->connection->toPort);
    }
    ClearSelection();
    for (auto [original, copy] : copies)
        if (VrokBlockWindow* w = WindowOf(copy)) Select(w);
    CountChange();
    VrokBlockWindow* dragged = WindowOf(copyOf(clicked->patchBlock));
    if (!dragged) {
        doc.ActionEnd(nullptr);
        return;
    }
    dragged->StartDrag(true);
}

// [SECTION] wires

void VrokDocWindow::SetConnectionSource(VrokBlockWindow* window) {
    connectionSource = window->patchBlock;
    sourceWindow = window;
    connecting = true;
    PointerInCanvas(previewX, previewY);
    if (connectionTarget) {
        PatchBlock* from = connectionSource;
        PatchBlock* to = connectionTarget;
        const int input = targetInput;
        CancelConnection();
        if (doc.AddConnection(from, to, input)) CountChange();
    }
}

void VrokDocWindow::SetConnectionTarget(VrokBlockWindow* window, int input) {
    connectionTarget = window->patchBlock;
    targetWindow = window;
    targetInput = input;
    connecting = true;
    PointerInCanvas(previewX, previewY);
    if (connectionSource) {
        PatchBlock* from = connectionSource;
        PatchBlock* to = connectionTarget;
        CancelConnection();
        // The engine refuses loops, doubles and self wires; a refusal simply makes nothing.
        if (doc.AddConnection(from, to, input)) CountChange();
    }
}

void VrokDocWindow::CancelConnection() {
    if (connecting && !previewRect.IsEmpty()) Invalidate(&previewRect);
    connecting = false;
    connectionSource = connectionTarget = nullptr;
    sourceWindow = targetWindow = nullptr;
    previewRect = G::Rect{};
}

void VrokDocWindow::UpdateConnectionPreview(int x, int y) {
    if (!previewRect.IsEmpty()) Invalidate(&previewRect);
    previewX = x;
    previewY = y;
    previewRect = PointsExtent(PreviewPoints(), 4, 8);
    previewRect.x += scrollX;
    previewRect.y += scrollY;
    Invalidate(&previewRect);
}

void VrokDocWindow::FinishConnectionDrag(int x, int y) {
    for (G::Control* child : children) {
        auto* w = dynamic_cast<VrokBlockWindow*>(child);
        if (!w || !w->bounds.Contains(x, y)) continue;
        // The topmost window under the point decides: a drag from an output ends on an input
        // port; a drag from an input ends anywhere on a block that has an output.
        if (connectionSource && !connectionTarget) {
            const int port = w->InputPortAt(x - w->bounds.x, y - w->bounds.y);
            if (port >= 0) return SetConnectionTarget(w, port);
        } else if (connectionTarget && !connectionSource && w->HasOutput()) {
            return SetConnectionSource(w);
        }
        break;
    }
    CancelConnection();
}

void VrokDocWindow::Disconnect(PatchConnection* wire) {
    doc.DeleteObject(wire);
    CountChange();
}

int VrokDocWindow::RunMenuAtCursor(G::RightClickMenu& menu) {
    int x = 0;
    int y = 0;
    if (G::NativeWindow* native = Native()) native->CursorPosition(x, y);
    return menu.Run(x, y);
}

std::string VrokDocWindow::ClipboardText() {
    G::NativeWindow* native = Native();
    return native ? native->ClipboardText() : std::string();
}

}  // namespace editor
