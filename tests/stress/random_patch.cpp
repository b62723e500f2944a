// The random patch and performance of the stress test. Everything goes through VrokDoc,
// so a refused block or wire leaves no record, exactly as in the editor.
#include "random_patch.h"

#include <algorithm>
#include <vector>

#include "document/block_types.h"
#include "document/vrok_doc.h"
#include "engine/vrok_instance.h"

namespace stress {
namespace {

constexpr int kMaxRandomBlocks = 14;
constexpr double kPlaySeconds = 1.5;  // keys, pedal and input all end by then

// 0 and 1 a quarter of the time each: the ends of a range are where tables overrun,
// denominators vanish and feedback reaches one.
float RandomValue(std::mt19937& random) {
    const int pick = std::uniform_int_distribution<int>(0, 3)(random);
    if (pick == 0) return 0.0f;
    if (pick == 1) return 1.0f;
    return std::uniform_real_distribution<float>(0.0f, 1.0f)(random);
}

std::vector<int> BuiltTypes() {
    std::vector<int> types;
    for (const BlockType& row : BlockTypes())
        if (row.create) types.push_back(row.type);
    return types;
}

// 1..16 voices; one voice is monophonic (legato with glides) when the value is exactly 0,
// as the global panel's lowest setting.
float PolyphonyValue(std::mt19937& random) {
    if (std::bernoulli_distribution(0.1)(random)) return 0.0f;
    const int voices = std::uniform_int_distribution<int>(1, kMaxVoices)(random);
    return (float(voices) + 0.25f) / 16.5f;  // the engine takes int(value * 16.5)
}

}  // namespace

void BuildRandomPatch(VrokDoc& doc, std::mt19937& random, const std::string& samplePath) {
    static const std::vector<int> types = BuiltTypes();
    doc.ClearAll();
    std::vector<PatchBlock*> blocks;
    // An output first, so that most patches are heard and the master stage works.
    blocks.push_back(doc.AddBlock(std::bernoulli_distribution(0.5)(random) ? 0 : 25, -1, 10, 10));
    const int count = std::uniform_int_distribution<int>(1, kMaxRandomBlocks)(random);
    for (int i = 0; i < count; ++i) {
        const int type = types[std::uniform_int_distribution<size_t>(0, types.size() - 1)(random)];
        // A second arpeggiator is refused here and leaves nothing behind.
        if (PatchBlock* block = doc.AddBlock(type, -1, 20 * i, 30 * i)) blocks.push_back(block);
    }
    for (PatchBlock* patchBlock : blocks) {
        CAudioBlock& block = *patchBlock->block;
        for (int p = 0; p < block.numParameters; ++p)
            if (std::bernoulli_distribution(0.7)(random))
                doc.SetParameter(patchBlock, p, RandomValue(random));
        if (!samplePath.empty() && std::bernoulli_distribution(0.8)(random))
            doc.LoadSampleInto(patchBlock, samplePath);  // null for all but samplers
    }
    // Wires anywhere: loops, duplicates and ports past the end are refused by the engine.
    std::uniform_int_distribution<size_t> anyBlock(0, blocks.size() - 1);
    const int wires = std::uniform_int_distribution<int>(0, 3 * int(blocks.size()))(random);
    for (int i = 0; i < wires; ++i) {
        PatchBlock* from = blocks[anyBlock(random)];
        PatchBlock* to = blocks[anyBlock(random)];
        const int port = std::uniform_int_distribution<int>(-1, std::max(0, to->block->numPorts))(random);
        doc.AddConnection(from, to, port);
    }
    // Most blocks also feed the output, so their sound reaches the mix.
    for (size_t i = 1; i < blocks.size(); ++i)
        if (std::bernoulli_distribution(0.5)(random)) doc.AddConnection(blocks[i], blocks[0], 0);

    for (const auto& [name, parameter] : doc.global->Parameters()) {
        if (name == "Param_Polyphony") continue;
        if (std::bernoulli_distribution(0.6)(random)) {
            doc.ActionStart(doc.global.get());
            doc.global->SetValue(name, RandomValue(random));
            doc.ActionEnd(doc.global.get());
        }
    }
    doc.ActionStart(doc.global.get());
    doc.global->SetValue("Param_Polyphony", PolyphonyValue(random));
    doc.ActionEnd(doc.global.get());
}

app::RenderPlan RandomPerformance(std::mt19937& random, int sampleRate) {
    using app::MidiEventKind;
    app::RenderPlan plan;
    std::uniform_real_distribution<double> during(0.0, kPlaySeconds);
    const int notes = std::uniform_int_distribution<int>(1, 24)(random);
    for (int i = 0; i < notes; ++i) {
        // Keys 0 and 127 and velocities 1 and 127 come up often enough to matter.
        const int key = std::bernoulli_distribution(0.1)(random)
                            ? (i % 2 ? 127 : 0)
                            : std::uniform_int_distribution<int>(24, 108)(random);
        const int velocity = std::bernoulli_distribution(0.1)(random)
                                 ? (i % 2 ? 1 : 127)
                                 : std::uniform_int_distribution<int>(1, 127)(random);
        const double start = during(random);
        const double end = std::uniform_real_distribution<double>(start, kPlaySeconds)(random);
        plan.midiNotes.push_back({start, 0, key, velocity});
        plan.midiNotes.push_back({end, 0, key, 0});
    }
    const int controls = std::uniform_int_distribution<int>(0, 6)(random);
    for (int i = 0; i < controls; ++i) {
        const int value = std::uniform_int_distribution<int>(0, 127)(random);
        const double at = during(random);
        if (std::bernoulli_distribution(0.5)(random))
            plan.midiNotes.push_back({at, 0, 1, value, MidiEventKind::Control});
        else
            plan.midiNotes.push_back({at, 0, 0, value, MidiEventKind::Pressure});
    }
    if (std::bernoulli_distribution(0.1)(random)) {
        // "All notes off" or "all sound off" in the middle of it all.
        const int controller = std::bernoulli_distribution(0.5)(random) ? 120 : 123;
        plan.midiNotes.push_back({during(random), 0, controller, 0, MidiEventKind::Control});
    }
    if (std::bernoulli_distribution(0.3)(random)) {
        // The pedal goes down somewhere and comes up with the last key at the latest.
        plan.midiNotes.push_back({during(random), 0, 64, 127, MidiEventKind::Control});
        plan.midiNotes.push_back({kPlaySeconds, 0, 64, 0, MidiEventKind::Control});
    }
    // A few pattern notes through the host's tracks, as a tracker plays them; velocity 0..128
    // or none (the track's last).
    const int trackNotes = std::uniform_int_distribution<int>(0, 4)(random);
    for (int i = 0; i < trackNotes; ++i) {
        app::NoteArgument note;
        note.note = std::uniform_int_distribution<int>(5, 124)(random);
        if (std::bernoulli_distribution(0.8)(random))
            note.velocity = std::uniform_int_distribution<int>(0, 128)(random);
        note.start = during(random);
        note.end = std::uniform_real_distribution<double>(note.start, kPlaySeconds)(random);
        plan.trackNotes.push_back(note);
    }
    // The host's knobs, for the external knob blocks.
    for (int& knob : plan.knobs)
        if (std::bernoulli_distribution(0.3)(random))
            knob = std::uniform_int_distribution<int>(0, 128)(random);
    if (std::bernoulli_distribution(0.5)(random)) {
        // Noise bursts for the input blocks and the audio trigger, silent at the end.
        plan.input.assign(size_t(kPlaySeconds * sampleRate) * 2, 0.0f);
        std::uniform_real_distribution<float> sample(-1.0f, 1.0f);
        const float level = RandomValue(random);
        for (size_t i = 0; i < plan.input.size() / 2; ++i)
            if ((i / 4096) % 2 == 0) plan.input[2 * i] = plan.input[2 * i + 1] = level * sample(random);
    }
    plan.seconds = kPlaySeconds + kReleaseSeconds;
    return plan;
}

}  // namespace stress
