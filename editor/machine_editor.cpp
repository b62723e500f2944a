// VrokMachineEditor: one editor window per machine, made and unmade on the host's request.
#include "editor/machine_editor.h"

#include "document/vrok_doc.h"
#include "editor/vrok_container_window.h"
#include "engine/log.h"
#include "g/native/native.h"
#include "g/utf8.h"

namespace editor {
namespace {

std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

}  // namespace

VrokMachineEditor::VrokMachineEditor(uintptr_t parent) : parentWindow(parent) {}

VrokMachineEditor::~VrokMachineEditor() = default;

bool VrokMachineEditor::Open(mi& machine) {
    if (IsOpen(machine)) return true;
    if (!machine.document) return false;
    const int x = machine.windowX == mi::kUnsetPosition ? 0 : machine.windowX;
    const int y = machine.windowY == mi::kUnsetPosition ? 0 : machine.windowY;
    auto native = G::native::CreateNativeWindow(Wide(machine.windowTitle),
                                                G::Rect{x, y, machine.windowWidth, machine.windowHeight},
                                                parentWindow, parentWindow ? G::kStyleChild : 0);
    if (!native) return false;
    auto window = std::make_unique<VrokContainerWindow>(std::move(native), *machine.document,
                                                        machine.windowWidth, machine.windowHeight);
    // Closing hides the editor: the windows go, the document stays with the machine. The
    // window is freed after the close message is done with it.
    mi* owner = &machine;
    window->onClose = [this, owner] {
        Close(*owner);
        return true;
    };
    window->ShowTop();
    windows[&machine] = std::move(window);
    return true;
}

void VrokMachineEditor::Close(mi& machine) {
    auto found = windows.find(&machine);
    if (found == windows.end()) return;
    machine.windowWidth = found->second->Width();
    machine.windowHeight = found->second->Height();
    windows.erase(found);
}

bool VrokMachineEditor::IsOpen(const mi& machine) const { return windows.count(&machine) != 0; }

VrokContainerWindow* VrokMachineEditor::WindowOf(const mi& machine) const {
    auto found = windows.find(&machine);
    return found == windows.end() ? nullptr : found->second.get();
}

void VrokMachineEditor::Resize(mi& machine, int width, int height) {
    if (VrokContainerWindow* window = WindowOf(machine); window && window->native) {
        window->native->SetClientSize(width, height);
    }
}

void VrokMachineEditor::SetTitle(mi& machine, const std::string& title) {
    if (VrokContainerWindow* window = WindowOf(machine); window && window->native)
        window->native->SetTitle(Wide(title));
}

std::string VrokMachineEditor::AskOpenFile(mi& machine, const std::string& title,
                                           const std::string& defaultExtension,
                                           const std::string& filterName) {
    G::FileDialogRequest request;
    request.title = title;
    request.filterLabel = filterName;
    request.extensions = {"." + defaultExtension};
    if (defaultExtension == "vrkx") request.extensions.push_back(".vrk");
    std::string path;
    if (VrokContainerWindow* window = WindowOf(machine); window && window->native) {
        return window->native->OpenFileDialog(request, path) ? path : std::string();
    }
    // No editor open: a hidden window of its own owns the dialog.
    auto owner = G::native::CreateNativeWindow(L"Vrok", G::Rect{0, 0, 1, 1}, parentWindow,
                                               parentWindow ? G::kStyleChild : 0);
    if (!owner) return {};
    return owner->OpenFileDialog(request, path) ? path : std::string();
}

}  // namespace editor
