// FocusTarget: keys to the canvas.
#include "editor/focus_target.h"

#include "editor/vrok_doc_window.h"

namespace editor {

FocusTarget::FocusTarget(VrokDocWindow* canvasWindow) : G::CustomControl(canvasWindow), canvas(canvasWindow) {
    visible = false;
}

bool FocusTarget::OnKeyDown(int key) {
    canvas->OnKeyDown(key);
    return true;
}

bool FocusTarget::OnKeyUp(int key) {
    canvas->OnKeyUp(key);
    return true;
}

}  // namespace editor
