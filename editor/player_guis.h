// Block windows of the players: the sampler with its "load sample" button and the name of
// what it plays, the arpeggiator with a ticker of its pattern steps that follows the step
// being played and switches a step on or off with a click, and the knob block's large knob.
// GUI thread.
#pragma once

#include <string>

#include "editor/vrok_block_window.h"

namespace editor {

class SimpleSamplerGui : public VrokBlockWindow {
public:
    static constexpr int kLoadButtonId = 9100;

    using VrokBlockWindow::VrokBlockWindow;

    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    void OnCommand(int id) override;
    // The sample is a record of its own: an undo or a load elsewhere renames it without telling
    // this window, so the tick compares the name.
    void RefreshChangedValues() override;
    // Loads the file into the sampler as one undo step. A file that cannot be read is
    // refused with a message and leaves the sampler as it was. Returns whether it loaded.
    bool LoadSample(const std::string& path);
    // The name of the sample the block plays, or empty.
    std::string SampleName() const;

protected:
    void BuildWidgets() override;

private:
    int nameY = 0;
    std::string shownName;
};

class ArpGui;

// One box per pattern step, 11 pixels apart and 9 wide, in two rows of eight: steps switched on
// carry a dot, the step being played is filled, steps past the pattern's length are faint.
// Redrawn on the tick while the step moves.
class ArpTickerDisplay : public G::Window {
public:
    explicit ArpTickerDisplay(ArpGui* owner);

    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    bool OnLeftDown(int x, int y) override;
    // The step under a point, or -1 (also between boxes).
    int StepAt(int x, int y) const;
    // A step's box in the ticker's coordinates.
    static G::Rect Box(int step);

    ArpGui* owner;
    int shownStep = -1;
};

class ArpGui : public VrokBlockWindow {
public:
    using VrokBlockWindow::VrokBlockWindow;
    ~ArpGui() override;

    void OnTimer(int id) override;
    // Switches step `step` on or off as one undo step.
    void ToggleStep(int step);
    int CurrentStep() const;

    ArpTickerDisplay* ticker = nullptr;

protected:
    void BuildWidgets() override;
};

// A knob block: its one value on a large knob, named "knob".
class KnobBlockGui : public VrokBlockWindow {
public:
    using VrokBlockWindow::VrokBlockWindow;

protected:
    void BuildWidgets() override;
};

}  // namespace editor
