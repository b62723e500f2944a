// Block windows with a live picture below their parameters: the scope's trace, the filter's
// response and the output's level. The picture is redrawn on the canvas's 25 ms tick from what
// the block captured, read without a lock (single-writer rings, flags, atomic values); nothing
// is read or drawn while no editor is open. GUI thread.
#pragma once

#include <array>
#include <vector>

#include "editor/vrok_block_window.h"
#include "engine/audio_block.h"
#include "g/bitmap.h"

class CScopeBlock;
class CFilterBlock;

namespace editor {

class DisplayBlockGui;

// The picture's window: draws through its owner and turns presses into display clicks.
class DisplayBlockDisplayArea : public G::Window {
public:
    explicit DisplayBlockDisplayArea(DisplayBlockGui* owner);

    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    bool OnLeftDown(int x, int y) override;
    bool OnLeftUp(int x, int y) override;
    bool OnMouseEnter(int x, int y) override;
    bool OnMouseLeave(int x, int y) override;

    DisplayBlockGui* owner;
    bool hover = false;
    int presses = 0;
    bool pressed = false;
    int pressX = 0, pressY = 0;
};

class DisplayBlockGui : public VrokBlockWindow {
public:
    DisplayBlockGui(VrokDocWindow* canvas, PatchBlock* patchBlock, int displayHeight, bool ticking);
    ~DisplayBlockGui() override;

    // Base picture: the pale panel colour framed in black. A block without an audio object
    // shows only this.
    virtual void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h);
    // A press on the picture, clamped to it.
    virtual void OnDisplayClick(int x, int y, int w, int h, int clickX, int clickY) {}
    // Whether the tick should redraw the picture; pictures of live data always change.
    virtual bool PictureChanged() { return true; }
    void OnTimer(int id) override;

    DisplayBlockDisplayArea* area = nullptr;
    bool ticking;

protected:
    void BuildWidgets() override;

private:
    int displayHeight;
};

// The scope's trace: per channel a ring of the block's samples taken one per decimation
// step, drawn as a filled curve about the centre line, optionally started at an upward
// crossing. Polyphonic mode draws each sounding voice in its own hue.
class ScopeGui : public DisplayBlockGui {
public:
    static constexpr int kRingLength = 1024;

    ScopeGui(VrokDocWindow* canvas, PatchBlock* patchBlock);
    void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) override;

    // Takes what the block's rings hold into the display rings. Returns the channels that
    // received samples.
    int TakeSamples(int w);

    struct Channel {
        std::array<float, kRingLength> ring{};
        int write = 0;
        int filled = 0;
        int phase = 0;  // samples into the current decimation step
        bool live = false;
    };
    std::array<Channel, kMaxVoices> channels;

private:
    void DrawChannel(G::Renderer& renderer, const Channel& channel, int w, int h, bool sync, G::Color stroke,
                     G::Color fill);
    CScopeBlock* Scope() const;
};

// The magnitude response of the filter from the coefficients the audio runs on: the design of
// the knobs filled, and a thin curve for each voice that is modulated away from it.
class FilterGui : public DisplayBlockGui {
public:
    static constexpr int kColumns = 64;

    FilterGui(VrokDocWindow* canvas, PatchBlock* patchBlock);
    void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) override;

    // Frequency of curve column `c` (0..kColumns) on a log axis over the cutoff knob's range.
    static double ColumnHz(int c);
    // |H| of one section {b0 b1 b2 a1 a2} at `hz`.
    static double Magnitude(const float (&set)[5], double hz, double sampleRate);

    float sets[kMaxVoices + 1][5] = {};
    bool haveSnapshot = false;

private:
    CFilterBlock* Filter() const;
};

// The output's level as a bar, green to red over twice the width so that normal levels stay
// green.
class OutputGui : public DisplayBlockGui {
public:
    OutputGui(VrokDocWindow* canvas, PatchBlock* patchBlock);
    void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) override;
};

// The VU meter's level on a decibel bar, -48 dB to +6 dB, with a tick at 0 dB. The level is the
// block's sum over voices of their mean absolute values.
class VuMeterGui : public DisplayBlockGui {
public:
    static constexpr float kFloorDb = -48.0f;
    static constexpr float kCeilingDb = 6.0f;

    VuMeterGui(VrokDocWindow* canvas, PatchBlock* patchBlock);
    void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) override;
    // Where a level lands on a bar `w` pixels wide.
    static float BarLength(float level, int w);
};

// The large scope: the last sample block that passed through, as one trace across the width.
class LargeScopeGui : public DisplayBlockGui {
public:
    LargeScopeGui(VrokDocWindow* canvas, PatchBlock* patchBlock);
    void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) override;
};

// The envelope's shape from its knobs (attack, decay, a held sustain, release, each stage as
// wide as its knob is far up), with a dot for each sounding voice where it stands.
class EnvGui : public DisplayBlockGui {
public:
    EnvGui(VrokDocWindow* canvas, PatchBlock* patchBlock);
    void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) override;
    // The corner points of the shape in a `w` by `h` picture: start, attack peak, decay end,
    // sustain end, release end.
    std::array<G::FloatPoint, 5> Shape(int w, int h) const;
};

// The short spectrum: 128 bars over a linear frequency axis from 256-sample captures, in
// decibels from -72 to 0 (a full-scale sine reaches the top). Bars fall back slowly.
class SpectrumGui : public DisplayBlockGui {
public:
    static constexpr float kFloorDb = -72.0f;
    static constexpr float kFallPerTick = 0.04f;  // of the height

    SpectrumGui(VrokDocWindow* canvas, PatchBlock* patchBlock);
    void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) override;
};

// The spectrum analyser: a scrolling picture, newest spectrum at the right, 128 rows over the
// zoomed bin range (low at the bottom), coloured through the block's ramp from black (-96 dB
// and below) to white (0 dB). Peaks decay by "falloff" decibels per new column.
class SpectrumAnalyserGui : public DisplayBlockGui {
public:
    static constexpr int kSize = 128;
    static constexpr float kFloorDb = -96.0f;

    SpectrumAnalyserGui(VrokDocWindow* canvas, PatchBlock* patchBlock);
    void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) override;
    // Takes a full capture, if there is one, into a new column. Returns whether it did.
    bool TakeColumn();

    G::Bitmap picture{kSize, kSize, 3};

private:
    std::vector<float> capture;
    std::array<float, kSize> levelsDb{};
};

// The EQ's response: the three bands' sections multiplied, on the filter display's log axis,
// in decibels (+-18 dB over the height, 0 dB in the middle).
class EqGui : public DisplayBlockGui {
public:
    static constexpr float kRangeDb = 18.0f;

    EqGui(VrokDocWindow* canvas, PatchBlock* patchBlock);
    void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) override;
    // Only after a band's settings changed (the block's flag).
    bool PictureChanged() override;
};

// A needle meter over a half circle: a needle and a wedge per sounding voice in its hue, and
// a green needle for the mix. The needle swings v x 0.3926875 - 0.19634375 radians about the
// vertical for a level v in 0..1.
class VUTrackerGui : public DisplayBlockGui {
public:
    VUTrackerGui(VrokDocWindow* canvas, PatchBlock* patchBlock);
    void DrawDisplay(G::Renderer& renderer, int x, int y, int w, int h) override;
    // The needle's angle from vertical, in radians, for a level.
    static float NeedleAngle(float level);
};

// The level of a follower or trigger on the output's bar.
class FollowerLevelGui : public OutputGui {
public:
    using OutputGui::OutputGui;
};

class EnvFollowerGui : public FollowerLevelGui {
public:
    using FollowerLevelGui::FollowerLevelGui;
};

class DynFollowerGui : public FollowerLevelGui {
public:
    using FollowerLevelGui::FollowerLevelGui;
};

class AudioTriggerGui : public FollowerLevelGui {
public:
    using FollowerLevelGui::FollowerLevelGui;
};

}  // namespace editor
