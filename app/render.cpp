// The render loop of `vrok render`: a schedule of frames and ticks, then Tick, MidiNote
// and Work in the order a tracker host would call them.
#include "app/render.h"

#include <algorithm>
#include <climits>
#include <cmath>

#include "blocks/vector_lanes.h"
#include "engine/audio_block.h"
#include "machine/machine.h"

namespace app {
namespace {

// From the host's sample scale back to -1..1. Dividing by a power of two is exact, so the
// multiply the compiler makes of it changes nothing.
[[gnu::always_inline]] inline void Unscale(float* samples, int n) {
    for (int i = 0; i < n; ++i) samples[i] /= kHostScale;
}

// Times past any render's end are held just beyond it, so that no frame number overflows.
double Bounded(double seconds) { return std::min(seconds, 2.0 * kMaxRenderSeconds); }

long FrameOf(double seconds, int sampleRate) { return std::lround(Bounded(seconds) * double(sampleRate)); }

long TickFrame(long tick, double samplesPerTick) { return std::lround(double(tick) * samplesPerTick); }

void ClearRow(mi& machine) {
    for (auto& track : machine.trackValues) track = {};
    for (auto& knob : machine.globalValues) knob = machine::kNoValueByte;
}

bool IsRelease(const MidiNoteEvent& e) { return e.kind == MidiEventKind::Note && e.velocity == 0; }

// On one frame, releases of keys that were down before it go first, so a note that ends
// where it starts again sounds. A release whose press is on the same frame (a note shorter
// than a frame, a drum hit in a MIDI file) stays after that press, or the key would stay down.
void OrderReleasesFirst(std::vector<Schedule::MidiAt>& midi) {
    static constexpr int kChannels = 16, kKeys = 128;
    std::vector<int> down(kChannels * kKeys, 0);  // presses not yet released, per channel and key
    auto key = [&](const MidiNoteEvent& e) -> int& {
        return down[size_t(std::clamp(e.channel, 0, kChannels - 1) * kKeys +
                           std::clamp(e.note, 0, kKeys - 1))];
    };
    std::vector<Schedule::MidiAt> first, rest;
    for (size_t begin = 0; begin < midi.size();) {
        size_t end = begin;
        while (end < midi.size() && midi[end].frame == midi[begin].frame) ++end;
        first.clear();
        rest.clear();
        for (size_t i = begin; i < end; ++i) {
            const MidiNoteEvent& e = midi[i].event;
            const bool early = IsRelease(e) && key(e) > 0;
            if (early) --key(e);
            (early ? first : rest).push_back(midi[i]);
        }
        for (const Schedule::MidiAt& at : rest)
            if (at.event.kind == MidiEventKind::Note)
                key(at.event) = IsRelease(at.event) ? std::max(0, key(at.event) - 1) : key(at.event) + 1;
        std::copy(rest.begin(), rest.end(),
                  std::copy(first.begin(), first.end(), midi.begin() + long(begin)));
        begin = end;
    }
}

}  // namespace

CommandLineHost::CommandLineHost(int sampleRate, double tempoBpm, int ticksPerBeat)
    : samplesPerTickExact(double(sampleRate) * 60.0 / (tempoBpm * double(ticksPerBeat))) {
    master.samplesPerSec = sampleRate;
    master.samplesPerTick = int(samplesPerTickExact);
    master.ticksPerBeat = ticksPerBeat;
}

Schedule BuildSchedule(const RenderPlan& plan, int sampleRate, double samplesPerTick) {
    Schedule schedule;
    for (const MidiNoteEvent& event : plan.midiNotes)
        schedule.midi.push_back({FrameOf(event.seconds, sampleRate), event});
    std::stable_sort(schedule.midi.begin(), schedule.midi.end(),
                     [](const auto& a, const auto& b) { return a.frame < b.frame; });
    OrderReleasesFirst(schedule.midi);

    std::vector<const NoteArgument*> notes;
    for (const NoteArgument& note : plan.trackNotes) notes.push_back(&note);
    std::stable_sort(notes.begin(), notes.end(), [](const NoteArgument* a, const NoteArgument* b) { return a->start < b->start; });
    long busyUntil[machine::kMaxTracks];
    std::fill(std::begin(busyUntil), std::end(busyUntil), LONG_MIN);
    const double ticksPerSecond = double(sampleRate) / samplesPerTick;
    for (const NoteArgument* note : notes) {
        const std::optional<int> noteByte = EncodeTrackerNote(note->note);
        if (!noteByte)
            throw UsageError("--track: MIDI note " + std::to_string(note->note) +
                             " is outside the pattern's range 5..124 (F-1..E9)");
        if (note->velocity && (*note->velocity < 0 || *note->velocity > 128))
            throw UsageError("--track: velocity " + std::to_string(*note->velocity) + " is outside 0..128");
        const long startTick = std::lround(Bounded(note->start) * ticksPerSecond);
        const long endTick =
            note->end ? std::max(startTick + 1, std::lround(Bounded(*note->end) * ticksPerSecond)) : LONG_MAX;
        int track = 0;
        while (track < machine::kMaxTracks && busyUntil[track] > startTick) ++track;
        if (track == machine::kMaxTracks)
            throw UsageError("--track: more than 16 notes would sound at once at " + std::to_string(note->start) + " s");
        const uint8_t velocity = note->velocity ? uint8_t(*note->velocity) : uint8_t(machine::kNoValueByte);
        schedule.rows[startTick].push_back({track, uint8_t(*noteByte), velocity});
        // A note starting on the same tick on this track is pushed later and wins.
        if (note->end) schedule.rows[endTick].push_back({track, uint8_t(machine::kNoteOff), uint8_t(machine::kNoValueByte)});
        busyUntil[track] = endTick;
        schedule.numTracks = std::max(schedule.numTracks, track + 1);
    }

    long last = long(plan.input.size() / 2);
    if (!schedule.midi.empty()) last = std::max(last, schedule.midi.back().frame);
    if (!schedule.rows.empty()) last = std::max(last, TickFrame(schedule.rows.rbegin()->first, samplesPerTick));
    schedule.lastEventFrame = last;
    return schedule;
}

RenderStats RenderWithMachine(mi& machine, const CommandLineHost& host, const RenderPlan& plan,
                              const Schedule& schedule, const AudioSink& sink, const ProgressSink& progress) {
    const int rate = host.master.samplesPerSec;
    const double samplesPerTick = host.samplesPerTickExact;
    const long inputFrames = long(plan.input.size() / 2);
    const long totalFrames = plan.seconds ? FrameOf(*plan.seconds, rate) : -1;
    const long last = schedule.lastEventFrame;
    const long endFrame = totalFrames >= 0 ? totalFrames : last + FrameOf(kMaxTailSeconds, rate);
    const long silenceToStop = FrameOf(kSilentSecondsToStop, rate);
    const int mode = plan.input.empty() ? kWorkWrite : kWorkRead | kWorkWrite;

    machine.SetNumTracks(std::max(1, schedule.numTracks));
    ClearRow(machine);
    float buffer[2 * kMaxFrames];
    long frame = 0, tick = 0, silentRun = 0;
    size_t nextMidi = 0;
    auto nextRow = schedule.rows.begin();
    while (frame < endFrame) {
        if (totalFrames < 0 && frame >= last && silentRun >= silenceToStop) break;
        // The tracker's order: the row's Tick, then what arrived by MIDI, then audio.
        if (frame == TickFrame(tick, samplesPerTick)) {
            if (tick == 0)
                for (int k = 0; k < machine::kNumKnobs; ++k)
                    if (plan.knobs[size_t(k)] >= 0) machine.globalValues[k] = uint8_t(plan.knobs[size_t(k)]);
            if (nextRow != schedule.rows.end() && nextRow->first == tick) {
                for (const TrackCell& cell : nextRow->second) {
                    machine.trackValues[cell.track].note = cell.note;
                    machine.trackValues[cell.track].velocity = cell.velocity;
                }
                ++nextRow;
            }
            machine.Tick();
            ClearRow(machine);
            ++tick;
        }
        for (; nextMidi < schedule.midi.size() && schedule.midi[nextMidi].frame <= frame; ++nextMidi) {
            const MidiNoteEvent& event = schedule.midi[nextMidi].event;
            switch (event.kind) {
                case MidiEventKind::Note: machine.MidiNote(event.channel, event.note, event.velocity); break;
                case MidiEventKind::Control: machine.MidiControlChange(event.channel, event.note, event.velocity); break;
                case MidiEventKind::Pressure: machine.MidiChannelPressure(event.channel, event.velocity); break;
            }
        }

        long end = std::min({frame + kMaxFrames, endFrame, TickFrame(tick, samplesPerTick)});
        if (nextMidi < schedule.midi.size()) end = std::min(end, schedule.midi[nextMidi].frame);
        if (frame < inputFrames) end = std::min(end, inputFrames);
        if (frame < last) end = std::min(end, last);
        const int n = int(end - frame);

        // Without kWorkRead the machine ignores what the buffer holds.
        if (mode & kWorkRead) {
            const long fedFrames = std::clamp(inputFrames - frame, 0L, long(n));
            const float* in = plan.input.data() + size_t(frame) * 2;
            for (long i = 0; i < 2 * fedFrames; ++i) buffer[i] = in[i] * kHostScale;
            std::fill(buffer + 2 * fedFrames, buffer + 2 * n, 0.0f);
        }
        machine.Work(buffer, n, mode);
        RunLoop<Unscale>(buffer, 2 * n);
        // Only a render without a set length stops on silence.
        if (totalFrames < 0 && frame >= last) {
            int i = n;
            while (i > 0 && std::fabs(buffer[2 * i - 2]) < kSilence &&
                   std::fabs(buffer[2 * i - 1]) < kSilence)
                --i;
            silentRun = i == 0 ? silentRun + n : n - i;
        }
        frame = end;
        if (!sink(buffer, n)) break;
        if (progress) progress(frame, totalFrames >= 0 ? totalFrames : (frame < last ? last : 0));
    }
    RenderStats stats;
    stats.frames = frame;
    stats.stillSounding = totalFrames < 0 && frame >= endFrame && silentRun < silenceToStop;
    return stats;
}

}  // namespace app
