// The scripted edits of the soak. Every change goes through VrokDoc, keys through the
// engine as the editor's piano sends them; pointers to records are looked up afresh for
// each edit, since undo, redo and loads replace them.
#include "soak_editor.h"

#include <algorithm>

#include "document/block_types.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"

namespace soak {
namespace {

// Past this many blocks the editor deletes instead of adding, so the patch stays the size
// of a musician's and memory can settle.
constexpr size_t kMaxBlocks = 24;
// One edit in this many loads a patch, which also clears the undo history; every third
// time the patch is cleared instead.
constexpr long kLoadEvery = 200;
constexpr int kMaxHeldKeys = 8;

// Weights of the edits, in the order of Edit; Load comes on its own schedule.
constexpr int kWeights[] = {4, 3, 5, 2, 8, 3, 3, 2, 6, 0, 0};

float KnobValue(std::mt19937& random) {
    const int pick = std::uniform_int_distribution<int>(0, 3)(random);
    if (pick < 2) return float(pick);  // the ends, where tables and feedback are tested hardest
    return std::uniform_real_distribution<float>(0.0f, 1.0f)(random);
}

template <class T>
T* Pick(std::vector<std::unique_ptr<T>>& records, std::mt19937& random) {
    if (records.empty()) return nullptr;
    return records[std::uniform_int_distribution<size_t>(0, records.size() - 1)(random)].get();
}

}  // namespace

const char* EditName(Edit edit) {
    static const char* const kNames[] = {"add block", "delete block", "wire", "cut wire", "knob", "global",
                                         "undo",      "redo",         "key",  "load",     "clear"};
    return kNames[int(edit)];
}

ScriptedEditor::ScriptedEditor(VrokDoc& doc, std::vector<std::string> patches, unsigned seed)
    : doc(doc), patches(std::move(patches)), random(seed) {}

Edit ScriptedEditor::Choose() {
    ++steps;
    if (steps % kLoadEvery == 0) return steps % (3 * kLoadEvery) == 0 ? Edit::Clear : Edit::Load;
    std::discrete_distribution<int> pick(std::begin(kWeights), std::end(kWeights));
    const Edit edit = Edit(pick(random));
    if (edit == Edit::AddBlock && doc.patchBlocks.size() >= kMaxBlocks) return Edit::DeleteBlock;
    return edit;
}

void ScriptedEditor::Step() {
    const Edit edit = Choose();
    Apply(edit);
    ++counts[size_t(edit)];
}

void ScriptedEditor::ReleaseKeys() {
    for (int key : heldKeys) doc.engine->ReleaseKey(key);
    heldKeys.clear();
}

void ScriptedEditor::Apply(Edit edit) {
    switch (edit) {
        case Edit::AddBlock: {
            static const std::vector<int> types = [] {
                std::vector<int> built;
                for (const BlockType& row : BlockTypes())
                    if (row.create) built.push_back(row.type);
                return built;
            }();
            const int type = types[std::uniform_int_distribution<size_t>(0, types.size() - 1)(random)];
            doc.AddBlock(type, -1, std::uniform_int_distribution<int>(0, 600)(random), 40);
            break;
        }
        case Edit::DeleteBlock:
            doc.DeleteBlock(Pick(doc.patchBlocks, random));
            break;
        case Edit::Wire: {
            PatchBlock* from = Pick(doc.patchBlocks, random);
            PatchBlock* to = Pick(doc.patchBlocks, random);
            if (!from || !to || !to->block) break;
            doc.AddConnection(
                from, to,
                std::uniform_int_distribution<int>(0, std::max(0, to->block->numPorts - 1))(random));
            break;
        }
        case Edit::CutWire:
            if (PatchConnection* wire = Pick(doc.patchConnections, random)) {
                doc.ActionStart(nullptr);
                doc.DeleteObject(wire);
                doc.ActionEnd(nullptr);
            }
            break;
        case Edit::Knob: {
            PatchBlock* block = Pick(doc.patchBlocks, random);
            if (!block || !block->block || block->block->numParameters == 0) break;
            const int index = std::uniform_int_distribution<int>(0, block->block->numParameters - 1)(random);
            doc.SetParameter(block, index, KnobValue(random));
            break;
        }
        case Edit::Global: {
            const auto& parameters = doc.global->Parameters();
            auto it = parameters.begin();
            std::advance(it, std::uniform_int_distribution<size_t>(0, parameters.size() - 1)(random));
            const std::string name = it->first;
            doc.ActionStart(doc.global.get());
            doc.global->SetValue(name, KnobValue(random));
            doc.ActionEnd(doc.global.get());
            break;
        }
        case Edit::Undo:
            doc.Undo();
            break;
        case Edit::Redo:
            doc.Redo();
            break;
        case Edit::Key:
            if (!heldKeys.empty() &&
                (heldKeys.size() >= size_t(kMaxHeldKeys) || std::bernoulli_distribution(0.5)(random))) {
                const size_t which = std::uniform_int_distribution<size_t>(0, heldKeys.size() - 1)(random);
                doc.engine->ReleaseKey(heldKeys[which]);
                heldKeys.erase(heldKeys.begin() + long(which));
            } else {
                const int key = std::uniform_int_distribution<int>(36, 96)(random);
                doc.engine->PressKey(key, std::uniform_int_distribution<int>(1, 127)(random));
                heldKeys.push_back(key);
            }
            break;
        case Edit::Load: {
            ReleaseKeys();
            const std::string& path =
                patches[std::uniform_int_distribution<size_t>(0, patches.size() - 1)(random)];
            LoadReport report;
            if (!doc.LoadFile(path, &report)) failedLoads.push_back(path);
            break;
        }
        case Edit::Clear:
            ReleaseKeys();
            doc.ClearAll();
            if (afterClear) afterClear();
            break;
        case Edit::kCount:
            break;
    }
}

}  // namespace soak
