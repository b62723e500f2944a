// `vrok info`: the global settings' texts and the listing of a loaded patch, and the
// warnings of a patch that loads with gaps.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "app/note_arguments.h"
#include "app/patch_info.h"
#include "app/patch_load.h"
#include "app/render.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/machine.h"

using namespace app;

namespace {

TEST(AppGlobalText, TextsOfThePanel) {
    const std::tuple<int, float, const char*> rows[] = {
        {300, 0.0f, "1, legato"}, {300, 0.5f, "8"},       {300, 1.0f, "16"}, {1, 0.0f, "off"},
        {101, 0.25f, "25"},       {207, 0.505f, "center"}, {207, 0.25f, "50"}, {400, 0.0f, "off"},
        {401, 0.5f, "12"},        {402, 0.25f, "-12"},     {3, 0.123f, "12.3"}};
    for (auto [event, value, text] : rows) EXPECT_EQ(DescribeGlobal(event, value, 44100), text) << event << " " << value;
    EXPECT_NE(DescribeGlobal(400, 1.0f, 44100), "off");
}

class AppPatchInfo : public ::testing::Test {
protected:
    void SetUp() override { machine.Init(nullptr); }
    CommandLineHost host{44100, 126.0, 4};
    mi machine{host};
};

TEST_F(AppPatchInfo, ListsBlocksWiresAndGlobals) {
    EXPECT_TRUE(LoadPatch(machine, VROK_EXAMPLES_DIR "/sine_a4.vrkx").empty());
    const nlohmann::json patch = PatchToJson(*machine.document);
    ASSERT_EQ(patch["blocks"].size(), 2u);
    const nlohmann::json& osc = patch["blocks"][0];
    for (const auto& [key, value] : {std::pair<const char*, nlohmann::json>{"slot", 0}, {"type", 4}, {"name", "|Osc"}, {"x", 40}})
        EXPECT_EQ(osc[key], value) << key;
    ASSERT_EQ(osc["parameters"].size(), 3u);
    EXPECT_EQ(osc["parameters"][1]["name"], "Amp");
    EXPECT_EQ(osc["parameters"][1]["value"], 0.7) << "stored values as the file has them";
    EXPECT_FALSE(osc["parameters"][1]["text"].get<std::string>().empty());
    EXPECT_EQ(patch["wires"], nlohmann::json::parse(R"([{"from":0,"to":1,"input":0}])"));
    ASSERT_EQ(patch["globals"].size(), 23u);
    EXPECT_EQ(patch["globals"][0]["name"], "Param_Chorus_Enable") << "name order";

    const std::string text = PatchToText(*machine.document, "sine");
    for (const char* line : {"|Osc", "0 -> 1 input 0", "Param_Polyphony          0.062500  1"})
        EXPECT_NE(text.find(line), std::string::npos) << line;
}

TEST_F(AppPatchInfo, GapsBecomeOneWarningEachAndUnreadablePatchesLeaveThePatch) {
    const std::string before = machine.document->WriteXml();
    for (const char* path : {"/nonexistent.vrkx", VROK_APP_DATA_DIR, VROK_TEST_DATA_DIR "/bad/unclosed_element.vrkx",
                             VROK_TEST_DATA_DIR "/bad/wrong_magic.vrk", VROK_TEST_DATA_DIR "/bad/truncated.vrk",
                             VROK_TEST_DATA_DIR "/bad/empty.vrkx"}) {
        try {
            LoadPatch(machine, path);
            ADD_FAILURE() << path << " loaded";
        } catch (const InputError& e) {
            EXPECT_EQ(std::string(e.what()).rfind(path, 0), 0u) << e.what();
        }
    }
    EXPECT_EQ(machine.document->WriteXml(), before);

    const std::vector<std::string> warnings = LoadPatch(machine, VROK_APP_DATA_DIR "/unknown_block.vrkx");
    ASSERT_EQ(warnings.size(), 3u);
    for (const std::string& line : warnings) EXPECT_NE(line.find("unknown_block.vrkx"), std::string::npos) << line;
    EXPECT_TRUE(machine.document->engine->blocks[0] && machine.document->engine->blocks[2]) << "the rest is loaded";
}

}  // namespace
