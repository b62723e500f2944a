// G::Scroller: a 15-pixel scroll bar bound to one position-and-page pair of its owner window.
#pragma once

#include "g/control.h"

namespace G {

class Window;

class Scroller : public CustomControl {
public:
    static constexpr int kThickness = 15;

    // `position` and `page` point into the owner's fields; page is the visible fraction.
    Scroller(Window* owner, float* position, float* page, bool vertical);

    bool OnDraw(Renderer& renderer, Rect clip) override;
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnMouseMove(int x, int y) override;
    bool OnMouseEnter(int x, int y) override;
    bool OnMouseLeave(int x, int y) override;
    bool OnWheel(int notches) override;
    void OnResized(int w, int h) override;

    // Thumb length (size - 1) x page, offset (1 - page) x size x position, along the bar.
    void UpdateThumb();
    int ThumbStart() const { return vertical ? thumbY : thumbX; }
    int ThumbLength() const { return vertical ? thumbH : thumbW; }

    Window* owner;
    float* position;
    float* page;
    bool vertical;
    int thumbX = 0;
    int thumbY = 0;
    int thumbW = 0;
    int thumbH = 0;
    int dragMouseX = 0;
    int dragMouseY = 0;
    int dragThumbX = 0;
    int dragThumbY = 0;
    bool dragging = false;
    bool hover = false;
    int pressCount = 0;
    int state = 0;

private:
    // Moves the thumb to `start` (clamped), writes the owner's position and tells it.
    void MoveThumbTo(int start);
    int Size() const { return vertical ? bounds.h : bounds.w; }
};

}  // namespace G
