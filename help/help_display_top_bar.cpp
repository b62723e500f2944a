// HelpDisplayTopBar: button layout, faces and commands.
#include "help/help_display_top_bar.h"

#include "g/renderer.h"
#include "help/help_display.h"

namespace {

constexpr int kButtonGap = 6;
constexpr int kButtonTop = 3;
constexpr int kButtonHeight = 12;
constexpr G::Color kBar = 0xFFD9DDE3;
constexpr G::Color kRule = 0xFF999F9D;
constexpr G::Color kIdleText = 0xFF464646;
constexpr G::Color kFaintText = 0xFFA8ACB0;
constexpr G::Color kLockedFill = 0xFF4A5A70;

}  // namespace

HelpDisplayTopBar::HelpDisplayTopBar(G::Control* parentControl, HelpDisplay* helpDisplay)
    : G::Window(parentControl), display(helpDisplay) {
    for (int id : {kHome, kBack, kForward, kLock, kClose}) {
        auto* button = new G::CustomButton(this, this, id, Caption(id), G::CustomButton::kLookOwnerDrawn);
        button->painter = this;
        AddChild(button);
        buttons.push_back(button);
    }
    display->onChanged = [this] {
        for (G::CustomButton* button : buttons) button->Invalidate(nullptr);
    };
}

HelpDisplayTopBar::~HelpDisplayTopBar() { display->onChanged = nullptr; }

const wchar_t* HelpDisplayTopBar::Caption(int id) {
    switch (id) {
        case kHome:
            return L"Home";
        case kBack:
            return L"Back";
        case kForward:
            return L"Forward";
        case kLock:
            return L"Lock";
        case kClose:
            return L"Close";
        default:
            return L"";
    }
}

bool HelpDisplayTopBar::Enabled(int id) const {
    if (id == kBack) return display->CanGoBack();
    if (id == kForward) return display->CanGoForward();
    return true;
}

// Home, Back and Forward from the left; Lock and Close at the right end.
void HelpDisplayTopBar::SetBounds(int x, int y, int w, int h) {
    G::Window::SetBounds(x, y, w, h);
    int left = kButtonGap;
    int right = w;
    for (G::CustomButton* button : buttons) {
        G::Rect preferred;
        button->GetPreferredBounds(preferred);
        if (button->id == kLock || button->id == kClose) continue;
        button->SetBounds(left, kButtonTop, preferred.w, kButtonHeight);
        left += preferred.w + kButtonGap;
    }
    for (auto it = buttons.rbegin(); it != buttons.rend(); ++it) {
        if ((*it)->id != kLock && (*it)->id != kClose) continue;
        G::Rect preferred;
        (*it)->GetPreferredBounds(preferred);
        right -= kButtonGap + preferred.w;
        (*it)->SetBounds(right, kButtonTop, preferred.w, kButtonHeight);
    }
}

void HelpDisplayTopBar::DrawBackground(G::Renderer& renderer, const G::Rect&) {
    renderer.FillRect(G::Brush::Solid(kBar), G::FloatRect{0, 0, float(bounds.w), float(bounds.h)});
}

bool HelpDisplayTopBar::OnDraw(G::Renderer& renderer, G::Rect) {
    DrawBackground(renderer, G::Rect{0, 0, bounds.w, bounds.h});
    renderer.DrawLine(G::Pen{kRule, 1.0f}, 0.5f, 0, 0.5f, float(bounds.h));
    renderer.DrawLine(G::Pen{kRule, 1.0f}, 0, bounds.h - 0.5f, float(bounds.w), bounds.h - 0.5f);
    return true;
}

void HelpDisplayTopBar::PaintItem(int id, G::Renderer& renderer, const G::Rect& area, int state) {
    renderer.FillRect(G::Brush::Solid(kBar),
                      G::FloatRect{float(area.x), float(area.y), float(area.w), float(area.h)});
    G::Color ink = Enabled(id) ? G::CaptionInk(state, kIdleText) : kFaintText;
    if (id == kLock && display->Locked()) {
        renderer.FillRect(G::Brush::Solid(kLockedFill),
                          G::FloatRect{float(area.x), float(area.y), float(area.w), float(area.h)});
        ink = 0xFFFFFFFF;
    }
    renderer.DrawText(Caption(id), G::Rect{area.x + 2, area.y, area.w - 2, area.h}, G::theme::BoldFont(),
                      G::TextAlign{0, 1}, ink);
    if (state == 1 && Enabled(id))
        renderer.DrawLine(G::Pen{ink, 1.0f}, float(area.x + 1), area.y + area.h - 0.5f,
                          float(area.x + area.w - 1), area.y + area.h - 0.5f);
}

void HelpDisplayTopBar::OnCommand(int id) {
    switch (id) {
        case kHome:
            display->Home();
            break;
        case kBack:
            display->Back();
            break;
        case kForward:
            display->Forward();
            break;
        case kLock:
            display->SetLocked(!display->Locked());
            break;
        case kClose:
            if (onClose) onClose();
            break;
        default:
            break;
    }
}
