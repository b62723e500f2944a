// G::Control: tree links, geometry, invalidation, focus and capture, hit testing, and the
// per-control steps of the paint pass (render into the own bitmap, composite a row span).
#include "g/control.h"

#include <algorithm>
#include <cstring>

#include "g/renderer.h"
#include "g/root_control.h"
#include "g/theme.h"

namespace G {
namespace {

int liveControls = 0;

// Bitmaps round up to a multiple of 8 with slack so small resizes keep them.
int BitmapExtent(int size) { return (size + 16) & ~7; }

}  // namespace

Control::Control(Control* parentControl) : parent(parentControl) { ++liveControls; }

Control::~Control() {
    if (HasCapture()) ReleaseMouse();
    bool focused = parent ? HasFocus() : focus == this;
    if (focused) {
        focus = nullptr;
        if (parent) parent->ClearFocus();
    }
    if (parent) parent->RemoveTimerClient(this);
    // Each child's destructor removes it from `children`.
    while (!children.empty()) delete children.front();
    if (parent) {
        parent->InvalidateArea(bounds);
        auto& siblings = parent->children;
        siblings.erase(std::remove(siblings.begin(), siblings.end(), this), siblings.end());
    }
    bitmap.reset();
    if (parent) parent->OnControlGone(this);
    --liveControls;
}

int Control::LiveCount() { return liveControls; }

NativeHandle Control::GetNativeWindow() { return parent ? parent->GetNativeWindow() : 0; }

void Control::AllocateBitmap() {
    if (!bitmap || bitmap->width < bounds.w || bitmap->height < bounds.h) {
        bitmap = std::make_unique<Bitmap>(BitmapExtent(std::max(0, bounds.w)),
                                          BitmapExtent(std::max(0, bounds.h)), 3);
    }
    Invalidate(nullptr);
}

void Control::SetSize(int w, int h) {
    if (w == bounds.w && h == bounds.h) return;
    // A size of 0 is accepted: such a control simply draws and composites nothing.
    if (parent) parent->InvalidateArea(bounds);
    bounds.w = w;
    bounds.h = h;
    Invalidate(nullptr);
    AllocateBitmap();
    if (parent) parent->InvalidateArea(bounds);
    OnResized(w, h);
}

void Control::SetPosition(int x, int y) {
    if (parent) parent->InvalidateArea(bounds);
    bounds.x = x;
    bounds.y = y;
    if (parent) parent->InvalidateArea(bounds);
}

void Control::SetBounds(int x, int y, int w, int h) {
    w = std::max(1, w);
    h = std::max(1, h);
    if (parent) parent->InvalidateArea(bounds);
    bounds = {x, y, w, h};
    AllocateBitmap();
    if (parent) parent->InvalidateArea(bounds);
    OnResized(w, h);
    Invalidate(nullptr);
}

bool Control::ContainsPoint(int x, int y) { return bounds.Contains(x, y); }

void Control::GetPreferredBounds(Rect& out) { out = Rect{}; }

void Control::CenterOnScreen() {
    auto* root = dynamic_cast<RootControl*>(Root());
    if (!root || !root->native) return;
    int screenW = 0;
    int screenH = 0;
    root->native->ScreenSize(screenW, screenH);
    SetPosition(screenW / 2 - bounds.w / 2, screenH / 2 - bounds.h / 2);
}

void Control::FitToContent(bool recurse) {
    if (recurse) {
        for (Control* child : children) child->FitToContent(false);
    }
    Rect preferred;
    GetPreferredBounds(preferred);
    SetSize(preferred.w, preferred.h);
}

void Control::Show() {
    visible = true;
    Invalidate(nullptr);
}

void Control::Hide() {
    // A hidden control adds no rect of its own, so the parent's area is named here; otherwise
    // the old pixels would stay on screen until something else repaints them.
    if (parent && visible) parent->InvalidateArea(bounds);
    visible = false;
    Invalidate(nullptr);
}

void Control::BringToFront(bool propagate) {
    if (!visible || !parent || parent->children.empty() || parent->children.front() == this) return;
    parent->InvalidateArea(bounds);
    auto& siblings = parent->children;
    auto it = std::find(siblings.begin(), siblings.end(), this);
    if (it != siblings.end()) std::rotate(siblings.begin(), it, it + 1);
    if (propagate) parent->BringToFront(true);
}

void Control::CaptureMouse() {
    if (!parent) return;
    parent->capture = this;
    parent->CaptureMouse();
}

void Control::ReleaseMouse() {
    if (!parent) return;
    parent->capture = nullptr;
    parent->ReleaseMouse();
}

void Control::ClearFocus() {
    focus = nullptr;
    if (parent) parent->ClearFocus();
}

bool Control::HasCapture() { return parent && parent->capture == this; }

bool Control::HasFocus(Control* control) {
    Control* asked = control ? control : this;
    return parent ? parent->HasFocus(asked) : focus == asked;
}

void Control::SetFocus(Control* control) {
    if (parent) parent->SetFocus(control ? control : this);
    BringToFront(true);
}

bool Control::OnDraw(Renderer& renderer, Rect clip) {
    DrawBackground(renderer, clip);
    return true;
}

void Control::DrawBackground(Renderer& renderer, const Rect& clip) {
    if (background) {
        // The renderer paints in the parent's coordinates, moved so they land in this bitmap.
        const double tx = renderer.TranslateX();
        const double ty = renderer.TranslateY();
        renderer.SetView(1.0, tx - bounds.x, ty - bounds.y);
        background->PaintBackground(renderer, Rect{clip.x + bounds.x, clip.y + bounds.y, clip.w, clip.h});
        renderer.SetView(1.0, tx, ty);
        return;
    }
    const float w = static_cast<float>(bounds.w);
    const float h = static_cast<float>(bounds.h);
    // Kind 0 paints nothing: the fill keeps whatever the bitmap held.
    Brush nothing = Brush::Solid(0xFFE6E6E6);
    nothing.kind = 0;
    renderer.FillRect(nothing, FloatRect{0, 0, w, h});
    for (int i = 0; i < 10; ++i) {
        float inset = 1.0f + 10.0f * i;
        float rw = w - 2.0f - 20.0f * i;
        float rh = h - 2.0f - 20.0f * i;
        if (rw <= 0 || rh <= 0) break;
        renderer.StrokeRect(Pen{0xFFDCDCDC, static_cast<float>(i)}, FloatRect{inset, inset, rw, rh});
    }
    renderer.StrokeRect(Pen{0xFF000000, 1.0f}, FloatRect{0, 0, w, h});
}

void Control::PaintUnderlay(Renderer& renderer, Color fill) {
    const Rect whole{0, 0, bounds.w, bounds.h};
    if (background) {
        DrawBackground(renderer, whole);
    } else {
        renderer.FillRect(Brush::Solid(fill), FloatRect{0, 0, float(bounds.w), float(bounds.h)});
    }
}

void Control::Invalidate(const Rect* r) {
    invalidated = true;
    if (visible) {
        Rect area = r ? *r : Rect{0, 0, bounds.w, bounds.h};
        if (!r) wholeArea = wholeAreaSecond = true;
        UnionRect(dirty, area);
        InvalidateArea(area);
    }
    QueueRedraw(this);
}

void Control::InvalidateArea(const Rect& r) {
    if (parent) parent->InvalidateArea(Rect{r.x + bounds.x, r.y + bounds.y, r.w, r.h});
}

void Control::OnControlGone(Control* control) {
    if (parent) parent->OnControlGone(control);
}

void Control::QueueRedraw(Control* control) {
    if (parent && !control->queued) parent->QueueRedraw(control);
}

void Control::AddTimerClient(Control* control) {
    if (parent) parent->AddTimerClient(control);
}

void Control::RemoveTimerClient(Control* control) {
    if (parent) parent->RemoveTimerClient(control);
}

void Control::AddChild(Control* child) {
    child->parent = this;
    children.push_back(child);
    child->Invalidate(nullptr);
}

void Control::DestroyChild(Control* child) { delete child; }

void Control::SetColorIndex(int index) {
    colorIndex = index;
    Invalidate(nullptr);
}

void Control::LocalToGlobal(int& x, int& y) const {
    for (const Control* c = this; c; c = c->parent) {
        x += c->bounds.x;
        y += c->bounds.y;
    }
}

void Control::GlobalToLocal(int& x, int& y) const {
    for (const Control* c = this; c; c = c->parent) {
        x -= c->bounds.x;
        y -= c->bounds.y;
    }
}

Control* Control::Root() {
    Control* c = this;
    while (c->parent) c = c->parent;
    return c;
}

Control* Control::FindControlAt(int x, int y) {
    if (!visible) return nullptr;
    Control* c = this;
    while (c->capture) {
        x -= c->capture->bounds.x;
        y -= c->capture->bounds.y;
        c = c->capture;
        if (!c->visible) return nullptr;
    }
    if (c->parent && c->parent->capture == c) return c;
    if (x < 0 || y < 0 || x >= c->bounds.w || y >= c->bounds.h) return nullptr;
    for (Control* child : c->children) {
        if (Control* hit = child->FindControlAt(x - child->bounds.x, y - child->bounds.y)) return hit;
    }
    return c;
}

void Control::Render() {
    if (!bitmap) AllocateBitmap();
    queued = false;
    if ((wholeArea || wholeAreaSecond || invalidated) && bounds.w > 0 && bounds.h > 0) {
        Renderer renderer(*bitmap);
        renderer.SetClip(Rect{0, 0, bounds.w, bounds.h});
        OnDraw(renderer, Rect{0, 0, bounds.w, bounds.h});
    }
    ClearDirtyFlags();
    dirty.w = -1;
    dirty.h = -1;
}

void Control::UpdateAbsolute(int parentX, int parentY) {
    absX = parentX + bounds.x;
    absY = parentY + bounds.y;
    absLeft = absX;
    absTop = absY;
    absRight = absX + bounds.w;
    absBottom = absY + bounds.h;
    for (Control* child : children) child->UpdateAbsolute(absX, absY);
}

void Control::CompositeSpan(int y, int x0, int x1, uint8_t* destRow) {
    if (x0 >= x1 || y < absTop || y >= absBottom) return;
    if (absLeft >= x1 || absRight < x0) return;
    int left = std::max(x0, absLeft);
    int right = std::min(x1, absRight);
    if (left >= right) return;
    int row = y - absY;
    if (bitmap && row < bitmap->height && right - absX <= bitmap->width) {
        std::memcpy(destRow + left * 3, bitmap->Row(row) + (left - absX) * 3, (right - left) * 3);
    }
    // The last child first, so index 0 is written last and stands on top.
    for (auto it = children.rbegin(); it != children.rend(); ++it) {
        if ((*it)->visible) (*it)->CompositeSpan(y, left, right, destRow);
    }
}

}  // namespace G
