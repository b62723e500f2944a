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
        for (const char* dir : {"beta", "Alpha", ".hidden_dir", "gamma/inner"})
            fs::create_directories(folder / dir);
        for (const char* file :
             {"b.vrkx", "A.VRK", "c.vrkx", "notes.txt", ".secret.vrkx", "gamma/inner/deep.vrkx"})
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
              (std::vector<std::string>{"../", "Alpha/", "beta/", "gamma/", "A.VRK", "b.vrkx", "c.vrkx"}));
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
    EXPECT_EQ(model.Directory(), (folder / "gamma").string());
    EXPECT_EQ(Names(model), (std::vector<std::string>{"../", "inner/"}));
    EXPECT_EQ(model.ActivateEntry(0), Outcome::Stay);  // ".." goes up
    EXPECT_EQ(model.Directory(), folder.string());
}

TEST_F(FileDialogModelTest, TypingOverridesTheSelectionAndErasesWholeCharacters) {
    G::FileDialogModel model(request, false);
    model.Select(2);            // a folder is selected...
    model.Type("gamma/inner");  // ...but the typed path is what counts
    EXPECT_EQ(model.Activate(), Outcome::Stay);
    EXPECT_EQ(model.Directory(), (folder / "gamma" / "inner").string());
    EXPECT_EQ(model.Name(), "");
    model.Type("d\xc3\xbc");
    model.EraseLastCharacter();
    EXPECT_EQ(model.Name(), "d");
    model.EraseLastCharacter();
    model.EraseLastCharacter();
    EXPECT_EQ(model.Name(), "");
}

TEST_F(FileDialogModelTest, OpeningNeedsAnExistingFileAndTriesTheExtensions) {
    G::FileDialogModel model(request, false);
    EXPECT_EQ(model.Activate(), Outcome::Stay);  // nothing typed
    model.Type("c");
    EXPECT_EQ(model.Activate(), Outcome::Chosen);
    EXPECT_EQ(model.Path(), (folder / "c.vrkx").string());

    G::FileDialogModel missing(request, false);
    missing.Type("nothing.vrkx");
    EXPECT_EQ(missing.Activate(), Outcome::Stay);
    EXPECT_EQ(missing.Problem(), "File not found");

    G::FileDialogModel absolute(request, false);
    absolute.Type((folder / "gamma/inner/deep.vrkx").string());
    EXPECT_EQ(absolute.Activate(), Outcome::Chosen);
    EXPECT_EQ(absolute.Path(), (folder / "gamma/inner/deep.vrkx").string());
    EXPECT_EQ(absolute.Problem(), "");

    G::FileDialogModel listed(request, false);
    EXPECT_EQ(listed.ActivateEntry(4), Outcome::Chosen);  // double click on A.VRK
    EXPECT_EQ(listed.Path(), (folder / "A.VRK").string());
}

TEST_F(FileDialogModelTest, SavingAddsTheFirstExtensionAndFlagsExistingFiles) {
    request.fileName = "fresh";
    G::FileDialogModel model(request, true);
    EXPECT_EQ(model.Name(), "fresh");
    EXPECT_EQ(model.Activate(), Outcome::Chosen);
    EXPECT_EQ(model.Path(), (folder / "fresh.vrkx").string());

    G::FileDialogModel existing(request, true);
    existing.Select(5);
    EXPECT_EQ(existing.Activate(), Outcome::ConfirmOverwrite);
    EXPECT_EQ(existing.Path(), (folder / "b.vrkx").string());

    G::FileDialogModel kept(request, true);
    kept.EraseLastCharacter();
    kept.Type("h.txt");  // an extension of its own is kept
    EXPECT_EQ(kept.Activate(), Outcome::Chosen);
    EXPECT_EQ(kept.Path(), (folder / "fresh.txt").string());

    G::FileDialogModel nowhere(request, true);
    nowhere.Type("/no/such/folder/x");
    EXPECT_EQ(nowhere.Activate(), Outcome::Stay);
    EXPECT_EQ(nowhere.Problem(), "Folder not found");
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
