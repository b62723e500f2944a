// VrokInstance: construction, graph edits, evaluation order and the render loop.
// The voice logic is in voices.cpp.
//
// Index: [SECTION] Construction  [SECTION] Graph edits  [SECTION] Order
//        [SECTION] Render
#include "engine/vrok_instance.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "engine/log.h"
#include "fx/arpeggiator.h"
#include "fx/flush_denormals.h"

std::atomic<int> VrokInstance::voiceCursor{0};
std::atomic<bool> VrokInstance::deferWaveTables{false};

int ExternalKnobIndex(int type) {
    if (type >= 13 && type <= 16) return type - 13;
    if (type >= 28 && type <= 31) return type - 28 + 4;
    return -1;
}

// [SECTION] Construction

VrokInstance::VrokInstance(BlockFactory blockFactory) : factory(blockFactory) {
    if (!deferWaveTables) PrepareWaveTables();
    // Built for 44100 Hz whatever the host runs at; the first rate change rebuilds them.
    RebuildMasterEffects(44100.0f);
    heldNotes.reserve(kMaxHeldNotes);
    roots.reserve(kMaxBlocks);
    for (int v = 0; v < kMaxVoices; ++v) {
        portamentoPosition[v] = 1.0f;
        targetNote[v] = 0;
        voicePitch[v] = -1.0f;
        voiceVelocity[v] = -1.0f;
        voiceNote[v] = -1;
    }
    Log(0, "Vrok instance created");
}

VrokInstance::~VrokInstance() {
    for (int slot = 0; slot < kMaxBlocks; ++slot) DeleteBlock(slot);
    reverb.reset();
    chorus.reset();
    delay.reset();
    if (waveTablesReady) NoteTables::Release();
}

void VrokInstance::PrepareWaveTables() {
    if (waveTablesReady) return;
    LoadOrBuildWaveTables(waveSets);
    NoteTables::Acquire();
    waveTablesReady = true;
}

// [SECTION] Graph edits

bool VrokInstance::InsertBlock(int type, int slot, int* outSlot) {
    std::lock_guard guard(lock);
    if (slot == -1) {
        slot = int(std::find(std::begin(blocks), std::end(blocks), nullptr) - std::begin(blocks));
        if (slot == kMaxBlocks) return false;
    }
    if (slot < 0 || slot >= kMaxBlocks || blocks[slot]) return false;
    CAudioBlock* block = factory ? factory(*this, type, sampleRate) : nullptr;
    if (!block) return false;
    if (outSlot) *outSlot = slot;
    block->index = slot;
    block->disconnected = true;
    if (int knob = ExternalKnobIndex(type); knob >= 0) {
        extKnobPresent[knob] = 1;
        extKnobSlot[knob] = slot;
    }
    blocks[slot] = block;
    blocksEnd = std::max(blocksEnd, slot + 1);
    block->posX = int(placement() % unsigned(std::max(1, 800 - block->width)));
    block->posY = 596 - block->height;
    return true;
}

void VrokInstance::DeleteBlock(int slot) {
    if (!blocks[slot]) return;
    // Out of the order first: a block's destructor may release notes (the arpeggiator
    // does), and that walks the order.
    int* end = std::remove(order, order + orderCount, slot);
    orderCount = int(end - order);
    CAudioBlock* block = blocks[slot];
    blocks[slot] = nullptr;
    delete block;
}

void VrokInstance::RemoveBlockAt(int slot) {
    std::lock_guard guard(lock);
    if (slot < 0 || slot >= kMaxBlocks || !blocks[slot]) return;
    if (int knob = ExternalKnobIndex(blocks[slot]->type); knob >= 0) extKnobPresent[knob] = 0;
    for (Connection& c : connections) {
        if (c.inUse && c.fromBlock == slot) {
            c.inUse = false;
            CAudioBlock& dest = *blocks[c.toBlock];
            int* end = dest.sources + dest.numSources;
            int* found = std::find(dest.sources, end, slot);
            if (found != end) {
                int at = int(found - dest.sources);
                std::copy(found + 1, end, found);
                std::copy(dest.sourcePorts + at + 1, dest.sourcePorts + dest.numSources, dest.sourcePorts + at);
                --dest.numSources;
            }
        }
        if (c.toBlock == slot) c.inUse = false;
    }
    DeleteBlock(slot);
    RebuildOrder();
}

void VrokInstance::RemoveBlock(CAudioBlock* block) {
    if (!block) return;
    std::lock_guard guard(lock);
    for (int slot = 0; slot < kMaxBlocks; ++slot)
        if (blocks[slot] == block) RemoveBlockAt(slot);
}

void VrokInstance::ClearPatch() {
    std::lock_guard guard(lock);
    for (Connection& c : connections) c.inUse = false;
    connectionsEnd = 0;
    for (int slot = 0; slot < kMaxBlocks; ++slot) DeleteBlock(slot);
    blocksEnd = 0;
    std::fill(std::begin(extKnobPresent), std::end(extKnobPresent), 0);
    // Rebuilt once the table is empty, so no slot of a deleted block stays in `order`.
    RebuildOrder();
}

bool VrokInstance::PathExists(int from, int to) const {
    // Iterative walk with a mark per slot, so a dense graph costs one visit per block.
    bool seen[kMaxBlocks] = {};
    int stack[kMaxBlocks];
    int depth = 0;
    stack[depth++] = from;
    seen[from] = true;
    while (depth > 0) {
        int id = stack[--depth];
        if (id == to) return true;
        for (const Connection& c : connections) {
            if (c.inUse && c.fromBlock == id && !seen[c.toBlock]) {
                seen[c.toBlock] = true;
                stack[depth++] = c.toBlock;
            }
        }
    }
    return false;
}

Connection* VrokInstance::Connect(int from, int to, int port) {
    std::lock_guard guard(lock);
    if (from == -1 || to == -1) return nullptr;
    if (from < 0 || from >= kMaxBlocks || to < 0 || to >= kMaxBlocks || !blocks[from] || !blocks[to]) return nullptr;
    if (port < 0 || port >= blocks[to]->numPorts) return nullptr;
    if (from == to) return nullptr;
    for (const Connection& c : connections)
        if (c.inUse && c.fromBlock == from && c.toBlock == to && c.toPort == port) return nullptr;
    // Each refusal returns the same null, so the cheap test of a full table goes before
    // the walk for a loop.
    Connection* free = std::find_if(std::begin(connections), std::end(connections),
                                    [](const Connection& c) { return !c.inUse; });
    if (free == std::end(connections) || PathExists(to, from)) return nullptr;
    *free = Connection{from, to, port, 1.0f, true};
    connectionsEnd = std::max(connectionsEnd, int(free - connections) + 1);
    CAudioBlock& dest = *blocks[to];
    // Disconnecting leaves these lists stale, so they can fill up even below the wire
    // limit; nothing reads them, and they simply stop growing then.
    if (dest.numSources < kMaxConnections) {
        dest.sources[dest.numSources] = from;
        dest.sourcePorts[dest.numSources] = port;
        ++dest.numSources;
    }
    dest.ports[port]->hasConnection = true;
    return free;
}

void VrokInstance::Disconnect(Connection* connection) {
    if (connection < std::begin(connections) || connection >= std::end(connections)) return;
    std::lock_guard guard(lock);
    connection->inUse = false;
    RebuildOrder();
}

// [SECTION] Order

void VrokInstance::RebuildOrder() {
    std::lock_guard guard(lock);
    orderCount = 0;
    rootCount = 0;
    roots.clear();
    std::fill(std::begin(order), std::end(order), 0);
    std::fill(std::begin(rootList), std::end(rootList), 0);
    int outputs[kMaxBlocks];
    int numOutputs = 0;
    for (int slot = 0; slot < kMaxBlocks; ++slot) {
        CAudioBlock* b = blocks[slot];
        if (!b) continue;
        b->visited = false;
        b->monophonic = false;
        b->polyphonicVisits = 0;
        b->reached = false;
        if (b->isOutput) outputs[numOutputs++] = slot;
    }
    for (int k = 0; k < numOutputs; ++k) {
        // An output that feeds another output was placed when that one was visited; a
        // second entry would run its Work twice per buffer.
        if (!blocks[outputs[k]]->reached) Visit(outputs[k]);
        // Roots are listed once each, so what an earlier output explored is not walked
        // again: `visited` stays set across outputs.
        if (!blocks[outputs[k]]->visited) CollectRoots(outputs[k]);
    }
    for (int slot = 0; slot < kMaxBlocks; ++slot) {
        CAudioBlock* b = blocks[slot];
        if (!b) continue;
        if (!b->reached) {
            b->disconnected = true;
            if (b->connected) {
                b->connected = false;
                b->displayResetPending = true;
                b->Reset();
            }
        } else {
            b->connected = true;
            b->disconnected = false;
        }
        b->visited = false;
        if (b->isOutput) {
            bool fed = std::any_of(std::begin(connections), std::end(connections),
                                   [slot](const Connection& c) { return c.inUse && c.toBlock == slot; });
            if (!fed) b->disconnected = true;
        }
    }
    MarkPolyphony();
    for (CAudioBlock* b : blocks)
        if (b) b->monophonic = b->polyphonicVisits == 0;
    SetBend(bend);
}

// Post-order from `start` over the wires in table order, with an explicit stack: sources
// come before their consumers, and every block enters `order` once.
void VrokInstance::Visit(int start) {
    struct Frame {
        int id;
        int nextWire;
    };
    Frame stack[kMaxBlocks];
    int depth = 0;
    stack[depth++] = {start, 0};
    while (depth > 0) {
        Frame& frame = stack[depth - 1];
        int source = -1;
        for (; frame.nextWire < kMaxConnections && source < 0; ++frame.nextWire) {
            const Connection& c = connections[frame.nextWire];
            if (c.inUse && c.toBlock == frame.id && !blocks[c.fromBlock]->reached) source = c.fromBlock;
        }
        // Every block on the stack is unreached and the graph has no loop, so the stack
        // holds at most one frame per block.
        if (source >= 0 && depth < kMaxBlocks) {
            stack[depth++] = {source, 0};
            continue;
        }
        blocks[frame.id]->reached = true;
        if (orderCount < kMaxBlocks) order[orderCount++] = frame.id;
        --depth;
    }
}

// The blocks without inputs upstream of `start`. `visited` stays set for the whole rebuild,
// so each block is taken once and each root listed once, however many outputs it feeds:
// the 256 entries of `rootList` always suffice.
void VrokInstance::CollectRoots(int start) {
    int stack[kMaxBlocks];
    int depth = 0;
    stack[depth++] = start;
    blocks[start]->visited = true;
    while (depth > 0) {
        const int id = stack[--depth];
        bool hasInputs = false;
        for (const Connection& c : connections) {
            if (!c.inUse || c.toBlock != id) continue;
            hasInputs = true;
            CAudioBlock& source = *blocks[c.fromBlock];
            if (!source.visited && depth < kMaxBlocks) {
                source.visited = true;
                stack[depth++] = c.fromBlock;
            }
        }
        if (!hasInputs) {
            rootList[rootCount++] = id;
            roots.push_back(id);
        }
    }
}

// Which blocks run per voice. A block is polyphonic when a polyphonic block lies upstream
// on a path from a root, or when it answers true itself for a non-polyphonic input; once
// polyphonic, a chain stays so to its end. Blocks are taken in topological order, each
// once with one pass over the wire table, however many paths join.
void VrokInstance::MarkPolyphony() {
    int pending[kMaxBlocks] = {};  // inputs not yet settled
    for (const Connection& c : connections)
        if (c.inUse) ++pending[c.toBlock];
    bool fromRoot[kMaxBlocks] = {};      // on a path from a root
    bool polyphonicIn[kMaxBlocks] = {};  // some input on such a path is polyphonic
    for (int k = 0; k < rootCount; ++k) fromRoot[rootList[k]] = true;
    int ready[kMaxBlocks];
    int numReady = 0;
    for (int slot = 0; slot < kMaxBlocks; ++slot)
        if (blocks[slot] && pending[slot] == 0) ready[numReady++] = slot;
    while (numReady > 0) {
        const int id = ready[--numReady];
        CAudioBlock& b = *blocks[id];
        // A polyphonic input makes the block polyphonic whatever it answers; otherwise
        // its answer for a plain input decides.
        const bool polyphonic = fromRoot[id] && (polyphonicIn[id] || b.IsPolyphonic(false));
        b.polyphonicVisits = polyphonic ? 1 : 0;
        for (const Connection& c : connections) {
            if (!c.inUse || c.fromBlock != id) continue;
            fromRoot[c.toBlock] = fromRoot[c.toBlock] || fromRoot[id];
            polyphonicIn[c.toBlock] = polyphonicIn[c.toBlock] || polyphonic;
            if (--pending[c.toBlock] == 0) ready[numReady++] = c.toBlock;
        }
    }
}

// [SECTION] Render

void VrokInstance::Render(StereoBuffers buffers, int numSamples) {
    // Callers split host buffers; a longer one would overrun every block's rows.
    if (numSamples <= 0 || numSamples > kMaxFrames) return;
    std::lock_guard guard(lock);
    int numWorkers = 0;
    for (int slot = 0; slot < blocksEnd; ++slot) {
        CAudioBlock* b = blocks[slot];
        if (!b) continue;
        b->visited = false;
        if (b->hasOutputWork) outputWorkers[numWorkers++] = b;
    }
    if (numWorkers > 0) {
        AdvanceGlides(numSamples);
        if (arpeggiatorActive && arpeggiator) {
            // At most one step per call, on the call's boundary; the remainder carries over.
            arpeggiator->samplesToTick -= numSamples;
            if (arpeggiator->samplesToTick < 1) {
                arpeggiator->Tick();
                arpeggiator->samplesToTick += int(float(samplesPerBar) / (arpeggiator->speed * 16.0f));
            }
        }
        RunBlocks(numSamples);
        for (int k = 0; k < numWorkers; ++k) outputWorkers[k]->OutputWork(buffers, numSamples, kHostScale);
    }
    // The master stage runs even with no graph, over whatever the rows hold, and its
    // order is fixed: chorus, delay, reverb.
    const ScopedFlushDenormals flush;
    if (chorusOn) chorus->Process(buffers, numSamples);
    if (delayOn) delay->Process(buffers, numSamples);
    if (reverbOn) reverb->Process(buffers, buffers, numSamples);
}

void VrokInstance::RunBlocks(int numSamples) {
    std::lock_guard guard(lock);
    for (int k = 0; k < orderCount; ++k) {
        CAudioBlock& b = *blocks[order[k]];
        b.PrepareBlock(numSamples);
        SumInputs(b, numSamples);
        if (!b.monophonic) {
            for (int v = 0; v < numVoices; ++v) b.Work(v, numSamples);
        } else {
            b.Work(0, numSamples);
            for (int v = 1; v < numVoices; ++v) {
                b.active[v] = b.active[0];
                std::memcpy(b.output[v], b.output[0], sizeof(float) * numSamples);
            }
        }
        if (peakMetering) MeasurePeaks(b, numSamples);
    }
    RetireVoices();
}

namespace {
void MixInto(InputPort& port, int row, const float* source, int numSamples) {
    float* dest = port.buffer[row];
    if (!port.written[row]) {
        port.written[row] = 1;
        // Sources have all run by now and none runs again before the reader, so the
        // source's row stays as it is while the port points at it.
        if (port.readsInPlace) {
            port.rows[row] = source;
            return;
        }
        std::memcpy(dest, source, sizeof(float) * numSamples);
        return;
    }
    // A second source: the sum needs a row of its own.
    if (port.rows[row] != dest) {
        std::memcpy(dest, port.rows[row], sizeof(float) * numSamples);
        port.rows[row] = dest;
    }
    for (int i = 0; i < numSamples; ++i) dest[i] += source[i];
}
}  // namespace

void VrokInstance::SumInputs(CAudioBlock& b, int numSamples) {
    // A monophonic block gets every voice of a polyphonic source folded into row 0; a
    // monophonic source's rows are copies, so only its row 0 counts there.
    const bool fold = b.monophonic;
    for (int k = 0; k < connectionsEnd; ++k) {
        const Connection& c = connections[k];
        if (!c.inUse || c.toBlock != b.index) continue;
        const CAudioBlock& source = *blocks[c.fromBlock];
        InputPort& port = *b.ports[c.toPort];
        port.hasConnection = true;
        for (int v = 0; v < numVoices; ++v) {
            if (!source.active[v]) continue;
            if (!fold) MixInto(port, v, source.output[v], numSamples);
            else if (!source.monophonic || v == 0) MixInto(port, 0, source.output[v], numSamples);
        }
    }
}

void VrokInstance::MeasurePeaks(CAudioBlock& b, int numSamples) {
    int voices = b.monophonic ? 1 : numVoices;
    for (int v = 0; v < voices; ++v) {
        float peak = 0.0f;
        for (int i = 0; i < numSamples; ++i) {
            float x = b.output[v][i];
            float magnitude = std::fabs(peak);
            if ((x > 0.0f && x > magnitude) || (x < 0.0f && x < -magnitude)) peak = x;
        }
        b.level[v] = std::clamp(peak, -1.0f, 1.0f);
    }
}

void VrokInstance::RetireVoices() {
    // A voice whose sound has died in every output becomes free, even with its key down.
    for (int v = 0; v < numVoices; ++v) {
        bool sounding = false;
        for (int k = 0; k < orderCount && !sounding; ++k) {
            const CAudioBlock& b = *blocks[order[k]];
            sounding = b.isOutput && b.active[v];
        }
        if (!sounding && voiceActive[v]) voiceActive[v] = 0;
    }
}

void VrokInstance::RunInputs(StereoBuffers buffers, int numSamples) {
    if (numSamples <= 0 || numSamples > kMaxFrames) return;
    for (int slot = 0; slot < blocksEnd; ++slot)
        if (CAudioBlock* b = blocks[slot]; b && b->hasInputWork)
            b->InputWork(buffers, numSamples, kHostScale);
}

void VrokInstance::ChangeSampleRate(float rate) {
    // `sampleRate` itself is only written at construction and by the machine's Init, so
    // blocks made later start from the older rate.
    RebuildMasterEffects(rate);
    for (CAudioBlock* b : blocks)
        if (b) b->SetSampleRate(rate);
    Log(0, "Vrok instance samplerate adjusted");
}

void VrokInstance::RebuildMasterEffects(float rate) {
    auto newReverb = std::make_unique<MasterReverb::Reverb>(rate);
    auto newChorus = std::make_unique<MasterChorus>(rate);
    auto newDelay = std::make_unique<MasterDelay>(rate);
    {
        // A global setting may arrive from the GUI thread meanwhile; it writes under the lock.
        std::lock_guard guard(lock);
        reverb.swap(newReverb);
        chorus.swap(newChorus);
        delay.swap(newDelay);
    }
    // The old effects are freed here, outside the lock.
}
