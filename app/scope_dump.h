// `vrok render --scope-dump FILE.json`: what the patch's analysers captured by the end of a
// render, read through the same interface a display polls, so it can be checked without one.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

class VrokDoc;

namespace app {

// One entry per analyser block in slot order: "slot", "type", "name", and by kind
//  - Scope: "polyphonic", "gain", and "rings", each non-empty ring as "voice", "available"
//    (unread samples) and "samples" (the newest, at most 4096);
//  - Large Scope: "row", the last row it showed;
//  - VU-meter: "meter", the last complete sum of the voices' mean absolute values;
//  - Spectrum, Spectrum Analyser: "fill" and "limit" of the capture, and once it is full
//    "capture", "window" ("hamming" or "kaiser-bessel-derived"), "magnitudes" of the
//    windowed transform from bin 0 and "peakBin"; the analyser adds "visibleStart" and
//    "visibleEnd" in bins.
// Reading takes the captures (rings are drained, a full spectrum capture is rewound), as a
// display would. Not on the audio thread.
nlohmann::json CaptureToJson(VrokDoc& document);

// Writes CaptureToJson as a whole file, or throws InputError naming the file.
void WriteScopeDump(VrokDoc& document, const std::string& path);

}  // namespace app
