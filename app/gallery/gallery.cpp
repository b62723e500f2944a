// The widget gallery: one window with every widget kind, each call to its listener printed
// as one line on standard output ("BeginChange 1", "ValueChanged 1 0.5250", "EndChange 1").
#include "app/gallery/gallery.h"

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "g/button.h"
#include "g/menu.h"
#include "g/native/native.h"
#include "g/parameter_choice.h"
#include "g/parameter_knob.h"
#include "g/parameter_pitch.h"
#include "g/parameter_slider.h"
#include "g/parameter_switch.h"
#include "g/png.h"
#include "g/renderer.h"
#include "g/root_control.h"
#include "g/text_box.h"
#include "g/theme.h"
#include "g/utf8.h"

namespace app {
namespace {

constexpr int kWidth = 660;
constexpr int kHeight = 400;

enum Command {
    kMenu = 101,
    kMessage,
    kOpen,
    kSave,
    kCopy,
    kPaste,
    kLittleArrow = 201,
    kLittleCross,
    kLittleBox,
};

void Say(const std::string& line) {
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

// A scrolled area: draws a grid shifted by its scroll positions and reports them.
class ScrollArea : public G::Window {
public:
    using Window::Window;

    bool OnDraw(G::Renderer& renderer, G::Rect) override {
        renderer.FillRect(G::Brush::Solid(G::theme::Palette(4)),
                          G::FloatRect{0, 0, float(bounds.w), float(bounds.h)});
        const float dx = hScrollPosition * 200.0f;
        const float dy = vScrollPosition * 200.0f;
        G::Pen grid{G::theme::Palette(11), 1.0f};
        for (int i = 0; i < 20; ++i) {
            float at = i * 20.0f + 0.5f;
            renderer.DrawLine(grid, at - dx, 0, at - dx, float(bounds.h));
            renderer.DrawLine(grid, 0, at - dy, float(bounds.w), at - dy);
        }
        renderer.StrokeRect(G::Pen{borderColor, 1.0f},
                            G::FloatRect{0.5f, 0.5f, bounds.w - 1.0f, bounds.h - 1.0f});
        return true;
    }
    bool OnVScroll(int, int) override {
        Report("v", vScrollPosition);
        return true;
    }
    bool OnHScroll(int, int) override {
        Report("h", hScrollPosition);
        return true;
    }

private:
    void Report(const char* axis, float position) {
        char line[64];
        std::snprintf(line, sizeof line, "Scroll %s %.4f", axis, position);
        Say(line);
        Invalidate(nullptr);
    }
};

class GalleryRoot : public G::RootControl, public G::FloatParamListener, public G::TextParamListener {
public:
    GalleryRoot(std::unique_ptr<G::NativeWindow> window, const GalleryOptions& galleryOptions)
        : RootControl(std::move(window)), options(galleryOptions) {
        SetSize(kWidth, kHeight);
        Build();
        AddTimerClient(this);
    }

    // [SECTION] Listener calls
    void BeginChange(G::FloatParamGenerator*, int index) override {
        Say("BeginChange " + std::to_string(index));
    }
    void ValueChanged(G::FloatParamGenerator*, int index, float value) override {
        char line[64];
        std::snprintf(line, sizeof line, "ValueChanged %d %.4f", index, value);
        Say(line);
    }
    void EndChange(G::FloatParamGenerator*, int index) override { Say("EndChange " + std::to_string(index)); }
    std::wstring DescribeValue(int, float value) override {
        return std::to_wstring(int(value * 100.0f + 0.5f)) + L"%";
    }
    void TextChanged(G::TextParamGenerator*, int index, const std::wstring& text) override {
        Say("TextChanged " + std::to_string(index) + " " + G::ToUtf8(text));
    }

    // [SECTION] Window events
    void OnCommand(int id) override;
    void OnAltCommand(int id) override { Say("AltCommand " + std::to_string(id)); }
    bool OnDropFile(const std::string& path) override {
        Say("Dropped " + path);
        return true;
    }
    bool OnClose() override {
        Say("Closed");
        native->running = false;
        return true;
    }
    void OnTimer(int id) override;
    bool OnDraw(G::Renderer& renderer, G::Rect clip) override;

    bool failed = false;

private:
    template <typename T>
    T* Place(T* control, int x, int y, int w, int h) {
        AddChild(control);
        control->SetBounds(x, y, w, h);
        return control;
    }
    void Build();
    // Widgets take their fill from the palette; the block categories' strong colours show best.
    void ColourParameters(int colorIndex);
    void Caption(G::Renderer& renderer, const char* text, int x, int y);
    void TakeScreenshot();

    const GalleryOptions& options;
    G::TextBox* text = nullptr;
    bool announced = false;
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
};

void GalleryRoot::Build() {
    auto* knob = Place(new G::ParameterKnob(this, this, 1, 0.5f), 20, 30, 40, 40);
    knob->label = L"Small";
    Place(new G::ParameterKnob(this, this, 2, 0.5f, G::ParameterKnob::kModeBipolar), 70, 30, 40, 40);
    auto* large = new G::ParameterKnob(this, this, 3, 0.25f, G::ParameterKnob::kModeUnipolar,
                                       G::ParameterKnob::kStyleLarge);
    large->label = L"Cutoff";
    large->SetRadius(26.0f);
    Place(large, 120, 20, 72, 80);

    Place(new G::ParameterPitch(this, this, 4, 0.5f), 210, 30, 170, 20);
    Place(new G::ParameterPitch(this, this, 5, 0.5f, true), 210, 60, 170, 20);

    Place(new G::ParameterSlider(this, this, 6, 0.3f, L"Level"), 20, 130, 160, 18);
    Place(new G::ParameterSlider(this, this, 7, 0.5f, L"Pan", G::ParameterSlider::kStyleCentred), 20, 160,
          160, 18);
    Place(new G::ParameterSlider(this, this, 8, 0.7f, L"", G::ParameterSlider::kStylePlain, true), 200, 110,
          18, 90);

    Place(new G::ParameterSwitch(this, this, 9, 0.0f), 250, 120, 20, 20);
    Place(new G::ParameterSwitchWithLabel(this, this, 10, 1.0f, L"Sync"), 250, 150, 100, 20);

    Place(new G::ParameterFilter(this, this, 11, 0.0f), 20, 220, 56, 14);
    Place(new G::ParameterWave(this, this, 12, 1.0f / 3.0f), 100, 220, 56, 14);
    Place(new G::ParameterButtonStrip(this, this, 13, 0.5f, {L"Off", L"Low", L"High"}), 180, 216, 150, 20);

    text = Place(new G::TextBox(this, this, 14, L"Vrok"), 20, 260, 160, 20);

    const std::pair<int, const wchar_t*> buttons[] = {{kMenu, L"Menu"}, {kMessage, L"Message"},
                                                      {kOpen, L"Open"}, {kSave, L"Save"},
                                                      {kCopy, L"Copy"}, {kPaste, L"Paste"}};
    int x = 20;
    for (auto [id, caption] : buttons) {
        Place(new G::CustomButton(this, this, id, caption), x, 300, 70, 22);
        x += 76;
    }
    const int shapes[] = {LittleVrokButton::kArrow, LittleVrokButton::kCross, LittleVrokButton::kBox};
    for (int i = 0; i < 3; ++i) {
        Place(new LittleVrokButton(this, this, kLittleArrow + i, shapes[i]), 20 + i * 20, 345, 11, 11);
    }

    ColourParameters(22);

    auto* area = Place(new ScrollArea(this), 450, 110, 180, 200);
    area->vScrollPage = 0.4f;
    area->hScrollPage = 0.6f;
    area->SetVScroller(true);
    area->SetHScroller(true);
}

void GalleryRoot::ColourParameters(int colorIndex) {
    for (G::Control* child : children) {
        if (dynamic_cast<G::FloatParamGenerator*>(child)) child->SetColorIndex(colorIndex);
    }
}

void GalleryRoot::OnCommand(int id) {
    Say("Command " + std::to_string(id));
    switch (id) {
        case kMenu: {
            G::RightClickMenu menu(this);
            menu.Add(1, "Copy");
            menu.Add(2, "Paste");
            menu.AddSeparator();
            G::MenuItem* more = menu.Add(0, "More");
            more->Add(3, "Sine");
            more->Add(4, "Square");
            Say("Menu " + std::to_string(menu.RunAt(this, 20, 322)));
            break;
        }
        case kMessage: {
            G::MessageBoxResult answer =
                native->ShowMessageBox("Do you like this gallery?", "Vrok", G::MessageBoxKind::YesNo);
            Say(answer == G::MessageBoxResult::Yes ? "MessageBox Yes" : "MessageBox No");
            break;
        }
        case kOpen:
        case kSave: {
            G::FileDialogRequest request;
            request.title = id == kOpen ? "Open patch" : "Save patch";
            request.fileName = "patch.vrkx";
            request.filterLabel = "Vrok patches";
            request.extensions = {".vrkx", ".vrk"};
            std::string path;
            bool chosen =
                id == kOpen ? native->OpenFileDialog(request, path) : native->SaveFileDialog(request, path);
            Say(std::string(id == kOpen ? "Open " : "Save ") + (chosen ? path : "cancelled"));
            break;
        }
        case kCopy:
            native->SetClipboardText(G::ToUtf8(text->Text()));
            break;
        case kPaste:
            Say("Clipboard " + native->ClipboardText());
            break;
        default:
            break;
    }
}

void GalleryRoot::OnTimer(int id) {
    RootControl::OnTimer(id);
    if (!announced) {
        announced = true;
        Say("ready");
    }
    if (options.screenshot.empty()) return;
    auto elapsed = std::chrono::steady_clock::now() - start;
    if (elapsed >= std::chrono::milliseconds(options.afterMs) && native->running) TakeScreenshot();
}

void GalleryRoot::TakeScreenshot() {
    native->running = false;
    std::string error;
    if (!G::WritePng(options.screenshot, native->surface.data(), native->surfaceWidth, native->surfaceHeight,
                     native->surfaceRowLength, error)) {
        std::fprintf(stderr, "vrok: %s: %s\n", options.screenshot.c_str(), error.c_str());
        failed = true;
        return;
    }
    Say("Screenshot " + options.screenshot);
}

void GalleryRoot::Caption(G::Renderer& renderer, const char* caption, int x, int y) {
    renderer.DrawText(std::string_view(caption), G::Rect{x, y, 200, 14}, G::theme::BoldFont(), G::TextAlign{},
                      G::theme::Palette(G::theme::kTextColor));
}

bool GalleryRoot::OnDraw(G::Renderer& renderer, G::Rect) {
    renderer.FillRect(G::Brush::Solid(G::theme::Palette(1)),
                      G::FloatRect{0, 0, float(bounds.w), float(bounds.h)});
    Caption(renderer, "Knobs", 20, 8);
    Caption(renderer, "Pitch (across, then up and down)", 210, 8);
    Caption(renderer, "Sliders and switches", 20, 108);
    Caption(renderer, "Scrolled window", 450, 92);
    Caption(renderer, "Filter, wave and choices", 20, 198);
    Caption(renderer, "Text (letters only)", 20, 242);
    Caption(renderer, "Buttons", 20, 284);
    Caption(renderer, "Port buttons", 20, 328);
    return true;
}

}  // namespace

int RunGallery(const GalleryOptions& options) {
    auto window = G::native::CreateNativeWindow(L"Vrok gallery", G::Rect{0, 0, kWidth, kHeight}, 0, 0);
    if (!window) {
        std::fprintf(stderr, "vrok: gallery: cannot open a window (no X display? check DISPLAY)\n");
        return 1;
    }
    GalleryRoot root(std::move(window), options);
    root.ShowTop();
    G::native::RunMessageLoop();
    return root.failed ? 1 : 0;
}

}  // namespace app
