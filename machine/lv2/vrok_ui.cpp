// The LV2 UI: the frame window, the editor inside it, machine swaps, knobs to the host.
#include "machine/lv2/vrok_ui.h"

#include <algorithm>

#include "editor/vrok_container_window.h"
#include "g/native/native.h"
#include "g/root_control.h"

namespace lv2 {

// The widget the host embeds: an empty root whose only child window is the editor's. It
// passes its size on to the editor and turns a user's close into Idle's answer.
class Ui::Frame : public G::RootControl {
public:
    Frame(std::unique_ptr<G::NativeWindow> native, Ui& ui) : G::RootControl(std::move(native)), ui(ui) {}
    void OnResized(int w, int h) override {
        G::RootControl::OnResized(w, h);
        if (ui.shown && ui.editor) ui.editor->Resize(*ui.shown, w, h);
    }
    bool OnClose() override {
        ui.closed = true;
        return true;  // the host decides when the window goes
    }

private:
    Ui& ui;
};

Ui::Ui(Plugin& plugin, uintptr_t parent, LV2UI_Write_Function write, LV2UI_Controller controller,
       const LV2UI_Resize* resize)
    : plugin(plugin), parent(parent), write(write), controller(controller), resize(resize) {}

Ui::~Ui() {
    plugin.SetKnobSink(nullptr);
    if (editor && shown) editor->Close(*shown);
    editor.reset();
    frame.reset();
    plugin.Unpin();
    plugin.FreeRetired();
}

bool Ui::Open() {
    mi& machine = plugin.PinCurrent();
    auto native =
        G::native::CreateNativeWindow(L"Vrok", G::Rect{0, 0, machine.windowWidth, machine.windowHeight},
                                      parent, parent ? G::kStyleChild : 0);
    if (!native) {
        plugin.Unpin();
        return false;
    }
    frame = std::make_unique<Frame>(std::move(native), *this);
    editor = std::make_unique<editor::VrokMachineEditor>(frame->native->handle);
    frame->ShowTop();
    if (!Attach()) return false;
    plugin.SetKnobSink(this);
    if (resize) resize->ui_resize(resize->handle, machine.windowWidth, machine.windowHeight);
    return true;
}

uintptr_t Ui::Widget() const { return frame && frame->native ? frame->native->handle : 0; }

bool Ui::Attach() {
    if (editor && shown) editor->Close(*shown);
    generation = plugin.Generation();
    mi& machine = plugin.PinCurrent();
    // The editor fills the frame, wherever the machine last had it.
    machine.windowX = machine.windowY = 0;
    if (frame && frame->native) frame->native->ClientSize(machine.windowWidth, machine.windowHeight);
    shown = &machine;
    const bool opened = editor->Open(machine);
    // The machine set aside by the swap is no longer shown.
    plugin.FreeRetired();
    return opened;
}

int Ui::Idle() {
    if (plugin.Generation() != generation) Attach();
    G::native::PumpPendingMessages();
    return closed ? 1 : 0;
}

void Ui::Resize(int width, int height) {
    if (width <= 0 || height <= 0 || !frame || !frame->native) return;
    frame->native->SetClientSize(width, height);
    if (shown) editor->Resize(*shown, width, height);
}

bool Ui::Show() {
    if (!frame) return false;
    closed = false;
    frame->ShowTop();
    return true;
}

void Ui::Hide() {
    // The toolkit has no hide; a top-level frame stays until the host frees the UI.
    closed = true;
}

void Ui::KnobMoved(int index, float value) {
    if (write) write(controller, uint32_t(kPortKnob1 + index), sizeof value, 0, &value);
}

}  // namespace lv2
