// TopBar: button layout and painting, the header text and the keyboard hand-over.
#include "editor/top_bar.h"

#include <cmath>

#include "editor/editor_menus.h"
#include "editor/piano_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/vrok_instance.h"
#include "g/renderer.h"

namespace editor {
namespace {

constexpr int kButtonGap = 5;
constexpr int kButtonTop = 3;
constexpr int kButtonHeight = 12;
constexpr int kTextLeft = 17;
constexpr G::Color kRule = 0xFF999F9D;
constexpr G::Color kIdleText = 0xFF646464;
constexpr int kInstrumentColor = 16;
constexpr int kEffectColor = 20;

}  // namespace

const wchar_t* TopBar::Caption(int id) {
    switch (id) {
        case kCommandClear:
            return L"New";
        case kCommandLoad:
            return L"Load";
        case kCommandSave:
            return L"Save";
        case kCommandUndo:
            return L"Undo";
        case kCommandRedo:
            return L"Redo";
        case kCommandHelp:
            return L"Help";
        case kCommandWiki:
            return L"Wiki";
        default:
            return L"";
    }
}

TopBar::TopBar(G::Control* parentControl, VrokDocWindow* canvasWindow)
    : G::Window(parentControl), canvas(canvasWindow) {
    for (int id : {kCommandClear, kCommandLoad, kCommandSave, kCommandUndo, kCommandRedo, kCommandHelp}) {
        auto* button = new G::CustomButton(this, this, id, Caption(id), G::CustomButton::kLookOwnerDrawn);
        button->painter = this;
        AddChild(button);
        buttons.push_back(button);
    }
    helpButton = buttons.back();
    keyboard = new PianoWindow(this, *canvas->doc.engine);
    AddChild(keyboard);
}

void TopBar::SetBounds(int x, int y, int w, int h) {
    G::Window::SetBounds(x, y, w, h);
    Layout();
}

void TopBar::OnResized(int w, int h) {
    G::Window::OnResized(w, h);
    Layout();
}

void TopBar::Layout() {
    int x = bounds.w;
    for (auto it = buttons.rbegin(); it != buttons.rend(); ++it) {
        G::Rect preferred;
        (*it)->GetPreferredBounds(preferred);
        x -= kButtonGap + preferred.w;
        (*it)->SetBounds(x, kButtonTop, preferred.w, kButtonHeight);
    }
}

std::string TopBar::HeaderText() const {
    std::string text = effectForm ? "[VROK-FX] " : "[VROK] ";
    return text + (canvas->doc.fileName.empty() ? std::string("new patch") : canvas->doc.fileName);
}

void TopBar::SetMeterText(const std::string& text) {
    if (text == meterText) return;
    meterText = text;
    Invalidate(nullptr);
}

void TopBar::DrawBackground(G::Renderer& renderer, const G::Rect&) {
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(effectForm ? kEffectColor : kInstrumentColor)),
                      G::FloatRect{0, 0, float(bounds.w), float(bounds.h)});
}

bool TopBar::OnDraw(G::Renderer& renderer, G::Rect) {
    DrawBackground(renderer, G::Rect{0, 0, bounds.w, bounds.h});
    renderer.DrawText(std::string_view(HeaderText()), G::Rect{kTextLeft, 0, bounds.w - kTextLeft, 16},
                      G::theme::BoldFont(), G::TextAlign{0, 1}, 0xFF000000);
    if (!meterText.empty()) {
        const int right = (buttons.empty() ? bounds.w : buttons.front()->bounds.x) - 2 * kButtonGap;
        renderer.DrawText(std::string_view(meterText), G::Rect{kTextLeft, 0, right - kTextLeft, 16},
                          G::theme::BoldFont(), G::TextAlign{2, 1}, kIdleText);
    }
    renderer.DrawLine(G::Pen{kRule, 1.0f}, 0, bounds.h - 0.5f, float(bounds.w), bounds.h - 0.5f);
    renderer.DrawImage(G::theme::TopBarGlyphImage(), 4.0f, 4.0f);
    return true;
}

void TopBar::PaintItem(int id, G::Renderer& renderer, const G::Rect& area, int state) {
    const G::Color ink = G::CaptionInk(state, kIdleText);
    renderer.DrawText(Caption(id), G::Rect{area.x + 2, area.y, area.w - 2, area.h}, G::theme::BoldFont(),
                      G::TextAlign{0, 1}, ink);
    if (state == 1) {
        renderer.DrawLine(G::Pen{G::kCaptionHoverInk, 1.0f}, float(area.x + 1), area.y + area.h - 0.5f,
                          float(area.x + area.w - 1), area.y + area.h - 0.5f);
    }
}

void TopBar::OnCommand(int id) { canvas->OnCommand(id); }

bool TopBar::KeyboardDown(int key) { return keyboard && keyboard->OnKeyDown(key); }

bool TopBar::KeyboardUp(int key) { return keyboard && keyboard->OnKeyUp(key); }

}  // namespace editor
