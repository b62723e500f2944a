// G::Window: a control with a title, optional scrollers bound to its scroll positions, and a
// preferred size that wraps its children.
#pragma once

#include <string>

#include "g/control.h"

namespace G {

class Scroller;

class Window : public CustomControl {
public:
    explicit Window(Control* parent);
    ~Window() override;

    void SetTitle(const std::wstring& text);
    // Vertical scroller along the right edge, horizontal along the bottom; with both present
    // the vertical one is 15 shorter.
    virtual void LayoutScrollers();
    void SetVScroller(bool enabled);
    void SetHScroller(bool enabled);

    // The union of the children plus the padding on both sides.
    void GetPreferredBounds(Rect& out) override;
    bool OnWheel(int notches) override;
    bool OnHWheel(int notches) override;
    void OnResized(int w, int h) override;
    // Keeps the scrollers above the other children.
    void BringToFront(bool propagate) override;

    std::wstring title;
    float vScrollPosition = 0;
    float vScrollPage = 1;
    float hScrollPosition = 0;
    float hScrollPage = 1;
    Color borderColor = 0xFF000000;
    int contentOffsetX = 0;
    int contentOffsetY = 0;
    float contentScaleX = 1.0f;
    float contentScaleY = 1.0f;
    bool hasVScroller = false;
    bool hasHScroller = false;
    Scroller* vScroller = nullptr;
    Scroller* hScroller = nullptr;
    int padding = 0;

    // Live windows, for leak reports only.
    static int LiveCount();

private:
    void SetScroller(Scroller*& slot, bool& present, bool enabled, float* position, float* page,
                     bool vertical);
};

}  // namespace G
