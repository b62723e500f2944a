// The patch a tracker song picks by number. The tracker saves no machine data, so a song
// keeps an attribute, and the number names a file in the user's patch folder:
// "7 bass.vrkx" (or "007-bass.vrk") is patch 7. Patch 0 is the machine's own patch: the
// one the host restored from saved state if it did, else a file numbered 0 if there is
// one, else the built-in default patch.
//
// Loading runs on a thread of its own, started at the first request, so neither the
// host's registry scan nor its audio thread ever reads a file.
#pragma once

#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>

#include "machine/patch_folder.h"

class mi;

namespace buzz {

class PatchChoice {
public:
    static constexpr int kMaxNumber = machine::kMaxPatchNumber;

    explicit PatchChoice(mi& machine) : machine(machine) {}
    // Waits for a load under way, then stops the thread.
    ~PatchChoice();
    PatchChoice(const PatchChoice&) = delete;
    PatchChoice& operator=(const PatchChoice&) = delete;

    // Called at every tick with the number the song asks for. A number other than the last
    // one asked starts its load and waits for it, at most `waitMs`, so the notes of this
    // tick reach the new patch; a slower load lands later. Repeats cost a comparison.
    void Want(int number, int waitMs = 2000);
    // The host restored the machine's state: patch 0 keeps it. Call before the first Want.
    void KeepRestored() {
        restored = true;
        asked = 0;
    }

private:
    void Run();
    void Load(int number);

    mi& machine;
    std::mutex mutex;
    std::condition_variable changed;
    std::thread thread;
    int asked = -1;      // last number Want saw; only the caller's thread uses it
    int requested = -1;  // waiting for the loader
    bool busy = false;
    bool quit = false;
    // The built-in patch, kept before the first file replaces it, for a return to 0.
    // Only the loader thread uses these.
    std::string builtIn;
    bool replaced = false;
    bool restored = false;
};

}  // namespace buzz
