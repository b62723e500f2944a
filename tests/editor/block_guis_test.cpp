// The block windows with GUIs of their own: curve strokes, cycles and buttons writing the
// block's point parameters as single undo steps; the sampler's load through the file dialog
// and a refused file; the arpeggiator's step boxes; and the display pictures checked at pixels
// from known captured data (scope, filter response, output level).
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <numbers>
#include <set>

#include "blocks/analysers.h"
#include "blocks/envelopes.h"
#include "blocks/eq_formant.h"
#include "blocks/filters.h"
#include "blocks/followers.h"
#include "blocks/outputs.h"
#include "blocks/sampler.h"
#include "blocks/shapers.h"
#include "editor/curve_editors.h"
#include "editor/display_guis.h"
#include "editor/player_guis.h"
#include "editor_fixture.h"
#include "fx/arpeggiator.h"
#include "g/keys.h"
#include "g/parameter_knob.h"
#include "g/widget_probes.h"
#include "sound_files.h"

using namespace editortest;
using gtest_support::PixelOf;

namespace {

// The area's top-left corner in canvas coordinates.
G::Rect AreaOnCanvas(editor::VrokBlockWindow* w, G::Control* area) {
    return G::Rect{w->bounds.x + area->bounds.x, w->bounds.y + area->bounds.y, area->bounds.w,
                   area->bounds.h};
}

// One timer tick, then a repaint: what a display needs to show new data.
void Tick(Editor& e) {
    e.native->Send(NativeEventKind::Timer, 1, 0);
    e.Paint();
}

void RightDrag(Editor& e, int x0, int y0, int x1, int y1) {
    e.Move(x0, y0);
    e.native->Send(NativeEventKind::RightDown, x0, y0 + kTop);
    e.Move((x0 + x1) / 2, (y0 + y1) / 2);
    e.Move(x1, y1);
    e.native->Send(NativeEventKind::RightUp, x1, y1 + kTop);
}

std::vector<float> Points(const PatchBlock* b, int first, int count) {
    return std::vector<float>(b->block->values.begin() + first, b->block->values.begin() + first + count);
}

struct WaveshaperSetup {
    Editor e;
    PatchBlock* block = e.AddFromMenu("Modify/Waveshaper", 60, 60);
    editor::WaveshaperGui* gui = dynamic_cast<editor::WaveshaperGui*>(e.WindowOf(block));
    G::Rect area = gui ? AreaOnCanvas(gui, gui->area) : G::Rect{};
};

TEST(CurveEditors, AStrokeDrawsAStraightLineClampedAtTheAreaEdgesAsOneUndoStep) {
    WaveshaperSetup s;
    ASSERT_NE(s.gui, nullptr);
    ASSERT_EQ(s.area.w, 128);
    const std::vector<float> before = Points(s.block, 2, 128);
    const size_t steps = UndoSteps(s.e.doc);
    // Pressed inside, then above the top at column 10, on to below the bottom at column 40.
    s.e.Down(s.area.x + 10, s.area.y + 1);
    s.e.Move(s.area.x + 10, s.area.y - 30);
    s.e.Move(s.area.x + 25, s.area.y + s.area.h / 2);
    s.e.Move(s.area.x + 40, s.area.y + s.area.h + 30);
    s.e.Up(s.area.x + 40, s.area.y + s.area.h + 30);
    const std::vector<float> after = Points(s.block, 2, 128);
    EXPECT_FLOAT_EQ(after[10], 1.0f);
    EXPECT_FLOAT_EQ(after[40], 0.0f);
    for (int i = 10; i <= 40; ++i) EXPECT_LE(after[i], after[std::max(10, i - 1)] + 1e-6f) << i;
    EXPECT_NEAR(after[25], 0.5f, 0.02f);
    EXPECT_EQ(after[9], before[9]);
    EXPECT_EQ(after[41], before[41]);
    // The audio's table follows the parameters: point 40 at 0 is an output of -1.
    EXPECT_FLOAT_EQ(static_cast<CWaveShaper*>(s.block->block)->shapeTable[40], -1.0f);
    EXPECT_EQ(UndoSteps(s.e.doc), steps + 1);
    s.e.doc.Undo();
    const std::vector<float> undone = Points(s.block, 2, 128);
    for (int i = 0; i < 128; ++i) EXPECT_NEAR(undone[i], before[i], 1e-5f) << i;
}

TEST(CurveEditors, ShiftDragOverTheWholeAreaRestoresTheStraightLine) {
    WaveshaperSetup s;
    ASSERT_NE(s.gui, nullptr);
    s.gui->OnCommand(editor::CurveBlockGui::kFirstButtonId + editor::CurveBlockGui::kInvert);
    EXPECT_NEAR(s.block->block->values[2], 1.0f, 1e-6f);
    const size_t steps = UndoSteps(s.e.doc);
    G::SetCurrentModifiers(G::kShiftDown);
    s.e.Down(s.area.x + 1, s.area.y + 5, G::kShiftDown);
    s.e.Move(s.area.x - 20, s.area.y + 5, G::kShiftDown);
    for (int x = 0; x <= s.area.w + 20; x += 16) s.e.Move(s.area.x + x, s.area.y + 5, G::kShiftDown);
    s.e.Up(s.area.x + s.area.w + 20, s.area.y + 5, G::kShiftDown);
    G::SetCurrentModifiers(0);
    const std::vector<float> after = Points(s.block, 2, 128);
    for (int i = 0; i < 128; ++i) EXPECT_NEAR(after[i], float(i) / 128.0f, 0.01f) << i;
    EXPECT_EQ(UndoSteps(s.e.doc), steps + 1);
}

TEST(CurveEditors, RightDragCyclesSidewaysAndAWholeTurnOrNoMovementChangesNothing) {
    WaveshaperSetup s;
    ASSERT_NE(s.gui, nullptr);
    const std::vector<float> line = Points(s.block, 2, 128);
    const int y = s.area.y + 20;
    const size_t steps = UndoSteps(s.e.doc);
    RightDrag(s.e, s.area.x + 5, y, s.area.x + 5, y);
    EXPECT_EQ(UndoSteps(s.e.doc), steps) << "no movement writes nothing";

    RightDrag(s.e, s.area.x, y, s.area.x + 10, y);
    const std::vector<float> moved = Points(s.block, 2, 128);
    for (int i = 0; i < 128; ++i) EXPECT_FLOAT_EQ(moved[i], line[(i - 10 + 128) % 128]) << i;
    EXPECT_EQ(UndoSteps(s.e.doc), steps + 1);

    // Back by ten in two moves, then a whole turn: the line again.
    RightDrag(s.e, s.area.x + 10, y, s.area.x, y);
    RightDrag(s.e, s.area.x + 128, y, s.area.x, y);
    const std::vector<float> back = Points(s.block, 2, 128);
    for (int i = 0; i < 128; ++i) EXPECT_FLOAT_EQ(back[i], line[i]) << i;

    // Lifting by 64 pixels adds a half and wraps through the top.
    RightDrag(s.e, s.area.x + 5, s.area.y + 70, s.area.x + 5, s.area.y + 6);
    const std::vector<float> lifted = Points(s.block, 2, 128);
    EXPECT_NEAR(lifted[0], line[0] + 0.5f, 1e-5f);
    EXPECT_NEAR(lifted[127], line[127] - 0.5f, 1e-5f);
}

TEST(CurveEditors, ButtonsReshapeTheEnvelopeInOneStepEach) {
    Editor e;
    PatchBlock* b = e.AddFromMenu("Control/Custom Envelope", 60, 60);
    auto* gui = dynamic_cast<editor::CustomEnvBlockGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    auto* env = static_cast<CCustomEnvelopeBlock*>(b->block);
    using Gui = editor::CurveBlockGui;
    struct Case {
        Gui::Button button;
        float first, last;  // curve outputs (-1..1) at the ends afterwards
    };
    // From the reset fall: 1 -> 0; inverted -1 -> 0; flipped back 0 -> -1; smoothing keeps ends.
    const Case cases[] = {{Gui::kReset, 1.0f, 0.0f},
                          {Gui::kInvert, -1.0f, 0.0f},
                          {Gui::kFlip, 0.0f, -1.0f},
                          {Gui::kSmooth, 0.0f, -1.0f}};
    for (const Case& c : cases) {
        const size_t steps = UndoSteps(e.doc);
        gui->OnCommand(Gui::kFirstButtonId + c.button);
        EXPECT_EQ(UndoSteps(e.doc), steps + 1) << c.button;
        EXPECT_NEAR(env->curve[0], c.first, 1e-5f) << c.button;
        EXPECT_NEAR(env->curve[191], c.last, 1e-5f) << c.button;
    }
    // The envelope's area maps its 192 points over 128 pixels: a stroke reaches the last one.
    const G::Rect area = AreaOnCanvas(gui, gui->area);
    e.Drag(area.x + area.w - 3, area.y, area.x + area.w + 10, area.y);
    EXPECT_FLOAT_EQ(b->block->values[4 + 191], 1.0f);
}

TEST(CurveEditors, AdvancedEnvelopeHandlesDragTheirBendParametersInOneStep) {
    Editor e;
    PatchBlock* b = e.AddFromMenu("Control/Advanced Envelope", 60, 60);
    auto* gui = dynamic_cast<editor::AdvancedEnvBlockGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    ASSERT_NE(gui->area, nullptr);
    // The handle rows are drawn, not slid; the stage times and levels keep their widgets.
    for (int i = 0; i < 18; ++i) EXPECT_EQ(gui->widgets[i] == nullptr, (i >= 5 && i <= 12) || i >= 14) << i;
    const G::Rect area = AreaOnCanvas(gui, gui->area);
    struct Case {
        int handle;
        float u, v;  // where to drop it in its stage's unit square
    };
    // Attack's first handle, decay's second, release's first; the last one dragged past the edge.
    const Case cases[] = {{0, 0.25f, 0.75f}, {3, 0.5f, 0.1f}, {4, 1.4f, -0.5f}};
    for (const Case& c : cases) {
        const G::FloatPoint from = gui->area->HandleAt(c.handle);
        const int quarter = c.handle < 2 ? 0 : c.handle < 4 ? 1 : 3;
        const float width = float(area.w - 1) / 4.0f;
        const int toX = area.x + int(std::lround(0.5f + (float(quarter) + c.u) * width));
        const int toY = area.y + int(std::lround(0.5f + (1.0f - c.v) * float(area.h - 1)));
        const size_t steps = UndoSteps(e.doc);
        e.Drag(area.x + int(from.x), area.y + int(from.y), toX, toY);
        const int p = editor::AdvancedEnvEnvelopeArea::HandleParameter(c.handle);
        EXPECT_NEAR(b->block->values[p], std::clamp(c.u, 0.0f, 1.0f), 0.04f) << c.handle;
        EXPECT_NEAR(b->block->values[p + 1], std::clamp(c.v, 0.0f, 1.0f), 0.04f) << c.handle;
        EXPECT_EQ(UndoSteps(e.doc), steps + 1) << c.handle;
    }
    // The audio's attack curve follows: with the first handle high and early it rises fast.
    auto* env = static_cast<CAdvancedEnvelope*>(b->block);
    EXPECT_GT(ReadCurve(env->curves[0].attackCurve, 0.25f), 0.5f);
    // A press away from every handle changes nothing and leaves no step.
    const size_t steps = UndoSteps(e.doc);
    const std::vector<float> before = b->block->values;
    e.Drag(area.x + area.w / 2 + 2, area.y + area.h - 3, area.x + 10, area.y + 10);
    EXPECT_EQ(b->block->values, before);
    EXPECT_EQ(UndoSteps(e.doc), steps);
}

// [SECTION] players

TEST(PlayerGuis, SamplerLoadsThroughTheDialogAndRefusesAFileItCannotRead) {
    Editor e;
    PatchBlock* b = e.AddFromMenu("Generate/Simple Sampler", 60, 60);
    auto* gui = dynamic_cast<editor::SimpleSamplerGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    const auto dir = std::filesystem::temp_directory_path() / "vrok-gui-test";
    std::filesystem::create_directories(dir);
    const std::string wav = (dir / "tone.wav").string();
    std::vector<float> tone(4410);
    for (size_t i = 0; i < tone.size(); ++i) tone[i] = 0.5f * float(std::sin(0.06 * double(i)));
    ASSERT_TRUE(soundfiles::Write(wav, SF_FORMAT_WAV | SF_FORMAT_FLOAT, 44100, 1, tone));
    e.native->dialogPath = wav;
    gui->OnCommand(editor::SimpleSamplerGui::kLoadButtonId);
    ASSERT_EQ(e.native->dialogs.size(), 1u);
    EXPECT_EQ(e.native->dialogs[0], "Load..");
    EXPECT_EQ(gui->SampleName(), "tone");
    const size_t steps = UndoSteps(e.doc);

    const std::string junk = (dir / "notes.wav").string();
    std::ofstream(junk) << "not a sound";
    e.native->dialogPath = junk;
    gui->OnCommand(editor::SimpleSamplerGui::kLoadButtonId);
    ASSERT_EQ(e.native->messages.size(), 1u);
    EXPECT_NE(e.native->messages[0].find("notes.wav"), std::string::npos) << e.native->messages[0];
    EXPECT_EQ(gui->SampleName(), "tone");
    auto* sample = dynamic_cast<SampleContainer*>(static_cast<CSimpleSamplerBlock*>(b->block)->sample);
    ASSERT_NE(sample, nullptr);
    EXPECT_EQ(sample->Frames().size(), tone.size()) << "the refused file left the frames";
    EXPECT_EQ(UndoSteps(e.doc), steps);

    // A second file goes into the same sample, which is not the block's record: undoing it
    // puts the old name back on the panel at the next tick.
    const std::string second = (dir / "second.wav").string();
    std::filesystem::copy_file(wav, second, std::filesystem::copy_options::overwrite_existing);
    e.native->dialogPath = second;
    gui->OnCommand(editor::SimpleSamplerGui::kLoadButtonId);
    EXPECT_EQ(gui->SampleName(), "second");
    e.Paint();
    e.doc.Undo();
    EXPECT_EQ(gui->SampleName(), "tone");
    e.Paint();
    // The name's line at the panel's foot, before and after the tick.
    auto nameLine = [&] {
        std::vector<uint32_t> line;
        for (int y = gui->Height() - 15; y < gui->Height() - 1; ++y)
            for (int x = 0; x < gui->Width(); ++x) line.push_back(PixelOf(*gui, x, y));
        return line;
    };
    const std::vector<uint32_t> stale = nameLine();
    Tick(e);
    EXPECT_NE(nameLine(), stale) << "the panel redraws its sample name";
}

TEST(PlayerGuis, ArpeggiatorBoxesSwitchStepsAndFollowThePlayedStep) {
    Editor e;
    PatchBlock* b = e.AddFromMenu("Output/Arpeggiator", 60, 60);
    auto* gui = dynamic_cast<editor::ArpGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    ASSERT_NE(gui->ticker, nullptr);
    auto* arp = static_cast<CGlobalArpeggioBlock*>(b->block);
    const G::Rect ticker = AreaOnCanvas(gui, gui->ticker);
    const size_t steps = UndoSteps(e.doc);
    const G::Rect box3 = editor::ArpTickerDisplay::Box(3);
    e.Click(ticker.x + box3.x + 4, ticker.y + box3.y + 4);
    EXPECT_FLOAT_EQ(b->block->values[4 + 3], 0.0f);
    EXPECT_FALSE(arp->stepOn[3].load());
    EXPECT_EQ(UndoSteps(e.doc), steps + 1);
    e.Click(ticker.x + box3.x + 10, ticker.y + box3.y + 4);  // the gap between boxes
    EXPECT_EQ(UndoSteps(e.doc), steps + 1);

    const uint32_t strong = G::theme::Palette(gui->strongColorIndex) & 0xFFFFFF;
    // Step 13 sits in the second row.
    for (int step : {5, 13}) {
        arp->stepIndex.store(step);
        Tick(e);
        for (int i = 0; i < kArpSteps; ++i) {
            const G::Rect r = editor::ArpTickerDisplay::Box(i);
            EXPECT_EQ(PixelOf(*gui->ticker, r.x + 2, r.y + 6) == strong, i == step) << step << " " << i;
        }
    }
}

// [SECTION] displays

uint32_t Green(uint32_t rgb) { return (rgb >> 8) & 0xFF; }

TEST(DisplayGuis, ScopeDrawsTheCentreLineOnSilenceAndTheCrestsOfASine) {
    Editor e;
    PatchBlock* b = e.AddFromMenu("Analyse/Scope", 60, 60);
    auto* gui = dynamic_cast<editor::ScopeGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    auto* scope = static_cast<CScopeBlock*>(b->block);
    gui->ValueChanged(nullptr, 1, 0.0f);  // one channel: the mix
    const int w = gui->area->bounds.w;
    const int h = gui->area->bounds.h;
    std::vector<float> silence(400, 0.0f);
    scope->rings[0].Write(silence.data(), 1.0f, int(silence.size()));
    Tick(e);
    const int mid = h / 2;
    for (int x = 10; x < w - 10; x += 17) {
        EXPECT_GT(Green(PixelOf(*gui->area, x, mid)), 0xC0u) << x;
        EXPECT_LT(Green(PixelOf(*gui->area, x, mid - 6)), 0x40u) << x;
    }
    // A sine of period 64 at full scale: crests touch row 1, troughs row h - 2.
    std::vector<float> sine(400);
    for (size_t i = 0; i < sine.size(); ++i)
        sine[i] = float(std::sin(2.0 * std::numbers::pi * double(i) / 64.0));
    scope->rings[0].Write(sine.data(), 1.0f, int(sine.size()));
    Tick(e);
    int top = h, bottom = 0;
    for (int y = 0; y < h; ++y)
        for (int x = 2; x < w - 2; ++x)
            if (Green(PixelOf(*gui->area, x, y)) > 0xC0) top = std::min(top, y), bottom = std::max(bottom, y);
    EXPECT_LE(top, 2);
    EXPECT_GE(bottom, h - 3);
}

// The gain a sine of `hz` gets through a copy of `record`, measured after it settles.
double MeasuredGain(BiquadRecord record, double hz, double rate) {
    record.ClearState();
    double peak = 0.0;
    for (int i = 0; i < int(rate); ++i) {
        const float y = record.Tick(float(std::sin(2.0 * std::numbers::pi * hz * i / rate)));
        if (i > int(rate) / 2) peak = std::max(peak, double(std::fabs(y)));
    }
    return peak;
}

// The black stroke's topmost pixel in a column of a response display, above its frame; -1
// where the column has none.
int CurveTop(const G::Control& area, int column) {
    for (int y = 1; y < area.bounds.h - 1; ++y)
        if ((PixelOf(area, column, y) & 0xFFFFFF) < 0x808080) return y;
    return -1;
}

TEST(DisplayGuis, FilterCurveFollowsTheGainTheAudioHasAcrossTheCutoff) {
    Editor e;
    PatchBlock* b = e.AddFromMenu("Modify/Filter", 60, 60);
    auto* gui = dynamic_cast<editor::FilterGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    auto* filter = static_cast<CFilterBlock*>(b->block);
    const int w = gui->area->bounds.w;
    const int h = gui->area->bounds.h;
    auto curveY = [&](int column) { return CurveTop(*gui->area, column); };
    struct Case {
        float type;  // the "Type" value: low-pass or high-pass
        double hz;
    };
    const double cutoff = FilterCutoffHz(0.5f);  // 704 Hz
    const Case cases[] = {{0.0f, 60.0},  {0.0f, cutoff}, {0.0f, 1400.0},
                          {0.3f, 200.0}, {0.3f, cutoff}, {0.3f, 5000.0}};
    for (const Case& c : cases) {
        gui->ValueChanged(nullptr, 2, c.type);
        gui->ValueChanged(nullptr, 0, 0.5f);
        Tick(e);
        // The column of `hz` on the display's log axis, and where the audio's gain puts it.
        const double column = 64.0 * std::log(c.hz / 22.0) / std::log(22528.0 / 22.0);
        const int x = int(std::lround(1.0 + column * double(w - 2) / 64.0));
        const double gain = MeasuredGain(filter->records[CFilterBlock::kReference], c.hz, filter->sampleRate);
        const double expectedY = double(h - 1) - std::min(gain * double(h - 2) / 2.0, double(h - 2));
        EXPECT_NEAR(curveY(x), expectedY, 2.0) << "type " << c.type << " at " << c.hz << " Hz, gain " << gain;
    }
}

// Everything at once while a note plays: an oscillator into an amplifier shaped by an envelope,
// the amplifier into a scope and through a VU meter (which runs only on a way to an output)
// into an output. After 25 ms of audio and one tick the
// scope trace leaves the centre line, the VU and output bars have grown, and the envelope
// shows a voice dot; with the note released and silence rendered, the bars fall back.
TEST(DisplayGuis, DisplaysFollowAPlayingPatchOnTheTick) {
    Editor e;
    VrokDoc& doc = e.doc;
    PatchBlock* osc = doc.AddBlock(4, -1, 10, 40);
    PatchBlock* amp = doc.AddBlock(6, -1, 160, 40);
    PatchBlock* out = doc.AddBlock(0, -1, 310, 40);
    PatchBlock* env = doc.AddBlock(2, -1, 160, 150);
    PatchBlock* scope = doc.AddBlock(5, -1, 460, 40);
    PatchBlock* vu = doc.AddBlock(12, -1, 460, 200);
    doc.AddConnection(osc, amp, 0);
    doc.AddConnection(env, amp, 1);
    doc.AddConnection(amp, scope, 0);
    doc.AddConnection(amp, vu, 0);
    doc.AddConnection(vu, out, 0);
    auto* scopeGui = dynamic_cast<editor::ScopeGui*>(e.WindowOf(scope));
    auto* vuGui = dynamic_cast<editor::VuMeterGui*>(e.WindowOf(vu));
    auto* outGui = dynamic_cast<editor::OutputGui*>(e.WindowOf(out));
    auto* envGui = dynamic_cast<editor::EnvGui*>(e.WindowOf(env));
    ASSERT_TRUE(scopeGui && vuGui && outGui && envGui);
    scopeGui->ValueChanged(nullptr, 1, 0.0f);         // the mix in one trace
    e.WindowOf(osc)->ValueChanged(nullptr, 1, 1.0f);  // full level, held at full sustain
    envGui->ValueChanged(nullptr, 2, 1.0f);

    auto tick = [&](int blocks) {
        float left[kMaxFrames], right[kMaxFrames];
        for (int b = 0; b < blocks; ++b) doc.engine->Render({left, right}, kMaxFrames);
        Tick(e);
    };
    // Bright green pixels off the centre rows: the trace has left the line.
    auto traceAway = [&] {
        const int h = scopeGui->area->bounds.h;
        int n = 0;
        for (int y = 1; y < h - 1; ++y) {
            if (std::abs(y - h / 2) <= 2) continue;
            for (int x = 1; x < scopeGui->area->bounds.w - 1; ++x)
                n += Green(PixelOf(*scopeGui->area, x, y)) > 0xC0;
        }
        return n;
    };
    // Lit pixels along the middle row of a bar display.
    auto barLength = [&](editor::DisplayBlockGui* gui) {
        int n = 0;
        for (int x = 1; x < gui->area->bounds.w - 1; ++x)
            n += Green(PixelOf(*gui->area, x, gui->area->bounds.h / 2)) > 0xA0;
        return n;
    };
    tick(2);
    EXPECT_EQ(traceAway(), 0) << "nothing plays yet";
    EXPECT_LT(barLength(vuGui), 3);
    doc.engine->PressKey(69, 127);
    tick(5);
    EXPECT_GT(traceAway(), 20);
    const int vuPlaying = barLength(vuGui);
    EXPECT_GT(vuPlaying, 30);
    EXPECT_GT(barLength(outGui), 5);
    // A voice dot in the envelope display, in a voice's hue, which no other part of it uses.
    std::set<uint32_t> hues;
    for (int v = 0; v < kMaxVoices; ++v) hues.insert(G::HueColor(float(v) * 360.0f / kMaxVoices) & 0xFFFFFF);
    int dots = 0;
    for (int y = 0; y < envGui->area->bounds.h; ++y)
        for (int x = 0; x < envGui->area->bounds.w; ++x) dots += hues.count(PixelOf(*envGui->area, x, y));
    EXPECT_GT(dots, 4);
    doc.engine->ReleaseKey(69);
    tick(400);
    EXPECT_LT(barLength(vuGui), vuPlaying / 2);
}


// A sine at the centre of bin `bin` of an `n`-point transform, `amplitude` as the capture
// holds it (half the signal), written through the capture's writer side until it is full.
void FillCapture(SpectrumCapture& capture, int n, int bin, float amplitude) {
    int i = 0;
    while (capture.FillPosition() < capture.Limit()) {
        const int at = capture.BeginBlock();
        float* p = capture.At(at);
        for (int k = 0; k < 64; ++k, ++i)
            p[k] = amplitude * float(std::sin(2.0 * std::numbers::pi * bin * i / n));
        capture.EndBlock(at, 64);
    }
}

TEST(DisplayGuis, SpectrumBarPeaksAtTheSineBinAtFullScaleAndFallsBack) {
    Editor e;
    PatchBlock* b = e.doc.AddBlock(11, -1, 60, 60);
    auto* gui = dynamic_cast<editor::SpectrumGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    auto* spectrum = static_cast<CSpectrumBlock*>(b->block);
    FillCapture(spectrum->capture, CSpectrumBlock::kLength, 40, 0.5f);  // a full-scale sine
    Tick(e);
    const int h = gui->area->bounds.h;
    // Bar of bin b sits in column b (bin 0 is left out); the peak bar reaches the top.
    auto lit = [&](int column, int y) {
        const uint32_t p = PixelOf(*gui->area, column, y);
        return std::max({p >> 16, (p >> 8) & 0xFF, p & 0xFF}) > 0x80;
    };
    EXPECT_TRUE(lit(40, 2));
    EXPECT_FALSE(lit(20, h / 2));
    EXPECT_FALSE(lit(70, h / 2));
    EXPECT_FALSE(spectrum->capture.FillPosition() >= spectrum->capture.Limit())
        << "the capture was handed back";
    for (int t = 0; t < 30; ++t) e.native->Send(NativeEventKind::Timer, 1, 0);
    e.Paint();
    EXPECT_FALSE(lit(40, h / 2)) << "with no new capture the bar falls";
}

TEST(DisplayGuis, SpectrumAnalyserScrollsAColumnPerCaptureWithTheSineRowBrightest) {
    Editor e;
    PatchBlock* b = e.doc.AddBlock(22, -1, 60, 60);
    auto* gui = dynamic_cast<editor::SpectrumAnalyserGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    auto* analyser = static_cast<CMegaSpectrumBlock*>(b->block);
    // Zoom 1: the 128 rows cover bins 0..1024, eight bins a row; bin 300 is row 37.
    FillCapture(analyser->capture, CMegaSpectrumBlock::kLength, 300, 0.5f);
    EXPECT_TRUE(gui->TakeColumn());
    EXPECT_FALSE(gui->TakeColumn()) << "one column per capture";
    auto brightness = [&](int column, int row) {
        const uint8_t* p = gui->picture.Row(127 - row) + column * 3;
        return p[0] + p[1] + p[2];
    };
    int brightest = 0;
    for (int row = 1; row < 128; ++row)
        if (brightness(127, row) > brightness(127, brightest)) brightest = row;
    EXPECT_EQ(brightest, 37);
    EXPECT_EQ(brightness(127, 37), 3 * 255) << "full scale is white";
    EXPECT_EQ(brightness(126, 37), 0) << "the column before is still empty";
    // The next capture pushes it one to the left.
    FillCapture(analyser->capture, CMegaSpectrumBlock::kLength, 300, 0.5f);
    EXPECT_TRUE(gui->TakeColumn());
    EXPECT_EQ(brightness(126, 37), 3 * 255);
}


// With "sync" on the trace starts at the last upward crossing before the middle of the newest
// samples, so a sine's crest lands a quarter period in; without it the window simply ends at
// the newest sample. A click on the picture records no undo step.
TEST(DisplayGuis, ScopeSyncStartsTheTraceAtAnUpwardCrossing) {
    Editor e;
    PatchBlock* b = e.AddFromMenu("Analyse/Scope", 60, 60);
    auto* gui = dynamic_cast<editor::ScopeGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    auto* scope = static_cast<CScopeBlock*>(b->block);
    gui->ValueChanged(nullptr, 1, 0.0f);
    const int w = gui->area->bounds.w;
    // Period 40; the newest w - 1 samples start at phase 31 of 40, well away from a crossing.
    const int total = 271 + (w - 1);
    std::vector<float> sine(static_cast<size_t>(total));
    for (int i = 0; i < total; ++i) sine[size_t(i)] = float(std::sin(2.0 * std::numbers::pi * i / 40.0));
    auto topOfColumn = [&](int column) {
        for (int y = 0; y < gui->area->bounds.h; ++y)
            if (Green(PixelOf(*gui->area, column, y)) > 0xC0) return y;
        return -1;
    };
    struct Case {
        float sync;
        int crestColumn;  // a column where the trace is at its top
    };
    // Synced: the crest is a quarter period after the crossing. Free: the next crest after
    // phase 31 is at phase 50, column 19.
    for (const Case c : {Case{1.0f, 10}, Case{0.0f, 19}}) {
        gui->ValueChanged(nullptr, 3, c.sync);
        scope->rings[0].Reset();
        gui->channels[0] = {};
        scope->rings[0].Write(sine.data(), 1.0f, total);
        Tick(e);
        EXPECT_LE(topOfColumn(c.crestColumn), 2) << "sync " << c.sync;
    }
    const size_t steps = UndoSteps(e.doc);
    const G::Rect area = AreaOnCanvas(gui, gui->area);
    e.Click(area.x + 20, area.y + 20);
    EXPECT_EQ(UndoSteps(e.doc), steps);
}


TEST(CurveEditors, KeyTrackDrawsOneValuePerKeyAndResetsToTheRisingLine) {
    Editor e;
    PatchBlock* b = e.AddFromMenu("Control/Keytrack", 60, 60);
    auto* gui = dynamic_cast<editor::KeyTrackGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    const G::Rect area = AreaOnCanvas(gui, gui->area);
    const size_t steps = UndoSteps(e.doc);
    // A flat stroke at the top over keys 20..60: those keys send 1.
    e.Drag(area.x + 20, area.y, area.x + 60, area.y);
    for (int key : {20, 40, 60}) EXPECT_FLOAT_EQ(b->block->values[key], 1.0f) << key;
    EXPECT_NEAR(b->block->values[10], 10.0f / 127.0f, 1e-6f);
    EXPECT_EQ(UndoSteps(e.doc), steps + 1);
    gui->OnCommand(editor::CurveBlockGui::kFirstButtonId + editor::CurveBlockGui::kReset);
    for (int key : {0, 40, 127}) EXPECT_NEAR(b->block->values[key], float(key) / 127.0f, 1e-6f) << key;
    EXPECT_EQ(UndoSteps(e.doc), steps + 2);
}

TEST(PlayerGuis, KnobBlockShowsOneLargeKnobThatTurnsItsValue) {
    Editor e;
    PatchBlock* b = e.AddFromMenu("Control/Knob", 60, 60);
    auto* gui = dynamic_cast<editor::KnobBlockGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    auto* knob = dynamic_cast<G::ParameterKnob*>(gui->widgets[0]);
    ASSERT_NE(knob, nullptr);
    EXPECT_EQ(knob->name, L"knob");
    EXPECT_GE(knob->bounds.w, 40);
    const float before = b->block->values[0];
    const size_t steps = UndoSteps(e.doc);
    const int x = gui->bounds.x + knob->bounds.x + knob->bounds.w / 2;
    const int y = gui->bounds.y + knob->bounds.y + knob->bounds.h / 2;
    e.Drag(x, y, x, y - 20);
    EXPECT_GT(b->block->values[0], before + 0.1f);
    EXPECT_EQ(UndoSteps(e.doc), steps + 1);
}


// The EQ's curve: flat on the 0 dB line with every band off (all-passes keep the level); a
// +12.5 dB peak on band 1 lifts the curve at that band's frequency by its gain and leaves the
// far ends on the line.
TEST(DisplayGuis, EqCurveIsFlatWhenOffAndRisesByThePeakGain) {
    Editor e;
    PatchBlock* b = e.AddFromMenu("Modify/3 band eq", 60, 60);
    auto* gui = dynamic_cast<editor::EqGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    auto* eq = static_cast<CEqBlock*>(b->block);
    const int w = gui->area->bounds.w;
    const int h = gui->area->bounds.h;
    auto curveY = [&](int column) { return CurveTop(*gui->area, column); };
    const float perDb = (float(h) / 2.0f - 1.0f) / editor::EqGui::kRangeDb;
    const int middle = h / 2;
    e.Paint();
    for (int x : {3, w / 2, w - 4}) EXPECT_NEAR(curveY(x), middle, 1) << x;
    // Band 1 (parameters 4..7) as a peak of (0.75 - 0.5) * 50 dB.
    for (float v = 0.0f; v <= 1.0f && eq->bands[1].type != EqBand::kPeak; v += 0.05f)
        gui->ValueChanged(nullptr, 4, v);
    ASSERT_EQ(eq->bands[1].type, EqBand::kPeak);
    gui->ValueChanged(nullptr, 7, 0.75f);
    gui->ValueChanged(nullptr, 6, 0.2f);  // two octaves wide
    Tick(e);
    const double column = 64.0 * std::log(double(eq->bands[1].frequency) / 22.0) / std::log(22528.0 / 22.0);
    const int x = int(std::lround(1.0 + column * double(w - 2) / 64.0));
    EXPECT_NEAR(curveY(x), middle - 12.5f * perDb, 2.0);
    EXPECT_NEAR(curveY(3), middle, 1);
    EXPECT_NEAR(curveY(w - 4), middle, 1);
}

// The output and the three follower and trigger panels show their block's level on a bar.
TEST(DisplayGuis, LevelBarsEndAtTheLevel) {
    struct Case {
        int type;
        void (*setLevel)(CAudioBlock*, float);
    };
    const Case cases[] = {
        {0, [](CAudioBlock* b, float v) { static_cast<COutputBlock*>(b)->meterLevel.store(v); }},
        {51, [](CAudioBlock* b, float v) { static_cast<CEnvelopeFollower*>(b)->lastLevel[0] = v; }},
        {54, [](CAudioBlock* b, float v) { static_cast<CDynamicsFollower*>(b)->lastLevel[0] = v; }},
        {52, [](CAudioBlock* b, float v) { static_cast<CGlobalEnvTriggerBlock*>(b)->lastLevel.store(v); }},
    };
    for (const Case& c : cases) {
        Editor e;
        PatchBlock* b = e.doc.AddBlock(c.type, -1, 60, 60);
        ASSERT_NE(b, nullptr) << c.type;
        auto* gui = dynamic_cast<editor::OutputGui*>(e.WindowOf(b));  // followers draw as outputs do
        ASSERT_NE(gui, nullptr) << c.type;
        c.setLevel(b->block, 0.5f);
        Tick(e);
        const int w = gui->area->bounds.w;
        const int y = gui->area->bounds.h / 2;
        EXPECT_GT(Green(PixelOf(*gui->area, w / 2 - 4, y)), 0xA0u) << c.type;
        EXPECT_LT(Green(PixelOf(*gui->area, w / 2 + 4, y)), 0x60u) << c.type;
    }
}

// The VU tracker's needle: straight up at half level, its end to the right of centre when
// loud, to the left when quiet.
TEST(DisplayGuis, VuTrackerNeedleSwingsWithTheLevel) {
    EXPECT_FLOAT_EQ(editor::VUTrackerGui::NeedleAngle(0.5f), 0.0f);
    EXPECT_FLOAT_EQ(editor::VUTrackerGui::NeedleAngle(2.0f), 0.19634375f);
    EXPECT_FLOAT_EQ(editor::VUTrackerGui::NeedleAngle(-1.0f), -0.19634375f);
    Editor e;
    PatchBlock* b = e.AddFromMenu("Modify/VU Tracker", 60, 60);
    auto* gui = dynamic_cast<editor::VUTrackerGui*>(e.WindowOf(b));
    ASSERT_NE(gui, nullptr);
    auto* tracker = static_cast<CVUTrackerBlock*>(b->block);
    const int w = gui->area->bounds.w;
    const int h = gui->area->bounds.h;
    // Green needle pixels near the top, left and right of the centre column.
    auto greenTop = [&](bool right) {
        int n = 0;
        for (int y = 2; y < h / 3; ++y)
            for (int x = right ? w / 2 + 2 : 2; x < (right ? w - 2 : w / 2 - 2); ++x)
                n += PixelOf(*gui->area, x, y) == 0x00FF00u || Green(PixelOf(*gui->area, x, y)) > 0xC0;
        return n;
    };
    for (float level : {1.0f, 0.05f}) {
        tracker->power[0] = level * level;
        tracker->active[0] = 1;
        Tick(e);
        EXPECT_GT(greenTop(level > 0.5f), 0) << level;
        EXPECT_EQ(greenTop(level < 0.5f), 0) << level;
    }
}

}  // namespace
