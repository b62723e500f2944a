// The choice widgets: a row of owner-drawn buttons of which one is selected, stored as the
// item's index spread evenly over 0..1. G::ParameterFilter picks a filter kind and
// G::ParameterWave a waveform, each from four glyph buttons; G::ParameterButtonStrip picks
// one of a block's labelled choices.
#pragma once

#include <string>
#include <vector>

#include "g/button.h"
#include "g/parameter_sender.h"
#include "g/theme.h"
#include "g/window.h"

namespace G {

class ParameterChoice : public Window, public ParameterSender, public ItemPainter {
public:
    // Clamps to 0..1, stores without telling the listener and redraws the buttons.
    void SetValue(float v);
    float Value() const { return value; }
    int Count() const { return static_cast<int>(buttons.size()); }
    // round(value x (count - 1)).
    int SelectedIndex() const;

    // From button `id` (item index + 1). Choosing another item than the selected one stores
    // index / (count - 1) and sends one whole gesture; choosing the selected one sends nothing.
    void OnCommand(int id) override;
    // Idle buttons show the background inside an open rectangle in the widget's colour; hovered
    // and pressed ones a pattern of palette 1 and that colour; the selected one is filled with
    // it. Then a black frame (accent when the button has focus) and the item's glyph or text.
    void PaintItem(int id, Renderer& renderer, const Rect& area, int state) override;
    bool OnDraw(Renderer& renderer, Rect clip) override;
    // The background renderer's painting, or palette 1 without one.
    void DrawBackground(Renderer& renderer, const Rect& clip) override;
    void OnResized(int w, int h) override;

    std::vector<CustomButton*> buttons;  // in item order; owned through the child list

protected:
    ParameterChoice(Control* parent, FloatParamListener* listener, int index, float value, int count);
    // The item's picture or text inside the button's area.
    virtual void PaintContent(int item, Renderer& renderer, const Rect& area) = 0;
    // Equal buttons across the width with a 1-pixel gap.
    virtual void Layout();

private:
    void RedrawButtons();

    float value;
};

// Low-pass, high-pass, band-pass and band reject.
class ParameterFilter : public ParameterChoice {
public:
    ParameterFilter(Control* parent, FloatParamListener* listener, int index, float value);

protected:
    void PaintContent(int item, Renderer& renderer, const Rect& area) override;
};

// Sine, triangle, sawtooth and pulse, on 13 x 13 buttons 14 pixels apart.
class ParameterWave : public ParameterChoice {
public:
    static constexpr int kButtonSize = 13;
    static constexpr int kButtonPitch = 14;

    ParameterWave(Control* parent, FloatParamListener* listener, int index, float value);

protected:
    void PaintContent(int item, Renderer& renderer, const Rect& area) override;
    void Layout() override;
};

class ParameterButtonStrip : public ParameterChoice {
public:
    // One button per label.
    ParameterButtonStrip(Control* parent, FloatParamListener* listener, int index, float value,
                         const std::vector<std::wstring>& labels);

    std::vector<std::wstring> labels;

protected:
    void PaintContent(int item, Renderer& renderer, const Rect& area) override;
};

}  // namespace G
