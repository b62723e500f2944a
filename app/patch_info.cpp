// Listing a patch.
#include "app/patch_info.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>

#include "document/block_types.h"
#include "document/vrok_doc.h"
#include "engine/value_format.h"
#include "engine/vrok_instance.h"

namespace app {
namespace {

std::string DisplayName(int type) {
    const BlockType* row = FindBlockType(type);
    return row ? row->displayName : "?";
}

// Six decimals, as the patch file stores a value.
std::string Stored(float value) {
    char text[64];
    std::snprintf(text, sizeof text, "%f", double(value));
    return text;
}

// The stored value as JSON shows it: 0.3, not the float's 0.30000001192092896.
double StoredNumber(float value) { return std::strtod(Stored(value).c_str(), nullptr); }

}  // namespace

std::string DescribeGlobal(int event, float value, float sampleRate) {
    switch (event) {
        case 300: {
            const int voices = int(std::floor(value * 16.5f));
            return voices < 1 ? "1, legato" : std::to_string(voices);
        }
        case 1:
        case 101:
        case 201: return value == 0.0f ? "off" : FormatSignificant(value * 100.0, 3);
        case 207:
            return std::fabs(value - 0.5f) <= 0.01f ? "center" : FormatSignificant(std::fabs(value - 0.5) * 200.0, 3);
        case 400: return value == 0.0f ? "off" : FormatEnvelopeTime(value, sampleRate);
        case 401: return FormatSignificant(value * 24.0, 4);
        case 402: return FormatSignificant((value - 0.5) * 48.0, 4);
        default: return FormatSignificant(value * 100.0, 3);
    }
}

nlohmann::json PatchToJson(VrokDoc& document) {
    VrokInstance& engine = *document.engine;
    nlohmann::json blocks = nlohmann::json::array();
    for (int slot = 0; slot < kMaxBlocks; ++slot) {
        CAudioBlock* block = engine.blocks[slot];
        if (!block) continue;
        nlohmann::json parameters = nlohmann::json::array();
        for (int i = 0; i < block->numParameters; ++i) {
            const float value = block->values[size_t(i)];
            parameters.push_back({{"index", i},
                                  {"name", i < int(block->names.size()) ? block->names[size_t(i)] : ""},
                                  {"value", StoredNumber(value)},
                                  {"text", block->DescribeValue(i, value)}});
        }
        nlohmann::json entry = {{"slot", slot},
                                {"type", block->type},
                                {"name", DisplayName(block->type)},
                                {"x", block->posX},
                                {"y", block->posY},
                                {"parameters", parameters}};
        if (const PatchBlock* record = document.FindBlock(slot); record && !record->sampleKey.empty())
            entry["sample"] = record->sampleKey;
        blocks.push_back(std::move(entry));
    }
    nlohmann::json wires = nlohmann::json::array();
    for (const Connection& wire : engine.connections)
        if (wire.inUse) wires.push_back({{"from", wire.fromBlock}, {"to", wire.toBlock}, {"input", wire.toPort}});
    nlohmann::json globals = nlohmann::json::array();
    for (const auto& [name, parameter] : document.global->Parameters())
        globals.push_back({{"name", name},
                           {"event", parameter.event},
                           {"value", StoredNumber(parameter.value)},
                           {"text", DescribeGlobal(parameter.event, parameter.value, engine.sampleRate)}});
    nlohmann::json samples = nlohmann::json::array();
    for (const auto& sample : document.samples) {
        nlohmann::json players = nlohmann::json::array();
        for (const auto& record : document.patchBlocks) {
            auto* player = dynamic_cast<SamplePlayer*>(record->block);
            if (player && player->sample == sample.get()) players.push_back(record->block->index);
        }
        samples.push_back({{"name", sample->sampleName},
                           {"key", sample->sampleKey},
                           {"frames", sample->numFrames},
                           {"rate", StoredNumber(sample->dataRate.load())},
                           {"root", StoredNumber(sample->rootFrequency.load())},
                           {"players", players}});
    }
    return {{"blocks", blocks}, {"wires", wires}, {"globals", globals}, {"samples", samples}};
}

std::string PatchToText(VrokDoc& document, const std::string& title) {
    const nlohmann::json patch = PatchToJson(document);
    std::string out = title + "\n\nblocks (" + std::to_string(patch["blocks"].size()) + "):\n";
    char line[512];
    for (const auto& block : patch["blocks"]) {
        std::snprintf(line, sizeof line, "  slot %-3d type %-3d %-20s at %d,%d\n", block["slot"].get<int>(),
                      block["type"].get<int>(), block["name"].get<std::string>().c_str(), block["x"].get<int>(),
                      block["y"].get<int>());
        out += line;
        for (const auto& p : block["parameters"]) {
            std::snprintf(line, sizeof line, "      P%-2d %-14s %s  %s\n", p["index"].get<int>(),
                          p["name"].get<std::string>().c_str(), Stored(p["value"].get<float>()).c_str(),
                          p["text"].get<std::string>().c_str());
            out += line;
        }
    }
    out += "\nwires (" + std::to_string(patch["wires"].size()) + "):\n";
    for (const auto& wire : patch["wires"]) {
        std::snprintf(line, sizeof line, "  %d -> %d input %d\n", wire["from"].get<int>(), wire["to"].get<int>(),
                      wire["input"].get<int>());
        out += line;
    }
    out += "\nsamples (" + std::to_string(patch["samples"].size()) + "):\n";
    for (const auto& sample : patch["samples"]) {
        std::string players;
        for (const auto& slot : sample["players"]) players += (players.empty() ? " played by slot " : ", ") + slot.dump();
        std::snprintf(line, sizeof line, "  \"%s\" %u frames at %s Hz, root %s Hz, key %s%s\n",
                      sample["name"].get<std::string>().c_str(), sample["frames"].get<unsigned>(),
                      FormatSignificant(sample["rate"].get<double>(), 6).c_str(),
                      FormatSignificant(sample["root"].get<double>(), 6).c_str(),
                      sample["key"].get<std::string>().c_str(), players.c_str());
        out += line;
    }
    out += "\nglobals:\n";
    for (const auto& global : patch["globals"]) {
        std::snprintf(line, sizeof line, "  %-24s %s  %s\n", global["name"].get<std::string>().c_str(),
                      Stored(global["value"].get<float>()).c_str(), global["text"].get<std::string>().c_str());
        out += line;
    }
    return out;
}

}  // namespace app
