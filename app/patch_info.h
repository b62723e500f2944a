// `vrok info`: what a patch holds, as text for people or as one JSON document.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

class VrokDoc;

namespace app {

// The text the global panel shows for setting `event` at `value`.
std::string DescribeGlobal(int event, float value, float sampleRate);

// Blocks in slot order (slot, type, display name, position, every parameter with its
// stored value and text), wires in table order (from, to, input), and the global
// settings in name order with their texts.
nlohmann::json PatchToJson(VrokDoc& document);
std::string PatchToText(VrokDoc& document, const std::string& title);

}  // namespace app
