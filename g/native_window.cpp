// The message table shared by every native layer: native messages become tree events, with
// key translation, bubbling rules, hover tracking and a synchronous repaint at the end of
// the outermost message.
#include "g/native_window.h"

#include "engine/log.h"
#include "g/keys.h"
#include "g/root_control.h"

namespace G {
namespace {

constexpr size_t kMaxDropPath = 259;

// The window surface rounds its rows up to a multiple of 8 pixels with slack.
int SurfaceRowLength(int width) { return (width + 16) & ~7; }

}  // namespace

void NativeWindow::Release() {
    if (dispatchDepth > 0) {
        releasePending = true;
    } else {
        delete this;
    }
}

void NativeWindow::ResizeSurface(int w, int h) {
    surfaceWidth = w > 0 ? w : 0;
    surfaceHeight = h > 0 ? h : 0;
    surfaceRowLength = SurfaceRowLength(surfaceWidth);
    surface.assign(static_cast<size_t>(surfaceRowLength) * 3 * surfaceHeight, 0xFF);
}

void NativeWindow::PaintPass() {
    if (surface.empty()) {
        int w = 0;
        int h = 0;
        ClientSize(w, h);
        ResizeSurface(w, h);
    }
    Rect painted = root->Paint(surface.data(), surfaceRowLength, surfaceHeight);
    if (!painted.IsEmpty()) PresentSurface(painted);
}

void NativeWindow::OfferKey(NativeEventKind kind, int code) {
    Control* c = root->focus ? root->focus : root;
    for (; c; c = c->parent) {
        bool accepted = kind == NativeEventKind::KeyDown ? c->OnKeyDown(code)
                        : kind == NativeEventKind::KeyUp ? c->OnKeyUp(code)
                                                         : c->OnChar(code);
        if (accepted) break;
    }
}

void NativeWindow::HoverTail() {
    if (!root || !mouseValid) return;
    Control* hit = root->FindControlAt(mouseX, mouseY);
    if (hit == hovered) return;
    int x = mouseX;
    int y = mouseY;
    Control* old = hovered;
    // Enter is told before leave, and the leave gets the new control's local point.
    (hit ? hit : old)->GlobalToLocal(x, y);
    if (hit) hit->OnMouseEnter(x, y);
    if (old && old == hovered) old->OnMouseLeave(x, y);
    hovered = hit;
}

bool NativeWindow::Dispatch(const NativeEvent& e) {
    if (!root) return false;
    RootControl* r = root;
    ++dispatchDepth;
    ++r->nesting;
    SetCurrentModifiers(e.modifiers);
    bool handled = true;
    bool skipTail = false;

    auto mouse = [&](auto call) {
        mouseX = e.x;
        mouseY = e.y;
        mouseValid = true;
        if (Control* hit = r->FindControlAt(e.x, e.y)) {
            int x = e.x;
            int y = e.y;
            hit->GlobalToLocal(x, y);
            call(hit, x, y);
        }
    };

    switch (e.kind) {
        case NativeEventKind::Destroy:
            Log(0, "WM_DESTROY!");
            --r->nesting;
            r->native.release();
            root = nullptr;
            releasePending = true;
            skipTail = true;
            break;
        case NativeEventKind::Size:
            r->SetSize(e.x, e.y);
            ResizeSurface(e.x, e.y);
            break;
        case NativeEventKind::Paint:
            PaintPass();
            break;
        case NativeEventKind::Close:
            Log(0, "WM_CLOSE!");
            --r->nesting;
            if (r->OnClose()) {
                skipTail = true;
                break;
            }
            // Declined: the platform's default closes the window after the tail.
            ++r->nesting;
            handled = false;
            break;
        case NativeEventKind::KeyDown:
        case NativeEventKind::KeyUp:
            OfferKey(e.kind, TranslateKey(e.key));
            break;
        case NativeEventKind::Char:
            OfferKey(e.kind, e.key);
            break;
        case NativeEventKind::Timer:
            r->OnTimer(1);
            break;
        case NativeEventKind::MouseMove:
            RequestMouseLeave();
            mouseX = e.x;
            mouseY = e.y;
            mouseValid = true;
            // Bubbles: each ancestor gets the point in its own coordinates.
            for (Control* c = r->FindControlAt(e.x, e.y); c; c = c->parent) {
                int x = e.x;
                int y = e.y;
                c->GlobalToLocal(x, y);
                if (c->OnMouseMove(x, y)) break;
            }
            break;
        case NativeEventKind::LeftDown:
            mouse([](Control* c, int x, int y) { c->OnLeftDown(x, y); });
            break;
        case NativeEventKind::LeftUp:
            mouse([](Control* c, int x, int y) { c->OnLeftUp(x, y); });
            break;
        case NativeEventKind::RightDown:
            mouse([](Control* c, int x, int y) { c->OnRightDown(x, y); });
            break;
        case NativeEventKind::RightUp:
            mouse([](Control* c, int x, int y) { c->OnRightUp(x, y); });
            break;
        case NativeEventKind::MiddleDown:
            // A middle press counts as a double click unless the control takes it.
            mouse([](Control* c, int x, int y) {
                if (!c->OnMiddleDown(x, y)) c->OnDoubleClick(x, y);
            });
            break;
        case NativeEventKind::MiddleUp:
            mouse([](Control* c, int x, int y) { c->OnMiddleUp(x, y); });
            break;
        case NativeEventKind::LeftDoubleClick:
            mouse([](Control* c, int x, int y) { c->OnDoubleClick(x, y); });
            break;
        case NativeEventKind::RightDoubleClick:
            mouse([](Control* c, int x, int y) { c->OnRightDoubleClick(x, y); });
            break;
        case NativeEventKind::MiddleDoubleClick:
            mouse([](Control* c, int x, int y) { c->OnMiddleDoubleClick(x, y); });
            break;
        case NativeEventKind::Wheel:
            if (hovered) hovered->OnWheel(e.wheelDelta / 120);
            break;
        case NativeEventKind::HWheel:
            if (hovered) hovered->OnHWheel(e.wheelDelta / 120);
            break;
        case NativeEventKind::MouseLeave: {
            int x = 0;
            int y = 0;
            CursorPosition(x, y);
            ScreenToClient(x, y);
            mouseX = x;
            mouseY = y;
            mouseValid = true;
            break;
        }
        case NativeEventKind::DropFiles:
            if (!e.files.empty()) {
                std::string path = e.files.front().substr(0, kMaxDropPath);
                if (hovered) {
                    for (Control* c = hovered; c; c = c->parent) {
                        if (c->OnDropFile(path)) break;
                    }
                } else {
                    r->OnDropFile(path);
                }
            }
            break;
        case NativeEventKind::User:
            r->OnUserMessage(e.wParam, e.lParam);
            break;
        case NativeEventKind::Other:
            handled = false;
            break;
    }

    if (!skipTail && root) {
        HoverTail();
        if (--r->nesting == 0 && r->AnyDirtyFlag()) {
            r->rootHasRects = false;
            PaintNow();
        }
    }
    if (--dispatchDepth == 0 && releasePending) delete this;
    return handled;
}

}  // namespace G
