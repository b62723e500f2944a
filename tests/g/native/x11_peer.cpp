// The test peer: XTest input, window lookups and pixel reads on a connection of its own.
#include "x11_peer.h"

#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XTest.h>
#include <X11/keysym.h>

#include <chrono>

#include "g/native/native.h"

namespace test {

namespace {

// The peer runs on a helper thread while the toolkit's connection runs on the test thread.
const Status kThreadsReady = XInitThreads();

bool HasTitle(Display* display, Window window, const std::string& title) {
    char* name = nullptr;
    bool same = XFetchName(display, window, &name) && name && title == name;
    if (name) XFree(name);
    return same;
}

}  // namespace

Peer::Peer() : display(XOpenDisplay(nullptr)) {}

Peer::~Peer() {
    if (display) XCloseDisplay(display);
}

void Peer::MoveTo(int x, int y) {
    XTestFakeMotionEvent(display, -1, x, y, CurrentTime);
    Sync();
}

void Peer::Button(int button, bool down) {
    XTestFakeButtonEvent(display, button, down, CurrentTime);
    Sync();
}

void Peer::Click(int button) {
    Button(button, true);
    Button(button, false);
}

void Peer::Key(unsigned long keysym, unsigned long modifier) {
    KeyCode modifierCode = modifier ? XKeysymToKeycode(display, modifier) : 0;
    KeyCode code = XKeysymToKeycode(display, keysym);
    if (modifierCode) XTestFakeKeyEvent(display, modifierCode, True, CurrentTime);
    XTestFakeKeyEvent(display, code, True, CurrentTime);
    XTestFakeKeyEvent(display, code, False, CurrentTime);
    if (modifierCode) XTestFakeKeyEvent(display, modifierCode, False, CurrentTime);
    Sync();
}

void Peer::Type(const std::string& ascii) {
    for (char ch : ascii) Key(ch == '\r' ? XK_Return : static_cast<unsigned char>(ch));
}

void Peer::Focus(WindowId window) {
    XSetInputFocus(display, window, RevertToParent, CurrentTime);
    Sync();
}

void Peer::SendClose(WindowId window) {
    XEvent close{};
    close.xclient.type = ClientMessage;
    close.xclient.window = window;
    close.xclient.message_type = XInternAtom(display, "WM_PROTOCOLS", False);
    close.xclient.format = 32;
    close.xclient.data.l[0] = static_cast<long>(XInternAtom(display, "WM_DELETE_WINDOW", False));
    XSendEvent(display, window, False, NoEventMask, &close);
    Sync();
}

void Peer::Sync() { XSync(display, False); }

bool Peer::Shown(WindowId window) {
    XWindowAttributes attributes;
    return XGetWindowAttributes(display, window, &attributes) && attributes.map_state == IsViewable;
}

WindowId Peer::WaitForWindow(const std::string& title, int timeoutMs, WindowId except) {
    WindowId found = 0;
    WaitUntil(
        [&] {
            Window root = 0, parent = 0, *children = nullptr;
            unsigned count = 0;
            if (!XQueryTree(display, DefaultRootWindow(display), &root, &parent, &children, &count))
                return false;
            for (unsigned i = 0; i < count && !found; ++i) {
                if (children[i] != except && HasTitle(display, children[i], title) && Shown(children[i]))
                    found = children[i];
            }
            if (children) XFree(children);
            return found != 0;
        },
        timeoutMs);
    return found;
}

bool Peer::WaitForGone(WindowId window, int timeoutMs) {
    return WaitUntil([&] { return !Shown(window); }, timeoutMs);
}

bool Peer::WaitForPointerGrab(int timeoutMs) {
    return WaitUntil(
        [&] {
            int status = XGrabPointer(display, DefaultRootWindow(display), False, ButtonPressMask,
                                      GrabModeAsync, GrabModeAsync, None, None, CurrentTime);
            if (status == GrabSuccess) XUngrabPointer(display, CurrentTime);
            Sync();
            return status == AlreadyGrabbed;
        },
        timeoutMs);
}

unsigned long Peer::Pixel(WindowId window, int x, int y) {
    XImage* image = XGetImage(display, window, x, y, 1, 1, AllPlanes, ZPixmap);
    if (!image) return 0xFFFFFFFF;
    unsigned long pixel = XGetPixel(image, 0, 0);
    XDestroyImage(image);
    return pixel & 0xFFFFFF;
}

void Peer::Origin(WindowId window, int& x, int& y) {
    Window child = 0;
    XTranslateCoordinates(display, window, DefaultRootWindow(display), 0, 0, &x, &y, &child);
}

std::string Peer::Property(WindowId window, const char* name, bool remove) {
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    XGetWindowProperty(display, window, XInternAtom(display, name, False), 0, 1 << 20, remove,
                       AnyPropertyType, &type, &format, &count, &remaining, &data);
    size_t bytes = count * (format == 32 ? sizeof(long) : format / 8);
    std::string text = data ? std::string(reinterpret_cast<char*>(data), bytes) : std::string();
    if (data) XFree(data);
    return text;
}

int64_t NowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

bool WaitUntil(const std::function<bool()>& done, int timeoutMs, int napMs) {
    for (int64_t deadline = NowMs() + timeoutMs;;
         std::this_thread::sleep_for(std::chrono::milliseconds(napMs))) {
        if (done()) return true;
        if (NowMs() >= deadline) return false;
    }
}

bool PumpUntil(const std::function<bool()>& done, int timeoutMs) {
    return WaitUntil(
        [&] {
            G::native::PumpPendingMessages();
            return done();
        },
        timeoutMs, 1);
}

ModalDriver::ModalDriver(std::function<void(Peer&)> script)
    : thread([this, script = std::move(script)] {
          Peer peer;
          if (!peer.display) return;
          script(peer);
          WaitUntil([this] { return finished.load(); }, 3000);
          for (int tries = 0; !finished && tries < 100; ++tries) {
              peer.Key(XK_Escape);
              std::this_thread::sleep_for(std::chrono::milliseconds(50));
          }
      }) {}

void ModalDriver::Finish() {
    finished = true;
    if (thread.joinable()) thread.join();
}

ModalDriver::~ModalDriver() { Finish(); }

}  // namespace test
