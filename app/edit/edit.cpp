// The `vrok edit` session: a document with its engine, the editor's container window, the close
// question for unsaved changes, and the screenshot for tests.
#include "app/edit/edit.h"

#include <chrono>
#include <cstdio>
#include <memory>

#include "document/vrok_doc.h"
#include "editor/vrok_container_window.h"
#include "editor/vrok_doc_window.h"
#include "g/native/native.h"
#include "g/png.h"

namespace app {
namespace {

void Say(const std::string& line) {
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

class EditSession {
public:
    EditSession(const EditOptions& editOptions, VrokDoc& document, std::unique_ptr<G::NativeWindow> native)
        : options(editOptions), doc(document) {
        window = std::make_unique<editor::VrokContainerWindow>(std::move(native), doc, options.width,
                                                               options.height);
        window->onClose = [this] { return !MayClose(); };
        // The window's title follows the patch's name, as the top bar does.
        auto redrawTopBar = window->docWindow->onNameChanged;
        window->docWindow->onNameChanged = [this, redrawTopBar] {
            if (redrawTopBar) redrawTopBar();
            ShowTitle();
        };
        ShowTitle();
        window->AddTimerClient(&ticker);
        ticker.session = this;
    }

    ~EditSession() { window->RemoveTimerClient(&ticker); }

    void SetName(const std::string& path) { window->docWindow->SetName(path); }

    void Run() {
        window->ShowTop();
        G::native::RunMessageLoop();
    }

    bool failed = false;

private:
    // Ticks for the session: announces readiness and takes the screenshot.
    struct Ticker : G::Control {
        Ticker() : G::Control(nullptr) {}
        void OnTimer(int) override { session->Tick(); }
        EditSession* session = nullptr;
    };

    void ShowTitle() {
        const std::string name = doc.fileName.empty() ? std::string("new patch") : doc.fileName;
        window->native->SetTitle(L"Vrok - " + std::wstring(name.begin(), name.end()));
    }

    // Unsaved changes: the canvas offers to save them; a save that fails keeps the window open.
    bool MayClose() {
        if (!window->docWindow->SaveBeforeClosing()) return false;
        window->native->running = false;
        return true;
    }

    void Tick() {
        if (!announced) {
            announced = true;
            start = std::chrono::steady_clock::now();
            Say("ready");
        }
        if (options.screenshot.empty() || !window->native->running) return;
        if (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(options.afterMs)) return;
        window->native->running = false;
        std::string error;
        G::NativeWindow& native = *window->native;
        if (!G::WritePng(options.screenshot, native.surface.data(), native.surfaceWidth, native.surfaceHeight,
                         native.surfaceRowLength, error)) {
            std::fprintf(stderr, "vrok: %s: %s\n", options.screenshot.c_str(), error.c_str());
            failed = true;
            return;
        }
        Say("Screenshot " + options.screenshot);
    }

    const EditOptions& options;
    VrokDoc& doc;
    std::unique_ptr<editor::VrokContainerWindow> window;
    Ticker ticker;
    bool announced = false;
    std::chrono::steady_clock::time_point start;
};

}  // namespace

int RunEdit(const EditOptions& options) {
    VrokDoc doc;
    if (!options.patch.empty()) {
        LoadReport xmlReport;
        LoadReport binaryReport;
        const bool loaded =
            doc.LoadFile(options.patch, &xmlReport) || doc.ReadVrk(options.patch, &binaryReport);
        const bool binary =
            options.patch.size() > 4 && options.patch.compare(options.patch.size() - 4, 4, ".vrk") == 0;
        const LoadReport& report = loaded ? (xmlReport.empty() ? binaryReport : xmlReport)
                                          : (binary && !binaryReport.empty() ? binaryReport : xmlReport);
        if (!loaded) {
            // One line: the problem of the format the file was meant to be in.
            std::fprintf(stderr, "vrok: %s\n",
                         report.empty() ? (options.patch + ": cannot read the patch").c_str()
                                        : report.front().Format().c_str());
            return 1;
        }
        // A patch that loaded with gaps (refused wires, unknown blocks) opens with a warning each.
        for (const LoadProblem& problem : report)
            std::fprintf(stderr, "vrok: warning: %s\n", problem.Format().c_str());
    }
    // What was just read is what is on disk.
    doc.changed = false;
    auto native =
        G::native::CreateNativeWindow(L"Vrok editor", G::Rect{0, 0, options.width, options.height}, 0, 0);
    if (!native) {
        std::fprintf(stderr, "vrok: edit: cannot open a window (no X display? check DISPLAY)\n");
        return 1;
    }
    EditSession session(options, doc, std::move(native));
    if (!options.patch.empty()) session.SetName(options.patch);
    session.Run();
    return session.failed ? 1 : 0;
}

}  // namespace app
