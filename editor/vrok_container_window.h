// VrokContainerWindow: the root of the editor's window tree. It holds the top bar, the canvas,
// the global panel and the manual and gives each its part of the client area. The document outlives it:
// closing the editor leaves the patch and the sound as they are. GUI thread.
#pragma once

#include <functional>
#include <memory>

#include "g/root_control.h"

class HelpDisplay;
class HelpDisplayTopBar;
class HelpLibrary;
class VrokDoc;

namespace editor {

class GlobalGui;
class TopBar;
class VrokDocWindow;

class VrokContainerWindow : public G::RootControl {
public:
    // Builds the panels and a window for each object of `doc`. `native` may be null for a tree
    // painted off-screen (tests, benchmarks).
    VrokContainerWindow(std::unique_ptr<G::NativeWindow> native, VrokDoc& doc, int width, int height);
    ~VrokContainerWindow() override;

    // Top bar across the top; the manual at the right while it is shown, the global panel left
    // of it while that is shown; the canvas takes the rest.
    void Arrange();
    void OnResized(int w, int h) override;
    // Asks `onClose` when set (true keeps the window); without it the platform closes.
    bool OnClose() override;
    // Shows `manual` in place of the built-in one (a manual being written, a test's).
    void UseManual(std::unique_ptr<HelpLibrary> manual);

    std::function<bool()> onClose;
    VrokDocWindow* docWindow = nullptr;
    TopBar* topBar = nullptr;
    GlobalGui* globalGui = nullptr;
    HelpDisplayTopBar* helpTopBar = nullptr;
    HelpDisplay* helpDisplay = nullptr;

    static constexpr int kManualWidth = 300;
};

}  // namespace editor
