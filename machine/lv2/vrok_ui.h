// The patch editor as the plug-in's LV2 UI (ui:X11UI). The editor is a view of the one
// document the plug-in plays, so the UI reaches the plug-in through instance-access and
// edits the document in place under the engine's locks, as the editor does anywhere.
// Everything else goes through the host: knob panels move the host's control ports with
// its write function.
//
// The UI owns a plain frame window, the widget the host embeds; the editor window lives
// inside it. When the plug-in swaps in a new machine (a restored state, a patch file,
// activation) the next idle call closes the editor on the old one and opens it on the new,
// inside the same frame. GUI thread only.
#pragma once

#include <lv2/ui/ui.h>

#include <cstdint>
#include <memory>

#include "editor/machine_editor.h"
#include "machine/lv2/vrok_plugin.h"

namespace G {
class RootControl;
}

namespace lv2 {

constexpr const char* kUiUri = VROK_LV2_URI ":ui";

class Ui final : private KnobSink {
public:
    // `parent` is the host's window for the frame; 0 makes a top-level window.
    Ui(Plugin& plugin, uintptr_t parent, LV2UI_Write_Function write, LV2UI_Controller controller,
       const LV2UI_Resize* resize);
    ~Ui() override;
    Ui(const Ui&) = delete;
    Ui& operator=(const Ui&) = delete;

    // Opens the frame and the editor in it. False when no window can open (no display).
    bool Open();
    // The frame's native window id, for the host to embed.
    uintptr_t Widget() const;
    // Handles pending window messages and follows machine swaps. 0 while the UI is open,
    // 1 once the user closed a top-level window.
    int Idle();
    // The host resized the frame.
    void Resize(int width, int height);
    // Shows the top-level window again after the user closed it (show interface).
    bool Show();
    void Hide();

    // [Seen by tests]
    const mi* ShownMachine() const { return shown; }
    editor::VrokMachineEditor* Editor() { return editor.get(); }

private:
    class Frame;
    void KnobMoved(int index, float value) override;
    // Opens the editor on the machine now playing and lets go of the one shown before.
    bool Attach();

    Plugin& plugin;
    const uintptr_t parent;
    LV2UI_Write_Function write;
    LV2UI_Controller controller;
    const LV2UI_Resize* resize;
    std::unique_ptr<G::RootControl> frame;
    std::unique_ptr<editor::VrokMachineEditor> editor;  // its windows are the frame's children
    mi* shown = nullptr;
    uint32_t generation = 0;
    bool closed = false;
};

}  // namespace lv2
