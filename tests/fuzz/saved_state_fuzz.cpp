// The host's saved state through the machine's Init, as a song file brings it back. Whatever
// Init kept, the machine plays, and the state it saves restores again. The machine lives for
// the whole run, as building one costs more than most inputs; each input starts from an
// empty patch.
#include <vector>

#include "document/vrok_doc.h"
#include "fuzz_support.h"
#include "machine/machine.h"

namespace {

class OutputStream : public machine::DataOutput {
public:
    void Write(const void* buffer, int numBytes) override {
        const auto* p = static_cast<const uint8_t*>(buffer);
        bytes.insert(bytes.end(), p, p + numBytes);
    }
    std::vector<uint8_t> bytes;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietLog();
    static fuzz::Host host;
    static mi machine(host);
    machine.document->ClearAll();
    fuzz::InputStream input(data, size);
    machine.Init(&input);

    machine.SetNumTracks(1);
    machine.trackValues[0].note = 0x41;
    machine.Tick();
    float samples[2 * 128] = {};
    machine.Work(samples, 128, kWorkRead | kWorkWrite);
    machine.Stop();

    OutputStream saved;
    machine.Save(&saved);
    fuzz::InputStream reload(saved.bytes.data(), saved.bytes.size());
    fuzz::Check(machine.ReloadState(&reload), "saved state does not restore");
    return 0;
}
