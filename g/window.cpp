// G::Window: title, scrollers bound to the scroll position fields, preferred size.
#include "g/window.h"

#include <algorithm>

#include "g/scroller.h"

namespace G {
namespace {
int liveWindows = 0;
}  // namespace

Window::Window(Control* parentControl) : CustomControl(parentControl) {
    id = -1;
    ++liveWindows;
}

Window::~Window() { --liveWindows; }

int Window::LiveCount() { return liveWindows; }

void Window::SetTitle(const std::wstring& text) {
    title = text;
    Invalidate(nullptr);
}

void Window::LayoutScrollers() {
    const int t = Scroller::kThickness;
    if (vScroller) vScroller->SetBounds(bounds.w - t, 0, t, bounds.h - (hScroller ? t : 0));
    if (hScroller) hScroller->SetBounds(0, bounds.h - t, bounds.w, t);
}

void Window::SetVScroller(bool enabled) {
    SetScroller(vScroller, hasVScroller, enabled, &vScrollPosition, &vScrollPage, true);
}

void Window::SetHScroller(bool enabled) {
    SetScroller(hScroller, hasHScroller, enabled, &hScrollPosition, &hScrollPage, false);
}

void Window::SetScroller(Scroller*& slot, bool& present, bool enabled, float* position, float* page,
                         bool vertical) {
    present = enabled;
    if (enabled && !slot) {
        slot = new Scroller(this, position, page, vertical);
        AddChild(slot);
        slot->BringToFront(false);
    } else if (!enabled && slot) {
        DestroyChild(slot);
        slot = nullptr;
    }
    LayoutScrollers();
}

void Window::GetPreferredBounds(Rect& out) {
    out = Rect{};
    for (Control* child : children) UnionRect(out, child->bounds);
    out.x -= padding;
    out.y -= padding;
    out.w += 2 * padding;
    out.h += 2 * padding;
}

bool Window::OnWheel(int notches) { return vScroller && vScroller->OnWheel(notches); }

bool Window::OnHWheel(int notches) { return hScroller && hScroller->OnWheel(notches); }

void Window::OnResized(int, int) { LayoutScrollers(); }

void Window::BringToFront(bool propagate) {
    Control::BringToFront(propagate);
    if (vScroller) vScroller->BringToFront(false);
    if (hScroller) hScroller->BringToFront(false);
}

}  // namespace G
