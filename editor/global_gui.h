// GlobalGui: the panel at the right of the editor with the patch's global settings in five
// sections (voice, polyphony, reverb, chorus, delay). Every change goes through PatchGlobal
// inside an undo action, so it reaches the engine as the record sends it. GUI thread.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "editor/gui_link.h"
#include "g/param_listener.h"
#include "g/theme.h"
#include "g/window.h"

class PatchGlobal;
class VrokDoc;

namespace editor {

class GlobalGui;
class VrokDocWindow;

// One titled section; its rows are parameter widgets whose listener is the panel.
class ParamSection : public G::Window, public G::BackgroundRenderer {
public:
    static constexpr int kWidth = 126;

    ParamSection(GlobalGui* owner, const std::wstring& title, int titleColor, int paleColor);

    // A widget of `kind` for global id `id`, labelled, on the next row.
    void AddRow(int id, int kind, const std::wstring& label);
    // An on/off switch in the title strip.
    void AddSwitch(int id);

    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    void PaintBackground(G::Renderer& renderer, const G::Rect& area) override;

    GlobalGui* owner;
    int panelWidth = kWidth;
    int titleColorIndex;
    int paleColorIndex;
    int nextY = 16;
    bool hasSwitch = false;
    std::wstring sectionTitle;
};

class GlobalGui : public G::Window,
                  public EditorGui,
                  public G::FloatParamListener,
                  public G::BackgroundRenderer {
public:
    static constexpr int kWidth = 150;

    GlobalGui(G::Control* parent, VrokDocWindow* canvas, PatchGlobal* global);
    ~GlobalGui() override;

    void BeginChange(G::FloatParamGenerator* generator, int id) override;
    void ValueChanged(G::FloatParamGenerator* generator, int id, float value) override;
    void EndChange(G::FloatParamGenerator* generator, int id) override;
    std::wstring DescribeValue(int id, float value) override;

    void StorableChanged(int source, Storable* storable) override;
    void StorableRemoved(int source, Storable* storable) override;

    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;
    void PaintBackground(G::Renderer& renderer, const G::Rect& area) override;
    void OnResized(int w, int h) override;
    bool OnVScroll(int code, int position) override;
    bool OnKeyDown(int key) override;
    bool OnKeyUp(int key) override;

    // The record's entry name of a global id; empty when there is none.
    std::string NameOf(int id) const;
    float ValueOf(int id) const;
    void RefreshAll();

    VrokDocWindow* canvas;
    PatchGlobal* global;
    std::vector<ParamSection*> sections;
    std::map<int, G::Control*> widgets;  // by global id
    std::map<int, int> kinds;            // by global id
    int scrollY = 0;
    int scrollRange = 0;
    int contentHeight = 0;

private:
    void Layout();
};

// The value text of a global id, as the panel shows it.
std::string GlobalValueText(int id, float value, float sampleRate);

}  // namespace editor
