// Popup menu trees and running them through the owner's native window.
#include "g/menu.h"

#include "engine/log.h"
#include "g/root_control.h"

namespace G {

MenuItem::MenuItem(int itemId, std::string text)
    : shared(std::make_shared<MenuShared>()), caption(std::move(text)), id(itemId) {
    shared->root = this;
}

MenuItem::~MenuItem() = default;

MenuItem* MenuItem::Add(int itemId, const std::string& text) {
    auto child = std::make_unique<MenuItem>(itemId, text);
    child->shared = shared;
    children.push_back(std::move(child));
    return children.back().get();
}

RightClickMenu::RightClickMenu(Control* ownerControl) : MenuItem(0, std::string()), owner(ownerControl) {
    shared->flags = kFlags;
}

int RightClickMenu::Run(int screenX, int screenY) {
    if (!owner) {
        Log(1, "NO PARENT FOR RIGHTCLICK!");
        return 0;
    }
    auto* root = dynamic_cast<RootControl*>(owner->Root());
    if (!root || !root->native) return 0;
    return root->native->RunPopupMenu(*this, screenX, screenY, shared->flags);
}

int RightClickMenu::RunAt(Control* control, int x, int y) {
    if (!owner) return Run(0, 0);
    control->LocalToGlobal(x, y);
    auto* root = dynamic_cast<RootControl*>(control->Root());
    if (root && root->native) root->native->ClientToScreen(x, y);
    return Run(x, y);
}

}  // namespace G
