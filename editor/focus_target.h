// FocusTarget: a hidden control that takes the keyboard after every mouse gesture on the canvas
// and hands every key to the canvas, so shortcuts work wherever the pointer was.
#pragma once

#include "g/control.h"

namespace editor {

class VrokDocWindow;

class FocusTarget : public G::CustomControl {
public:
    explicit FocusTarget(VrokDocWindow* canvas);

    // Always accepted: the canvas has had its say, and the key must not reach it twice on the way
    // up the parent chain.
    bool OnKeyDown(int key) override;
    bool OnKeyUp(int key) override;

private:
    VrokDocWindow* canvas;
};

}  // namespace editor
