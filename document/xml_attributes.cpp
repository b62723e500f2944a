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

float FloatAttribute(const TiXmlElement& element, const char* name, float missing) {
    const char* text = element.Attribute(name);
    return text ? ParseFloat(text) : missing;
}

void XmlBlockElement::SetAttribute(const char* name, const char* value) {
    if (writable) writable->SetAttribute(name, value);
}

const char* XmlBlockElement::Attribute(const char* name) const { return readable->Attribute(name); }

}  // namespace document
