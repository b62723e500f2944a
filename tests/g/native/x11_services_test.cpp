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

// Waits on the peer's own connection for an event of `type` on `window`.
bool WaitFor(Display* display, Window window, int type, XEvent& event, int timeoutMs = 3000) {
    return test::WaitUntil([&] { return XCheckTypedWindowEvent(display, window, type, &event); }, timeoutMs,
                           1);
}

Window UtilityWindow(Peer& p) {
    return XCreateSimpleWindow(p.display, DefaultRootWindow(p.display), 0, 0, 1, 1, 0, 0, 0);
}

// Converts CLIPBOARD to `target` as another client would.
std::string Request(Peer& peer, Window window, const char* target) {
    XConvertSelection(peer.display, XInternAtom(peer.display, "CLIPBOARD", False),
                      XInternAtom(peer.display, target, False), XInternAtom(peer.display, "PEER_DATA", False),
                      window, CurrentTime);
    peer.Sync();
    XEvent event;
    if (!WaitFor(peer.display, window, SelectionNotify, event)) return "(no answer)";
    if (event.xselection.property == None) return "(refused)";
    return peer.Property(window, "PEER_DATA", true);
}

// Stores `data` (or, when `incrementalSize` is set, an INCR announcement) and tells the requestor.
void AnswerRequest(Display* display, const XSelectionRequestEvent& request, const std::string& data,
                   long incrementalSize = 0) {
    if (incrementalSize) {
        XChangeProperty(display, request.requestor, request.property, XInternAtom(display, "INCR", False), 32,
                        PropModeReplace, reinterpret_cast<unsigned char*>(&incrementalSize), 1);
    } else {
        XChangeProperty(display, request.requestor, request.property, request.target, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(data.data()), static_cast<int>(data.size()));
    }
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
        Window w = UtilityWindow(p);
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

// Owns CLIPBOARD from a connection of its own and serves `text` until destroyed; `chunked`
// sends it through INCR, each 64 KiB piece written when the requestor deletes the last.
class ClipboardOwner {
public:
    ClipboardOwner(const std::string& text, bool chunked) : thread([=, this] { Serve(text, chunked); }) {
        while (!owned) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~ClipboardOwner() {
        stop = true;
        thread.join();
    }

private:
    void Serve(const std::string& text, bool chunked) {
        Peer p;
        Display* d = p.display;
        Window w = UtilityWindow(p);
        XSetSelectionOwner(d, XInternAtom(d, "CLIPBOARD", False), w, CurrentTime);
        p.Sync();
        owned = true;
        XEvent event;
        while (!stop) {
            if (!WaitFor(d, w, SelectionRequest, event, 20)) continue;
            const XSelectionRequestEvent request = event.xselectionrequest;
            if (!chunked) {
                AnswerRequest(d, request, text);
                continue;
            }
            XSelectInput(d, request.requestor, PropertyChangeMask);
            AnswerRequest(d, request, "", static_cast<long>(text.size()));
            for (size_t sent = 0, chunk = 1; chunk > 0 && !stop;) {
                if (!XCheckTypedWindowEvent(d, request.requestor, PropertyNotify, &event)) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(1));
                    continue;
                }
                if (event.xproperty.atom != request.property || event.xproperty.state != PropertyDelete)
                    continue;
                chunk = std::min<size_t>(65536, text.size() - sent);
                XChangeProperty(d, request.requestor, request.property, request.target, 8, PropModeReplace,
                                reinterpret_cast<const unsigned char*>(text.data() + sent),
                                static_cast<int>(chunk));
                p.Sync();
                sent += chunk;
            }
        }
    }

    std::atomic<bool> owned{false};
    std::atomic<bool> stop{false};
    std::thread thread;
};

TEST_F(X11Services, ClipboardTextIsReadFromAnotherOwnerWholeOrInIncrementalChunks) {
    const std::string text = "from the peer \xe2\x9c\x93";
    {
        ClipboardOwner owner(text, false);
        EXPECT_EQ(root->native->ClipboardText(), text);
    }
    // The owner is gone with its connection: the clipboard is empty, and ours again once set.
    EXPECT_EQ(root->native->ClipboardText(), "");
    root->native->SetClipboardText("back");
    EXPECT_EQ(root->native->ClipboardText(), "back");

    std::string large;
    for (int i = 0; large.size() < 300000; ++i) large += "<BLOCK SLOT=\"" + std::to_string(i) + "\"/>\n";
    ClipboardOwner owner(large, true);
    const std::string received = root->native->ClipboardText();
    EXPECT_EQ(received.size(), large.size());
    EXPECT_TRUE(received == large);
}

// Plays an XDND source offering `type` and dropping `uris` at a screen point. Says what the
// target answered: "accepted copy finished success", less the words that did not hold.
std::string Drag(Peer& p, Window target, const char* type, const std::string& uris, int x, int y) {
    Display* d = p.display;
    Window source = UtilityWindow(p);
    Atom copy = XInternAtom(d, "XdndActionCopy", False);
    XSetSelectionOwner(d, XInternAtom(d, "XdndSelection", False), source, CurrentTime);
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
    XEvent event;
    if (!WaitFor(d, source, ClientMessage, event)) return "(no status)";
    std::string answer = event.xclient.data.l[1] & 1 ? "accepted " : "";
    if (static_cast<Atom>(event.xclient.data.l[4]) == copy) answer += "copy ";
    send("XdndDrop", 0, CurrentTime, 0, 0);
    for (int64_t deadline = test::NowMs() + 3000; test::NowMs() < deadline;) {
        if (XCheckTypedWindowEvent(d, source, SelectionRequest, &event)) {
            AnswerRequest(d, event.xselectionrequest, uris);
        } else if (XCheckTypedWindowEvent(d, source, ClientMessage, &event) &&
                   event.xclient.message_type == XInternAtom(d, "XdndFinished", False)) {
            return answer + (event.xclient.data.l[1] & 1 ? "finished success" : "finished");
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    return answer;
}

TEST_F(X11Services, FileDropsAreDecodedAndOfferedToTheControlUnderThePointOthersRefused) {
    auto drag = [&](const char* type, const std::string& data) {
        std::string answer;
        std::atomic<bool> done{false};
        std::thread source([&] {
            Peer p;
            answer = Drag(p, root->GetNativeWindow(), type, data, originX + 120, originY + 70);
            done = true;
        });
        EXPECT_TRUE(PumpUntil([&] { return done.load(); }, 10000));
        source.join();
        return answer;
    };
    EXPECT_EQ(drag("text/uri-list",
                   "# from a file manager\r\nfile:///tmp/a%20b.vrkx\r\nfile://host/tmp/%C3%BC.vrk\r\n"),
              "accepted copy finished success");
    EXPECT_EQ(target->dropped, std::vector<std::string>{"/tmp/a b.vrkx"});
    target->dropped.clear();
    EXPECT_EQ(drag("text/plain", "hello"), "finished");
    EXPECT_TRUE(target->dropped.empty());
}

}  // namespace
