// What the toolkit-drawn file dialogs know, with no window system: the folder listing (".."
// first, then folders, then the files the filter lets through, each sorted without regard to
// case), the selection, the name field, and what activating them means.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "g/native_window.h"

namespace G {

struct FileDialogEntry {
    std::string name;
    bool isDirectory = false;
};

class FileDialogModel {
public:
    enum class Outcome { Stay, Chosen, ConfirmOverwrite };

    // Starts in the request's folder, or the working folder when that is empty or missing.
    FileDialogModel(const FileDialogRequest& request, bool saving);

    const std::string& Directory() const { return directory; }
    const std::vector<FileDialogEntry>& Entries() const { return entries; }
    // -1 when nothing is selected.
    int Selected() const { return selected; }
    const std::string& Name() const { return name; }
    // Why the last activation went nowhere ("File not found"), empty otherwise.
    const std::string& Problem() const { return problem; }
    // The label and patterns, as "Vrok patches (*.vrkx, *.vrk)".
    std::string FilterText() const;
    // The chosen path after Chosen or ConfirmOverwrite.
    const std::string& Path() const { return path; }

    // Selecting a file copies its name into the name field. Clamped to the list.
    void Select(int index);
    void MoveSelection(int delta);
    // Typing makes the name field, not the selection, what Activate uses.
    void Type(const std::string& utf8);
    void EraseLastCharacter();

    // Return or the Open/Save button: enters a selected folder, or resolves the name field
    // (relative to the folder, or absolute): a folder is entered; opening needs an existing
    // file, trying the filter's extensions on a bare name; saving adds the first extension to
    // a bare name and asks before replacing a file.
    Outcome Activate();
    // Double click on an entry.
    Outcome ActivateEntry(int index);

private:
    void Enter(const std::filesystem::path& folder);
    bool Matches(const std::string& fileName) const;

    bool saving;
    std::vector<std::string> extensions;  // lower case, with the dot
    std::string filterLabel;
    std::string directory;
    std::vector<FileDialogEntry> entries;
    int selected = -1;
    bool selectionActive = false;
    std::string name;
    std::string problem;
    std::string path;
};

}  // namespace G
