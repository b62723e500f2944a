// A second, unrelated native machine for the host tests: a 660 Hz sine generator with one
// volume knob. Listed beside Vrok's machines, it shows that their scan harms no neighbour.
#include <cmath>

#include "machine/buzz/buzz_interface.h"

namespace {

using namespace buzz;

CMachineParameter volume = {kParamByte, "Volume", "Volume", 0, 0x80, 0xFF, kParamFlagState, 0x40};
const CMachineParameter* parameters[] = {&volume};
CMachineInfo info = {kMachineGenerator,
                     65,
                     kFlagMonoToStereo,
                     0,
                     0,
                     1,
                     0,
                     parameters,
                     0,
                     nullptr,
                     "Second Tone",
                     "second tone",
                     "tests",
                     "",
                     nullptr};

class SecondTone : public CMachineInterface {
public:
    SecondTone() { GlobalVals = &knob; }
    void Tick() override {
        if (knob != 0xFF) level = knob / 128.0f * 8000.0f;
    }
    bool WorkMonoToStereo(float*, float* out, int numSamples, int) override {
        const float rate = pMasterInfo ? float(pMasterInfo->samplesPerSec) : 44100.0f;
        for (int i = 0; i < numSamples; ++i) {
            out[2 * i] = out[2 * i + 1] = level * std::sin(phase);
            phase = std::fmod(phase + 2.0f * float(M_PI) * 660.0f / rate, 2.0f * float(M_PI));
        }
        return level > 0.0f;
    }

private:
    unsigned char knob = 0x40;
    float level = 4000.0f;
    float phase = 0.0f;
};

}  // namespace

extern "C" {
__attribute__((visibility("default"))) CMachineInfo* GetInfo() { return &info; }
__attribute__((visibility("default"))) CMachineInterface* CreateMachine() { return new SecondTone; }
}
