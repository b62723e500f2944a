// VrokContainerWindow: building the panels and arranging them.
#include "editor/vrok_container_window.h"

#include "document/vrok_doc.h"
#include "editor/global_gui.h"
#include "editor/top_bar.h"
#include "editor/vrok_doc_window.h"

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
}

VrokContainerWindow::~VrokContainerWindow() {
    // The panels go while the root still stands; the canvas last, as the others point at it.
    delete globalGui;
    delete topBar;
    delete docWindow;
}

void VrokContainerWindow::Arrange() {
    const int w = bounds.w;
    const int h = bounds.h;
    topBar->SetBounds(0, 0, w, TopBar::kHeight);
    const bool panel = globalGui && globalGui->visible;
    if (panel)
        globalGui->SetBounds(w - GlobalGui::kWidth, TopBar::kHeight, GlobalGui::kWidth, h - TopBar::kHeight);
    docWindow->SetBounds(0, TopBar::kHeight, w - (panel ? GlobalGui::kWidth : 0), h - TopBar::kHeight);
}

void VrokContainerWindow::OnResized(int w, int h) {
    G::RootControl::OnResized(w, h);
    if (docWindow && topBar) Arrange();
}

bool VrokContainerWindow::OnClose() { return onClose ? onClose() : false; }

}  // namespace editor
