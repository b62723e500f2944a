// VrokDoc's patch operations: what reaches the engine, what enters the history, and what
// is refused without leaving traces. Built on the oscillator (type 4) and output (type 0).
#include <gtest/gtest.h>

#include "document/block_types.h"
#include "document_support.h"

namespace {

using docsupport::CountingView;
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
    int expectedBlocks = 0;
    for (int type : {49, 1, 0}) {
        const bool buildable = Buildable(type);
        expectedBlocks += buildable;
        bool found = false;
        for (const auto& patchBlock : doc.patchBlocks) found |= patchBlock->block->type == type;
        EXPECT_EQ(found, buildable) << "type " << type;
    }
    EXPECT_EQ(static_cast<int>(doc.patchBlocks.size()), expectedBlocks);
    // Input to filter and filter to output need the filter; no half-made wire records stay.
    const size_t expectedWires = Buildable(1) ? (Buildable(49) ? 1 : 0) + (Buildable(0) ? 1 : 0) : 0;
    EXPECT_EQ(doc.patchConnections.size(), expectedWires);
    EXPECT_EQ(LiveWires(*doc.engine).size(), expectedWires);
    EXPECT_EQ(doc.objects.size(), 1 + doc.patchBlocks.size() + doc.patchConnections.size());
    EXPECT_TRUE(doc.initialised);
}

class VrokDocEdit : public ::testing::Test {
protected:
    void SetUp() override {
        doc.ClearAll();
        doc.AddWindow(&view);
    }
    VrokDoc doc;
    CountingView view;
};

TEST_F(VrokDocEdit, RefusedBlockLeavesNoRecord) {
    EXPECT_EQ(doc.AddBlock(36, -1, 10, 10), nullptr);  // a type number with no block
    EXPECT_EQ(doc.objects.size(), 1u);
    EXPECT_EQ(doc.UndoCount(), 0u);
    ASSERT_NE(doc.AddBlock(kOsc, 3, 0, 0), nullptr);
    EXPECT_EQ(doc.AddBlock(kOutput, 3, 0, 0), nullptr);  // the slot is taken
    EXPECT_EQ(doc.patchBlocks.size(), 1u);
    EXPECT_EQ(doc.UndoCount(), 1u);
}

TEST_F(VrokDocEdit, WireThatClosesALoopIsRefusedWithoutTrace) {
    PatchBlock* a = doc.AddBlock(kOsc, -1, 0, 0);
    PatchBlock* b = doc.AddBlock(kOsc, -1, 0, 0);
    ASSERT_NE(doc.AddConnection(a, b, 0), nullptr);
    const size_t objects = doc.objects.size();
    const size_t undo = doc.UndoCount();

    EXPECT_EQ(doc.AddConnection(b, a, 0), nullptr);
    EXPECT_EQ(doc.AddConnection(a, b, 0), nullptr);  // the same wire twice
    EXPECT_EQ(doc.AddConnection(a, nullptr, 0), nullptr);
    EXPECT_EQ(doc.objects.size(), objects);
    EXPECT_EQ(doc.UndoCount(), undo);
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
    // The engine took the wire; a new wire may reuse the table entry, so the record
    // must not hold on to it.
    EXPECT_EQ(wire->connection, nullptr);
    PatchBlock* other = doc.AddBlock(kOsc, 0, 0, 0);
    ASSERT_NE(doc.AddConnection(other, output, 0), nullptr);
    doc.DeleteObject(wire);
    EXPECT_TRUE(HasWire(*doc.engine, Wire{0, 1, 0}));
}

TEST_F(VrokDocEdit, DeleteOnGlobalOnlyRefreshes) {
    doc.global->SetValue("Param_Voice_Transpose", 0.75f);
    const int changes = view.changes;
    doc.Delete(doc.global.get());
    EXPECT_EQ(view.changes, changes + 1);
    EXPECT_EQ(doc.objects.at(doc.global->id), doc.global.get());
    EXPECT_FLOAT_EQ(doc.global->Value("Param_Voice_Transpose"), 0.75f);
    doc.DeleteObject(doc.global.get());
    EXPECT_EQ(doc.objects.at(doc.global->id), doc.global.get());
}

TEST_F(VrokDocEdit, SetParameterClampsAndIsOneUndoStep) {
    PatchBlock* osc = doc.AddBlock(kOsc, -1, 0, 0);
    const float before = osc->block->values[0];
    const size_t undo = doc.UndoCount();
    doc.SetParameter(osc, 0, 1.5f);
    EXPECT_EQ(osc->block->values[0], 1.0f);
    EXPECT_EQ(doc.UndoCount(), undo + 1);
    doc.SetParameter(osc, osc->block->numParameters, 0.5f);  // past the end: ignored
    EXPECT_EQ(doc.UndoCount(), undo + 1);
    doc.Undo();
    EXPECT_EQ(osc->block->values[0], before);
}

TEST_F(VrokDocEdit, ExternalKnobReachesOnlyItsBlock) {
    PatchBlock* osc = doc.AddBlock(kOsc, 0, 0, 0);
    const std::vector<float> before = osc->block->values;
    for (int index : {-1, 0, 3, 7, 8}) doc.SetExternalKnob(index, 1.5f);
    EXPECT_EQ(osc->block->values, before);

    PatchBlock* knob = doc.AddBlock(16, -1, 0, 0);  // knob index 3
    if (!knob) GTEST_SKIP() << "external knob blocks are not built yet";
    doc.SetExternalKnob(3, 1.5f);
    EXPECT_EQ(knob->block->values[0], 1.0f);
}

TEST_F(VrokDocEdit, ClearAllEmptiesPatchAndResetsGlobals) {
    doc.AddBlock(kOsc, -1, 0, 0);
    doc.global->SetValue("Param_Voice_Transpose", 1.0f);
    doc.ClearAll();
    EXPECT_TRUE(doc.patchBlocks.empty());
    EXPECT_EQ(doc.objects.size(), 1u);
    EXPECT_EQ(doc.UndoCount(), 0u);
    EXPECT_FLOAT_EQ(doc.global->Value("Param_Voice_Transpose"), 0.5f);
    EXPECT_FLOAT_EQ(doc.engine->transpose, 0.0f);
}

TEST(VrokDocNames, FileNameIsTheBareName) {
    VrokDoc doc;
    doc.SetFileName("C:\\patches\\bass.v2.vrkx");
    EXPECT_EQ(doc.fileName, "bass");
    doc.SetFileName("/home/me/patches/lead.vrkx");
    EXPECT_EQ(doc.fileName, "lead");
    doc.SetFileName("plain");
    EXPECT_EQ(doc.fileName, "plain");
}

TEST(VrokDocGlobal, EventsReachTheEngine) {
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

    // After a rate change the engine has lost its settings; reapplying restores them.
    engine.transpose = 5.0f;
    engine.reverbOn = false;
    doc.ReapplyGlobals();
    EXPECT_FLOAT_EQ(engine.transpose, 24.0f);
    EXPECT_TRUE(engine.reverbOn);
}

TEST(VrokDocGlobal, FeedbackAndSpacingKeepTheirCrossedEvents) {
    VrokDoc doc;
    const auto& parameters = doc.global->Parameters();
    EXPECT_EQ(parameters.size(), 23u);
    EXPECT_EQ(parameters.at("Param_Delay_Feedback").event, 206);
    EXPECT_EQ(parameters.at("Param_Delay_Spacing").event, 207);
}

}  // namespace
