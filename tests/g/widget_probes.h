// Probes for widget tests: a listener that records every call, an owner that records the
// commands of its buttons, a plain white background, and a pixel reader for a control's
// own bitmap.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "g/control.h"
#include "g/param_listener.h"
#include "g/renderer.h"
#include "g/theme.h"

namespace gtest_support {

struct ParamCall {
    char kind;  // 'b' begin, 'v' value, 'e' end
    int index;
    float value;
    G::FloatParamGenerator* generator;
};

class RecordingListener : public G::FloatParamListener {
public:
    void BeginChange(G::FloatParamGenerator* g, int index) override { calls.push_back({'b', index, 0, g}); }
    void ValueChanged(G::FloatParamGenerator* g, int index, float value) override {
        calls.push_back({'v', index, value, g});
    }
    void EndChange(G::FloatParamGenerator* g, int index) override { calls.push_back({'e', index, 0, g}); }
    std::wstring DescribeValue(int, float) override { return {}; }

    // The kinds in order, as "bve".
    std::string Kinds() const {
        std::string s;
        for (const ParamCall& c : calls) s += c.kind;
        return s;
    }
    // The values of the ValueChanged calls in order.
    std::vector<float> Values() const {
        std::vector<float> v;
        for (const ParamCall& c : calls)
            if (c.kind == 'v') v.push_back(c.value);
        return v;
    }

    std::vector<ParamCall> calls;
};

class RecordingTextListener : public G::TextParamListener {
public:
    void TextChanged(G::TextParamGenerator*, int index, const std::wstring& text) override {
        texts.push_back(text);
        lastIndex = index;
    }
    std::vector<std::wstring> texts;
    int lastIndex = -1;
};

// Records the commands its buttons send, as "cmd(7)", "alt(7)", "double(7)".
class CommandOwner : public G::CustomControl {
public:
    using CustomControl::CustomControl;
    void OnCommand(int id) override { events.push_back("cmd(" + std::to_string(id) + ")"); }
    void OnAltCommand(int id) override { events.push_back("alt(" + std::to_string(id) + ")"); }
    void OnCommandDoubleClick(int id) override { events.push_back("double(" + std::to_string(id) + ")"); }
    bool OnDraw(G::Renderer& renderer, G::Rect) override {
        renderer.FillRect(G::Brush::Solid(0xFFFFFFFF), G::FloatRect{0, 0, float(bounds.w), float(bounds.h)});
        return true;
    }
    std::vector<std::string> events;
};

// Paints plain white, so a widget's own colours stand out.
class WhiteBackground : public G::BackgroundRenderer {
public:
    void PaintBackground(G::Renderer& renderer, const G::Rect& area) override {
        renderer.FillRect(G::Brush::Solid(0xFFFFFFFF),
                          G::FloatRect{float(area.x), float(area.y), float(area.w), float(area.h)});
    }
};

// A pixel of a control's last rendering, as 0xRRGGBB.
inline uint32_t PixelOf(const G::Control& control, int x, int y) {
    const uint8_t* p = control.bitmap->Row(y) + x * 3;
    return (uint32_t{p[2]} << 16) | (uint32_t{p[1]} << 8) | p[0];
}

// The palette entry without its alpha byte, to compare with PixelOf.
inline uint32_t Rgb(int paletteIndex) { return G::theme::Palette(paletteIndex) & 0xFFFFFF; }

}  // namespace gtest_support
