// Graph edits and evaluation order: refusals, wire limits, order from the wire table,
// chain membership and Reset.
#include <algorithm>
#include <cstdio>
#include <random>
#include <tuple>

#include "engine/probe_blocks.h"

using namespace probe;

namespace {

class Graph : public EngineTest {
protected:
    std::vector<int> Order() const { return {engine.order, engine.order + engine.orderCount}; }
    int LiveWires() const {
        return int(std::count_if(std::begin(engine.connections), std::end(engine.connections),
                                 [](const Connection& c) { return c.inUse; }));
    }
};

TEST_F(Graph, InsertTakesFirstFreeSlotAndRefusesTakenBadOrFullSlots) {
    EXPECT_EQ(Add(kPass), 0);
    EXPECT_EQ(Add(kPass), 1);
    for (int slot : {1, kMaxBlocks, -2}) EXPECT_FALSE(engine.InsertBlock(kPass, slot)) << "slot " << slot;
    int slot = 7;
    EXPECT_FALSE(engine.InsertBlock(999, -1, &slot)) << "unknown type";
    EXPECT_EQ(slot, 7) << "a refused insert leaves outSlot alone";
    EXPECT_EQ(engine.blocks[2], nullptr);

    ASSERT_TRUE(engine.InsertBlock(kPass, 40, &slot));
    EXPECT_EQ(slot, 40);
    const CAudioBlock& block = *engine.blocks[40];
    EXPECT_EQ(block.index, 40);
    EXPECT_TRUE(block.disconnected && !block.connected);
    EXPECT_EQ(block.posY, 596);
    EXPECT_TRUE(block.posX >= 0 && block.posX < 800) << block.posX;
    for (int i = 2; i < kMaxBlocks - 1; ++i) ASSERT_EQ(Add(kPass), i < 40 ? i : i + 1) << i;
    EXPECT_FALSE(engine.InsertBlock(kPass, -1)) << "full table";
}

TEST_F(Graph, ConnectRefusesSelfBadEndsDuplicatesAndLoops) {
    int a = Add(kPass), b = Add(kPass), c = Add(kPass);
    for (auto [from, to, port] : {std::tuple{a, a, 0}, {-1, b, 0}, {a, -1, 0}, {a, 77, 0}, {a, 500, 0}, {a, b, 2},
                                  {a, b, -1}})
        EXPECT_EQ(engine.Connect(from, to, port), nullptr) << from << " -> " << to << " port " << port;
    Connection* first = engine.Connect(a, b, 0);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->gain, 1.0f);
    EXPECT_NE(engine.Connect(a, b, 1), nullptr) << "a second port of the same block is a new wire";
    EXPECT_EQ(engine.Connect(a, b, 0), nullptr) << "the same wire twice";
    EXPECT_EQ(engine.blocks[b]->numSources, 2);
    EXPECT_TRUE(engine.blocks[b]->ports[0]->hasConnection);

    // With a -> b -> c, any wire back into a closes a loop and changes nothing.
    ASSERT_NE(engine.Connect(b, c, 0), nullptr);
    for (auto [from, port] : {std::pair{c, 0}, {c, 1}, {b, 0}})
        EXPECT_EQ(engine.Connect(from, a, port), nullptr) << from << " -> a port " << port;
    EXPECT_EQ(LiveWires(), 3);
    EXPECT_EQ(engine.blocks[a]->numSources, 0);
    EXPECT_NE(engine.Connect(a, c, 1), nullptr) << "a shortcut in the same direction is no loop";
}

TEST_F(Graph, The646thWireIsRefusedAndSourceListsNeverOverflow) {
    int a = Add(kPass), b = Add(kPass), wide = Add(kWide);
    for (int i = 0; i < kMaxConnections + 20; ++i) {
        Connection* c = engine.Connect(a, b, 0);
        ASSERT_NE(c, nullptr);
        engine.Disconnect(c);
    }
    EXPECT_EQ(engine.blocks[b]->numSources, kMaxConnections) << "stale source entries stop growing";
    for (int port = 0; port < kMaxConnections; ++port) ASSERT_NE(engine.Connect(a, wide, port), nullptr) << port;
    EXPECT_EQ(engine.Connect(a, wide, kMaxConnections), nullptr);
    EXPECT_EQ(LiveWires(), kMaxConnections);
    engine.Disconnect(&engine.connections[10]);
    EXPECT_EQ(engine.Connect(a, wide, 690), &engine.connections[10]) << "a freed entry is reused, lowest first";
}

TEST_F(Graph, RemoveBlockClearsItsWiresSourceGapAndKnobBookkeeping) {
    int a = Add(kPass), b = Add(kPass), c = Add(kPass);
    engine.Connect(a, c, 0);
    engine.Connect(b, c, 1);
    Chain({c, Add(kOutput)});
    engine.RemoveBlockAt(a);
    EXPECT_EQ(engine.blocks[a], nullptr);
    EXPECT_EQ(LiveWires(), 2);
    ASSERT_EQ(engine.blocks[c]->numSources, 1);
    EXPECT_EQ(engine.blocks[c]->sources[0], b);
    EXPECT_EQ(engine.blocks[c]->sourcePorts[0], 1);
    engine.RemoveBlock(engine.blocks[c]);
    EXPECT_EQ(engine.blocks[c], nullptr);
    EXPECT_EQ(LiveWires(), 0) << "wires into the removed block go too";
    engine.RemoveBlockAt(c);  // empty or bad slots are ignored
    engine.RemoveBlockAt(-1);
    engine.RemoveBlock(nullptr);

    int k0 = Add(kExtKnob0), k4 = Add(kExtKnob4);
    EXPECT_TRUE(engine.extKnobPresent[0] && engine.extKnobPresent[4]);
    EXPECT_TRUE(engine.extKnobSlot[0] == k0 && engine.extKnobSlot[4] == k4);
    engine.RemoveBlockAt(k0);
    EXPECT_FALSE(engine.extKnobPresent[0]);
    engine.ClearPatch();
    EXPECT_FALSE(engine.extKnobPresent[4]);
    EXPECT_EQ(std::count(std::begin(engine.blocks), std::end(engine.blocks), nullptr), kMaxBlocks);
}

TEST_F(Graph, OrderPutsSourcesFirstAndFollowsTheWireTable) {
    int out = Add(kOutput);
    engine.RebuildOrder();
    EXPECT_TRUE(engine.blocks[out]->connected && engine.blocks[out]->disconnected) << "unwired output";
    EXPECT_EQ(Order(), std::vector<int>{out});

    int mix = Add(kPass), x = Add(kPolySource), y = Add(kPolySource), stray = Add(kPass);
    Connection* first = engine.Connect(x, mix, 0);  // entry 0
    engine.Connect(y, mix, 1);                      // entry 1
    Chain({mix, out});                              // entry 2
    EXPECT_EQ(Order(), (std::vector<int>{x, y, mix, out}));
    // Re-made in a later entry, x's wire now comes after y's.
    engine.Disconnect(first);
    engine.Connect(mix, Add(kOutput), 0);  // takes entry 0
    Chain({x, mix});                       // entry 3
    EXPECT_EQ(std::vector<int>(engine.order, engine.order + 4), (std::vector<int>{y, x, mix, out}));
    EXPECT_TRUE(!engine.blocks[stray]->connected && engine.blocks[stray]->disconnected);
    EXPECT_EQ(std::count(engine.order, engine.order + engine.orderCount, stray), 0);
}

TEST_F(Graph, ChainThatLosesItsOutputResetsOncePerBlock) {
    int osc = Add(kPolySource), amp = Add(kPass), out = Add(kOutput);
    Chain({osc, amp, out});
    EXPECT_TRUE(CallsOf("Reset", osc).empty());
    engine.Disconnect(&engine.connections[1]);
    for (int slot : {osc, amp}) EXPECT_EQ(CallsOf("Reset", slot).size(), 1u) << slot;
    EXPECT_TRUE(CallsOf("Reset", out).empty()) << "an output stays in the order";
    EXPECT_TRUE(engine.blocks[osc]->displayResetPending);
    engine.RebuildOrder();
    engine.Disconnect(&engine.connections[0]);
    for (int slot : {osc, amp}) EXPECT_EQ(CallsOf("Reset", slot).size(), 1u) << "a second cut resets nothing";
}

TEST_F(Graph, PolyphonySpreadsDownstreamAndRebuildSendsEveryVoicePitch) {
    engine.SetVoiceCount(3, false);
    int knob = Add(kMonoSource), osc = Add(kPolySource), ampA = Add(kPass), ampB = Add(kPass), out = Add(kOutput);
    engine.Connect(knob, ampA, 0);
    engine.Connect(ampA, out, 0);
    engine.Connect(knob, ampB, 1);
    engine.Connect(ampB, out, 1);
    Calls().clear();
    Chain({osc, ampB});
    EXPECT_TRUE(engine.blocks[knob]->monophonic && engine.blocks[ampA]->monophonic);
    EXPECT_FALSE(engine.blocks[osc]->monophonic || engine.blocks[ampB]->monophonic);
    EXPECT_FALSE(engine.blocks[out]->monophonic) << "an output fed by a polyphonic chain is polyphonic";
    for (int slot : {osc, out}) EXPECT_EQ(CallsOf("SetNote", slot).size(), 3u) << slot;
    EXPECT_EQ(Calls().front().value, -1.0f) << "a voice never played sends pitch -1";
}

TEST_F(Graph, AnOutputFeedingAnotherIsOrderedOnceAndWorksOncePerBuffer) {
    const int last = Add(kOutput), osc = Add(kPolySource), first = WorkingOutput();
    engine.Connect(osc, first, 0);
    Chain({first, last});
    EXPECT_EQ(Order(), (std::vector<int>{osc, first, last}));
    Calls().clear();
    float left[kMaxFrames] = {}, right[kMaxFrames] = {};
    engine.Render({left, right}, 64);
    for (int slot : {osc, first, last}) EXPECT_EQ(CallsOf("Work", slot).size(), 1u) << slot;
}

// The polyphony rule as first written: a walk down every path from every root, counting
// polyphonic arrivals. Exponential in the worst case, so only for small graphs.
void WalkEveryPath(VrokInstance& engine, int id, bool inputPolyphonic, std::vector<int>& visits) {
    const bool polyphonic = engine.blocks[id]->IsPolyphonic(inputPolyphonic) || inputPolyphonic;
    if (polyphonic) ++visits[size_t(id)];
    for (const Connection& c : engine.connections)
        if (c.inUse && c.fromBlock == id) WalkEveryPath(engine, c.toBlock, polyphonic, visits);
}

TEST_F(Graph, OrderAndPolyphonyOfRandomGraphsMatchTheWalkOverEveryPath) {
    const unsigned seed = 20261123;
    std::printf("seed %u\n", seed);
    std::mt19937 random(seed);
    const int types[] = {kPolySource, kMonoSource, kPass, kPass, kOutput};
    for (int round = 0; round < 300; ++round) {
        engine.ClearPatch();
        const int blocks = 2 + int(random() % 11);
        for (int b = 0; b < blocks; ++b) Add(types[random() % 5]);
        // Wires only run forward in a shuffled ranking of the slots, so none closes a loop
        // and slot order says nothing about the direction.
        std::vector<int> ranked(static_cast<size_t>(blocks));
        for (int b = 0; b < blocks; ++b) ranked[size_t(b)] = b;
        std::shuffle(ranked.begin(), ranked.end(), random);
        for (int w = int(random() % 30); w > 0; --w) {
            const int from = int(random() % unsigned(blocks - 1));
            const int to = from + 1 + int(random() % unsigned(blocks - from - 1));
            engine.Connect(ranked[size_t(from)], ranked[size_t(to)], int(random() % 2));
        }
        engine.RebuildOrder();

        std::vector<bool> feedsOutput(size_t(blocks), false);
        for (int r = blocks - 1; r >= 0; --r) {
            const int b = ranked[size_t(r)];
            feedsOutput[size_t(b)] = engine.blocks[b]->isOutput;
            for (const Connection& c : engine.connections)
                if (c.inUse && c.fromBlock == b && feedsOutput[size_t(c.toBlock)]) feedsOutput[size_t(b)] = true;
        }
        std::vector<int> visits(size_t(blocks), 0), position(size_t(blocks), -1);
        for (int b = 0; b < blocks; ++b) {
            const bool hasInput = std::any_of(std::begin(engine.connections), std::end(engine.connections),
                                              [b](const Connection& c) { return c.inUse && c.toBlock == b; });
            if (!hasInput && feedsOutput[size_t(b)]) WalkEveryPath(engine, b, false, visits);
        }
        for (int k = 0; k < engine.orderCount; ++k) {
            ASSERT_EQ(position[size_t(engine.order[k])], -1) << "round " << round << ": listed twice";
            position[size_t(engine.order[k])] = k;
        }
        for (int b = 0; b < blocks; ++b) {
            ASSERT_EQ(position[size_t(b)] >= 0, bool(feedsOutput[size_t(b)])) << "round " << round << " block " << b;
            ASSERT_EQ(engine.blocks[b]->monophonic, visits[size_t(b)] == 0) << "round " << round << " block " << b;
        }
        for (const Connection& c : engine.connections) {
            if (!c.inUse || position[size_t(c.toBlock)] < 0) continue;
            ASSERT_LT(position[size_t(c.fromBlock)], position[size_t(c.toBlock)]) << "round " << round;
        }
    }
}

}  // namespace
