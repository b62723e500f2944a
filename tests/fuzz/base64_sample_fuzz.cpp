// Base64 sample data: the decoder alone, then a "SAMPLE" record holding the text. Decoding
// what was encoded gives the bytes back, a loaded sample holds only finite frames, and
// saving and loading it again gives the same frames bit for bit.
#include <tinyxml.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "document/base64.h"
#include "document/patch_records.h"
#include "fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    fuzz::QuietLog();
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::vector<uint8_t> bytes = document::DecodeBase64(text);
    fuzz::Check(bytes.size() <= size * 3 / 4, "decoded more bytes than the text can carry");
    fuzz::Check(document::DecodeBase64(document::EncodeBase64(bytes.data(), bytes.size())) == bytes,
                "encoding and decoding again changed the bytes");

    // An attribute ends at the first NUL, as it would in a parsed file.
    TiXmlElement element("SAMPLE");
    element.SetAttribute("sampledata", text.c_str());
    element.SetAttribute("samplename", "fuzz");
    SampleContainer sample;
    sample.Load(element);
    const std::vector<float> frames = sample.Frames();
    fuzz::Check(frames.size() == sample.numFrames, "frame count and frames disagree");
    for (float f : frames) fuzz::Check(std::isfinite(f), "a loaded frame is not finite");

    TiXmlElement saved("SAMPLE");
    sample.Save(saved);
    SampleContainer reloaded;
    reloaded.Load(saved);
    const std::vector<float> again = reloaded.Frames();
    fuzz::Check(again.size() == frames.size() &&
                    (frames.empty() || std::memcmp(again.data(), frames.data(), frames.size() * 4) == 0),
                "a saved sample loads back different");
    return 0;
}
