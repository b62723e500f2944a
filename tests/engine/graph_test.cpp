// Graph edits and evaluation order: refusals, wire limits, order from the wire table,
// chain membership and Reset.
#include <gtest/gtest.h>

#include <algorithm>

#include "engine/probe_blocks.h"

using namespace probe;

namespace {

class Graph : public ::testing::Test {
protected:
    void SetUp() override { Calls().clear(); }
    std::vector<int> Order() const { return {engine.order, engine.order + engine.orderCount}; }
    int LiveWires() const {
        return int(std::count_if(std::begin(engine.connections), std::end(engine.connections),
                                 [](const Connection& c) { return c.inUse; }));
    }
    VrokInstance engine{Factory};
};

TEST_F(Graph, InsertTakesFirstFreeSlotAndRefusesTakenOrBadSlots) {
    EXPECT_EQ(Insert(engine, kPass), 0);
    EXPECT_EQ(Insert(engine, kPass), 1);
    EXPECT_FALSE(engine.InsertBlock(kPass, 1));
    EXPECT_FALSE(engine.InsertBlock(kPass, kMaxBlocks));
    EXPECT_FALSE(engine.InsertBlock(kPass, -2));
    int slot = 7;
    EXPECT_FALSE(engine.InsertBlock(999, -1, &slot));
    EXPECT_EQ(slot, 7) << "a refused insert leaves outSlot alone";
    EXPECT_EQ(engine.blocks[2], nullptr);

    ASSERT_TRUE(engine.InsertBlock(kPass, 40, &slot));
    EXPECT_EQ(slot, 40);
    CAudioBlock& block = *engine.blocks[40];
    EXPECT_EQ(block.index, 40);
    EXPECT_TRUE(block.disconnected);
    EXPECT_FALSE(block.connected);
    EXPECT_EQ(block.posY, 596);
    EXPECT_GE(block.posX, 0);
    EXPECT_LT(block.posX, 800);
}

TEST_F(Graph, FullBlockTableRefusesInsert) {
    for (int i = 0; i < kMaxBlocks; ++i) ASSERT_EQ(Insert(engine, kPass), i);
    EXPECT_FALSE(engine.InsertBlock(kPass, -1));
}

TEST_F(Graph, ConnectRefusesSelfMissingEndsBadPortsAndDuplicates) {
    int a = Insert(engine, kPass), b = Insert(engine, kPass);
    EXPECT_EQ(engine.Connect(a, a, 0), nullptr);
    EXPECT_EQ(engine.Connect(-1, b, 0), nullptr);
    EXPECT_EQ(engine.Connect(a, -1, 0), nullptr);
    EXPECT_EQ(engine.Connect(a, 77, 0), nullptr) << "empty slot";
    EXPECT_EQ(engine.Connect(a, 500, 0), nullptr) << "slot out of range";
    EXPECT_EQ(engine.Connect(a, b, 2), nullptr) << "port out of range";
    EXPECT_EQ(engine.Connect(a, b, -1), nullptr);

    Connection* first = engine.Connect(a, b, 0);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first->gain, 1.0f);
    EXPECT_NE(engine.Connect(a, b, 1), nullptr) << "a second port of the same block is a new wire";
    EXPECT_EQ(engine.Connect(a, b, 0), nullptr) << "the same wire twice";
    EXPECT_EQ(LiveWires(), 2);
    EXPECT_EQ(engine.blocks[b]->numSources, 2);
    EXPECT_TRUE(engine.blocks[b]->ports[0]->hasConnection);
}

TEST_F(Graph, WireClosingALoopIsRefusedAndChangesNothing) {
    int a = Insert(engine, kPass), b = Insert(engine, kPass), c = Insert(engine, kPass);
    ASSERT_NE(engine.Connect(a, b, 0), nullptr);
    ASSERT_NE(engine.Connect(b, c, 0), nullptr);
    EXPECT_EQ(engine.Connect(c, a, 0), nullptr);
    EXPECT_EQ(engine.Connect(c, a, 1), nullptr) << "another port closes the same loop";
    EXPECT_EQ(engine.Connect(b, a, 0), nullptr);
    EXPECT_EQ(LiveWires(), 2);
    EXPECT_EQ(engine.blocks[a]->numSources, 0);
    EXPECT_NE(engine.Connect(a, c, 1), nullptr) << "a shortcut in the same direction is no loop";
}

TEST_F(Graph, The646thWireIsRefused) {
    int a = Insert(engine, kPass), wide = Insert(engine, kWide);
    for (int port = 0; port < kMaxConnections; ++port) ASSERT_NE(engine.Connect(a, wide, port), nullptr) << port;
    EXPECT_EQ(engine.Connect(a, wide, kMaxConnections), nullptr);
    EXPECT_EQ(LiveWires(), kMaxConnections);

    // A freed entry is reused, lowest first.
    engine.Disconnect(&engine.connections[10]);
    Connection* again = engine.Connect(a, wide, 690);
    EXPECT_EQ(again, &engine.connections[10]);
}

TEST_F(Graph, StaleSourceListsStopGrowingInsteadOfOverflowing) {
    int a = Insert(engine, kPass), b = Insert(engine, kPass);
    for (int i = 0; i < kMaxConnections + 20; ++i) {
        Connection* c = engine.Connect(a, b, 0);
        ASSERT_NE(c, nullptr);
        engine.Disconnect(c);
    }
    EXPECT_EQ(engine.blocks[b]->numSources, kMaxConnections);
}

TEST_F(Graph, RemoveBlockClearsItsWiresAndClosesTheSourceGap) {
    int a = Insert(engine, kPass), b = Insert(engine, kPass), c = Insert(engine, kPass);
    engine.Connect(a, c, 0);
    engine.Connect(b, c, 1);
    engine.Connect(c, Insert(engine, kOutput), 0);
    engine.RebuildOrder();
    engine.RemoveBlockAt(a);
    EXPECT_EQ(engine.blocks[a], nullptr);
    EXPECT_EQ(LiveWires(), 2);
    ASSERT_EQ(engine.blocks[c]->numSources, 1);
    EXPECT_EQ(engine.blocks[c]->sources[0], b);
    EXPECT_EQ(engine.blocks[c]->sourcePorts[0], 1);

    CAudioBlock* cb = engine.blocks[c];
    engine.RemoveBlock(cb);
    EXPECT_EQ(engine.blocks[c], nullptr);
    EXPECT_EQ(LiveWires(), 0) << "wires into the removed block go too";
    engine.RemoveBlockAt(c);  // an empty slot is ignored
    engine.RemoveBlockAt(-1);
    engine.RemoveBlock(nullptr);
}

TEST_F(Graph, ExternalKnobsAreTrackedByType) {
    int k0 = Insert(engine, kExtKnob0), k4 = Insert(engine, kExtKnob4);
    EXPECT_TRUE(engine.extKnobPresent[0]);
    EXPECT_EQ(engine.extKnobSlot[0], k0);
    EXPECT_TRUE(engine.extKnobPresent[4]);
    EXPECT_EQ(engine.extKnobSlot[4], k4);
    engine.RemoveBlockAt(k0);
    EXPECT_FALSE(engine.extKnobPresent[0]);
    engine.ClearPatch();
    EXPECT_FALSE(engine.extKnobPresent[4]);
    EXPECT_EQ(std::count(std::begin(engine.blocks), std::end(engine.blocks), nullptr), kMaxBlocks);
}

TEST_F(Graph, OrderPutsSourcesFirstAndFollowsTheWireTable) {
    int out = Insert(engine, kOutput), mix = Insert(engine, kPass);
    int x = Insert(engine, kPolySource), y = Insert(engine, kPolySource), stray = Insert(engine, kPass);
    Connection* first = engine.Connect(x, mix, 0);  // entry 0
    engine.Connect(y, mix, 1);                      // entry 1
    engine.Connect(mix, out, 0);                    // entry 2
    engine.RebuildOrder();
    EXPECT_EQ(Order(), (std::vector<int>{x, y, mix, out}));

    // Re-made in a later entry, x's wire now comes after y's.
    engine.Disconnect(first);
    engine.Connect(mix, Insert(engine, kOutput), 0);  // takes entry 0
    engine.Connect(x, mix, 0);                        // entry 3
    engine.RebuildOrder();
    EXPECT_EQ(std::vector<int>(engine.order, engine.order + 4), (std::vector<int>{y, x, mix, out}));
    EXPECT_FALSE(engine.blocks[stray]->connected);
    EXPECT_TRUE(engine.blocks[stray]->disconnected);
    EXPECT_EQ(std::count(engine.order, engine.order + engine.orderCount, stray), 0);
}

TEST_F(Graph, UnwiredOutputIsInOrderBothConnectedAndDisconnected) {
    int out = Insert(engine, kOutput);
    engine.RebuildOrder();
    CAudioBlock& block = *engine.blocks[out];
    EXPECT_TRUE(block.connected);
    EXPECT_TRUE(block.disconnected);
    EXPECT_EQ(Order(), std::vector<int>{out});
}

TEST_F(Graph, ChainThatLosesItsOutputResetsOncePerBlock) {
    int osc = Insert(engine, kPolySource), amp = Insert(engine, kPass), out = Insert(engine, kOutput);
    engine.Connect(osc, amp, 0);
    Connection* last = engine.Connect(amp, out, 0);
    engine.RebuildOrder();
    EXPECT_EQ(Count("Reset", osc), 0);
    engine.Disconnect(last);
    EXPECT_EQ(Count("Reset", osc), 1);
    EXPECT_EQ(Count("Reset", amp), 1);
    EXPECT_EQ(Count("Reset", out), 0) << "an output stays in the order";
    EXPECT_TRUE(engine.blocks[osc]->displayResetPending);
    engine.RebuildOrder();
    engine.Disconnect(&engine.connections[0]);
    EXPECT_EQ(Count("Reset", osc), 1) << "a second cut of the dropped chain resets nothing";
    EXPECT_EQ(Count("Reset", amp), 1);
}

TEST_F(Graph, PolyphonySpreadsDownstreamOnly) {
    int knob = Insert(engine, kMonoSource), osc = Insert(engine, kPolySource);
    int ampA = Insert(engine, kPass), ampB = Insert(engine, kPass), out = Insert(engine, kOutput);
    engine.Connect(knob, ampA, 0);
    engine.Connect(ampA, out, 0);
    engine.Connect(osc, ampB, 0);
    engine.Connect(knob, ampB, 1);
    engine.Connect(ampB, out, 1);
    engine.RebuildOrder();
    EXPECT_TRUE(engine.blocks[knob]->monophonic);
    EXPECT_TRUE(engine.blocks[ampA]->monophonic);
    EXPECT_FALSE(engine.blocks[osc]->monophonic);
    EXPECT_FALSE(engine.blocks[ampB]->monophonic);
    EXPECT_FALSE(engine.blocks[out]->monophonic) << "an output fed by a polyphonic chain is polyphonic";
}

TEST_F(Graph, RebuildSendsEveryVoicePitchToTheOrder) {
    engine.SetVoiceCount(3, false);
    int osc = Insert(engine, kPolySource), out = Insert(engine, kOutput);
    engine.Connect(osc, out, 0);
    Calls().clear();
    engine.RebuildOrder();
    EXPECT_EQ(Count("SetNote", osc), 3);
    EXPECT_EQ(Count("SetNote", out), 3);
    EXPECT_EQ(Calls().front().value, -1.0f) << "a voice never played sends pitch -1";
}

}  // namespace
