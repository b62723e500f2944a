// HelpDisplay: the manual panel beside the canvas. It lays out one article at its own width,
// scrolls it by wheel and scroll bar, follows links, and keeps a history to go back and
// forward through. When locked, block selections no longer move it. GUI thread.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "g/window.h"
#include "help/help_library.h"
#include "help/text_layout.h"

class HelpDisplay : public G::Window {
public:
    static constexpr int kMargin = 8;
    static constexpr float kWheelStep = 48;  // pixels per wheel notch

    HelpDisplay(G::Control* parent, const HelpLibrary& library);

    // Shows another manual from now on; the history starts again, with nothing shown.
    void SetLibrary(const HelpLibrary& library);

    // Goes to the article found by name or screen name; false, staying put, when none is.
    // Going to the article already shown keeps the place and the history.
    bool Navigate(std::string_view key);
    // The article of a block, unless locked; false when locked or the block has none.
    bool ShowBlock(std::string_view displayName, int type);
    bool Home() { return Navigate("Default"); }
    bool Back();
    bool Forward();
    bool CanGoBack() const { return position > 0; }
    bool CanGoForward() const { return position + 1 < static_cast<int>(history.size()); }
    const HelpArticle* Current() const;

    void SetLocked(bool on);
    bool Locked() const { return locked; }

    // Content coordinates: the top of the article at 0.
    float ScrollTop() const { return scrollTop; }
    void ScrollTo(float top);
    const TextLayout& Layout() const { return layout; }
    // Where link `link` of the current article is first drawn, in the display's coordinates;
    // false when it is not laid out.
    bool LinkPoint(int link, int& x, int& y) const;

    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    void DrawBackground(G::Renderer& renderer, const G::Rect& clip) override;
    bool OnLeftDown(int x, int y) override;
    bool OnMouseMove(int x, int y) override;
    bool OnMouseLeave(int x, int y) override;
    bool OnWheel(int notches) override;
    bool OnVScroll(int code, int position) override;
    void OnResized(int w, int h) override;

    // Told after every change of article or lock, so a top bar can redraw its buttons.
    std::function<void()> onChanged;

private:
    struct Visit {
        const HelpArticle* article;
        float scrollTop;
    };

    bool Go(const HelpArticle* article);
    void ShowAt(float top);
    void Relayout();
    void UpdateScroller();
    float TextWidth() const;
    float MaxScroll() const;
    int LinkUnder(int x, int y) const;
    void Changed();

    const HelpLibrary* library;
    std::vector<Visit> history;
    int position = -1;
    bool locked = false;
    TextLayout layout;
    float scrollTop = 0;
    int hoverLink = -1;
};
