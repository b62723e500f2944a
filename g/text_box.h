// G::TextBox: a one-line field of letters with a blinking caret, used to name things. Only
// letters are typed in; every edit is reported to the listener.
#pragma once

#include <string>

#include "g/control.h"
#include "g/param_listener.h"
#include "g/press_state.h"

namespace G {

class TextBox : public CustomControl, public TextParamGenerator {
public:
    // Ticks of 25 ms per blink cycle: caret shown for the first half.
    static constexpr int kBlinkPeriod = 24;
    // Text starts this far from the left edge (the renderer's text inset).
    static constexpr int kTextInset = 2;

    // `listener` may be null; the index sent is the id field. A white field (colour index 0).
    TextBox(Control* parent, TextParamListener* listener, int index, const std::wstring& text);

    // Replaces the text without telling the listener; the caret goes to the end.
    void SetText(const std::wstring& text);
    const std::wstring& Text() const { return text; }
    int Caret() const { return caret; }
    // The caret index for a click `x` pixels right of where the text starts, by measuring each
    // prefix with the normal font: a click left of the middle of a character goes before it.
    int CaretIndexAt(float x) const;
    // Focused and in the first half of the blink cycle.
    bool CaretVisible();

    bool OnDraw(Renderer& renderer, Rect clip) override;
    // Letters only, as the platform classifies them (iswalpha).
    bool OnChar(int code) override;
    // Left and right move the caret; backspace and delete remove a character.
    bool OnKeyDown(int key) override;
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnMouseEnter(int x, int y) override;
    bool OnMouseLeave(int x, int y) override;
    // The box ticks only while it has focus: it joins the timer clients on gaining focus and
    // leaves them on losing it.
    bool OnFocusChanged(bool gained) override;
    void OnTimer(int id) override;

    TextParamListener* listener;
    PressState press;
    int blinkCounter = 0;

private:
    void Edited();

    std::wstring text;
    int caret = 0;
};

}  // namespace G
