// G::ParameterSwitch: an on/off parameter, toggled by a click or the space bar; stored as
// 1.0 or 0.0 and read as on above 0.5. G::ParameterSwitchWithLabel adds its name beside it.
#pragma once

#include <string>

#include "g/control.h"
#include "g/parameter_sender.h"

namespace G {

class ParameterSwitch : public CustomControl, public ParameterSender {
public:
    // `listener` may be null; the index sent is the id field.
    ParameterSwitch(Control* parent, FloatParamListener* listener, int index, float value);

    // Clamps; on above 0.5. Does not tell the listener; invalidates.
    void SetValue(float v);
    float Value() const { return on ? 1.0f : 0.0f; }
    bool IsOn() const { return on; }

    bool OnDraw(Renderer& renderer, Rect clip) override;
    // The toggle happens on the press; the release ends the gesture.
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    // Space toggles in one whole gesture.
    bool OnKeyDown(int key) override;
    bool OnFocusChanged(bool gained) override;

protected:
    // The round face in the square `side` pixels wide at the left.
    void DrawSwitchFace(Renderer& renderer, int side);

private:
    void Toggle();

    bool on;
    bool pressed = false;  // a press of ours is waiting for its release
};

class ParameterSwitchWithLabel : public ParameterSwitch {
public:
    ParameterSwitchWithLabel(Control* parent, FloatParamListener* listener, int index, float value,
                             const std::wstring& label);

    bool OnDraw(Renderer& renderer, Rect clip) override;

    std::wstring label;
};

}  // namespace G
