// PianoWindow: the key map, held keys and a small keyboard picture of what sounds.
#include "editor/piano_window.h"

#include "engine/vrok_instance.h"
#include "g/renderer.h"
#include "g/theme.h"

namespace editor {
namespace {

struct KeyNote {
    int key;
    int offset;
};

// The lower row plays the first octave, the upper row and the digits the next one and a half.
constexpr KeyNote kKeyMap[] = {
    {'Z', 0},  {'S', 1},  {'X', 2},  {'D', 3},  {'C', 4},  {'V', 5},  {'G', 6},  {'B', 7},
    {'H', 8},  {'N', 9},  {'J', 10}, {'M', 11}, {'Q', 12}, {'2', 13}, {'W', 14}, {'3', 15},
    {'E', 16}, {'R', 17}, {'5', 18}, {'T', 19}, {'6', 20}, {'Y', 21}, {'7', 22}, {'U', 23},
    {'I', 24}, {'9', 25}, {'O', 26}, {'0', 27}, {'P', 28},
};
constexpr int kOctaveDownKey = 106;
constexpr int kOctaveUpKey = 111;
constexpr int kLowestOctave = 0;
constexpr int kHighestOctave = 8;

}  // namespace

PianoWindow::PianoWindow(G::Control* parentControl, VrokInstance& engineRef)
    : G::Window(parentControl), engine(engineRef) {
    visible = false;
}

int PianoWindow::NoteOffset(int key) {
    for (const KeyNote& k : kKeyMap)
        if (k.key == key) return k.offset;
    return -1;
}

bool PianoWindow::OnKeyDown(int key) {
    // These raw codes arrive translated to other numbers, so they stay without effect.
    if (key == kOctaveDownKey || key == kOctaveUpKey) {
        OnCommand(key == kOctaveDownKey ? 1 : 2);
        return true;
    }
    if (key < 0 || key >= int(held.size()) || NoteOffset(key) < 0) return false;
    if (held[key]) return true;
    held[key] = true;
    const int note = NoteOf(key);
    if (note >= 0 && note < int(sounding.size())) sounding[note] = true;
    Invalidate(nullptr);
    engine.PressKey(note, 127);  // takes the engine lock
    return true;
}

bool PianoWindow::OnKeyUp(int key) {
    if (key < 0 || key >= int(held.size()) || NoteOffset(key) < 0) return false;
    if (!held[key]) return true;
    held[key] = false;
    const int note = NoteOf(key);
    if (note >= 0 && note < int(sounding.size())) sounding[note] = false;
    Invalidate(nullptr);
    engine.ReleaseKey(note);
    return true;
}

void PianoWindow::OnCommand(int id) {
    if (id == 1 && octave > kLowestOctave) --octave;
    if (id == 2 && octave < kHighestOctave) ++octave;
    Invalidate(nullptr);
}

bool PianoWindow::OnDraw(G::Renderer& renderer, G::Rect) {
    const float w = float(bounds.w);
    const float h = float(bounds.h);
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(0)), G::FloatRect{0, 0, w, h});
    const int keys = 29;
    const float keyWidth = w / keys;
    for (int i = 0; i < keys; ++i) {
        const int note = octave * 12 + i + 1;
        const bool on = note >= 0 && note < int(sounding.size()) && sounding[note];
        const int inOctave = i % 12;
        const bool black = inOctave == 1 || inOctave == 3 || inOctave == 6 || inOctave == 8 || inOctave == 10;
        const G::Color fill = on ? G::theme::Palette(G::theme::kAccent) : black ? 0xFF303030 : 0xFFFFFFFF;
        renderer.FillRect(G::Brush::Solid(fill), G::FloatRect{i * keyWidth, 0, keyWidth, h});
        renderer.StrokeRect(G::Pen{0xFF999F9D, 1.0f},
                            G::FloatRect{i * keyWidth + 0.5f, 0.5f, keyWidth - 1, h - 1});
    }
    return true;
}

}  // namespace editor
