// VrokContainerWindow: building the panels and arranging them.
#include "editor/vrok_container_window.h"

#include "document/vrok_doc.h"
#include "editor/global_gui.h"
#include "editor/top_bar.h"
#include "editor/vrok_doc_window.h"
#include "help/help_display.h"
#include "help/help_display_top_bar.h"

namespace editor {

VrokContainerWindow::VrokContainerWindow(std::unique_ptr<G::NativeWindow> nativeWindow, VrokDoc& doc,
                                         int width, int height)
    : G::RootControl(std::move(nativeWindow)) {
    SetSize(width, height);
    docWindow = new VrokDocWindow(this, doc);
    AddChild(docWindow);
    topBar = new TopBar(this, docWindow);
    AddChild(topBar);
    docWindow->topBar = topBar;
    docWindow->onNameChanged = [this] { topBar->Invalidate(nullptr); };
    docWindow->globalAnnounced = [this](PatchGlobal* global) {
        if (globalGui) {
            globalGui->RefreshAll();
            return;
        }
        globalGui = new GlobalGui(this, docWindow, global);
        AddChild(globalGui);
        Arrange();
    };
    Arrange();
    docWindow->Open();
    // The manual starts hidden; "Help" shows it.
    helpDisplay = new HelpDisplay(this, *docWindow->manual);
    helpDisplay->visible = false;
    AddChild(helpDisplay);
    helpTopBar = new HelpDisplayTopBar(this, helpDisplay);
    helpTopBar->visible = false;
    AddChild(helpTopBar);
    helpTopBar->onClose = [this] {
        if (docWindow->ManualVisible()) docWindow->ToggleManual();
    };
    docWindow->helpDisplay = helpDisplay;
    docWindow->helpTopBar = helpTopBar;
    docWindow->manualToggled = [this] { Arrange(); };
}

VrokContainerWindow::~VrokContainerWindow() {
    // The panels go while the root still stands; the canvas last, as the others point at it.
    // The manual's bar goes before the display it tells.
    delete helpTopBar;
    delete helpDisplay;
    delete globalGui;
    delete topBar;
    delete docWindow;
}

void VrokContainerWindow::Arrange() {
    const int w = bounds.w;
    const int h = bounds.h;
    topBar->SetBounds(0, 0, w, TopBar::kHeight);
    const bool manual = docWindow->ManualVisible();
    const int right = manual ? kManualWidth : 0;
    if (manual) {
        helpTopBar->SetBounds(w - kManualWidth, TopBar::kHeight, kManualWidth, TopBar::kHeight);
        helpDisplay->SetBounds(w - kManualWidth, 2 * TopBar::kHeight, kManualWidth, h - 2 * TopBar::kHeight);
    }
    const bool panel = globalGui && globalGui->visible;
    if (panel)
        globalGui->SetBounds(w - right - GlobalGui::kWidth, TopBar::kHeight, GlobalGui::kWidth,
                             h - TopBar::kHeight);
    docWindow->SetBounds(0, TopBar::kHeight, w - right - (panel ? GlobalGui::kWidth : 0),
                         h - TopBar::kHeight);
}

void VrokContainerWindow::OnResized(int w, int h) {
    G::RootControl::OnResized(w, h);
    if (docWindow && topBar) Arrange();
}

void VrokContainerWindow::UseManual(std::unique_ptr<HelpLibrary> manual) {
    // The display lets go of the old manual before it goes.
    helpDisplay->SetLibrary(*manual);
    docWindow->manual = std::move(manual);
    if (docWindow->ManualVisible()) helpDisplay->Home();
}

bool VrokContainerWindow::OnClose() { return onClose ? onClose() : false; }

}  // namespace editor
