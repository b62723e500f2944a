// The built-in demo graph, wired directly on the engine.
#include "app/demo.h"

#include <algorithm>

#include "document/block_types.h"
#include "engine/vrok_instance.h"

namespace {
constexpr int kOscType = 4;
constexpr int kOutputType = 0;
}  // namespace

std::vector<float> RenderDemoChord(float seconds, int sampleRate) {
    VrokInstance engine(CreateBlock);
    engine.sampleRate = float(sampleRate);
    int osc = -1, out = -1;
    engine.InsertBlock(kOscType, -1, &osc);
    engine.InsertBlock(kOutputType, -1, &out);
    engine.blocks[osc]->SetParameter(1, 0.7f);  // Amp
    engine.blocks[osc]->SetParameter(2, 0.0f);  // Sinewave
    engine.Connect(osc, out, 0);
    engine.RebuildOrder();
    engine.SetVoiceCount(3, false);
    for (int note : {70, 74, 77}) engine.PressKey(note, 127);  // A4, C#5, E5

    const long frames = long(seconds * float(sampleRate));
    std::vector<float> interleaved(size_t(frames) * 2);
    float left[kMaxFrames], right[kMaxFrames];
    for (long start = 0; start < frames; start += kMaxFrames) {
        const int n = int(std::min<long>(kMaxFrames, frames - start));
        std::fill_n(left, n, 0.0f);
        std::fill_n(right, n, 0.0f);
        engine.Render({left, right}, n);
        for (int i = 0; i < n; ++i) {
            interleaved[size_t(start + i) * 2] = left[i] / kHostScale;
            interleaved[size_t(start + i) * 2 + 1] = right[i] / kHostScale;
        }
    }
    return interleaved;
}
