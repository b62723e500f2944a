// Patch XML, as song data and files bring it: the depth and size guards, the parser, every
// record's Load. A patch that loads must save to text that loads again, and must render.
// The documents live for the whole run, as building one costs more than most inputs; each
// input starts from a cleared patch.
#include <string>

#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietLog();
    static VrokDoc doc;
    static VrokDoc again;
    doc.ClearAll();
    if (!doc.ReadXml(std::string(reinterpret_cast<const char*>(data), size))) return 0;

    fuzz::Check(again.ReadXml(doc.WriteXml()), "saved patch does not load again");

    float left[kMaxFrames] = {}, right[kMaxFrames] = {};
    doc.engine->PressKey(60, 100);
    doc.engine->Render({left, right}, kMaxFrames);
    doc.engine->ReleaseKey(60);
    doc.engine->Render({left, right}, kMaxFrames);
    return 0;
}
