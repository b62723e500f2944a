// G::TextBox: letter input, caret movement and placement, and the blinking caret.
#include "g/text_box.h"

#include <cwctype>

#include "g/keys.h"
#include "g/renderer.h"
#include "g/theme.h"

namespace G {
namespace {
constexpr Color kFrame = 0xFF999F9D;
}  // namespace

TextBox::TextBox(Control* parentControl, TextParamListener* textListener, int index,
                 const std::wstring& initial)
    : CustomControl(parentControl), listener(textListener), text(initial) {
    id = index;
    colorIndex = 0;
    caret = static_cast<int>(text.size());
}

void TextBox::SetText(const std::wstring& value) {
    text = value;
    caret = static_cast<int>(text.size());
    Invalidate(nullptr);
}

void TextBox::Edited() {
    Invalidate(nullptr);
    if (listener) listener->TextChanged(this, id, text);
}

int TextBox::CaretIndexAt(float x) const {
    const Font* font = theme::NormalFont();
    for (size_t i = 1; i <= text.size(); ++i) {
        std::wstring_view all(text);
        float prefixWidth = Renderer::MeasureText(all.substr(0, i), font).width;
        float charWidth = Renderer::MeasureText(all.substr(i - 1, 1), font).width;
        if (x < prefixWidth - charWidth / 2.0f) return static_cast<int>(i) - 1;
        if (x < prefixWidth) return static_cast<int>(i);
    }
    return static_cast<int>(text.size());
}

bool TextBox::CaretVisible() { return HasFocus() && blinkCounter < kBlinkPeriod / 2; }

bool TextBox::OnChar(int code) {
    if (code <= 0 || !std::iswalpha(static_cast<wint_t>(code))) return false;
    text.insert(static_cast<size_t>(caret), 1, static_cast<wchar_t>(code));
    ++caret;
    Edited();
    return true;
}

bool TextBox::OnKeyDown(int keyCode) {
    const int length = static_cast<int>(text.size());
    switch (keyCode) {
        case key::kLeft:
            if (caret > 0) --caret;
            Invalidate(nullptr);
            return true;
        case key::kRight:
            if (caret < length) ++caret;
            Invalidate(nullptr);
            return true;
        case key::kBackspace:
            if (caret > 0) {
                text.erase(static_cast<size_t>(caret - 1), 1);
                --caret;
                Edited();
            }
            return true;
        case key::kDelete:
            if (caret < length) {
                text.erase(static_cast<size_t>(caret), 1);
                Edited();
            }
            return true;
        default:
            return false;
    }
}

bool TextBox::OnLeftDown(int x, int) {
    SetFocus();
    if (press.Press()) Invalidate(nullptr);
    CaptureMouse();
    caret = CaretIndexAt(static_cast<float>(x - kTextInset));
    blinkCounter = 0;
    Invalidate(nullptr);
    return true;
}

bool TextBox::OnLeftUp(int, int) {
    if (press.Release()) Invalidate(nullptr);
    ReleaseMouse();
    return true;
}

bool TextBox::OnMouseEnter(int, int) {
    if (press.SetHover(true)) Invalidate(nullptr);
    return true;
}

bool TextBox::OnMouseLeave(int, int) {
    if (press.SetHover(false)) Invalidate(nullptr);
    return true;
}

bool TextBox::OnFocusChanged(bool gained) {
    blinkCounter = 0;
    if (gained) {
        AddTimerClient(this);
    } else {
        RemoveTimerClient(this);
    }
    Invalidate(nullptr);
    return true;
}

void TextBox::OnTimer(int) {
    if (!HasFocus()) return;
    blinkCounter = (blinkCounter + 1) % kBlinkPeriod;
    Invalidate(nullptr);
}

bool TextBox::OnDraw(Renderer& renderer, Rect) {
    const float w = static_cast<float>(bounds.w);
    const float h = static_cast<float>(bounds.h);
    renderer.FillRect(Brush::Solid(theme::Palette(colorIndex)), FloatRect{0, 0, w, h});
    Color frame = HasFocus() || press.state != 0 ? theme::Palette(theme::kAccent) : kFrame;
    renderer.StrokeRect(Pen{frame, 1.0f}, FloatRect{0.5f, 0.5f, w - 1.0f, h - 1.0f});
    const Font* font = theme::NormalFont();
    renderer.DrawText(text, Rect{0, 0, bounds.w, bounds.h}, font, TextAlign{0, 1},
                      theme::Palette(theme::kTextColor));
    if (CaretVisible()) {
        std::wstring_view before = std::wstring_view(text).substr(0, static_cast<size_t>(caret));
        float x = kTextInset + Renderer::MeasureText(before, font).width + 0.5f;
        renderer.DrawLine(Pen{theme::Palette(theme::kTextColor), 1.0f}, x, 2.0f, x, h - 2.0f);
    }
    return true;
}

}  // namespace G
