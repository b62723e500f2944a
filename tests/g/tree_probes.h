// Probe controls for tree tests: a swatch that paints one colour and records every event.
#pragma once

#include <string>
#include <vector>

#include "g/control.h"
#include "g/renderer.h"

namespace gtest_support {

class Swatch : public G::CustomControl {
public:
    Swatch(G::Control* parent, uint32_t rgb, std::string label = {})
        : CustomControl(parent), colour(rgb), tag(std::move(label)) {}

    bool OnDraw(G::Renderer& renderer, G::Rect) override {
        ++draws;
        G::Bitmap& b = renderer.Target();
        for (int y = 0; y < bounds.h; ++y) {
            uint8_t* p = b.Row(y);
            for (int x = 0; x < bounds.w; ++x, p += 3) {
                p[0] = colour & 0xFF;
                p[1] = (colour >> 8) & 0xFF;
                p[2] = (colour >> 16) & 0xFF;
            }
        }
        return true;
    }

    bool Record(const std::string& what, int x, int y, bool result) {
        events.push_back(tag + ":" + what + "(" + std::to_string(x) + "," + std::to_string(y) + ")");
        if (log) log->push_back(events.back());
        return result;
    }
    bool Record(const std::string& what, int value, bool result) {
        events.push_back(tag + ":" + what + "(" + std::to_string(value) + ")");
        if (log) log->push_back(events.back());
        return result;
    }

    bool OnLeftDown(int x, int y) override { return Record("down", x, y, accepts); }
    bool OnLeftUp(int x, int y) override { return Record("up", x, y, accepts); }
    bool OnMouseMove(int x, int y) override { return Record("move", x, y, accepts); }
    bool OnMouseEnter(int x, int y) override { return Record("enter", x, y, true); }
    bool OnMouseLeave(int x, int y) override { return Record("leave", x, y, true); }
    bool OnDoubleClick(int x, int y) override { return Record("double", x, y, accepts); }
    bool OnMiddleDown(int x, int y) override { return Record("middle", x, y, takesMiddle); }
    bool OnKeyDown(int key) override { return Record("key", key, accepts); }
    bool OnChar(int code) override { return Record("char", code, accepts); }
    bool OnWheel(int notches) override { return Record("wheel", notches, accepts); }
    bool OnDropFile(const std::string& path) override {
        return Record("drop" + std::to_string(path.size()), 0, accepts);
    }
    void OnTimer(int id) override { Record("timer", id, true); }
    bool OnFocusChanged(bool gained) override { return Record("focus", gained, true); }

    uint32_t colour;
    std::string tag;
    int draws = 0;
    bool accepts = true;
    bool takesMiddle = false;
    std::vector<std::string> events;
    std::vector<std::string>* log = nullptr;
};

// Adds a swatch child at the given bounds.
inline Swatch* AddSwatch(G::Control* parent, G::Rect r, uint32_t rgb, std::string tag = {}) {
    auto* s = new Swatch(parent, rgb, std::move(tag));
    parent->AddChild(s);
    s->SetBounds(r.x, r.y, r.w, r.h);
    return s;
}

}  // namespace gtest_support
