// Push buttons: G::CustomButton, flat with a bevel or painted by its owner, and
// LittleVrokButton, the small port, output and delete button of block windows. Both report
// to an owner control: OnCommand on a click, OnAltCommand on a right click.
#pragma once

#include <string>

#include "g/control.h"
#include "g/press_state.h"
#include "g/theme.h"
#include "g/window.h"

namespace G {

// The caption colour of an owner-drawn text button in press state `state` (0 idle, 1 hover,
// 2 pressed): the bars' shared hover and pressed inks, `idle` otherwise.
constexpr Color kCaptionHoverInk = 0xFF963200;
constexpr Color kCaptionPressedInk = 0xFF640A00;
constexpr Color CaptionInk(int state, Color idle) {
    return state == 2 ? kCaptionPressedInk : state == 1 ? kCaptionHoverInk : idle;
}

class CustomButton : public CustomControl {
public:
    static constexpr int kLookFlat = 1;        // bevel and bold caption
    static constexpr int kLookOwnerDrawn = 2;  // the painter draws the face

    // The caption is the name field; the id field is the command id. Colour index 33 (white).
    // `owner` may be null: the button then only changes its own face.
    CustomButton(Control* parent, Control* owner, int id, const std::wstring& caption, int look = kLookFlat);

    bool OnDraw(Renderer& renderer, Rect clip) override;
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnRightDown(int x, int y) override;
    bool OnRightUp(int x, int y) override;
    bool OnDoubleClick(int x, int y) override;
    bool OnMouseEnter(int x, int y) override;
    bool OnMouseLeave(int x, int y) override;
    // Owner-drawn faces may mark the focused button.
    bool OnFocusChanged(bool gained) override;
    // The caption's size in the bold font, plus 4 each way.
    void GetPreferredBounds(Rect& out) override;

    int look;
    bool commandOnPress = false;
    Control* owner;
    ItemPainter* painter = nullptr;  // look 2; not owned
    int textColorIndex = theme::kTextColor;
    int hoverTextColorIndex = theme::kAccent;
    PressState press;

private:
    void DrawFlat(Renderer& renderer);
    void DrawOwnerDrawn(Renderer& renderer);
    void ApplyState(bool changed);
};

}  // namespace G

// A G::Window so that block windows can keep their port buttons with their other children.
class LittleVrokButton : public G::Window {
public:
    enum Shape { kArrow = 0, kCross = 1, kNothing = 2, kBox = 3 };

    // The fill is the colour index (palette 1 until set); hover marks use `hoverColorIndex`.
    LittleVrokButton(G::Control* parent, G::Control* owner, int id, int shape);

    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnRightDown(int x, int y) override;
    bool OnRightUp(int x, int y) override;
    bool OnMouseEnter(int x, int y) override;
    bool OnMouseLeave(int x, int y) override;

    int shape;
    G::Control* owner;
    int hoverColorIndex = G::theme::kAccent;
    int xOffset = 0;  // where the arrow starts
    G::PressState press;

private:
    void ApplyState(bool changed);
};
