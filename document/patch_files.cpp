// Reading and writing patches: the XML text of files and song data, and the older binary
// ".vrk" files, which are only read.
#include <tinyxml.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>

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

struct VrkBlock {
    int type, x, y;
    std::vector<float> values;
};

struct VrkWire {
    int from, to, port;
};

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
        } else if (auto* wire = dynamic_cast<PatchConnection*>(storable); wire && !wire->connection) {
            Report(report, {}, line, "refused wire " + WireText(wire->from, wire->to, wire->port));
        }
        if (auto* sample = dynamic_cast<SampleContainer*>(storable))
            for (const std::string& problem : sample->problems) Report(report, {}, line, problem);
    }
}

bool VrokDoc::ReadXml(const std::string& text, LoadReport* report) {
    TiXmlDocument xml;
    xml.Parse(text.c_str());
    if (xml.Error()) {
        Report(report, {}, xml.ErrorRow(), XmlError(xml));
        return false;
    }
    const TiXmlElement* root = xml.FirstChildElement("storables");
    if (!root) {
        Report(report, {}, 0, "no \"storables\" element");
        return false;
    }
    ReadDocument(*root, report);
    return true;
}

bool VrokDoc::LoadFile(const std::string& name, LoadReport* report) {
    TiXmlDocument xml;
    if (!xml.LoadFile(name.c_str())) {
        if (xml.ErrorId() == TiXmlBase::TIXML_ERROR_OPENING_FILE)
            Report(report, name, 0, "cannot open file");
        else
            Report(report, name, xml.ErrorRow(), XmlError(xml));
        return false;
    }
    const TiXmlElement* root = xml.FirstChildElement("storables");
    if (!root) {
        Report(report, name, 0, "no \"storables\" element");
        return false;
    }
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
    std::ifstream in(name, std::ios::binary);
    if (name.empty() || !in) {
        Log(1, "not open...\n");
        Report(report, name, 0, "cannot open file");
        return false;
    }
    const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());

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
    if (numWires < 0) {
        Report(report, name, 0, "negative wire count " + std::to_string(numWires));
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
