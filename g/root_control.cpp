// G::RootControl: dirty rects, redraw queue, timer clients, focus and capture at the top of
// the tree, and the paint pass that composites dirty rows into the window surface.
#include "g/root_control.h"

#include <algorithm>

#include "g/theme.h"

namespace G {
namespace {

// The 251st rect of a paint cycle gives up on precision: the whole root is composited.
constexpr int kRectsBeforeOverflow = RootControl::kMaxRects - 1;

template <typename T>
void EraseValue(std::vector<T>& v, const T& value) {
    v.erase(std::remove(v.begin(), v.end(), value), v.end());
}

}  // namespace

RootControl::RootControl(std::unique_ptr<NativeWindow> nativeWindow)
    : Window(nullptr), native(std::move(nativeWindow)) {
    theme::Acquire();
    if (native) native->root = this;
}

RootControl::~RootControl() {
    if (native) {
        native->root = nullptr;
        // The native window may be inside Dispatch right now (a close handler deleting its
        // root); it then frees itself when that message is done.
        native.release()->Release();
    }
    fullBitmap.reset();
    theme::Release();
}

void RootControl::ShowTop() {
    rectCount = 0;
    rectOverflow = false;
    Invalidate(nullptr);
    if (native) native->ShowAndRaise();
}

NativeHandle RootControl::GetNativeWindow() { return native ? native->handle : 0; }

void RootControl::OnTimer(int id) {
    // A client may add or remove clients (itself included) while being told.
    timerScratch = timerClients;
    for (Control* client : timerScratch) {
        if (client != this &&
            std::find(timerClients.begin(), timerClients.end(), client) != timerClients.end()) {
            client->OnTimer(id);
        }
    }
}

void RootControl::CaptureMouse() {
    if (native) native->SetCapture();
}

void RootControl::ReleaseMouse() {
    if (native) native->ReleaseCapture();
}

void RootControl::ClearFocus() {
    Control* old = focus;
    focus = nullptr;
    if (old) old->OnFocusChanged(false);
}

bool RootControl::HasFocus(Control* control) { return focus == (control ? control : this); }

void RootControl::SetFocus(Control* control) {
    Control* target = control ? control : this;
    if (focus) focus->OnFocusChanged(false);
    focus = target;
    target->OnFocusChanged(true);
}

void RootControl::InvalidateArea(const Rect& r) {
    rootHasRects = true;
    if (rectCount < kRectsBeforeOverflow && !rectOverflow) {
        rects[rectCount++] = r;
    } else if (rectCount >= kRectsBeforeOverflow) {
        rectOverflow = true;
    }
    if (native) native->InvalidateRect(r);
}

void RootControl::OnControlGone(Control* control) {
    if (native && native->hovered == control) native->hovered = nullptr;
    EraseValue(redrawQueue, control);
}

void RootControl::QueueRedraw(Control* control) {
    if (control->queued) return;
    control->queued = true;
    redrawQueue.push_back(control);
}

void RootControl::AddTimerClient(Control* control) {
    if (std::find(timerClients.begin(), timerClients.end(), control) == timerClients.end()) {
        timerClients.push_back(control);
    }
}

void RootControl::RemoveTimerClient(Control* control) { EraseValue(timerClients, control); }

Rect RootControl::Paint(uint8_t* surface, int rowLength, int surfaceHeight) {
    // Rendering may queue more controls; they are rendered in the same pass.
    for (size_t i = 0; i < redrawQueue.size(); ++i) redrawQueue[i]->Render();
    spans.Reset(bounds.w, bounds.h);
    redrawQueue.clear();
    if (!fullBitmap || fullBitmap->width < bounds.w || fullBitmap->height < bounds.h) {
        fullBitmap = std::make_unique<Bitmap>(std::max(1, bounds.w), std::max(1, bounds.h), 3);
    }
    UpdateAbsolute(-bounds.x, -bounds.y);

    Rect painted;
    if (rectOverflow) {
        rectOverflow = false;
        spans.Add(Rect{0, 0, bounds.w, bounds.h});
        UnionRect(painted, Rect{0, 0, bounds.w, bounds.h});
    } else {
        for (int i = 0; i < rectCount; ++i) {
            spans.Add(rects[i]);
            UnionRect(painted, rects[i]);
        }
    }
    rectCount = 0;

    for (int row = 0; row < surfaceHeight; ++row) {
        int y = surfaceHeight - 1 - row;  // the surface is bottom-up
        if (y >= spans.Height() || !spans.RowDirty(y)) continue;
        uint8_t* dest = surface + static_cast<size_t>(row) * rowLength * 3;
        for (int node = spans.FirstSpan(y); node >= 0; node = spans.At(node).next) {
            int x1 = std::min(spans.At(node).x1, rowLength);
            CompositeSpan(y, spans.At(node).x0, x1, dest);
        }
    }
    // What reaches the window: the dirty area within both the root and the surface.
    int x0 = std::max(painted.x, 0);
    int y0 = std::max(painted.y, 0);
    int x1 = std::min({painted.x + painted.w, bounds.w, rowLength});
    int y1 = std::min({painted.y + painted.h, bounds.h, surfaceHeight});
    if (x1 <= x0 || y1 <= y0) return Rect{};
    return Rect{x0, y0, x1 - x0, y1 - y0};
}

}  // namespace G
