// Message boxes: a modal dialog drawn by the toolkit with wrapped text and OK or Yes/No
// buttons. Return takes the focused button, Escape and the close button answer OK or No.
#include <X11/Xlib.h>
#include <X11/keysym.h>

#include <algorithm>

#include "g/bitmap.h"
#include "g/native/x11/x11_internal.h"
#include "g/renderer.h"
#include "g/text_lines.h"
#include "g/theme.h"

namespace G::x11 {

namespace {

constexpr int kPadding = 16;
constexpr int kWrapWidth = 420;
constexpr int kMinWidth = 240;
constexpr int kLineHeight = 18;

float TextWidth(const std::string& text) { return Renderer::MeasureText(text, theme::NormalFont()).width; }

// Lines of at most kWrapWidth pixels, broken at spaces where a line is too long.
std::vector<std::string> WrapText(const std::string& text) {
    std::vector<std::string> lines;
    for (const std::string& paragraph : SplitLines(text)) {
        std::string line;
        size_t word = 0;
        while (word < paragraph.size()) {
            size_t next = paragraph.find(' ', word);
            if (next == std::string::npos) next = paragraph.size();
            std::string piece = paragraph.substr(word, next - word);
            std::string joined = line.empty() ? piece : line + " " + piece;
            if (!line.empty() && TextWidth(joined) > kWrapWidth) {
                lines.push_back(line);
                line = piece;
            } else {
                line = joined;
            }
            word = next + 1;
        }
        lines.push_back(line);
    }
    return lines;
}

class MessageBox : public EventSink {
public:
    MessageBox(WindowId owner, const std::string& text, const std::string& title, MessageBoxKind kind)
        : kind(kind), lines(WrapText(text)) {
        float widest = 0;
        for (const std::string& line : lines) widest = std::max(widest, TextWidth(line));
        std::vector<std::string> captions = kind == MessageBoxKind::Ok
                                                ? std::vector<std::string>{"OK"}
                                                : std::vector<std::string>{"Yes", "No"};
        int buttonsW = static_cast<int>(captions.size()) * (ButtonRow::kWidth + 10);
        int w = std::max({kMinWidth, static_cast<int>(widest) + 2 * kPadding, buttonsW + 2 * kPadding});
        int textH = static_cast<int>(lines.size()) * kLineHeight;
        int h = kPadding + textH + kPadding + ButtonRow::kHeight + kPadding;
        buttons.Layout(captions, w, h - kPadding - ButtonRow::kHeight, true);
        window = std::make_unique<ToolkitWindow>(ToolkitWindow::Kind::Dialog, CentredOn(owner, w, h), title,
                                                 owner, this);
    }

    MessageBoxResult Run() {
        Render();
        window->Show();
        Connection::Get()->RunModal(this, [this] { return done; });
        return result;
    }

    void HandleEvent(XEvent& event) override {
        switch (event.type) {
            case Expose:
                window->Present(ExposedArea(event));
                break;
            case ClientMessage:
                if (window->IsCloseRequest(event)) Dismiss();
                break;
            case KeyPress:
                OnKey(XLookupKeysym(&event.xkey, 0));
                break;
            case MotionNotify:
                if (buttons.Move(event.xmotion.x, event.xmotion.y)) Draw();
                break;
            case ButtonPress:
                if (event.xbutton.button == Button1 && buttons.Press(event.xbutton.x, event.xbutton.y))
                    Draw();
                break;
            case ButtonRelease:
                if (event.xbutton.button == Button1) {
                    int chosen = buttons.Release(event.xbutton.x, event.xbutton.y);
                    if (chosen >= 0) Answer(chosen);
                    Draw();
                }
                break;
            default:
                break;
        }
    }

private:
    void OnKey(unsigned long keysym) {
        switch (keysym) {
            case XK_Return:
            case XK_KP_Enter:
            case XK_space:
                Answer(buttons.focus);
                break;
            case XK_Escape:
                Dismiss();
                break;
            case XK_Tab:
            case XK_Right:
                buttons.FocusNext(1);
                Draw();
                break;
            case XK_Left:
            case XK_ISO_Left_Tab:
                buttons.FocusNext(-1);
                Draw();
                break;
            case XK_y:
                if (kind == MessageBoxKind::YesNo) Answer(0);
                break;
            case XK_n:
                if (kind == MessageBoxKind::YesNo) Answer(1);
                break;
            default:
                break;
        }
    }

    void Answer(int button) {
        result = kind == MessageBoxKind::Ok ? MessageBoxResult::Ok
                 : button == 0              ? MessageBoxResult::Yes
                                            : MessageBoxResult::No;
        done = true;
    }

    void Dismiss() { Answer(kind == MessageBoxKind::Ok ? 0 : 1); }

    void Render() {
        Bitmap& canvas = window->Canvas();
        Renderer renderer(canvas);
        FillBox(renderer, Rect{0, 0, canvas.width, canvas.height}, theme::Palette(1));
        // A frame of its own, for servers with no window manager to draw one.
        FrameBox(renderer, Rect{0, 0, canvas.width, canvas.height}, theme::Palette(28));
        for (size_t i = 0; i < lines.size(); ++i) {
            renderer.DrawText(lines[i],
                              Rect{kPadding, kPadding + static_cast<int>(i) * kLineHeight,
                                   canvas.width - 2 * kPadding, kLineHeight},
                              theme::NormalFont(), TextAlign{0, 1}, theme::Palette(theme::kTextColor));
        }
        buttons.Draw(renderer);
    }

    void Draw() {
        Render();
        window->Present();
    }

    MessageBoxKind kind;
    std::vector<std::string> lines;
    ButtonRow buttons;
    std::unique_ptr<ToolkitWindow> window;
    bool done = false;
    MessageBoxResult result = MessageBoxResult::Ok;
};

}  // namespace

MessageBoxResult RunMessageBox(WindowId owner, const std::string& text, const std::string& title,
                               MessageBoxKind kind) {
    if (!Connection::Get()) return kind == MessageBoxKind::Ok ? MessageBoxResult::Ok : MessageBoxResult::No;
    ThemeReference themeReference;
    MessageBox box(owner, text, title, kind);
    return box.Run();
}

}  // namespace G::x11
