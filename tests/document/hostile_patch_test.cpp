// Patch files that once crashed, stalled or lost data (tests/data/hostile), and the limits
// that refuse damaged files before they cost the stack, minutes or gigabytes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>

#include "document_support.h"

namespace {

namespace fs = std::filesystem;

std::string Hostile(const std::string& name) { return std::string(VROK_TEST_DATA_DIR) + "/hostile/" + name; }

fs::path TempPath(const std::string& name) {
    const fs::path dir = fs::temp_directory_path() / ("vrok_hostile_" + std::to_string(::getpid()));
    fs::create_directories(dir);
    return dir / name;
}

// Plays a note for `buffers` host buffers; every sample must be finite.
void RenderNote(VrokDoc& doc, int buffers) {
    float left[kMaxFrames], right[kMaxFrames];
    doc.engine->PressKey(69, 100);
    for (int b = 0; b < buffers; ++b) {
        std::fill_n(left, kMaxFrames, 0.0f);
        std::fill_n(right, kMaxFrames, 0.0f);
        doc.engine->Render({left, right}, kMaxFrames);
        for (int i = 0; i < kMaxFrames; ++i) ASSERT_TRUE(std::isfinite(left[i]) && std::isfinite(right[i])) << b;
    }
}

std::string LoadProblems(VrokDoc& doc, const std::string& path) {
    LoadReport report;
    if (doc.LoadFile(path, &report)) return "loaded";
    std::string text;
    for (const LoadProblem& problem : report) text += problem.Format();
    return text;
}

TEST(HostilePatch, OutputsFeedingOutputsAreOrderedOnceAndRender) {
    VrokDoc doc;
    ASSERT_TRUE(doc.LoadFile(Hostile("output_chain_141.vrkx")));
    const VrokInstance& engine = *doc.engine;
    const std::vector<int> order(engine.order, engine.order + engine.orderCount);
    EXPECT_EQ(order.size(), 141u);
    EXPECT_EQ(std::set<int>(order.begin(), order.end()).size(), order.size()) << "a block listed twice";
    EXPECT_EQ(order.front(), 140) << "the oscillator first";
    EXPECT_EQ(order.back(), 0) << "the last output of the chain last";
    EXPECT_EQ(engine.rootCount, 1);
    RenderNote(doc, 8);
}

TEST(HostilePatch, LayeredFanOutGetsThePolyphonyOfEveryPathAtOnce) {
    VrokDoc doc;
    ASSERT_TRUE(doc.LoadFile(Hostile("fan_out_18_pairs.vrkx")));  // 2^18 paths: a walk per path took minutes
    for (int slot = 0; slot < 38; ++slot)
        EXPECT_FALSE(doc.engine->blocks[slot]->monophonic) << "oscillators make every block downstream polyphonic";
    RenderNote(doc, 8);
}

TEST(HostilePatch, NonFiniteGlobalsAreDefaultsOrClampedAndStayOutOfTheAudio) {
    VrokDoc doc;
    ASSERT_TRUE(doc.LoadFile(Hostile("non_finite_globals.vrkx")));
    const PatchGlobal& global = *doc.global;
    EXPECT_EQ(global.Value("Param_Voice_Transpose"), 0.5f) << "NaN reads as missing";
    EXPECT_EQ(global.Value("Param_Voice_Bendrange"), 1.0f);
    EXPECT_EQ(global.Value("Param_Voice_Portamento"), 0.0f);
    EXPECT_EQ(global.Value("Param_Reverb_Decay"), 1.0f);
    EXPECT_EQ(doc.engine->transpose, 0.0f);
    EXPECT_EQ(doc.engine->bendRange, 24.0f);
    const std::string saved = doc.WriteXml();
    EXPECT_EQ(saved.find("nan"), std::string::npos) << "never written back";
    EXPECT_EQ(saved.find("inf"), std::string::npos);
    EXPECT_FALSE(doc.global->SetValue("Param_Voice_Transpose", NAN)) << "refused at the engine's door too";
    EXPECT_EQ(global.Value("Param_Voice_Transpose"), 0.5f);
    RenderNote(doc, 4);
}

TEST(HostilePatch, APatchWithoutGlobalsStillSavesThemAndIdsNeverOverflow) {
    VrokDoc doc;
    doc.global->SetValue("Param_Voice_Transpose", 0.75f);
    ASSERT_TRUE(doc.LoadFile(Hostile("no_global_huge_id.vrkx")));
    EXPECT_EQ(doc.global->Value("Param_Voice_Transpose"), 0.75f) << "settings the file does not name stay";
    EXPECT_NE(doc.WriteXml().find("Param_Voice_Transpose=\"0.750000\""), std::string::npos)
        << "the global record is written by every later save";
    ASSERT_EQ(doc.patchBlocks.size(), 2u);
    EXPECT_EQ(doc.patchConnections.size(), 1u);
    for (const auto& [id, storable] : doc.objects) EXPECT_LT(id, 1 << 30) << "huge ids are renumbered";
    EXPECT_NE(doc.AddBlock(4, -1, 0, 0), nullptr) << "and a new record still gets an id";

    VrokDoc again;
    ASSERT_TRUE(again.ReadXml(doc.WriteXml()));
    EXPECT_EQ(again.global->Value("Param_Voice_Transpose"), 0.75f);
}

TEST(PatchLimits, DeepNestingIsRefusedBeforeTheParserRecurses) {
    std::string deep = "<storables>";
    for (int i = 0; i < 60000; ++i) deep += "<a>";
    VrokDoc doc;
    const std::string before = doc.WriteXml();
    LoadReport report;
    EXPECT_FALSE(doc.ReadXml(deep, &report));
    ASSERT_EQ(report.size(), 1u);
    EXPECT_NE(report[0].what.find("nested more than 64 deep"), std::string::npos) << report[0].what;

    const fs::path file = TempPath("deep.vrkx");
    std::ofstream(file) << "<?xml version=\"1.0\"?>\n<!-- <<<< -->\n" << deep;
    EXPECT_NE(LoadProblems(doc, file.string()).find(file.string() + ": line 3: elements nested"), std::string::npos);
    EXPECT_EQ(doc.WriteXml(), before);

    // Comments, quoted attributes and self-closed elements do not count as depth.
    std::string flat = "<storables>";
    for (int i = 0; i < 100; ++i) flat += "<!-- <x> --><NOTE A=\"<b>\" B='/>' />";
    EXPECT_TRUE(doc.ReadXml(flat + "</storables>"));
}

TEST(PatchLimits, TooManyRecordsOrBytesAreRefusedWithoutTouchingThePatch) {
    VrokDoc doc;
    const std::string before = doc.WriteXml();
    std::string wires = "<storables>";
    for (int i = 0; i < 4097; ++i) wires += "<CONNECTION FROM=\"0\" TO=\"1\" />";
    LoadReport report;
    EXPECT_FALSE(doc.ReadXml(wires + "</storables>", &report));
    ASSERT_EQ(report.size(), 1u);
    EXPECT_EQ(report[0].what, "4097 CONNECTION elements, more than the 4096 a patch file may hold");

    // A binary patch announcing 200,000 wires is refused from its count.
    const fs::path vrk = TempPath("wires.vrk");
    {
        std::ofstream out(vrk, std::ios::binary);
        const int32_t header[] = {0x6b6f7276, 0, 200000};
        out.write(reinterpret_cast<const char*>(header), sizeof header);
        out << std::string(200000 * 16, '\0');
    }
    report.clear();
    EXPECT_FALSE(doc.ReadVrk(vrk.string(), &report));
    ASSERT_EQ(report.size(), 1u);
    EXPECT_EQ(report[0].what, "wire count 200000 is not in 0..4096");

    // An endless device stops at the size limit instead of filling memory.
    EXPECT_EQ(LoadProblems(doc, "/dev/zero"), "/dev/zero: larger than the 256 MiB a patch file may have");
    EXPECT_EQ(doc.WriteXml(), before);
}

TEST(PatchLimits, SavingFollowsLinksAndWritesDevicesInPlace) {
    VrokDoc doc;
    const fs::path target = TempPath("target.vrkx"), link = TempPath("link.vrkx");
    fs::remove(link);
    fs::create_symlink(target.filename(), link);
    std::string error;
    ASSERT_TRUE(doc.SaveFile(link.string(), &error)) << error;
    EXPECT_TRUE(fs::is_symlink(link)) << "the link stays a link";
    EXPECT_TRUE(fs::is_regular_file(target));
    fs::permissions(target, fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_TRUE(doc.SaveFile(target.string(), &error)) << error;
    EXPECT_EQ(fs::status(target).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write)
        << "a replaced file keeps its mode";

    ASSERT_TRUE(doc.SaveFile("/dev/null", &error)) << error;
    EXPECT_TRUE(fs::is_character_file("/dev/null"));
    EXPECT_FALSE(doc.SaveFile(TempPath("").string(), &error)) << "a directory";
    EXPECT_NE(error.find("is a directory"), std::string::npos) << error;
    fs::remove_all(target.parent_path());
}

}  // namespace
