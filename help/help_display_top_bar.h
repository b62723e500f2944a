// HelpDisplayTopBar: the strip above the manual display with "Home", "Back", "Forward",
// "Lock" and "Close". Lock keeps the article in place while blocks are selected; Close asks
// the owner to hide the manual. GUI thread.
#pragma once

#include <functional>
#include <vector>

#include "g/button.h"
#include "g/theme.h"
#include "g/window.h"

class HelpDisplay;

class HelpDisplayTopBar : public G::Window, public G::ItemPainter {
public:
    enum Command : int { kHome = 1, kBack, kForward, kLock, kClose };

    // Redraws its buttons whenever `display` changes; must go before the display does.
    HelpDisplayTopBar(G::Control* parent, HelpDisplay* display);
    ~HelpDisplayTopBar() override;

    static const wchar_t* Caption(int id);
    // Back and Forward without history to go to, drawn faint and doing nothing.
    bool Enabled(int id) const;

    void SetBounds(int x, int y, int w, int h) override;
    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    void DrawBackground(G::Renderer& renderer, const G::Rect& clip) override;
    void PaintItem(int id, G::Renderer& renderer, const G::Rect& area, int state) override;
    void OnCommand(int id) override;

    std::function<void()> onClose;
    std::vector<G::CustomButton*> buttons;

private:
    HelpDisplay* display;
};
