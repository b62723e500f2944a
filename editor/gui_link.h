// The link from a persistent object to the windows that show it. A window that changes an
// object tells the object's other windows, naming itself as the origin so that its own widget,
// which caused the change, is not written back. Undo and redo arrive with origin -1.
#pragma once

#include "document/storable.h"

namespace editor {

class EditorGui : public StorableGui {
public:
    EditorGui();
    // Positive and unique among the windows of the process; never -1 or 0, which the document
    // uses for undo and removal.
    int Token() const { return token; }

    // Registers with `storable` (once) or leaves it.
    void Attach(Storable* storable);
    void Detach(Storable* storable);

private:
    int token;
};

// Calls StorableChanged(origin's token, storable) on every window of `storable`; a null origin
// counts as a change from outside (-1).
void TellChanged(Storable* storable, const EditorGui* origin);

}  // namespace editor
