// Engine costs outside the plain render: rebuilding the order of the densest legal graph,
// and oscillators whose pitch port is driven by audio. "realtime" is seconds of audio per
// second of one core.
#include <benchmark/benchmark.h>

#include "bench_support.h"
#include "document/block_types.h"
#include "engine/vrok_instance.h"

namespace {

constexpr int kOscType = 4;
constexpr int kOutputType = 0;

// Layers of two oscillators, each wired from both blocks of the layer before into both of
// its ports, from one root down to one output, until the wire table is full; the blocks
// left over fill the block table unwired. Every path from the root to the output is a
// separate route (2^79 of them), which a walk over paths would never finish.
void BuildDensestGraph(VrokInstance& engine) {
    int previous[2];
    engine.InsertBlock(kOscType, -1, &previous[0]);
    previous[1] = previous[0];
    int output = -1;
    engine.InsertBlock(kOutputType, kMaxBlocks - 1, &output);
    int wires = 0;
    constexpr int kOutputWires = 2;
    for (;;) {
        const int ports = wires + 8 + kOutputWires <= kMaxConnections ? 2 : 1;
        if (wires + 4 * ports + kOutputWires > kMaxConnections) break;
        int layer[2];
        if (!engine.InsertBlock(kOscType, -1, &layer[0]) || !engine.InsertBlock(kOscType, -1, &layer[1])) break;
        for (int to : layer)
            for (int from : previous)
                for (int port = 0; port < ports; ++port) wires += engine.Connect(from, to, port) != nullptr;
        previous[0] = layer[0];
        previous[1] = layer[1];
    }
    for (int from : previous) engine.Connect(from, output, 0);
    while (engine.InsertBlock(kOscType, -1)) {
    }
}

void BM_RebuildOrderDensestGraph(benchmark::State& state) {
    VrokInstance engine(CreateBlock);
    BuildDensestGraph(engine);
    for (auto _ : state) engine.RebuildOrder();
    int wires = 0;
    for (const Connection& c : engine.connections) wires += c.inUse;
    int blocks = 0;
    for (CAudioBlock* b : engine.blocks) blocks += b != nullptr;
    state.counters["blocks"] = blocks;
    state.counters["wires"] = wires;
}
BENCHMARK(BM_RebuildOrderDensestGraph)->Unit(benchmark::kMicrosecond);

// An oscillator modulating the pitch of sixteen voices of a second one.
void BM_SixteenPitchModulatedVoices(benchmark::State& state) {
    VrokInstance engine(CreateBlock);
    int modulator = -1, carrier = -1, out = -1;
    engine.InsertBlock(kOscType, -1, &modulator);
    engine.InsertBlock(kOscType, -1, &carrier);
    engine.InsertBlock(kOutputType, -1, &out);
    engine.Connect(modulator, carrier, 0);
    engine.Connect(carrier, out, 0);
    engine.RebuildOrder();
    bench::HoldSixteenNotes(engine);
    bench::RenderLoop(state, engine);
}
BENCHMARK(BM_SixteenPitchModulatedVoices);

}  // namespace

BENCHMARK_MAIN();
