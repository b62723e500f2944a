// CAudioBlock, the base of every node in a patch, and InputPort, one of its inputs.
// The engine treats all blocks alike through the virtual operations declared here;
// a block's own signal processing lives in its family under blocks/.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

constexpr int kMaxVoices = 16;
constexpr int kMaxFrames = 256;
// Hard limit on wires in one patch; a block's source lists have the same length so
// that one block could take every wire.
constexpr int kMaxConnections = 645;
// Every sample leaving OutputWork, and every sample InputWork receives, is at this scale.
constexpr float kHostScale = 32000.0f;

class VrokInstance;
class BlockElement;

// The two host-scale rows handed to OutputWork and InputWork.
struct StereoBuffers {
    float* left;
    float* right;
};

// One input of a block: the sum of everything wired into it, a row per voice.
// A row is valid only while its `written` flag is set; otherwise it holds stale data.
struct InputPort {
    InputPort() {
        for (int v = 0; v < kMaxVoices; ++v) rows[v] = buffer[v];
    }
    // What voice v received this sample block. A port set to read in place may point at its
    // one source's own output row instead of a copy of it; its block reads it through here.
    const float* Row(int v) const { return rows[v]; }

    float buffer[kMaxVoices][kMaxFrames];
    const float* rows[kMaxVoices];
    uint8_t written[kMaxVoices] = {};
    bool hasConnection = false;  // some wire ends here; refreshed while inputs are summed
    bool cleared = true;
    // Set by a block that reads this port only through Row and never writes it; a port fed
    // by one wire then costs no copy.
    bool readsInPlace = false;
};

// Palette groups.
enum BlockCategory : int {
    kCategorySources = 0,
    kCategoryControllers = 1,
    kCategoryModifiers = 2,
    kCategoryOutputs = 3,
    kCategoryGlobalTriggers = 5,
};

// Widget kinds the panel builder reads from `kinds`; the numbers are stored nowhere
// but are the contract with the editor.
enum class ParamKind : int {
    Knob = 0,
    Pitch = 1,
    KnobAlt = 2,
    Wave = 3,
    Switch = 4,
    Filter = 5,
    Hidden = 6,
    Slider = 7,
    SliderAlt = 8,
    ButtonStrip = 9,
};

// How a parameter row turns its stored 0..1 value into text. Custom rows are
// handled by the block's own DescribeValue.
enum class ValueText {
    Custom,
    Bipolar,
    Semitones,
    DecibelsOfSquare,  // the row's amplitude is value squared
    Pan,
    Hertz,
    EnvelopeTime,
    Percent,
    Empty,
};

// One parameter as a block declares it: the single table every other step reads.
struct ParamRow {
    const char* name;
    ParamKind kind;
    float defaultValue;
    ValueText text;
};

// A parameter value brought into 0..1, whatever reaches a door: files, host state, host
// knobs, engine calls. NaN becomes 0, so no table index made from it is undefined.
inline float Clamp01(float value) {
    if (value > 1.0f) return 1.0f;
    return value >= 0.0f ? value : 0.0f;
}

class CAudioBlock {
public:
    CAudioBlock(VrokInstance* engine, float sampleRate);

    // Stores the new rate. Audio thread, before the machine lock.
    virtual void SetSampleRate(float rate);
    virtual ~CAudioBlock();
    // Whether this block makes voices differ, given whether its input already does.
    virtual bool IsPolyphonic(bool inputPolyphonic) = 0;
    // GUI thread; allocates.
    virtual std::string DescribeValue(int index, float value) = 0;
    // Engine lock held. `pitch` is in semitones with note 70 at 440 Hz; a voice that
    // never played arrives with pitch -1 and velocity -1 and must be accepted.
    virtual void SetNote(float pitch, float velocity, int voice);
    virtual void NoteOn(int velocity, int voice);
    virtual void NoteOff(int voice);
    virtual void SaveExtra(BlockElement& element);
    virtual void LoadExtra(const BlockElement& element);
    // Cooks working constants. Runs on the GUI thread beside Work, without the lock.
    virtual void ParameterChanged(int index);
    // Once per sample block before inputs are summed; the default clears every port.
    virtual void PrepareBlock(int numSamples);
    // Renders one voice; see the contract on `active` below. Never allocates or throws.
    virtual void Work(int voice, int numSamples);
    virtual void OutputWork(StereoBuffers buffers, int numSamples, float scale);
    virtual void InputWork(StereoBuffers buffers, int numSamples, float scale);
    // Once, when the block drops out of every chain; engine lock held.
    virtual void Reset();
    virtual std::vector<std::wstring> ParameterChoices(int index);
    virtual float GetLevel();

    // Allocates the ports and parameter tables; constructors only.
    void Configure(int numParameters, int numPorts, int category, const std::string& name);
    void DefineParameter(int index, const std::string& name, ParamKind kind);
    // Frees ports and parameter arrays; `names` survives, so a later Configure appends.
    void FreeTables();
    // The outside's way to change a parameter: ignores a bad index, clamps to 0..1.
    void SetParameter(int index, float value);
    // Value of a parameter, 0 past the end.
    float GetParameter(int index) const;

    // Constructor steps in their order: Configure, DefineParameter for every row, then
    // each row's default followed by ParameterChanged.
    template <int N>
    void ConfigureFromRows(const ParamRow (&rows)[N], int numPorts, int category, const char* blockName) {
        ConfigureFromRows(rows, N, numPorts, category, blockName);
    }
    void ConfigureFromRows(const ParamRow* rows, int count, int numPorts, int category, const char* blockName);
    // Ports implied by the rows: one per parameter, plus the audio input if there is one.
    int PortsFor(int numRows) const { return numRows + (hasAudioInput ? 1 : 0); }

    bool hasCornerButton = true;
    VrokInstance* engine;
    int posX = 0, posY = 0;
    int width = 0, height = 0;
    int category = -1;
    std::string name = "undefined";
    int index = -1;
    float level[kMaxVoices] = {};
    bool connected = false;
    bool disconnected = false;
    bool hasOutputWork = false;
    bool hasInputWork = false;
    bool isOutput = false;
    float sampleRate;
    int sources[kMaxConnections] = {};
    int sourcePorts[kMaxConnections] = {};
    int numSources = 0;
    bool monophonic = false;
    bool displayResetPending = false;
    // 1 when the block runs per voice, else 0: set by RebuildOrder, read as `monophonic`.
    int polyphonicVisits = 0;
    // Work contract: clear active[voice] first; read a port row only while its written
    // flag is set; leave active[voice] at zero when there is nothing to say (the row is
    // then stale and nobody reads it); otherwise fill the row and set active[voice].
    float output[kMaxVoices][kMaxFrames] = {};
    uint8_t active[kMaxVoices] = {};
    bool defaultMonophonic = false;
    std::vector<std::unique_ptr<InputPort>> ports;
    int numPorts = 0;
    std::vector<float> values;
    std::vector<int> kinds;
    std::vector<std::string> names;
    int numParameters = 0;
    int type = -1;
    bool hasAudioInput = false;
    bool visited = false;
    bool reached = false;

    // True when port `p` carries a signal for `voice` in this sample block.
    bool PortHasData(int p, int voice) const { return ports[p]->written[voice] != 0; }
    bool PortConnected(int p) const { return ports[p]->hasConnection; }
};

// Text of a row whose ValueText is not Custom. GUI thread; allocates.
std::string DescribeRowValue(const ParamRow& row, float value, float sampleRate);
// The same, picked from a block's table by index; empty past its end.
template <int N>
std::string DescribeRowValue(const ParamRow (&rows)[N], int index, float value, float sampleRate) {
    if (index < 0 || index >= N) return {};
    return DescribeRowValue(rows[index], value, sampleRate);
}
