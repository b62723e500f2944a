// The listing, selection and name-field logic of the file dialogs, on std::filesystem; every
// filesystem call takes an error code, so an unreadable folder gives a short list, not a throw.
#include "g/native/x11/file_dialog_model.h"

#include <algorithm>
#include <cctype>

namespace G {

namespace fs = std::filesystem;

namespace {

std::string Lower(std::string text) {
    for (char& ch : text) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    return text;
}

bool LessIgnoringCase(const FileDialogEntry& a, const FileDialogEntry& b) {
    std::string la = Lower(a.name);
    std::string lb = Lower(b.name);
    return la != lb ? la < lb : a.name < b.name;
}

}  // namespace

FileDialogModel::FileDialogModel(const FileDialogRequest& request, bool saving)
    : saving(saving), filterLabel(request.filterLabel), name(request.fileName) {
    for (std::string extension : request.extensions) {
        // Accept "*.vrkx", "vrkx" and ".vrkx" alike.
        extension.erase(0, extension.find_first_not_of('*'));
        if (extension.empty()) continue;
        if (extension[0] != '.') extension = '.' + extension;
        extensions.push_back(Lower(extension));
    }
    std::error_code error;
    fs::path start = request.directory.empty() ? fs::path() : fs::path(request.directory);
    if (start.empty() || !fs::is_directory(start, error)) start = fs::current_path(error);
    Enter(start);
}

std::string FileDialogModel::FilterText() const {
    std::string text = filterLabel.empty() ? std::string("Files") : filterLabel;
    text += " (";
    for (size_t i = 0; i < extensions.size(); ++i) text += (i ? ", *" : "*") + extensions[i];
    if (extensions.empty()) text += '*';
    return text + ')';
}

void FileDialogModel::Select(int index) {
    if (entries.empty()) return;
    selected = std::clamp(index, 0, static_cast<int>(entries.size()) - 1);
    selectionActive = true;
    if (!entries[selected].isDirectory) name = entries[selected].name;
}

void FileDialogModel::MoveSelection(int delta) {
    Select(selected < 0 ? (delta > 0 ? 0 : static_cast<int>(entries.size()) - 1) : selected + delta);
}

void FileDialogModel::Type(const std::string& utf8) {
    name += utf8;
    selectionActive = false;
}

void FileDialogModel::EraseLastCharacter() {
    // Drop continuation bytes, then the lead byte of the last UTF-8 character.
    while (!name.empty() && (static_cast<unsigned char>(name.back()) & 0xC0) == 0x80) name.pop_back();
    if (!name.empty()) name.pop_back();
    selectionActive = false;
}

FileDialogModel::Outcome FileDialogModel::Activate() {
    problem.clear();
    std::error_code error;
    if (selectionActive && selected >= 0 && entries[selected].isDirectory) {
        Enter(fs::path(directory) / entries[selected].name);
        return Outcome::Stay;
    }
    if (name.empty()) return Outcome::Stay;
    fs::path candidate = fs::path(name).is_absolute() ? fs::path(name) : fs::path(directory) / name;
    if (fs::is_directory(candidate, error)) {
        name.clear();
        Enter(candidate);
        return Outcome::Stay;
    }
    bool bare = !candidate.has_extension();
    if (saving) {
        if (bare && !extensions.empty()) candidate += extensions.front();
        if (!fs::is_directory(candidate.parent_path(), error)) {
            problem = "Folder not found";
            return Outcome::Stay;
        }
        path = candidate.lexically_normal().string();
        return fs::exists(candidate, error) ? Outcome::ConfirmOverwrite : Outcome::Chosen;
    }
    std::vector<fs::path> tries{candidate};
    if (bare) {
        for (const std::string& extension : extensions) tries.push_back(fs::path(candidate) += extension);
    }
    for (const fs::path& attempt : tries) {
        if (fs::exists(attempt, error) && !fs::is_directory(attempt, error)) {
            path = attempt.lexically_normal().string();
            return Outcome::Chosen;
        }
    }
    problem = "File not found";
    return Outcome::Stay;
}

FileDialogModel::Outcome FileDialogModel::ActivateEntry(int index) {
    if (index < 0 || index >= static_cast<int>(entries.size())) return Outcome::Stay;
    Select(index);
    return Activate();
}

void FileDialogModel::Enter(const fs::path& folder) {
    std::error_code error;
    fs::path absolute = fs::absolute(folder, error).lexically_normal();
    // ".." resolves lexically, so a name ending in a separator loses it here.
    if (absolute.has_relative_path() && absolute.filename().empty()) absolute = absolute.parent_path();
    directory = absolute.string();
    entries.clear();
    problem.clear();
    selected = -1;
    selectionActive = false;
    std::vector<FileDialogEntry> folders;
    std::vector<FileDialogEntry> files;
    fs::directory_iterator it(absolute, fs::directory_options::skip_permission_denied, error);
    if (error) problem = "Cannot read this folder";
    for (; !error && it != fs::directory_iterator(); it.increment(error)) {
        std::string entryName = it->path().filename().string();
        if (entryName.empty() || entryName[0] == '.') continue;  // hidden, as file managers do
        std::error_code kindError;
        if (it->is_directory(kindError)) {
            folders.push_back({entryName, true});
        } else if (Matches(entryName)) {
            files.push_back({entryName, false});
        }
    }
    std::sort(folders.begin(), folders.end(), LessIgnoringCase);
    std::sort(files.begin(), files.end(), LessIgnoringCase);
    if (absolute.has_relative_path()) entries.push_back({"..", true});
    entries.insert(entries.end(), folders.begin(), folders.end());
    entries.insert(entries.end(), files.begin(), files.end());
}

bool FileDialogModel::Matches(const std::string& fileName) const {
    if (extensions.empty()) return true;
    std::string lower = Lower(fileName);
    return std::any_of(extensions.begin(), extensions.end(), [&](const std::string& extension) {
        return lower.size() > extension.size() &&
               lower.compare(lower.size() - extension.size(), extension.size(), extension) == 0;
    });
}

}  // namespace G
