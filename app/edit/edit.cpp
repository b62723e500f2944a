// The `vrok edit` session: a document with its engine, the editor's container window, the close
// question for unsaved changes, the screenshot for tests, and, when playing, the live rig whose
// machine owns the document, with its meter in the top bar.
#include "app/edit/edit.h"

#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>

#include "app/live/backend.h"
#include "app/manual/manual_command.h"
#include "app/note_arguments.h"
#include "document/vrok_doc.h"
#include "editor/top_bar.h"
#include "editor/vrok_container_window.h"
#include "editor/vrok_doc_window.h"
#include "g/native/native.h"
#include "g/png.h"
#include "help/help_display.h"
#include "machine/machine.h"

namespace app {
namespace {

// The meter is redrawn at most this often.
constexpr auto kMeterPeriod = std::chrono::milliseconds(300);

void Say(const std::string& line) {
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

class EditSession {
public:
    EditSession(const EditOptions& editOptions, VrokDoc& document, std::unique_ptr<G::NativeWindow> native,
                live::LiveRig* liveRig, std::unique_ptr<HelpLibrary> manual)
        : options(editOptions), doc(document), rig(liveRig) {
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
        if (manual) window->UseManual(std::move(manual));
        if (!options.manualPage.empty()) {
            window->docWindow->ToggleManual();
            window->docWindow->ShowManualPage(options.manualPage);
        }
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

    // CPU load of the audio callback and the under-runs so far, or why the audio stopped.
    void UpdateMeter() {
        const auto now = std::chrono::steady_clock::now();
        if (!rig || now - lastMeter < kMeterPeriod) return;
        lastMeter = now;
        editor::TopBar* topBar = window->docWindow->topBar;
        if (!topBar) return;
        const std::string failure = rig->Failure();
        if (!failure.empty()) {
            if (!audioLost) Say("audio stopped: " + failure);
            audioLost = true;
            topBar->SetMeterText("no audio: the device went away");
            return;
        }
        const live::LoadMeter& meter = rig->Meter();
        char text[96];
        std::snprintf(text, sizeof text, "CPU %.1f%% | %d under-runs", 100.0 * double(meter.load.load()),
                      meter.underruns.load() + meter.skippedBuffers.load());
        topBar->SetMeterText(text);
    }

    // Each article the manual comes to, and its closing, as a line: what a reader or a test
    // driving the window sees.
    void ReportManual() {
        const HelpDisplay* display = window->helpDisplay;
        const HelpArticle* article = display && display->visible ? display->Current() : nullptr;
        const bool shown = display && display->visible;
        if (article == reportedArticle && shown == reportedShown) return;
        if (shown && article) Say("manual " + article->name);
        if (!shown && reportedShown) Say("manual closed");
        reportedArticle = article;
        reportedShown = shown;
    }

    void Tick() {
        if (!announced) {
            announced = true;
            start = std::chrono::steady_clock::now();
            Say("ready");
        }
        UpdateMeter();
        ReportManual();
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
    live::LiveRig* rig;
    std::chrono::steady_clock::time_point lastMeter;
    bool audioLost = false;
    std::unique_ptr<editor::VrokContainerWindow> window;
    Ticker ticker;
    bool announced = false;
    const HelpArticle* reportedArticle = nullptr;
    bool reportedShown = false;
    std::chrono::steady_clock::time_point start;
};

}  // namespace

int RunEdit(const EditOptions& options) {
    // When playing, the device comes first: a device that cannot be used ends the command
    // before any window opens, and the document is the rig's machine's, so the audio path
    // is the one a host drives.
    std::optional<live::LiveRig> rig;
    std::optional<VrokDoc> ownDoc;
    if (options.play) {
        try {
            rig.emplace(options.live);
        } catch (const live::DeviceError& e) {
            std::fprintf(stderr, "vrok: %s\n", e.what());
            return 1;
        } catch (const UsageError& e) {
            std::fprintf(stderr, "vrok: %s\n", e.what());
            return 2;
        }
    } else {
        ownDoc.emplace();
    }
    VrokDoc& doc = rig ? *rig->Machine().document : *ownDoc;
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
    std::unique_ptr<HelpLibrary> manual;
    if (!options.manualFile.empty() && !(manual = LoadManualFile(options.manualFile))) return 1;
    auto native =
        G::native::CreateNativeWindow(L"Vrok editor", G::Rect{0, 0, options.width, options.height}, 0, 0);
    if (!native) {
        std::fprintf(stderr, "vrok: edit: cannot open a window (no X display? check DISPLAY)\n");
        return 1;
    }
    if (rig) {
        try {
            rig->Start();
        } catch (const live::DeviceError& e) {
            std::fprintf(stderr, "vrok: %s\n", e.what());
            return 1;
        }
        Say("playing through " + rig->Describe());
    }
    int status = 0;
    {
        // The window goes before the rig, whose machine owns the document it shows.
        EditSession session(options, doc, std::move(native), rig ? &*rig : nullptr, std::move(manual));
        if (!options.patch.empty()) session.SetName(options.patch);
        session.Run();
        status = session.failed ? 1 : 0;
    }
    if (rig) Say(rig->Summary());
    return status;
}

}  // namespace app
