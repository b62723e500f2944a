// Modal loops driven by a peer thread: popup menus by mouse and keyboard, message boxes and
// the file dialogs. Every loop has a way out: the driver presses Escape if its script fails.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "g/menu.h"
#include "g/native/native.h"
#include "g/native/x11/x11_internal.h"
#include "x11_peer.h"

// Xlib's macros (None, Bool, Status) must come after the test framework.
#include <X11/Xlib.h>
#include <X11/keysym.h>

using test::ModalDriver;
using test::Peer;
using Layout = G::x11::MenuPanelLayout;

namespace {

namespace fs = std::filesystem;

constexpr int kMenuX = 100;
constexpr int kMenuY = 100;
constexpr int kWait = 3000;

// The screen point in the middle of a row of the menu below, opened at kMenuX, kMenuY: First,
// a separator, Second, More.
std::pair<int, int> MenuRow(int index) {
    const int tops[] = {0, Layout::kItemHeight, Layout::kItemHeight + Layout::kSeparatorHeight,
                        2 * Layout::kItemHeight + Layout::kSeparatorHeight};
    return {kMenuX + 30, kMenuY + Layout::kBorder + tops[index] + Layout::kItemHeight / 2};
}

class X11Modal : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(peer.display, nullptr) << "run under xvfb-run";
        native = G::native::CreateNativeWindow(L"Owner", G::Rect{0, 0, 200, 150}, 0, 0);
        ASSERT_NE(native, nullptr);
        menu.Add(1, "First");
        menu.AddSeparator();
        menu.Add(2, "Second");
        G::MenuItem* more = menu.Add(0, "More");
        more->Add(3, "Third");
        more->Add(4, "Fourth");
    }

    // Runs the menu while `script` plays the user once the menu holds the pointer.
    int RunMenu(std::function<void(Peer&)> script) {
        ModalDriver driver([script = std::move(script)](Peer& p) {
            if (p.WaitForPointerGrab(kWait)) script(p);
        });
        int id = native->RunPopupMenu(menu, kMenuX, kMenuY, G::RightClickMenu::kFlags);
        driver.Finish();
        return id;
    }

    Peer peer;
    std::unique_ptr<G::NativeWindow> native;
    G::MenuItem menu{0, ""};
};

TEST_F(X11Modal, MenuReturnsTheIdOfTheClickedItemAndAClickOutsideDismisses) {
    const std::pair<std::pair<int, int>, int> rows[] = {{MenuRow(2), 2}, {{kMenuX + 500, kMenuY + 400}, 0}};
    for (auto [point, id] : rows) {
        EXPECT_EQ(RunMenu([point = point](Peer& p) {
                      p.MoveTo(point.first, point.second);
                      p.Click(1);
                  }),
                  id);
    }
}

TEST_F(X11Modal, MenuKeysWalkItemsAndSubmenusAndEscapeDismisses) {
    const std::pair<std::vector<unsigned long>, int> rows[] = {
        {{XK_Escape}, 0},
        // Down from nothing lands on the first item and skips the separator after it.
        {{XK_Down, XK_Down, XK_Return}, 2},
        {{XK_Up, XK_Right, XK_Down, XK_Return}, 4},
        // Escape in a submenu closes only the submenu.
        {{XK_Up, XK_Right, XK_Escape, XK_Up, XK_Return}, 2},
    };
    for (const auto& [keys, id] : rows) {
        EXPECT_EQ(RunMenu([&keys = keys](Peer& p) {
                      for (unsigned long key : keys) p.Key(key);
                  }),
                  id)
            << keys.size() << " keys";
    }
}

TEST_F(X11Modal, TheReleaseOfTheOpeningClickChoosesNothing) {
    peer.MoveTo(MenuRow(0).first, MenuRow(0).second);
    peer.Button(3, true);
    EXPECT_EQ(RunMenu([](Peer& p) {
                  p.Button(3, false);
                  p.Key(XK_Escape);
              }),
              0);
}

TEST_F(X11Modal, HoveringASubmenuOpensItToTheRight) {
    int subX = 0;
    int subY = 0;
    EXPECT_EQ(RunMenu([&](Peer& p) {
                  test::WindowId top = p.WaitForWindow("menu", kWait);
                  p.MoveTo(MenuRow(3).first, MenuRow(3).second);
                  test::WindowId sub = p.WaitForWindow("menu", kWait, top);
                  if (!sub) return;
                  p.Origin(sub, subX, subY);
                  p.MoveTo(subX + 30, subY + Layout::kBorder + 3 * Layout::kItemHeight / 2);
                  p.Click(1);
              }),
              4);
    EXPECT_GT(subX, kMenuX + 100);
    EXPECT_EQ(subY + Layout::kBorder + Layout::kItemHeight / 2, MenuRow(3).second);
}

TEST_F(X11Modal, MessageBoxAnswersFromKeysAndTheCloseButton) {
    using G::MessageBoxKind;
    using G::MessageBoxResult;
    constexpr unsigned long kClose = 0;  // the window manager's close button
    const struct {
        MessageBoxKind kind;
        std::vector<unsigned long> keys;
        MessageBoxResult result;
    } rows[] = {
        {MessageBoxKind::Ok, {XK_Return}, MessageBoxResult::Ok},
        {MessageBoxKind::YesNo, {XK_Return}, MessageBoxResult::Yes},
        {MessageBoxKind::YesNo, {XK_n}, MessageBoxResult::No},
        {MessageBoxKind::YesNo, {XK_y}, MessageBoxResult::Yes},
        {MessageBoxKind::YesNo, {XK_Tab, XK_Return}, MessageBoxResult::No},
        {MessageBoxKind::YesNo, {kClose}, MessageBoxResult::No},
        {MessageBoxKind::Ok, {kClose}, MessageBoxResult::Ok},
    };
    for (const auto& row : rows) {
        ModalDriver driver([&keys = row.keys](Peer& p) {
            test::WindowId box = p.WaitForWindow("Question", kWait);
            if (!box) return;
            p.Focus(box);
            for (unsigned long key : keys) key == kClose ? p.SendClose(box) : p.Key(key);
        });
        EXPECT_EQ(native->ShowMessageBox("Replace the patch?\nThis cannot be undone.", "Question", row.kind),
                  row.result)
            << row.keys.size() << " keys, first " << row.keys[0];
        driver.Finish();
    }
}

class X11FileDialog : public X11Modal {
protected:
    void SetUp() override {
        X11Modal::SetUp();
        folder = fs::temp_directory_path() / ("vrok_dialog_" + std::to_string(::getpid()));
        fs::remove_all(folder);
        fs::create_directories(folder / "sub");
        for (const char* name : {"a.vrkx", "b.txt", "sub/inner.vrkx"}) std::ofstream(folder / name) << "x";
        request.title = "Patch file";
        request.directory = folder.string();
        request.filterLabel = "Vrok patches";
        request.extensions = {".vrkx"};
    }
    void TearDown() override { fs::remove_all(folder); }

    // Runs a dialog while `script` plays the user once it is up; `path` is what it chose.
    bool Run(bool saving, std::function<void(Peer&, test::WindowId)> script) {
        ModalDriver driver([script = std::move(script)](Peer& p) {
            test::WindowId dialog = p.WaitForWindow("Patch file", kWait);
            if (!dialog) return;
            p.Focus(dialog);
            script(p, dialog);
        });
        bool chosen = saving ? native->SaveFileDialog(request, path) : native->OpenFileDialog(request, path);
        driver.Finish();
        return chosen;
    }
    static std::function<void(Peer&, test::WindowId)> Keys(std::vector<unsigned long> keys,
                                                           std::string typed = "") {
        return [=](Peer& p, test::WindowId) {
            for (unsigned long key : keys) p.Key(key);
            p.Type(typed);
        };
    }

    fs::path folder;
    G::FileDialogRequest request;
    std::string path;
};

TEST_F(X11FileDialog, OpenTakesATypedNameOrAListedFileAndEscapeOrCloseCancel) {
    // The list holds "..", "sub", "a.vrkx": b.txt is filtered out.
    const std::pair<std::function<void(Peer&, test::WindowId)>, fs::path> rows[] = {
        {Keys({}, "a\r"), folder / "a.vrkx"},
        {Keys({XK_Down, XK_Down, XK_Down, XK_Return}), folder / "a.vrkx"},
        {Keys({XK_Down, XK_Down, XK_Return}, "inner\r"), folder / "sub" / "inner.vrkx"},
    };
    for (const auto& [script, chosen] : rows) {
        path.clear();
        EXPECT_TRUE(Run(false, script));
        EXPECT_EQ(path, chosen.string());
    }
    path = "unchanged";
    EXPECT_FALSE(Run(false, Keys({XK_Escape})));
    EXPECT_FALSE(Run(true, [](Peer& p, test::WindowId dialog) { p.SendClose(dialog); }));
    EXPECT_EQ(path, "unchanged");
}

TEST_F(X11FileDialog, SaveAddsTheExtensionAndAsksBeforeReplacing) {
    request.fileName = "proposed";
    EXPECT_TRUE(Run(true, Keys({XK_Return})));
    EXPECT_EQ(path, (folder / "proposed.vrkx").string());

    request.fileName.clear();
    auto answer = [](unsigned long key) {
        return [key](Peer& p, test::WindowId dialog) {
            p.Type("a\r");
            test::WindowId box = p.WaitForWindow("Patch file", kWait, dialog);
            if (!box) return;
            p.Focus(box);
            p.Key(key);
            // Input to the file dialog is ignored while the question is up.
            if (key == XK_n && p.WaitForGone(box, kWait)) {
                p.Focus(dialog);
                p.Key(XK_Escape);
            }
        };
    };
    EXPECT_TRUE(Run(true, answer(XK_y)));
    EXPECT_EQ(path, (folder / "a.vrkx").string());
    EXPECT_FALSE(Run(true, answer(XK_n)));
}

}  // namespace
