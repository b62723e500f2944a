// GlobalGui and its sections: layout, drawing, the value texts and the path of a change.
#include "editor/global_gui.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "document/vrok_doc.h"
#include "editor/param_widgets.h"
#include "editor/vrok_doc_window.h"
#include "engine/audio_block.h"
#include "engine/value_format.h"
#include "engine/vrok_instance.h"
#include "g/parameter_switch.h"
#include "g/renderer.h"
#include "g/scroller.h"

namespace editor {
namespace {

constexpr int kSectionX = 3;
constexpr int kSectionGap = 3;
constexpr int kTitleHeight = 14;
constexpr int kRowStep = 14;
constexpr int kSwitchSize = 13;
constexpr G::Color kFrame = 0xFF999F9D;

enum : int {
    kSlider = int(ParamKind::Slider),
    kAltSlider = int(ParamKind::SliderAlt),
    kStrip = int(ParamKind::ButtonStrip),
    kSwitch = int(ParamKind::Switch)
};

std::string Percent(float value) { return FormatSignificant(value * 100.0, 3); }

}  // namespace

std::string GlobalValueText(int id, float value, float sampleRate) {
    switch (id) {
        case 300: {
            const int voices = int(std::floor(value * 16.5f));
            return voices < 1 ? "1, legato" : std::to_string(voices);
        }
        case 1:
        case 101:
        case 201:
            return value == 0.0f ? "off" : Percent(value);
        case 207:
            return std::fabs(value - 0.5f) <= 0.01f ? "center"
                                                    : FormatSignificant(std::fabs(value - 0.5) * 200.0, 3);
        case 400:
            return value == 0.0f ? "off" : FormatEnvelopeTime(value, sampleRate);
        case 401:
            return FormatSignificant(value * 24.0, 4);
        case 402:
            return FormatSignificant((value - 0.5) * 48.0, 4);
        default:
            return Percent(value);
    }
}

// [SECTION] sections

ParamSection::ParamSection(GlobalGui* ownerPanel, const std::wstring& title, int titleColor, int paleColor)
    : G::Window(ownerPanel),
      owner(ownerPanel),
      titleColorIndex(titleColor),
      paleColorIndex(paleColor),
      sectionTitle(title) {
    bounds.w = kWidth;
    bounds.h = nextY + 1;
}

void ParamSection::AddSwitch(int id) {
    auto* toggle = new G::ParameterSwitch(this, owner, id, owner->ValueOf(id));
    AddChild(toggle);
    toggle->colorIndex = paleColorIndex;
    toggle->background = this;
    toggle->SetBounds(2, 1, kSwitchSize, kSwitchSize - 1);
    owner->widgets[id] = toggle;
    owner->kinds[id] = kSwitch;
    hasSwitch = true;
}

void ParamSection::AddRow(int id, int kind, const std::wstring& label) {
    WidgetPlan plan;
    plan.kind = kind;
    plan.index = id;
    plan.value = owner->ValueOf(id);
    plan.x = 2;
    plan.y = nextY;
    plan.panelWidth = panelWidth;
    plan.strongColor = titleColorIndex;
    plan.paleColor = paleColorIndex;
    plan.label = label;
    if (kind == kStrip) plan.choices = {L"normal", L"spaced", L"widen"};
    G::Control* widget = nullptr;
    if (kind == kSwitch) {
        // A row switch carries its label beside it.
        widget = new G::ParameterSwitchWithLabel(this, owner, id, plan.value, label);
        AddChild(widget);
        widget->colorIndex = paleColorIndex;
        widget->SetBounds(plan.x, plan.y, panelWidth - 4, kSwitchSize);
    } else {
        widget = MakeParamWidget(this, owner, plan);
    }
    if (!widget) return;  // a kind with no widget is skipped
    widget->background = this;
    owner->widgets[id] = widget;
    owner->kinds[id] = kind;
    nextY += kRowStep;
    SetSize(panelWidth, nextY + 1);
}

void ParamSection::PaintBackground(G::Renderer& renderer, const G::Rect&) {
    const float w = float(bounds.w);
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(paleColorIndex)),
                      G::FloatRect{0, 0, w, float(bounds.h)});
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(titleColorIndex)),
                      G::FloatRect{0, 0, w, kTitleHeight});
}

bool ParamSection::OnDraw(G::Renderer& renderer, G::Rect) {
    PaintBackground(renderer, G::Rect{0, 0, bounds.w, bounds.h});
    const int x = hasSwitch ? 15 : 0;
    renderer.DrawText(sectionTitle, G::Rect{x, 0, bounds.w - 1 - x, kTitleHeight}, G::theme::BoldFont(),
                      G::TextAlign{0, 1}, 0xFF000000);
    renderer.StrokeRect(G::Pen{kFrame, 1.0f}, G::FloatRect{0.5f, 0.5f, bounds.w - 1.0f, bounds.h - 1.0f});
    return true;
}

// [SECTION] panel

GlobalGui::GlobalGui(G::Control* parentControl, VrokDocWindow* canvasWindow, PatchGlobal* record)
    : G::Window(parentControl), canvas(canvasWindow), global(record) {
    Attach(global);
    struct Row {
        int id;
        int kind;
        const wchar_t* label;
    };
    struct Section {
        const wchar_t* title;
        int strong, pale, switchId;
        std::vector<Row> rows;
    };
    const Section layout[] = {
        {L"Voice",
         24,
         25,
         -1,
         {{400, kSlider, L"Porta"}, {401, kSlider, L"Bendrange"}, {402, kSlider, L"Transpose"}}},
        {L"Polyphony", 24, 25, -1, {{300, kSlider, L"Polyphony"}}},
        {L"Reverb",
         20,
         21,
         0,
         {{1, kSlider, L"Wet/Dry"},
          {2, kSlider, L"Roomsize"},
          {3, kSlider, L"Decay"},
          {4, kSlider, L"Damping"},
          {5, kSlider, L"Mod Amount"},
          {6, kSlider, L"Mod Speed"}}},
        {L"Chorus",
         20,
         21,
         100,
         {{101, kSlider, L"Wet/Dry"}, {102, kSlider, L"Speed"}, {103, kSlider, L"Phasing"}}},
        {L"Delay",
         20,
         21,
         200,
         {{201, kSlider, L"Wet/Dry"},
          {202, kStrip, L"Type"},
          {206, kSlider, L"Feedback"},
          {204, kSlider, L"Length"},
          {203, kSwitch, L"TempoSync"},
          {205, kSlider, L"Cross"},
          {207, kAltSlider, L"Spacing"}}},
    };
    for (const Section& s : layout) {
        auto* section = new ParamSection(this, s.title, s.strong, s.pale);
        AddChild(section);
        if (s.switchId >= 0) section->AddSwitch(s.switchId);
        for (const Row& row : s.rows) section->AddRow(row.id, row.kind, row.label);
        sections.push_back(section);
    }
    Layout();
}

GlobalGui::~GlobalGui() { Detach(global); }

std::string GlobalGui::NameOf(int id) const {
    for (const auto& [name, parameter] : global->Parameters())
        if (parameter.event == id) return name;
    return {};
}

float GlobalGui::ValueOf(int id) const {
    const std::string name = NameOf(id);
    return name.empty() ? 0.0f : std::clamp(global->Value(name), 0.0f, 1.0f);
}

void GlobalGui::Layout() {
    int y = kSectionGap;
    for (ParamSection* section : sections) y += section->Height() + kSectionGap;
    contentHeight = y;
    const bool scrolls = contentHeight > bounds.h && bounds.h > 0;
    scrollRange = std::min(0, bounds.h - contentHeight);
    scrollY = std::clamp(scrollY, scrollRange, 0);
    // Once made, the scroller stays; with room for everything it rests at the top.
    if (scrolls && !hasVScroller) SetVScroller(true);
    vScrollPosition =
        scrolls ? std::clamp(float(-scrollY) / float(contentHeight - bounds.h), 0.0f, 1.0f) : 0.0f;
    vScrollPage = scrolls ? 1.0f - float(contentHeight - bounds.h) / float(contentHeight) : 1.0f;
    y = kSectionGap + scrollY;
    for (ParamSection* section : sections) {
        section->SetPosition(kSectionX, y);
        y += section->Height() + kSectionGap;
    }
    G::Window::LayoutScrollers();
    if (vScroller) vScroller->Invalidate(nullptr);
    Invalidate(nullptr);
}

void GlobalGui::OnResized(int w, int h) {
    G::Window::OnResized(w, h);
    Layout();
}

bool GlobalGui::OnVScroll(int, int) {
    scrollY = int(float(scrollRange) * vScrollPosition);
    Layout();
    return true;
}

void GlobalGui::PaintBackground(G::Renderer& renderer, const G::Rect&) {
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(1)),
                      G::FloatRect{0, 0, float(bounds.w), float(bounds.h)});
}

bool GlobalGui::OnDraw(G::Renderer& renderer, G::Rect) {
    PaintBackground(renderer, G::Rect{0, 0, bounds.w, bounds.h});
    renderer.DrawLine(G::Pen{kFrame, 1.0f}, 0.5f, 0, 0.5f, float(bounds.h));
    return true;
}

bool GlobalGui::OnKeyDown(int key) { return canvas->OnKeyDown(key); }

bool GlobalGui::OnKeyUp(int key) { return canvas->OnKeyUp(key); }

// [SECTION] changes

void GlobalGui::BeginChange(G::FloatParamGenerator*, int) { canvas->doc.ActionStart(nullptr); }

void GlobalGui::ValueChanged(G::FloatParamGenerator*, int id, float value) {
    const std::string name = NameOf(id);
    if (name.empty()) return;
    VrokDoc& doc = canvas->doc;
    doc.ActionStart(global);
    global->SetValue(name, std::clamp(value, 0.0f, 1.0f));
    doc.ActionEnd(global);
    canvas->CountChange();
    TellChanged(global, this);
}

void GlobalGui::EndChange(G::FloatParamGenerator*, int) { canvas->doc.ActionEnd(nullptr); }

std::wstring GlobalGui::DescribeValue(int id, float value) {
    return Widen(GlobalValueText(id, value, canvas->doc.engine->sampleRate));
}

void GlobalGui::RefreshAll() {
    for (auto& [id, widget] : widgets) ShowParamValue(widget, ValueOf(id));
}

void GlobalGui::StorableChanged(int source, Storable*) {
    if (source != Token()) RefreshAll();
}

void GlobalGui::StorableRemoved(int, Storable*) {
    // The global record is never deleted; a clear resets it, and the panel shows the defaults.
    RefreshAll();
}

}  // namespace editor
