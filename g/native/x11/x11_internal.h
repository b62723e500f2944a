// What the files of the X11 layer share: the display connection with its event routing and
// timers, the image presenter, and the toolkit-drawn modal windows. Xlib's types are only
// forward-declared here, so no file outside this folder's .cpp files sees an X11 header.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "g/geometry.h"
#include "g/native_window.h"

struct _XDisplay;
union _XEvent;

namespace G {
class Bitmap;
class MenuItem;
class Renderer;
}  // namespace G

namespace G::x11 {

using WindowId = unsigned long;  // an XID
using AtomId = unsigned long;

struct Atoms {
    AtomId wmProtocols;
    AtomId wmDeleteWindow;
    AtomId netWmName;
    AtomId netWmWindowType;
    AtomId netWmWindowTypeDialog;
    AtomId netWmWindowTypePopupMenu;
    AtomId utf8String;
    AtomId text;
    AtomId targets;
    AtomId incr;
    AtomId clipboard;
    AtomId transferProperty;  // where selections are delivered to us
    AtomId xdndAware;
    AtomId xdndEnter;
    AtomId xdndPosition;
    AtomId xdndStatus;
    AtomId xdndLeave;
    AtomId xdndDrop;
    AtomId xdndFinished;
    AtomId xdndSelection;
    AtomId xdndTypeList;
    AtomId xdndActionCopy;
    AtomId textUriList;
};

// Receives the events of the X windows registered for it.
class EventSink {
public:
    virtual ~EventSink() = default;
    virtual void HandleEvent(_XEvent& event) = 0;
    // The 25 ms tick, for sinks that started a timer.
    virtual void OnTick() {}
    // Called whenever the event queue has been drained: paint what is pending.
    virtual void Flush() {}
    // RunMessageLoop goes on while any sink says so.
    virtual bool KeepsLoopRunning() const { return false; }
};

// The one display connection of the process, opened on first use and kept open.
class Connection {
public:
    // Null, after one log line, when no display can be opened.
    static Connection* Get();

    void Register(WindowId window, EventSink* sink);
    void Unregister(WindowId window);
    EventSink* Find(WindowId window) const;

    void StartTimer(WindowId window, int periodMs);

    // Waits up to `maxWaitMs` (negative: until something happens) for events or a due tick,
    // then handles every queued event, runs the due ticks and flushes the sinks.
    void RunOnce(int maxWaitMs);
    bool AnySinkKeepsRunning() const;

    // Runs the loop until `done` is true. While it runs, input to windows of other sinks is
    // dropped, as an owner window is disabled under a modal dialog; ticks and paints go on.
    void RunModal(EventSink* sink, const std::function<bool()>& done);

    // Waits for an event of `type` on `window`, handling nothing else, for at most `timeoutMs`.
    bool WaitForEvent(WindowId window, int type, _XEvent& out, int timeoutMs);

    _XDisplay* display = nullptr;
    int screen = 0;
    WindowId rootWindow = 0;
    Atoms atoms{};
    WindowId utilityWindow = 0;  // owns the clipboard and receives its transfers
    bool hasShm = false;
    std::string clipboardText;  // served while we own CLIPBOARD

private:
    Connection() = default;
    bool Open();
    void Route(_XEvent& event);
    void RunDueTicks();
    int MillisecondsToNextTick() const;

    struct Timer {
        int periodMs;
        int64_t dueMs;
    };
    std::map<WindowId, EventSink*> sinks;
    std::map<WindowId, Timer> timers;
    EventSink* modal = nullptr;
};

int64_t NowMs();

// Serves and answers CLIPBOARD requests on the utility window.
void HandleClipboardEvent(Connection& connection, _XEvent& event);
void SetClipboardText(const std::string& text);
std::string ClipboardText();

// Turns a bottom-up or top-down 3-byte BGR image into the visual's format and puts an area
// of it on a window, through shared memory when the server offers it.
class ImagePresenter {
public:
    explicit ImagePresenter(WindowId window);
    ~ImagePresenter();
    ImagePresenter(const ImagePresenter&) = delete;
    ImagePresenter& operator=(const ImagePresenter&) = delete;

    // `rowLength` is in pixels; `area` is clipped to width x height.
    void Present(const uint8_t* pixels, int width, int height, int rowLength, bool bottomUp,
                 const Rect& area);

private:
    struct State;
    std::unique_ptr<State> state;
};

// Tells a double click from two single ones: the second press of the same button within
// 400 ms and 4 pixels. A press that completed a double click starts afresh, so a third press
// is a plain press again.
class ClickTracker {
public:
    static constexpr unsigned long kIntervalMs = 400;
    static constexpr int kDistance = 4;

    bool Press(int button, unsigned long timeMs, int x, int y);

private:
    int lastButton = 0;
    unsigned long lastTime = 0;
    int lastX = 0;
    int lastY = 0;
};

// Keysym to the virtual-key number the toolkit expects, 0 for keys it has none for.
// `keysym` is the unshifted symbol, except on the keypad, where NumLock decides.
int VirtualKeyFromKeysym(unsigned long keysym);
// Shift, Control and Mod1 (Alt) of an X event state as G::Modifier bits.
unsigned ModifiersFromState(unsigned state);
// The character a key press types, 0 for none: the keysym's Unicode value, or the single
// Latin-1 byte XLookupString gave (control characters included, delete excluded).
int CharacterFromKey(unsigned long keysym, const char* bytes, int count);

// text/uri-list to local paths: comments and non-file URIs skipped, %-escapes decoded.
std::vector<std::string> DecodeUriList(const std::string& list);

// Accepts XDND drops of files on one window.
class DndReceiver {
public:
    explicit DndReceiver(WindowId window);
    ~DndReceiver();

    // Advertises the window as a drop target.
    void Advertise();
    // Handles the XDND client messages and the selection transfer that ends a drop. `moveTo`
    // receives each client position the pointer reaches, `dropped` the files of a finished
    // drop; either may be the last thing to run, as its handler may close the window.
    void Handle(_XEvent& event, std::function<void(int x, int y)> moveTo,
                std::function<void(std::vector<std::string>)> dropped);

private:
    struct State;
    std::unique_ptr<State> state;
};

// Holds a Theme reference, so menus and dialogs have fonts even with no root control open.
class ThemeReference {
public:
    ThemeReference();
    ~ThemeReference();
    ThemeReference(const ThemeReference&) = delete;
    ThemeReference& operator=(const ThemeReference&) = delete;
};

// A window drawn by the toolkit for menus and dialogs, presenting a top-down bitmap. A menu
// window bypasses the window manager; a dialog is a fixed-size transient of its owner.
class ToolkitWindow {
public:
    enum class Kind { Menu, Dialog };
    // `owner` is the window a dialog stays above (0 for none).
    ToolkitWindow(Kind kind, const Rect& screenRect, const std::string& title, WindowId owner,
                  EventSink* sink);
    ~ToolkitWindow();
    ToolkitWindow(const ToolkitWindow&) = delete;
    ToolkitWindow& operator=(const ToolkitWindow&) = delete;

    WindowId Id() const { return window; }
    Bitmap& Canvas() { return *canvas; }
    // Maps the window and waits (briefly) until it is viewable; a dialog takes the focus.
    void Show();
    void Present(const Rect& area);
    void Present() { Present(Rect{0, 0, rect.w, rect.h}); }
    // True for the window manager's close request.
    bool IsCloseRequest(const _XEvent& event) const;

private:
    Kind kind;
    WindowId window = 0;
    Rect rect;
    std::unique_ptr<Bitmap> canvas;
    std::unique_ptr<ImagePresenter> presenter;
};

// A screen rectangle of w x h centred on the owner's top-level window, or on the screen.
Rect CentredOn(WindowId owner, int w, int h);
// The window area an Expose event names.
Rect ExposedArea(const _XEvent& expose);

// Drawing shared by menus and dialogs.
void FillBox(Renderer& renderer, const Rect& r, Color color);
void FrameBox(Renderer& renderer, const Rect& r, Color color);

// The push buttons along the bottom of a dialog: hover, press and keyboard focus.
class ButtonRow {
public:
    static constexpr int kWidth = 84;
    static constexpr int kHeight = 26;

    // Lays the buttons out right-aligned (or centred) on a row at `y` of a w-wide window.
    void Layout(const std::vector<std::string>& captions, int windowWidth, int y, bool centred);
    void Draw(Renderer& renderer) const;
    // Each returns true when the look changed.
    bool Move(int x, int y);
    bool Press(int x, int y);
    // The index of the button released on after pressing it, or -1.
    int Release(int x, int y);
    void FocusNext(int step);

    std::vector<std::string> captions;
    std::vector<Rect> rects;
    int hover = -1;
    int pressed = -1;
    int focus = 0;

private:
    int At(int x, int y) const;
};

// [SECTION] Menus and dialogs

// The geometry of one menu panel at a screen point, fitted on the screen.
struct MenuPanelLayout {
    static constexpr int kItemHeight = 22;
    static constexpr int kSeparatorHeight = 7;
    static constexpr int kBorder = 2;
    Rect screenRect;
    std::vector<Rect> items;  // in panel coordinates
};
// `captionWidths` per item, -1 for a separator. `alternateX` is where the right edge goes and
// `alternateY` where the bottom goes when the panel does not fit right of `x` or below `y`
// (a submenu flips to its parent's left; a menu near the bottom opens upwards).
MenuPanelLayout LayoutMenuPanel(const std::vector<int>& captionWidths, int x, int y, int alternateX,
                                int alternateY, int screenW, int screenH);

int RunPopupMenu(WindowId owner, const MenuItem& menu, int screenX, int screenY);
MessageBoxResult RunMessageBox(WindowId owner, const std::string& text, const std::string& title,
                               MessageBoxKind kind);
bool RunFileDialog(WindowId owner, const FileDialogRequest& request, bool saving, std::string& path);

// Runs "xdg-open address" detached: its output goes nowhere and a thread of its own reaps it.
// False, with a log line, when it cannot be started (not installed, no PATH entry).
bool OpenUrl(const std::string& address);

}  // namespace G::x11
