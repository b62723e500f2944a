// The shared display connection: atoms, the utility window that owns the clipboard, event
// routing to the windows' sinks, the 25 ms ticks through select() on the connection's file
// descriptor, and the message loops.
#include <X11/XKBlib.h>
#include <X11/Xatom.h>
#include <X11/Xlib.h>
#include <X11/extensions/XShm.h>
#include <sys/select.h>

#include <algorithm>
#include <chrono>
#include <cstdio>

#include "engine/log.h"
#include "g/native/native.h"
#include "g/native/x11/x11_internal.h"

namespace G::x11 {

namespace {

int LogXError(Display* display, XErrorEvent* error) {
    char text[160];
    XGetErrorText(display, error->error_code, text, sizeof text);
    char line[256];
    std::snprintf(line, sizeof line, "X11 error: %s (request %d)", text, error->request_code);
    Log(1, line);
    return 0;
}

bool IsInputEvent(int type) {
    switch (type) {
        case KeyPress:
        case KeyRelease:
        case ButtonPress:
        case ButtonRelease:
        case MotionNotify:
        case EnterNotify:
        case LeaveNotify:
            return true;
        default:
            return false;
    }
}

}  // namespace

int64_t NowMs() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

Connection* Connection::Get() {
    // Opened once; a failed attempt is not repeated, so the log line appears once.
    static Connection* connection = [] {
        auto* c = new Connection;
        if (c->Open()) return c;
        delete c;
        return static_cast<Connection*>(nullptr);
    }();
    return connection;
}

bool Connection::Open() {
    display = XOpenDisplay(nullptr);
    if (!display) {
        const char* name = XDisplayName(nullptr);
        char line[256];
        std::snprintf(line, sizeof line, "X11: cannot open display \"%s\"; no window is created",
                      name ? name : "");
        Log(1, line);
        return false;
    }
    XSetErrorHandler(LogXError);
    screen = DefaultScreen(display);
    rootWindow = RootWindow(display, screen);
    // Key repeat then sends presses without releases in between, as Windows does.
    XkbSetDetectableAutoRepeat(display, True, nullptr);

    const char* names[] = {"WM_PROTOCOLS",
                           "WM_DELETE_WINDOW",
                           "_NET_WM_NAME",
                           "_NET_WM_WINDOW_TYPE",
                           "_NET_WM_WINDOW_TYPE_DIALOG",
                           "_NET_WM_WINDOW_TYPE_POPUP_MENU",
                           "UTF8_STRING",
                           "TEXT",
                           "TARGETS",
                           "INCR",
                           "CLIPBOARD",
                           "VROK_TRANSFER",
                           "XdndAware",
                           "XdndEnter",
                           "XdndPosition",
                           "XdndStatus",
                           "XdndLeave",
                           "XdndDrop",
                           "XdndFinished",
                           "XdndSelection",
                           "XdndTypeList",
                           "XdndActionCopy",
                           "text/uri-list"};
    constexpr int kCount = sizeof names / sizeof names[0];
    static_assert(kCount * sizeof(AtomId) == sizeof(Atoms), "one name per atom field");
    Atom values[kCount];
    XInternAtoms(display, const_cast<char**>(names), kCount, False, values);
    std::copy(values, values + kCount, reinterpret_cast<AtomId*>(&atoms));

    int major = 0;
    int minor = 0;
    Bool pixmaps = False;
    int opcode = 0;
    int firstEvent = 0;
    int firstError = 0;
    // Asking for the version of a missing extension prints a warning; ask whether it exists first.
    hasShm = XQueryExtension(display, "MIT-SHM", &opcode, &firstEvent, &firstError) &&
             XShmQueryVersion(display, &major, &minor, &pixmaps) == True;

    XSetWindowAttributes attributes{};
    attributes.event_mask = PropertyChangeMask;
    utilityWindow = XCreateWindow(display, rootWindow, -10, -10, 1, 1, 0, 0, InputOnly, CopyFromParent,
                                  CWEventMask, &attributes);
    return true;
}

void Connection::Register(WindowId window, EventSink* sink) { sinks[window] = sink; }

void Connection::Unregister(WindowId window) {
    sinks.erase(window);
    timers.erase(window);
}

EventSink* Connection::Find(WindowId window) const {
    auto it = sinks.find(window);
    return it == sinks.end() ? nullptr : it->second;
}

void Connection::StartTimer(WindowId window, int periodMs) {
    timers[window] = Timer{periodMs, NowMs() + periodMs};
}

bool Connection::AnySinkKeepsRunning() const {
    return std::any_of(sinks.begin(), sinks.end(),
                       [](const auto& entry) { return entry.second->KeepsLoopRunning(); });
}

int Connection::MillisecondsToNextTick() const {
    if (timers.empty()) return -1;
    int64_t due = INT64_MAX;
    for (const auto& entry : timers) due = std::min(due, entry.second.dueMs);
    return static_cast<int>(std::clamp<int64_t>(due - NowMs(), 0, 1000));
}

void Connection::RunOnce(int maxWaitMs) {
    XFlush(display);
    if (XPending(display) == 0) {
        int waitMs = MillisecondsToNextTick();
        if (maxWaitMs >= 0 && (waitMs < 0 || maxWaitMs < waitMs)) waitMs = maxWaitMs;
        int fd = ConnectionNumber(display);
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(fd, &readable);
        timeval timeout{waitMs / 1000, (waitMs % 1000) * 1000};
        select(fd + 1, &readable, nullptr, nullptr, waitMs < 0 ? nullptr : &timeout);
    }
    while (XPending(display) > 0) {
        XEvent event;
        XNextEvent(display, &event);
        Route(event);
    }
    RunDueTicks();
    // A sink may unregister (and so end) while another flushes: walk a copy of the ids.
    std::vector<WindowId> ids;
    for (const auto& entry : sinks) ids.push_back(entry.first);
    for (WindowId id : ids) {
        if (EventSink* sink = Find(id)) sink->Flush();
    }
    XFlush(display);
}

void Connection::Route(XEvent& event) {
    if (event.xany.window == utilityWindow) {
        HandleClipboardEvent(*this, event);
        return;
    }
    EventSink* sink = Find(event.xany.window);
    if (!sink) return;
    if (modal && sink != modal && IsInputEvent(event.type)) return;
    sink->HandleEvent(event);
}

void Connection::RunDueTicks() {
    int64_t now = NowMs();
    std::vector<WindowId> due;
    for (auto& [window, timer] : timers) {
        if (timer.dueMs > now) continue;
        // A late tick is not made up for: the next one is a full period away.
        timer.dueMs = std::max(timer.dueMs + timer.periodMs, now + 1);
        due.push_back(window);
    }
    for (WindowId window : due) {
        if (EventSink* sink = Find(window)) sink->OnTick();
    }
}

void Connection::RunModal(EventSink* sink, const std::function<bool()>& done) {
    EventSink* outer = modal;
    modal = sink;
    while (!done()) RunOnce(-1);
    modal = outer;
}

bool Connection::WaitForEvent(WindowId window, int type, XEvent& out, int timeoutMs) {
    int64_t deadline = NowMs() + timeoutMs;
    int fd = ConnectionNumber(display);
    for (;;) {
        XFlush(display);
        if (XCheckTypedWindowEvent(display, window, type, &out)) return true;
        int64_t left = deadline - NowMs();
        if (left <= 0) return false;
        fd_set readable;
        FD_ZERO(&readable);
        FD_SET(fd, &readable);
        timeval timeout{static_cast<long>(left / 1000), static_cast<long>((left % 1000) * 1000)};
        select(fd + 1, &readable, nullptr, nullptr, &timeout);
    }
}

}  // namespace G::x11

namespace G::native {

void RunMessageLoop() {
    x11::Connection* connection = x11::Connection::Get();
    if (!connection) return;
    while (connection->AnySinkKeepsRunning()) connection->RunOnce(-1);
}

void PumpPendingMessages() {
    if (x11::Connection* connection = x11::Connection::Get()) connection->RunOnce(0);
}

}  // namespace G::native
