// A NativeWindow with no display: records what the tree asks of the platform and lets tests
// send synthetic messages. PaintNow runs the paint pass into the in-memory surface.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "g/keys.h"
#include "g/menu.h"
#include "g/native_window.h"
#include "g/root_control.h"

namespace gtest_support {

class FakeNativeWindow : public G::NativeWindow {
public:
    FakeNativeWindow(int w, int h) : width(w), height(h) {}

    void SetClientSize(int w, int h) override {
        width = w;
        height = h;
    }
    void ClientSize(int& w, int& h) override {
        w = width;
        h = height;
    }
    void ShowAndRaise() override { shown = true; }
    void SetTitle(const std::wstring& t) override { title = t; }
    void SetCapture() override { captured = true; }
    void ReleaseCapture() override { captured = false; }
    void RequestMouseLeave() override {}
    void ClientToScreen(int& x, int& y) override {
        x += screenX;
        y += screenY;
    }
    void ScreenToClient(int& x, int& y) override {
        x -= screenX;
        y -= screenY;
    }
    void ScreenSize(int& w, int& h) override {
        w = 1920;
        h = 1080;
    }
    void CursorPosition(int& x, int& y) override {
        x = cursorX;
        y = cursorY;
    }
    void InvalidateRect(const G::Rect&) override { paintPending = true; }
    void PaintNow() override {
        ++paintNowCalls;
        if (!paintPending) return;
        paintPending = false;
        Send(G::NativeEventKind::Paint);
    }
    void PresentSurface(const G::Rect& area) override { presented.push_back(area); }
    void SetClipboardText(const std::string& text) override { clipboard = text; }
    std::string ClipboardText() override { return clipboard; }
    int RunPopupMenu(const G::MenuItem& menu, int x, int y, unsigned flags) override {
        menuShown = &menu;
        menuX = x;
        menuY = y;
        menuFlags = flags;
        return menuAnswer;
    }
    G::MessageBoxResult ShowMessageBox(const std::string&, const std::string&, G::MessageBoxKind) override {
        return G::MessageBoxResult::Ok;
    }
    bool OpenFileDialog(const G::FileDialogRequest&, std::string&) override { return false; }
    bool SaveFileDialog(const G::FileDialogRequest&, std::string&) override { return false; }
    bool OpenUrl(const std::string& address) override {
        openedUrls.push_back(address);
        return true;
    }

    // [SECTION] Synthetic messages
    bool Send(G::NativeEventKind kind, int x = 0, int y = 0, unsigned modifiers = 0) {
        G::NativeEvent event;
        event.kind = kind, event.x = x, event.y = y, event.modifiers = modifiers;
        return Dispatch(event);
    }
    bool Key(G::NativeEventKind kind, int key, unsigned modifiers = 0) {
        G::NativeEvent event;
        event.kind = kind, event.key = key, event.modifiers = modifiers;
        return Dispatch(event);
    }
    bool Wheel(int delta, bool horizontal = false) {
        G::NativeEvent event;
        event.kind = horizontal ? G::NativeEventKind::HWheel : G::NativeEventKind::Wheel;
        event.wheelDelta = delta;
        return Dispatch(event);
    }
    bool Drop(const std::string& path) {
        return Dispatch({.kind = G::NativeEventKind::DropFiles, .files = {path}});
    }
    void Move(int x, int y, unsigned modifiers = 0) { Send(G::NativeEventKind::MouseMove, x, y, modifiers); }
    // Move, press and release the left button at one point.
    void Click(int x, int y) { Drag(x, y, x, y); }
    void Drag(int x0, int y0, int x1, int y1) {
        Move(x0, y0);
        Send(G::NativeEventKind::LeftDown, x0, y0);
        Move(x1, y1);
        Send(G::NativeEventKind::LeftUp, x1, y1);
    }

    // Surface pixel at window coordinates, as 0xRRGGBB.
    uint32_t Pixel(int x, int y) const {
        const uint8_t* p =
            surface.data() + (static_cast<size_t>(surfaceHeight - 1 - y) * surfaceRowLength + x) * 3;
        return (uint32_t{p[2]} << 16) | (uint32_t{p[1]} << 8) | p[0];
    }

    int width;
    int height;
    bool shown = false;
    bool captured = false;
    bool paintPending = false;
    int paintNowCalls = 0;
    int screenX = 100;
    int screenY = 50;
    int cursorX = 0;
    int cursorY = 0;
    std::wstring title;
    std::string clipboard;
    std::vector<G::Rect> presented;
    std::vector<std::string> openedUrls;
    const G::MenuItem* menuShown = nullptr;
    int menuX = 0;
    int menuY = 0;
    unsigned menuFlags = 0;
    int menuAnswer = 0;
};

// A root of the given size over a fake native window, shown and painted once.
struct FakeScreen {
    FakeScreen(int w = 400, int h = 300) {
        auto owned = std::make_unique<FakeNativeWindow>(w, h);
        native = owned.get();
        root = std::make_unique<G::RootControl>(std::move(owned));
        native->Send(G::NativeEventKind::Size, w, h);
        root->ShowTop();
        native->PaintNow();
    }
    FakeNativeWindow* native;
    std::unique_ptr<G::RootControl> root;
};

}  // namespace gtest_support
