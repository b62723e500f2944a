// Block windows whose curve is drawn with the mouse: the waveshaper's transfer curve and the
// custom envelope's points. The points are ordinary block parameters past the widget rows, so
// every stroke goes through the block window's undoable parameter path; one press to release
// is one undo step. GUI thread.
#pragma once

#include <vector>

#include "editor/vrok_block_window.h"

namespace editor {

class CurveBlockGui;

// The drawing area: left drag draws a stroke of straight segments between the columns the
// pointer crosses (Shift pins it to the rising diagonal); right drag cycles the whole curve
// sideways and shifts it up or down, wrapping both ways.
class CurveArea : public G::Window {
public:
    CurveArea(CurveBlockGui* owner, int firstIndex, int count);

    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnRightDown(int x, int y) override;
    bool OnRightUp(int x, int y) override;
    bool OnMouseMove(int x, int y) override;

    // The point under window column `x`, clamped to the curve.
    int PointAt(int x) const;
    float Point(int i) const;

    bool drawing = false;
    bool rightDragging = false;
    int lastX = 0, lastY = 0;
    int previousX = 0, previousY = 0;
    CurveBlockGui* owner;
    int firstIndex;
    int count;

private:
    void Press(int x, int y);
    void Release();
    void Stroke(int x, int y);
    void Cycle(int x, int y);
};

// The shared window: the block's widget rows, the area below them, and a row of buttons that
// reshape the whole curve in one undo step.
class CurveBlockGui : public VrokBlockWindow {
public:
    enum Button { kReset, kSmooth, kInvert, kArctan, kFlip };
    static constexpr int kFirstButtonId = 9000;

    CurveBlockGui(VrokDocWindow* canvas, PatchBlock* patchBlock, int firstIndex, int count,
                  std::vector<Button> buttons, int height);

    void OnCommand(int id) override;
    void RefreshChangedValues() override;
    void RefreshAllValues() override;

    // Writes `values` to the points in one undo step.
    void WriteCurve(const std::vector<float>& values);
    // What a button makes of the current curve.
    std::vector<float> Reshaped(Button button) const;

    CurveArea* area = nullptr;

protected:
    void BuildWidgets() override;
    // The curve "reset" restores.
    virtual float ResetPoint(int i) const = 0;
    virtual CurveArea* CreateArea() = 0;

    int firstIndex;
    int count;

private:
    std::vector<Button> buttons;
    int height;
    std::vector<float> drawnPoints;  // what the area shows, to notice changes made elsewhere
};

class WaveshaperWaveArea : public CurveArea {
public:
    using CurveArea::CurveArea;
};

class CustomEnvEnvelopeArea : public CurveArea {
public:
    using CurveArea::CurveArea;
};

// 128 points in parameters 2..129; "reset" is the straight line, which passes the signal.
class WaveshaperGui : public CurveBlockGui {
public:
    WaveshaperGui(VrokDocWindow* canvas, PatchBlock* patchBlock);

protected:
    float ResetPoint(int i) const override;
    CurveArea* CreateArea() override;
};

// 192 points in parameters 4..195; "reset" is a fall from full to silence.
class CustomEnvBlockGui : public CurveBlockGui {
public:
    CustomEnvBlockGui(VrokDocWindow* canvas, PatchBlock* patchBlock);

protected:
    float ResetPoint(int i) const override;
    CurveArea* CreateArea() override;
};

class KeyTrackEnvelopeArea : public CurveArea {
public:
    using CurveArea::CurveArea;
};

// One value per key, 128 points in parameters 0..127; "reset" is the rising line from -1 at the
// lowest key to 1 at the highest.
class KeyTrackGui : public CurveBlockGui {
public:
    KeyTrackGui(VrokDocWindow* canvas, PatchBlock* patchBlock);

protected:
    float ResetPoint(int i) const override;
    CurveArea* CreateArea() override;
};

class AdvancedEnvBlockGui;

// The advanced envelope's stages side by side, each in its own quarter drawn as the unit square
// of its bend: "Attack" rising, "Decay" and "Release" falling, "Sustain" flat at its level.
// Each bend shows its two handles; dragging one writes its x and y parameters, one undo step a
// drag.
class AdvancedEnvEnvelopeArea : public G::Window {
public:
    static constexpr int kHandles = 6;

    explicit AdvancedEnvEnvelopeArea(AdvancedEnvBlockGui* owner);

    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnMouseMove(int x, int y) override;

    // Handle `h` (attack, decay, release; first then second of each) in area coordinates.
    G::FloatPoint HandleAt(int h) const;
    // The handle within reach of a point, or -1.
    int HandleNear(int x, int y) const;
    // The x parameter of handle `h`; y follows it.
    static int HandleParameter(int h);

    AdvancedEnvBlockGui* owner;
    int dragged = -1;

private:
    // Stage `stage` (0..3) quarter's left edge and width.
    float QuarterLeft(int stage) const;
    float QuarterWidth() const;
};

class AdvancedEnvBlockGui : public VrokBlockWindow {
public:
    using VrokBlockWindow::VrokBlockWindow;

    void RefreshChangedValues() override;
    void RefreshAllValues() override;

    AdvancedEnvEnvelopeArea* area = nullptr;

protected:
    void BuildWidgets() override;
    bool RowHasWidget(int index) const override;

private:
    std::vector<float> drawnHandles;
};

}  // namespace editor
