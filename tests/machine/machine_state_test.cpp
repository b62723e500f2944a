// Saved state and the host side: Save then restore on a new machine, broken state that
// must leave the patch alone, Init's hand-overs and handlers, the editor hooks, commands.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "machine/machine_support.h"

using namespace fake;

namespace {

std::vector<uint8_t> Le32(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}; }
std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

// Something in every part of the state: slots that are not the first free ones, a wire,
// parameters off their defaults and global settings.
void MakeRichPatch(VrokDoc& doc) {
    doc.ClearAll();
    PatchBlock* osc = doc.AddBlock(kOscType, 7, 30, 40);
    PatchBlock* out = doc.AddBlock(kOutputType, 12, 200, 40);
    doc.SetParameter(osc, 0, 0.123456f);
    doc.SetParameter(osc, 2, 1.0f);
    doc.SetParameter(out, 0, 0.8f);
    doc.AddConnection(osc, out, 0);
    doc.global->SetValue("Param_Voice_Transpose", 0.75f);
    doc.global->SetValue("Param_Polyphony", 0.25f);
}

std::vector<uint8_t> Saved(mi& machine) {
    Stream out;
    machine.Save(&out);
    return out.bytes;
}

class MachineState : public ::testing::Test {
protected:
    void SetUp() override { machine.Init(nullptr); }
    fake::Host host, otherHost;
    mi machine{host}, restored{otherHost};
};

TEST_F(MachineState, StateIsLengthTextAndWindowSizeAndLengthZeroKeepsTheDefaultPatch) {
    machine.windowWidth = 640;
    machine.windowHeight = 480;
    const std::vector<uint8_t> bytes = Saved(machine);
    const std::string text = machine.document->WriteXml();
    ASSERT_EQ(bytes.size(), 4 + text.size() + 8);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 4), Le32(uint32_t(text.size())));
    EXPECT_EQ(std::string(bytes.begin() + 4, bytes.end() - 8), text);
    EXPECT_EQ(std::vector<uint8_t>(bytes.end() - 8, bytes.end()), Le32(640) + Le32(480));

    Stream state(Le32(0) + Le32(500) + Le32(350));
    restored.Init(&state);
    EXPECT_EQ(restored.document->WriteXml(), text);
    EXPECT_EQ(restored.windowWidth, 500) << "the sizes are read regardless";
    EXPECT_EQ(restored.windowHeight, 350);
}

TEST_F(MachineState, InitOnANewMachineReproducesThePatch) {
    MakeRichPatch(*machine.document);
    machine.windowWidth = 700;
    Stream state(Saved(machine));
    restored.Init(&state);
    VrokInstance& engine = Engine(restored);
    ASSERT_TRUE(engine.blocks[7] && engine.blocks[12]);
    EXPECT_EQ(engine.blocks[7]->type, kOscType);
    EXPECT_EQ(engine.blocks[12]->type, kOutputType);
    EXPECT_NEAR(engine.blocks[7]->values[0], 0.123456f, 1e-6f);
    EXPECT_EQ(engine.blocks[7]->values[2], 1.0f);
    EXPECT_NEAR(engine.blocks[12]->values[0], 0.8f, 1e-6f);
    int wires = 0;
    for (const Connection& c : engine.connections)
        if (c.inUse) wires += c.fromBlock == 7 && c.toBlock == 12 ? 1 : 100;
    EXPECT_EQ(wires, 1) << "one wire, from slot 7 to slot 12";
    EXPECT_FLOAT_EQ(restored.document->global->Value("Param_Voice_Transpose"), 0.75f);
    EXPECT_FLOAT_EQ(engine.transpose, 12.0f) << "the restored global reached the engine";
    EXPECT_EQ(engine.numVoices, 4);
    EXPECT_EQ(restored.windowWidth, 700);
    EXPECT_EQ(restored.document->WriteXml(), machine.document->WriteXml());
}

TEST_F(MachineState, TruncatedOrBrokenStateKeepsThePatch) {
    const std::vector<uint8_t> defaultState = Saved(machine);
    const std::string defaults = machine.document->WriteXml();
    MakeRichPatch(*restored.document);
    const std::vector<uint8_t> full = Saved(restored);
    const std::string richText = restored.document->WriteXml();
    const size_t textEnd = 4 + richText.size();
    for (size_t cut = 0; cut < full.size(); ++cut) {
        // Every cut near the edges of the text; inside it one in 97 stands for the rest.
        if (cut > 16 && cut + 16 < textEnd && cut % 97 != 0) continue;
        Stream reset(defaultState);
        machine.ReloadState(&reset);
        Stream state(std::vector<uint8_t>(full.begin(), full.begin() + long(cut)));
        machine.ReloadState(&state);
        ASSERT_EQ(machine.document->WriteXml(), cut < textEnd ? defaults : richText) << "cut at " << cut;
    }

    Stream reset(defaultState);
    machine.ReloadState(&reset);
    Stream huge(Le32(0xFFFFFFFFu));
    machine.ReloadState(&huge);
    const std::string junk = "<storables><BLOCK TY";
    Stream garbage(Le32(20) + std::vector<uint8_t>(junk.begin(), junk.end()));
    machine.ReloadState(&garbage);
    machine.ReloadState(nullptr);
    EXPECT_EQ(machine.document->WriteXml(), defaults);
}

class FakeEditor : public MachineEditor {
public:
    bool Open(mi&) override { return open = true; }
    void Close(mi&) override { open = false; }
    bool IsOpen(const mi&) const override { return open; }
    void Resize(mi&, int w, int h) override { size = {w, h}; }
    void SetTitle(mi&, const std::string& t) override { title = t; }
    std::string AskOpenFile(mi&, const std::string&, const std::string&, const std::string&) override { return answer; }
    bool open = false;
    std::pair<int, int> size{0, 0};
    std::string title, answer;
};

class MachineHost : public ::testing::Test {
protected:
    fake::Host host;
    FakeEditor editor;
    mi machine{host, &editor};
};

TEST_F(MachineHost, InitHandsOverTheExtensionAndHandlersAndHidingReopensOnlyAnOpenEditor) {
    host.master.samplesPerSec = 22050;
    host.name = "Lead";
    machine.Init(nullptr);
    EXPECT_EQ(machine.machine, &host.identity);
    ASSERT_NE(host.extension, nullptr);
    EXPECT_EQ(Engine(machine).sampleRate, 22050.0f);
    EXPECT_EQ(machine.windowTitle, "[VROK] fx editor - Lead");
    EXPECT_EQ(host.handlers.size(), 2u);
    host.extension->SetEditorHidden(true);
    host.extension->SetEditorHidden(false);
    EXPECT_FALSE(editor.open);

    EXPECT_TRUE(host.Fire(machine::kEventDoubleClick));
    EXPECT_TRUE(editor.open);
    host.name = "[VROK] fx";
    EXPECT_TRUE(host.Fire(machine::kEventRename));
    EXPECT_EQ(editor.title, "[VROK] fx editor");
    host.extension->SetEditorHidden(true);
    EXPECT_FALSE(editor.open);
    host.extension->SetEditorHidden(false);
    EXPECT_TRUE(editor.open);

    machine.windowWidth = 640;
    machine.windowHeight = 320;
    Stream state(Saved(machine));
    machine.windowWidth = 1;
    host.extension->ReloadState(&state);
    EXPECT_EQ(editor.size, std::make_pair(640, 320)) << "a restore resizes the open editor";
}

TEST_F(MachineHost, LoadCommandReadsThePickedFileAndNeedsAnEditor) {
    machine.Init(nullptr);
    MakeRichPatch(*machine.document);
    const std::string rich = machine.document->WriteXml();
    const std::filesystem::path file = std::filesystem::temp_directory_path() / "machine_load_command.vrkx";
    ASSERT_TRUE(machine.document->SaveFile(file.string()));
    machine.document->ClearAll();
    const std::string cleared = machine.document->WriteXml();
    machine.Command(1);  // cancelled
    machine.Command(7);  // unknown
    EXPECT_EQ(machine.document->WriteXml(), cleared);
    editor.answer = file.string();
    machine.Command(1);
    EXPECT_EQ(machine.document->WriteXml(), rich);
    EXPECT_EQ(machine.loadedFileName, "machine_load_command.vrkx");

    mi alone(host);  // no editor: commands and a double click do nothing
    alone.Init(nullptr);
    const std::string before = alone.document->WriteXml();
    alone.Command(0);
    alone.Command(1);
    EXPECT_TRUE(host.Fire(machine::kEventDoubleClick));
    EXPECT_EQ(alone.document->WriteXml(), before);
    std::filesystem::remove(file);
}

}  // namespace
