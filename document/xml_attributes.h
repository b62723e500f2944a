// Attribute reading and writing shared by the patch records, and the element view that
// blocks see in SaveExtra and LoadExtra. Numbers are written as "%d" and "%f" would write
// them in the C locale and read as atoi and atof would, whatever the host's locale is:
// a German host must not write "0,500000".
#pragma once

#include "engine/block_element.h"

class TiXmlElement;

namespace document {

void SetIntAttribute(TiXmlElement& element, const char* name, int value);
// Six decimals, as "%f" prints.
void SetFloatAttribute(TiXmlElement& element, const char* name, float value);
// atoi and atof of the attribute's text; a missing attribute gives `missing`, and text that
// is not a number gives what atoi or atof give (0 when nothing parses).
int IntAttribute(const TiXmlElement& element, const char* name, int missing);
float FloatAttribute(const TiXmlElement& element, const char* name, float missing);
float ParseFloat(const char* text);
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
