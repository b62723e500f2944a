// The arpeggiator: a block that makes no sound. While its "Mode" is above off it takes the
// keyboard's place: keys only fill its lists of held notes, and on each of its ticks it
// starts and stops the engine's notes itself, after a 16-step pattern with an on switch, a
// semitone offset and a chord switch per step. The one built last is the working one.
#pragma once

#include <atomic>
#include <string>
#include <vector>

#include "engine/audio_block.h"

constexpr int kArpSteps = 16;

class CGlobalArpeggioBlock : public CAudioBlock {
public:
    enum Mode : int { kOff = 0, kUp = 1, kDown = 2, kRandom = 3, kOrdered = 4, kReversed = 5 };

    // Registers with the engine and applies the defaults, which switch it on ("up").
    // Engine lock held (the factory runs inside InsertBlock); allocates.
    CGlobalArpeggioBlock(VrokInstance* engine, float sampleRate);
    // Switches note routing back to the keyboard and leaves the engine. Engine lock held.
    ~CGlobalArpeggioBlock() override;

    bool IsPolyphonic(bool) override { return false; }
    std::string DescribeValue(int index, float value) override;
    // A key number here, not a voice: the key leaves the lists. Its note stops at the next
    // tick. Engine lock held.
    void NoteOff(int note) override;
    // GUI thread. "Mode" also switches the engine's note routing, taking its lock.
    void ParameterChanged(int index) override;
    // The labels of the "Mode" strip.
    std::vector<std::wstring> ParameterChoices(int index) override;
    void PrepareBlock(int) override {}
    void Work(int voice, int) override { active[voice] = 0; }

    // Whether key `note` is held; keys outside 0..127 count as held, so they are dropped.
    bool IsHeld(int note) const { return note < 0 || note >= 128 || heldKeys[note]; }
    // A key goes down. Engine lock held; allocation-free (the lists hold 128 from the start).
    void AddNote(int note);
    // One pattern step: stops what the last tick started, then plays this step. Audio
    // thread, engine lock held; allocation-free.
    void Tick();

    bool heldKeys[128] = {};
    std::vector<int> orderList;   // held notes in the order pressed
    std::vector<int> sortedList;  // the same, ascending
    int heldCount = 0;
    std::vector<int> soundingNotes;  // started by the last tick
    std::atomic<int> arpMode{kOff};
    std::atomic<int> tickCount{1};  // pattern length 1..16
    int lastNote = -1;
    std::atomic<int> octaveCount{0};
    int octaveIndex = 0;
    std::atomic<float> speed{1.0f};  // ticks per sixteenth of a measure
    int samplesToTick = 0;
    std::atomic<int> stepIndex{0};  // read by the ticker display
    int noteIndex = 0;
    std::atomic<bool> stepOn[kArpSteps];
    std::atomic<int> stepOffset[kArpSteps];
    std::atomic<bool> stepChord[kArpSteps];

private:
    int ChooseNote();
    void Start(int note);
};
