// TopBar: the 18-pixel strip above the canvas with the patch name, the command buttons and the
// help button. It owns the computer-keyboard piano. GUI thread.
#pragma once

#include <string>
#include <vector>

#include "g/button.h"
#include "g/theme.h"
#include "g/window.h"

namespace editor {

class PianoWindow;
class VrokDocWindow;

class TopBar : public G::Window, public G::ItemPainter {
public:
    static constexpr int kHeight = 18;

    TopBar(G::Control* parent, VrokDocWindow* canvas);

    // The caption of a command id: "New", "Load", "Save", "Undo", "Redo", "Help", "Wiki".
    static const wchar_t* Caption(int id);

    void SetBounds(int x, int y, int w, int h) override;
    void OnResized(int w, int h) override;
    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    void DrawBackground(G::Renderer& renderer, const G::Rect& clip) override;
    void PaintItem(int id, G::Renderer& renderer, const G::Rect& area, int state) override;
    void OnCommand(int id) override;

    // Keys the canvas passes on: the piano's.
    bool KeyboardDown(int key);
    bool KeyboardUp(int key);
    // "[VROK]" or "[VROK-FX]", then the patch name or "new patch".
    std::string HeaderText() const;
    // A short status drawn right-aligned before the buttons, such as the live meter's
    // "CPU 3% | 0 under-runs"; empty draws nothing. Redraws only when the text changes.
    void SetMeterText(const std::string& text);

    std::vector<G::CustomButton*> buttons;  // the command buttons, then Help, laid out from the right
    PianoWindow* keyboard = nullptr;
    G::CustomButton* helpButton = nullptr;
    VrokDocWindow* canvas;
    bool effectForm = false;
    std::string meterText;

private:
    void Layout();
};

}  // namespace editor
