// VrokDocWindow files: load, save, drop and clear. A patch file is read completely before the
// open patch is touched, so a failed load keeps the patch; a failed save says so and leaves the
// document marked as changed.
#include "document/vrok_doc.h"
#include "editor/editor_menus.h"
#include "editor/vrok_doc_window.h"
#include "g/root_control.h"

namespace editor {

void VrokDocWindow::MessageBox(const std::string& text, const std::string& title) {
    if (G::NativeWindow* native = Native()) native->ShowMessageBox(text, title, G::MessageBoxKind::Ok);
}

bool VrokDocWindow::Load(const std::string& path) {
    LoadReport xmlReport;
    LoadReport binaryReport;
    CancelConnection();
    ClearSelection();
    if (doc.LoadFile(path, &xmlReport)) {
        SetName(path);
    } else if (doc.ReadVrk(path, &binaryReport)) {
        SetName(path);
    } else {
        // Whichever format the file looked like tells the more useful story.
        const bool looksXml = path.size() >= 5 && path.compare(path.size() - 5, 5, ".vrkx") == 0;
        const LoadReport& report = looksXml || binaryReport.empty() ? xmlReport : binaryReport;
        std::string text = "Cannot load " + path;
        if (!report.empty()) text += ":\r" + report.front().Format();
        MessageBox(text + "\rThe open patch is unchanged.", "Load..");
        return false;
    }
    CountChange();
    DocumentChanged();
    return true;
}

bool VrokDocWindow::Save(const std::string& path) {
    std::string error;
    if (!doc.SaveFile(path, &error)) {
        MessageBox("Cannot save " + path + (error.empty() ? std::string() : ":\r" + error), "Save file to..");
        return false;
    }
    SetName(path);
    return true;
}

bool VrokDocWindow::ConfirmAndClear() {
    G::NativeWindow* native = Native();
    if (!native || native->ShowMessageBox("Warning!\rClear has no undo.\rProceed?", "Warning!",
                                          G::MessageBoxKind::YesNo) != G::MessageBoxResult::Yes) {
        return false;
    }
    CancelConnection();
    ClearSelection();
    doc.ClearAll();
    SetName("");
    CountChange();
    DocumentChanged();
    return true;
}

bool VrokDocWindow::SaveBeforeClosing() {
    G::NativeWindow* native = Native();
    if (!doc.changed || !native) return true;
    const std::string shown = doc.fileName.empty() ? std::string("new patch") : doc.fileName;
    if (native->ShowMessageBox("Save the changes to " + shown + "?", "Vrok", G::MessageBoxKind::YesNo) !=
        G::MessageBoxResult::Yes) {
        return true;
    }
    if (name.empty()) {
        OnCommand(kCommandSave);
    } else {
        Save(name);
    }
    return !doc.changed;
}

void VrokDocWindow::SetName(const std::string& path) {
    name = path;
    if (!path.empty()) {
        doc.SetFileName(path);
    } else {
        doc.fileName.clear();
    }
    if (onNameChanged) onNameChanged();
}

bool VrokDocWindow::OnDropFile(const std::string& path) {
    Load(path);
    return true;
}

}  // namespace editor
