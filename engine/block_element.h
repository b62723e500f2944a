// The XML element of a block, as SaveExtra and LoadExtra see it. Declared here so the
// audio side never sees XML; document/ implements it over the patch's element.
#pragma once

class BlockElement {
public:
    virtual ~BlockElement() = default;
    virtual void SetAttribute(const char* name, const char* value) = 0;
    // Null when the attribute is absent.
    virtual const char* Attribute(const char* name) const = 0;
};
