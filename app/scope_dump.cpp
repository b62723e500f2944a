// Analyser captures as JSON.
#include "app/scope_dump.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <vector>

#include "app/note_arguments.h"
#include "blocks/analysers.h"
#include "document/block_types.h"
#include "document/vrok_doc.h"
#include "engine/atomic_file.h"
#include "engine/vrok_instance.h"

namespace app {
namespace {

constexpr int kMaxRingSamples = 4096;

nlohmann::json ScopeToJson(CScopeBlock& scope) {
    nlohmann::json rings = nlohmann::json::array();
    std::vector<float> samples(kMaxRingSamples);
    for (int v = 0; v < kMaxVoices; ++v) {
        ScopeRing& ring = scope.rings[v];
        const int available = ring.Available();
        if (available == 0) continue;
        ring.SkipToNewest(kMaxRingSamples);
        samples.resize(size_t(ring.Read(samples.data(), kMaxRingSamples)));
        rings.push_back({{"voice", v}, {"available", available}, {"samples", samples}});
        samples.resize(kMaxRingSamples);
    }
    return {{"polyphonic", scope.polyphonic.load()}, {"gain", scope.gain.load()}, {"rings", rings}};
}

nlohmann::json SpectrumToJson(CSpectrumBase& block, const double* window, const char* windowName,
                              int length) {
    nlohmann::json entry = {{"fill", block.capture.FillPosition()}, {"limit", block.capture.Limit()}};
    std::vector<float> capture;
    if (!block.capture.Take(capture)) return entry;
    const std::vector<float> magnitudes = MagnitudeSpectrum(capture, window, length);
    entry["capture"] = capture;
    entry["window"] = windowName;
    entry["magnitudes"] = magnitudes;
    entry["peakBin"] = std::max_element(magnitudes.begin(), magnitudes.end()) - magnitudes.begin();
    return entry;
}

}  // namespace

nlohmann::json CaptureToJson(VrokDoc& document) {
    VrokInstance& engine = *document.engine;
    nlohmann::json analysers = nlohmann::json::array();
    for (int slot = 0; slot < kMaxBlocks; ++slot) {
        CAudioBlock* block = engine.blocks[slot];
        if (!block) continue;
        nlohmann::json entry;
        if (auto* scope = dynamic_cast<CScopeBlock*>(block)) {
            entry = ScopeToJson(*scope);
        } else if (auto* large = dynamic_cast<CLargeScopeBlock*>(block)) {
            float row[kMaxFrames];
            const int n = large->display.Read(row);
            entry = {{"row", std::vector<float>(row, row + n)}};
        } else if (auto* vu = dynamic_cast<CVuBlock*>(block)) {
            entry = {{"meter", vu->displayMeter.load()}};
        } else if (auto* mega = dynamic_cast<CMegaSpectrumBlock*>(block)) {
            const bool kaiser = mega->mode.load();
            entry = SpectrumToJson(*mega, kaiser ? mega->kaiserBessel.data() : mega->hamming.data(),
                                   kaiser ? "kaiser-bessel-derived" : "hamming", CMegaSpectrumBlock::kLength);
            entry["visibleStart"] = mega->visibleStart.load();
            entry["visibleEnd"] = mega->visibleEnd.load();
        } else if (auto* spectrum = dynamic_cast<CSpectrumBlock*>(block)) {
            entry = SpectrumToJson(*spectrum, spectrum->hamming.data(), "hamming", CSpectrumBlock::kLength);
        } else {
            continue;
        }
        const BlockType* row = FindBlockType(block->type);
        entry["slot"] = slot;
        entry["type"] = block->type;
        entry["name"] = row ? row->displayName : block->name;
        analysers.push_back(std::move(entry));
    }
    return {{"analysers", analysers}};
}

void WriteScopeDump(VrokDoc& document, const std::string& path) {
    const std::string text = CaptureToJson(document).dump(1) + "\n";
    std::string error;
    const bool ok = WriteFileAtomically(
        path, [&](std::FILE* file) { return std::fwrite(text.data(), 1, text.size(), file) == text.size(); },
        &error);
    if (!ok) throw InputError(error.empty() ? path + ": cannot write" : error);
}

}  // namespace app
