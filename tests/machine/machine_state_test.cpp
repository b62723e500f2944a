// Saved state and the host side: Save then restore on a new machine, broken state that
// must leave the patch alone, Init's hand-overs and handlers, the editor hooks, commands.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "machine/machine_support.h"

using namespace fake;

namespace {

std::vector<uint8_t> Le32(uint32_t v) { return {uint8_t(v), uint8_t(v >> 8), uint8_t(v >> 16), uint8_t(v >> 24)}; }

// A patch with something in every part of the state: slots that are not the first free
// ones, a wire, parameters off their defaults and a global setting.
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

class MachineState : public ::testing::Test {
protected:
    void SetUp() override { machine.Init(nullptr); }
    std::vector<uint8_t> Saved() {
        Stream out;
        machine.Save(&out);
        return out.bytes;
    }

    fake::Host host;
    mi machine{host};
};

TEST_F(MachineState, SaveWritesLengthTextAndWindowSize) {
    machine.windowWidth = 640;
    machine.windowHeight = 480;
    const std::vector<uint8_t> bytes = Saved();
    const std::string text = machine.document->WriteXml();
    ASSERT_EQ(bytes.size(), 4 + text.size() + 8);
    EXPECT_EQ(std::vector<uint8_t>(bytes.begin(), bytes.begin() + 4), Le32(uint32_t(text.size())));
    EXPECT_EQ(std::string(bytes.begin() + 4, bytes.begin() + 4 + long(text.size())), text);
    EXPECT_EQ(std::vector<uint8_t>(bytes.end() - 8, bytes.end() - 4), Le32(640));
    EXPECT_EQ(std::vector<uint8_t>(bytes.end() - 4, bytes.end()), Le32(480));
}

TEST_F(MachineState, InitOnANewMachineReproducesThePatch) {
    MakeRichPatch(*machine.document);
    machine.windowWidth = 700;
    Stream state(Saved());

    fake::Host otherHost;
    mi restored(otherHost);
    restored.Init(&state);
    VrokInstance& engine = Engine(restored);
    ASSERT_NE(engine.blocks[7], nullptr);
    ASSERT_NE(engine.blocks[12], nullptr);
    EXPECT_EQ(engine.blocks[7]->type, kOscType);
    EXPECT_EQ(engine.blocks[12]->type, kOutputType);
    EXPECT_NEAR(engine.blocks[7]->values[0], 0.123456f, 1e-6f);
    EXPECT_EQ(engine.blocks[7]->values[2], 1.0f);
    EXPECT_NEAR(engine.blocks[12]->values[0], 0.8f, 1e-6f);
    int wires = 0;
    for (const Connection& c : engine.connections)
        if (c.inUse) {
            ++wires;
            EXPECT_EQ(c.fromBlock, 7);
            EXPECT_EQ(c.toBlock, 12);
        }
    EXPECT_EQ(wires, 1);
    EXPECT_FLOAT_EQ(restored.document->global->Value("Param_Voice_Transpose"), 0.75f);
    EXPECT_FLOAT_EQ(engine.transpose, 12.0f) << "the restored global reached the engine";
    EXPECT_EQ(engine.numVoices, 4);
    EXPECT_EQ(restored.windowWidth, 700);
    EXPECT_EQ(restored.document->WriteXml(), machine.document->WriteXml());
}

TEST_F(MachineState, ZeroLengthKeepsTheDefaultPatch) {
    const std::string before = machine.document->WriteXml();
    std::vector<uint8_t> bytes = Le32(0);
    for (uint8_t b : Le32(500)) bytes.push_back(b);
    for (uint8_t b : Le32(350)) bytes.push_back(b);
    Stream state(bytes);
    fake::Host otherHost;
    mi restored(otherHost);
    restored.Init(&state);
    EXPECT_EQ(restored.document->WriteXml(), before);
    EXPECT_EQ(restored.windowWidth, 500) << "the sizes are read regardless";
    EXPECT_EQ(restored.windowHeight, 350);
}

TEST_F(MachineState, EveryTruncationKeepsThePatchOrRestoresIt) {
    const std::vector<uint8_t> defaultState = Saved();
    const std::string defaults = machine.document->WriteXml();
    fake::Host richHost;
    mi rich(richHost);
    MakeRichPatch(*rich.document);
    Stream full;
    rich.Save(&full);
    const std::string richText = rich.document->WriteXml();
    const size_t textEnd = 4 + richText.size();

    for (size_t cut = 0; cut < full.bytes.size(); ++cut) {
        // Every cut near the edges of the text; inside it one in 97 stands for the rest.
        if (cut > 16 && cut + 16 < textEnd && cut % 97 != 0) continue;
        Stream reset(defaultState);
        machine.ReloadState(&reset);
        Stream state(std::vector<uint8_t>(full.bytes.begin(), full.bytes.begin() + long(cut)));
        machine.ReloadState(&state);
        ASSERT_EQ(machine.document->WriteXml(), cut < textEnd ? defaults : richText) << "cut at " << cut;
    }
}

TEST_F(MachineState, ImpossibleLengthOrGarbageKeepsThePatch) {
    const std::string before = machine.document->WriteXml();
    Stream huge(Le32(0xFFFFFFFFu));
    machine.ReloadState(&huge);
    std::vector<uint8_t> bytes = Le32(20);
    const std::string junk = "<storables><BLOCK TY";
    bytes.insert(bytes.end(), junk.begin(), junk.end());
    Stream garbage(bytes);
    machine.ReloadState(&garbage);
    machine.ReloadState(nullptr);
    EXPECT_EQ(machine.document->WriteXml(), before);
}

class FakeEditor : public MachineEditor {
public:
    bool Open(mi&) override { return open = true; }
    void Close(mi&) override { open = false; }
    bool IsOpen(const mi&) const override { return open; }
    void Resize(mi&, int w, int h) override { size = {w, h}; }
    void SetTitle(mi&, const std::string& t) override { title = t; }
    std::string AskOpenFile(mi&, const std::string& t, const std::string& ext, const std::string& filter) override {
        asked = t + "|" + ext + "|" + filter;
        return answer;
    }
    bool open = false;
    std::pair<int, int> size{0, 0};
    std::string title, asked, answer;
};

TEST(MachineHost, InitHandsOverTheExtensionAndInstallsTwoHandlers) {
    fake::Host host;
    host.master.samplesPerSec = 22050;
    host.name = "Lead";
    FakeEditor editor;
    mi machine(host, &editor);
    machine.Init(nullptr);
    EXPECT_EQ(machine.machine, &host.identity);
    ASSERT_NE(host.extension, nullptr);
    EXPECT_EQ(Engine(machine).sampleRate, 22050.0f);
    EXPECT_EQ(machine.windowTitle, "[VROK] fx editor - Lead");

    EXPECT_TRUE(host.Fire(machine::kEventDoubleClick));
    EXPECT_TRUE(editor.open);
    host.name = "[VROK] fx";
    EXPECT_TRUE(host.Fire(machine::kEventRename));
    EXPECT_EQ(editor.title, "[VROK] fx editor");
    EXPECT_EQ(host.handlers.size(), 2u);
}

TEST(MachineHost, HidingTheEditorReopensOnlyWhatWasOpen) {
    fake::Host host;
    FakeEditor editor;
    mi machine(host, &editor);
    machine.Init(nullptr);
    host.extension->SetEditorHidden(true);
    host.extension->SetEditorHidden(false);
    EXPECT_FALSE(editor.open);

    machine.Command(0);
    host.extension->SetEditorHidden(true);
    EXPECT_FALSE(editor.open);
    EXPECT_TRUE(machine.editorWasOpen);
    host.extension->SetEditorHidden(false);
    EXPECT_TRUE(editor.open);
    EXPECT_FALSE(machine.editorWasOpen);
}

TEST(MachineHost, RestoreResizesAnOpenEditor) {
    fake::Host host;
    FakeEditor editor;
    mi machine(host, &editor);
    machine.Init(nullptr);
    machine.windowWidth = 640;
    machine.windowHeight = 320;
    Stream state;
    machine.Save(&state);
    machine.windowWidth = 1;
    machine.Command(0);
    host.extension->ReloadState(&state);
    EXPECT_EQ(editor.size, std::make_pair(640, 320));
}

TEST(MachineHost, LoadCommandReadsThePickedFile) {
    fake::Host host;
    FakeEditor editor;
    mi machine(host, &editor);
    machine.Init(nullptr);
    MakeRichPatch(*machine.document);
    const std::string expected = machine.document->WriteXml();
    const std::filesystem::path file = std::filesystem::temp_directory_path() / "machine_load_command.vrkx";
    ASSERT_TRUE(machine.document->SaveFile(file.string()));
    machine.document->ClearAll();

    editor.answer = file.string();
    machine.Command(1);
    EXPECT_EQ(editor.asked, "Load..|vrkx|[VROK] files");
    EXPECT_EQ(machine.document->WriteXml(), expected);
    EXPECT_EQ(machine.loadedFileName, "machine_load_command.vrkx");
    std::filesystem::remove(file);

    editor.answer.clear();
    machine.document->ClearAll();
    const std::string cleared = machine.document->WriteXml();
    machine.Command(1);
    machine.Command(7);
    EXPECT_EQ(machine.document->WriteXml(), cleared) << "cancelled or unknown commands change nothing";
}

TEST(MachineHost, WithoutAnEditorCommandsDoNothing) {
    fake::Host host;
    mi machine(host);
    machine.Init(nullptr);
    const std::string before = machine.document->WriteXml();
    machine.Command(0);
    machine.Command(1);
    EXPECT_TRUE(host.Fire(machine::kEventDoubleClick));
    EXPECT_EQ(machine.document->WriteXml(), before);
}

TEST(MachineHost, LiveMachinesAreListedInOrderOfCreation) {
    fake::Host host;
    const size_t before = mi::LiveMachines().size();
    auto first = std::make_unique<mi>(host);
    auto second = std::make_unique<mi>(host);
    std::vector<mi*> live = mi::LiveMachines();
    ASSERT_EQ(live.size(), before + 2);
    EXPECT_EQ(live[before], first.get());
    EXPECT_EQ(live[before + 1], second.get());
    first.reset();
    live = mi::LiveMachines();
    ASSERT_EQ(live.size(), before + 1);
    EXPECT_EQ(live[before], second.get());
}

}  // namespace
