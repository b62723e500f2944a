// Live playing through the machine: MIDI at its frame, Tick when one falls due, Work in
// pieces no longer than the engine's block, and the callback's time for the meter.
#include "app/live/live_player.h"

#include <algorithm>
#include <chrono>

#include "machine/machine.h"

namespace live {
namespace {
constexpr double kTempoBpm = 126.0;
constexpr int kTicksPerBeat = 4;
// The load's smoothing per buffer: about a second at 256 frames and 44.1 kHz.
constexpr float kLoadSmoothing = 0.006f;

int SamplesPerTick(int rate) { return int(double(rate) * 60.0 / (kTempoBpm * kTicksPerBeat)); }
}  // namespace

LiveHost::LiveHost(int rate, int channel) : sampleRate(rate), midiChannel(channel) {}

machine::MasterInfo LiveHost::GetMasterInfo() {
    const int rate = sampleRate.load(std::memory_order_relaxed);
    return {rate, SamplesPerTick(rate), kTicksPerBeat};
}

LivePlayer::LivePlayer(mi& machine, LiveHost& host) : machine(machine), host(host) {
    machine.midiChannel = host.midiChannel;
}

void LivePlayer::Dispatch(const MidiEvent& event) {
    if (event.size < 1) return;
    const int status = event.bytes[0] & 0xF0, channel = event.bytes[0] & 0x0F;
    const int data1 = event.size > 1 ? event.bytes[1] & 0x7F : 0;
    const int data2 = event.size > 2 ? event.bytes[2] & 0x7F : 0;
    switch (status) {
        case 0x80:
            machine.MidiNote(channel, data1, 0);
            break;
        case 0x90:
            machine.MidiNote(channel, data1, data2);
            break;
        case 0xB0:
            machine.MidiControlChange(channel, data1, data2);
            break;
        case 0xD0:
            machine.MidiChannelPressure(channel, data1);
            break;
        case 0xE0:
            machine.MidiPitchBend(channel, data1 | data2 << 7);
            break;
        default:
            break;  // polyphonic aftertouch, program change, system messages
    }
}

void LivePlayer::Process(const float* inLeft, const float* inRight, float* outLeft, float* outRight,
                         int frames, const MidiEvent* events, int numEvents) {
    const auto started = std::chrono::steady_clock::now();
    int next = 0;
    for (int position = 0; position < frames;) {
        for (; next < numEvents && events[next].frame <= position; ++next) Dispatch(events[next]);
        if (tickCountdown <= 0) {
            machine.Tick();
            tickCountdown += std::max(1, SamplesPerTick(host.sampleRate.load(std::memory_order_relaxed)));
        }
        int end = std::min({frames, position + kMaxFrames, position + int(tickCountdown)});
        if (next < numEvents) end = std::min(end, std::max(position + 1, events[next].frame));
        const int n = end - position;
        for (int i = 0; i < n; ++i) {
            interleaved[2 * i] = inLeft ? inLeft[position + i] * kHostScale : 0.0f;
            interleaved[2 * i + 1] = inRight ? inRight[position + i] * kHostScale : 0.0f;
        }
        machine.Work(interleaved, n, kWorkRead | kWorkWrite);
        for (int i = 0; i < n; ++i) {
            outLeft[position + i] = interleaved[2 * i] / kHostScale;
            outRight[position + i] = interleaved[2 * i + 1] / kHostScale;
        }
        tickCountdown -= n;
        position = end;
    }
    // Late events (stamped past the buffer) still play, at its end.
    for (; next < numEvents; ++next) Dispatch(events[next]);

    const int64_t spentNs =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - started)
            .count();
    if (spentNs > meter.longestCallbackNs.load(std::memory_order_relaxed))
        meter.longestCallbackNs.store(spentNs, std::memory_order_relaxed);
    const int rate = host.sampleRate.load(std::memory_order_relaxed);
    if (rate > 0 && frames > 0) {
        const float share = float(double(spentNs) * 1e-9 * rate / frames);
        const float load = meter.load.load(std::memory_order_relaxed);
        meter.load.store(load + (share - load) * kLoadSmoothing, std::memory_order_relaxed);
    }
}

}  // namespace live
