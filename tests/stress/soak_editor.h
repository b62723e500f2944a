// The soak's editor: scripted edits through the document, the way the patch editor makes
// them (blocks added and deleted, wires made and cut, knobs and global settings moved,
// undo, redo, patches loaded, keys played on the piano), chosen by a seeded generator.
#pragma once

#include <array>
#include <functional>
#include <random>
#include <string>
#include <vector>

class VrokDoc;

namespace soak {

enum class Edit : int {
    AddBlock,
    DeleteBlock,
    Wire,
    CutWire,
    Knob,
    Global,
    Undo,
    Redo,
    Key,
    Load,
    Clear,
    kCount
};

class ScriptedEditor {
public:
    // `patches` are the files Load picks from; the document must outlive the editor.
    ScriptedEditor(VrokDoc& doc, std::vector<std::string> patches, unsigned seed);

    // One edit. Runs on the editing thread, as the editor's GUI thread would.
    void Step();
    // Lets go of every key it holds.
    void ReleaseKeys();

    // How many of each kind were made, for the report.
    std::array<long, size_t(Edit::kCount)> counts{};
    // Loads that failed; a patch of ours that does not load is a fault.
    std::vector<std::string> failedLoads;
    // Called on the editing thread right after each Clear, while the patch and its history
    // are empty: the one state the soak returns to, where memory should be the same each time.
    std::function<void()> afterClear;

private:
    Edit Choose();
    void Apply(Edit edit);

    VrokDoc& doc;
    std::vector<std::string> patches;
    std::mt19937 random;
    std::vector<int> heldKeys;
    long steps = 0;
};

const char* EditName(Edit edit);

}  // namespace soak
