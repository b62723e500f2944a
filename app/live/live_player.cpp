// Live playing through the machine: MIDI at its frame, Tick when one falls due, Work in
// pieces no longer than the engine's block, and the callback's time for the meter.
#include "app/live/live_player.h"

#include <time.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "machine/machine.h"

namespace live {
namespace {
constexpr double kTempoBpm = 126.0;
constexpr int kTicksPerBeat = 4;
// The load's smoothing per buffer: about a second at 256 frames and 44.1 kHz.
constexpr float kLoadSmoothing = 0.006f;

int SamplesPerTick(int rate) { return int(double(rate) * 60.0 / (kTempoBpm * kTicksPerBeat)); }

// Processor time of the calling thread; allocation-free, so the callback may ask.
int64_t ThreadCpuNs() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return int64_t(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

void KeepLongest(std::atomic<int64_t>& longest, int64_t value) {
    if (value > longest.load(std::memory_order_relaxed)) longest.store(value, std::memory_order_relaxed);
}
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

bool LivePlayer::LockWithin(std::unique_lock<std::recursive_mutex>& machineGuard,
                            std::unique_lock<std::recursive_mutex>& engineGuard, int64_t patienceNs) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::nanoseconds(patienceNs);
    for (;;) {
        if (machineGuard.try_lock()) {
            if (engineGuard.try_lock()) return true;
            machineGuard.unlock();
        }
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::yield();
    }
}

void LivePlayer::Process(const float* inLeft, const float* inRight, float* outLeft, float* outRight,
                         int frames, const MidiEvent* events, int numEvents) {
    const auto started = std::chrono::steady_clock::now();
    const int64_t startedCpuNs = ThreadCpuNs();
    const int rate = host.sampleRate.load(std::memory_order_relaxed);
    const int64_t bufferNs = rate > 0 ? int64_t(frames) * 1'000'000'000 / rate : 0;
    std::unique_lock machineGuard(machine.machineLock, std::defer_lock);
    std::unique_lock engineGuard(machine.document->engine->lock, std::defer_lock);
    const bool locked = LockWithin(machineGuard, engineGuard, bufferNs / 4);
    const int64_t waitedNs =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - started)
            .count();
    KeepLongest(meter.longestWaitNs, waitedNs);
    if (locked) {
        // What waited from skipped buffers plays first, at frame 0.
        if (numPending > 0) {
            for (int i = 0; i < numPending; ++i) Dispatch(pending[i]);
            numPending = 0;
        }
        Render(inLeft, inRight, outLeft, outRight, frames, events, numEvents);
    } else {
        std::fill_n(outLeft, frames, 0.0f);
        std::fill_n(outRight, frames, 0.0f);
        meter.skippedBuffers.fetch_add(1, std::memory_order_relaxed);
        for (int i = 0; i < numEvents; ++i) {
            if (numPending == kMaxMidiEventsPerBuffer) {
                meter.droppedMidi.fetch_add(1, std::memory_order_relaxed);
                continue;
            }
            pending[numPending] = events[i];
            pending[numPending++].frame = 0;
        }
    }

    const int64_t spentNs =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now() - started)
            .count();
    const int64_t spentCpuNs = ThreadCpuNs() - startedCpuNs;
    KeepLongest(meter.longestCallbackNs, spentNs);
    KeepLongest(meter.longestCallbackCpuNs, spentCpuNs);
    meter.callbacks.fetch_add(1, std::memory_order_relaxed);
    if (spentNs > bufferNs) meter.lateCallbacks.fetch_add(1, std::memory_order_relaxed);
    if (spentCpuNs > bufferNs) meter.overworkedCallbacks.fetch_add(1, std::memory_order_relaxed);
    if (bufferNs > 0) {
        const float share = float(double(spentNs) / double(bufferNs));
        const float load = meter.load.load(std::memory_order_relaxed);
        meter.load.store(load + (share - load) * kLoadSmoothing, std::memory_order_relaxed);
    }
}

void LivePlayer::Render(const float* inLeft, const float* inRight, float* outLeft, float* outRight,
                        int frames, const MidiEvent* events, int numEvents) {
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
}

}  // namespace live
