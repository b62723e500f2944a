// The block type table and the factory over it.
#include "document/block_types.h"

#include "blocks/analysers.h"
#include "blocks/delays.h"
#include "blocks/envelopes.h"
#include "blocks/eq_formant.h"
#include "blocks/filters.h"
#include "blocks/followers.h"
#include "blocks/lfo_values.h"
#include "blocks/outputs.h"
#include "blocks/sampler.h"
#include "blocks/shaped_oscillators.h"
#include "blocks/shapers.h"
#include "blocks/sources.h"
#include "blocks/wavetable_oscillators.h"
#include "engine/vrok_instance.h"
#include "fx/arpeggiator.h"

namespace {

template <class Block>
CAudioBlock* Make(VrokInstance& engine, float sampleRate) {
    return new Block(&engine, sampleRate);
}

template <int Knob>
CAudioBlock* MakeExtKnob(VrokInstance& engine, float sampleRate) {
    return new CExtKnobBlock(&engine, sampleRate, Knob);
}

constexpr int kArpeggiatorType = 44;

// Types 13..16 and 28..31 are the external knobs 0..7; they have no palette code.
const BlockType kBlockTypes[] = {
    // type palette  display name            create
    {0, 0x1001, "Output", Make<COutputBlock>},
    {1, 0x201, "Filter", Make<CFilterBlock>},
    {2, 0x801, "|Envelope", Make<CEnvelopeBlock>},
    {3, 0x802, "LFO", Make<CLFOBlock>},
    {4, 0x101, "|Osc", Make<COscBlock>},
    {5, 0x4001, "Scope", Make<CScopeBlock>},
    {6, 0x206, "Amplifier", Make<CAmpBlock>},
    {7, 0x104, "Noise", Make<CNoiseBlock>},
    {8, 0x804, "Knob", Make<CKnobBlock>},
    {9, -5, "Large Scope", Make<CLargeScopeBlock>},
    {10, 0x103, "Fixed Osc", Make<CFixedOscBlock>},
    {11, -5, "Spectrum", Make<CSpectrumBlock>},
    {12, -5, "VU-meter", Make<CVuBlock>},
    {13, 0, "ExtKnob T", MakeExtKnob<0>},
    {14, 0, "ExtKnob T", MakeExtKnob<1>},
    {15, 0, "ExtKnob T", MakeExtKnob<2>},
    {16, 0, "ExtKnob T", MakeExtKnob<3>},
    {17, 0x805, "|Velocity", Make<CVelocityBlock>},
    {18, 0x102, "|SubOsc", Make<CSubOscBlock>},
    {19, 0x202, "Delay", Make<CDelayBlock>},
    {20, 0x203, "|Delay", Make<CTrackDelayBlock>},
    {21, 0x204, "|Filterdelay", Make<CFilterDelayBlock>},
    {22, -5, "Spectrum Analyser", Make<CMegaSpectrumBlock>},
    {23, 0x803, "|Custom Envelope", Make<CCustomEnvelopeBlock>},
    {24, 0x205, "Waveshaper", Make<CWaveShaper>},
    {25, 0x1002, "Output", Make<CPanOutputBlock>},
    {26, 0x208, "Rescale", Make<CRescaleBlock>},
    {27, 0x207, "Invert", Make<CInvertBlock>},
    {28, 0, "ExtKnob T", MakeExtKnob<4>},
    {29, 0, "ExtKnob T", MakeExtKnob<5>},
    {30, 0, "ExtKnob T", MakeExtKnob<6>},
    {31, 0, "ExtKnob T", MakeExtKnob<7>},
    {32, 0x105, "|HyperOsc", Make<CHyperOscBlock>},
    {33, 0x806, "|Keytrack", Make<CKeyTrackBlock>},
    {34, 0x209, "BitCrusher", Make<CBitCrusherBlock>},
    {35, 0x80F, "|Random", Make<CRandomBlock>},
    {39, 0x106, "|Impulse", Make<CImpulseBlock>},
    {40, 0x20A, "Clipper", Make<CClipperBlock>},
    {41, 0x20B, "VU Tracker", Make<CVUTrackerBlock>},
    {42, 0x108, "|PWMOsc", Make<CPWMOscBlock>},
    {43, 0x107, "|SyncOsc", Make<CSyncOscBlock>},
    {44, 0x1006, "Arpeggiator", Make<CGlobalArpeggioBlock>},
    {46, 0x20C, "Crossfade", Make<CCrossfadeBlock>},
    {47, 0x811, "|ModWheel", Make<CModWheelBlock>},
    {48, 0x810, "|Aftertouch", Make<CAftertouchBlock>},
    {49, 0x109, "Input", Make<CInputBlock>},
    {50, 0x10A, "Stereo Input", Make<CInputPanBlock>},
    {51, 0x812, "EnvTrigger", Make<CEnvelopeFollower>},
    {52, 0x1008, "Audio Trigger", Make<CGlobalEnvTriggerBlock>},
    {53, 0x20D, "Monophone", Make<CMonoBlock>},
    {54, 0x813, "Dyn. Follower", Make<CDynamicsFollower>},
    {55, 0x814, "|Advanced Envelope", Make<CAdvancedEnvelope>},
    {56, 0x20E, "Filter", Make<CFilterBlock2>},
    {57, 0x20F, "Eq", Make<CEqBlock>},
    {58, 0x10B, "|Sampler", Make<CSimpleSamplerBlock>},
    {59, 0x210, "Formant", Make<CFormantBlock>},
};

}  // namespace

std::span<const BlockType> BlockTypes() { return kBlockTypes; }

const BlockType* FindBlockType(int type) {
    for (const BlockType& row : kBlockTypes)
        if (row.type == type) return &row;
    return nullptr;
}

CAudioBlock* CreateBlock(VrokInstance& engine, int type, float sampleRate) {
    const BlockType* row = FindBlockType(type);
    if (!row || !row->create) return nullptr;
    if (type == kArpeggiatorType && engine.arpeggiatorPresent) return nullptr;
    CAudioBlock* block = row->create(engine, sampleRate);
    block->type = type;
    return block;
}
