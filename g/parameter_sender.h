// What every parameter widget shares: the listener, which is told only when set, and the clamp
// applied to every value that comes in from outside.
#pragma once

#include <algorithm>
#include <cmath>

#include "g/param_listener.h"

namespace G {

// NaN becomes 0 so that a damaged value can never reach the listener.
inline float ClampUnit(float v) {
    if (std::isnan(v)) return 0.0f;
    return std::clamp(v, 0.0f, 1.0f);
}

// The value step of an arrow key, given the codes the widget listens to: left 0.002 down,
// right 0.002 up, up 0.01 down and down 0.01 up (up lowers, as it always has). 0 for other keys.
inline float ArrowStep(int key, int left, int up, int right, int down) {
    if (key == left) return -0.002f;
    if (key == up) return -0.01f;
    if (key == right) return 0.002f;
    if (key == down) return 0.01f;
    return 0.0f;
}

class ParameterSender : public FloatParamGenerator {
public:
    explicit ParameterSender(FloatParamListener* listener) : listener(listener) {}

    FloatParamListener* listener;

protected:
    void SendBegin(int index) {
        if (listener) listener->BeginChange(this, index);
    }
    void SendValue(int index, float value) {
        if (listener) listener->ValueChanged(this, index, value);
    }
    void SendEnd(int index) {
        if (listener) listener->EndChange(this, index);
    }
    // A whole gesture at once: a Ctrl+click reset, a choice button, a key toggle.
    void SendGesture(int index, float value) {
        SendBegin(index);
        SendValue(index, value);
        SendEnd(index);
    }
};

}  // namespace G
