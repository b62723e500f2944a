// The file dialogs' model on a scratch folder: listing order and filtering, selection and the
// name field, entering folders, and what opening and saving resolve to.
#include "g/native/x11/file_dialog_model.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

namespace {

namespace fs = std::filesystem;
using Outcome = G::FileDialogModel::Outcome;

std::vector<std::string> Names(const G::FileDialogModel& model) {
    std::vector<std::string> names;
    for (const auto& entry : model.Entries()) names.push_back(entry.name + (entry.isDirectory ? "/" : ""));
    return names;
}

class FileDialogModelTest : public ::testing::Test {
protected:
    void SetUp() override {
        folder = fs::temp_directory_path() / ("vrok_model_" + std::to_string(::getpid()));
        fs::remove_all(folder);
        for (const char* dir : {"beta", "Alpha", ".hidden_dir", "Gamma/inner"})
            fs::create_directories(folder / dir);
        for (const char* file :
             {"b.vrkx", "A.VRK", "c.vrkx", "notes.txt", ".secret.vrkx", "Gamma/inner/deep.vrkx"})
            std::ofstream(folder / file) << "x";
        request.directory = folder.string();
        request.filterLabel = "Vrok patches";
        request.extensions = {".vrkx", "*.vrk"};
    }
    void TearDown() override { fs::remove_all(folder); }

    fs::path folder;
    G::FileDialogRequest request;
};

TEST_F(FileDialogModelTest, ListsUpThenFoldersThenFilteredFilesEachSortedIgnoringCase) {
    G::FileDialogModel model(request, false);
    EXPECT_EQ(model.Directory(), folder.string());
    EXPECT_EQ(Names(model),
              (std::vector<std::string>{"../", "Alpha/", "beta/", "Gamma/", "A.VRK", "b.vrkx", "c.vrkx"}));
    EXPECT_EQ(model.Selected(), -1);
    EXPECT_EQ(model.FilterText(), "Vrok patches (*.vrkx, *.vrk)");

    request.extensions.clear();
    request.filterLabel.clear();
    G::FileDialogModel all(request, false);
    EXPECT_EQ(Names(all).back(), "notes.txt");
    EXPECT_EQ(all.FilterText(), "Files (*)");
}

TEST_F(FileDialogModelTest, StartsInTheWorkingFolderWhenTheRequestedOneIsMissing) {
    request.directory = (folder / "missing").string();
    EXPECT_EQ(G::FileDialogModel(request, false).Directory(), fs::current_path().string());
    request.directory.clear();
    EXPECT_EQ(G::FileDialogModel(request, false).Directory(), fs::current_path().string());
}

TEST_F(FileDialogModelTest, SelectingAFileFillsTheNameAndFoldersAreEntered) {
    G::FileDialogModel model(request, false);
    model.MoveSelection(1);  // from nothing to the first entry
    EXPECT_EQ(model.Selected(), 0);
    model.Select(5);
    EXPECT_EQ(model.Name(), "b.vrkx");
    model.Select(99);  // clamped
    EXPECT_EQ(model.Selected(), 6);
    EXPECT_EQ(model.Name(), "c.vrkx");
    model.Select(3);  // a folder leaves the name alone
    EXPECT_EQ(model.Name(), "c.vrkx");
    EXPECT_EQ(model.Activate(), Outcome::Stay);
    EXPECT_EQ(model.Directory(), (folder / "Gamma").string());
    EXPECT_EQ(Names(model), (std::vector<std::string>{"../", "inner/"}));
    EXPECT_EQ(model.ActivateEntry(0), Outcome::Stay);  // ".." goes up
    EXPECT_EQ(model.Directory(), folder.string());
}

TEST_F(FileDialogModelTest, TypingOverridesTheSelectionAndErasesWholeCharacters) {
    G::FileDialogModel model(request, false);
    model.Select(2);            // a folder is selected...
    model.Type("Gamma/inner");  // ...but the typed path is what counts
    EXPECT_EQ(model.Activate(), Outcome::Stay);
    EXPECT_EQ(model.Directory(), (folder / "Gamma" / "inner").string());
    EXPECT_EQ(model.Name(), "");
    model.Type("d\xc3\xbc");
    model.EraseLastCharacter();
    EXPECT_EQ(model.Name(), "d");
    model.EraseLastCharacter();
    model.EraseLastCharacter();
    EXPECT_EQ(model.Name(), "");
}

TEST_F(FileDialogModelTest, OpeningNeedsAnExistingFileAndSavingAddsTheFirstExtensionAndFlagsExistingOnes) {
    const std::string abs = (folder / "Gamma/inner/deep.vrkx").string();
    // `erase` and `typed` edit the proposed name "fresh"; `select` picks a listed entry first.
    const struct {
        bool saving;
        int select, erase;
        std::string typed;
        Outcome outcome;
        std::string path, problem;
    } rows[] = {
        {false, -1, 5, "", Outcome::Stay, "", ""},
        {false, -1, 5, "c", Outcome::Chosen, "c.vrkx", ""},  // the extensions are tried
        {false, -1, 5, "nothing.vrkx", Outcome::Stay, "", "File not found"},
        {false, -1, 5, abs, Outcome::Chosen, abs, ""},
        {true, -1, 0, "", Outcome::Chosen, "fresh.vrkx", ""},
        {true, 5, 0, "", Outcome::ConfirmOverwrite, "b.vrkx", ""},
        {true, -1, 1, "h.txt", Outcome::Chosen, "fresh.txt", ""},  // an extension of its own is kept
        {true, -1, 5, "/no/such/folder/x", Outcome::Stay, "", "Folder not found"},
    };
    request.fileName = "fresh";
    for (const auto& r : rows) {
        G::FileDialogModel model(request, r.saving);
        if (r.select >= 0) model.Select(r.select);
        for (int i = 0; i < r.erase; ++i) model.EraseLastCharacter();
        model.Type(r.typed);
        EXPECT_EQ(model.Activate(), r.outcome) << r.typed;
        if (!r.path.empty()) EXPECT_EQ(model.Path(), (folder / r.path).string()) << r.typed;
        EXPECT_EQ(model.Problem(), r.problem) << r.typed;
    }
    G::FileDialogModel listed(request, false);
    EXPECT_EQ(listed.ActivateEntry(4), Outcome::Chosen);  // double click on A.VRK
    EXPECT_EQ(listed.Path(), (folder / "A.VRK").string());
}

TEST_F(FileDialogModelTest, TheRootHasNoWayUpAndUnreadableFoldersSaySo) {
    request.directory = "/";
    G::FileDialogModel model(request, false);
    EXPECT_EQ(model.Directory(), "/");
    ASSERT_FALSE(model.Entries().empty());
    EXPECT_NE(model.Entries().front().name, "..");

    if (::geteuid() == 0) GTEST_SKIP() << "root reads every folder";
    fs::permissions(folder / "beta", fs::perms::none);
    request.directory = folder.string();
    G::FileDialogModel locked(request, false);
    locked.Select(2);
    locked.Activate();
    EXPECT_EQ(locked.Problem(), "Cannot read this folder");
    EXPECT_EQ(Names(locked), std::vector<std::string>{"../"});
    fs::permissions(folder / "beta", fs::perms::owner_all);
}

}  // namespace
