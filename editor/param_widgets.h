// Parameter widgets by kind: the one place that turns a block's (or the global panel's) widget
// kind number into a toolkit widget of the right size and colour, and that writes a value back
// into a widget when the stored value changed elsewhere.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace G {
class Control;
class FloatParamListener;
}  // namespace G

namespace editor {

struct WidgetPlan {
    int kind = 0;   // ParamKind number
    int index = 0;  // parameter index, kept in the widget's id
    float value = 0;
    int x = 0;
    int y = 0;
    int panelWidth = 0;  // full-width kinds take panelWidth - x - 2
    int strongColor = 16;
    int paleColor = 17;
    std::wstring label;                 // sliders
    std::vector<std::wstring> choices;  // button strips
};

// Block and parameter names are plain ASCII; each byte becomes one character.
inline std::wstring Widen(std::string_view text) { return std::wstring(text.begin(), text.end()); }

// The widget for `plan`, added to `parent` at its place, or null for a kind without a widget
// (hidden parameters). `listener` hears every gesture.
G::Control* MakeParamWidget(G::Control* parent, G::FloatParamListener* listener, const WidgetPlan& plan);

// Shows `value` without telling the listener.
void ShowParamValue(G::Control* widget, float value);

}  // namespace editor
