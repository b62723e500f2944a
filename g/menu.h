// Popup menus: a tree of items built by chaining Add, run modally by the native layer, which
// returns the chosen id (0 for none) and sends no command.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace G {

class Control;
class MenuItem;

// What the items of one tree share.
struct MenuShared {
    unsigned flags = 0;
    MenuItem* root = nullptr;
};

class MenuItem {
public:
    MenuItem(int id, std::string caption);
    virtual ~MenuItem();

    // Appends a child and returns it. An item with children is a submenu; its id is unused.
    MenuItem* Add(int id, const std::string& caption);
    // A separator line.
    MenuItem* AddSeparator() { return Add(0, std::string()); }
    bool IsSeparator() const { return caption.empty() && children.empty(); }

    std::shared_ptr<MenuShared> shared;
    std::string caption;
    int id;
    std::vector<std::unique_ptr<MenuItem>> children;
};

class RightClickMenu : public MenuItem {
public:
    // Return the chosen id, send no notification.
    static constexpr unsigned kFlags = 0x180;

    explicit RightClickMenu(Control* owner);

    // Runs at a screen point. Without an owner logs "NO PARENT FOR RIGHTCLICK!" and returns 0.
    int Run(int screenX, int screenY);
    // Runs at a point in `control`'s client coordinates.
    int RunAt(Control* control, int x, int y);

    Control* owner;
};

}  // namespace G
