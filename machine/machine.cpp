// The machine shell: host entry points, note and audio conversion, saved state.
// Index: [SECTION] helpers, editor stand-in and listeners, life cycle, Tick and notes,
// Work, saved state, commands and editor.
#include "machine/machine.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <new>

#include "blocks/vector_lanes.h"
#include "document/vrok_doc.h"
#include "engine/log.h"
#include "engine/vrok_instance.h"

// [SECTION] helpers

namespace {

// Knob bytes 0..0x80 map onto 0..1 inclusive.
constexpr float kKnobScale = 0.0078125f;
// The velocity a pattern note has when its velocity column is empty.
constexpr int kDefaultPatternVelocity = 0x7F;
// Saved text larger than this is taken for a corrupt length field rather than allocated.
constexpr uint32_t kMaxStateText = 512u * 1024u * 1024u;
constexpr uint32_t kReadChunk = 64u * 1024u;

// The sum of squares in eight running lanes, so that the adds overlap instead of each
// waiting for the one before. It differs from the one-by-one sum only in rounding; whether
// it is above 0, all that Work answers, is the same, since no square is negative and a NaN
// or an infinity reaches the total either way.
[[gnu::always_inline]] inline float SumOfSquares(const float* x, int n) {
    constexpr int kLanes = 8;
    float lanes[kLanes] = {};
    int i = 0;
    for (; i + kLanes <= n; i += kLanes)
        for (int k = 0; k < kLanes; ++k) lanes[k] += x[i + k] * x[i + k];
    float sum = 0.0f;
    for (; i < n; ++i) sum += x[i] * x[i];
    for (float lane : lanes) sum += lane;
    return sum;
}

[[gnu::always_inline]] inline void Deinterleave(const float* __restrict both, float* __restrict left, float* __restrict right,
                                   int n) {
    for (int i = 0; i < n; ++i) {
        left[i] = both[2 * i];
        right[i] = both[2 * i + 1];
    }
}

[[gnu::always_inline]] inline void Interleave(const float* __restrict left, const float* __restrict right, float* __restrict both,
                                 int n) {
    for (int i = 0; i < n; ++i) {
        both[2 * i] = left[i];
        both[2 * i + 1] = right[i];
    }
}

std::mutex machinesLock;
std::vector<mi*>& Machines() {
    static std::vector<mi*> machines;
    return machines;
}

bool ReadUint32(machine::DataInput& input, uint32_t& value) {
    unsigned char bytes[4];
    if (!input.Read(bytes, 4)) return false;
    value = uint32_t(bytes[0]) | uint32_t(bytes[1]) << 8 | uint32_t(bytes[2]) << 16 | uint32_t(bytes[3]) << 24;
    return true;
}

void WriteUint32(machine::DataOutput& output, uint32_t value) {
    const unsigned char bytes[4] = {uint8_t(value), uint8_t(value >> 8), uint8_t(value >> 16), uint8_t(value >> 24)};
    output.Write(bytes, 4);
}

// Reads `length` bytes in pieces, so a length field larger than the stream costs no more
// memory than the stream holds.
bool ReadText(machine::DataInput& input, uint32_t length, std::string& text) {
    try {
        while (text.size() < length) {
            const size_t done = text.size();
            const size_t piece = std::min<size_t>(kReadChunk, length - done);
            text.resize(done + piece);
            if (!input.Read(text.data() + done, int(piece))) return false;
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

std::string BareName(const std::string& path) {
    const size_t slash = path.find_last_of("/\\");
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Which reader's complaint fits a file that neither could read: the binary one when the
// file starts with its magic, or does not look like XML and is named ".vrk".
bool LooksBinary(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    char head[64] = {};
    file.read(head, sizeof head);
    const size_t got = size_t(file.gcount());
    if (got >= 4 && std::memcmp(head, "vrok", 4) == 0) return true;
    for (size_t i = 0; i < got; ++i) {
        if (head[i] == '<') return false;
        if (head[i] != ' ' && head[i] != '\t' && head[i] != '\r' && head[i] != '\n') break;
    }
    return path.size() >= 4 && path.compare(path.size() - 4, 4, ".vrk") == 0;
}

}  // namespace

uint8_t ConvertNoteByte(uint8_t noteByte) {
    return uint8_t((noteByte >> 4) * 12 + (noteByte & 15) + 5);
}

// [SECTION] editor stand-in and listeners

bool NoEditor::Open(mi&) {
    Log(1, "no editor available");
    return false;
}

std::string NoEditor::AskOpenFile(mi&, const std::string&, const std::string&, const std::string&) {
    Log(1, "no editor available: cannot ask for a file");
    return {};
}

void milistener::ValueChanged(G::FloatParamGenerator*, int index, float value) {
    owner.host.ControlChange(owner.machine, machine::kGroupGlobal, 0, index, int(value * 128.0f));
}

std::wstring milistener::DescribeValue(int, float value) {
    wchar_t text[32];
    std::swprintf(text, 32, L"%.3g", double(value) * 100.0);
    return text;
}

void miex::SetEditorHidden(bool hidden) { owner.SetEditorHidden(hidden); }

void miex::ReloadState(machine::DataInput* input) { owner.ReloadState(input); }

// [SECTION] life cycle

mi::mi(machine::Host& host, MachineEditor* editor)
    : host(host),
      editor(editor ? editor : &noEditor),
      listener(std::make_unique<milistener>(*this)),
      extension(std::make_unique<miex>(*this)),
      document(std::make_unique<VrokDoc>()) {
    document->listener = listener.get();
    std::fill(std::begin(globalValues), std::end(globalValues), uint8_t(machine::kNoValueByte));
    std::lock_guard guard(machinesLock);
    Machines().push_back(this);
}

mi::~mi() {
    {
        std::lock_guard guard(machinesLock);
        auto& machines = Machines();
        machines.erase(std::remove(machines.begin(), machines.end(), this), machines.end());
    }
    if (editor->IsOpen(*this)) editor->Close(*this);
    document.reset();
}

std::vector<mi*> mi::LiveMachines() {
    std::lock_guard guard(machinesLock);
    return Machines();
}

void mi::Init(machine::DataInput* input) {
    machine = host.GetThisMachine();
    host.SetMachineInterfaceEx(extension.get());
    hostSampleRate = float(host.GetMasterInfo().samplesPerSec);
    host.SetEventHandler(machine, machine::kEventDoubleClick, &mi::OnDoubleClick, this);
    host.SetEventHandler(machine, machine::kEventRename, &mi::OnRename, this);
    // Blocks made from here on start at the host's rate.
    if (hostSampleRate > 0.0f) document->engine->sampleRate = hostSampleRate;
    std::fill(std::begin(trackPlaying), std::end(trackPlaying), uint8_t(0));

    std::lock_guard guard(machineLock);
    if (input) RestoreState(*input);
    UpdateTitle();
}

void mi::SetNumTracks(int n) { numTracks = n; }

// [SECTION] Tick and notes

void mi::Tick() {
    std::lock_guard guard(machineLock);
    for (int k = 0; k < machine::kNumKnobs; ++k)
        if (globalValues[k] != machine::kNoValueByte) document->SetExternalKnob(k, float(globalValues[k]) * kKnobScale);

    VrokInstance& engine = *document->engine;
    const int tracks = std::clamp(numTracks, 0, machine::kMaxTracks);
    // Releases first, so a note moving between tracks on one row is not cut by its own
    // release.
    for (int t = 0; t < tracks; ++t) {
        const uint8_t n = trackValues[t].note;
        if (!trackPlaying[t]) continue;
        if (n == machine::kNoteOff || (n != machine::kNoteNoValue && trackNote[t] != ConvertNoteByte(n))) {
            engine.ReleaseKey(trackNote[t]);
            trackPlaying[t] = 0;
        }
    }
    // A repeated note sends no release: the voice logic restarts the voice it is on.
    for (int t = 0; t < tracks; ++t) {
        const uint8_t n = trackValues[t].note;
        if (n == machine::kNoteNoValue || n == machine::kNoteOff) continue;
        const uint8_t note = ConvertNoteByte(n);
        int velocity = trackValues[t].velocity;
        if (velocity == machine::kNoValueByte) velocity = kDefaultPatternVelocity;
        // Doubled on purpose: pattern notes reach about twice the strength of MIDI notes.
        engine.PressKey(note, velocity * 2);
        trackPlaying[t] = 1;
        trackNote[t] = note;
    }
}

void mi::Stop() {
    for (int t = 0; t < machine::kMaxTracks; ++t) {
        if (!trackPlaying[t]) continue;
        document->engine->ReleaseKey(trackNote[t]);
        trackPlaying[t] = 0;
    }
}

bool mi::AcceptsChannel(int channel) { return channel == midiChannel - 1 || host.HostMIDIFiltering(); }

void mi::MidiNote(int channel, int value, int velocity) {
    if (value < 0 || value > 127) {
        Log(1, "MIDI note out of range ignored");
        return;
    }
    if (!AcceptsChannel(channel)) return;
    if (velocity > 0) {
        // Played again while held by the pedal: its next release counts again.
        sustainedNotes[value] = 0;
        document->engine->PressKey(value + 1, velocity);
    } else if (sustainDown) {
        sustainedNotes[value] = 1;
    } else {
        document->engine->ReleaseKey(value + 1);
    }
}

void mi::MidiPitchBend(int channel, int value) {
    if (!AcceptsChannel(channel)) return;
    document->engine->SetBend(float(std::clamp(value, 0, 16383) - 8192) / 8192.0f);
}

void mi::MidiControlChange(int channel, int controller, int value) {
    if (!AcceptsChannel(channel)) return;
    VrokInstance& engine = *document->engine;
    value = std::clamp(value, 0, 127);
    switch (controller) {
        case 1:
            engine.modWheel = float(value) / 127.0f;
            break;
        case 64: {
            const bool down = value >= 64;
            if (down == sustainDown) break;
            sustainDown = down;
            if (down) break;
            for (int note = 0; note < 128; ++note) {
                if (!sustainedNotes[note]) continue;
                sustainedNotes[note] = 0;
                engine.ReleaseKey(note + 1);
            }
            break;
        }
        case 120:
        case 123:
            std::fill(std::begin(sustainedNotes), std::end(sustainedNotes), uint8_t(0));
            if (controller == 120)
                engine.AllSoundOff();
            else
                engine.AllNotesOff();
            engine.ReleaseKey(128);  // MIDI note 127 arrives one up, past the engine's key range
            break;
        default:
            break;
    }
}

void mi::MidiChannelPressure(int channel, int value) {
    if (!AcceptsChannel(channel)) return;
    document->engine->aftertouch = float(std::clamp(value, 0, 127)) / 127.0f;
}

// [SECTION] Work

bool mi::Work(float* samples, int numSamples, int mode) {
    if (!samples || numSamples <= 0) return false;
    VrokInstance& engine = *document->engine;
    const machine::MasterInfo master = host.GetMasterInfo();
    FollowSampleRate(master);

    std::lock_guard guard(machineLock);
    const StereoBuffers rows{inputLeft, inputRight};
    // Render takes at most kMaxFrames; a longer host buffer is worked in pieces.
    for (int start = 0; start < numSamples; start += kMaxFrames) {
        const int n = std::min(kMaxFrames, numSamples - start);
        float* piece = samples + 2 * start;
        if (mode & kWorkRead) {
            RunLoop<Deinterleave>(piece, inputLeft, inputRight, n);
        } else {
            std::fill_n(inputLeft, n, 0.0f);
            std::fill_n(inputRight, n, 0.0f);
        }
        engine.RunInputs(rows, n);
        std::fill_n(inputLeft, n, 0.0f);
        std::fill_n(inputRight, n, 0.0f);
        engine.samplesPerBar = master.samplesPerTick * master.ticksPerBeat * 4;
        engine.Render(rows, n);
        RunLoop<Interleave>(inputLeft, inputRight, piece, n);
    }
    // Element i, not frame i: the sum covers the first half of the interleaved buffer,
    // left and right in turn. Hosts have always seen it this way; keep it.
    energy = RunLoop<SumOfSquares>(samples, numSamples);
    return energy > 0.0f;
}

void mi::FollowSampleRate(const machine::MasterInfo& master) {
    // Before the lock: rebuilding the master effects loses their tails, and the global
    // settings must reach the new ones.
    if (master.samplesPerSec > 0 && float(master.samplesPerSec) != hostSampleRate) {
        hostSampleRate = float(master.samplesPerSec);
        document->engine->ChangeSampleRate(hostSampleRate);
        document->ReapplyGlobals();
    }
}

bool mi::WorkMonoToStereo(const float*, float* output, int numSamples, int) {
    if (!output || numSamples <= 0) return false;
    VrokInstance& engine = *document->engine;
    const machine::MasterInfo master = host.GetMasterInfo();
    std::lock_guard guard(machineLock);
    energy = 0.0f;
    for (int start = 0; start < numSamples; start += kMaxFrames) {
        const int n = std::min(kMaxFrames, numSamples - start);
        float* piece = output + 2 * start;
        std::fill_n(outputLeft, n, 0.0f);
        std::fill_n(outputRight, n, 0.0f);
        engine.samplesPerBar = master.samplesPerTick * master.ticksPerBeat * 4;
        engine.Render({outputLeft, outputRight}, n);
        for (int i = 0; i < n; ++i) {
            piece[2 * i] = outputLeft[i];
            piece[2 * i + 1] = outputRight[i];
            energy += outputLeft[i] * outputLeft[i] + outputRight[i] * outputRight[i];
        }
    }
    return energy > 0.0f;
}

// [SECTION] saved state

void mi::Save(machine::DataOutput* output) {
    if (!output) {
        Log(1, "Save without an output stream");
        return;
    }
    const std::string text = document->WriteXml();
    WriteUint32(*output, uint32_t(text.size()));
    output->Write(text.data(), int(text.size()));
    WriteUint32(*output, uint32_t(windowWidth));
    WriteUint32(*output, uint32_t(windowHeight));
}

bool mi::ReloadState(machine::DataInput* input) {
    if (!input) return false;
    std::lock_guard guard(machineLock);
    return RestoreState(*input);
}

bool mi::RestoreState(machine::DataInput& input) {
    uint32_t length = 0;
    if (!ReadUint32(input, length)) {
        Log(1, "saved state is empty; keeping the patch");
        return false;
    }
    if (length > kMaxStateText) {
        Log(1, "saved state has an impossible length; keeping the patch");
        return false;
    }
    std::string text;
    if (!ReadText(input, length, text)) {
        Log(1, "saved state is cut short; keeping the patch");
        return false;
    }
    // Text without a "storables" root leaves the patch as it was; an empty text is such.
    const bool read = document->ReadXml(text);

    uint32_t width = 0, height = 0;
    if (ReadUint32(input, width) && ReadUint32(input, height)) {
        // A negative or absurd size would make an unusable window; keep the old one.
        if (int32_t(width) > 0 && int32_t(height) > 0 && width <= 16384 && height <= 16384) {
            windowWidth = int(width);
            windowHeight = int(height);
            if (editor->IsOpen(*this)) editor->Resize(*this, windowWidth, windowHeight);
        }
    } else {
        Log(1, "saved state lacks the window size");
    }
    UpdateTitle();
    return read;
}

// [SECTION] commands and editor

bool mi::LoadPatchFile(const std::string& path, std::vector<LoadProblem>* report) {
    std::lock_guard guard(machineLock);
    LoadReport xmlReport, vrkReport;
    const bool readAsXml = document->LoadFile(path, &xmlReport);
    const bool loaded = readAsXml || document->ReadVrk(path, &vrkReport);
    if (report) {
        const bool reportXml = loaded ? readAsXml : !LooksBinary(path);
        const LoadReport& chosen = reportXml ? xmlReport : vrkReport;
        report->insert(report->end(), chosen.begin(), chosen.end());
    }
    if (loaded) loadedFileName = BareName(path);
    return loaded;
}

void mi::Command(int index) {
    if (index == 0) {
        OpenEditor();
    } else if (index == 1) {
        const std::string path = editor->AskOpenFile(*this, "Load..", "vrkx", "[VROK] files");
        if (!path.empty()) LoadPatchFile(path);
    }
}

void mi::OpenEditor() {
    if (editor->IsOpen(*this)) return;
    if (editor->Open(*this)) UpdateTitle();
}

void mi::SetEditorHidden(bool hidden) {
    if (hidden) {
        const bool wasOpen = editor->IsOpen(*this);
        if (wasOpen) editor->Close(*this);
        editorWasOpen = wasOpen;
    } else {
        if (editorWasOpen) OpenEditor();
        editorWasOpen = false;
    }
}

void mi::UpdateTitle() {
    const std::string name = host.GetMachineName(machine);
    windowTitle = name == "[VROK] fx" ? "[VROK] fx editor" : "[VROK] fx editor - " + name;
    if (editor->IsOpen(*this)) editor->SetTitle(*this, windowTitle);
}

bool mi::OnDoubleClick(void* parameter) {
    static_cast<mi*>(parameter)->OpenEditor();
    return true;
}

bool mi::OnRename(void* parameter) {
    static_cast<mi*>(parameter)->UpdateTitle();
    return true;
}
