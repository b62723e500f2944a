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

namespace {

namespace fs = std::filesystem;

constexpr int kMenuX = 100;
constexpr int kMenuY = 100;
constexpr int kWait = 3000;

// The screen point in the middle of the `index`th row of a menu opened at kMenuX, kMenuY,
// counting separators as 7 pixels high.
void MenuRow(const std::vector<bool>& separators, int index, int& x, int& y) {
    y = kMenuY + G::x11::MenuPanelLayout::kBorder;
    for (int i = 0; i < index; ++i)
        y += separators[i] ? G::x11::MenuPanelLayout::kSeparatorHeight : G::x11::MenuPanelLayout::kItemHeight;
    y += G::x11::MenuPanelLayout::kItemHeight / 2;
    x = kMenuX + 30;
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

    int RunMenu(std::function<void(Peer&)> script) {
        ModalDriver driver(std::move(script));
        int id = native->RunPopupMenu(menu, kMenuX, kMenuY, G::RightClickMenu::kFlags);
        driver.Finish();
        return id;
    }

    G::MessageBoxResult RunBox(G::MessageBoxKind kind, std::function<void(Peer&, test::WindowId)> keys) {
        ModalDriver driver([keys = std::move(keys)](Peer& p) {
            test::WindowId box = p.WaitForWindow("Question", kWait);
            if (!box) return;
            p.Focus(box);
            keys(p, box);
        });
        G::MessageBoxResult result =
            native->ShowMessageBox("Replace the patch?\nThis cannot be undone.", "Question", kind);
        driver.Finish();
        return result;
    }

    Peer peer;
    std::unique_ptr<G::NativeWindow> native;
    G::MenuItem menu{0, ""};
    const std::vector<bool> separators{false, true, false, false};
};

TEST_F(X11Modal, MenuReturnsTheIdOfTheClickedItem) {
    EXPECT_EQ(RunMenu([&](Peer& p) {
                  int x = 0;
                  int y = 0;
                  MenuRow(separators, 2, x, y);
                  if (!p.WaitForPointerGrab(kWait)) return;
                  p.MoveTo(x, y);
                  p.Click(1);
              }),
              2);
}

TEST_F(X11Modal, MenuKeysWalkItemsAndSubmenusAndEscapeDismisses) {
    struct Row {
        std::vector<unsigned long> keys;
        int id;
    };
    const Row rows[] = {
        {{XK_Escape}, 0},
        // Down from nothing lands on the first item and skips the separator after it.
        {{XK_Down, XK_Down, XK_Return}, 2},
        {{XK_Up, XK_Right, XK_Down, XK_Return}, 4},
        // Escape in a submenu closes only the submenu.
        {{XK_Up, XK_Right, XK_Escape, XK_Up, XK_Return}, 2},
    };
    for (const Row& row : rows) {
        EXPECT_EQ(RunMenu([&](Peer& p) {
                      if (!p.WaitForPointerGrab(kWait)) return;
                      for (unsigned long key : row.keys) p.Key(key);
                  }),
                  row.id)
            << row.keys.size() << " keys";
    }
}

TEST_F(X11Modal, AClickOutsideDismisses) {
    EXPECT_EQ(RunMenu([](Peer& p) {
                  if (!p.WaitForPointerGrab(kWait)) return;
                  p.MoveTo(kMenuX + 500, kMenuY + 400);
                  p.Click(1);
              }),
              0);
}

TEST_F(X11Modal, TheReleaseOfTheOpeningClickChoosesNothing) {
    int x = 0;
    int y = 0;
    MenuRow(separators, 0, x, y);
    peer.MoveTo(x, y);
    peer.Button(3, true);
    EXPECT_EQ(RunMenu([](Peer& p) {
                  if (!p.WaitForPointerGrab(kWait)) return;
                  p.Button(3, false);
                  p.Key(XK_Escape);
              }),
              0);
}

TEST_F(X11Modal, HoveringASubmenuOpensItToTheRight) {
    int subX = 0;
    int subY = 0;
    EXPECT_EQ(RunMenu([&](Peer& p) {
                  int x = 0;
                  int y = 0;
                  MenuRow(separators, 3, x, y);
                  if (!p.WaitForPointerGrab(kWait)) return;
                  test::WindowId top = p.WaitForWindow("menu", kWait);
                  p.MoveTo(x, y);
                  test::WindowId sub = p.WaitForWindow("menu", kWait, top);
                  if (!sub) return;
                  p.Origin(sub, subX, subY);
                  p.MoveTo(subX + 30, subY + G::x11::MenuPanelLayout::kBorder +
                                          3 * G::x11::MenuPanelLayout::kItemHeight / 2);
                  p.Click(1);
              }),
              4);
    EXPECT_GT(subX, kMenuX + 100);
    int x = 0;
    int y = 0;
    MenuRow(separators, 3, x, y);
    EXPECT_EQ(subY + G::x11::MenuPanelLayout::kItemHeight / 2 + G::x11::MenuPanelLayout::kBorder, y);
}

TEST_F(X11Modal, MessageBoxAnswersFromKeysAndTheCloseButton) {
    using G::MessageBoxKind;
    using G::MessageBoxResult;
    EXPECT_EQ(RunBox(MessageBoxKind::Ok, [](Peer& p, test::WindowId) { p.Key(XK_Return); }),
              MessageBoxResult::Ok);
    EXPECT_EQ(RunBox(MessageBoxKind::YesNo, [](Peer& p, test::WindowId) { p.Key(XK_Return); }),
              MessageBoxResult::Yes);
    EXPECT_EQ(RunBox(MessageBoxKind::YesNo, [](Peer& p, test::WindowId) { p.Key(XK_n); }),
              MessageBoxResult::No);
    EXPECT_EQ(RunBox(MessageBoxKind::YesNo, [](Peer& p, test::WindowId) { p.Key(XK_y); }),
              MessageBoxResult::Yes);
    EXPECT_EQ(RunBox(MessageBoxKind::YesNo,
                     [](Peer& p, test::WindowId) {
                         p.Key(XK_Tab);
                         p.Key(XK_Return);
                     }),
              MessageBoxResult::No);
    EXPECT_EQ(RunBox(MessageBoxKind::YesNo, [](Peer& p, test::WindowId box) { p.SendClose(box); }),
              MessageBoxResult::No);
    EXPECT_EQ(RunBox(MessageBoxKind::Ok, [](Peer& p, test::WindowId box) { p.SendClose(box); }),
              MessageBoxResult::Ok);
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

    bool Run(bool saving, std::function<void(Peer&)> keys, std::string& path) {
        ModalDriver driver([keys = std::move(keys)](Peer& p) {
            test::WindowId dialog = p.WaitForWindow("Patch file", kWait);
            if (!dialog) return;
            p.Focus(dialog);
            keys(p);
        });
        bool chosen = saving ? native->SaveFileDialog(request, path) : native->OpenFileDialog(request, path);
        driver.Finish();
        return chosen;
    }

    fs::path folder;
    G::FileDialogRequest request;
};

TEST_F(X11FileDialog, OpenTakesATypedNameOrAListedFile) {
    std::string path;
    EXPECT_TRUE(Run(
        false, [](Peer& p) { p.Type("a\r"); }, path));
    EXPECT_EQ(path, (folder / "a.vrkx").string());
    // "..", "sub", "a.vrkx": b.txt is filtered out.
    path.clear();
    EXPECT_TRUE(Run(
        false,
        [](Peer& p) {
            for (auto key : {XK_Down, XK_Down, XK_Down, XK_Return}) p.Key(key);
        },
        path));
    EXPECT_EQ(path, (folder / "a.vrkx").string());
    path.clear();
    EXPECT_TRUE(Run(
        false,
        [](Peer& p) {
            for (auto key : {XK_Down, XK_Down, XK_Return}) p.Key(key);
            p.Type("inner\r");
        },
        path));
    EXPECT_EQ(path, (folder / "sub" / "inner.vrkx").string());
}

TEST_F(X11FileDialog, EscapeAndTheCloseButtonCancel) {
    std::string path = "unchanged";
    EXPECT_FALSE(Run(
        false, [](Peer& p) { p.Key(XK_Escape); }, path));
    EXPECT_FALSE(Run(
        true,
        [](Peer& p) {
            test::WindowId dialog = p.WaitForWindow("Patch file", kWait);
            p.SendClose(dialog);
        },
        path));
    EXPECT_EQ(path, "unchanged");
}

TEST_F(X11FileDialog, SaveAddsTheExtensionAndAsksBeforeReplacing) {
    std::string path;
    request.fileName = "proposed";
    EXPECT_TRUE(Run(
        true, [](Peer& p) { p.Key(XK_Return); }, path));
    EXPECT_EQ(path, (folder / "proposed.vrkx").string());

    request.fileName.clear();
    auto answer = [](unsigned long key) {
        return [key](Peer& p) {
            test::WindowId dialog = p.WaitForWindow("Patch file", kWait);
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
    EXPECT_TRUE(Run(true, answer(XK_y), path));
    EXPECT_EQ(path, (folder / "a.vrkx").string());
    EXPECT_FALSE(Run(true, answer(XK_n), path));
}

}  // namespace
