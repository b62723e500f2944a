// File drops through the XDND protocol (version 5): the window advertises itself, accepts
// sources that offer text/uri-list with a copy, fetches the list on drop and decodes the
// file:// URIs into paths.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include <algorithm>

#include "g/native/x11/x11_internal.h"

namespace G::x11 {

namespace {

constexpr long kVersion = 5;

int HexValue(char ch) {
    if (ch >= '0' && ch <= '9') return ch - '0';
    if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
    if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
    return -1;
}

std::string PercentDecode(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        int high = i + 2 < text.size() ? HexValue(text[i + 1]) : -1;
        int low = high >= 0 ? HexValue(text[i + 2]) : -1;
        if (text[i] == '%' && low >= 0) {
            out += static_cast<char>(high * 16 + low);
            i += 2;
        } else {
            out += text[i];
        }
    }
    return out;
}

}  // namespace

std::vector<std::string> DecodeUriList(const std::string& list) {
    std::vector<std::string> paths;
    size_t start = 0;
    while (start < list.size()) {
        size_t end = list.find('\n', start);
        if (end == std::string::npos) end = list.size();
        std::string line = list.substr(start, end - start);
        start = end + 1;
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (line.rfind("file:", 0) != 0) continue;  // comments, other schemes, blank lines
        std::string rest = line.substr(5);
        if (rest.rfind("//", 0) == 0) {
            // file://host/path: the host part is dropped; the path starts at the next slash.
            size_t slash = rest.find('/', 2);
            if (slash == std::string::npos) continue;
            rest = rest.substr(slash);
        }
        std::string path = PercentDecode(rest);
        if (!path.empty() && path[0] == '/') paths.push_back(path);
    }
    return paths;
}

struct DndReceiver::State {
    WindowId window = 0;
    WindowId source = 0;
    long version = 0;
    bool acceptable = false;
    bool awaitingData = false;

    void Reply(AtomId type, long l1, long l2) {
        Connection* c = Connection::Get();
        XEvent reply{};
        reply.xclient.type = ClientMessage;
        reply.xclient.display = c->display;
        reply.xclient.window = source;
        reply.xclient.message_type = type;
        reply.xclient.format = 32;
        reply.xclient.data.l[0] = static_cast<long>(window);
        reply.xclient.data.l[1] = l1;
        if (type == c->atoms.xdndFinished) {
            reply.xclient.data.l[2] = l2;
        } else {
            reply.xclient.data.l[4] = l2;  // XdndStatus: the rectangle in l[2], l[3] stays empty
        }
        XSendEvent(c->display, source, False, NoEventMask, &reply);
        XFlush(c->display);
    }

    void Finish(bool success) {
        const Atoms& a = Connection::Get()->atoms;
        Reply(a.xdndFinished, success ? 1 : 0, success ? static_cast<long>(a.xdndActionCopy) : None);
        source = 0;
        acceptable = false;
        awaitingData = false;
    }

    bool OffersUriList(const XClientMessageEvent& enter) {
        Connection* c = Connection::Get();
        std::vector<AtomId> types;
        if (enter.data.l[1] & 1) {
            // More than three types: the source lists them in a property.
            Atom type = None;
            int format = 0;
            unsigned long count = 0;
            unsigned long remaining = 0;
            unsigned char* data = nullptr;
            if (XGetWindowProperty(c->display, source, c->atoms.xdndTypeList, 0, 1024, False, XA_ATOM, &type,
                                   &format, &count, &remaining, &data) == Success &&
                data) {
                auto* atoms = reinterpret_cast<Atom*>(data);
                types.assign(atoms, atoms + count);
            }
            if (data) XFree(data);
        } else {
            for (int i = 2; i < 5; ++i) types.push_back(static_cast<AtomId>(enter.data.l[i]));
        }
        return std::find(types.begin(), types.end(), c->atoms.textUriList) != types.end();
    }
};

DndReceiver::DndReceiver(WindowId window) : state(std::make_unique<State>()) { state->window = window; }

DndReceiver::~DndReceiver() = default;

void DndReceiver::Advertise() {
    Connection* c = Connection::Get();
    Atom version = kVersion;
    XChangeProperty(c->display, state->window, c->atoms.xdndAware, XA_ATOM, 32, PropModeReplace,
                    reinterpret_cast<unsigned char*>(&version), 1);
}

void DndReceiver::Handle(XEvent& event, std::function<void(int x, int y)> moveTo,
                         std::function<void(std::vector<std::string>)> dropped) {
    Connection* c = Connection::Get();
    const Atoms& a = c->atoms;
    State& s = *state;
    if (event.type == SelectionNotify) {
        if (!s.awaitingData || event.xselection.selection != a.xdndSelection) return;
        std::vector<std::string> files;
        if (event.xselection.property != None) {
            Atom type = None;
            int format = 0;
            unsigned long count = 0;
            unsigned long remaining = 0;
            unsigned char* data = nullptr;
            if (XGetWindowProperty(c->display, s.window, event.xselection.property, 0, 0x1FFFFFFF, True,
                                   AnyPropertyType, &type, &format, &count, &remaining, &data) == Success &&
                data && format == 8) {
                files = DecodeUriList(std::string(reinterpret_cast<char*>(data), count));
            }
            if (data) XFree(data);
        }
        // The source hears the outcome first: the drop handler may close this window.
        s.Finish(!files.empty());
        if (!files.empty()) dropped(std::move(files));
        return;
    }
    if (event.type != ClientMessage) return;
    const XClientMessageEvent& message = event.xclient;
    auto sender = static_cast<WindowId>(message.data.l[0]);
    if (message.message_type == a.xdndEnter) {
        s.source = sender;
        s.version = message.data.l[1] >> 24;
        s.acceptable = s.version >= 2 && s.OffersUriList(message);
        s.awaitingData = false;
    } else if (message.message_type == a.xdndPosition) {
        if (sender != s.source) return;
        int x = static_cast<int>((message.data.l[2] >> 16) & 0xFFFF);
        int y = static_cast<int>(message.data.l[2] & 0xFFFF);
        Window child = 0;
        XTranslateCoordinates(c->display, c->rootWindow, s.window, x, y, &x, &y, &child);
        s.Reply(a.xdndStatus, s.acceptable ? 1 : 0,
                s.acceptable ? static_cast<long>(a.xdndActionCopy) : None);
        moveTo(x, y);
    } else if (message.message_type == a.xdndLeave) {
        if (sender == s.source) s.source = 0;
    } else if (message.message_type == a.xdndDrop) {
        if (sender != s.source) return;
        if (!s.acceptable) {
            s.Finish(false);
            return;
        }
        s.awaitingData = true;
        XConvertSelection(c->display, a.xdndSelection, a.textUriList, a.xdndSelection, s.window,
                          static_cast<Time>(message.data.l[2]));
        XFlush(c->display);
    }
}

}  // namespace G::x11
