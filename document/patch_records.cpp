// Save and Load of the patch records, the routing of global settings to the engine, and
// the loading of sample files.
#include "document/patch_records.h"

#include <sndfile.h>
#include <tinyxml.h>

#include <bit>
#include <cmath>
#include <cstdio>

#include "document/base64.h"
#include "document/xml_attributes.h"
#include "engine/log.h"
#include "engine/vrok_instance.h"

using document::FloatAttribute;
using document::IntAttribute;
using document::SetFloatAttribute;
using document::SetIntAttribute;

// [SECTION] PatchBlock

PatchBlock::PatchBlock(VrokInstance& engine) : Storable("BLOCK"), engine(engine) {}

void PatchBlock::Save(TiXmlElement& element) {
    if (!block) {
        SetIntAttribute(element, "TYPE", type);
        SetIntAttribute(element, "X", x);
        SetIntAttribute(element, "Y", y);
        SetIntAttribute(element, "POS", pos);
        return;
    }
    SetIntAttribute(element, "TYPE", block->type);
    SetIntAttribute(element, "X", block->posX);
    SetIntAttribute(element, "Y", block->posY);
    SetIntAttribute(element, "POS", block->index);
    char name[16];
    for (int i = 0; i < block->numParameters; ++i) {
        std::snprintf(name, sizeof name, "P%d", i);
        SetFloatAttribute(element, name, block->values[i]);
    }
    document::XmlBlockElement extra(element);
    block->SaveExtra(extra);
}

void PatchBlock::Load(const TiXmlElement& element) {
    type = IntAttribute(element, "TYPE", 0);
    x = IntAttribute(element, "X", 0);
    y = IntAttribute(element, "Y", 0);
    pos = IntAttribute(element, "POS", -1);

    int slot = pos;
    if (block) {
        // An existing block keeps its slot, so wires that name it stay valid.
        slot = block->index;
        if (block->type != type) {
            engine.RemoveBlock(block);
            block = nullptr;
        }
    }
    if (!block) {
        int inserted = -1;
        if (!engine.InsertBlock(type, slot, &inserted)) return;
        block = engine.blocks[inserted];
    }
    block->posX = x;
    block->posY = y;

    char name[16];
    for (int i = 0; i < block->numParameters; ++i) {
        std::snprintf(name, sizeof name, "P%d", i);
        const char* text = element.Attribute(name);
        if (!text) continue;
        const float value = document::ParseFloat(text);
        // Unchanged values do not cook their constants again.
        if (value != block->values[i]) {
            block->values[i] = document::Clamp01(value);
            block->ParameterChanged(i);
        }
    }
    const document::XmlBlockElement extra(element);
    block->LoadExtra(extra);
}

// [SECTION] PatchConnection

PatchConnection::PatchConnection(VrokInstance& engine, std::function<PatchBlock*(int slot)> findBlock)
    : Storable("CONNECTION"), engine(engine), findBlock(std::move(findBlock)) {}

void PatchConnection::Save(TiXmlElement& element) {
    if (!connection) return;
    SetIntAttribute(element, "FROM", connection->fromBlock);
    SetIntAttribute(element, "TO", connection->toBlock);
    SetIntAttribute(element, "INPUTID", connection->toPort);
}

void PatchConnection::Load(const TiXmlElement& element) {
    from = IntAttribute(element, "FROM", 0);
    to = IntAttribute(element, "TO", 0);
    port = IntAttribute(element, "INPUTID", 0);
    if (connection) {
        engine.Disconnect(connection);
        connection = nullptr;
    }
    connection = engine.Connect(from, to, port);
    if (connection) {
        fromBlock = findBlock(from);
        toBlock = findBlock(to);
    } else {
        fromBlock = nullptr;
        toBlock = nullptr;
    }
    engine.RebuildOrder();
}

bool PatchConnection::Touches(const PatchBlock* patchBlock) const {
    return connection && patchBlock && (fromBlock == patchBlock || toBlock == patchBlock);
}

void PatchConnection::Forget() {
    connection = nullptr;
    fromBlock = nullptr;
    toBlock = nullptr;
}

// [SECTION] PatchGlobal

namespace {

struct GlobalRow {
    const char* name;
    int event;
    float defaultValue;
};

// Event numbers belong to their names; 206 and 207 run against the name order on purpose.
constexpr GlobalRow kGlobalRows[] = {
    {"Param_Reverb_Enable", 0, 0.0f},       {"Param_Reverb_WetDry", 1, 0.3f},
    {"Param_Reverb_Roomsize", 2, 0.5f},     {"Param_Reverb_Decay", 3, 0.5f},
    {"Param_Reverb_Damping", 4, 0.3f},      {"Param_Reverb_ModAmount", 5, 0.25f},
    {"Param_Reverb_ModSpeed", 6, 0.25f},    {"Param_Chorus_Enable", 100, 0.0f},
    {"Param_Chorus_WetDry", 101, 0.4f},     {"Param_Chorus_Speed", 102, 0.4f},
    {"Param_Chorus_Phasing", 103, 0.4f},    {"Param_Delay_Enable", 200, 0.0f},
    {"Param_Delay_WetDry", 201, 0.4f},      {"Param_Delay_Type", 202, 0.0f},
    {"Param_Delay_TempoSync", 203, 0.0f},   {"Param_Delay_Length", 204, 0.4f},
    {"Param_Delay_Cross", 205, 0.0f},       {"Param_Delay_Spacing", 207, 0.0f},
    {"Param_Delay_Feedback", 206, 0.0f},    {"Param_Polyphony", 300, 0.5f},
    {"Param_Voice_Portamento", 400, 0.0f},  {"Param_Voice_Bendrange", 401, 0.5f},
    {"Param_Voice_Transpose", 402, 0.5f},
};

}  // namespace

PatchGlobal::PatchGlobal(VrokInstance& engine) : Storable("GLOBAL"), engine(engine) {
    for (const GlobalRow& row : kGlobalRows)
        parameters.emplace(row.name, GlobalParameter{row.event, row.defaultValue, row.defaultValue});
}

void PatchGlobal::Save(TiXmlElement& element) {
    for (const auto& [name, parameter] : parameters) SetFloatAttribute(element, name.c_str(), parameter.value);
}

void PatchGlobal::Load(const TiXmlElement& element) {
    for (auto& [name, parameter] : parameters) {
        const float value = document::Clamp01(FloatAttribute(element, name.c_str(), parameter.defaultValue));
        if (value != parameter.value) {
            parameter.value = value;
            ParameterChanged(parameter);
        }
    }
}

bool PatchGlobal::SetValue(const std::string& name, float value) {
    auto found = parameters.find(name);
    if (found == parameters.end()) return false;
    value = document::Clamp01(value);
    if (value != found->second.value) {
        found->second.value = value;
        ParameterChanged(found->second);
    }
    return true;
}

float PatchGlobal::Value(const std::string& name) const {
    auto found = parameters.find(name);
    return found == parameters.end() ? 0.0f : found->second.value;
}

void PatchGlobal::NotifyAll() {
    for (const auto& [name, parameter] : parameters) ParameterChanged(parameter);
}

void PatchGlobal::ParameterChanged(const GlobalParameter& parameter) {
    const float value = parameter.value;
    // The flags and voice settings are read by Render; they change under the engine lock.
    std::lock_guard<std::recursive_mutex> guard(engine.lock);
    switch (parameter.event) {
        case 0: engine.reverbOn = value > 0.0f; break;
        case 100: engine.chorusOn = value > 0.0f; break;
        case 200: engine.delayOn = value > 0.0f; break;
        case 300: engine.SetVoiceCount(static_cast<int>(value * 16.5f), value == 0.0f); break;
        case 400: engine.SetPortamento(value); break;
        case 401:
            engine.bendRange = value * 24.0f;
            engine.SetBend(engine.bend);
            break;
        case 402:
            engine.transpose = (value - 0.5f) * 48.0f;
            engine.SetBend(engine.bend);
            break;
        default: ApplyMasterEffectParameter(parameter.event, value); break;
    }
}

// The controls of the reverb (events 1..6), the chorus (101..103) and the delay (201..207),
// written straight into the effects under the engine lock, so never beside Process.
void PatchGlobal::ApplyMasterEffectParameter(int event, float value) {
    if (MasterReverb::ReverbParameter* parameter = engine.reverb->ParameterById(event)) {
        if (parameter->value != value) {
            parameter->value = value;
            engine.reverb->ParameterUpdated(parameter);
        }
        return;
    }
    MasterChorus& chorus = *engine.chorus;
    MasterDelay& delay = *engine.delay;
    switch (event) {
        case 101: chorus.wet = value; break;
        case 102: chorus.SetSpeed(value); break;
        case 103: chorus.SetPhasing(value); break;
        case 201: delay.wet = value; break;
        case 202: delay.SetMode(static_cast<int>(value * 2.0f)); break;
        case 203: delay.SetTempoSync(value > 0.0f); break;
        case 204: delay.SetLength(value); break;
        case 205: delay.cross = value; break;
        case 206: delay.feedback = value * 0.9999f; break;
        case 207: delay.SetSpacing(value); break;
        default: break;
    }
}

// [SECTION] SampleContainer

SampleContainer::SampleContainer() : Storable("SAMPLE") {}

void SampleContainer::Save(TiXmlElement& element) {
    if (!data.empty()) {
        std::vector<uint8_t> bytes(data.size() * 4);
        for (size_t i = 0; i < data.size(); ++i) {
            const uint32_t word = std::bit_cast<uint32_t>(data[i]);
            for (int b = 0; b < 4; ++b) bytes[i * 4 + b] = static_cast<uint8_t>(word >> (8 * b));
        }
        element.SetAttribute("sampledata", document::EncodeBase64(bytes.data(), bytes.size()));
    }
    element.SetAttribute("samplename", sampleName);
}

void SampleContainer::Load(const TiXmlElement& element) {
    std::vector<float> samples;
    if (const char* text = element.Attribute("sampledata")) {
        const std::vector<uint8_t> bytes = document::DecodeBase64(text);
        // A trailing piece of a float is dropped.
        samples.resize(bytes.size() / 4);
        for (size_t i = 0; i < samples.size(); ++i) {
            uint32_t word = 0;
            for (int b = 0; b < 4; ++b) word |= uint32_t{bytes[i * 4 + b]} << (8 * b);
            samples[i] = std::bit_cast<float>(word);
        }
    }
    SetData(std::move(samples));
    const char* name = element.Attribute("samplename");
    sampleName = name ? name : "Undefined";
}

void SampleContainer::SetData(std::vector<float> samples) {
    {
        std::lock_guard<std::mutex> guard(lock);
        data.swap(samples);
    }
    // `samples` now holds the old array and is freed here, outside the lock.
}

bool SampleContainer::LoadSound(const std::string& path) {
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) {
        // The fixed name in this message is part of the log's wording.
        Log(1, "Not able to open input file input.wav.\n");
        return false;
    }
    const int channels = info.channels > 0 ? info.channels : 1;
    std::vector<float> samples;
    samples.reserve(static_cast<size_t>(info.frames > 0 ? info.frames : 0));
    // Whole frames per read of at most 1024 doubles.
    const int framesPerPiece = channels <= 1024 ? 1024 / channels : 1;
    std::vector<double> piece(static_cast<size_t>(framesPerPiece) * channels);
    const float scale = 1.0f / static_cast<float>(channels);
    for (;;) {
        const sf_count_t read = sf_read_double(file, piece.data(), static_cast<sf_count_t>(piece.size()));
        const sf_count_t frames = read / channels;
        for (sf_count_t f = 0; f < frames; ++f) {
            double sum = 0.0;
            for (int c = 0; c < channels; ++c) sum += piece[f * channels + c];
            samples.push_back(static_cast<float>(sum) * scale);
        }
        if (read < static_cast<sf_count_t>(piece.size())) break;
    }
    sf_close(file);
    if (samples.empty()) return false;
    dataRate = static_cast<float>(info.samplerate);
    SetData(std::move(samples));
    return true;
}
