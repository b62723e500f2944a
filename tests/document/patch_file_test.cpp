// Patch files: XML round trips, what a load resets or refuses, sample data, the binary
// ".vrk" reader, and malformed files that must leave the open patch alone.
#include <gtest/gtest.h>
#include <tinyxml.h>
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "blocks/envelopes.h"
#include "blocks/shapers.h"
#include "document/base64.h"
#include "document_support.h"

namespace {

namespace fs = std::filesystem;
using docsupport::HasWire;
using docsupport::LiveWires;
using docsupport::Wire;

constexpr int kOsc = 4;
constexpr int kOutput = 0;

fs::path TempPath(const std::string& name) {
    const fs::path dir = fs::temp_directory_path() / ("vrok_document_" + std::to_string(::getpid()));
    fs::create_directories(dir);
    return dir / name;
}

void WriteBytes(const fs::path& path, const std::vector<uint8_t>& bytes) {
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), long(bytes.size()));
}

// Two oscillators, an output, wires, changed parameters and global settings, a sample.
void BuildPatch(VrokDoc& doc) {
    doc.ClearAll();
    PatchBlock* osc = doc.AddBlock(kOsc, 5, 30, 40);
    PatchBlock* lfo = doc.AddBlock(kOsc, 2, 10, 40);
    PatchBlock* output = doc.AddBlock(kOutput, 9, 200, 40);
    ASSERT_TRUE(osc && lfo && output);
    doc.SetParameter(osc, 0, 0.3f);
    doc.SetParameter(osc, 2, 0.75f);
    ASSERT_NE(doc.AddConnection(lfo, osc, 0), nullptr);
    ASSERT_NE(doc.AddConnection(osc, output, 0), nullptr);
    doc.global->SetValue("Param_Voice_Transpose", 0.625f);
    doc.global->SetValue("Param_Reverb_Decay", 0.1f);
    TiXmlElement sample("SAMPLE");
    sample.SetAttribute("ID", doc.nextId);
    auto* container = static_cast<SampleContainer*>(doc.Create("SAMPLE", sample));
    container->SetFrames({0.5f, -0.25f, 1e-30f, 0.0f});
    container->sampleName = "kick";
}

TEST(PatchFileXml, SaveLoadSaveGivesTheSameBytesAndKeepsSlots) {
    VrokDoc doc;
    BuildPatch(doc);
    const std::string first = doc.WriteXml();
    EXPECT_EQ(first.rfind("<?xml", 0), 0u);
    VrokDoc copy;
    ASSERT_TRUE(copy.ReadXml(first));
    EXPECT_EQ(copy.WriteXml(), first);
    EXPECT_EQ(copy.UndoCount(), 0u);

    ASSERT_NE(copy.FindBlock(5), nullptr);
    EXPECT_EQ(copy.FindBlock(5)->block->type, kOsc);
    EXPECT_FLOAT_EQ(copy.FindBlock(5)->block->values[2], 0.75f);
    EXPECT_EQ(copy.FindBlock(9)->block->posX, 200);
    EXPECT_TRUE(HasWire(*copy.engine, Wire{2, 5, 0}));
    EXPECT_TRUE(HasWire(*copy.engine, Wire{5, 9, 0}));
    EXPECT_FLOAT_EQ(copy.engine->transpose, (0.625f - 0.5f) * 48.0f);
    ASSERT_EQ(copy.samples.size(), 1u);
    EXPECT_EQ(copy.samples[0]->Frames(), (std::vector<float>{0.5f, -0.25f, 1e-30f, 0.0f}));
    EXPECT_EQ(copy.samples[0]->sampleName, "kick");

    const fs::path file = TempPath("roundtrip.vrkx");
    std::string error;
    ASSERT_TRUE(doc.SaveFile(file.string(), &error)) << error;
    EXPECT_EQ(std::distance(fs::directory_iterator(file.parent_path()), fs::directory_iterator()), 1)
        << "no temporary file left beside the patch";
    VrokDoc fromFile;
    ASSERT_TRUE(fromFile.LoadFile(file.string()));
    EXPECT_EQ(fromFile.WriteXml(), first);
}

TEST(PatchFileXml, EmptyRootKeepsGlobalButGlobalWithoutAKeyResetsIt) {
    VrokDoc doc;
    BuildPatch(doc);
    ASSERT_TRUE(doc.ReadXml("<storables></storables>"));
    EXPECT_TRUE(doc.patchBlocks.empty());
    EXPECT_TRUE(LiveWires(*doc.engine).empty());
    EXPECT_FLOAT_EQ(doc.global->Value("Param_Voice_Transpose"), 0.625f);

    doc.global->SetValue("Param_Voice_Bendrange", 0.1f);
    ASSERT_TRUE(doc.ReadXml("<storables><GLOBAL ID=\"1\" Param_Voice_Bendrange=\"0.100000\" /></storables>"));
    EXPECT_FLOAT_EQ(doc.global->Value("Param_Voice_Transpose"), 0.5f);
    EXPECT_FLOAT_EQ(doc.engine->transpose, 0.0f);
    EXPECT_FLOAT_EQ(doc.global->Value("Param_Voice_Bendrange"), 0.1f);
}

TEST(PatchFileXml, UnknownBlockTypeFailsAndItsWiresRefuse) {
    VrokDoc doc;
    LoadReport report;
    ASSERT_TRUE(doc.ReadXml("<storables>\n"
                            "<BLOCK ID=\"1\" TYPE=\"36\" POS=\"0\" />\n"
                            "<BLOCK ID=\"2\" TYPE=\"0\" POS=\"1\" P0=\" 2.5x\" />\n"
                            "<CONNECTION ID=\"3\" FROM=\"0\" TO=\"1\" INPUTID=\"0\" />\n"
                            "<NOTE ID=\"4\" />\n"
                            "</storables>",
                            &report));
    EXPECT_EQ(doc.engine->blocks[0], nullptr);
    ASSERT_NE(doc.engine->blocks[1], nullptr);
    EXPECT_EQ(doc.engine->blocks[1]->values[0], 1.0f);  // read as atof would, then clamped
    EXPECT_TRUE(LiveWires(*doc.engine).empty());
    ASSERT_EQ(report.size(), 4u);
    EXPECT_EQ(report[0].Format(), "line 2: unknown block type 36 at slot 0");
    EXPECT_NE(report[1].Format().find("line 3: Output at slot 1: "), std::string::npos);
    EXPECT_NE(report[1].Format().find(" 2.5x outside 0..1 clamped to 1"), std::string::npos);
    EXPECT_EQ(report[2].Format(), "line 4: refused wire 0->1:0");
    EXPECT_EQ(report[3].Format(), "line 5: unknown element NOTE skipped");
    // The failed record keeps what it read, so saving does not turn it into an output.
    VrokDoc copy;
    ASSERT_TRUE(copy.ReadXml(doc.WriteXml()));
    EXPECT_EQ(copy.engine->blocks[0], nullptr);
}

TEST(PatchFileSample, Base64AndSampleData) {
    // Eight characters ending in a pad are five bytes: only one whole float is kept.
    EXPECT_EQ(document::DecodeBase64("AAAAAAA=").size(), 5u);
    VrokDoc doc;
    ASSERT_TRUE(doc.ReadXml("<storables><SAMPLE ID=\"1\" sampledata=\"AACAPwA=\" /></storables>"));
    ASSERT_EQ(doc.samples.size(), 1u);
    EXPECT_EQ(doc.samples[0]->Frames(), std::vector<float>{1.0f});
    EXPECT_EQ(doc.samples[0]->sampleName, "Undefined");

    EXPECT_EQ(document::DecodeBase64("TW\nFu\r\n TQ"), (std::vector<uint8_t>{'M', 'a', 'n', 'M'}));
    EXPECT_EQ(document::DecodeBase64("TQ==TWFu"), std::vector<uint8_t>{'M'});  // stops at the pad
    const auto* man = reinterpret_cast<const uint8_t*>("Man");
    EXPECT_EQ(document::EncodeBase64(man, 3), "TWFu");
    EXPECT_EQ(document::EncodeBase64(man, 2), "TWE=");
    EXPECT_EQ(document::EncodeBase64(man, 1), "TQ==");
}

TEST(PatchFileVrk, WrongMagicOrAnyTruncationLeavesThePatchAndTheWholeFileLoads) {
    VrokDoc doc;
    BuildPatch(doc);
    const std::string before = doc.WriteXml();
    // Little-endian words: osc at slot 0 with its parameters, output at slot 1, one wire 0->1.
    std::vector<uint8_t> bytes{'v', 'r', 'o', 'k'};
    auto word = [&](auto v) {
        uint32_t u;
        std::memcpy(&u, &v, 4);
        for (int b = 0; b < 4; ++b) bytes.push_back(uint8_t(u >> (8 * b)));
    };
    for (int v : {2, kOsc, 15, 25}) word(v);
    for (int p = 0; p < doc.FindBlock(5)->block->numParameters; ++p) word(p == 0 ? 1.5f : 0.25f);
    for (int v : {kOutput, 100, 25}) word(v);
    for (int p = 0; p < doc.FindBlock(9)->block->numParameters; ++p) word(0.5f);
    for (int v : {1, 0, 1, 0, 12345}) word(v);
    const fs::path file = TempPath("valid.v2.vrk");
    bytes[3] = 'x';
    WriteBytes(file, bytes);
    LoadReport report;
    EXPECT_FALSE(doc.ReadVrk(file.string(), &report));
    ASSERT_EQ(report.size(), 1u);
    EXPECT_NE(report[0].Format().find("magic"), std::string::npos);
    bytes[3] = 'k';
    for (size_t length = 0; length < bytes.size(); ++length) {
        WriteBytes(file, std::vector<uint8_t>(bytes.begin(), bytes.begin() + long(length)));
        EXPECT_FALSE(doc.ReadVrk(file.string())) << "cut at " << length;
    }
    EXPECT_EQ(doc.WriteXml(), before);

    WriteBytes(file, bytes);
    report.clear();
    ASSERT_TRUE(doc.ReadVrk(file.string(), &report));
    EXPECT_TRUE(report.empty());
    ASSERT_EQ(doc.patchBlocks.size(), 2u);  // in file order, at slots 0 and 1
    const CAudioBlock& osc = *doc.FindBlock(0)->block;
    EXPECT_EQ(osc.type, kOsc);
    EXPECT_EQ(osc.posX, 15);
    EXPECT_EQ(osc.values[0], 1.0f);
    EXPECT_EQ(osc.values[1], 0.25f);
    EXPECT_EQ(doc.FindBlock(1)->block->type, kOutput);
    EXPECT_EQ(LiveWires(*doc.engine), std::vector<Wire>{(Wire{0, 1, 0})});
    EXPECT_EQ(doc.fileName, "valid") << "the name up to its first dot";
}

TEST(PatchFileBad, EveryBadFileFailsBothReadersAndLeavesThePatch) {
    VrokDoc doc;
    BuildPatch(doc);
    const std::string before = doc.WriteXml();
    int files = 0;
    for (const auto& entry : fs::directory_iterator(fs::path(VROK_TEST_DATA_DIR) / "bad")) {
        const std::string path = entry.path().string();
        if (entry.path().extension() != ".vrk" && entry.path().extension() != ".vrkx") continue;
        ++files;
        LoadReport report;
        EXPECT_FALSE(doc.LoadFile(path, &report)) << path;
        EXPECT_FALSE(doc.ReadVrk(path, &report)) << path;
        ASSERT_EQ(report.size(), 2u) << path;
        EXPECT_EQ(report[0].file, path);
        if (entry.path().filename() == "unclosed_element.vrkx") {
            EXPECT_EQ(report[0].line, 4);  // where the unclosed element meets the end tag
        }
        EXPECT_EQ(doc.WriteXml(), before) << path;
    }
    EXPECT_GE(files, 5);
    EXPECT_FALSE(doc.ReadVrk(""));
    EXPECT_FALSE(doc.LoadFile(TempPath("absent.vrkx").string()));
    EXPECT_EQ(doc.WriteXml(), before);
}

}  // namespace

namespace {
constexpr int kWaveshaper = 24;
constexpr int kCustomEnvelope = 23;
}  // namespace

TEST(PatchFileTables, DrawnTablesRoundTripByteForByteAndUndo) {
    VrokDoc doc;
    doc.ClearAll();
    PatchBlock* shaper = doc.AddBlock(kWaveshaper, 3, 0, 0);
    PatchBlock* envelope = doc.AddBlock(kCustomEnvelope, 4, 0, 0);
    ASSERT_TRUE(shaper && envelope);
    for (int j = 0; j < 128; j += 5) doc.SetParameter(shaper, 2 + j, 0.5f + 0.4f * std::sin(0.1f * float(j)));
    for (int j = 0; j < 192; j += 7) doc.SetParameter(envelope, 4 + j, float(j % 11) / 10.0f);
    const std::string first = doc.WriteXml();
    VrokDoc copy;
    ASSERT_TRUE(copy.ReadXml(first));
    EXPECT_EQ(copy.WriteXml(), first);
    auto* shaperCopy = static_cast<CWaveShaper*>(copy.FindBlock(3)->block);
    auto* original = static_cast<CWaveShaper*>(shaper->block);
    // Six decimals in the file: the curve comes back to within their resolution.
    for (int j = 0; j <= 128; ++j) ASSERT_NEAR(shaperCopy->shapeTable[j], original->shapeTable[j], 2e-6f) << j;
    auto* envelopeCopy = static_cast<CCustomEnvelopeBlock*>(copy.FindBlock(4)->block);
    EXPECT_NEAR(envelopeCopy->curve[7], static_cast<CCustomEnvelopeBlock*>(envelope->block)->curve[7], 2e-6f);

    // A drawn point is an ordinary parameter edit, and undo brings the curve back.
    const float before = original->shapeTable[40];
    doc.SetParameter(shaper, 2 + 40, 0.05f);
    EXPECT_FLOAT_EQ(original->shapeTable[40], -0.9f);
    doc.Undo();
    EXPECT_EQ(original->shapeTable[40], before);
    EXPECT_EQ(doc.WriteXml(), first);
}

TEST(PatchFileTables, DamagedTablesLoadWhatIsValidWithOneLinePerProblem) {
    std::string points;
    for (int i = 4; i < 100; ++i)
        if (i != 50 && i != 51) points += " P" + std::to_string(i) + "=\"0.250000\"";
    const std::string text = "<storables>\n<BLOCK ID=\"1\" TYPE=\"23\" POS=\"0\"" + points +
                             " P50=\"1.700000\" P51=\"-3\" P196=\"0.5\" P250=\"0.5\" />\n"
                             "<BLOCK ID=\"2\" TYPE=\"24\" POS=\"1\" P0=\"0.7\" />\n</storables>";
    VrokDoc doc;
    LoadReport report;
    ASSERT_TRUE(doc.ReadXml(text, &report));
    auto* envelope = static_cast<CCustomEnvelopeBlock*>(doc.engine->blocks[0]);
    ASSERT_NE(envelope, nullptr);
    EXPECT_EQ(envelope->curve[0], -0.5f) << "valid points are read";
    EXPECT_EQ(envelope->curve[46], 1.0f) << "1.7 clamped to 1";
    EXPECT_EQ(envelope->curve[47], -1.0f) << "-3 clamped to 0";
    EXPECT_EQ(envelope->curve[150], 0.0f) << "a missing point keeps its default";
    ASSERT_EQ(report.size(), 4u);
    EXPECT_EQ(
        report[0].Format(),
        "line 2: |Custom Envelope at slot 0: table has 96 of 192 points; the missing ones keep their values");
    EXPECT_EQ(report[1].Format(), "line 2: |Custom Envelope at slot 0: 2 table points outside 0..1 clamped");
    EXPECT_EQ(report[2].Format(),
              "line 2: |Custom Envelope at slot 0: 2 values past its last parameter dropped");
    EXPECT_EQ(report[3].Format(),
              "line 3: Waveshaper at slot 1: table has 0 of 128 points; the missing ones keep their values");
}

TEST(PatchFileKnobs, ValuesOutsideTheRangeAreClampedWithOneLineEach) {
    // A delay asked for seven times its longest time, a negative feedback, a NaN rate.
    const std::string text =
        "<storables>\n<BLOCK ID=\"1\" TYPE=\"19\" POS=\"0\" P0=\"7\" P1=\"-1\" />\n"
        "<BLOCK ID=\"2\" TYPE=\"3\" POS=\"1\" P0=\"nan\" P1=\"0.5\" />\n</storables>";
    VrokDoc doc;
    LoadReport report;
    ASSERT_TRUE(doc.ReadXml(text, &report));
    EXPECT_EQ(doc.engine->blocks[0]->GetParameter(0), 1.0f);
    EXPECT_EQ(doc.engine->blocks[0]->GetParameter(1), 0.0f);
    EXPECT_EQ(doc.engine->blocks[1]->GetParameter(0), 0.0f);
    EXPECT_EQ(doc.engine->blocks[1]->GetParameter(1), 0.5f);
    ASSERT_EQ(report.size(), 3u);
    EXPECT_EQ(report[0].Format(), "line 2: Delay at slot 0: \"Time\" value 7 outside 0..1 clamped to 1");
    EXPECT_EQ(report[1].Format(), "line 2: Delay at slot 0: \"Feedback\" value -1 outside 0..1 clamped to 0");
    EXPECT_EQ(report[2].Format(), "line 3: LFO at slot 1: \"Frequency\" value nan outside 0..1 clamped to 0");
}
