// Widget construction by kind and value refresh.
#include "editor/param_widgets.h"

#include "engine/audio_block.h"
#include "g/parameter_choice.h"
#include "g/parameter_knob.h"
#include "g/parameter_pitch.h"
#include "g/parameter_slider.h"
#include "g/parameter_switch.h"

namespace editor {
namespace {

constexpr int kSmall = 13;
constexpr int kPitchHeight = 16;
constexpr int kWaveWidth = 56;
constexpr int kFilterWidth = 80;

template <class W>
G::Control* Place(G::Control* parent, W* widget, const WidgetPlan& plan, int w, int h, int color) {
    parent->AddChild(widget);
    widget->colorIndex = color;
    widget->SetBounds(plan.x, plan.y, w, h);
    return widget;
}

}  // namespace

G::Control* MakeParamWidget(G::Control* parent, G::FloatParamListener* listener, const WidgetPlan& s) {
    const int wide = s.panelWidth - s.x - 2;
    switch (static_cast<ParamKind>(s.kind)) {
        case ParamKind::Knob:
        case ParamKind::KnobAlt: {
            const int mode = s.kind == int(ParamKind::KnobAlt) ? G::ParameterKnob::kModeBipolar
                                                               : G::ParameterKnob::kModeUnipolar;
            return Place(parent, new G::ParameterKnob(parent, listener, s.index, s.value, mode), s, kSmall,
                         kSmall, s.paleColor);
        }
        case ParamKind::Pitch:
            return Place(parent, new G::ParameterPitch(parent, listener, s.index, s.value), s, wide,
                         kPitchHeight, s.strongColor);
        case ParamKind::Wave:
            return Place(parent, new G::ParameterWave(parent, listener, s.index, s.value), s, kWaveWidth,
                         kSmall, s.strongColor);
        case ParamKind::Switch:
            return Place(parent, new G::ParameterSwitch(parent, listener, s.index, s.value), s, kSmall,
                         kSmall, s.paleColor);
        case ParamKind::Filter:
            return Place(parent, new G::ParameterFilter(parent, listener, s.index, s.value), s, kFilterWidth,
                         kSmall, s.strongColor);
        case ParamKind::Slider:
        case ParamKind::SliderAlt: {
            const int style = s.kind == int(ParamKind::SliderAlt) ? G::ParameterSlider::kStyleCentred
                                                                  : G::ParameterSlider::kStylePlain;
            return Place(parent, new G::ParameterSlider(parent, listener, s.index, s.value, s.label, style),
                         s, wide, kSmall, s.strongColor);
        }
        case ParamKind::ButtonStrip:
            if (s.choices.empty()) return nullptr;
            return Place(parent, new G::ParameterButtonStrip(parent, listener, s.index, s.value, s.choices),
                         s, wide, kSmall, s.strongColor);
        case ParamKind::Hidden:
            break;
    }
    return nullptr;
}

void ShowParamValue(G::Control* widget, float value) {
    if (auto* knob = dynamic_cast<G::ParameterKnob*>(widget)) return knob->SetValue(value);
    if (auto* pitch = dynamic_cast<G::ParameterPitch*>(widget)) return pitch->SetValue(value);
    if (auto* slider = dynamic_cast<G::ParameterSlider*>(widget)) return slider->SetValue(value);
    if (auto* toggle = dynamic_cast<G::ParameterSwitch*>(widget)) return toggle->SetValue(value);
    if (auto* choice = dynamic_cast<G::ParameterChoice*>(widget)) return choice->SetValue(value);
}

}  // namespace editor
