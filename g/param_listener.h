// The contract between a widget and the owner of the value it shows. A widget sends exactly
// one BeginChange, any number of ValueChanged and one EndChange per gesture (a wheel notch
// sends a lone ValueChanged). `index` is the widget's id field. GUI thread only.
#pragma once

#include <string>

namespace G {

// Marks the sender of listener calls.
class FloatParamGenerator {
public:
    virtual ~FloatParamGenerator() = default;
};

class FloatParamListener {
public:
    virtual ~FloatParamListener() = default;
    virtual void BeginChange(FloatParamGenerator* generator, int index) = 0;
    virtual void ValueChanged(FloatParamGenerator* generator, int index, float value) = 0;
    virtual void EndChange(FloatParamGenerator* generator, int index) = 0;
    virtual std::wstring DescribeValue(int index, float value) = 0;
};

class TextParamGenerator {
public:
    virtual ~TextParamGenerator() = default;
};

class TextParamListener {
public:
    virtual ~TextParamListener() = default;
    virtual void TextChanged(TextParamGenerator* generator, int index, const std::wstring& text) = 0;
};

}  // namespace G
