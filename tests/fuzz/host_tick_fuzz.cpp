// What a host writes before each Tick (eight knob bytes, a note and velocity byte per
// track), then Work, over a patch with external knobs on pitch, cutoff and level and the
// arpeggiator behind it. The first bytes pick the host's rate, tick length and track count.
// Every sample that comes out is finite. The machine lives for the whole run, as building
// one costs more than most inputs; each input loads the patch again.
#include <cmath>

#include "document/vrok_doc.h"
#include "fuzz_support.h"
#include "machine/machine.h"

namespace {

// Oscillator, filter, output; knobs 1..3 on the oscillator, the filter and the output, an
// envelope on the filter, and the arpeggiator.
constexpr const char* kPatch = R"(<storables>
<GLOBAL ID="0" Param_Delay_Enable="1" Param_Delay_TempoSync="1" Param_Reverb_Enable="1" Param_Chorus_Enable="1" Param_Voice_Portamento="0.3" />
<BLOCK ID="1" TYPE="4" X="40" Y="60" POS="0" P0="0.5" P1="0.5" P2="0.5" />
<BLOCK ID="2" TYPE="1" X="200" Y="60" POS="1" P0="0.38" P1="0.3" P2="0" />
<BLOCK ID="3" TYPE="0" X="520" Y="60" POS="2" P0="0.8" />
<BLOCK ID="4" TYPE="13" X="40" Y="220" POS="3" P0="0.5" />
<BLOCK ID="5" TYPE="14" X="200" Y="220" POS="4" P0="0.5" />
<BLOCK ID="6" TYPE="15" X="360" Y="220" POS="5" P0="0.5" />
<BLOCK ID="7" TYPE="2" X="360" Y="320" POS="6" P0="0.05" P1="0.42" P2="0.15" P3="0.45" P4="1" />
<BLOCK ID="8" TYPE="44" X="520" Y="220" POS="7" />
<CONNECTION ID="10" FROM="0" TO="1" INPUTID="0" />
<CONNECTION ID="11" FROM="1" TO="2" INPUTID="0" />
<CONNECTION ID="12" FROM="3" TO="0" INPUTID="1" />
<CONNECTION ID="13" FROM="4" TO="1" INPUTID="1" />
<CONNECTION ID="14" FROM="5" TO="2" INPUTID="1" />
<CONNECTION ID="15" FROM="6" TO="1" INPUTID="2" />
</storables>)";

constexpr int kRates[] = {22050, 44100, 48000, 96000};
constexpr int kMaxTicks = 64;
constexpr int kMaxWorkFrames = 1024;

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietLog();
    fuzz::ByteSource bytes(data, size);
    static fuzz::Host host;
    static mi machine(host);
    host.master.samplesPerSec = kRates[bytes.Byte() % 4];
    host.master.samplesPerTick = bytes.Word();
    machine.Init(nullptr);
    fuzz::Check(machine.document->ReadXml(kPatch), "the patch does not load");
    const int tracks = bytes.Byte() % (machine::kMaxTracks + 1);
    machine.SetNumTracks(tracks);

    static float samples[2 * kMaxWorkFrames];
    for (int tick = 0; tick < kMaxTicks && !bytes.Empty(); ++tick) {
        for (uint8_t& knob : machine.globalValues) knob = bytes.Byte();
        for (int t = 0; t < tracks; ++t) {
            machine.trackValues[t].note = bytes.Byte();
            machine.trackValues[t].velocity = bytes.Byte();
        }
        machine.Tick();
        const int frames = 1 + bytes.Word() % kMaxWorkFrames;
        const uint8_t mode = bytes.Byte() % 4;
        for (int i = 0; i < 2 * frames; ++i) samples[i] = mode & kWorkRead ? 0.25f : 0.0f;
        machine.Work(samples, frames, mode);
        for (int i = 0; i < 2 * frames; ++i)
            fuzz::Check(std::isfinite(samples[i]), "Work gave a non-finite sample");
    }
    machine.Stop();
    return 0;
}
