// The window of one block on the canvas: a title strip in the block's category colour, one
// widget per parameter, a port button per input, the output arrow and the delete cross. It
// handles selection, dragging and duplication, the port menus, and turns widget gestures into
// undoable parameter changes. BasicBlockGui is its plain form, used for every block type that
// has no GUI of its own. GUI thread.
#pragma once

#include <string>
#include <vector>

#include "editor/gui_link.h"
#include "g/param_listener.h"
#include "g/theme.h"
#include "g/window.h"

class PatchBlock;

namespace editor {

class VrokDocWindow;

// Port button ids beside the input port indexes.
constexpr int kOutputButtonId = 8000;
constexpr int kDeleteButtonId = 8001;

constexpr int kBlockWindowWidth = 134;
// The first 20 parameters get widgets; the rest (curve points of drawn editors) do not.
constexpr int kMaxWidgetRows = 20;
constexpr int kRowHeight = 14;

class VrokBlockWindow : public G::Window,
                        public G::FloatParamListener,
                        public EditorGui,
                        public G::BackgroundRenderer {
public:
    VrokBlockWindow(VrokDocWindow* canvas, PatchBlock* patchBlock);
    ~VrokBlockWindow() override;

    // Builds widgets, port buttons and the size; the canvas calls it once after construction.
    virtual void Build();

    // [Drawing]
    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    void DrawBackground(G::Renderer& renderer, const G::Rect& clip) override;
    void PaintBackground(G::Renderer& renderer, const G::Rect& area) override;

    // [Gestures]
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnMouseMove(int x, int y) override;
    bool OnKeyDown(int key) override;
    bool OnKeyUp(int key) override;
    bool OnFocusChanged(bool gained) override;
    void OnCommand(int id) override;
    void OnAltCommand(int id) override;

    // [Parameter changes] Each widget gesture is one undo step.
    void BeginChange(G::FloatParamGenerator* generator, int index) override;
    void ValueChanged(G::FloatParamGenerator* generator, int index, float value) override;
    void EndChange(G::FloatParamGenerator* generator, int index) override;
    std::wstring DescribeValue(int index, float value) override;

    // [Document links]
    void StorableChanged(int source, Storable* storable) override;
    void StorableRemoved(int source, Storable* storable) override;

    // Shows stored values that changed behind the widgets' back (a host knob, automation).
    void RefreshChangedValues();
    // Refreshes every widget from the stored values.
    void RefreshAllValues();
    // Starts a drag of the selection as if pressed at the screen cursor; `duplicate` closes
    // the duplication's action at the release.
    void StartDrag(bool duplicate);
    void SetSelected(bool on);

    // Port geometry in window coordinates.
    // Centre line of input port `port`: where wires end.
    int PortY(int port) const;
    // The input port at a window point, or -1.
    int InputPortAt(int x, int y) const;
    bool HasTriggerPort() const;
    bool HasOutput() const;
    int NumInputs() const;

    PatchBlock* patchBlock;
    VrokDocWindow* canvas;
    bool dragging = false;
    int lastDragX = 0;
    int lastDragY = 0;
    std::vector<G::Control*> widgets;  // one slot per parameter, null without a widget
    std::vector<float> shownValues;    // what each widget shows
    int panelHeight = 0;
    int titleColorIndex = 16;
    int textColorIndex = G::theme::kTextColor;
    int strongColorIndex = 16;
    int paleColorIndex = 17;
    std::string title;
    bool selected = false;
    bool duplicating = false;

protected:
    // Turns the block's first widget rows into widgets; overridden by GUIs that add their own
    // drawing areas below the rows.
    virtual void BuildWidgets();
    void BuildPortButtons();

private:
    void ShowOutputMenu();
    void ShowInputMenu(int port);
    void PasteOverBlock();
};

class BasicBlockGui : public VrokBlockWindow {
public:
    using VrokBlockWindow::VrokBlockWindow;
};

// Palette pair (strong, pale) of a block category.
void CategoryColors(int category, int& strong, int& pale);

}  // namespace editor
