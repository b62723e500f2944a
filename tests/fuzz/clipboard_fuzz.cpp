// Clipboard text pasted into the editor's document: "[Block]" and an element, "[Patch]" and
// a piece of patch, or plain text. After the paste the patch saves to text that loads again;
// undo puts back what was there, and redo the paste. The documents live for the whole run,
// as building one costs more than most inputs; each input starts from the same patch.
#include <string>

#include "document/vrok_doc.h"
#include "editor/clipboard_paste.h"
#include "fuzz_support.h"

namespace {

// The patch the paste lands on: two blocks and a wire, so that pasted slots and ids have
// to find room beside existing ones.
constexpr const char* kBasePatch = R"(<storables>
<BLOCK ID="1" TYPE="4" X="40" Y="60" POS="0" P0="0.5" P1="0.5" P2="0.5" />
<BLOCK ID="2" TYPE="0" X="200" Y="60" POS="1" P0="1" />
<CONNECTION ID="3" FROM="0" TO="1" INPUTID="0" />
</storables>)";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietLog();
    static VrokDoc doc;
    static VrokDoc check;
    fuzz::Check(doc.ReadXml(kBasePatch), "the base patch does not load");
    const std::string before = doc.WriteXml();

    editor::PasteClipboardText(doc, std::string(reinterpret_cast<const char*>(data), size), 120, 80);
    const std::string after = doc.WriteXml();
    fuzz::Check(check.ReadXml(after), "the patch after the paste does not load again");

    if (after != before) {
        doc.Undo();
        fuzz::Check(doc.WriteXml() == before, "undo after a paste did not restore the patch");
        doc.Redo();
        fuzz::Check(doc.WriteXml() == after, "redo did not repeat the paste");
    }
    return 0;
}
