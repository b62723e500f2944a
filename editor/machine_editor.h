// The machine's editor: opens the patch editor for a machine's document when the host asks
// ("Open Gui", a double click), as a top-level window or inside a window the host names.
// Closing it deletes only the windows; the document and the sound carry on. GUI thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "machine/machine.h"

namespace editor {

class VrokContainerWindow;

class VrokMachineEditor : public MachineEditor {
public:
    // `parentWindow` 0 makes top-level windows; otherwise they are children of that native window.
    explicit VrokMachineEditor(uintptr_t parentWindow = 0);
    ~VrokMachineEditor() override;

    bool Open(mi& machine) override;
    void Close(mi& machine) override;
    bool IsOpen(const mi& machine) const override;
    void Resize(mi& machine, int width, int height) override;
    void SetTitle(mi& machine, const std::string& title) override;
    std::string AskOpenFile(mi& machine, const std::string& title, const std::string& defaultExtension,
                            const std::string& filterName) override;

    // The open editor of `machine`, or null.
    VrokContainerWindow* WindowOf(const mi& machine) const;

private:
    uintptr_t parentWindow;
    std::map<const mi*, std::unique_ptr<VrokContainerWindow>> windows;
};

}  // namespace editor
