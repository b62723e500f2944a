// Window tokens and change notification.
#include "editor/gui_link.h"

#include <algorithm>
#include <vector>

namespace editor {
namespace {
int nextToken = 1;
}  // namespace

EditorGui::EditorGui() : token(nextToken++) {}

void EditorGui::Attach(Storable* storable) {
    if (!storable) return;
    auto& list = storable->listeners;
    if (std::find(list.begin(), list.end(), this) == list.end()) list.push_back(this);
}

void EditorGui::Detach(Storable* storable) {
    if (storable) std::erase(storable->listeners, static_cast<StorableGui*>(this));
}

void TellChanged(Storable* storable, const EditorGui* origin) {
    if (!storable) return;
    // A window may leave the list while being told.
    const std::vector<StorableGui*> listeners = storable->listeners;
    for (StorableGui* gui : listeners) gui->StorableChanged(origin ? origin->Token() : -1, storable);
}

}  // namespace editor
