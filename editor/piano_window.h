// PianoWindow: the computer keyboard as a two-octave piano. Letter and digit keys play notes
// through the engine's key input (which hands them to the arpeggiator when it runs); a key held
// down plays once, however often the keyboard repeats it. Hidden unless shown. GUI thread.
#pragma once

#include <array>

#include "g/window.h"

class VrokInstance;

namespace editor {

class PianoWindow : public G::Window {
public:
    PianoWindow(G::Control* parent, VrokInstance& engine);

    // The key's offset from the octave's first note, or -1 for a key that plays nothing.
    static int NoteOffset(int key);

    // True when the key plays a note (even a repeat, which does nothing).
    bool OnKeyDown(int key) override;
    bool OnKeyUp(int key) override;
    // 1 and 2 step the octave down and up.
    void OnCommand(int id) override;
    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;

    // The engine's note number for the key, given the octave.
    int NoteOf(int key) const { return octave * 12 + NoteOffset(key) + 1; }

    int octave = 5;  // Z plays middle C
    std::array<bool, 256> held{};
    std::array<bool, 128> sounding{};

private:
    VrokInstance& engine;
};

}  // namespace editor
