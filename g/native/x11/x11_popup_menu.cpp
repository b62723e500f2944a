// Popup menus: panels drawn by the toolkit in override-redirect windows, run in a modal loop
// with the pointer and keyboard grabbed. Hover highlights, submenus open to the side, arrow
// keys, Return and Escape work; a click outside dismisses.
#include <X11/Xlib.h>
#include <X11/keysym.h>

#include <algorithm>
#include <cstdlib>

#include "engine/log.h"
#include "g/bitmap.h"
#include "g/menu.h"
#include "g/native/x11/x11_internal.h"
#include "g/renderer.h"
#include "g/theme.h"

namespace G::x11 {

namespace {

constexpr int kTextLeft = 24;
constexpr int kArrowSpace = 28;
constexpr int kMinWidth = 100;
constexpr int kGrabTries = 50;
constexpr int kGrabRetryMs = 20;
// A release this close to where the menu opened ends the opening click, not a choice.
constexpr int kArmDistance = 3;

bool IsSelectable(const MenuItem& item) { return !item.IsSeparator(); }

class MenuSession : public EventSink {
public:
    MenuSession(WindowId owner, int screenW, int screenH)
        : owner(owner), screenW(screenW), screenH(screenH) {}

    int Run(const MenuItem& menu, int x, int y) {
        startX = x;
        startY = y;
        Open(menu, x, y, x, y, false);
        if (!Grab()) {
            Log(1, "X11: the popup menu could not grab the pointer");
            return 0;
        }
        Connection::Get()->RunModal(this, [this] { return done; });
        Display* display = Connection::Get()->display;
        XUngrabKeyboard(display, CurrentTime);
        XUngrabPointer(display, CurrentTime);
        panels.clear();
        return result;
    }

    void HandleEvent(XEvent& event) override {
        switch (event.type) {
            case Expose:
                for (Panel& panel : panels) {
                    if (panel.window->Id() == event.xexpose.window) panel.window->Present(ExposedArea(event));
                }
                break;
            case MotionNotify:
                OnMotion(event.xmotion.x_root, event.xmotion.y_root);
                break;
            case ButtonPress:
                if (event.xbutton.button <= Button3) OnPress(event.xbutton.x_root, event.xbutton.y_root);
                break;
            case ButtonRelease:
                if (event.xbutton.button <= Button3) OnRelease(event.xbutton.x_root, event.xbutton.y_root);
                break;
            case KeyPress:
                OnKey(XLookupKeysym(&event.xkey, 0));
                break;
            default:
                break;
        }
    }

private:
    struct Panel {
        const MenuItem* menu;
        MenuPanelLayout layout;
        std::unique_ptr<ToolkitWindow> window;
        int hot = -1;
    };

    void Open(const MenuItem& menu, int x, int y, int alternateX, int alternateY, bool hotFirst) {
        std::vector<int> widths;
        for (const auto& item : menu.children) {
            widths.push_back(
                item->IsSeparator()
                    ? -1
                    : static_cast<int>(Renderer::MeasureText(item->caption, theme::NormalFont()).width));
        }
        Panel panel{&menu, LayoutMenuPanel(widths, x, y, alternateX, alternateY, screenW, screenH), nullptr};
        panel.window = std::make_unique<ToolkitWindow>(ToolkitWindow::Kind::Menu, panel.layout.screenRect,
                                                       "menu", owner, this);
        if (hotFirst) panel.hot = Step(panel, -1, 1);
        panels.push_back(std::move(panel));
        Render(panels.back());
        panels.back().window->Show();
    }

    // The submenu of the hot item of panel `index`, to its right (or left where it must).
    void OpenSubmenu(size_t index, bool hotFirst) {
        Panel& parent = panels[index];
        const MenuItem& item = *parent.menu->children[parent.hot];
        const Rect& box = parent.layout.screenRect;
        const Rect& itemRect = parent.layout.items[parent.hot];
        int top = box.y + itemRect.y - MenuPanelLayout::kBorder;
        Open(item, box.x + box.w - 2, top, box.x + 2, top + itemRect.h + 2 * MenuPanelLayout::kBorder,
             hotFirst);
    }

    void CloseAfter(size_t index) {
        while (panels.size() > index + 1) panels.pop_back();
    }

    // The next selectable item from `from` in direction `step`, wrapping; -1 for none.
    static int Step(const Panel& panel, int from, int step) {
        int count = static_cast<int>(panel.menu->children.size());
        if (from < 0) from = step > 0 ? -1 : count;
        for (int k = 1; k <= count; ++k) {
            int i = ((from + step * k) % count + count) % count;
            if (IsSelectable(*panel.menu->children[i])) return i;
        }
        return -1;
    }

    // The panel and item under a screen point; item -1 on a separator or border.
    bool Find(int x, int y, int& panelIndex, int& item) const {
        for (int p = static_cast<int>(panels.size()) - 1; p >= 0; --p) {
            const Rect& box = panels[p].layout.screenRect;
            if (!box.Contains(x, y)) continue;
            panelIndex = p;
            item = -1;
            const auto& items = panels[p].layout.items;
            for (size_t i = 0; i < items.size(); ++i) {
                if (items[i].Contains(x - box.x, y - box.y) && IsSelectable(*panels[p].menu->children[i]))
                    item = static_cast<int>(i);
            }
            return true;
        }
        return false;
    }

    void SetHot(size_t index, int item, bool openSubmenu) {
        Panel& panel = panels[index];
        if (panel.hot == item) return;
        CloseAfter(index);
        panel.hot = item;
        Draw(panel);
        if (openSubmenu && item >= 0 && !panel.menu->children[item]->children.empty())
            OpenSubmenu(index, false);
    }

    void OnMotion(int x, int y) {
        if (std::abs(x - startX) > kArmDistance || std::abs(y - startY) > kArmDistance) armed = true;
        int p = 0;
        int item = -1;
        if (Find(x, y, p, item)) {
            SetHot(p, item, true);
        } else if (panels.back().hot >= 0) {
            panels.back().hot = -1;
            Draw(panels.back());
        }
    }

    void OnPress(int x, int y) {
        armed = true;
        int p = 0;
        int item = -1;
        if (!Find(x, y, p, item)) Finish(0);
    }

    void OnRelease(int x, int y) {
        int p = 0;
        int item = -1;
        if (!armed || !Find(x, y, p, item) || item < 0) return;
        const MenuItem& chosen = *panels[p].menu->children[item];
        if (chosen.children.empty()) Finish(chosen.id);
    }

    void OnKey(unsigned long keysym) {
        Panel& panel = panels.back();
        size_t last = panels.size() - 1;
        switch (keysym) {
            case XK_Escape:
                if (last == 0) {
                    Finish(0);
                } else {
                    CloseAfter(last - 1);
                }
                break;
            case XK_Left:
            case XK_KP_Left:
                if (last > 0) CloseAfter(last - 1);
                break;
            case XK_Up:
            case XK_KP_Up:
            case XK_Down:
            case XK_KP_Down: {
                bool down = keysym == XK_Down || keysym == XK_KP_Down;
                SetHot(last, Step(panel, panel.hot, down ? 1 : -1), false);
                break;
            }
            case XK_Right:
            case XK_KP_Right:
                if (panel.hot >= 0 && !panel.menu->children[panel.hot]->children.empty())
                    OpenSubmenu(last, true);
                break;
            case XK_Return:
            case XK_KP_Enter:
            case XK_space:
                if (panel.hot < 0) break;
                if (panel.menu->children[panel.hot]->children.empty()) {
                    Finish(panel.menu->children[panel.hot]->id);
                } else {
                    OpenSubmenu(last, true);
                }
                break;
            default:
                break;
        }
    }

    void Finish(int id) {
        result = id;
        done = true;
    }

    bool Grab() {
        Display* display = Connection::Get()->display;
        WindowId window = panels.front().window->Id();
        // Another client may hold a grab for a moment (a window manager finishing a click).
        for (int attempt = 0; attempt < kGrabTries; ++attempt) {
            int status =
                XGrabPointer(display, window, False, ButtonPressMask | ButtonReleaseMask | PointerMotionMask,
                             GrabModeAsync, GrabModeAsync, None, None, CurrentTime);
            if (status == GrabSuccess) {
                XGrabKeyboard(display, window, False, GrabModeAsync, GrabModeAsync, CurrentTime);
                return true;
            }
            Connection::Get()->RunOnce(kGrabRetryMs);
        }
        return false;
    }

    void Draw(Panel& panel) {
        Render(panel);
        panel.window->Present();
    }

    void Render(Panel& panel) {
        Bitmap& canvas = panel.window->Canvas();
        Renderer renderer(canvas);
        const Font* font = theme::NormalFont();
        Rect all{0, 0, canvas.width, canvas.height};
        FillBox(renderer, all, theme::Palette(0));
        FrameBox(renderer, all, theme::Palette(28));
        Color text = theme::Palette(theme::kTextColor);
        for (size_t i = 0; i < panel.layout.items.size(); ++i) {
            const MenuItem& item = *panel.menu->children[i];
            const Rect& r = panel.layout.items[i];
            if (item.IsSeparator()) {
                FillBox(renderer, Rect{r.x + 4, r.y + r.h / 2, r.w - 8, 1}, theme::Palette(10));
                continue;
            }
            if (panel.hot == static_cast<int>(i)) {
                FillBox(renderer, r, theme::Palette(32));
                FrameBox(renderer, r, theme::Palette(theme::kAccent));
            }
            renderer.DrawText(item.caption, Rect{r.x + kTextLeft, r.y, r.w - kTextLeft - kArrowSpace, r.h},
                              font, TextAlign{0, 1}, text);
            if (!item.children.empty()) {
                float ax = static_cast<float>(r.x + r.w - 14);
                float ay = static_cast<float>(r.y + r.h / 2);
                FloatPoint arrow[3] = {{ax, ay - 4}, {ax + 4, ay}, {ax, ay + 4}};
                renderer.FillPolygon(Brush::Solid(text), arrow, 3);
            }
        }
    }

    WindowId owner;
    int screenW;
    int screenH;
    int startX = 0;
    int startY = 0;
    std::vector<Panel> panels;
    bool armed = false;
    bool done = false;
    int result = 0;
};

}  // namespace

MenuPanelLayout LayoutMenuPanel(const std::vector<int>& captionWidths, int x, int y, int alternateX,
                                int alternateY, int screenW, int screenH) {
    constexpr int kBorder = MenuPanelLayout::kBorder;
    int widest = 0;
    for (int w : captionWidths) widest = std::max(widest, w);
    int innerW = std::max(kMinWidth, widest + kTextLeft + kArrowSpace);
    MenuPanelLayout layout;
    int top = kBorder;
    for (int w : captionWidths) {
        int h = w < 0 ? MenuPanelLayout::kSeparatorHeight : MenuPanelLayout::kItemHeight;
        layout.items.push_back(Rect{kBorder, top, innerW, h});
        top += h;
    }
    int w = innerW + 2 * kBorder;
    int h = top + kBorder;
    if (x + w > screenW) x = alternateX - w;
    if (y + h > screenH) y = alternateY - h;
    x = std::clamp(x, 0, std::max(0, screenW - w));
    y = std::clamp(y, 0, std::max(0, screenH - h));
    layout.screenRect = Rect{x, y, w, h};
    return layout;
}

int RunPopupMenu(WindowId owner, const MenuItem& menu, int screenX, int screenY) {
    Connection* c = Connection::Get();
    if (!c || menu.children.empty()) return 0;
    ThemeReference themeReference;
    MenuSession session(owner, DisplayWidth(c->display, c->screen), DisplayHeight(c->display, c->screen));
    return session.Run(menu, screenX, screenY);
}

}  // namespace G::x11
