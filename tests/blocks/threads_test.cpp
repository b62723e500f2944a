// Every block type with its parameters moved through the document on one thread, as the
// editor does, while another renders, as the audio thread does. Under ThreadSanitizer
// (scripts/tsan.sh) this shows any state the two share without an atomic or a lock; in the
// plain build it checks that the pair neither crashes nor stalls.
#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <thread>

#include "document/block_types.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"

namespace {

constexpr int kOscType = 4, kOutputType = 0;
constexpr int kChangesPerBlock = 200;

TEST(EveryBlockThreads, ParametersMoveWhileTheAudioThreadRenders) {
    int tried = 0;
    for (const BlockType& row : BlockTypes()) {
        if (!row.create) continue;
        VrokDoc doc;
        doc.ClearAll();
        PatchBlock* patchBlock = doc.AddBlock(row.type, -1, 0, 0);
        ASSERT_NE(patchBlock, nullptr) << row.displayName;
        CAudioBlock& block = *patchBlock->block;
        PatchBlock* osc = doc.AddBlock(kOscType, -1, 0, 100);
        for (int p = 0; p < block.numPorts; ++p) doc.AddConnection(osc, patchBlock, p);
        if (!block.isOutput) doc.AddConnection(patchBlock, doc.AddBlock(kOutputType, -1, 200, 0), 0);
        if (block.numParameters == 0) continue;
        ++tried;

        doc.engine->PressKey(60, 100);
        std::atomic<bool> stop{false};
        std::thread audio([&] {
            float left[kMaxFrames], right[kMaxFrames];
            while (!stop) doc.engine->Render({left, right}, kMaxFrames);
        });
        std::mt19937 random(row.type);
        std::uniform_real_distribution<float> value(0.0f, 1.0f);
        for (int i = 0; i < kChangesPerBlock; ++i)
            doc.SetParameter(patchBlock, i % block.numParameters, value(random));
        stop = true;
        audio.join();
    }
    EXPECT_GT(tried, 40) << "the type table lost its blocks";
}

}  // namespace
