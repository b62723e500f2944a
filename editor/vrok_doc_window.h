// VrokDocWindow, the canvas of the patch editor: block windows and wires over a drawn
// background. It turns gestures into document edits (add, wire, delete, move, duplicate, copy
// and paste, load and save), draws wires, shadows, frames, the rubber band and the wire being
// made, and redraws only the rects it was told about. It is a view of VrokDoc: every edit goes
// through the document and comes back as StorableAdded, StorableChanged or DocumentChanged.
// GUI thread; the window holds no lock.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "document/vrok_doc.h"
#include "editor/shadow_cache.h"
#include "g/bitmap.h"
#include "g/geometry.h"
#include "g/window.h"
#include "help/help_library.h"

class HelpDisplay;
class HelpDisplayTopBar;

namespace G {
class MenuItem;
class NativeWindow;
class RightClickMenu;
}  // namespace G

namespace editor {

class FocusTarget;
class GlobalGui;
class TopBar;
class VrokBlockWindow;
class VrokConnectionWindow;

// No click remembered.
constexpr int kNoClick = -500000;
// At most this many rects are listed between paints; a full list means "everything".
constexpr int kMaxDirtyRects = 20;

class VrokDocWindow : public G::Window, public DocumentView {
public:
    VrokDocWindow(G::Control* parent, VrokDoc& doc);
    ~VrokDocWindow() override;

    // Makes a window for each object of the document, then shows and lays out. Call once, after
    // the window has its parent and size.
    void Open();

    // [Control events]
    void SetSize(int w, int h) override;
    bool OnDropFile(const std::string& path) override;
    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    bool OnVScroll(int code, int position) override;
    bool OnHScroll(int code, int position) override;
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnRightDown(int x, int y) override;
    bool OnKeyDown(int key) override;
    bool OnKeyUp(int key) override;
    bool OnMouseMove(int x, int y) override;
    void OnCommand(int id) override;
    void OnResized(int w, int h) override;
    void OnTimer(int id) override;
    // Lists the rect (a copy) while fewer than kMaxDirtyRects are listed; null lists everything.
    void Invalidate(const G::Rect* r = nullptr) override;
    void LayoutScrollers() override;

    // [Document view]
    void DocumentChanged() override;
    void StorableAdded(Storable* storable) override;

    // [Selection]
    void ClearSelection();
    void Select(VrokBlockWindow* window);
    void Deselect(VrokBlockWindow* window);
    void SelectAll();
    // Invalidates the area of every selected window, shadows and frames included.
    void InvalidateSelection();
    void InvalidateBlockArea(const VrokBlockWindow* window);
    void InvalidateWire(const VrokConnectionWindow* wire);
    // Moves every selected block by (dx, dy), not below 0; each inside its own bracket of the
    // action the drag holds open.
    void MoveSelection(int dx, int dy);
    // One action.
    void DeleteSelection();
    // Duplicates the selection in one action and starts dragging the copy of `clicked`; the
    // action closes when that drag ends.
    void Duplicate(VrokBlockWindow* clicked);

    // [Wires]
    void SetConnectionSource(VrokBlockWindow* window);
    void SetConnectionTarget(VrokBlockWindow* window, int input);
    void CancelConnection();
    bool IsConnecting() const { return connecting; }
    // Window coordinates.
    void UpdateConnectionPreview(int x, int y);
    // The end of a drag from a port button, in window coordinates: from an output arrow it
    // wires to the input port under the point, from an input port to the block under the
    // point; anywhere else it gives up.
    void FinishConnectionDrag(int x, int y);
    void Disconnect(PatchConnection* wire);
    // Recomputes the wires touching `patchBlock` (all wires for null) and invalidates them.
    void UpdateConnectionGeometry(PatchBlock* patchBlock = nullptr);

    // [Commands]
    // A block from a menu id at the last click (which is then forgotten) or at a random spot;
    // null when the id makes no block or the engine refuses it.
    PatchBlock* CreateBlockFromMenu(int id);
    void SetLastClick(int x, int y);
    void Copy();
    // At the pointer.
    void Paste();
    void Undo();
    void Redo();
    // A ".vrkx" file, else a ".vrk" file. False, with the patch untouched and a message box,
    // when neither reads.
    bool Load(const std::string& path);
    // False, with a message box and the document still marked changed, when it cannot write.
    bool Save(const std::string& path);
    // Asks "Warning!" first; true when cleared.
    bool ConfirmAndClear();
    // Before the editor closes: with unsaved changes, offers to save them (through the save
    // dialog when the patch has no file yet). False keeps the editor open: the user wanted the
    // changes saved and they were not.
    bool SaveBeforeClosing();
    // Shown in the top bar; empty shows "new patch".
    void SetName(const std::string& path);
    const std::string& Name() const { return name; }

    // [Manual]
    // Shows both manual panels at "Default", or hides them; then the container lays out again.
    void ToggleManual();
    bool ManualVisible() const;
    // Goes to a page while the manual is shown.
    void ShowManualPage(std::string_view key);
    // The article of the block in `window`, while the manual is shown and not locked.
    void ShowBlockHelp(const VrokBlockWindow* window);

    // [Helpers for the windows on the canvas]
    VrokBlockWindow* WindowOf(const PatchBlock* patchBlock) const;
    void BlockWindowGone(VrokBlockWindow* window);
    void ConnectionWindowGone(VrokConnectionWindow* window);
    void DeleteBlockOf(VrokBlockWindow* window);
    // The pointer in this window's coordinates, as the last mouse message left it.
    void PointerInCanvas(int& x, int& y) const;
    int RunMenuAtCursor(G::RightClickMenu& menu);
    std::string ClipboardText();
    // Gives the keyboard to the focus target, so keys reach the canvas after a gesture.
    void TakeKeyboard();
    void CountChange() { ++changeCounter; }
    G::NativeWindow* Native() const;

    VrokDoc& doc;
    GlobalGui* globalGui = nullptr;
    TopBar* topBar = nullptr;
    std::vector<VrokBlockWindow*> selected;  // selection order
    std::vector<G::Rect> dirtyRects;
    bool draggingSelection = false;
    FocusTarget* focusTarget = nullptr;
    std::vector<VrokBlockWindow*> blockWindows;
    std::vector<VrokConnectionWindow*> connectionWindows;
    int lastClickX = kNoClick;
    int lastClickY = kNoClick;
    bool bandActive = false;
    int bandStartX = 0, bandStartY = 0, bandX = 0, bandY = 0;  // client coordinates
    int scrollX = 0, scrollY = 0;                              // 0 or negative
    int scrollRangeX = 0, scrollRangeY = 0;
    bool connecting = false;
    G::Rect previewRect;
    PatchBlock* connectionSource = nullptr;
    PatchBlock* connectionTarget = nullptr;
    VrokBlockWindow* sourceWindow = nullptr;
    VrokBlockWindow* targetWindow = nullptr;
    int targetInput = 0;
    int previewX = 0, previewY = 0;  // the free end of the preview, window coordinates
    std::unique_ptr<G::Bitmap> canvas;
    int changeCounter = 0;
    ShadowCache shadows;
    // The manual, read when the window opens; the container owns the two panels showing it.
    std::unique_ptr<HelpLibrary> manual;
    HelpDisplay* helpDisplay = nullptr;
    HelpDisplayTopBar* helpTopBar = nullptr;
    // Told after the manual was shown or hidden, to lay the panels out again.
    std::function<void()> manualToggled;
    // Told after a load, save or clear changed the name.
    std::function<void()> onNameChanged;
    // Told when the document announces its global settings record.
    std::function<void(PatchGlobal*)> globalAnnounced;

private:
    struct DrawRecord;
    void CollectRecords(std::vector<DrawRecord>& records);
    void DrawConnectionPreview(G::Renderer& renderer);
    std::vector<G::FloatPoint> PreviewPoints() const;
    G::Rect BandRect() const;  // window coordinates
    void UpdateBand(int x, int y);
    void ArrowMenu(VrokConnectionWindow* wire, int x, int y);
    VrokConnectionWindow* ArrowAt(int x, int y) const;
    void ShowCanvasMenu(int x, int y);
    void MakeBlockWindow(PatchBlock* patchBlock);
    void MakeConnectionWindow(PatchConnection* connection);
    void PlaceWindows();
    void MessageBox(const std::string& text, const std::string& title);

    std::string name;
};

}  // namespace editor
