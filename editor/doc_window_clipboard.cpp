// VrokDocWindow copy and paste. Clipboard text is "[Block]" and one "Block" element, "[Patch]"
// and a "storables" document, or a whole patch file's text with no prefix. Text that does not
// parse, or that holds neither, changes nothing.
#include <tinyxml.h>

#include <algorithm>
#include <map>

#include "editor/vrok_block_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/log.h"
#include "engine/vrok_instance.h"
#include "g/root_control.h"

namespace editor {
namespace {

constexpr std::string_view kBlockPrefix = "[Block]";
constexpr std::string_view kPatchPrefix = "[Patch]";
constexpr int kPasteMargin = 100;

std::string Print(const TiXmlNode& node) {
    TiXmlPrinter printer;
    node.Accept(&printer);
    return std::string(printer.CStr(), printer.Size());
}

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

bool MadeSomething(Storable* storable) {
    if (auto* patchBlock = dynamic_cast<PatchBlock*>(storable)) return patchBlock->block != nullptr;
    if (auto* wire = dynamic_cast<PatchConnection*>(storable)) return wire->connection != nullptr;
    return false;
}

}  // namespace

void VrokDocWindow::Copy() {
    G::NativeWindow* native = Native();
    if (!native) return;
    if (selected.empty()) {
        native->SetClipboardText(doc.WriteXml());
        return;
    }
    if (selected.size() == 1) {
        TiXmlElement element("Block");
        selected.front()->patchBlock->Save(element);
        native->SetClipboardText(std::string(kBlockPrefix) + Print(element));
        return;
    }
    TiXmlDocument xml;
    auto* root = new TiXmlElement("storables");
    xml.LinkEndChild(root);
    auto isSelected = [this](const PatchBlock* patchBlock) {
        return std::any_of(selected.begin(), selected.end(),
                           [patchBlock](const VrokBlockWindow* w) { return w->patchBlock == patchBlock; });
    };
    for (VrokBlockWindow* w : selected) {
        auto* element = new TiXmlElement(w->patchBlock->elementName);
        element->SetAttribute("ID", w->patchBlock->id);
        w->patchBlock->Save(*element);
        root->LinkEndChild(element);
    }
    for (auto& wire : doc.patchConnections) {
        if (!wire->connection || !isSelected(wire->fromBlock) || !isSelected(wire->toBlock)) continue;
        auto* element = new TiXmlElement(wire->elementName);
        element->SetAttribute("ID", wire->id);
        wire->Save(*element);
        root->LinkEndChild(element);
    }
    native->SetClipboardText(std::string(kPatchPrefix) + Print(xml));
}

void VrokDocWindow::Paste() {
    const std::string text = ClipboardText();
    int x = 0;
    int y = 0;
    PointerInCanvas(x, y);
    x = std::clamp(x, 0, std::max(0, bounds.w - kPasteMargin));
    y = std::clamp(y, 0, std::max(0, bounds.h - kPasteMargin));
    if (text.rfind(kBlockPrefix, 0) == 0) {
        PasteBlock(text.substr(kBlockPrefix.size()), x, y);
    } else {
        PastePatch(text.rfind(kPatchPrefix, 0) == 0 ? text.substr(kPatchPrefix.size()) : text, x, y);
    }
    CountChange();
    LayoutScrollers();
    Invalidate(nullptr);
}

void VrokDocWindow::PasteBlock(const std::string& text, int x, int y) {
    TiXmlDocument xml;
    xml.Parse(text.c_str());
    TiXmlElement* element = xml.Error() ? nullptr : xml.FirstChildElement("Block");
    if (!element) return;
    element->SetAttribute("POS", -1);
    element->SetAttribute("X", std::max(0, x - scrollX));
    element->SetAttribute("Y", std::max(0, y - scrollY));
    element->SetAttribute("ID", doc.nextId);
    doc.ActionStart(nullptr);
    Storable* storable = doc.Create("BLOCK", *element);
    if (storable && !MadeSomething(storable)) {
        Drop(doc, storable);
        storable = nullptr;
    }
    doc.ActionEnd(storable);
}

void VrokDocWindow::PastePatch(const std::string& text, int x, int y) {
    TiXmlDocument xml;
    xml.Parse(text.c_str());
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
        child->SetAttribute("ID", IntOf(*child, "ID", 0) + base);
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
            child->SetAttribute("X", std::max(0, IntOf(*child, "X", 0) - minX + x - scrollX));
            child->SetAttribute("Y", std::max(0, IntOf(*child, "Y", 0) - minY + y - scrollY));
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

}  // namespace editor
