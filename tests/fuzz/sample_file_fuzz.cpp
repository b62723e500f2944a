// Sound files through a sampler's "load sample" (libsndfile behind it), from a file in
// memory, then a note on the sampler. A loaded sample holds only finite frames, and
// playing it gives finite sound. The document lives for the whole run, as building one
// costs more than most inputs; each load replaces the sampler's frames.
#include <cmath>

#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "fuzz_support.h"

namespace {
constexpr int kSamplerType = 58;
constexpr int kOutputType = 0;
}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietLog();
    const fuzz::MemoryFile file(data, size);
    static VrokDoc doc;
    static PatchBlock* sampler = [] {
        doc.ClearAll();
        PatchBlock* player = doc.AddBlock(kSamplerType, -1, 0, 0);
        PatchBlock* output = doc.AddBlock(kOutputType, -1, 100, 0);
        fuzz::Check(player && output && doc.AddConnection(player, output, 0),
                    "the sampler patch was refused");
        return player;
    }();

    SampleContainer* sample = doc.LoadSampleInto(sampler, file.Path());
    fuzz::Check(sample != nullptr, "no sample record for the file");
    doc.ClearUndo();  // each step keeps a copy of the frames
    for (float f : sample->Frames()) fuzz::Check(std::isfinite(f), "a loaded frame is not finite");

    float left[kMaxFrames] = {}, right[kMaxFrames] = {};
    doc.engine->PressKey(60, 100);
    doc.engine->Render({left, right}, kMaxFrames);
    for (int i = 0; i < kMaxFrames; ++i)
        fuzz::Check(std::isfinite(left[i]) && std::isfinite(right[i]),
                    "the sampler played a non-finite sample");
    doc.engine->ReleaseKey(60);
    return 0;
}
