// The control tree: every widget and window is a G::Control. A control draws only into its
// own 3-byte bitmap; the root composites the visible tree into the window surface. Children
// are owned, index 0 is on top, and every operation on the tree goes upward through the
// parent chain to the root. Event handlers return false to decline. GUI thread only.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "g/bitmap.h"
#include "g/geometry.h"

namespace G {

class Renderer;
class BackgroundRenderer;

using NativeHandle = uintptr_t;

class Control {
public:
    // Construction with a parent does not add the control to the parent's children: the
    // creator appends it with AddChild.
    explicit Control(Control* parent);
    // Unlinks from capture, focus, timers, the parent's children, hover and the redraw queue,
    // after destroying the children.
    virtual ~Control();
    Control(const Control&) = delete;
    Control& operator=(const Control&) = delete;

    virtual NativeHandle GetNativeWindow();
    virtual void SetSize(int w, int h);
    virtual void SetPosition(int x, int y);
    // Width and height are raised to at least 1.
    virtual void SetBounds(int x, int y, int w, int h);
    virtual void DrawFace(Renderer& renderer, int x, int y, int w, int h, int state) {}
    virtual void OnTimer(int id) {}
    // x, y in the parent's coordinates; half-open.
    virtual bool ContainsPoint(int x, int y);
    virtual void GetPreferredBounds(Rect& out);
    virtual bool OnChar(int code) { return false; }
    virtual void CenterOnScreen();
    virtual void FitToContent(bool recurse);
    virtual void Show();
    virtual void Hide();
    virtual void BringToFront(bool propagate);
    virtual void CaptureMouse();
    virtual void ReleaseMouse();
    virtual void ClearFocus();
    virtual bool HasCapture();
    // Null asks about this control.
    virtual bool HasFocus(Control* control = nullptr);
    virtual void SetFocus(Control* control = nullptr);
    virtual bool OnClose() { return false; }
    virtual bool OnDropFile(const std::string& path) { return false; }
    virtual bool OnDraw(Renderer& renderer, Rect clip);
    // With a background renderer: asks it for `clip` (own coordinates) as it lies in the
    // parent, so gradients and title strips line up under the control. Otherwise the default
    // recipe, which leaves the bitmap's old pixels under its outlines.
    virtual void DrawBackground(Renderer& renderer, const Rect& clip);
    // Called by a scroller on its owner after the position changed.
    virtual bool OnVScroll(int code, int position) { return false; }
    virtual bool OnHScroll(int code, int position) { return false; }
    // Mouse coordinates are local to the control.
    virtual bool OnLeftDown(int x, int y) { return false; }
    virtual bool OnLeftUp(int x, int y) { return false; }
    virtual bool OnRightDown(int x, int y) { return false; }
    virtual bool OnRightUp(int x, int y) { return false; }
    virtual bool OnMiddleDown(int x, int y) { return false; }
    virtual bool OnMiddleUp(int x, int y) { return false; }
    virtual bool OnKeyDown(int key) { return false; }
    virtual bool OnKeyUp(int key) { return false; }
    virtual bool OnMouseMove(int x, int y) { return false; }
    virtual bool OnMouseLeave(int x, int y) { return false; }
    virtual bool OnMouseEnter(int x, int y) { return false; }
    virtual bool OnWheel(int notches) { return false; }
    virtual bool OnHWheel(int notches) { return false; }
    // A child button or popup menu reports to its owner.
    virtual void OnCommand(int id) {}
    // Double click on a child button.
    virtual void OnCommandDoubleClick(int id) {}
    // Right click on a child button.
    virtual void OnAltCommand(int id) {}
    virtual void OnResized(int w, int h) {}
    virtual bool OnDoubleClick(int x, int y) { return false; }
    virtual bool OnMiddleDoubleClick(int x, int y) { return false; }
    virtual bool OnRightDoubleClick(int x, int y) { return false; }
    virtual bool OnFocusChanged(bool gained) { return false; }
    // Null invalidates the whole control. The control is queued for redraw even when hidden.
    virtual void Invalidate(const Rect* r = nullptr);
    // r in this control's coordinates; passed up, offset by each control's position.
    virtual void InvalidateArea(const Rect& r);
    virtual void OnControlGone(Control* control);
    virtual void QueueRedraw(Control* control);
    virtual void AddTimerClient(Control* control);
    virtual void RemoveTimerClient(Control* control);

    // Takes ownership; the new child goes to the bottom of the stack (last index).
    void AddChild(Control* child);
    // Deletes a child (its destructor unlinks it).
    void DestroyChild(Control* child);
    void SetColorIndex(int index);
    // Covers the whole control with what lies under it: the background renderer's painting
    // when one is set, otherwise a plain `fill`. A face starts here, so no pixel of an earlier
    // paint survives.
    void PaintUnderlay(Renderer& renderer, Color fill);
    int Width() const { return bounds.w; }
    int Height() const { return bounds.h; }

    void LocalToGlobal(int& x, int& y) const;
    void GlobalToLocal(int& x, int& y) const;
    // Hit test with x, y relative to this control; follows capture links first.
    Control* FindControlAt(int x, int y);
    Control* Root();
    // Live controls, for leak reports only.
    static int LiveCount();

    // Paint pass helpers, called by the root.
    void Render();
    void UpdateAbsolute(int parentX, int parentY);
    void CompositeSpan(int y, int x0, int x1, uint8_t* destRow);
    bool AnyDirtyFlag() const { return wholeArea || wholeAreaSecond || invalidated || rootHasRects; }
    void ClearDirtyFlags() { wholeArea = wholeAreaSecond = invalidated = rootHasRects = false; }

    Control* parent;
    int absX = 0;
    int absY = 0;
    int absTop = 0;
    int absBottom = 0;
    int absLeft = 0;
    int absRight = 0;
    Control* focus = nullptr;
    Control* capture = nullptr;
    bool queued = false;
    int id = 0;
    std::wstring name;
    Rect bounds;
    bool visible = true;
    int colorIndex = 1;
    BackgroundRenderer* background = nullptr;
    std::vector<Control*> children;
    bool wholeArea = false;
    bool wholeAreaSecond = false;
    bool invalidated = false;
    bool rootHasRects = false;
    Rect dirty;
    std::unique_ptr<Bitmap> bitmap;

protected:
    // Keeps a bitmap at least as large as the control, rounded up with slack so small
    // resizes do not reallocate; never shrinks.
    void AllocateBitmap();
};

class CustomControl : public Control {
public:
    using Control::Control;
};

}  // namespace G
