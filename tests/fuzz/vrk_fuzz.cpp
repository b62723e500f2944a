// Old binary ".vrk" patches through ReadVrk, from a file in memory. A file that reads must
// leave a patch that saves to text that loads again, and that renders. The documents live
// for the whole run, as building one costs more than most inputs.
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietLog();
    const fuzz::MemoryFile file(data, size);
    static VrokDoc doc;
    static VrokDoc again;
    LoadReport report;
    if (!doc.ReadVrk(file.Path(), &report)) {
        fuzz::Check(!report.empty(), "a refused .vrk file gave no reason");
        return 0;
    }
    fuzz::Check(again.ReadXml(doc.WriteXml()), "saved patch does not load again");

    float left[kMaxFrames] = {}, right[kMaxFrames] = {};
    doc.engine->PressKey(60, 100);
    doc.engine->Render({left, right}, kMaxFrames);
    doc.engine->ReleaseKey(60);
    return 0;
}
