// The user's patch folder, shared by the host adapters: "7 bass.vrkx" (or "007-bass.vrk")
// is patch 7, and a file numbered 0 is the patch a new machine starts with.
#pragma once

#include <string>

namespace machine {

// Patch numbers run 0..kMaxPatchNumber.
constexpr int kMaxPatchNumber = 999;

// $XDG_DATA_HOME/vrok/patches, else $HOME/.local/share/vrok/patches; empty when neither
// variable is set.
std::string PatchFolder();
// The ".vrkx" or ".vrk" file in `folder` whose name starts with `number` in decimal
// followed by a non-digit; the first in name order when several do. Empty when none does
// or the folder cannot be read.
std::string FindPatchFile(const std::string& folder, int number);

}  // namespace machine
