// Open and save dialogs drawn by the toolkit over a FileDialogModel: the folder line, the
// listing with selection and scrolling, the name field, the filter, Open/Save and Cancel.
// Saving onto an existing file asks first in a message box.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <algorithm>

#include "g/bitmap.h"
#include "g/native/x11/file_dialog_model.h"
#include "g/native/x11/x11_internal.h"
#include "g/renderer.h"
#include "g/theme.h"
#include "g/utf8.h"

namespace G::x11 {

namespace {

constexpr int kWidth = 560;
constexpr int kHeight = 420;
constexpr int kMargin = 12;
constexpr int kLabelWidth = 84;
constexpr int kRowHeight = 20;
constexpr int kWheelRows = 3;
constexpr Rect kList{kMargin, 40, kWidth - 2 * kMargin, 262};
constexpr Rect kNameField{kMargin + kLabelWidth, 314, kWidth - 2 * kMargin - kLabelWidth, 24};
constexpr int kFilterY = 346;
constexpr int kButtonsY = kHeight - kMargin - ButtonRow::kHeight;

// The tail of `text` that fits in `width` pixels, led by "..." when cut.
std::string FitFromLeft(const std::string& text, float width, const Font* font) {
    if (Renderer::MeasureText(text, font).width <= width) return text;
    for (size_t cut = 1; cut < text.size(); ++cut) {
        if ((static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) continue;
        std::string tail = "..." + text.substr(cut);
        if (Renderer::MeasureText(tail, font).width <= width) return tail;
    }
    return "...";
}

class FileDialog : public EventSink {
public:
    FileDialog(WindowId owner, const FileDialogRequest& request, bool saving)
        : model(request, saving), title(request.title) {
        if (title.empty()) title = saving ? "Save As" : "Open";
        buttons.Layout({saving ? "Save" : "Open", "Cancel"}, kWidth, kButtonsY, false);
        window = std::make_unique<ToolkitWindow>(ToolkitWindow::Kind::Dialog,
                                                 CentredOn(owner, kWidth, kHeight), title, owner, this);
    }

    bool Run(std::string& path) {
        Render();
        window->Show();
        Connection::Get()->RunModal(this, [this] { return done; });
        if (chosen) path = model.Path();
        return chosen;
    }

    void HandleEvent(XEvent& event) override {
        switch (event.type) {
            case Expose:
                window->Present(ExposedArea(event));
                break;
            case ClientMessage:
                if (window->IsCloseRequest(event)) Finish(false);
                break;
            case KeyPress:
                OnKey(event.xkey);
                break;
            case MotionNotify:
                if (buttons.Move(event.xmotion.x, event.xmotion.y)) Draw();
                break;
            case ButtonPress:
                OnPress(event.xbutton);
                break;
            case ButtonRelease:
                if (event.xbutton.button == Button1) {
                    int button = buttons.Release(event.xbutton.x, event.xbutton.y);
                    if (button == 0) Apply(model.Activate());
                    if (button == 1) Finish(false);
                    if (!done) Draw();
                }
                break;
            default:
                break;
        }
    }

private:
    int VisibleRows() const { return (kList.h - 2) / kRowHeight; }

    void OnPress(const XButtonEvent& press) {
        bool inList = kList.Contains(press.x, press.y);
        if (inList && (press.button == Button4 || press.button == Button5)) {
            Scroll(press.button == Button4 ? -kWheelRows : kWheelRows);
            Draw();
            return;
        }
        if (press.button != Button1) return;
        bool isDouble = clicks.Press(press.button, press.time, press.x, press.y);
        if (inList) {
            int row = top + (press.y - kList.y - 1) / kRowHeight;
            if (row < static_cast<int>(model.Entries().size())) {
                if (isDouble && row == model.Selected()) {
                    Apply(model.ActivateEntry(row));
                } else {
                    model.Select(row);
                }
            }
        } else {
            buttons.Press(press.x, press.y);
        }
        if (!done) Draw();
    }

    void OnKey(XKeyEvent& key) {
        char bytes[16];
        KeySym keysym = NoSymbol;
        int count = XLookupString(&key, bytes, sizeof bytes, &keysym, nullptr);
        int page = VisibleRows() - 1;
        switch (keysym) {
            case XK_Escape:
                Finish(false);
                return;
            case XK_Return:
            case XK_KP_Enter:
                Apply(model.Activate());
                break;
            case XK_Up:
            case XK_KP_Up:
                model.MoveSelection(-1);
                break;
            case XK_Down:
            case XK_KP_Down:
                model.MoveSelection(1);
                break;
            case XK_Prior:
            case XK_KP_Prior:
                model.MoveSelection(-page);
                break;
            case XK_Next:
            case XK_KP_Next:
                model.MoveSelection(page);
                break;
            case XK_BackSpace:
                model.EraseLastCharacter();
                break;
            default: {
                int code = CharacterFromKey(keysym, bytes, count);
                if (code < 0x20 || (key.state & ControlMask)) return;
                std::string typed;
                AppendUtf8(typed, static_cast<uint32_t>(code));
                model.Type(typed);
                break;
            }
        }
        if (done) return;
        KeepSelectionVisible();
        Draw();
    }

    void Apply(FileDialogModel::Outcome outcome) {
        if (outcome == FileDialogModel::Outcome::Chosen) {
            Finish(true);
        } else if (outcome == FileDialogModel::Outcome::ConfirmOverwrite) {
            MessageBoxResult answer =
                RunMessageBox(window->Id(), model.Path() + " already exists.\nDo you want to replace it?",
                              title, MessageBoxKind::YesNo);
            if (answer == MessageBoxResult::Yes) {
                Finish(true);
            } else {
                XSetInputFocus(Connection::Get()->display, window->Id(), RevertToParent, CurrentTime);
            }
        } else {
            // A new folder starts at its top.
            if (model.Selected() < 0) top = 0;
        }
    }

    void Finish(bool accepted) {
        chosen = accepted;
        done = true;
    }

    void Scroll(int rows) {
        int count = static_cast<int>(model.Entries().size());
        top = std::clamp(top + rows, 0, std::max(0, count - VisibleRows()));
    }

    void KeepSelectionVisible() {
        int selected = model.Selected();
        if (selected < 0) return;
        if (selected < top) top = selected;
        if (selected >= top + VisibleRows()) top = selected - VisibleRows() + 1;
    }

    void Render() {
        Bitmap& canvas = window->Canvas();
        Renderer renderer(canvas);
        const Font* font = theme::NormalFont();
        Color text = theme::Palette(theme::kTextColor);
        FillBox(renderer, Rect{0, 0, canvas.width, canvas.height}, theme::Palette(1));
        // A frame of its own, for servers with no window manager to draw one.
        FrameBox(renderer, Rect{0, 0, canvas.width, canvas.height}, theme::Palette(28));

        renderer.DrawText("Folder:", Rect{kMargin, 10, kLabelWidth, 22}, font, TextAlign{0, 1}, text);
        float pathWidth = static_cast<float>(kWidth - 2 * kMargin - kLabelWidth);
        renderer.DrawText(FitFromLeft(model.Directory(), pathWidth, font),
                          Rect{kMargin + kLabelWidth, 10, static_cast<int>(pathWidth), 22}, font,
                          TextAlign{0, 1}, text);

        FillBox(renderer, kList, theme::Palette(0));
        FrameBox(renderer, kList, theme::Palette(28));
        const auto& entries = model.Entries();
        int rows = std::min(VisibleRows(), static_cast<int>(entries.size()) - top);
        for (int k = 0; k < rows; ++k) {
            int index = top + k;
            Rect row{kList.x + 1, kList.y + 1 + k * kRowHeight, kList.w - 2, kRowHeight};
            if (index == model.Selected()) FillBox(renderer, row, theme::Palette(32));
            const FileDialogEntry& entry = entries[index];
            if (entry.isDirectory) {
                // A folder tab and body in the theme's yellow.
                FillBox(renderer, Rect{row.x + 6, row.y + 5, 6, 2}, theme::Palette(6));
                FillBox(renderer, Rect{row.x + 6, row.y + 7, 13, 8}, theme::Palette(6));
                FrameBox(renderer, Rect{row.x + 6, row.y + 7, 13, 8}, theme::Palette(28));
            }
            renderer.DrawText(entry.name, Rect{row.x + 26, row.y, row.w - 30, row.h}, font, TextAlign{0, 1},
                              text);
        }
        int count = static_cast<int>(entries.size());
        if (count > VisibleRows()) {
            int trackH = kList.h - 2;
            int thumbH = std::max(12, trackH * VisibleRows() / count);
            int thumbY = kList.y + 1 + (trackH - thumbH) * top / std::max(1, count - VisibleRows());
            FillBox(renderer, Rect{kList.x + kList.w - 7, thumbY, 5, thumbH}, theme::Palette(11));
        }

        renderer.DrawText("File name:", Rect{kMargin, kNameField.y, kLabelWidth, kNameField.h}, font,
                          TextAlign{0, 1}, text);
        FillBox(renderer, kNameField, theme::Palette(0));
        FrameBox(renderer, kNameField, theme::Palette(theme::kAccent));
        float fieldText = static_cast<float>(kNameField.w - 12);
        std::string shown = FitFromLeft(model.Name(), fieldText, font);
        Rect nameBox{kNameField.x + 5, kNameField.y, kNameField.w - 10, kNameField.h};
        renderer.DrawText(shown, nameBox, font, TextAlign{0, 1}, text);
        int caretX = nameBox.x + static_cast<int>(Renderer::MeasureText(shown, font).width) + 1;
        FillBox(renderer, Rect{caretX, kNameField.y + 4, 1, kNameField.h - 8}, text);

        renderer.DrawText("Type:", Rect{kMargin, kFilterY, kLabelWidth, 22}, font, TextAlign{0, 1}, text);
        renderer.DrawText(model.FilterText(), Rect{kMargin + kLabelWidth, kFilterY, kNameField.w, 22}, font,
                          TextAlign{0, 1}, text);
        renderer.DrawText(model.Problem(),
                          Rect{kMargin, kButtonsY, buttons.rects.front().x - 2 * kMargin, ButtonRow::kHeight},
                          font, TextAlign{0, 1}, theme::Palette(31));
        buttons.Draw(renderer);
    }

    void Draw() {
        Render();
        window->Present();
    }

    FileDialogModel model;
    std::string title;
    ButtonRow buttons;
    ClickTracker clicks;
    std::unique_ptr<ToolkitWindow> window;
    int top = 0;
    bool done = false;
    bool chosen = false;
};

}  // namespace

bool RunFileDialog(WindowId owner, const FileDialogRequest& request, bool saving, std::string& path) {
    if (!Connection::Get()) return false;
    ThemeReference themeReference;
    FileDialog dialog(owner, request, saving);
    return dialog.Run(path);
}

}  // namespace G::x11
