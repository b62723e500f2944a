// Command-line sample loading: argument checks, then the document's own load operation.
#include "app/sample_options.h"

#include <cmath>
#include <cstdlib>

#include "app/note_arguments.h"
#include "blocks/sampler.h"
#include "document/vrok_doc.h"

namespace app {
namespace {

struct SlotArgument {
    PatchBlock* sampler;
    std::string value;
};

// "SLOT=VALUE", SLOT naming a sampler of the patch.
SlotArgument ParseSlotArgument(VrokDoc& document, const char* option, const std::string& text) {
    const size_t equals = text.find('=');
    const std::string slotText = text.substr(0, equals);
    char* end = nullptr;
    const long slot = std::strtol(slotText.c_str(), &end, 10);
    if (equals == std::string::npos || slotText.empty() || *end != '\0' || equals + 1 == text.size())
        throw UsageError(std::string(option) + " '" + text +
                         "': expected SLOT=" + (std::string(option) == "--sample" ? "FILE" : "HZ"));
    PatchBlock* block = slot >= 0 && slot < 256 ? document.FindBlock(int(slot)) : nullptr;
    if (!block || !dynamic_cast<CSimpleSamplerBlock*>(block->block))
        throw UsageError(std::string(option) + " '" + text + "': slot " + slotText +
                         " holds no sampler (see vrok info)");
    return {block, text.substr(equals + 1)};
}

}  // namespace

std::vector<std::string> ApplySampleOptions(VrokDoc& document, const std::vector<std::string>& samples,
                                            const std::vector<std::string>& roots) {
    // Every argument is checked before any file is read.
    std::vector<SlotArgument> loads, rootArguments;
    for (const std::string& text : samples) loads.push_back(ParseSlotArgument(document, "--sample", text));
    std::vector<float> rootHz;
    for (const std::string& text : roots) {
        rootArguments.push_back(ParseSlotArgument(document, "--sample-root", text));
        char* end = nullptr;
        const float hz = std::strtof(rootArguments.back().value.c_str(), &end);
        if (*end != '\0' || !std::isfinite(hz) || hz <= 0.0f)
            throw UsageError("--sample-root '" + text + "': the root must be a frequency in Hz above 0");
        rootHz.push_back(hz);
    }

    std::vector<std::string> warnings;
    for (const SlotArgument& load : loads) {
        SampleContainer* sample = document.LoadSampleInto(load.sampler, load.value);
        if (sample->numFrames == 0) {
            std::string message;
            for (const std::string& line : sample->problems) message += (message.empty() ? "" : "\n") + line;
            throw InputError(message.empty() ? load.value + ": holds no frames" : message);
        }
        for (const std::string& line : sample->problems) warnings.push_back(line);
    }
    for (size_t i = 0; i < rootArguments.size(); ++i) {
        auto* player = dynamic_cast<CSimpleSamplerBlock*>(rootArguments[i].sampler->block);
        auto* sample = dynamic_cast<SampleContainer*>(player->sample);
        if (!sample)
            throw UsageError("--sample-root for slot " + std::to_string(player->index) +
                             ": that sampler plays no sample (give it one with --sample)");
        document.SetSampleRoot(sample, rootHz[i]);
    }
    return warnings;
}

}  // namespace app
