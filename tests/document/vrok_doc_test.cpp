// VrokDoc's patch operations: what reaches the engine, what enters the history, and what
// is refused without leaving traces. Built on the oscillator (type 4) and output (type 0).
#include <gtest/gtest.h>

#include "document/block_types.h"
#include "document_support.h"

namespace {

using docsupport::HasWire;
using docsupport::LiveWires;
using docsupport::Wire;

constexpr int kOsc = 4;
constexpr int kOutput = 0;

bool Buildable(int type) {
    const BlockType* row = FindBlockType(type);
    return row && row->create;
}

TEST(VrokDocDefaultPatch, HoldsWhatTheFactoryCanMakeWiredInARow) {
    VrokDoc doc;
    ASSERT_TRUE(Buildable(49) && Buildable(0));
    for (int type : {49, 1, 0}) {  // input, filter, output
        const bool found = std::any_of(doc.patchBlocks.begin(), doc.patchBlocks.end(),
                                       [&](const auto& b) { return b->block->type == type; });
        EXPECT_EQ(found, Buildable(type)) << "type " << type;
    }
    // Both wires need the filter; no half-made wire records stay.
    const size_t wires = Buildable(1) ? 2 : 0;
    EXPECT_EQ(doc.patchConnections.size(), wires);
    EXPECT_EQ(LiveWires(*doc.engine).size(), wires);
    EXPECT_EQ(doc.objects.size(), 1 + doc.patchBlocks.size() + wires);
    EXPECT_TRUE(doc.initialised);
}

class CountingView : public DocumentView {
public:
    void DocumentChanged() override { ++changes; }
    void StorableAdded(Storable*) override {}
    int changes = 0;
};

class VrokDocEdit : public ::testing::Test {
protected:
    void SetUp() override {
        doc.ClearAll();
        doc.AddWindow(&view);
    }
    VrokDoc doc;
    CountingView view;
};

TEST_F(VrokDocEdit, RefusedBlocksAndWiresLeaveNoTrace) {
    EXPECT_EQ(doc.AddBlock(36, -1, 10, 10), nullptr);  // a type number with no block
    EXPECT_EQ(doc.objects.size(), 1u);
    EXPECT_EQ(doc.UndoCount(), 0u);
    PatchBlock* a = doc.AddBlock(kOsc, 3, 0, 0);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(doc.AddBlock(kOutput, 3, 0, 0), nullptr);  // the slot is taken
    PatchBlock* b = doc.AddBlock(kOsc, -1, 0, 0);
    ASSERT_NE(doc.AddConnection(a, b, 0), nullptr);
    const size_t objects = doc.objects.size();
    const size_t undo = doc.UndoCount();
    EXPECT_EQ(doc.AddConnection(b, a, 0), nullptr);  // closes a loop
    EXPECT_EQ(doc.AddConnection(a, b, 0), nullptr);  // the same wire twice
    EXPECT_EQ(doc.AddConnection(a, nullptr, 0), nullptr);
    EXPECT_EQ(doc.objects.size(), objects);
    EXPECT_EQ(doc.UndoCount(), undo);
    EXPECT_EQ(doc.patchBlocks.size(), 2u);
    EXPECT_EQ(doc.patchConnections.size(), 1u);
}

TEST_F(VrokDocEdit, DeletedBlockComesBackWithSlotParametersAndWires) {
    PatchBlock* source = doc.AddBlock(kOsc, 2, 0, 0);
    PatchBlock* middle = doc.AddBlock(kOsc, 7, 120, 64);
    PatchBlock* output = doc.AddBlock(kOutput, 9, 0, 0);
    ASSERT_TRUE(source && middle && output);
    ASSERT_NE(doc.AddConnection(source, middle, 1), nullptr);
    ASSERT_NE(doc.AddConnection(middle, output, 0), nullptr);
    doc.SetParameter(middle, 0, 0.125f);

    doc.DeleteBlock(middle);
    EXPECT_EQ(doc.engine->blocks[7], nullptr);
    EXPECT_TRUE(LiveWires(*doc.engine).empty());
    EXPECT_TRUE(doc.patchConnections.empty());

    doc.Undo();
    PatchBlock* back = doc.FindBlock(7);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->block->type, kOsc);
    EXPECT_EQ(back->block->posX, 120);
    EXPECT_FLOAT_EQ(back->block->values[0], 0.125f);
    EXPECT_TRUE(HasWire(*doc.engine, Wire{2, 7, 1}));
    EXPECT_TRUE(HasWire(*doc.engine, Wire{7, 9, 0}));
    ASSERT_EQ(doc.patchConnections.size(), 2u);
    for (const auto& wire : doc.patchConnections) EXPECT_TRUE(wire->Touches(back));

    doc.Redo();
    EXPECT_EQ(doc.engine->blocks[7], nullptr);
    EXPECT_TRUE(LiveWires(*doc.engine).empty());
}

TEST_F(VrokDocEdit, DeletingABlockAloneForgetsItsWires) {
    PatchBlock* osc = doc.AddBlock(kOsc, 0, 0, 0);
    PatchBlock* output = doc.AddBlock(kOutput, 1, 0, 0);
    PatchConnection* wire = doc.AddConnection(osc, output, 0);
    ASSERT_NE(wire, nullptr);
    doc.DeleteObject(osc);
    // The engine took the wire; a new wire may reuse its table entry, so the record must
    // not hold on to it.
    EXPECT_EQ(wire->connection, nullptr);
    ASSERT_NE(doc.AddConnection(doc.AddBlock(kOsc, 0, 0, 0), output, 0), nullptr);
    doc.DeleteObject(wire);
    EXPECT_TRUE(HasWire(*doc.engine, Wire{0, 1, 0}));
}

TEST_F(VrokDocEdit, DeleteOnGlobalOnlyRefreshesAndClearAllResetsIt) {
    doc.AddBlock(kOsc, -1, 0, 0);
    doc.global->SetValue("Param_Voice_Transpose", 0.75f);
    const int changes = view.changes;
    doc.Delete(doc.global.get());
    EXPECT_EQ(view.changes, changes + 1);
    doc.DeleteObject(doc.global.get());
    EXPECT_EQ(doc.objects.at(doc.global->id), doc.global.get());
    EXPECT_FLOAT_EQ(doc.global->Value("Param_Voice_Transpose"), 0.75f);

    doc.ClearAll();
    EXPECT_TRUE(doc.patchBlocks.empty());
    EXPECT_EQ(doc.objects.size(), 1u);
    EXPECT_EQ(doc.UndoCount(), 0u);
    EXPECT_FLOAT_EQ(doc.global->Value("Param_Voice_Transpose"), 0.5f);
    EXPECT_FLOAT_EQ(doc.engine->transpose, 0.0f);
}

TEST_F(VrokDocEdit, SetParameterClampsAndIsOneUndoStep) {
    PatchBlock* osc = doc.AddBlock(kOsc, 0, 0, 0);
    const std::vector<float> before = osc->block->values;
    const size_t undo = doc.UndoCount();
    doc.SetParameter(osc, 0, 1.5f);
    EXPECT_EQ(osc->block->values[0], 1.0f);
    doc.SetParameter(osc, osc->block->numParameters, 0.5f);  // past the end: ignored
    EXPECT_EQ(doc.UndoCount(), undo + 1);
    doc.Undo();
    EXPECT_EQ(osc->block->values, before);
}

TEST(VrokDocGlobal, EventsReachTheEngineAndAreReappliedAfterARateChange) {
    VrokDoc doc;
    PatchGlobal& global = *doc.global;
    VrokInstance& engine = *doc.engine;
    global.SetValue("Param_Voice_Transpose", 1.0f);
    EXPECT_FLOAT_EQ(engine.transpose, 24.0f);
    global.SetValue("Param_Voice_Bendrange", 0.25f);
    EXPECT_FLOAT_EQ(engine.bendRange, 6.0f);
    global.SetValue("Param_Reverb_Enable", 0.5f);
    global.SetValue("Param_Delay_Enable", 1.0f);
    EXPECT_TRUE(engine.reverbOn);
    EXPECT_TRUE(engine.delayOn);
    EXPECT_FALSE(engine.chorusOn);
    global.SetValue("Param_Polyphony", 1.0f);
    EXPECT_EQ(engine.numVoices, 16);
    global.SetValue("Param_Polyphony", 0.0f);
    EXPECT_TRUE(engine.monophonic);
    EXPECT_FALSE(global.SetValue("Param_Nothing", 1.0f));

    engine.transpose = 5.0f;  // as lost by a rate change
    engine.reverbOn = false;
    doc.ReapplyGlobals();
    EXPECT_FLOAT_EQ(engine.transpose, 24.0f);
    EXPECT_TRUE(engine.reverbOn);
}

}  // namespace
