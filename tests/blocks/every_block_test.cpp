// Every block type in the type table, in a busy patch with random parameters: the
// audio path must not allocate, and every active row and the mix must stay finite.
// Its own program, because it replaces the global operator new with a counter.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <random>

#include "blocks/sampler.h"
#include "document/block_types.h"
#include "engine/vrok_instance.h"
#include "support/allocation_counter.h"


namespace {

using allocation_counter::allocations;
using allocation_counter::armed;

constexpr int kOscType = 4, kNoiseType = 7, kOutputType = 0;

struct Patch {
    explicit Patch(int type) : engine(CreateBlock) {
        engine.InsertBlock(type, -1, &slot);
        int osc = -1, noise = -1, out = -1;
        engine.InsertBlock(kOscType, -1, &osc);
        engine.InsertBlock(kNoiseType, -1, &noise);
        CAudioBlock& block = *engine.blocks[slot];
        // Alternate the feeds so every port sees a polyphonic or a shared signal.
        for (int p = 0; p < block.numPorts; ++p) engine.Connect(p % 2 ? noise : osc, slot, p);
        if (!block.isOutput) {
            engine.InsertBlock(kOutputType, -1, &out);
            engine.Connect(slot, out, 0);
        }
        engine.RebuildOrder();
        // A sampler gets something to play, shorter than the render so it also ends.
        if (auto* sampler = dynamic_cast<CSimpleSamplerBlock*>(&block)) {
            std::vector<float> frames(700);
            for (size_t i = 0; i < frames.size(); ++i) frames[i] = std::sin(0.1f * float(i));
            sample.SetFrames(std::move(frames));
            sampler->SetSample(&sample);
        }
        // The master stage runs behind every patch, so its effects are checked as well.
        engine.chorusOn = engine.delayOn = engine.reverbOn = true;
    }
    SampleData sample;  // outlives the engine, whose sampler leaves its list on the way
    VrokInstance engine;
    int slot = -1;
};

class EveryBlock : public ::testing::TestWithParam<int> {};

TEST_P(EveryBlock, RendersWithoutAllocatingAndStaysFinite) {
    const int type = GetParam();
    // Fixed and printed, so a failure can be replayed; it differs per type.
    const unsigned seed = 20261123u + unsigned(type);
    std::printf("type %d, seed %u\n", type, seed);
    std::mt19937 random(seed);
    std::uniform_real_distribution<float> unit(0.0f, 1.0f);

    Patch patch(type);
    CAudioBlock& block = *patch.engine.blocks[patch.slot];
    for (int i = 0; i < block.numParameters; ++i) block.SetParameter(i, unit(random));

    float left[kMaxFrames], right[kMaxFrames], inLeft[kMaxFrames], inRight[kMaxFrames];
    for (int voices : {1, 4, 16}) {
        patch.engine.SetVoiceCount(voices, false);
        allocations = 0;
        armed = true;
        for (int step = 0; step < 8; ++step) {
            const int n = step == 3 ? 1 : kMaxFrames - step;
            for (int i = 0; i < n; ++i) {
                inLeft[i] = 20000.0f * std::sin(0.05f * float(i + step));
                inRight[i] = -inLeft[i];
                left[i] = right[i] = 0.0f;
            }
            if (step % 3 == 0) patch.engine.PressKey(40 + step * 5, 100);
            if (step % 3 == 2) patch.engine.ReleaseKey(40 + (step - 2) * 5);
            patch.engine.RunInputs({inLeft, inRight}, n);
            patch.engine.Render({left, right}, n);
            for (int i = 0; i < n; ++i) {
                ASSERT_TRUE(std::isfinite(left[i]) && std::isfinite(right[i])) << "mix, voices " << voices;
            }
            for (int v = 0; v < voices; ++v) {
                if (!block.active[v]) continue;
                for (int i = 0; i < n; ++i) ASSERT_TRUE(std::isfinite(block.output[v][i])) << "voice " << v;
            }
        }
        armed = false;
        EXPECT_EQ(allocations.load(), 0) << "voices " << voices;
    }
}

std::vector<int> BuiltTypes() {
    std::vector<int> types;
    for (const BlockType& row : BlockTypes())
        if (row.create) types.push_back(row.type);
    return types;
}

INSTANTIATE_TEST_SUITE_P(Types, EveryBlock, ::testing::ValuesIn(BuiltTypes()));

}  // namespace
