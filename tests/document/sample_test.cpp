// Samples in the document: loading sound files into a sampler, the link that ties a sampler
// to its sample through save, reload, paste and undo, and damaged or unusable sample data.
#include <gtest/gtest.h>
#include <tinyxml.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "blocks/sampler.h"
#include "document/base64.h"
#include "document/document_support.h"
#include "engine/vrok_instance.h"
#include "sound_files.h"

namespace fs = std::filesystem;
using docsupport::LogRecorder;

namespace {

constexpr int kInput = 49, kSampler = 58, kOutput = 0;

fs::path TempPath(const std::string& name) {
    const fs::path dir = fs::temp_directory_path() / "vrok-sample-test";
    fs::create_directories(dir);
    return dir / name;
}

// Stereo: a 440 Hz sine on the left, its half on the right, so the mean is 0.75 of it.
std::vector<float> StereoTone(int rate, int frames) {
    std::vector<float> x;
    for (int i = 0; i < frames; ++i) {
        const float s = 0.8f * float(std::sin(2.0 * M_PI * 440.0 * i / rate));
        x.push_back(s);
        x.push_back(0.5f * s);
    }
    return x;
}

std::string WriteTone(const std::string& name, int format, int rate, int frames) {
    const std::string path = TempPath(name).string();
    EXPECT_TRUE(soundfiles::Write(path, format, rate, 2, StereoTone(rate, frames))) << name;
    return path;
}

// input -> sampler port 1 (its amplitude), sampler -> output; returns the sampler's record.
PatchBlock* SamplerPatch(VrokDoc& doc) {
    doc.ClearAll();
    PatchBlock* input = doc.AddBlock(kInput, 0, 0, 0);
    PatchBlock* sampler = doc.AddBlock(kSampler, 1, 100, 0);
    PatchBlock* output = doc.AddBlock(kOutput, 2, 200, 0);
    doc.AddConnection(input, sampler, 1);
    doc.AddConnection(sampler, output, 0);
    return sampler;
}

// Host input held at full scale drives the sampler's amplitude; plays note 70 and returns
// what the output mixes, `blocks` sample blocks long.
std::vector<float> PlayNote(VrokDoc& doc, int blocks) {
    VrokInstance& engine = *doc.engine;
    engine.SetVoiceCount(1, false);
    engine.PressKey(70, 100);
    std::vector<float> heard;
    float left[kMaxFrames], right[kMaxFrames], in[kMaxFrames];
    for (int b = 0; b < blocks; ++b) {
        std::fill_n(in, kMaxFrames, kHostScale);
        std::fill_n(left, kMaxFrames, 0.0f);
        std::fill_n(right, kMaxFrames, 0.0f);
        engine.RunInputs({in, in}, kMaxFrames);
        engine.Render({left, right}, kMaxFrames);
        heard.insert(heard.end(), left, left + kMaxFrames);
    }
    return heard;
}

CSimpleSamplerBlock& Player(PatchBlock* record) { return dynamic_cast<CSimpleSamplerBlock&>(*record->block); }

bool SameBits(const std::vector<float>& a, const std::vector<float>& b) {
    return a.size() == b.size() && std::memcmp(a.data(), b.data(), a.size() * sizeof(float)) == 0;
}

}  // namespace

TEST(SampleFiles, EachFormatLoadsAndTravelsInsideThePatchBitExact) {
    struct Case {
        const char* name;
        int format;
        int rate;
        float tolerance;  // of the mixed frames against the source
    };
    const Case cases[] = {{"tone.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 0.0f},
                          {"tone.flac", SF_FORMAT_FLAC | SF_FORMAT_PCM_16, 22050, 1.0f / 16384},
                          {"tone.ogg", SF_FORMAT_OGG | SF_FORMAT_VORBIS, 48000, 0.05f}};
    for (const Case& c : cases) {
        const int frames = c.rate / 4;
        const std::string path = WriteTone(c.name, c.format, c.rate, frames);
        VrokDoc doc;
        PatchBlock* sampler = SamplerPatch(doc);
        SampleContainer* sample = doc.LoadSampleInto(sampler, path);
        ASSERT_NE(sample, nullptr) << c.name;
        ASSERT_TRUE(sample->problems.empty()) << c.name << ": " << sample->problems[0];
        EXPECT_EQ(Player(sampler).sample, sample) << c.name;
        EXPECT_EQ(sample->sampleName, "tone");
        EXPECT_EQ(sample->dataRate, float(c.rate)) << "the file's own rate";
        EXPECT_EQ(sample->rootFrequency, 440.0f);
        const std::vector<float> loaded = sample->Frames();
        ASSERT_EQ(int(loaded.size()), frames) << c.name;
        const std::vector<float> tone = StereoTone(c.rate, frames);
        for (int i = 0; i < frames; i += 97)
            ASSERT_NEAR(loaded[size_t(i)], 0.75f * tone[size_t(2 * i)], c.tolerance + 1e-7f)
                << c.name << " frame " << i;

        ASSERT_TRUE(doc.SetSampleRoot(sample, 220.0f));
        const std::vector<float> before = PlayNote(doc, 8);
        VrokDoc copy;
        ASSERT_TRUE(copy.ReadXml(doc.WriteXml()));
        ASSERT_EQ(copy.samples.size(), 1u);
        SampleContainer& reloaded = *copy.samples[0];
        EXPECT_TRUE(SameBits(reloaded.Frames(), loaded)) << c.name;
        EXPECT_EQ(reloaded.dataRate, float(c.rate));
        EXPECT_EQ(reloaded.rootFrequency, 220.0f);
        EXPECT_EQ(reloaded.sampleKey, sample->sampleKey);
        EXPECT_EQ(Player(copy.FindBlock(1)).sample, &reloaded) << c.name << ": the link survives";
        EXPECT_TRUE(SameBits(PlayNote(copy, 8), before)) << c.name << ": plays identically";
        EXPECT_EQ(copy.WriteXml(), doc.WriteXml());
    }
}

TEST(SampleFiles, BrokenFilesSayWhyAndUndoBringsBackTheFreedSample) {
    const std::string good = WriteTone("good.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 1000);
    const std::string text = TempPath("notes.wav").string();
    std::ofstream(text) << "these are not sound samples\n";
    const std::string empty = TempPath("empty.wav").string();
    ASSERT_TRUE(soundfiles::Write(empty, SF_FORMAT_WAV | SF_FORMAT_PCM_16, 44100, 1, {}));
    const std::string truncated = TempPath("truncated.wav").string();
    {
        std::ifstream in(good, std::ios::binary);
        std::vector<char> head(30);
        in.read(head.data(), 30);
        std::ofstream(truncated, std::ios::binary).write(head.data(), 30);
    }
    struct Case {
        std::string path;
        const char* says;
        bool openFails;
    };
    const Case cases[] = {{TempPath("missing.wav").string(), "cannot read as a sound file", true},
                          {text, "cannot read as a sound file", true},
                          {truncated, "cannot read as a sound file", true},
                          {empty, "holds no frames", false}};
    for (const Case& c : cases) {
        VrokDoc doc;
        PatchBlock* sampler = SamplerPatch(doc);
        SampleContainer* sample = doc.LoadSampleInto(sampler, good);
        const std::vector<float> frames = sample->Frames();
        ASSERT_EQ(frames.size(), 1000u);

        LogRecorder log;
        EXPECT_EQ(doc.LoadSampleInto(sampler, c.path), sample) << "the same sample is reloaded";
        ASSERT_EQ(sample->problems.size(), 1u) << c.path;
        EXPECT_EQ(sample->problems[0].rfind(c.path + ": ", 0), 0u) << sample->problems[0];
        EXPECT_NE(sample->problems[0].find(c.says), std::string::npos) << sample->problems[0];
        EXPECT_EQ(log.Has(1, "Not able to open input file input.wav.\n"), c.openFails) << c.path;
        EXPECT_EQ(sample->numFrames, 0u) << "the load freed the old frames first";

        doc.Undo();
        EXPECT_TRUE(SameBits(sample->Frames(), frames)) << c.path;
        EXPECT_EQ(Player(sampler).sample, sample);
        EXPECT_EQ(sample->sampleName, "good");
    }
}

TEST(SampleFiles, HugeFileIsRefusedWithAClearMessage) {
    const std::string huge = TempPath("huge.wav").string();
    ASSERT_TRUE(soundfiles::WriteSparseFloatWav(huge, 100'000'000));  // 400 MB of floats
    VrokDoc doc;
    PatchBlock* sampler = SamplerPatch(doc);
    SampleContainer* sample = doc.LoadSampleInto(sampler, huge);
    fs::remove(huge);
    ASSERT_EQ(sample->problems.size(), 1u);
    EXPECT_EQ(sample->problems[0], huge + ": 100000000 frames; a sample holds at most 16777216");
    EXPECT_EQ(sample->numFrames, 0u);
    // The patch stays usable: it still renders, silently.
    for (float s : PlayNote(doc, 2)) ASSERT_EQ(s, 0.0f);
}

TEST(SampleData, DamagedBase64AndNonFiniteFramesLoadWithOneLineEach) {
    const float values[] = {1.0f, NAN, -0.5f, INFINITY};
    const std::string clean = document::EncodeBase64(reinterpret_cast<const uint8_t*>(values), sizeof values);
    // Characters outside the alphabet inside the data, line breaks that are fine, and two
    // stray bytes of a partial frame before the pad.
    const std::string damaged =
        clean.substr(0, 8) + "!*\n" + clean.substr(8, 12) + "\xC3\xA9" + clean.substr(20);
    const std::string xml =
        "<storables><SAMPLE ID=\"3\" samplename=\"kick\" samplerate=\"-1\" sampledata=\"" + damaged +
        "\" /></storables>";
    VrokDoc doc;
    LoadReport report;
    ASSERT_TRUE(doc.ReadXml(xml, &report));
    ASSERT_EQ(doc.samples.size(), 1u);
    EXPECT_EQ(doc.samples[0]->Frames(), (std::vector<float>{1.0f, 0.0f, -0.5f, 0.0f}));
    std::vector<std::string> lines;
    for (const LoadProblem& problem : report) lines.push_back(problem.Format());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0],
              "line 1: sample \"kick\": sampledata is damaged: 4 characters outside base64 skipped, 0 bytes "
              "of a partial frame dropped");
    EXPECT_EQ(lines[1], "line 1: sample \"kick\": 2 frames are not finite numbers; they play as silence");
    EXPECT_EQ(lines[2], "line 1: sample \"kick\": samplerate must be a positive number; 44100 used");
    EXPECT_EQ(doc.samples[0]->dataRate, 44100.0f);

    // Five bytes: one frame kept, one stray byte named.
    VrokDoc partial;
    report.clear();
    ASSERT_TRUE(
        partial.ReadXml("<storables><SAMPLE ID=\"1\" sampledata=\"AACAPwA=\" /></storables>", &report));
    ASSERT_EQ(report.size(), 1u);
    EXPECT_NE(report[0].what.find("1 bytes of a partial frame dropped"), std::string::npos) << report[0].what;
}

TEST(SampleLink, SurvivesPasteInEitherOrderAndDeleteUndo) {
    const std::string path = WriteTone("link.wav", SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 500);
    VrokDoc source;
    PatchBlock* sampler = SamplerPatch(source);
    SampleContainer* sample = source.LoadSampleInto(sampler, path);
    const std::string key = sample->sampleKey;
    ASSERT_FALSE(key.empty());

    // Copy both elements as a clipboard would, and paste them into another patch at other
    // ids and another slot: the sampler first, its sample later, and the other way round.
    TiXmlElement blockElement("BLOCK"), sampleElement("SAMPLE");
    sampler->Save(blockElement);
    sample->Save(sampleElement);
    for (bool samplerFirst : {true, false}) {
        VrokDoc target;
        blockElement.SetAttribute("POS", -1);
        blockElement.SetAttribute("ID", 40);
        sampleElement.SetAttribute("ID", 41);
        PatchBlock* pasted = nullptr;
        if (samplerFirst) pasted = static_cast<PatchBlock*>(target.Create("BLOCK", blockElement));
        target.Create("SAMPLE", sampleElement);
        if (!samplerFirst) pasted = static_cast<PatchBlock*>(target.Create("BLOCK", blockElement));
        ASSERT_NE(pasted->block, nullptr);
        ASSERT_EQ(target.samples.size(), 1u);
        EXPECT_EQ(Player(pasted).sample, target.samples[0].get()) << samplerFirst;
    }

    // Loading into a sampler that plays nothing is one step: undo takes the new sample and
    // the link away together, redo brings both back.
    PatchBlock* second = source.AddBlock(kSampler, 7, 0, 100);
    source.LoadSampleInto(second, path);
    ASSERT_EQ(source.samples.size(), 2u);
    source.Undo();
    EXPECT_EQ(source.samples.size(), 1u);
    EXPECT_EQ(Player(second).sample, nullptr);
    source.Redo();
    ASSERT_EQ(source.samples.size(), 2u);
    EXPECT_EQ(Player(second).sample, source.samples[1].get());
    EXPECT_NE(source.samples[1]->sampleKey, key) << "keys stay unique within a patch";

    // Deleting the sample silences the sampler; undo brings the sample and the link back.
    source.DeleteObject(sample);
    EXPECT_EQ(Player(sampler).sample, nullptr);
    EXPECT_NE(source.WriteXml().find("SAMPLE=\"" + key), std::string::npos)
        << "a link waiting for its sample is kept";
    source.Undo();
    ASSERT_EQ(source.samples.size(), 2u);
    ASSERT_NE(source.FindSample(key), nullptr);
    EXPECT_EQ(Player(sampler).sample, source.FindSample(key));

    // Unlinking is an undoable edit of the block.
    ASSERT_TRUE(source.AssignSample(sampler, nullptr));
    EXPECT_EQ(Player(sampler).sample, nullptr);
    source.Undo();
    EXPECT_EQ(Player(sampler).sample, source.FindSample(key));
    EXPECT_FALSE(source.AssignSample(source.FindBlock(0), source.FindSample(key))) << "not a sampler";
}

// A file without an encoding declaration is read byte for byte but written back as UTF-8:
// names must come out as valid UTF-8 (stray bytes as the Latin-1 characters they were), or
// a stray byte swallows the closing quote and the saved patch no longer loads.
TEST(SampleData, NamesFromUndeclaredFilesSaveAsUtf8ThatLoadsAgain) {
    const struct {
        const char* written;
        const char* read;
    } cases[] = {
        {"plain", "plain"},
        {"caf\xC3\xA9", "caf\xC3\xA9"},                  // valid UTF-8 stays
        {"caf\xE9", "caf\xC3\xA9"},                      // Latin-1 e acute
        {"to\xF4ne", "to\xC3\xB4ne"},                    // a lead byte that would eat the quote
        {"\xED\xA0\x80", "\xC3\xAD\xC2\xA0\xC2\x80"},    // a surrogate is no UTF-8
        {"\xF0\x9F\x8E\xB9 keys", "\xF0\x9F\x8E\xB9 keys"},
    };
    for (const auto& c : cases) {
        VrokDoc doc;
        const std::string patch = std::string("<storables><SAMPLE ID=\"1\" samplename=\"") + c.written +
                                  "\" samplekey=\"" + c.written + "\" /></storables>";
        ASSERT_TRUE(doc.ReadXml(patch)) << c.written;
        ASSERT_EQ(doc.samples.size(), 1u);
        EXPECT_EQ(doc.samples[0]->sampleName, c.read);
        EXPECT_EQ(doc.samples[0]->sampleKey, c.read);
        VrokDoc again;
        ASSERT_TRUE(again.ReadXml(doc.WriteXml())) << c.written;
        ASSERT_EQ(again.samples.size(), 1u);
        EXPECT_EQ(again.samples[0]->sampleName, c.read);
    }
}
