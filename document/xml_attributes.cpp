// Locale-independent number attributes and the XML view of a block's element.
#include "document/xml_attributes.h"

#include <tinyxml.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <limits>
#include <cstdlib>
#include <cstring>

namespace document {

void SetIntAttribute(TiXmlElement& element, const char* name, int value) {
    char text[16];
    auto result = std::to_chars(text, text + sizeof text - 1, value);
    *result.ptr = '\0';
    element.SetAttribute(name, text);
}

void SetFloatAttribute(TiXmlElement& element, const char* name, float value) {
    char text[64];
    auto result = std::to_chars(text, text + sizeof text - 1, static_cast<double>(value), std::chars_format::fixed, 6);
    if (result.ec != std::errc()) {
        element.SetAttribute(name, "0.000000");
        return;
    }
    *result.ptr = '\0';
    element.SetAttribute(name, text);
}

float ParseFloat(const char* text) {
    if (!text) return 0.0f;
    while (std::isspace(static_cast<unsigned char>(*text))) ++text;
    const bool negative = *text == '-';
    if (*text == '+' || *text == '-') ++text;
    double value = 0.0;
    std::from_chars(text, text + std::strlen(text), value, std::chars_format::general);
    // A double beyond float's range has no float to convert to: it reads as infinity.
    if (std::fabs(value) > double(std::numeric_limits<float>::max()))
        return negative ? -std::numeric_limits<float>::infinity() : std::numeric_limits<float>::infinity();
    return static_cast<float>(negative ? -value : value);
}

int ParseInt(const char* text) {
    // atoi's reading, with numbers beyond int held at its ends instead of undefined.
    if (!text) return 0;
    const long value = std::strtol(text, nullptr, 10);
    return int(std::clamp<long>(value, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

int IntAttribute(const TiXmlElement& element, const char* name, int missing) {
    const char* text = element.Attribute(name);
    return text ? ParseInt(text) : missing;
}

namespace {

// Length of the valid UTF-8 sequence at `text`, or 0 when there is none.
int Utf8SequenceLength(const unsigned char* text) {
    const unsigned char lead = text[0];
    if (lead < 0x80) return 1;
    // The second byte's range, narrowed where a wider one would allow overlong forms,
    // surrogates or code points past U+10FFFF.
    int length = 0;
    unsigned char low = 0x80, high = 0xBF;
    if (lead >= 0xC2 && lead <= 0xDF) {
        length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        length = 3;
        if (lead == 0xE0) low = 0xA0;
        if (lead == 0xED) high = 0x9F;
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        length = 4;
        if (lead == 0xF0) low = 0x90;
        if (lead == 0xF4) high = 0x8F;
    } else {
        return 0;
    }
    if (text[1] < low || text[1] > high) return 0;
    for (int i = 2; i < length; ++i)
        if (text[i] < 0x80 || text[i] > 0xBF) return 0;  // the terminating 0 stops here too
    return length;
}

}  // namespace

std::string TextAttribute(const TiXmlElement& element, const char* name, const std::string& missing) {
    const char* text = element.Attribute(name);
    if (!text) return missing;
    std::string result;
    for (const auto* p = reinterpret_cast<const unsigned char*>(text); *p;) {
        if (const int length = Utf8SequenceLength(p)) {
            result.append(reinterpret_cast<const char*>(p), size_t(length));
            p += length;
        } else {
            result += char(0xC0 | *p >> 6);
            result += char(0x80 | (*p & 0x3F));
            ++p;
        }
    }
    return result;
}

void ParseXmlText(TiXmlDocument& xml, const std::string& text) {
    constexpr size_t kLongestUtf8Sequence = 4;
    const std::string padded = text + std::string(kLongestUtf8Sequence, '\0');
    xml.Parse(padded.c_str());
}

float FloatAttribute(const TiXmlElement& element, const char* name, float missing) {
    const char* text = element.Attribute(name);
    return text ? ParseFloat(text) : missing;
}

void XmlBlockElement::SetAttribute(const char* name, const char* value) {
    if (writable) writable->SetAttribute(name, value);
}

const char* XmlBlockElement::Attribute(const char* name) const { return readable->Attribute(name); }

}  // namespace document
