// The press-and-hover state that buttons, knobs and sliders share: a count of presses held and
// a hover flag make the state the face is drawn in.
#pragma once

namespace G {

struct PressState {
    int state = 0;  // 0 idle, 1 hovered, 2 pressed
    int pressCount = 0;
    bool hover = false;

    // Each returns whether `state` changed, so the caller invalidates only then.
    bool Press() {
        ++pressCount;
        return Update();
    }
    // Never below zero: a release whose press went elsewhere must not unbalance the count.
    bool Release() {
        if (pressCount > 0) --pressCount;
        return Update();
    }
    bool SetHover(bool on) {
        hover = on;
        return Update();
    }
    bool IsPressed() const { return state == 2; }

private:
    bool Update() {
        int next = pressCount > 0 ? 2 : (hover ? 1 : 0);
        bool changed = next != state;
        state = next;
        return changed;
    }
};

}  // namespace G
