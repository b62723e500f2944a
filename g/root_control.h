// G::RootControl: the top of a tree, joined to one native window. It keeps the dirty rects,
// the redraw queue and the timer clients, and runs the paint pass that renders queued
// controls and composites the dirty rows into the window surface.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "g/native_window.h"
#include "g/span_map.h"
#include "g/window.h"

namespace G {

class RootControl : public Window {
public:
    static constexpr int kMaxRects = 251;

    // Takes a Theme reference. `native` may be null for a tree that is only painted off-screen.
    explicit RootControl(std::unique_ptr<NativeWindow> native);
    ~RootControl() override;

    // Raises and shows the native window without moving or sizing it, with a first full
    // invalidate.
    virtual void ShowTop();
    virtual void OnUserMessage(intptr_t wParam, intptr_t lParam) {}
    void ReleaseCapture() { ReleaseMouse(); }

    NativeHandle GetNativeWindow() override;
    void OnTimer(int id) override;
    void CaptureMouse() override;
    void ReleaseMouse() override;
    void ClearFocus() override;
    bool HasFocus(Control* control = nullptr) override;
    void SetFocus(Control* control = nullptr) override;
    void InvalidateArea(const Rect& r) override;
    void OnControlGone(Control* control) override;
    void QueueRedraw(Control* control) override;
    void AddTimerClient(Control* control) override;
    void RemoveTimerClient(Control* control) override;

    // The paint pass over a surface of 3-byte bottom-up rows, `rowLength` pixels each.
    // Returns the bounding box of what was composited (empty when nothing was).
    Rect Paint(uint8_t* surface, int rowLength, int surfaceHeight);

    SpanMap spans;
    std::unique_ptr<NativeWindow> native;
    int nesting = 0;
    std::unique_ptr<Bitmap> fullBitmap;
    std::vector<Control*> timerClients;
    std::array<Rect, kMaxRects> rects;
    int rectCount = 0;
    bool rectOverflow = false;
    std::vector<Control*> redrawQueue;

private:
    std::vector<Control*> timerScratch;
};

}  // namespace G
