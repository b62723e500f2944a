// Save and Load of the patch records, the routing of global settings to the engine, and
// the loading of sample files.
#include "document/patch_records.h"

#include <sndfile.h>
#include <tinyxml.h>

#include <algorithm>
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
using document::TextAttribute;

// [SECTION] PatchBlock

PatchBlock::PatchBlock(VrokInstance& engine) : Storable("BLOCK"), engine(engine) {}

void PatchBlock::Save(TiXmlElement& element) {
    if (!block) {
        SetIntAttribute(element, "TYPE", type);
        SetIntAttribute(element, "X", x);
        SetIntAttribute(element, "Y", y);
        SetIntAttribute(element, "POS", pos);
        if (!sampleKey.empty()) element.SetAttribute("SAMPLE", sampleKey);
        return;
    }
    SetIntAttribute(element, "TYPE", block->type);
    SetIntAttribute(element, "X", block->posX);
    SetIntAttribute(element, "Y", block->posY);
    SetIntAttribute(element, "POS", block->index);
    if (auto* player = dynamic_cast<SamplePlayer*>(block)) {
        // The live link wins; a link waiting for its sample is kept as it was read.
        const auto* container = dynamic_cast<const SampleContainer*>(player->sample);
        const std::string& key = container ? container->sampleKey : sampleKey;
        if (!key.empty()) element.SetAttribute("SAMPLE", key);
    }
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
    sampleKey = TextAttribute(element, "SAMPLE", "");

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
            block->values[i] = Clamp01(value);
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
    const bool hadWire = connection != nullptr;
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
    // A refused wire changes nothing, and a file of thousands must not rebuild each time.
    if (hadWire || connection) engine.RebuildOrder();
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
        // Text that is not a number counts as missing; anything else is brought into 0..1.
        const float read = FloatAttribute(element, name.c_str(), parameter.defaultValue);
        const float value = std::isnan(read) ? parameter.defaultValue : Clamp01(read);
        if (value != parameter.value) {
            parameter.value = value;
            ParameterChanged(parameter);
        }
    }
}

bool PatchGlobal::SetValue(const std::string& name, float value) {
    auto found = parameters.find(name);
    if (found == parameters.end() || std::isnan(value)) return false;
    value = Clamp01(value);
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
        case 203: break;  // "TempoSync" is kept with the patch and changes nothing
        case 204: delay.SetLength(value); break;
        case 205: delay.cross = value; break;
        case 206: delay.feedback = value * 0.9999f; break;
        case 207: delay.SetSpacing(value); break;
        default: break;
    }
}

// [SECTION] SampleContainer

namespace {

// Characters a writer may wrap base64 with; they are skipped without a word.
bool IsBlank(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }

bool IsBase64(char c) {
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

std::string Quoted(const std::string& name) { return "sample \"" + name + "\": "; }

// Frames that are not finite numbers become silence; returns how many there were.
size_t SilenceNonFinite(std::vector<float>& frames) {
    size_t count = 0;
    for (float& x : frames) {
        if (!std::isfinite(x)) {
            x = 0.0f;
            ++count;
        }
    }
    return count;
}

std::string TooLong(uint64_t frames) {
    return std::to_string(frames) + " frames; a sample holds at most " + std::to_string(kMaxSampleFrames);
}

}  // namespace

SampleContainer::SampleContainer() : Storable("SAMPLE") {}

void SampleContainer::Save(TiXmlElement& element) {
    const std::vector<float> frames = Frames();
    if (!frames.empty()) {
        std::vector<uint8_t> bytes(frames.size() * 4);
        for (size_t i = 0; i < frames.size(); ++i) {
            const uint32_t word = std::bit_cast<uint32_t>(frames[i]);
            for (int b = 0; b < 4; ++b) bytes[i * 4 + b] = static_cast<uint8_t>(word >> (8 * b));
        }
        element.SetAttribute("sampledata", document::EncodeBase64(bytes.data(), bytes.size()));
    }
    element.SetAttribute("samplename", sampleName);
    SetFloatAttribute(element, "samplerate", dataRate.load());
    SetFloatAttribute(element, "rootfrequency", rootFrequency.load());
    if (!sampleKey.empty()) element.SetAttribute("samplekey", sampleKey);
}

void SampleContainer::Load(const TiXmlElement& element) {
    problems.clear();
    sampleName = TextAttribute(element, "samplename", "Undefined");
    sampleKey = TextAttribute(element, "samplekey", "");

    std::vector<float> samples;
    if (const char* text = element.Attribute("sampledata")) {
        const std::string_view encoded(text);
        // Four characters carry three bytes; refuse before decoding what could never fit.
        const uint64_t mostFrames = uint64_t(encoded.size()) / 4 * 3 / 4;
        if (mostFrames > kMaxSampleFrames) {
            problems.push_back(Quoted(sampleName) + "about " + TooLong(mostFrames) + "; it stays empty");
        } else {
            size_t stray = 0;
            for (char c : encoded) {
                if (c == '=') break;
                if (!IsBase64(c) && !IsBlank(c)) ++stray;
            }
            const std::vector<uint8_t> bytes = document::DecodeBase64(encoded);
            const size_t leftover = bytes.size() % 4;
            if (stray > 0 || leftover > 0)
                problems.push_back(Quoted(sampleName) + "sampledata is damaged: " + std::to_string(stray) +
                                   " characters outside base64 skipped, " + std::to_string(leftover) +
                                   " bytes of a partial frame dropped");
            samples.resize(bytes.size() / 4);
            for (size_t i = 0; i < samples.size(); ++i) {
                uint32_t word = 0;
                for (int b = 0; b < 4; ++b) word |= uint32_t{bytes[i * 4 + b]} << (8 * b);
                samples[i] = std::bit_cast<float>(word);
            }
            if (const size_t bad = SilenceNonFinite(samples))
                problems.push_back(Quoted(sampleName) + std::to_string(bad) +
                                   " frames are not finite numbers; they play as silence");
        }
    }
    SetFrames(std::move(samples));

    const float rate = FloatAttribute(element, "samplerate", 44100.0f);
    const float root = FloatAttribute(element, "rootfrequency", 440.0f);
    const bool rateOk = std::isfinite(rate) && rate > 0.0f;
    const bool rootOk = std::isfinite(root) && root > 0.0f;
    if (!rateOk) problems.push_back(Quoted(sampleName) + "samplerate must be a positive number; 44100 used");
    if (!rootOk) problems.push_back(Quoted(sampleName) + "rootfrequency must be a positive number; 440 used");
    dataRate.store(rateOk ? rate : 44100.0f);
    rootFrequency.store(rootOk ? root : 440.0f);
}

bool SampleContainer::LoadSound(const std::string& path) {
    problems.clear();
    // The old frames go first, whatever follows.
    if (numFrames > 0) Clear();
    SF_INFO info{};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) {
        // The fixed name in this line is part of the log's wording.
        Log(1, "Not able to open input file input.wav.\n");
        problems.push_back(path + ": cannot read as a sound file: " + sf_strerror(nullptr));
        return false;
    }
    auto fail = [&](const std::string& what) {
        sf_close(file);
        problems.push_back(path + ": " + what);
        return false;
    };
    if (info.channels <= 0) return fail("has no channels");
    if (info.frames <= 0) return fail("holds no frames");
    if (uint64_t(info.frames) > kMaxSampleFrames) return fail(TooLong(uint64_t(info.frames)));
    const int channels = info.channels;
    std::vector<float> samples;
    try {
        samples.reserve(size_t(info.frames));
    } catch (const std::bad_alloc&) {
        return fail("out of memory for " + std::to_string(info.frames) + " frames");
    }
    // Pieces of 1024 doubles, trimmed to whole frames.
    const int framesPerPiece = std::max(1, 1024 / channels);
    std::vector<double> piece(size_t(framesPerPiece) * size_t(channels));
    const float scale = 1.0f / float(channels);
    while (samples.size() < size_t(info.frames)) {
        const sf_count_t read = sf_read_double(file, piece.data(), sf_count_t(piece.size()));
        const sf_count_t frames = read / channels;
        for (sf_count_t f = 0; f < frames && samples.size() < size_t(info.frames); ++f) {
            double sum = 0.0;
            for (int c = 0; c < channels; ++c) sum += piece[size_t(f * channels + c)];
            samples.push_back(float(sum) * scale);
        }
        if (read < sf_count_t(piece.size())) break;
    }
    sf_close(file);
    if (samples.size() < size_t(info.frames))
        problems.push_back(path + ": ends after " + std::to_string(samples.size()) + " of " +
                           std::to_string(info.frames) + " frames; the rest is silence");
    samples.resize(size_t(info.frames), 0.0f);
    if (const size_t bad = SilenceNonFinite(samples))
        problems.push_back(path + ": " + std::to_string(bad) +
                           " frames are not finite numbers; they play as silence");
    dataRate.store(float(info.samplerate));
    SetFrames(std::move(samples));
    return true;
}
