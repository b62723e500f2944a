// CAudioBlock's shared behaviour: construction, parameter tables, default operations.
#include "engine/audio_block.h"

#include <algorithm>

#include "engine/log.h"
#include "engine/value_format.h"
#include "engine/vrok_instance.h"

CAudioBlock::CAudioBlock(VrokInstance* engine, float sampleRate) : engine(engine), sampleRate(sampleRate) {}

CAudioBlock::~CAudioBlock() = default;

void CAudioBlock::SetSampleRate(float rate) { sampleRate = rate; }
void CAudioBlock::SetNote(float, float, int) {}
void CAudioBlock::NoteOn(int, int) {}
void CAudioBlock::NoteOff(int) {}
void CAudioBlock::SaveExtra(BlockElement&) {}
void CAudioBlock::LoadExtra(const BlockElement&) {}
void CAudioBlock::ParameterChanged(int) {}
void CAudioBlock::Work(int, int) {}
void CAudioBlock::Reset() {}
std::vector<std::wstring> CAudioBlock::ParameterChoices(int) { return {}; }
float CAudioBlock::GetLevel() { return 0.0f; }

void CAudioBlock::PrepareBlock(int) {
    // Only the running voices: flags above the count stay as they are until it rises.
    const int voices = engine->numVoices;
    for (auto& port : ports) {
        port->hasConnection = false;
        std::fill_n(port->written, voices, 0);
        if (port->readsInPlace)
            for (int v = 0; v < voices; ++v) port->rows[v] = port->buffer[v];
        port->cleared = true;
    }
}

// InputWork shares OutputWork's message on purpose; logs depend on the wording.
void CAudioBlock::OutputWork(StereoBuffers, int, float) { Log(0, "OutputWork does nothing!"); }
void CAudioBlock::InputWork(StereoBuffers, int, float) { Log(0, "OutputWork does nothing!"); }

void CAudioBlock::Configure(int parameterCount, int portCount, int blockCategory, const std::string& blockName) {
    ports.clear();
    for (int p = 0; p < portCount; ++p) ports.push_back(std::make_unique<InputPort>());
    numPorts = portCount;
    values.assign(parameterCount, 0.0f);
    kinds.assign(parameterCount, int(ParamKind::Knob));
    // Names survive FreeTables, so a second setup appends behind the first.
    names.resize(names.size() + parameterCount, "undefined");
    numParameters = parameterCount;
    category = blockCategory;
    name = blockName;
    defaultMonophonic = monophonic;
}

void CAudioBlock::DefineParameter(int index, const std::string& parameterName, ParamKind kind) {
    if (index < 0 || index >= numParameters) return;
    names[index] = parameterName;
    kinds[index] = int(kind);
}

void CAudioBlock::FreeTables() {
    ports.clear();
    values.clear();
    kinds.clear();
    numPorts = 0;
    numParameters = 0;
}

void CAudioBlock::SetParameter(int index, float value) {
    if (index < 0 || index >= numParameters) return;
    values[index] = Clamp01(value);
    ParameterChanged(index);
}

float CAudioBlock::GetParameter(int index) const {
    return index >= 0 && index < numParameters ? values[index] : 0.0f;
}

void CAudioBlock::ConfigureFromRows(const ParamRow* rows, int count, int portCount, int blockCategory,
                                    const char* blockName) {
    Configure(count, portCount, blockCategory, blockName);
    for (int i = 0; i < count; ++i) DefineParameter(i, rows[i].name, rows[i].kind);
    for (int i = 0; i < count; ++i) {
        values[i] = rows[i].defaultValue;
        ParameterChanged(i);
    }
}

std::string DescribeRowValue(const ParamRow& row, float value, float sampleRate) {
    switch (row.text) {
        case ValueText::Bipolar: return FormatBipolar(value);
        case ValueText::Semitones: return FormatSemitones(value);
        case ValueText::DecibelsOfSquare: return FormatDecibels(value * value);
        case ValueText::Pan: return FormatPan(value);
        case ValueText::Hertz: return FormatHertz(value);
        case ValueText::EnvelopeTime: return FormatEnvelopeTime(value, sampleRate);
        case ValueText::Percent: return FormatPercent(value);
        case ValueText::Custom:
        case ValueText::Empty: break;
    }
    return {};
}
