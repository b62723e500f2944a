// The master reverb: a stereo feedback delay network of four modulated lines, the last
// stage behind the patch. It works in place on the engine's host-scale rows and keeps no
// per-voice state; six values from the global panel set its sound.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "engine/audio_block.h"

namespace MasterReverb {

// One named value of the reverb. `value` is what the reverb reads; the caller stores it
// and then calls ParameterUpdated.
struct ReverbParameter {
    ReverbParameter(const char* parameterName, float initial)
        : defaultValue(initial), name(parameterName), value(initial) {}
    float defaultValue;
    std::string name;
    float value;
};

constexpr int kLines = 4;

class Reverb {
public:
    // Allocates and zeroes the delay buffer for `sampleRate`, then applies every parameter
    // once. Never on the audio thread except at a change of rate.
    explicit Reverb(float sampleRate);
    virtual ~Reverb();
    Reverb(const Reverb&) = delete;
    Reverb& operator=(const Reverb&) = delete;

    // The parameter of global event `id` (1 "Wet/Dry" .. 6 "Mod Speed"), null otherwise.
    ReverbParameter* ParameterById(int id);
    // Recalculates what depends on `parameter`, whose value the caller has just stored.
    // Engine lock held, so it never runs beside Process.
    void ParameterUpdated(const ReverbParameter* parameter);
    // In place when `input` and `output` are the same rows. Audio thread; allocation-free.
    void Process(StereoBuffers input, StereoBuffers output, int numSamples);

    ReverbParameter wetDry{"Wet/Dry", 0.3f};
    ReverbParameter roomSize{"Roomsize", 0.3f};
    ReverbParameter decay{"Decay", 0.5f};
    ReverbParameter damping{"Damping", 0.3f};
    ReverbParameter modAmount{"Mod Amount", 0.3f};
    ReverbParameter modSpeed{"Mod Speed", 0.1f};

    float sampleRate;
    std::unique_ptr<float[]> delayBuffer;  // slot 4t + i is line i at time step t
    uint32_t bufferSize = 1;
    uint32_t bufferMask = 0;
    uint32_t writeIndex = 0;
    int maxDelay;
    float minDelay;
    int lineDelay[kLines] = {};
    uint32_t lineOffset[kLines] = {};  // 18.14 fixed point, one whole buffer ahead
    int32_t modOffset[kLines] = {};    // in 1/16384 samples
    float lfoPhase[kLines] = {0.0f, 1.57075f, 3.1415f, 4.71225f};
    float lfoStep = 0.0f;
    float modDepth = 0.0f;  // samples
    float feedbackGain[kLines] = {};
    float dampRatio[kLines] = {};
    float dampCoef[kLines] = {};
    float dampState[kLines] = {};

private:
    void SetRoomSize();
    void SetDecay();
    void SetModDepth();
    void ProcessLanes(StereoBuffers input, StereoBuffers output, int numSamples, const int32_t* increment,
                      float wet, float dry);
};

}  // namespace MasterReverb
