// The sampler: one sample of the patch, played from its start on every note at the pitch
// of the note relative to the sample's root, once through, with no loop.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include "engine/audio_block.h"
#include "engine/sample_data.h"

// Plays `sample` per voice. Port 1 multiplies the output by its signal and "Amp"; unwired,
// the block reports its row active and leaves it as it was, so a sampler sounds only with
// its amplitude input wired. Port 0 has no effect. "Pitch" changes the voice's `frequency`
// but not the sound: the step follows the note alone, as old patches expect.
class CSimpleSamplerBlock : public CAudioBlock, public SamplePlayer {
public:
    CSimpleSamplerBlock(VrokInstance* engine, float sampleRate);
    // Leaves the sample's list of players.
    ~CSimpleSamplerBlock() override;

    bool IsPolyphonic(bool) override { return true; }
    std::string DescribeValue(int index, float value) override;
    void ParameterChanged(int index) override;
    void SetNote(float pitch, float velocity, int voice) override;
    // Restarts the voice at frame 0, no crossfade. NoteOff does nothing.
    void NoteOn(int velocity, int voice) override;
    // The link to the sample is the document's, kept beside the block element; the block
    // element itself carries nothing more.
    void SaveExtra(BlockElement&) override {}
    void LoadExtra(const BlockElement&) override {}
    // Holds the sample's lock throughout.
    void Work(int voice, int numSamples) override;

    // Plays `container` from now on (null: nothing). Takes the engine lock, so no Work runs
    // meanwhile, and recomputes each voice's step from its note. GUI thread.
    void SetSample(SampleData* container);
    // Takes the engine lock first, for the same reason.
    void Detach(SampleData* container) override;

    struct PlayVoice {
        uint8_t playing = 0;
        float position = 0.0f;  // in frames of the sample
        float step = 1.0f;      // frames per output sample
    };

    // Written by SetNote under the engine lock, read by Work under the same lock.
    float note[kMaxVoices];
    // The voice's pitch with "Pitch" applied; also rewritten by ParameterChanged. The sound
    // does not depend on it.
    std::atomic<float> frequency[kMaxVoices];
    PlayVoice voices[kMaxVoices];
    std::atomic<float> amplitude{0.0f};  // "Amp" squared
    float monoNote = 65.0f;

private:
    float FrequencyFor(float note) const;
    // Frames per output sample for `note`: the note against the root, times the ratio of
    // the recording rate to ours; 1 without a sample.
    float StepFor(float note) const;
};
