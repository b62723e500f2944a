// The editor as the plug-ins' LV2 UI, under an X server (run through xvfb-run): embedded in
// a host's window, never disturbing the sound, following the machine the plug-in swaps in,
// and moving the host's knob ports from the editor's panels.
#include <gtest/gtest.h>
#include <lv2/instance-access/instance-access.h>
#include <lv2/ui/ui.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "document/vrok_doc.h"
#include "editor/machine_editor.h"
#include "editor/vrok_container_window.h"
#include "editor/vrok_doc_window.h"
#include "g/native/native.h"
#include "g/root_control.h"
#include "machine/lv2/lv2_test_host.h"
#include "machine/lv2/vrok_plugin.h"
#include "machine/lv2/vrok_ui.h"

extern "C" const LV2_Descriptor* lv2_descriptor(uint32_t index);
extern "C" const LV2UI_Descriptor* lv2ui_descriptor(uint32_t index);

namespace {

const bool privateEnvironment = lv2test::UsePrivateEnvironment();

using lv2test::NoteOn;

const std::string kSine = std::string(VROK_EXAMPLES_DIR) + "/sine_a4.vrkx";
const std::string kInputPass = std::string(VROK_EXAMPLES_DIR) + "/input_pass.vrkx";

struct Written {
    uint32_t port;
    float value;
};

void RecordWrite(LV2UI_Controller controller, uint32_t port, uint32_t size, uint32_t format,
                 const void* buffer) {
    if (format != 0 || size != sizeof(float)) return;
    static_cast<std::vector<Written>*>(controller)->push_back({port, *static_cast<const float*>(buffer)});
}

// One instrument with its host, and the host's own top-level window to embed a UI in.
struct Host {
    Host()
        : descriptor(lv2_descriptor(0)),
          handle(descriptor->instantiate(descriptor, 44100.0, "", features.List())),
          driver(descriptor, handle, features, false),
          window(G::native::CreateNativeWindow(L"host", G::Rect{0, 0, 640, 480}, 0, 0)) {
        descriptor->activate(handle);
    }
    ~Host() {
        CloseUi();
        descriptor->deactivate(handle);
        descriptor->cleanup(handle);
    }
    lv2::Plugin& plugin() { return *static_cast<lv2::Plugin*>(handle); }

    LV2UI_Handle OpenUi(bool withInstance = true) {
        const LV2UI_Descriptor* ui = lv2ui_descriptor(0);
        LV2_Feature parent{LV2_UI__parent,
                           reinterpret_cast<void*>(window.root ? window.root->GetNativeWindow() : 0)};
        LV2_Feature instance{LV2_INSTANCE_ACCESS_URI, handle};
        LV2_Feature idle{LV2_UI__idleInterface, nullptr};
        const LV2_Feature* list[] = {&parent, withInstance ? &instance : &idle, &idle, nullptr};
        uiHandle = ui->instantiate(ui, "urn:vrok:lv2:instrument", "", RecordWrite, &written, &widget, list);
        return uiHandle;
    }
    int Idle() {
        const auto* idle = static_cast<const LV2UI_Idle_Interface*>(
            lv2ui_descriptor(0)->extension_data(LV2_UI__idleInterface));
        return idle->idle(uiHandle);
    }
    void CloseUi() {
        if (uiHandle) lv2ui_descriptor(0)->cleanup(uiHandle);
        uiHandle = nullptr;
    }
    lv2::Ui& ui() { return *static_cast<lv2::Ui*>(uiHandle); }

    lv2test::TestFeatures features;
    const LV2_Descriptor* descriptor;
    LV2_Handle handle;
    lv2test::Driver driver;
    struct Window {
        explicit Window(std::unique_ptr<G::NativeWindow> native)
            : root(native ? std::make_unique<G::RootControl>(std::move(native)) : nullptr) {
            if (root) root->ShowTop();
        }
        std::unique_ptr<G::RootControl> root;
    } window;
    LV2UI_Handle uiHandle = nullptr;
    LV2UI_Widget widget = nullptr;
    std::vector<Written> written;
};

class Lv2Ui : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_NE(std::getenv("DISPLAY"), nullptr) << "run under xvfb-run"; }
};

TEST_F(Lv2Ui, OneX11UiForBothPlugins) {
    ASSERT_NE(lv2ui_descriptor(0), nullptr);
    EXPECT_STREQ(lv2ui_descriptor(0)->URI, "urn:vrok:lv2:ui");
    EXPECT_EQ(lv2ui_descriptor(1), nullptr);
    for (const char* uri : {LV2_UI__idleInterface, LV2_UI__showInterface, LV2_UI__resize})
        EXPECT_NE(lv2ui_descriptor(0)->extension_data(uri), nullptr) << uri;
}

TEST_F(Lv2Ui, WithoutTheInstanceThereIsNoUi) {
    Host host;
    EXPECT_EQ(host.OpenUi(false), nullptr);
}

TEST_F(Lv2Ui, EmbedsTheEditorOnThePatchThatPlays) {
    Host host;
    host.driver.LoadPatch(kSine);
    ASSERT_NE(host.OpenUi(), nullptr);
    EXPECT_NE(host.widget, nullptr);
    EXPECT_EQ(host.Idle(), 0);
    const mi& playing = host.plugin().Machine();
    EXPECT_EQ(host.ui().ShownMachine(), &playing);
    editor::VrokContainerWindow* window = host.ui().Editor()->WindowOf(playing);
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(window->docWindow->blockWindows.size(), 2u);
}

// Two instances play the same notes; one opens and closes its editor on the way.
TEST_F(Lv2Ui, OpeningAndClosingNeverDisturbsTheSound) {
    Host quiet, shown;
    quiet.driver.LoadPatch(kSine);
    shown.driver.LoadPatch(kSine);
    for (Host* h : {&quiet, &shown}) {
        h->descriptor->deactivate(h->handle);
        h->descriptor->activate(h->handle);
    }
    std::vector<float> a, b;
    for (int block = 0; block < 12; ++block) {
        const std::vector<lv2test::Event> notes = {NoteOn(10, 57 + block)};
        if (block == 3) {
            ASSERT_NE(shown.OpenUi(), nullptr);
        }
        if (shown.uiHandle) shown.Idle();
        if (block == 8) shown.CloseUi();
        const auto outQuiet = quiet.driver.Render(1024, 256, notes);
        const auto outShown = shown.driver.Render(1024, 256, notes);
        a.insert(a.end(), outQuiet.left.begin(), outQuiet.left.end());
        b.insert(b.end(), outShown.left.begin(), outShown.left.end());
    }
    EXPECT_EQ(a, b);
    EXPECT_GT(lv2test::Rms(b, 0, b.size()), 0.01);
}

TEST_F(Lv2Ui, FollowsTheMachineThePluginSwapsIn) {
    Host host;
    host.driver.LoadPatch(kSine);
    ASSERT_NE(host.OpenUi(), nullptr);
    host.Idle();
    const mi* before = host.ui().ShownMachine();
    // A patch file loaded while the editor shows the old machine: the old one stays alive
    // until the editor has moved on.
    host.driver.LoadPatch(kInputPass);
    ASSERT_NE(&host.plugin().Machine(), before);
    EXPECT_EQ(host.ui().ShownMachine(), before);
    host.Idle();
    const mi& now = host.plugin().Machine();
    EXPECT_EQ(host.ui().ShownMachine(), &now);
    EXPECT_TRUE(host.ui().Editor()->IsOpen(now));
    EXPECT_EQ(host.ui().Editor()->WindowOf(now)->docWindow->blockWindows.size(), 2u);
    // And again, through a restored state.
    host.driver.RestoreState(host.driver.SaveState());
    host.driver.Render(64, 64);
    host.Idle();
    EXPECT_EQ(host.ui().ShownMachine(), &host.plugin().Machine());
    host.driver.Render(512, 256, {NoteOn(0, 69)});
}

TEST_F(Lv2Ui, KnobPanelsMoveTheHostsPorts) {
    Host host;
    ASSERT_NE(host.OpenUi(), nullptr);
    // What an external knob block's panel does when the user turns it.
    host.plugin().Machine().listener->ValueChanged(nullptr, 2, 0.75f);
    ASSERT_EQ(host.written.size(), 1u);
    EXPECT_EQ(host.written[0].port, 6u);
    EXPECT_EQ(host.written[0].value, 96.0f);
    host.CloseUi();
    host.plugin().Machine().listener->ValueChanged(nullptr, 2, 0.25f);
    EXPECT_EQ(host.written.size(), 1u) << "no UI, no writes";
}

}  // namespace
