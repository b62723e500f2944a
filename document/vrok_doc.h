// VrokDoc, the document of one machine: it owns the engine and the patch records, and it
// is the one door through which a patch changes. Each operation wraps an engine change
// in undo brackets. Patch operations run on the GUI thread (or the loading thread of a
// tool); the engine calls inside them take the engine lock themselves.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "document/patch_records.h"
#include "document/storable.h"

class VrokInstance;
class TiXmlElement;
namespace G {
class FloatParamListener;
}

// Held by Delete around the engine change, for every document in the process.
extern std::recursive_mutex documentLock;

// An open editor window, as the document sees it.
class DocumentView {
public:
    virtual ~DocumentView() = default;
    // Anything may have changed: recalculate and repaint.
    virtual void DocumentChanged() {}
    // A new object exists: made, loaded, or brought back by undo or redo.
    virtual void StorableAdded(Storable* storable) { (void)storable; }
};

// One problem a loader met. The document stays silent about these, as a patch that
// loads with gaps is still a patch; command-line tools print them.
struct LoadProblem {
    std::string file;  // empty for song data
    int line = 0;      // 0 when unknown
    std::string what;
    // "file: line N: what", leaving out the parts that are unknown.
    std::string Format() const;
};
using LoadReport = std::vector<LoadProblem>;

class VrokDoc : public Factory, public StorableDocument {
public:
    // Builds the engine, the global record and the default patch (input, filter, output,
    // wired in a row; types without a block fail to insert and their wires refuse).
    VrokDoc();
    ~VrokDoc() override;

    // [Factory]
    // Makes, registers and loads a record of kind "BLOCK", "CONNECTION", "SAMPLE", or takes
    // the single global record for "GLOBAL". Null for any other name.
    Storable* Create(const std::string& elementName, const TiXmlElement& element) override;
    // Takes a block out of the engine or clears a wire under documentLock, then frees the
    // record. The global record is never deleted; the call only refreshes the windows.
    void Delete(Storable* storable) override;
    void Changed(Storable* storable) override;

    // [Patch operations] Each is one undo step.
    // Null, leaving no record, when the engine refuses the type or the slot.
    PatchBlock* AddBlock(int type, int pos, int x, int y);
    // Null, leaving no record and no undo item, when the engine refuses the wire.
    PatchConnection* AddConnection(PatchBlock* fromBlock, PatchBlock* toBlock, int port);
    // A new sample record named after the file, holding the file's data; the record is
    // made even when the file cannot be read, and then stays empty (its `problems` say why).
    SampleContainer* AddSample(const std::string& path);
    // What a sampler's "load sample" does, as one undo step: loads the file into the sample
    // the block plays (freeing the old frames first), or, if it plays none, into a new
    // sample linked to it. Null when the block is not a sampler.
    SampleContainer* LoadSampleInto(PatchBlock* patchBlock, const std::string& path);
    // Links a sampler block to `sample` (null: to none). False when the block is not a sampler.
    bool AssignSample(PatchBlock* patchBlock, SampleContainer* sample);
    // The frequency at which the sample sounds as it stands, for notes started from now on.
    // False, changing nothing, unless `hz` is a positive number.
    bool SetSampleRoot(SampleContainer* sample, float hz);
    // The sample whose `samplekey` is `key`, the oldest if several; null if none.
    SampleContainer* FindSample(const std::string& key) const;
    // Deletes the block and every wire that touches it.
    void DeleteBlock(PatchBlock* patchBlock);
    void DeleteObject(Storable* storable);
    // Clamps to 0..1. An index past the block's parameters is ignored.
    void SetParameter(PatchBlock* patchBlock, int index, float value);
    PatchBlock* FindBlock(int slot) const;
    // Knob `index` 0..7 of the host; ignored when the patch has no such external knob.
    // Any thread: takes the engine lock.
    void SetExternalKnob(int index, float value);
    // Deletes everything, history included, and puts the global settings back to their
    // defaults.
    void ClearAll();
    // The bare name: after the last "\" or "/" (patches come from both kinds of system),
    // cut at the first ".".
    void SetFileName(const std::string& path);
    // Sends every global setting to the engine again, in name order. The machine calls it
    // after a change of sample rate rebuilt the master effects.
    void ReapplyGlobals();

    void AddWindow(DocumentView* window);
    void RemoveWindow(DocumentView* window);

    // [Reading and writing]
    // The patch as XML text, records in ascending id: the host's song data and the file.
    std::string WriteXml();
    // Replaces the patch with the records under `root` (normally "storables"). Clears the
    // history. Problems go to `report` if given.
    void ReadDocument(const TiXmlElement& root, LoadReport* report = nullptr);
    // Song data: false, with the patch untouched, when the text does not parse or has no
    // "storables" root.
    bool ReadXml(const std::string& text, LoadReport* report = nullptr);
    // A ".vrkx" file: false, with the patch untouched, when it cannot be read or parsed
    // or has no "storables" element, so the caller can try ReadVrk.
    bool LoadFile(const std::string& name, LoadReport* report = nullptr);
    // An older binary ".vrk" file. The whole file is read and checked first: a missing
    // file, a wrong magic, an unknown block type or a short file gives false with the
    // reason in `report`, and the patch untouched. Otherwise the patch is cleared and
    // rebuilt, each block, parameter and wire as an undoable edit, and the name is set.
    bool ReadVrk(const std::string& name, LoadReport* report = nullptr);
    // Writes WriteXml() to a temporary file beside `name`, then renames it over `name`.
    // On failure `name` is untouched, and `error` says why if given.
    bool SaveFile(const std::string& name, std::string* error = nullptr);

    std::string fileName;
    std::map<std::string, int> elementKinds;
    bool initialised = false;
    std::unique_ptr<VrokInstance> engine;
    G::FloatParamListener* listener = nullptr;  // the machine's, for external knobs
    DocumentView* mainWindow = nullptr;
    std::vector<std::unique_ptr<SampleContainer>> samples;
    std::vector<std::unique_ptr<PatchBlock>> patchBlocks;
    std::vector<std::unique_ptr<PatchConnection>> patchConnections;
    std::unique_ptr<PatchGlobal> global;
    std::vector<DocumentView*> windows;

private:
    enum ElementKind : int { kBlockKind = 0, kConnectionKind = 1, kGlobalKind = 2, kSampleKind = 3 };

    std::unique_ptr<PatchConnection> NewConnection();
    // Points every sampler at the sample its record names, or at none.
    void LinkSamples();
    // A key no other sample of this document holds, derived from the sample's contents.
    std::string NewSampleKey(SampleContainer& sample);
    void TellWindowsAdded(Storable* storable);
    void TellWindowsChanged();
    // Number of parameters of `type`, or -1 when no block of that type can be made.
    int ParameterCount(int type);
};
