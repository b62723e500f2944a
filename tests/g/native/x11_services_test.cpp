// Clipboard and file drops against another client on the same server: the peer requests and
// serves CLIPBOARD, and plays an XDND drag source dropping onto a control.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>

#include "g/native/native.h"
#include "g/root_control.h"
#include "x11_peer.h"

// Xlib's macros (None, Bool, Status) must come after the test framework.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

using test::Peer;
using test::PumpUntil;

namespace {

int64_t Now() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// Waits on the peer's own connection for an event of `type` on `window`.
bool WaitFor(Display* display, Window window, int type, XEvent& event, int timeoutMs = 3000) {
    int64_t deadline = Now() + timeoutMs;
    while (Now() < deadline) {
        if (XCheckTypedWindowEvent(display, window, type, &event)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return false;
}

std::string Take(Display* display, Window window, Atom property) {
    Atom type = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* data = nullptr;
    XGetWindowProperty(display, window, property, 0, 1 << 20, True, AnyPropertyType, &type, &format, &count,
                       &remaining, &data);
    size_t bytes = count * (format == 32 ? sizeof(long) : format / 8);
    std::string text = data ? std::string(reinterpret_cast<char*>(data), bytes) : std::string();
    if (data) XFree(data);
    return text;
}

// Converts CLIPBOARD to `target` as another client would.
std::string Request(Peer& peer, Window window, const char* target) {
    Atom property = XInternAtom(peer.display, "PEER_DATA", False);
    XConvertSelection(peer.display, XInternAtom(peer.display, "CLIPBOARD", False),
                      XInternAtom(peer.display, target, False), property, window, CurrentTime);
    peer.Sync();
    XEvent event;
    if (!WaitFor(peer.display, window, SelectionNotify, event)) return "(no answer)";
    if (event.xselection.property == None) return "(refused)";
    return Take(peer.display, window, property);
}

void AnswerRequest(Display* display, const XSelectionRequestEvent& request, const std::string& data) {
    XChangeProperty(display, request.requestor, request.property, request.target, 8, PropModeReplace,
                    reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(data.size()));
    XEvent reply{};
    reply.xselection.type = SelectionNotify;
    reply.xselection.requestor = request.requestor;
    reply.xselection.selection = request.selection;
    reply.xselection.target = request.target;
    reply.xselection.property = request.property;
    reply.xselection.time = request.time;
    XSendEvent(display, request.requestor, False, NoEventMask, &reply);
    XFlush(display);
}

class DropTarget : public G::CustomControl {
public:
    using CustomControl::CustomControl;
    bool OnDropFile(const std::string& path) override {
        dropped.push_back(path);
        return true;
    }
    std::vector<std::string> dropped;
};

class X11Services : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_NE(peer.display, nullptr) << "run under xvfb-run";
        root = std::make_unique<G::RootControl>(
            G::native::CreateNativeWindow(L"Services", G::Rect{60, 50, 300, 200}, 0, 0));
        ASSERT_NE(root->native, nullptr);
        target = new DropTarget(root.get());
        root->AddChild(target);
        target->SetBounds(100, 50, 80, 60);
        root->ShowTop();
        ASSERT_TRUE(PumpUntil([&] { return peer.Shown(root->GetNativeWindow()); }));
        peer.Origin(root->GetNativeWindow(), originX, originY);
    }

    Peer peer;
    std::unique_ptr<G::RootControl> root;
    DropTarget* target = nullptr;
    int originX = 0;
    int originY = 0;
};

TEST_F(X11Services, ClipboardTextIsServedToOtherClientsInEachFormat) {
    const std::string text = "[Patch]<PATCH/> gr\xc3\xbcn \xe2\x9c\x93";
    root->native->SetClipboardText(text);
    EXPECT_EQ(root->native->ClipboardText(), text);

    std::atomic<bool> done{false};
    std::string utf8, latin1, targets, other;
    std::thread client([&] {
        Peer p;
        Window w = XCreateSimpleWindow(p.display, DefaultRootWindow(p.display), 0, 0, 1, 1, 0, 0, 0);
        utf8 = Request(p, w, "UTF8_STRING");
        latin1 = Request(p, w, "STRING");
        targets = Request(p, w, "TARGETS");
        other = Request(p, w, "image/png");
        done = true;
    });
    EXPECT_TRUE(PumpUntil([&] { return done.load(); }, 10000));
    client.join();
    EXPECT_EQ(utf8, text);
    EXPECT_EQ(latin1, "[Patch]<PATCH/> gr\xfcn ?");
    ASSERT_EQ(targets.size() % sizeof(long), 0u);
    std::vector<unsigned long> atoms(targets.size() / sizeof(long));
    std::memcpy(atoms.data(), targets.data(), targets.size());
    EXPECT_NE(std::find(atoms.begin(), atoms.end(), XInternAtom(peer.display, "UTF8_STRING", False)),
              atoms.end());
    EXPECT_EQ(other, "(refused)");
}

TEST_F(X11Services, ClipboardTextIsReadFromAnotherOwner) {
    const std::string text = "from the peer \xe2\x9c\x93";
    std::atomic<bool> owned{false};
    std::atomic<bool> stop{false};
    std::thread owner([&] {
        Peer p;
        Window w = XCreateSimpleWindow(p.display, DefaultRootWindow(p.display), 0, 0, 1, 1, 0, 0, 0);
        XSetSelectionOwner(p.display, XInternAtom(p.display, "CLIPBOARD", False), w, CurrentTime);
        p.Sync();
        owned = true;
        while (!stop) {
            XEvent event;
            if (WaitFor(p.display, w, SelectionRequest, event, 20))
                AnswerRequest(p.display, event.xselectionrequest, text);
        }
    });
    while (!owned) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(root->native->ClipboardText(), text);
    stop = true;
    owner.join();
    // The owner is gone with its connection: the clipboard is empty, and ours again once set.
    EXPECT_EQ(root->native->ClipboardText(), "");
    root->native->SetClipboardText("back");
    EXPECT_EQ(root->native->ClipboardText(), "back");
}

TEST_F(X11Services, LargeClipboardTextArrivesInIncrementalChunks) {
    std::string text;
    for (int i = 0; text.size() < 300000; ++i) text += "<BLOCK SLOT=\"" + std::to_string(i) + "\"/>\n";
    std::atomic<bool> owned{false};
    std::atomic<bool> stop{false};
    std::thread owner([&] {
        Peer p;
        Display* d = p.display;
        Window w = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 1, 1, 0, 0, 0);
        XSetSelectionOwner(d, XInternAtom(d, "CLIPBOARD", False), w, CurrentTime);
        p.Sync();
        owned = true;
        XEvent event;
        if (!WaitFor(d, w, SelectionRequest, event)) return;
        XSelectionRequestEvent request = event.xselectionrequest;
        // Announce INCR, then write a chunk each time the requestor deletes the property.
        XSelectInput(d, request.requestor, PropertyChangeMask);
        long size = static_cast<long>(text.size());
        XChangeProperty(d, request.requestor, request.property, XInternAtom(d, "INCR", False), 32,
                        PropModeReplace, reinterpret_cast<unsigned char*>(&size), 1);
        XEvent reply{};
        reply.xselection.type = SelectionNotify;
        reply.xselection.requestor = request.requestor;
        reply.xselection.selection = request.selection;
        reply.xselection.target = request.target;
        reply.xselection.property = request.property;
        XSendEvent(d, request.requestor, False, NoEventMask, &reply);
        p.Sync();
        size_t sent = 0;
        bool finished = false;
        while (!finished && !stop) {
            if (!XCheckTypedWindowEvent(d, request.requestor, PropertyNotify, &event)) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                continue;
            }
            if (event.xproperty.atom != request.property || event.xproperty.state != PropertyDelete) continue;
            size_t chunk = std::min<size_t>(65536, text.size() - sent);
            XChangeProperty(d, request.requestor, request.property, request.target, 8, PropModeReplace,
                            reinterpret_cast<const unsigned char*>(text.data() + sent),
                            static_cast<int>(chunk));
            p.Sync();
            finished = chunk == 0;
            sent += chunk;
        }
    });
    while (!owned) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    std::string received = root->native->ClipboardText();
    stop = true;
    owner.join();
    EXPECT_EQ(received.size(), text.size());
    EXPECT_TRUE(received == text);
}

struct DragResult {
    bool accepted = false;
    bool actionCopy = false;
    bool finished = false;
    bool success = false;
};

// Plays an XDND source offering `type` and dropping `uris` at a screen point.
void Drag(Peer& p, Window target, const char* type, const std::string& uris, int x, int y,
          DragResult& result) {
    Display* d = p.display;
    Window source = XCreateSimpleWindow(d, DefaultRootWindow(d), 0, 0, 1, 1, 0, 0, 0);
    Atom selection = XInternAtom(d, "XdndSelection", False);
    Atom copy = XInternAtom(d, "XdndActionCopy", False);
    XSetSelectionOwner(d, selection, source, CurrentTime);
    auto send = [&](const char* name, long l1, long l2, long l3, long l4) {
        XEvent message{};
        message.xclient.type = ClientMessage;
        message.xclient.window = target;
        message.xclient.message_type = XInternAtom(d, name, False);
        message.xclient.format = 32;
        message.xclient.data.l[0] = static_cast<long>(source);
        message.xclient.data.l[1] = l1;
        message.xclient.data.l[2] = l2;
        message.xclient.data.l[3] = l3;
        message.xclient.data.l[4] = l4;
        XSendEvent(d, target, False, NoEventMask, &message);
        p.Sync();
    };
    send("XdndEnter", 5L << 24, static_cast<long>(XInternAtom(d, type, False)), 0, 0);
    send("XdndPosition", 0, (x << 16) | y, CurrentTime, static_cast<long>(copy));
    XEvent status;
    if (!WaitFor(d, source, ClientMessage, status)) return;
    result.accepted = status.xclient.data.l[1] & 1;
    result.actionCopy = static_cast<Atom>(status.xclient.data.l[4]) == copy;
    send("XdndDrop", 0, CurrentTime, 0, 0);
    int64_t deadline = Now() + 3000;
    while (Now() < deadline && !result.finished) {
        XEvent event;
        if (XCheckTypedWindowEvent(d, source, SelectionRequest, &event)) {
            AnswerRequest(d, event.xselectionrequest, uris);
        } else if (XCheckTypedWindowEvent(d, source, ClientMessage, &event)) {
            result.finished = event.xclient.message_type == XInternAtom(d, "XdndFinished", False);
            result.success = event.xclient.data.l[1] & 1;
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
}

TEST_F(X11Services, FileDropsAreDecodedAndOfferedToTheControlUnderThePointOthersRefused) {
    auto drag = [&](const char* type, const std::string& data) {
        DragResult result;
        std::atomic<bool> done{false};
        std::thread source([&] {
            Peer p;
            Drag(p, root->GetNativeWindow(), type, data, originX + 120, originY + 70, result);
            done = true;
        });
        EXPECT_TRUE(PumpUntil([&] { return done.load(); }, 10000));
        source.join();
        return result;
    };
    DragResult files = drag(
        "text/uri-list", "# from a file manager\r\nfile:///tmp/a%20b.vrkx\r\nfile://host/tmp/%C3%BC.vrk\r\n");
    EXPECT_TRUE(files.accepted);
    EXPECT_TRUE(files.actionCopy);
    EXPECT_TRUE(files.finished);
    EXPECT_TRUE(files.success);
    EXPECT_EQ(target->dropped, std::vector<std::string>{"/tmp/a b.vrkx"});

    target->dropped.clear();
    DragResult text = drag("text/plain", "hello");
    EXPECT_FALSE(text.accepted);
    EXPECT_TRUE(text.finished);
    EXPECT_FALSE(text.success);
    EXPECT_TRUE(target->dropped.empty());
}

}  // namespace
