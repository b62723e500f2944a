// VrokDocWindow copy and paste. Copy writes "[Block]" and one "Block" element, "[Patch]" and
// a "storables" document, or with nothing selected the whole patch; clipboard_paste.cpp reads
// them back.
#include <tinyxml.h>

#include <algorithm>

#include "editor/clipboard_paste.h"
#include "editor/vrok_block_window.h"
#include "editor/vrok_doc_window.h"
#include "engine/vrok_instance.h"
#include "g/root_control.h"

namespace editor {
namespace {

constexpr int kPasteMargin = 100;

std::string Print(const TiXmlNode& node) {
    TiXmlPrinter printer;
    node.Accept(&printer);
    return std::string(printer.CStr(), printer.Size());
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
    PasteClipboardText(doc, text, x - scrollX, y - scrollY);
    CountChange();
    LayoutScrollers();
    Invalidate(nullptr);
}

}  // namespace editor
