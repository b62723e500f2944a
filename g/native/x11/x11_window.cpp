// The X11 NativeWindow: creates top-level, child and dialog windows, turns their X events into
// the toolkit's native events (double clicks synthesised, keys as virtual keys plus
// characters), and carries out the platform operations the dispatcher asks for.
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/keysym.h>

#include <algorithm>
#include <cstdio>

#include "engine/log.h"
#include "g/keys.h"
#include "g/native/native.h"
#include "g/native/x11/x11_internal.h"
#include "g/utf8.h"

namespace G::x11 {

namespace {

constexpr int kTickMs = 25;
constexpr long kEventMask = ExposureMask | KeyPressMask | KeyReleaseMask | ButtonPressMask |
                            ButtonReleaseMask | PointerMotionMask | EnterWindowMask | LeaveWindowMask |
                            StructureNotifyMask;

// The modifier a key press or release of a modifier key itself changes; X reports the state
// from before the event.
unsigned ModifierOfKey(unsigned long keysym) {
    switch (keysym) {
        case XK_Shift_L:
        case XK_Shift_R:
            return kShiftDown;
        case XK_Control_L:
        case XK_Control_R:
            return kCtrlDown;
        case XK_Alt_L:
        case XK_Alt_R:
            return kAltDown;
        default:
            return 0;
    }
}

class X11Window : public NativeWindow, public EventSink {
public:
    X11Window(Connection& connection, WindowId window, bool isChild, int w, int h)
        : c(connection), isChild(isChild), width(w), height(h), presenter(window), dnd(window) {
        handle = window;
    }

    ~X11Window() override {
        *alive = false;
        if (destroyed) return;
        c.Unregister(handle);
        XDestroyWindow(c.display, handle);
        XFlush(c.display);
    }

    // [SECTION] Events

    void HandleEvent(XEvent& event) override {
        switch (event.type) {
            case Expose:
                UnionRect(exposed, ExposedArea(event));
                if (event.xexpose.count == 0) OnExposed();
                break;
            case ConfigureNotify:
                if (event.xconfigure.width != width || event.xconfigure.height != height) {
                    width = event.xconfigure.width;
                    height = event.xconfigure.height;
                    Send(NativeEventKind::Size, width, height);
                }
                break;
            case KeyPress:
            case KeyRelease:
                OnKey(event.xkey);
                break;
            case ButtonPress:
                OnButtonPress(event.xbutton);
                break;
            case ButtonRelease:
                OnButtonRelease(event.xbutton);
                break;
            case MotionNotify:
                OnMotion(event);
                break;
            case EnterNotify:
                // A window that appears under a resting pointer learns where it is, as on Windows.
                if (event.xcrossing.mode == NotifyNormal) {
                    modifiers = ModifiersFromState(event.xcrossing.state);
                    Send(NativeEventKind::MouseMove, event.xcrossing.x, event.xcrossing.y);
                }
                break;
            case LeaveNotify:
                if (event.xcrossing.mode == NotifyNormal && event.xcrossing.detail != NotifyInferior)
                    Send(NativeEventKind::MouseLeave, event.xcrossing.x, event.xcrossing.y);
                break;
            case ClientMessage:
                if (event.xclient.message_type == c.atoms.wmProtocols &&
                    static_cast<AtomId>(event.xclient.data.l[0]) == c.atoms.wmDeleteWindow) {
                    OnCloseRequest();
                    break;
                }
                HandleDnd(event);
                break;
            case SelectionNotify:
                HandleDnd(event);
                break;
            case DestroyNotify:
                if (event.xdestroywindow.window == handle) OnDestroyed();
                break;
            default:
                break;
        }
    }

    void OnTick() override { Send(NativeEventKind::Timer, 0, 0); }
    void Flush() override { PaintNow(); }
    bool KeepsLoopRunning() const override { return running && !destroyed; }

    // [SECTION] Platform operations

    void SetClientSize(int w, int h) override {
        XResizeWindow(c.display, handle, std::max(w, 1), std::max(h, 1));
    }

    void ClientSize(int& w, int& h) override {
        w = width;
        h = height;
    }

    void ShowAndRaise() override {
        WindowId window = handle;
        Display* display = c.display;
        if (!sizeAnnounced) {
            // A window learns its size when first shown, as on Windows; the tree may be deleted by
            // what it hears, so only copies are used after.
            sizeAnnounced = true;
            Send(NativeEventKind::Size, width, height);
        }
        XMapRaised(display, window);
        XFlush(display);
    }

    void SetTitle(const std::wstring& title) override {
        std::string utf8 = ToUtf8(title);
        XChangeProperty(c.display, handle, c.atoms.netWmName, c.atoms.utf8String, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(utf8.data()), static_cast<int>(utf8.size()));
        std::string latin1;
        for (wchar_t ch : title) latin1 += ch < 256 ? static_cast<char>(ch) : '?';
        XChangeProperty(c.display, handle, XA_WM_NAME, XA_STRING, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(latin1.data()),
                        static_cast<int>(latin1.size()));
    }

    void SetCapture() override {
        XGrabPointer(c.display, handle, False, ButtonPressMask | ButtonReleaseMask | PointerMotionMask,
                     GrabModeAsync, GrabModeAsync, None, None, CurrentTime);
    }

    void ReleaseCapture() override { XUngrabPointer(c.display, CurrentTime); }

    // X reports every leave on its own; nothing needs asking for.
    void RequestMouseLeave() override {}

    void ClientToScreen(int& x, int& y) override { Translate(handle, c.rootWindow, x, y); }
    void ScreenToClient(int& x, int& y) override { Translate(c.rootWindow, handle, x, y); }

    void ScreenSize(int& w, int& h) override {
        w = DisplayWidth(c.display, c.screen);
        h = DisplayHeight(c.display, c.screen);
    }

    void CursorPosition(int& x, int& y) override {
        Window root = 0;
        Window child = 0;
        int winX = 0;
        int winY = 0;
        unsigned mask = 0;
        x = y = 0;
        XQueryPointer(c.display, c.rootWindow, &root, &child, &x, &y, &winX, &winY, &mask);
    }

    void InvalidateRect(const Rect& r) override {
        UnionRect(pendingPaint, r);
        needsPaint = true;
    }

    void PaintNow() override {
        if (!needsPaint) return;
        needsPaint = false;
        pendingPaint = Rect{};
        Send(NativeEventKind::Paint, 0, 0);
    }

    void PresentSurface(const Rect& area) override {
        if (surface.empty() || surfaceHeight <= 0 || surfaceRowLength <= 0) return;
        // Never read past the surface, whatever sizes the caller passes.
        int w = std::min(surfaceWidth, surfaceRowLength);
        int h = std::min<int>(surfaceHeight, surface.size() / (3 * surfaceRowLength));
        presenter.Present(surface.data(), w, h, surfaceRowLength, true, area);
    }

    void SetClipboardText(const std::string& text) override { x11::SetClipboardText(text); }
    std::string ClipboardText() override { return x11::ClipboardText(); }

    int RunPopupMenu(const MenuItem& menu, int screenX, int screenY, unsigned) override {
        return x11::RunPopupMenu(handle, menu, screenX, screenY);
    }

    MessageBoxResult ShowMessageBox(const std::string& text, const std::string& title,
                                    MessageBoxKind kind) override {
        return RunMessageBox(handle, text, title, kind);
    }

    bool OpenFileDialog(const FileDialogRequest& request, std::string& path) override {
        return RunFileDialog(handle, request, false, path);
    }

    bool SaveFileDialog(const FileDialogRequest& request, std::string& path) override {
        return RunFileDialog(handle, request, true, path);
    }

    bool OpenUrl(const std::string& address) override { return x11::OpenUrl(address); }

    void Advertise() { dnd.Advertise(); }

private:
    void Send(NativeEventKind kind, int x, int y, int key = 0, int wheelDelta = 0) {
        NativeEvent event;
        event.kind = kind;
        event.x = x;
        event.y = y;
        event.key = key;
        event.wheelDelta = wheelDelta;
        event.modifiers = modifiers;
        Dispatch(event);
    }

    void Translate(WindowId from, WindowId to, int& x, int& y) {
        Window child = 0;
        int outX = x;
        int outY = y;
        if (XTranslateCoordinates(c.display, from, to, x, y, &outX, &outY, &child)) {
            x = outX;
            y = outY;
        }
    }

    void OnExposed() {
        Rect area = exposed;
        exposed = Rect{};
        if (surface.empty()) {
            // The first paint makes the surface; what it left out is still white and shown so.
            std::shared_ptr<bool> living = alive;
            Send(NativeEventKind::Paint, 0, 0);
            if (!*living) return;
        }
        PresentSurface(area);
    }

    void OnKey(XKeyEvent& key) {
        char bytes[16];
        KeySym keysym = NoSymbol;
        int count = XLookupString(&key, bytes, sizeof bytes, &keysym, nullptr);
        // Letters and digits are named by the unshifted key; the keypad follows NumLock.
        KeySym base = IsKeypadKey(keysym) ? keysym : XLookupKeysym(&key, 0);
        modifiers = ModifiersFromState(key.state);
        if (key.type == KeyPress) {
            modifiers |= ModifierOfKey(base);
        } else {
            modifiers &= ~ModifierOfKey(base);
        }
        int virtualKey = VirtualKeyFromKeysym(base);
        if (key.type == KeyRelease) {
            if (virtualKey) Send(NativeEventKind::KeyUp, 0, 0, virtualKey);
            return;
        }
        std::shared_ptr<bool> living = alive;
        if (virtualKey) Send(NativeEventKind::KeyDown, 0, 0, virtualKey);
        if (!*living) return;
        if (int code = CharacterFromKey(keysym, bytes, count)) Send(NativeEventKind::Char, 0, 0, code);
    }

    void OnButtonPress(XButtonEvent& button) {
        modifiers = ModifiersFromState(button.state);
        // An embedded editor takes the keyboard when clicked; the host owns the top level.
        if (isChild) XSetInputFocus(c.display, handle, RevertToParent, button.time);
        switch (button.button) {
            case Button4:
            case Button5:
                Send(NativeEventKind::Wheel, button.x, button.y, 0, button.button == Button4 ? 120 : -120);
                return;
            case 6:
            case 7:
                Send(NativeEventKind::HWheel, button.x, button.y, 0, button.button == 7 ? 120 : -120);
                return;
            default:
                break;
        }
        static constexpr NativeEventKind kDown[] = {NativeEventKind::LeftDown, NativeEventKind::MiddleDown,
                                                    NativeEventKind::RightDown};
        static constexpr NativeEventKind kDouble[] = {NativeEventKind::LeftDoubleClick,
                                                      NativeEventKind::MiddleDoubleClick,
                                                      NativeEventKind::RightDoubleClick};
        if (button.button < Button1 || button.button > Button3) return;
        int index = static_cast<int>(button.button - Button1);
        bool isDouble = clicks.Press(button.button, button.time, button.x, button.y);
        Send(isDouble ? kDouble[index] : kDown[index], button.x, button.y);
    }

    void OnButtonRelease(XButtonEvent& button) {
        static constexpr NativeEventKind kUp[] = {NativeEventKind::LeftUp, NativeEventKind::MiddleUp,
                                                  NativeEventKind::RightUp};
        if (button.button < Button1 || button.button > Button3) return;
        modifiers = ModifiersFromState(button.state);
        Send(kUp[button.button - Button1], button.x, button.y);
    }

    void OnMotion(XEvent& event) {
        // Only the newest of a run of queued moves matters; other events keep their order.
        XEvent next;
        while (XEventsQueued(c.display, QueuedAlready) > 0) {
            XPeekEvent(c.display, &next);
            if (next.type != MotionNotify || next.xmotion.window != handle) break;
            XNextEvent(c.display, &event);
        }
        modifiers = ModifiersFromState(event.xmotion.state);
        Send(NativeEventKind::MouseMove, event.xmotion.x, event.xmotion.y);
    }

    void OnCloseRequest() {
        NativeEvent close;
        close.kind = NativeEventKind::Close;
        close.modifiers = modifiers;
        // Declined or unhandled, a close destroys the window, as default processing does on
        // Windows; DestroyNotify then tells the tree.
        std::shared_ptr<bool> living = alive;
        WindowId window = handle;
        if (!Dispatch(close) && *living && !destroyed) XDestroyWindow(c.display, window);
    }

    void OnDestroyed() {
        destroyed = true;
        c.Unregister(handle);
        // The tree may delete this object while handling Destroy: nothing may follow.
        Send(NativeEventKind::Destroy, 0, 0);
    }

    void HandleDnd(XEvent& event) {
        dnd.Handle(
            event, [this](int x, int y) { Send(NativeEventKind::MouseMove, x, y); },
            [this](std::vector<std::string> files) {
                NativeEvent drop;
                drop.kind = NativeEventKind::DropFiles;
                drop.x = mouseX;
                drop.y = mouseY;
                drop.modifiers = modifiers;
                drop.files = std::move(files);
                Dispatch(drop);
            });
    }

    Connection& c;
    // Cleared by the destructor: a handler may delete this window while it is dispatching.
    std::shared_ptr<bool> alive = std::make_shared<bool>(true);
    bool isChild;
    bool destroyed = false;
    int width;
    int height;
    unsigned modifiers = 0;
    bool needsPaint = false;
    bool sizeAnnounced = false;
    Rect pendingPaint;
    Rect exposed;
    ClickTracker clicks;
    ImagePresenter presenter;
    DndReceiver dnd;
};

}  // namespace

}  // namespace G::x11

namespace G::native {

std::unique_ptr<NativeWindow> CreateNativeWindow(const std::wstring& title, const Rect& rect,
                                                 uintptr_t parent, uint32_t style) {
    x11::Connection* c = x11::Connection::Get();
    if (!c) return nullptr;
    bool isChild = (style & kStyleChild) != 0;
    if (isChild && parent == 0) {
        Log(1, "X11: a child window needs a parent; creating a top-level window instead");
        isChild = false;
    }
    int w = std::max(rect.w, 1);
    int h = std::max(rect.h, 1);
    XSetWindowAttributes attributes{};
    attributes.background_pixel = WhitePixel(c->display, c->screen);
    attributes.event_mask = x11::kEventMask;
    // Keeps the old pixels in place on a resize until the surface is presented again.
    attributes.bit_gravity = NorthWestGravity;
    Window window =
        XCreateWindow(c->display, isChild ? parent : c->rootWindow, rect.x, rect.y, w, h, 0, CopyFromParent,
                      InputOutput, CopyFromParent, CWBackPixel | CWEventMask | CWBitGravity, &attributes);
    if (!window) {
        Log(1, "X11: XCreateWindow failed");
        return nullptr;
    }
    auto native = std::make_unique<x11::X11Window>(*c, window, isChild, w, h);
    if (!isChild) {
        XSetWMProtocols(c->display, window, &c->atoms.wmDeleteWindow, 1);
        XSizeHints hints{};
        hints.flags = USPosition | USSize;
        hints.x = rect.x;
        hints.y = rect.y;
        hints.width = w;
        hints.height = h;
        XSetWMNormalHints(c->display, window, &hints);
        XClassHint classHint{const_cast<char*>("vrok"), const_cast<char*>("Vrok")};
        XSetClassHint(c->display, window, &classHint);
        if (style & kStylePopup) {
            XChangeProperty(c->display, window, c->atoms.netWmWindowType, XA_ATOM, 32, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(&c->atoms.netWmWindowTypeDialog), 1);
        }
    }
    native->SetTitle(title);
    native->Advertise();
    c->Register(window, native.get());
    c->StartTimer(window, x11::kTickMs);
    // The window exists on the server when this returns, as other clients may look it up.
    XSync(c->display, False);
    return native;
}

}  // namespace G::native
