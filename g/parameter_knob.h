// G::ParameterKnob: a round knob for one parameter, dragged with the mouse (across fine, up
// and down coarse), turned with the wheel and reset with Ctrl+click. Two faces: the small
// pie knob of block panels and the large arc knob of the knob block.
#pragma once

#include <string>

#include "g/control.h"
#include "g/parameter_sender.h"
#include "g/press_state.h"
#include "g/renderer.h"

namespace G {

// Each channel raised by `amount`, clipped at 255; alpha kept.
Color Brighten(Color color, int amount);

// The small face inside `box`: the value as a pie (from lower left when unipolar, from the top
// when bipolar), the outline and a black pointer. The pitch field's cents knob uses it too.
void DrawSmallKnobFace(Renderer& renderer, const FloatRect& box, float value, int mode, Color pieColor);

class ParameterKnob : public CustomControl, public ParameterSender {
public:
    static constexpr int kStyleLarge = 0;
    static constexpr int kStyleSmall = 1;
    static constexpr int kModeUnipolar = 0;
    static constexpr int kModeBipolar = 1;
    // Mouse travel to value: across and up are both positive.
    static constexpr float kDragPerPixelX = 0.0025f;
    static constexpr float kDragPerPixelY = 0.01f;
    static constexpr float kWheelStep = 0.01f;

    // 50 x 50 until sized. `listener` may be null; the index sent is the id field.
    ParameterKnob(Control* parent, FloatParamListener* listener, int index, float value,
                  int mode = kModeUnipolar, int drawStyle = kStyleSmall);

    // Clamps to 0..1, stores without telling the listener and invalidates.
    void SetValue(float v);
    float Value() const { return value; }

    virtual void DrawLarge(Renderer& renderer);
    virtual void DrawSmall(Renderer& renderer);
    // Largest radius of the large face, in pixels; also sets the preferred size.
    virtual void SetRadius(float r);

    bool OnDraw(Renderer& renderer, Rect clip) override;
    // Ctrl+press resets to 0.5 in one whole gesture; a plain press starts a drag.
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnMouseMove(int x, int y) override;
    // A lone ValueChanged per wheel turn: no BeginChange around it.
    bool OnWheel(int notches) override;
    bool OnHWheel(int notches) override;
    bool OnKeyDown(int key) override;
    bool OnMouseEnter(int x, int y) override;
    bool OnMouseLeave(int x, int y) override;
    bool OnFocusChanged(bool gained) override;
    // (radius + 1) x 2 both ways.
    void GetPreferredBounds(Rect& out) override;

    int drawStyle;
    int mode;
    std::wstring label;
    bool dragging = false;
    int dragStartX = 0;
    float dragStartValue = 0;
    int dragStartY = 0;
    float radius = 15.0f;
    PressState press;  // its state is the highlight: 1 hovered, 2 pressed

private:
    // Clamps, invalidates and tells the listener.
    void MoveTo(float v);

    float value = 0.5f;
};

}  // namespace G
