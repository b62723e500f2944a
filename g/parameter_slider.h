// G::ParameterSlider: a bar for one parameter, set by pressing or dragging along it, stepped
// with the arrow keys and the wheel. The centred style grows the bar from the middle, for
// values whose neutral point is 0.5.
#pragma once

#include <string>

#include "g/control.h"
#include "g/parameter_sender.h"
#include "g/press_state.h"

namespace G {

class ParameterSlider : public CustomControl, public ParameterSender {
public:
    static constexpr int kStylePlain = 0;
    static constexpr int kStyleCentred = 1;

    // `listener` may be null; the index sent is the id field.
    ParameterSlider(Control* parent, FloatParamListener* listener, int index, float value,
                    const std::wstring& label, int style = kStylePlain, bool vertical = false);

    // Clamps to 0..1, stores without telling the listener and invalidates.
    void SetValue(float v);
    float Value() const { return value; }

    bool OnDraw(Renderer& renderer, Rect clip) override;
    // Ctrl+press resets to 0.5 in one whole gesture; a plain press jumps to the pointer and
    // starts a drag.
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    // While not dragging the move is declined, so it goes on to the parent.
    bool OnMouseMove(int x, int y) override;
    bool OnWheel(int notches) override;
    // Arrows with no modifier: left and right by 0.002, up and down by 0.01 (up lowers).
    bool OnKeyDown(int key) override;
    bool OnMouseEnter(int x, int y) override;
    bool OnMouseLeave(int x, int y) override;
    bool OnFocusChanged(bool gained) override;

    int style;
    bool vertical;
    std::wstring label;
    bool dragging = false;
    PressState press;  // its state is the highlight

private:
    // Clamps, invalidates and tells the listener.
    void MoveTo(float v);

    float value = 0.5f;
};

}  // namespace G
