// Attribute reading and writing shared by the patch records, and the element view that
// blocks see in SaveExtra and LoadExtra. Numbers are written as "%d" and "%f" would write
// them in the C locale and read as atoi and atof would, whatever the host's locale is:
// a German host must not write "0,500000".
#pragma once

#include <string>

#include "engine/block_element.h"

class TiXmlDocument;
class TiXmlElement;

namespace document {

void SetIntAttribute(TiXmlElement& element, const char* name, int value);
// Six decimals, as "%f" prints.
void SetFloatAttribute(TiXmlElement& element, const char* name, float value);
// atoi and atof of the attribute's text; a missing attribute gives `missing`, and text that
// is not a number gives what atoi or atof give (0 when nothing parses).
int IntAttribute(const TiXmlElement& element, const char* name, int missing);
float FloatAttribute(const TiXmlElement& element, const char* name, float missing);
// The attribute's text as valid UTF-8, or `missing`. A file without an encoding declaration
// is read byte for byte, but is written back declared as UTF-8, where a stray byte can
// swallow the closing quote; so each byte that does not belong to a valid UTF-8 sequence is
// taken as the Latin-1 character it was most likely meant as.
std::string TextAttribute(const TiXmlElement& element, const char* name, const std::string& missing);
float ParseFloat(const char* text);
// Parses untrusted text into `xml`. TinyXML steps over a UTF-8 sequence by the length its
// lead byte announces, so a lead byte in the last bytes of the text carries its reads past
// the terminating 0: the text is parsed from a copy with room for the longest sequence.
void ParseXmlText(TiXmlDocument& xml, const std::string& text);
int ParseInt(const char* text);

// A block's view of its patch element. A view made over a const element ignores writes.
class XmlBlockElement : public BlockElement {
public:
    explicit XmlBlockElement(TiXmlElement& element) : writable(&element), readable(&element) {}
    explicit XmlBlockElement(const TiXmlElement& element) : readable(&element) {}
    void SetAttribute(const char* name, const char* value) override;
    const char* Attribute(const char* name) const override;

private:
    TiXmlElement* writable = nullptr;
    const TiXmlElement* readable;
};

}  // namespace document
