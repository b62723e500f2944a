// VrokInstance, the audio engine of one machine: the block and wire tables, the order in
// which blocks run, the voices, and the master effect stage. Blocks are known here by
// type number only; the factory that makes them is handed in by the document.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <random>
#include <vector>

#include "engine/audio_block.h"
#include "engine/wave_tables.h"
#include "fx/chorus.h"
#include "fx/master_delay.h"
#include "fx/reverb.h"

class CGlobalArpeggioBlock;

constexpr int kMaxBlocks = 256;
constexpr int kNumNotes = 128;
constexpr int kNumExtKnobs = 8;
// Keys held at once, repeats included; past it the oldest entry gives way, so the list
// never grows on the audio thread.
constexpr int kMaxHeldNotes = 1024;

// Creates a block of `type`, or returns null for a type with no block (or a second
// arpeggiator). Stores `type` in the block. GUI or loading thread; allocates.
using BlockFactory = CAudioBlock* (*)(VrokInstance& engine, int type, float sampleRate);

// Knob index 0..7 of an external knob type, -1 for any other type.
int ExternalKnobIndex(int type);

// One wire. Slots are reused, so the table is not in creation order.
struct Connection {
    int fromBlock = -1;
    int toBlock = -1;
    int toPort = 0;
    float gain = 1.0f;  // set when made; wires have no gain and nothing reads it
    bool inUse = false;
};

class VrokInstance {
public:
    // Builds or loads the wave tables and takes a reference on the note tables, unless
    // tables are deferred. Allocates; never on the audio thread.
    explicit VrokInstance(BlockFactory factory);
    ~VrokInstance();
    VrokInstance(const VrokInstance&) = delete;
    VrokInstance& operator=(const VrokInstance&) = delete;

    // [Graph edits] Each takes the engine lock. None runs on the audio thread.
    // Creates a block of `type` in `slot` (-1: the first free one). False when the slot is
    // taken, the table is full or the factory has no such block. Does not rebuild the order.
    bool InsertBlock(int type, int slot, int* outSlot = nullptr);
    void RemoveBlockAt(int slot);
    void RemoveBlock(CAudioBlock* block);
    void ClearPatch();
    // Makes a wire, or returns null: either end is -1, the ends are equal, the same wire
    // exists, the wire would close a loop, or the table is full (tested in that order).
    // An end that is not a live block is refused too. The caller rebuilds the order.
    Connection* Connect(int from, int to, int port);
    void Disconnect(Connection* connection);
    // Recomputes order, polyphony and chain membership; resends every voice's pitch.
    void RebuildOrder();

    // [Audio path] Allocation-free; the engine lock is taken inside Render.
    // One host buffer of at most kMaxFrames frames, end to end.
    void Render(StereoBuffers buffers, int numSamples);
    // InputWork on every block with hasInputWork, in slot order. Takes no lock: the
    // machine calls it under its own lock.
    void RunInputs(StereoBuffers buffers, int numSamples);
    // Recreates the master effects at `rate` and tells every block. Takes no lock.
    void ChangeSampleRate(float rate);
    // New reverb, chorus and delay at `rate`, with their own defaults: tails are lost and
    // the caller sends the global settings again. Allocates; takes the lock for the swap.
    void RebuildMasterEffects(float rate);

    // [Notes] Each takes the engine lock.
    void PressKey(int note, int velocity);
    void ReleaseKey(int note);
    void NoteOnInternal(int note, int velocity, bool returning);
    void NoteOffInternal(int note);
    void AllNotesOff();
    // Releases every key, then resets every block in the chain (filters forget their state)
    // and frees every voice: the MIDI "all sound off". Master effect tails are left to fade.
    // Allocation-free, so the audio thread may call it.
    void AllSoundOff();
    void SetVoiceCount(int count, bool monophonic);
    void SetArpeggiatorActive(bool on);
    void SetPortamento(float value);
    void SetBend(float value);
    void AdvanceGlides(int numSamples);

    // Engines made while this is set leave their tables to PrepareWaveTables, so making one
    // costs no file access: a tracker makes machines just to list them.
    static std::atomic<bool> deferWaveTables;
    // Loads or builds the tables once; must run before the first Render or note.
    void PrepareWaveTables();
    bool waveTablesReady = false;

    const WaveTable& WaveTableFor(int waveform, uint32_t increment) const {
        return waveSets[waveform].TableFor(increment);
    }

    // The voice most recently started by any engine in the process; only decides where
    // the next search starts, and is always taken modulo the local voice count.
    static std::atomic<int> voiceCursor;

    WaveTableSet waveSets[kNumWaveforms];
    std::vector<int> roots;
    float sampleRate = 44100.0f;
    std::recursive_mutex lock;
    uint8_t noteHeld[kNumNotes] = {};
    int noteVelocity[kNumNotes] = {};
    float bend = 0.0f;  // the pitch wheel, -1..1, in units of bendRange
    float bendRange = 2.0f;
    // The performer's mod wheel and channel aftertouch, 0..1, for the blocks that read them.
    // Written by the machine's MIDI input; read without the lock (a float store is whole).
    float modWheel = 0.0f;
    float aftertouch = 0.0f;
    float transpose = 0.0f;
    float portamentoLength = 14700.0f;
    float portamentoRate = 1.0f / 14700.0f;
    float portamentoPosition[kMaxVoices];
    int targetNote[kMaxVoices] = {};
    bool reverbOn = false, delayOn = false, chorusOn = false;
    // Always present; the flags above only decide whether Render calls them.
    std::unique_ptr<MasterReverb::Reverb> reverb;
    std::unique_ptr<MasterDelay> delay;
    std::unique_ptr<MasterChorus> chorus;
    bool arpeggiatorPresent = false;
    bool arpeggiatorActive = false;
    // The arpeggiator block built last; it registers and deregisters itself.
    CGlobalArpeggioBlock* arpeggiator = nullptr;
    int samplesPerBar = 84672;
    bool monophonic = false;
    int numVoices = 1;
    std::vector<int> heldNotes;
    bool portamentoOn = false;
    CAudioBlock* blocks[kMaxBlocks] = {};
    // One past the highest slot ever filled since the last ClearPatch: the per-buffer walks
    // of the slots stop here.
    int blocksEnd = 0;
    int order[kMaxBlocks] = {};
    Connection connections[kMaxConnections];
    // One past the highest entry of `connections` ever used since the last ClearPatch: no
    // wire lies beyond, so the per-buffer walk stops here.
    int connectionsEnd = 0;
    int orderCount = 0;
    int voiceNote[kMaxVoices];
    float portamentoFrom[kMaxVoices] = {};
    // No note before the first: glides of the very first note start from note 0.
    int lastNote = 0;
    float voicePitch[kMaxVoices];
    float voiceVelocity[kMaxVoices];
    uint8_t voiceActive[kMaxVoices] = {};
    // Per-block peak metering after Work. Nothing turns it on; the step is kept dormant.
    bool peakMetering = false;
    int rootList[kMaxBlocks] = {};
    int rootCount = 0;
    uint8_t extKnobPresent[kNumExtKnobs] = {};
    int extKnobSlot[kNumExtKnobs] = {};

private:
    void RunBlocks(int numSamples);
    void Visit(int id);
    void CollectRoots(int id);
    void MarkPolyphony();
    bool PathExists(int from, int to) const;
    void StartVoice(int voice, int note, int velocity, bool retrigger);
    void SumInputs(CAudioBlock& block, int numSamples);
    void MeasurePeaks(CAudioBlock& block, int numSamples);
    void RetireVoices();
    void SendPitches();
    void DeleteBlock(int slot);
    float VoicePitchWithBend(int voice) const { return bendRange * bend + voicePitch[voice] + transpose; }

    BlockFactory factory;
    std::minstd_rand placement;  // scatters new blocks across the patch area
    CAudioBlock* outputWorkers[kMaxBlocks] = {};  // scratch of Render
};
