// The four kinds of persistent object in a patch: a block, a wire, the global settings
// and a sample. Each stands for something the engine owns or uses and saves it as one
// XML element; the element and attribute names are the file format.
#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "document/storable.h"
#include "engine/sample_data.h"

class CAudioBlock;
class VrokInstance;
struct Connection;

// A block of the patch: element "BLOCK" with TYPE, X, Y, POS and P0, P1, ...
class PatchBlock : public Storable {
public:
    explicit PatchBlock(VrokInstance& engine);

    void Save(TiXmlElement& element) override;
    // Reuses the existing block when its type matches (undo relies on that), otherwise
    // inserts one at POS. A failed insert leaves `block` null and skips the rest.
    void Load(const TiXmlElement& element) override;

    CAudioBlock* block = nullptr;  // owned by the engine

    // TYPE, X, Y and POS as last read. A record whose insert failed (an unknown type, a
    // taken slot) writes these back, so saving does not turn it into an output block.
    int type = 0, x = 0, y = 0, pos = -1;
    // A sampler's link: the `samplekey` of the sample it plays, from the attribute SAMPLE.
    // Kept while no such sample exists (it may come later in the file, by paste or by
    // undo); the document resolves it whenever the patch changes.
    std::string sampleKey;

private:
    VrokInstance& engine;
};

// A wire: element "CONNECTION" with FROM, TO and INPUTID, which name slots, not ids.
class PatchConnection : public Storable {
public:
    // `findBlock` gives the record of the block in a slot, or null.
    PatchConnection(VrokInstance& engine, std::function<PatchBlock*(int slot)> findBlock);

    // Writes nothing when the wire was refused.
    void Save(TiXmlElement& element) override;
    // Remakes the wire; a refused wire leaves `connection` and both ends null.
    void Load(const TiXmlElement& element) override;

    // Whether the wire starts or ends at `patchBlock`.
    bool Touches(const PatchBlock* patchBlock) const;
    // Forgets the wire after the engine removed it together with one of its blocks; the
    // table entry may be reused by another wire.
    void Forget();

    Connection* connection = nullptr;  // an entry of the engine's table
    PatchBlock* fromBlock = nullptr;
    PatchBlock* toBlock = nullptr;
    int from = 0, to = 0, port = 0;  // as last read

private:
    VrokInstance& engine;
    std::function<PatchBlock*(int)> findBlock;
};

// One master or voice setting: the event number the engine acts on, the default a
// missing attribute resets to, and the current value, all in 0..1.
struct GlobalParameter {
    int event;
    float defaultValue;
    float value;
};

// The master effect and voice settings: element "GLOBAL", one attribute per entry. The
// entries sit in a map keyed by name, so they are written, and reapplied, in name order.
// The record is the listener of its own entries and sends each change to the engine.
class PatchGlobal : public Storable {
public:
    // Entries start at their defaults; nothing is sent until NotifyAll or a change.
    explicit PatchGlobal(VrokInstance& engine);

    void Save(TiXmlElement& element) override;
    // A missing attribute resets its entry to the default, so an older file with fewer
    // keys resets the newer settings, and so does text that is not a number. Values are
    // clamped to 0..1. Only entries whose value differs are sent.
    void Load(const TiXmlElement& element) override;

    // A change from a panel or a host: clamps to 0..1, then stores and sends it if it
    // differs. False for an unknown name or NaN.
    bool SetValue(const std::string& name, float value);
    // The entry's value; 0 for an unknown name.
    float Value(const std::string& name) const;
    // Sends every entry in name order as if it had just changed: after the master effects
    // were rebuilt at a new sample rate, and once at start. Releases all notes.
    void NotifyAll();
    const std::map<std::string, GlobalParameter>& Parameters() const { return parameters; }

private:
    void ParameterChanged(const GlobalParameter& parameter);
    void ApplyMasterEffectParameter(int event, float value);

    std::map<std::string, GlobalParameter> parameters;
    VrokInstance& engine;
};

// A sample of the patch: element "SAMPLE" with the frames as base64 of little-endian 32-bit
// floats in `sampledata`, its `samplename`, and `samplerate`, `rootfrequency` and
// `samplekey`, the name by which sampler blocks link to it (document/patch_format.md).
class SampleContainer : public Storable, public SampleData {
public:
    SampleContainer();

    void Save(TiXmlElement& element) override;
    // Corrupt base64 decodes leniently (characters outside the alphabet skipped, a trailing
    // piece of a float dropped) with one line in `problems`; frames that are not finite
    // numbers become silence, with a line; a sample past kMaxSampleFrames stays empty.
    void Load(const TiXmlElement& element) override;

    // Reads a sound file through libsndfile, mixing its channels to mono by their mean, and
    // takes over the file's rate as `dataRate`. The old frames are freed first, so a file
    // that cannot be read leaves the sample empty (undo brings the old frames back). False
    // with one line per problem in `problems`. GUI thread; allocates; takes `lock` only to
    // free and to swap.
    bool LoadSound(const std::string& path);

    std::string sampleName = "Undefined";
    // Names this sample to the sampler blocks that play it; empty until the document gives
    // it one. Survives save, reload, copy and paste, as ids and slots do not.
    std::string sampleKey;
    // What the last Load or LoadSound had to say, one line each, naming the sample or file.
    std::vector<std::string> problems;
};
