// Patch files chosen by number, loaded off the host's threads.
#include "machine/buzz/patch_choice.h"

#include <chrono>
#include <cstdio>

#include "document/vrok_doc.h"
#include "machine/machine.h"
#include "machine/patch_folder.h"

namespace buzz {

PatchChoice::~PatchChoice() {
    {
        std::lock_guard guard(mutex);
        quit = true;
    }
    changed.notify_all();
    if (thread.joinable()) thread.join();
}

void PatchChoice::Want(int number, int waitMs) {
    if (number == asked) return;
    asked = number;
    std::unique_lock guard(mutex);
    requested = number;
    busy = true;
    if (!thread.joinable()) thread = std::thread(&PatchChoice::Run, this);
    changed.notify_all();
    changed.wait_for(guard, std::chrono::milliseconds(waitMs), [this] { return !busy; });
}

void PatchChoice::Run() {
    std::unique_lock guard(mutex);
    for (;;) {
        changed.wait(guard, [this] { return quit || requested >= 0; });
        if (quit) return;
        const int number = requested;
        requested = -1;
        guard.unlock();
        Load(number);
        guard.lock();
        // A newer request that came in meanwhile keeps the caller waiting for its own load.
        if (requested < 0) busy = false;
        changed.notify_all();
    }
}

void PatchChoice::Load(int number) {
    VrokDoc& document = *machine.document;
    const std::string folder = machine::PatchFolder();
    const std::string path = number == 0 && restored ? std::string() : machine::FindPatchFile(folder, number);
    if (path.empty()) {
        if (number == 0 && replaced) {
            std::lock_guard guard(machine.machineLock);
            document.ReadXml(builtIn);
            replaced = false;
        } else if (number != 0) {
            std::fprintf(
                stderr, "[VROK]: patch %d: no file numbered %d in %s; keeping the patch\n", number, number,
                folder.empty() ? "(no folder: neither XDG_DATA_HOME nor HOME is set)" : folder.c_str());
        }
        return;
    }
    if (!replaced) {
        std::lock_guard guard(machine.machineLock);
        builtIn = document.WriteXml();
    }
    std::vector<LoadProblem> problems;
    const bool loaded = machine.LoadPatchFile(path, &problems);
    for (const LoadProblem& problem : problems)
        std::fprintf(stderr, "[VROK]: %s\n", problem.Format().c_str());
    if (loaded)
        replaced = true;
    else
        std::fprintf(stderr, "[VROK]: %s: not a patch; keeping the patch\n", path.c_str());
}

}  // namespace buzz
