// Clipboard text into the document: one block, or a piece of patch whose slots and ids are
// renumbered so that it lands beside what is there.
#include "editor/clipboard_paste.h"

#include <tinyxml.h>

#include <algorithm>
#include <limits>
#include <map>

#include "document/vrok_doc.h"
#include "document/xml_attributes.h"
#include "engine/audio_block.h"
#include "engine/log.h"

namespace editor {
namespace {

int IntOf(const TiXmlElement& element, const char* name, int fallback) {
    int value = fallback;
    element.QueryIntAttribute(name, &value);
    return value;
}

// Tells the object's windows it is gone and frees it: a pasted object that came to nothing.
void Drop(VrokDoc& doc, Storable* storable) {
    const std::vector<StorableGui*> listeners = storable->listeners;
    for (StorableGui* gui : listeners) gui->StorableRemoved(0, storable);
    doc.Delete(storable);  // the record leaves the registry as it is freed
}

// Where a pasted block lands: its place relative to the leftmost (topmost) pasted block, from
// the paste point. Summed in 64 bits, as hostile text may hold any int, and kept in 0..INT_MAX.
int PastedCoordinate(int value, int minimum, int at) {
    const long long sum = static_cast<long long>(value) - minimum + at;
    return int(std::clamp(sum, 0LL, static_cast<long long>(std::numeric_limits<int>::max())));
}

bool MadeSomething(Storable* storable) {
    if (auto* patchBlock = dynamic_cast<PatchBlock*>(storable)) return patchBlock->block != nullptr;
    if (auto* wire = dynamic_cast<PatchConnection*>(storable)) return wire->connection != nullptr;
    return false;
}

void PasteBlock(VrokDoc& doc, const std::string& text, int x, int y) {
    TiXmlDocument xml;
    document::ParseXmlText(xml, text);
    TiXmlElement* element = xml.Error() ? nullptr : xml.FirstChildElement("Block");
    if (!element) return;
    element->SetAttribute("POS", -1);
    element->SetAttribute("X", std::max(0, x));
    element->SetAttribute("Y", std::max(0, y));
    element->SetAttribute("ID", doc.nextId);
    doc.ActionStart(nullptr);
    Storable* storable = doc.Create("BLOCK", *element);
    if (storable && !MadeSomething(storable)) {
        Drop(doc, storable);
        storable = nullptr;
    }
    doc.ActionEnd(storable);
}

void PastePatch(VrokDoc& doc, const std::string& text, int x, int y) {
    TiXmlDocument xml;
    document::ParseXmlText(xml, text);
    TiXmlElement* root = xml.Error() ? nullptr : xml.FirstChildElement("storables");
    if (!root) return;
    doc.ActionStart(nullptr);
    const int base = doc.nextId++;
    int minX = 0;
    int minY = 0;
    bool anyBlock = false;
    for (TiXmlElement* child = root->FirstChildElement("BLOCK"); child;
         child = child->NextSiblingElement("BLOCK")) {
        const int bx = IntOf(*child, "X", 0);
        const int by = IntOf(*child, "Y", 0);
        minX = anyBlock ? std::min(minX, bx) : bx;
        minY = anyBlock ? std::min(minY, by) : by;
        anyBlock = true;
    }
    std::map<int, int> newSlots;  // old POS to new POS, -1 when the block came to nothing
    for (TiXmlElement* child = root->FirstChildElement(); child; child = child->NextSiblingElement()) {
        const std::string kind = child->Value();
        // An id the sum pushes past int is renumbered by the registry (as -1 is).
        const long long id = static_cast<long long>(IntOf(*child, "ID", 0)) + base;
        child->SetAttribute("ID", id >= 0 && id <= std::numeric_limits<int>::max() ? int(id) : -1);
        int oldPos = -1;
        const bool hasPos = child->Attribute("POS") != nullptr;
        if (kind == "CONNECTION") {
            const auto from = newSlots.find(IntOf(*child, "FROM", -1));
            const auto to = newSlots.find(IntOf(*child, "TO", -1));
            if (from == newSlots.end() || to == newSlots.end()) {
                Log(1, "Error matching new positions after connection paste!");
            } else {
                child->SetAttribute("FROM", from->second);
                child->SetAttribute("TO", to->second);
            }
        } else if (kind == "BLOCK") {
            oldPos = IntOf(*child, "POS", -1);
            child->SetAttribute("POS", -1);
            child->SetAttribute("X", PastedCoordinate(IntOf(*child, "X", 0), minX, x));
            child->SetAttribute("Y", PastedCoordinate(IntOf(*child, "Y", 0), minY, y));
        } else if (kind == "GLOBAL") {
            // The patch's global settings take the pasted ones; undo brings them back.
            doc.Capture(doc.global.get());
        }
        Storable* storable = doc.Create(kind, *child);
        if (!storable) continue;
        if (hasPos && kind == "BLOCK") {
            auto* patchBlock = static_cast<PatchBlock*>(storable);
            newSlots[oldPos] = patchBlock->block ? patchBlock->block->index : -1;
        }
        if (storable == doc.global.get()) continue;
        if (MadeSomething(storable)) {
            doc.RecordCreation(storable);
        } else {
            Drop(doc, storable);
        }
    }
    doc.ActionEnd(nullptr);
}

}  // namespace

void PasteClipboardText(VrokDoc& doc, const std::string& text, int x, int y) {
    if (text.rfind(kBlockPrefix, 0) == 0) {
        PasteBlock(doc, text.substr(kBlockPrefix.size()), x, y);
    } else {
        PastePatch(doc, text.rfind(kPatchPrefix, 0) == 0 ? text.substr(kPatchPrefix.size()) : text, x, y);
    }
}

}  // namespace editor
