// Random patches through the renderer's own path: every render ends, every sample is a
// finite number below a sane peak, and once every key is up no voice or key stays held.
// VROK_STRESS_PATCHES sets how many (a few hundred by default, thousands for a local run),
// VROK_STRESS_SEED the first seed; a failing patch is saved beside the test's output with
// its seed, which replays it alone.
#include "random_patch.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cmath>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "blocks/followers.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"
#include "fx/arpeggiator.h"
#include "machine/machine.h"
#include "sound_files.h"

namespace {

const std::string kOutputDir = VROK_STRESS_OUTPUT_DIR;
constexpr int kDefaultPatches = 300;
constexpr int kEngineStartRate = 44100;
// A render of a few seconds takes well under one; one that takes this long has hung.
constexpr auto kHangLimit = std::chrono::seconds(60);

// The loudest a patch may get, in the renderer's -1..1: 80 dB above full scale. Gains
// multiply along a chain (an amplifier doubles, a resonant filter rings at many times its
// input, the master delay's feedback of 0.9999 piles up a repeating note, 16 voices add
// 24 dB), so a patch built to be loud can pass it; with the reverb off, the loudest of 20000
// random patches peaked at 68. What the bound catches is a gain that grows without limit (a
// filter or feedback loop diverging), which passes any bound given time. The master
// reverb is such a loop by design (see Reverb::Process): a patch that is too loud with it
// and within bounds without it is counted apart, not failed.
constexpr float kPeakBound = 1.0e4f;

int EnvironmentInt(const char* name, int fallback) {
    const char* text = std::getenv(name);
    return text && *text ? std::atoi(text) : fallback;
}

// Every way a key or voice can still be held after all keys went up; empty when none is.
// The audio trigger holds its key by design while its input level stays at or above its
// release level, and an arpeggiator holding that key keeps playing its notes.
std::string HeldAfterRelease(const mi& machine) {
    const VrokInstance& engine = *machine.document->engine;
    std::set<int> byDesign;
    for (int slot = 0; slot < engine.blocksEnd; ++slot)
        if (const auto* trigger = dynamic_cast<const CGlobalEnvTriggerBlock*>(engine.blocks[slot]))
            if (trigger->triggered) byDesign.insert(CGlobalEnvTriggerBlock::kNote);
    const CGlobalArpeggioBlock* arp = engine.arpeggiator;
    if (arp && byDesign.count(CGlobalEnvTriggerBlock::kNote) && arp->heldKeys[CGlobalEnvTriggerBlock::kNote])
        byDesign.insert(arp->soundingNotes.begin(), arp->soundingNotes.end());
    std::string held;
    for (int v = 0; v < kMaxVoices; ++v)
        if (engine.voiceActive[v] && !byDesign.count(engine.voiceNote[v]))
            held += " voice " + std::to_string(v) + " (note " + std::to_string(engine.voiceNote[v]) + ");";
    for (int note = 0; note < kNumNotes; ++note)
        if (engine.noteHeld[note] && !byDesign.count(note)) held += " key " + std::to_string(note) + ";";
    for (int note : engine.heldNotes)
        if (!byDesign.count(note)) held += " key " + std::to_string(note) + " in the held list;";
    if (arp) {
        for (int note = 0; note < 128; ++note)
            if (arp->heldKeys[note] && !byDesign.count(note))
                held += " key " + std::to_string(note) + " in the arpeggiator;";
    }
    for (int note = 0; note < 128; ++note)
        if (machine.sustainedNotes[note]) held += " key " + std::to_string(note) + " under the pedal;";
    for (int track = 0; track < machine::kMaxTracks; ++track)
        if (machine.trackPlaying[track]) held += " track " + std::to_string(track) + " playing;";
    return held;
}

struct Outcome {
    std::string failure;  // empty when the patch passed
    float peak = 0.0f;
    bool tooLoud = false;
    bool reverbOn = false;
    bool reverbRanAway = false;  // too loud with the reverb, within bounds without it
};

// One patch from `seed`, made and rendered as `vrok render` would; `withoutReverb` turns
// the master reverb off after the patch is made, changing nothing else.
Outcome RenderRandomPatch(unsigned seed, const std::string& samplePath, bool withoutReverb = false) {
    std::mt19937 random(seed);
    const int rates[] = {44100, 44100, 22050, 48000, 96000};
    const int rate = rates[std::uniform_int_distribution<int>(0, 4)(random)];
    app::CommandLineHost host(rate, 126.0, 4);
    mi machine(host);
    machine.Init(nullptr);
    stress::BuildRandomPatch(*machine.document, random, samplePath);
    const bool reverbOn = machine.document->global->Value("Param_Reverb_Enable") > 0.0f;
    if (withoutReverb) machine.document->global->SetValue("Param_Reverb_Enable", 0.0f);
    if (rate != kEngineStartRate) {
        machine.document->engine->ChangeSampleRate(float(rate));
        machine.document->ReapplyGlobals();
    }
    const app::RenderPlan plan = stress::RandomPerformance(random, rate);
    const app::Schedule schedule = app::BuildSchedule(plan, rate, host.samplesPerTickExact);

    Outcome outcome;
    long frame = 0;
    app::RenderWithMachine(machine, host, plan, schedule, [&](const float* samples, int frames) {
        for (int i = 0; i < 2 * frames && outcome.failure.empty(); ++i) {
            const float x = samples[i];
            if (std::isfinite(x) && std::fabs(x) <= kPeakBound) {
                outcome.peak = std::max(outcome.peak, std::fabs(x));
                continue;
            }
            outcome.tooLoud = std::isfinite(x);
            outcome.failure = (outcome.tooLoud ? "peak " : "sample ") + std::to_string(x) + " at frame " +
                              std::to_string(frame + i / 2);
        }
        frame += frames;
        return outcome.failure.empty();
    });
    outcome.reverbOn = reverbOn && !withoutReverb;
    if (outcome.failure.empty()) {
        const std::string held = HeldAfterRelease(machine);
        if (!held.empty()) outcome.failure = "held after release:" + held;
    }
    if (outcome.tooLoud && outcome.reverbOn && RenderRandomPatch(seed, samplePath, true).failure.empty()) {
        // The reverb's designed runaway (see kPeakBound): the patch itself is sane.
        outcome.failure.clear();
        outcome.reverbRanAway = true;
    }
    if (!outcome.failure.empty()) {
        const std::string saved = kOutputDir + "/stress_failure_" + std::to_string(seed) + ".vrkx";
        machine.document->SaveFile(saved);
        outcome.failure += "; patch saved to " + saved;
    }
    return outcome;
}

// Aborts with the seed in hand when one render runs far past its time, so a hang is
// reproducible instead of a bare time-out.
class HangWatch {
public:
    HangWatch()
        : thread([this] {
              std::unique_lock guard(mutex);
              while (!stopping) {
                  const unsigned seen = generation;
                  if (wake.wait_for(guard, kHangLimit, [&] { return stopping || generation != seen; }))
                      continue;
                  std::fprintf(stderr, "seed %u has rendered for over %lld s: hung\n", seed,
                               static_cast<long long>(kHangLimit.count()));
                  std::abort();
              }
          }) {}
    ~HangWatch() {
        {
            std::lock_guard guard(mutex);
            stopping = true;
        }
        wake.notify_one();
        thread.join();
    }
    void Starting(unsigned nextSeed) {
        {
            std::lock_guard guard(mutex);
            seed = nextSeed;
            ++generation;
        }
        wake.notify_one();
    }

private:
    std::mutex mutex;
    std::condition_variable wake;
    unsigned seed = 0, generation = 0;
    bool stopping = false;
    std::thread thread;
};

TEST(RandomPatches, RenderFiniteBoundedAndReleaseEveryVoice) {
    const int count = EnvironmentInt("VROK_STRESS_PATCHES", kDefaultPatches);
    const unsigned firstSeed = unsigned(EnvironmentInt("VROK_STRESS_SEED", 1));
    // A short sample for the samplers, ending inside the render so their voices end too.
    const std::string samplePath = kOutputDir + "/stress_sample.wav";
    std::vector<float> frames(6000);
    for (size_t i = 0; i < frames.size(); ++i)
        frames[i] = std::sin(0.05f * float(i)) * (1.0f - float(i) / 6000.0f);
    ASSERT_TRUE(soundfiles::Write(samplePath, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 1, frames));

    HangWatch watch;
    int failures = 0, reverbRunaways = 0;
    // The loudest patch with the reverb on and with it off, apart: the reverb's growth
    // would hide the patches' own level.
    float loudest[2] = {};
    unsigned loudestSeed[2] = {};
    const auto started = std::chrono::steady_clock::now();
    for (int i = 0; i < count; ++i) {
        const unsigned seed = firstSeed + unsigned(i);
        watch.Starting(seed);
        const Outcome outcome = RenderRandomPatch(seed, samplePath);
        if (!outcome.failure.empty()) {
            ++failures;
            ADD_FAILURE() << "seed " << seed << ": " << outcome.failure
                          << " (replay: VROK_STRESS_SEED=" << seed << " VROK_STRESS_PATCHES=1)";
        }
        if (outcome.reverbRanAway)
            ++reverbRunaways;
        else if (outcome.peak > loudest[outcome.reverbOn])
            loudest[outcome.reverbOn] = outcome.peak, loudestSeed[outcome.reverbOn] = seed;
    }
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    std::printf(
        "%d patches from seed %u in %.1f s: %d failed; %d ran the reverb away; loudest peak %g (seed %u) "
        "with the reverb off, %g (seed %u) otherwise\n",
        count, firstSeed, seconds, failures, reverbRunaways, double(loudest[0]), loudestSeed[0],
        double(loudest[1]), loudestSeed[1]);
}

}  // namespace
