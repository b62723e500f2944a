// An editor over a fake native window: a document emptied to its global record, the container
// with its canvas, and helpers to press, drag and type in canvas coordinates. Menus answer by
// caption path ("Generate/Oscillator") and record what they offered.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "document/vrok_doc.h"
#include "editor/vrok_block_window.h"
#include "editor/vrok_connection_window.h"
#include "editor/vrok_container_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/vrok_instance.h"
#include "g/fake_native.h"
#include "g/menu.h"

namespace editortest {

using G::NativeEventKind;

class MenuNative : public gtest_support::FakeNativeWindow {
public:
    using FakeNativeWindow::FakeNativeWindow;

    int RunPopupMenu(const G::MenuItem& menu, int x, int y, unsigned flags) override {
        offered.clear();
        Flatten(menu, "");
        ++menusRun;
        menuX = x;
        menuY = y;
        int id = 0;
        for (const auto& [path, itemId] : offered)
            if (path == answer) id = itemId;
        return id;
    }
    G::MessageBoxResult ShowMessageBox(const std::string& text, const std::string& title,
                                       G::MessageBoxKind) override {
        messages.push_back(title + ": " + text);
        return boxAnswer;
    }
    bool OpenFileDialog(const G::FileDialogRequest& request, std::string& path) override {
        dialogs.push_back(request.title);
        path = dialogPath;
        return !dialogPath.empty();
    }
    bool SaveFileDialog(const G::FileDialogRequest& request, std::string& path) override {
        return OpenFileDialog(request, path);
    }
    bool Offered(const std::string& path) const {
        for (const auto& entry : offered)
            if (entry.first == path) return true;
        return false;
    }

    std::string answer;  // caption path of the item to choose; empty dismisses
    std::vector<std::pair<std::string, int>> offered;
    int menusRun = 0;
    G::MessageBoxResult boxAnswer = G::MessageBoxResult::Yes;
    std::vector<std::string> messages;
    std::vector<std::string> dialogs;
    std::string dialogPath;

private:
    void Flatten(const G::MenuItem& item, const std::string& prefix) {
        for (const auto& child : item.children) {
            const std::string path = prefix.empty() ? child->caption : prefix + "/" + child->caption;
            if (child->children.empty()) {
                offered.emplace_back(path, child->id);
            } else {
                Flatten(*child, path);
            }
        }
    }
};

// Canvas coordinates are window coordinates moved up by the top bar.
constexpr int kTop = 18;

struct Editor {
    explicit Editor(int w = 900, int h = 600) {
        doc.ClearAll();
        doc.changed = false;  // as a freshly opened patch
        auto owned = std::make_unique<MenuNative>(w, h);
        native = owned.get();
        window = std::make_unique<editor::VrokContainerWindow>(std::move(owned), doc, w, h);
        native->Send(NativeEventKind::Size, w, h);
        window->ShowTop();
        native->PaintNow();
    }
    editor::VrokDocWindow& Canvas() { return *window->docWindow; }

    // [Gestures] in canvas coordinates.
    void Move(int x, int y, unsigned modifiers = 0) { native->Move(x, y + kTop, modifiers); }
    void Down(int x, int y, unsigned modifiers = 0) {
        Move(x, y, modifiers);
        native->Send(NativeEventKind::LeftDown, x, y + kTop, modifiers);
    }
    void Up(int x, int y, unsigned modifiers = 0) {
        native->Send(NativeEventKind::LeftUp, x, y + kTop, modifiers);
    }
    void Drag(int x0, int y0, int x1, int y1, unsigned modifiers = 0) {
        Down(x0, y0, modifiers);
        Move((x0 + x1) / 2, (y0 + y1) / 2, modifiers);
        Move(x1, y1, modifiers);
        Up(x1, y1, modifiers);
    }
    void Click(int x, int y, unsigned modifiers = 0) { Drag(x, y, x, y, modifiers); }
    void RightClick(int x, int y, const std::string& answer) {
        native->answer = answer;
        Move(x, y);
        native->Send(NativeEventKind::RightDown, x, y + kTop);
        native->Send(NativeEventKind::RightUp, x, y + kTop);
        native->answer.clear();
    }
    void Key(int key, unsigned modifiers = 0) {
        native->Key(NativeEventKind::KeyDown, key, modifiers);
        native->Key(NativeEventKind::KeyUp, key, modifiers);
    }
    void Paint() { native->PaintNow(); }

    // [Building] Blocks made the way a user makes them: from the canvas menu at a click.
    PatchBlock* AddFromMenu(const std::string& path, int x, int y) {
        const size_t before = doc.patchBlocks.size();
        RightClick(x, y, path);
        return doc.patchBlocks.size() > before ? doc.patchBlocks.back().get() : nullptr;
    }
    editor::VrokBlockWindow* WindowOf(const PatchBlock* patchBlock) { return Canvas().WindowOf(patchBlock); }
    // Where a block's output arrow and input ports sit, in canvas coordinates.
    G::Rect Arrow(const PatchBlock* b) {
        const G::Rect& r = WindowOf(b)->bounds;
        return G::Rect{r.x + r.w - 7, r.y + 6, 1, 1};
    }
    G::Rect Port(const PatchBlock* b, int port) {
        const G::Rect& r = WindowOf(b)->bounds;
        return G::Rect{r.x + 5, r.y + WindowOf(b)->PortY(port), 1, 1};
    }
    // Drags a wire from `from`'s arrow to `to`'s input port.
    void Wire(const PatchBlock* from, const PatchBlock* to, int port) {
        const G::Rect a = Arrow(from);
        const G::Rect p = Port(to, port);
        Drag(a.x, a.y, p.x, p.y);
    }
    // A point on a block's title strip, clear of its buttons.
    G::Rect Title(const PatchBlock* b) {
        const G::Rect& r = WindowOf(b)->bounds;
        return G::Rect{r.x + 40, r.y + 5, 1, 1};
    }

    VrokDoc doc;
    MenuNative* native = nullptr;
    std::unique_ptr<editor::VrokContainerWindow> window;
};

// Undo steps (actions), not items: one step may hold several objects.
inline size_t UndoSteps(const VrokDoc& doc) {
    std::set<int> tags;
    for (const auto& item : doc.undoList) tags.insert(item->action);
    return tags.size();
}

// The engine's live wires as (from slot, to slot, port).
inline std::vector<std::tuple<int, int, int>> LiveWires(const VrokDoc& doc) {
    std::vector<std::tuple<int, int, int>> wires;
    for (const Connection& c : doc.engine->connections)
        if (c.inUse) wires.emplace_back(c.fromBlock, c.toBlock, c.toPort);
    std::sort(wires.begin(), wires.end());
    return wires;
}

}  // namespace editortest
