// VrokDoc: construction, the factory of patch records, and the patch operations the
// editor calls. Reading and writing patches lives in patch_files.cpp.
#include "document/vrok_doc.h"

#include <tinyxml.h>

#include <cmath>
#include <cstdio>

#include "blocks/sampler.h"
#include "document/block_types.h"
#include "document/xml_attributes.h"
#include "engine/vrok_instance.h"

using document::SetIntAttribute;

std::recursive_mutex documentLock;

namespace {

// Takes the record out of its list, or returns null when it is not in it.
template <class Record>
std::unique_ptr<Record> Release(std::vector<std::unique_ptr<Record>>& list, const Storable* storable) {
    for (auto it = list.begin(); it != list.end(); ++it) {
        if (it->get() == storable) {
            std::unique_ptr<Record> record = std::move(*it);
            list.erase(it);
            return record;
        }
    }
    return nullptr;
}

void TellListenersRemoved(Storable& storable) {
    const std::vector<StorableGui*> listeners = storable.listeners;
    for (StorableGui* gui : listeners) gui->StorableRemoved(0, &storable);
}

// Text after the last "\" or "/", up to the first ".".
std::string BareName(const std::string& path) {
    const size_t separator = path.find_last_of("\\/");
    std::string name = separator == std::string::npos ? path : path.substr(separator + 1);
    const size_t dot = name.find('.');
    if (dot != std::string::npos) name.resize(dot);
    return name;
}

}  // namespace

std::string LoadProblem::Format() const {
    std::string text;
    if (!file.empty()) text += file + ": ";
    if (line > 0) text += "line " + std::to_string(line) + ": ";
    return text + what;
}

VrokDoc::VrokDoc() {
    elementKinds = {{"BLOCK", kBlockKind}, {"CONNECTION", kConnectionKind}, {"GLOBAL", kGlobalKind},
                    {"SAMPLE", kSampleKind}};
    engine = std::make_unique<VrokInstance>(&CreateBlock);
    engine->ClearPatch();
    engine->RebuildOrder();
    factory = this;

    global = std::make_unique<PatchGlobal>(*engine);
    global->NotifyAll();
    TiXmlElement globalElement("GLOBAL");
    SetIntAttribute(globalElement, "ID", nextId);
    Create("GLOBAL", globalElement);

    PatchBlock* input = AddBlock(49, -1, 20, 40);
    PatchBlock* filter = AddBlock(1, -1, 150, 40);
    PatchBlock* output = AddBlock(0, -1, 280, 40);
    AddConnection(input, filter, 0);
    AddConnection(filter, output, 0);
    initialised = true;
}

VrokDoc::~VrokDoc() {
    windows.clear();
    mainWindow = nullptr;
    DeleteAll();
    engine.reset();
}

// [SECTION] Factory

std::unique_ptr<PatchConnection> VrokDoc::NewConnection() {
    return std::make_unique<PatchConnection>(*engine, [this](int slot) { return FindBlock(slot); });
}

Storable* VrokDoc::Create(const std::string& elementName, const TiXmlElement& element) {
    auto kind = elementKinds.find(elementName);
    if (kind == elementKinds.end()) return nullptr;
    Storable* storable = nullptr;
    switch (kind->second) {
        case kBlockKind:
            patchBlocks.push_back(std::make_unique<PatchBlock>(*engine));
            storable = patchBlocks.back().get();
            break;
        case kConnectionKind:
            patchConnections.push_back(NewConnection());
            storable = patchConnections.back().get();
            break;
        case kGlobalKind: storable = global.get(); break;
        case kSampleKind:
            samples.push_back(std::make_unique<SampleContainer>());
            storable = samples.back().get();
            break;
        default: return nullptr;
    }
    // The global record is one object that a GLOBAL element loads into in place: while it is
    // registered it keeps its id, so that an undo item captured before a paste finds it.
    if (storable != global.get() || storable->owner != this)
        storable->id = document::IntAttribute(element, "ID", -1);
    Register(storable);
    storable->Load(element);
    if (kind->second == kSampleKind) {
        auto* sample = static_cast<SampleContainer*>(storable);
        if (sample->sampleKey.empty()) sample->sampleKey = NewSampleKey(*sample);
    }
    Changed(storable);
    TellWindowsAdded(storable);
    ResetLastAction();
    return storable;
}

void VrokDoc::Delete(Storable* storable) {
    Changed(storable);
    if (!storable || storable == global.get()) return;
    std::unique_ptr<Storable> doomed;
    {
        std::lock_guard<std::recursive_mutex> guard(documentLock);
        if (auto patchBlock = Release(patchBlocks, storable)) {
            if (patchBlock->block) engine->RemoveBlock(patchBlock->block);
            // The engine took the block's wires with it; their records must not keep
            // table entries that a new wire may take over.
            for (auto& wire : patchConnections)
                if (wire->Touches(patchBlock.get())) wire->Forget();
            doomed = std::move(patchBlock);
        } else if (auto wire = Release(patchConnections, storable)) {
            if (wire->connection) engine->Disconnect(wire->connection);
            doomed = std::move(wire);
        } else {
            doomed = Release(samples, storable);
        }
    }
    // A sample going away detaches its players; another sample may hold the same key.
    doomed.reset();
    LinkSamples();
    // The record is freed outside the lock; its destructor leaves the registry.
}

void VrokDoc::Changed(Storable*) {
    // Any change may have made, brought back or retired a sample or a sampler's link.
    LinkSamples();
    TellWindowsChanged();
}

void VrokDoc::TellWindowsChanged() {
    const std::vector<DocumentView*> views = windows;
    for (DocumentView* view : views) view->DocumentChanged();
}

void VrokDoc::TellWindowsAdded(Storable* storable) {
    const std::vector<DocumentView*> views = windows;
    for (DocumentView* view : views) view->StorableAdded(storable);
}

void VrokDoc::AddWindow(DocumentView* window) { windows.push_back(window); }

void VrokDoc::RemoveWindow(DocumentView* window) { std::erase(windows, window); }

// [SECTION] Patch operations

PatchBlock* VrokDoc::AddBlock(int type, int pos, int x, int y) {
    TiXmlElement element("BLOCK");
    SetIntAttribute(element, "ID", nextId);
    SetIntAttribute(element, "TYPE", type);
    SetIntAttribute(element, "POS", pos);
    SetIntAttribute(element, "X", x);
    SetIntAttribute(element, "Y", y);
    auto* patchBlock = static_cast<PatchBlock*>(Create("BLOCK", element));
    if (!patchBlock->block) {
        TellListenersRemoved(*patchBlock);
        Delete(patchBlock);
        return nullptr;
    }
    RecordCreation(patchBlock);
    return patchBlock;
}

PatchConnection* VrokDoc::AddConnection(PatchBlock* fromBlock, PatchBlock* toBlock, int port) {
    const int from = fromBlock && fromBlock->block ? fromBlock->block->index : -1;
    const int to = toBlock && toBlock->block ? toBlock->block->index : -1;
    if (from < 0 || to < 0) return nullptr;  // the engine would refuse it; spare the record
    TiXmlElement element("CONNECTION");
    SetIntAttribute(element, "FROM", from);
    SetIntAttribute(element, "TO", to);
    SetIntAttribute(element, "INPUTID", port);
    std::unique_ptr<PatchConnection> wire = NewConnection();
    Register(wire.get());
    wire->Load(element);
    if (!wire->connection) return nullptr;  // the record leaves the registry with it
    PatchConnection* made = wire.get();
    patchConnections.push_back(std::move(wire));
    RecordCreation(made);
    Changed(made);
    TellWindowsAdded(made);
    return made;
}

SampleContainer* VrokDoc::AddSample(const std::string& path) {
    TiXmlElement element("SAMPLE");
    SetIntAttribute(element, "ID", nextId);
    auto* sample = static_cast<SampleContainer*>(Create("SAMPLE", element));
    sample->LoadSound(path);
    sample->sampleName = BareName(path);
    sample->sampleKey = NewSampleKey(*sample);
    RecordCreation(sample);
    return sample;
}

SampleContainer* VrokDoc::LoadSampleInto(PatchBlock* patchBlock, const std::string& path) {
    auto* player = patchBlock ? dynamic_cast<CSimpleSamplerBlock*>(patchBlock->block) : nullptr;
    if (!player) return nullptr;
    if (auto* current = dynamic_cast<SampleContainer*>(player->sample)) {
        ActionStart(current);
        current->LoadSound(path);
        current->sampleName = BareName(path);
        ActionEnd(current);
        Changed(current);
        return current;
    }
    ActionStart(nullptr);
    SampleContainer* sample = AddSample(path);
    AssignSample(patchBlock, sample);
    ActionEnd(nullptr);
    return sample;
}

bool VrokDoc::AssignSample(PatchBlock* patchBlock, SampleContainer* sample) {
    if (!patchBlock || !dynamic_cast<CSimpleSamplerBlock*>(patchBlock->block)) return false;
    ActionStart(patchBlock);
    patchBlock->sampleKey = sample ? sample->sampleKey : "";
    ActionEnd(patchBlock);
    Changed(patchBlock);
    return true;
}

bool VrokDoc::SetSampleRoot(SampleContainer* sample, float hz) {
    if (!sample || !std::isfinite(hz) || hz <= 0.0f) return false;
    ActionStart(sample);
    sample->rootFrequency.store(hz);
    ActionEnd(sample);
    Changed(sample);
    return true;
}

SampleContainer* VrokDoc::FindSample(const std::string& key) const {
    if (key.empty()) return nullptr;
    SampleContainer* found = nullptr;
    for (const auto& sample : samples)
        if (sample->sampleKey == key && (!found || sample->id < found->id)) found = sample.get();
    return found;
}

void VrokDoc::LinkSamples() {
    for (const auto& patchBlock : patchBlocks) {
        auto* player = dynamic_cast<CSimpleSamplerBlock*>(patchBlock->block);
        if (!player) continue;
        SampleContainer* wanted = FindSample(patchBlock->sampleKey);
        if (player->sample != wanted) player->SetSample(wanted);
    }
}

std::string VrokDoc::NewSampleKey(SampleContainer& sample) {
    // FNV-1a over the frames and the name: the same file loaded twice into two documents
    // gets the same key, so a sampler pasted between them finds its sample.
    uint64_t hash = 14695981039346656037ull;
    auto mix = [&hash](const void* bytes, size_t count) {
        for (size_t i = 0; i < count; ++i) {
            hash ^= static_cast<const uint8_t*>(bytes)[i];
            hash *= 1099511628211ull;
        }
    };
    const std::vector<float> frames = sample.Frames();
    mix(frames.data(), frames.size() * sizeof(float));
    mix(sample.sampleName.data(), sample.sampleName.size());
    for (;;) {
        char text[17];
        std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(hash));
        const SampleContainer* holder = FindSample(text);
        if (!holder || holder == &sample) return text;
        mix("+", 1);
    }
}

void VrokDoc::DeleteBlock(PatchBlock* patchBlock) {
    if (!patchBlock) return;
    ActionStart(nullptr);
    // Wires first: undo runs newest first, so the block comes back before its wires.
    std::vector<PatchConnection*> wires;
    for (auto& wire : patchConnections)
        if (wire->Touches(patchBlock)) wires.push_back(wire.get());
    for (PatchConnection* wire : wires) {
        Capture(wire);
        TellListenersRemoved(*wire);
        Delete(wire);
    }
    Capture(patchBlock);
    TellListenersRemoved(*patchBlock);
    Delete(patchBlock);
    ActionEnd(nullptr);
}

void VrokDoc::DeleteObject(Storable* storable) {
    if (!storable) return;
    // The global record is never removed; telling its panel otherwise would close it.
    if (storable == global.get()) {
        Delete(storable);
        return;
    }
    Capture(storable);
    TellListenersRemoved(*storable);
    Delete(storable);
}

void VrokDoc::SetParameter(PatchBlock* patchBlock, int index, float value) {
    if (!patchBlock || !patchBlock->block) return;
    CAudioBlock& block = *patchBlock->block;
    if (index < 0 || index >= block.numParameters) return;
    ActionStart(patchBlock);
    block.values[index] = Clamp01(value);
    block.ParameterChanged(index);
    ActionEnd(patchBlock);
}

PatchBlock* VrokDoc::FindBlock(int slot) const {
    for (const auto& patchBlock : patchBlocks)
        if (patchBlock->block && patchBlock->block->index == slot) return patchBlock.get();
    return nullptr;
}

void VrokDoc::SetExternalKnob(int index, float value) {
    if (index < 0 || index >= kNumExtKnobs) return;
    // The host's thread calls this while the GUI may delete the knob: the flag and the
    // slot are read only under the engine lock.
    std::lock_guard<std::recursive_mutex> guard(engine->lock);
    if (!engine->extKnobPresent[index]) return;
    const int slot = engine->extKnobSlot[index];
    if (slot < 0 || slot >= kMaxBlocks) return;
    CAudioBlock* block = engine->blocks[slot];
    if (!block || block->numParameters < 1) return;
    block->values[0] = Clamp01(value);
    block->ParameterChanged(0);
}

void VrokDoc::ClearAll() {
    DeleteAll();
    TiXmlElement element("GLOBAL");
    SetIntAttribute(element, "ID", nextId);
    Create("GLOBAL", element);
}

void VrokDoc::SetFileName(const std::string& path) { fileName = BareName(path); }

void VrokDoc::ReapplyGlobals() { global->NotifyAll(); }
