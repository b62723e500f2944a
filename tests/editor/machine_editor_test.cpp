// The machine's editor hook under an X server (run through xvfb-run): "Open Gui" and the host's
// double click open the editor on the machine's document, as a top-level window or inside a
// window the host names, and closing it leaves the patch and the sound as they were.
#include "editor/machine_editor.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "document/vrok_doc.h"
#include "editor/vrok_container_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/vrok_instance.h"
#include "g/native/native.h"
#include "machine/fake_host.h"

// Xlib's macros must come after the test framework.
#include <X11/Xlib.h>

namespace {

// Energy of a few buffers with a note held.
double Energy(mi& machine) {
    std::vector<float> buffer(2 * 256);
    double sum = 0;
    for (int i = 0; i < 8; ++i) {
        std::fill(buffer.begin(), buffer.end(), 0.0f);
        machine.Work(buffer.data(), 256, kWorkWrite);
        for (float s : buffer) sum += double(s) * s;
    }
    return sum;
}

struct Machine {
    Machine(editor::VrokMachineEditor& editorHook) : machine(host, &editorHook) {
        machine.Init(nullptr);
        VrokDoc& doc = *machine.document;
        doc.ClearAll();
        PatchBlock* osc = doc.AddBlock(4, -1, 40, 60);
        PatchBlock* out = doc.AddBlock(0, -1, 300, 60);
        doc.AddConnection(osc, out, 0);
        doc.engine->PressKey(70, 127);
    }
    fake::Host host;
    mi machine;
};

TEST(MachineEditor, OpenGuiAndDoubleClickOpenTheEditorAndClosingKeepsPatchAndSound) {
    ASSERT_NE(std::getenv("DISPLAY"), nullptr) << "run under xvfb-run";
    editor::VrokMachineEditor hook;
    Machine m(hook);
    ASSERT_GT(Energy(m.machine), 0.0);
    const std::string patch = m.machine.document->WriteXml();

    m.machine.Command(0);  // "Open Gui"
    ASSERT_TRUE(hook.IsOpen(m.machine));
    editor::VrokContainerWindow* window = hook.WindowOf(m.machine);
    EXPECT_EQ(window->docWindow->blockWindows.size(), 2u);
    EXPECT_EQ(window->docWindow->connectionWindows.size(), 1u);
    G::native::PumpPendingMessages();

    // The window's close button: only the windows go.
    window->native->Dispatch({.kind = G::NativeEventKind::Close});
    EXPECT_FALSE(hook.IsOpen(m.machine));
    VrokDoc& doc = *m.machine.document;
    EXPECT_EQ(doc.patchBlocks.size(), 2u);
    EXPECT_EQ(doc.patchConnections.size(), 1u);
    EXPECT_TRUE(doc.windows.empty()) << "the canvas left the document";
    EXPECT_TRUE(doc.patchBlocks[0]->listeners.empty()) << "and so did the block windows";
    EXPECT_EQ(doc.WriteXml(), patch);
    EXPECT_GT(Energy(m.machine), 0.0) << "the note sounds on";

    // The host's double click opens it again, on the same document.
    EXPECT_TRUE(m.host.Fire(machine::kEventDoubleClick));
    ASSERT_TRUE(hook.IsOpen(m.machine));
    EXPECT_EQ(hook.WindowOf(m.machine)->docWindow->blockWindows.size(), 2u);
    m.machine.Command(0);  // already open: nothing new
    EXPECT_TRUE(hook.IsOpen(m.machine));
    hook.Close(m.machine);
}

TEST(MachineEditor, OpensInsideTheWindowTheHostNames) {
    ASSERT_NE(std::getenv("DISPLAY"), nullptr) << "run under xvfb-run";
    auto host = G::native::CreateNativeWindow(L"host", G::Rect{0, 0, 800, 600}, 0, 0);
    ASSERT_TRUE(host);
    editor::VrokMachineEditor hook(host->handle);
    Machine m(hook);
    m.machine.Command(0);
    ASSERT_TRUE(hook.IsOpen(m.machine));
    const uintptr_t child = hook.WindowOf(m.machine)->native->handle;
    G::native::PumpPendingMessages();

    Display* display = XOpenDisplay(nullptr);
    ASSERT_NE(display, nullptr);
    ::Window root = 0, parent = 0, *kids = nullptr;
    unsigned count = 0;
    ASSERT_TRUE(XQueryTree(display, child, &root, &parent, &kids, &count));
    if (kids) XFree(kids);
    EXPECT_EQ(parent, host->handle);
    XCloseDisplay(display);
    hook.Close(m.machine);
}

}  // namespace
