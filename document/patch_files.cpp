// Reading and writing patches: the XML text of files and song data, and the older binary
// ".vrk" files, which are only read.
#include <tinyxml.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>

#include "document/block_types.h"
#include "document/vrok_doc.h"
#include "document/xml_attributes.h"
#include "engine/atomic_file.h"
#include "engine/log.h"
#include "engine/vrok_instance.h"

namespace {

// Every patch starts from this text; the odd declaration is what TinyXML has always been
// given here, and it parses.
constexpr char kDocumentLiteral[] = "<?xml version=\"1.0\"  standalone='no' >\n<storables></storables>\n";

void Report(LoadReport* report, std::string file, int line, std::string what) {
    if (report) report->push_back(LoadProblem{std::move(file), line, std::move(what)});
}

std::string XmlError(const TiXmlDocument& xml) {
    std::string what = xml.ErrorDesc();
    if (xml.ErrorRow() > 0 && xml.ErrorCol() > 0) what += " (column " + std::to_string(xml.ErrorCol()) + ")";
    return what;
}

std::string WireText(int from, int to, int port) {
    return std::to_string(from) + "->" + std::to_string(to) + ":" + std::to_string(port);
}

// Little-endian reads over a file held in memory; each fails at the end of the data.
class ByteReader {
public:
    explicit ByteReader(const std::vector<uint8_t>& bytes) : bytes(bytes) {}
    bool ReadU32(uint32_t& value) {
        if (bytes.size() - position < 4) return false;
        value = 0;
        for (int b = 0; b < 4; ++b) value |= uint32_t{bytes[position + b]} << (8 * b);
        position += 4;
        return true;
    }
    bool ReadI32(int& value) {
        uint32_t word;
        if (!ReadU32(word)) return false;
        value = static_cast<int32_t>(word);
        return true;
    }
    bool ReadF32(float& value) {
        uint32_t word;
        if (!ReadU32(word)) return false;
        std::memcpy(&value, &word, 4);
        return true;
    }

private:
    const std::vector<uint8_t>& bytes;
    size_t position = 0;
};

// "vrok" read as one little-endian 32-bit value.
constexpr uint32_t kVrkMagic = 'v' | ('r' << 8) | ('o' << 16) | (uint32_t{'k'} << 24);

// What a patch file may hold: far above any real patch (256 blocks, 645 wires), low enough
// that a damaged or hostile file is refused before it costs minutes or gigabytes.
constexpr long kMaxPatchBytes = 256L << 20;
constexpr int kMaxNesting = 64;
constexpr int kMaxBlockRecords = 1024;
constexpr int kMaxWireRecords = 4096;
constexpr int kMaxOtherRecords = 1024;

// The whole file, up to the size limit; /dev/zero and friends stop there too. False with a
// report naming the file when it cannot be read or is too large.
bool ReadWholeFile(const std::string& name, std::string& bytes, LoadReport* report) {
    std::FILE* file = name.empty() ? nullptr : std::fopen(name.c_str(), "rb");
    if (!file) {
        Report(report, name, 0, "cannot open file");
        return false;
    }
    bytes.clear();
    char chunk[1 << 16];
    size_t got;
    while ((got = std::fread(chunk, 1, sizeof chunk, file)) > 0 && bytes.size() <= size_t(kMaxPatchBytes))
        bytes.append(chunk, got);
    const bool failed = std::ferror(file) != 0;
    std::fclose(file);
    if (failed) {
        Report(report, name, 0, "cannot read file");
        return false;
    }
    if (bytes.size() > size_t(kMaxPatchBytes)) {
        Report(report, name, 0, "larger than the " + std::to_string(kMaxPatchBytes >> 20) + " MiB a patch file may have");
        return false;
    }
    return true;
}

// The parser recurses once per level of nesting, so a document nested thousands deep
// would exhaust the stack; patches nest three levels. Comments, declarations, CDATA and
// quoted attribute values are skipped. Returns the line of the first element too deep,
// or 0 when the nesting is fine.
int TooDeepAt(const std::string& text) {
    int depth = 0, line = 1;
    const size_t n = text.size();
    auto skipTo = [&](size_t from, const char* end) {
        const size_t at = text.find(end, from);
        const size_t stop = at == std::string::npos ? n : at + std::strlen(end);
        line += int(std::count(text.begin() + long(from), text.begin() + long(stop), '\n'));
        return stop;
    };
    for (size_t i = 0; i < n;) {
        if (text[i] != '<') {
            line += text[i] == '\n';
            ++i;
        } else if (text.compare(i, 4, "<!--") == 0) {
            i = skipTo(i, "-->");
        } else if (text.compare(i, 9, "<![CDATA[") == 0) {
            i = skipTo(i, "]]>");
        } else if (i + 1 < n && (text[i + 1] == '?' || text[i + 1] == '!')) {
            i = skipTo(i, ">");
        } else if (i + 1 < n && text[i + 1] == '/') {
            --depth;
            i = skipTo(i, ">");
        } else {
            char quote = 0, last = 0;
            for (++i; i < n && (quote || text[i] != '>'); ++i) {
                if (text[i] == '\n') ++line;
                if (quote) {
                    if (text[i] == quote) quote = 0;
                } else if (text[i] == '"' || text[i] == '\'') {
                    quote = text[i];
                } else if (!std::isspace(static_cast<unsigned char>(text[i]))) {
                    last = text[i];
                }
            }
            ++i;
            if (last != '/' && ++depth > kMaxNesting) return line;
        }
    }
    return 0;
}

bool CheckRecordCounts(const std::string& name, const TiXmlElement& root, LoadReport* report) {
    std::map<std::string, int> counts;
    for (const TiXmlElement* child = root.FirstChildElement(); child; child = child->NextSiblingElement())
        ++counts[child->Value()];
    int others = 0;
    for (const auto& [element, count] : counts) {
        const int limit = element == "BLOCK" ? kMaxBlockRecords : element == "CONNECTION" ? kMaxWireRecords : 0;
        if (limit == 0) {
            others += count;
        } else if (count > limit) {
            Report(report, name, 0, std::to_string(count) + " " + element + " elements, more than the " +
                                        std::to_string(limit) + " a patch file may hold");
            return false;
        }
    }
    if (others > kMaxOtherRecords) {
        Report(report, name, 0, std::to_string(others) + " other elements, more than the " +
                                    std::to_string(kMaxOtherRecords) + " a patch file may hold");
        return false;
    }
    return true;
}

// TinyXML's own file loading turns CR LF and lone CR into LF before parsing; text read
// here gets the same treatment, so line numbers and attribute values do not change.
void NormaliseNewlines(std::string& text) {
    size_t out = 0;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r') {
            text[out++] = '\n';
            if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
        } else {
            text[out++] = text[i];
        }
    }
    text.resize(out);
}

struct VrkBlock {
    int type, x, y;
    std::vector<float> values;
};

struct VrkWire {
    int from, to, port;
};

// A drawn table (the waveshaper's curve, the custom envelope's points) is the run of hidden
// parameters. The reader keeps what is valid: a missing point keeps its value, one out of
// 0..1 is clamped, one past the last parameter is ignored. Each of those gets one line.
void ReportTableProblems(const TiXmlElement& element, const CAudioBlock& block, int line,
                         LoadReport* report) {
    int points = 0, present = 0, clamped = 0, beyond = 0;
    for (int i = 0; i < block.numParameters; ++i) {
        if (block.kinds[i] != int(ParamKind::Hidden)) continue;
        ++points;
        char name[16];
        std::snprintf(name, sizeof name, "P%d", i);
        const char* text = element.Attribute(name);
        if (!text) continue;
        ++present;
        const float value = document::ParseFloat(text);
        if (!(value >= 0.0f && value <= 1.0f)) ++clamped;
    }
    if (points == 0) return;
    for (const TiXmlAttribute* a = element.FirstAttribute(); a; a = a->Next()) {
        const char* name = a->Name();
        if (name[0] != 'P' || name[1] == '\0') continue;
        char* end = nullptr;
        const long index = std::strtol(name + 1, &end, 10);
        if (*end == '\0' && index >= block.numParameters) ++beyond;
    }
    const std::string who = block.name + " at slot " + std::to_string(block.index) + ": ";
    if (present < points)
        Report(report, {}, line,
               who + "table has " + std::to_string(present) + " of " + std::to_string(points) +
                   " points; the missing ones keep their values");
    if (clamped > 0)
        Report(report, {}, line, who + std::to_string(clamped) + " table points outside 0..1 clamped");
    if (beyond > 0)
        Report(report, {}, line, who + std::to_string(beyond) + " values past its last parameter dropped");
}

// A knob's value outside 0..1 or not a number is clamped on the way in (a delay asked
// for more than its line holds, a rate past the top); one line names each.
void ReportKnobProblems(const TiXmlElement& element, const CAudioBlock& block, int line, LoadReport* report) {
    for (int i = 0; i < block.numParameters; ++i) {
        if (block.kinds[i] == int(ParamKind::Hidden)) continue;
        char name[16];
        std::snprintf(name, sizeof name, "P%d", i);
        const char* text = element.Attribute(name);
        if (!text) continue;
        const float value = document::ParseFloat(text);
        if (value >= 0.0f && value <= 1.0f) continue;
        Report(report, {}, line,
               block.name + " at slot " + std::to_string(block.index) + ": \"" + block.names[size_t(i)] + "\" value " +
                   text + " outside 0..1 clamped to " + (value > 1.0f ? "1" : "0"));
    }
}

}  // namespace

// [SECTION] XML

std::string VrokDoc::WriteXml() {
    TiXmlDocument xml("storabledoc");
    xml.Parse(kDocumentLiteral);
    TiXmlElement* root = xml.FirstChildElement("storables");
    for (const auto& [id, storable] : objects) {
        auto* element = new TiXmlElement(storable->elementName);
        document::SetIntAttribute(*element, "ID", id);
        storable->Save(*element);
        root->LinkEndChild(element);
    }
    TiXmlPrinter printer;
    xml.Accept(&printer);
    return std::string(printer.CStr(), printer.Size());
}

void VrokDoc::ReadDocument(const TiXmlElement& root, LoadReport* report) {
    DeleteAll();
    for (const TiXmlElement* child = root.FirstChildElement(); child; child = child->NextSiblingElement()) {
        const std::string name = child->Value();
        Storable* storable = Create(name, *child);
        if (!report) continue;
        const int line = child->Row();
        if (!storable) {
            Report(report, {}, line, "unknown element " + name + " skipped");
        } else if (auto* patchBlock = dynamic_cast<PatchBlock*>(storable); patchBlock && !patchBlock->block) {
            const BlockType* row = FindBlockType(patchBlock->type);
            const std::string slot = std::to_string(patchBlock->pos);
            if (row && row->create)
                Report(report, {}, line, "block type " + std::to_string(patchBlock->type) + " cannot take slot " + slot);
            else
                Report(report, {}, line, "unknown block type " + std::to_string(patchBlock->type) + " at slot " + slot);
        } else if (patchBlock) {
            ReportTableProblems(*child, *patchBlock->block, line, report);
            ReportKnobProblems(*child, *patchBlock->block, line, report);
        } else if (auto* wire = dynamic_cast<PatchConnection*>(storable); wire && !wire->connection) {
            Report(report, {}, line, "refused wire " + WireText(wire->from, wire->to, wire->port));
        }
        if (auto* sample = dynamic_cast<SampleContainer*>(storable))
            for (const std::string& problem : sample->problems) Report(report, {}, line, problem);
    }
    // DeleteAll took the global record out of the registry. A patch without one keeps the
    // settings as they are, and the record goes back, so every later save writes them.
    if (global->owner != this) {
        global->id = -1;
        Register(global.get());
    }
}

namespace {

// Parses `text` and finds its "storables" root, after the checks that protect the parser
// and the engine; `name` labels the reports (empty for text that is not a file).
const TiXmlElement* ParsePatch(TiXmlDocument& xml, const std::string& name, const std::string& text,
                               LoadReport* report) {
    if (const int line = TooDeepAt(text)) {
        Report(report, name, line, "elements nested more than " + std::to_string(kMaxNesting) + " deep; not a patch");
        return nullptr;
    }
    document::ParseXmlText(xml, text);
    if (xml.Error()) {
        Report(report, name, xml.ErrorRow(), XmlError(xml));
        return nullptr;
    }
    const TiXmlElement* root = xml.FirstChildElement("storables");
    if (!root) {
        Report(report, name, 0, "no \"storables\" element");
        return nullptr;
    }
    return CheckRecordCounts(name, *root, report) ? root : nullptr;
}

}  // namespace

bool VrokDoc::ReadXml(const std::string& text, LoadReport* report) {
    TiXmlDocument xml;
    const TiXmlElement* root = ParsePatch(xml, {}, text, report);
    if (!root) return false;
    ReadDocument(*root, report);
    return true;
}

bool VrokDoc::LoadFile(const std::string& name, LoadReport* report) {
    std::string text;
    if (!ReadWholeFile(name, text, report)) return false;
    NormaliseNewlines(text);
    TiXmlDocument xml;
    const TiXmlElement* root = ParsePatch(xml, name, text, report);
    if (!root) return false;
    changed = true;
    const size_t first = report ? report->size() : 0;
    ReadDocument(*root, report);
    if (report)
        for (size_t i = first; i < report->size(); ++i) (*report)[i].file = name;
    return true;
}

bool VrokDoc::SaveFile(const std::string& name, std::string* error) {
    const std::string text = WriteXml();
    const bool saved = WriteFileAtomically(
        name, [&](std::FILE* file) { return std::fwrite(text.data(), 1, text.size(), file) == text.size(); }, error);
    if (saved) changed = false;
    return saved;
}

// [SECTION] Binary files

int VrokDoc::ParameterCount(int type) {
    // A block already in the patch answers without making a new one; that also covers
    // the arpeggiator, of which the factory makes no second one.
    for (CAudioBlock* block : engine->blocks)
        if (block && block->type == type) return block->numParameters;
    std::lock_guard<std::recursive_mutex> guard(engine->lock);
    std::unique_ptr<CAudioBlock> probe(CreateBlock(*engine, type, engine->sampleRate));
    return probe ? probe->numParameters : -1;
}

bool VrokDoc::ReadVrk(const std::string& name, LoadReport* report) {
    std::string contents;
    if (!ReadWholeFile(name, contents, report)) {
        Log(1, "not open...\n");
        return false;
    }
    const std::vector<uint8_t> bytes(contents.begin(), contents.end());

    // Everything is read and checked before the patch is touched.
    ByteReader reader(bytes);
    uint32_t magic = 0;
    if (!reader.ReadU32(magic) || magic != kVrkMagic) {
        Report(report, name, 0, "not a vrk file (no \"vrok\" magic)");
        return false;
    }
    int numBlocks = 0;
    if (!reader.ReadI32(numBlocks)) {
        Report(report, name, 0, "file ends before the block count");
        return false;
    }
    // A block's slot is its place in the file, so there can be no more than slots.
    if (numBlocks < 0 || numBlocks > kMaxBlocks) {
        Report(report, name, 0, "block count " + std::to_string(numBlocks) + " is not in 0.." + std::to_string(kMaxBlocks));
        return false;
    }
    std::vector<VrkBlock> blocks(numBlocks);
    for (int i = 0; i < numBlocks; ++i) {
        VrkBlock& block = blocks[i];
        if (!reader.ReadI32(block.type) || !reader.ReadI32(block.x) || !reader.ReadI32(block.y)) {
            Report(report, name, 0, "file ends inside block " + std::to_string(i));
            return false;
        }
        // The file does not say how many parameters follow: only the block type knows.
        const int count = ParameterCount(block.type);
        if (count < 0) {
            Report(report, name, 0, "unknown block type " + std::to_string(block.type) + " at slot " + std::to_string(i));
            return false;
        }
        block.values.resize(count);
        for (float& value : block.values) {
            if (!reader.ReadF32(value)) {
                Report(report, name, 0, "file ends inside the parameters of block " + std::to_string(i));
                return false;
            }
        }
    }
    int numWires = 0;
    if (!reader.ReadI32(numWires)) {
        Report(report, name, 0, "file ends before the wire count");
        return false;
    }
    if (numWires < 0 || numWires > kMaxWireRecords) {
        Report(report, name, 0, "wire count " + std::to_string(numWires) + " is not in 0.." +
                                    std::to_string(kMaxWireRecords));
        return false;
    }
    std::vector<VrkWire> wires;
    for (int i = 0; i < numWires; ++i) {
        VrkWire wire;
        int unused;
        if (!reader.ReadI32(wire.from) || !reader.ReadI32(wire.to) || !reader.ReadI32(wire.port) ||
            !reader.ReadI32(unused)) {
            Report(report, name, 0, "file ends inside wire " + std::to_string(i));
            return false;
        }
        wires.push_back(wire);
    }

    ClearAll();
    for (int i = 0; i < numBlocks; ++i) {
        const VrkBlock& block = blocks[i];
        PatchBlock* patchBlock = AddBlock(block.type, i, block.x, block.y);
        if (!patchBlock) {
            Report(report, name, 0, "block type " + std::to_string(block.type) + " cannot take slot " + std::to_string(i));
            continue;
        }
        for (int p = 0; p < static_cast<int>(block.values.size()); ++p) SetParameter(patchBlock, p, block.values[p]);
    }
    for (const VrkWire& wire : wires) {
        if (!AddConnection(FindBlock(wire.from), FindBlock(wire.to), wire.port))
            Report(report, name, 0, "refused wire " + WireText(wire.from, wire.to, wire.port));
    }
    SetFileName(name);
    TellWindowsChanged();
    return true;
}
