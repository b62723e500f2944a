// The windows of menus and dialogs, which the toolkit draws itself with its Renderer, and the
// drawing pieces they share: boxes, frames and a row of push buttons.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>

#include <algorithm>

#include "g/bitmap.h"
#include "g/native/x11/x11_internal.h"
#include "g/renderer.h"
#include "g/theme.h"

namespace G::x11 {

namespace {

constexpr int kShowTimeoutMs = 1000;

// The top-level ancestor of a window: the one whose parent is the root.
WindowId TopLevelOf(Connection& c, WindowId window) {
    for (;;) {
        Window root = 0;
        Window parent = 0;
        Window* children = nullptr;
        unsigned count = 0;
        if (!XQueryTree(c.display, window, &root, &parent, &children, &count)) return window;
        if (children) XFree(children);
        if (parent == root || parent == 0) return window;
        window = parent;
    }
}

}  // namespace

ThemeReference::ThemeReference() { theme::Acquire(); }
ThemeReference::~ThemeReference() { theme::Release(); }

ToolkitWindow::ToolkitWindow(Kind kind, const Rect& screenRect, const std::string& title, WindowId owner,
                             EventSink* sink)
    : kind(kind), rect(screenRect) {
    rect.w = std::max(rect.w, 1);
    rect.h = std::max(rect.h, 1);
    Connection& c = *Connection::Get();
    XSetWindowAttributes attributes{};
    attributes.background_pixel = WhitePixel(c.display, c.screen);
    attributes.event_mask = ExposureMask | KeyPressMask | KeyReleaseMask | ButtonPressMask |
                            ButtonReleaseMask | PointerMotionMask | StructureNotifyMask;
    attributes.override_redirect = kind == Kind::Menu;
    attributes.save_under = kind == Kind::Menu;
    window = XCreateWindow(c.display, c.rootWindow, rect.x, rect.y, rect.w, rect.h, 0, CopyFromParent,
                           InputOutput, CopyFromParent,
                           CWBackPixel | CWEventMask | CWOverrideRedirect | CWSaveUnder, &attributes);
    AtomId type = kind == Kind::Menu ? c.atoms.netWmWindowTypePopupMenu : c.atoms.netWmWindowTypeDialog;
    XChangeProperty(c.display, window, c.atoms.netWmWindowType, XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<unsigned char*>(&type), 1);
    XChangeProperty(c.display, window, c.atoms.netWmName, c.atoms.utf8String, 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(title.data()), static_cast<int>(title.size()));
    XStoreName(c.display, window, title.c_str());
    if (kind == Kind::Dialog) {
        XSetWMProtocols(c.display, window, &c.atoms.wmDeleteWindow, 1);
        if (owner) XSetTransientForHint(c.display, window, TopLevelOf(c, owner));
        XSizeHints hints{};
        hints.flags = USPosition | PMinSize | PMaxSize;
        hints.x = rect.x;
        hints.y = rect.y;
        hints.min_width = hints.max_width = rect.w;
        hints.min_height = hints.max_height = rect.h;
        XSetWMNormalHints(c.display, window, &hints);
    }
    canvas = std::make_unique<Bitmap>(rect.w, rect.h, 3);
    presenter = std::make_unique<ImagePresenter>(window);
    c.Register(window, sink);
}

ToolkitWindow::~ToolkitWindow() {
    Connection& c = *Connection::Get();
    presenter.reset();
    c.Unregister(window);
    XDestroyWindow(c.display, window);
    XFlush(c.display);
}

void ToolkitWindow::Show() {
    Connection& c = *Connection::Get();
    XMapRaised(c.display, window);
    XEvent mapped;
    c.WaitForEvent(window, MapNotify, mapped, kShowTimeoutMs);
    if (kind == Kind::Dialog) XSetInputFocus(c.display, window, RevertToParent, CurrentTime);
    Present();
}

void ToolkitWindow::Present(const Rect& area) {
    presenter->Present(canvas->data.get(), canvas->width, canvas->height, canvas->width, false, area);
}

bool ToolkitWindow::IsCloseRequest(const XEvent& event) const {
    const Atoms& a = Connection::Get()->atoms;
    return event.type == ClientMessage && event.xclient.message_type == a.wmProtocols &&
           static_cast<AtomId>(event.xclient.data.l[0]) == a.wmDeleteWindow;
}

Rect ExposedArea(const XEvent& expose) {
    return Rect{expose.xexpose.x, expose.xexpose.y, expose.xexpose.width, expose.xexpose.height};
}

Rect CentredOn(WindowId owner, int w, int h) {
    Connection& c = *Connection::Get();
    Rect area{0, 0, DisplayWidth(c.display, c.screen), DisplayHeight(c.display, c.screen)};
    XWindowAttributes attributes;
    if (owner) {
        WindowId top = TopLevelOf(c, owner);
        Window child = 0;
        if (XGetWindowAttributes(c.display, top, &attributes) && attributes.map_state == IsViewable &&
            XTranslateCoordinates(c.display, top, c.rootWindow, 0, 0, &area.x, &area.y, &child)) {
            area.w = attributes.width;
            area.h = attributes.height;
        }
    }
    int screenW = DisplayWidth(c.display, c.screen);
    int screenH = DisplayHeight(c.display, c.screen);
    int x = std::clamp(area.x + (area.w - w) / 2, 0, std::max(0, screenW - w));
    int y = std::clamp(area.y + (area.h - h) / 2, 0, std::max(0, screenH - h));
    return Rect{x, y, w, h};
}

void FillBox(Renderer& renderer, const Rect& r, Color color) {
    renderer.FillRect(Brush::Solid(color), FloatRect{static_cast<float>(r.x), static_cast<float>(r.y),
                                                     static_cast<float>(r.w), static_cast<float>(r.h)});
}

void FrameBox(Renderer& renderer, const Rect& r, Color color) {
    FillBox(renderer, Rect{r.x, r.y, r.w, 1}, color);
    FillBox(renderer, Rect{r.x, r.y + r.h - 1, r.w, 1}, color);
    FillBox(renderer, Rect{r.x, r.y, 1, r.h}, color);
    FillBox(renderer, Rect{r.x + r.w - 1, r.y, 1, r.h}, color);
}

// [SECTION] ButtonRow

void ButtonRow::Layout(const std::vector<std::string>& newCaptions, int windowWidth, int y, bool centred) {
    constexpr int kGap = 10;
    constexpr int kMargin = 12;
    captions = newCaptions;
    rects.clear();
    int count = static_cast<int>(captions.size());
    int total = count * kWidth + (count - 1) * kGap;
    int x = centred ? (windowWidth - total) / 2 : windowWidth - kMargin - total;
    for (int i = 0; i < count; ++i) rects.push_back(Rect{x + i * (kWidth + kGap), y, kWidth, kHeight});
}

void ButtonRow::Draw(Renderer& renderer) const {
    const Font* font = theme::NormalFont();
    for (size_t i = 0; i < rects.size(); ++i) {
        const Rect& r = rects[i];
        bool isPressed = pressed == static_cast<int>(i) && hover == pressed;
        Color fill = isPressed                      ? theme::Palette(23)
                     : hover == static_cast<int>(i) ? theme::Palette(32)
                                                    : theme::Palette(25);
        FillBox(renderer, r, fill);
        FrameBox(renderer, r, theme::Palette(focus == static_cast<int>(i) ? theme::kAccent : 28));
        if (focus == static_cast<int>(i))
            FrameBox(renderer, Rect{r.x + 1, r.y + 1, r.w - 2, r.h - 2}, theme::Palette(theme::kAccent));
        renderer.DrawText(captions[i], r, font, TextAlign{1, 1}, theme::Palette(theme::kTextColor));
    }
}

int ButtonRow::At(int x, int y) const {
    for (size_t i = 0; i < rects.size(); ++i) {
        if (rects[i].Contains(x, y)) return static_cast<int>(i);
    }
    return -1;
}

bool ButtonRow::Move(int x, int y) {
    int now = At(x, y);
    if (now == hover) return false;
    hover = now;
    return true;
}

bool ButtonRow::Press(int x, int y) {
    Move(x, y);
    pressed = hover;
    if (pressed >= 0) focus = pressed;
    return pressed >= 0;
}

int ButtonRow::Release(int x, int y) {
    Move(x, y);
    int chosen = pressed >= 0 && pressed == hover ? pressed : -1;
    pressed = -1;
    return chosen;
}

void ButtonRow::FocusNext(int step) {
    int count = static_cast<int>(rects.size());
    if (count > 0) focus = ((focus + step) % count + count) % count;
}

}  // namespace G::x11
