// Clipboard text through the CLIPBOARD selection: the utility window owns it and serves
// UTF8_STRING, STRING, TEXT and TARGETS; reading converts the owner's selection into a
// property of the utility window and waits for it, INCR transfers included.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

#include "engine/log.h"
#include "g/native/x11/x11_internal.h"
#include "g/utf8.h"

namespace G::x11 {

namespace {

constexpr int kTimeoutMs = 1000;

std::string Utf8ToLatin1(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size();) {
        auto lead = static_cast<unsigned char>(text[i]);
        int length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        uint32_t code = length == 1   ? lead
                        : length == 2 ? lead & 0x1F
                        : length == 3 ? lead & 0x0F
                                      : lead & 0x07;
        for (int k = 1; k < length && i + k < text.size(); ++k)
            code = (code << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
        out += code < 256 ? static_cast<char>(code) : '?';
        i += length;
    }
    return out;
}

std::string Latin1ToUtf8(const std::string& text) {
    std::string out;
    for (char ch : text) AppendUtf8(out, static_cast<unsigned char>(ch));
    return out;
}

// Reads and deletes a property; `type` receives its type.
std::string TakeProperty(Connection& c, AtomId property, AtomId& type) {
    std::string data;
    Atom actualType = None;
    int format = 0;
    unsigned long count = 0;
    unsigned long remaining = 0;
    unsigned char* bytes = nullptr;
    // The length is counted in 32-bit units; this asks for all there is.
    if (XGetWindowProperty(c.display, c.utilityWindow, property, 0, 0x1FFFFFFF, True, AnyPropertyType,
                           &actualType, &format, &count, &remaining, &bytes) == Success) {
        type = actualType;
        if (bytes && format == 8) data.assign(reinterpret_cast<char*>(bytes), count);
    }
    if (bytes) XFree(bytes);
    return data;
}

// After an INCR announcement the owner writes chunks; each deletion asks for the next, and an
// empty chunk ends the transfer.
std::string ReadIncremental(Connection& c, AtomId property) {
    std::string data;
    for (;;) {
        XEvent event;
        do {
            if (!c.WaitForEvent(c.utilityWindow, PropertyNotify, event, kTimeoutMs)) {
                Log(1, "X11: clipboard transfer timed out");
                return data;
            }
        } while (event.xproperty.atom != property || event.xproperty.state != PropertyNewValue);
        AtomId type = None;
        std::string chunk = TakeProperty(c, property, type);
        // A notice from before the last read finds the property gone; only a written empty
        // chunk ends the transfer.
        if (type == None) continue;
        if (chunk.empty()) return data;
        data += chunk;
    }
}

enum class Answer { Data, Refused, Silent };

Answer Convert(Connection& c, AtomId target, std::string& out) {
    AtomId property = c.atoms.transferProperty;
    XDeleteProperty(c.display, c.utilityWindow, property);
    XConvertSelection(c.display, c.atoms.clipboard, target, property, c.utilityWindow, CurrentTime);
    XEvent event;
    if (!c.WaitForEvent(c.utilityWindow, SelectionNotify, event, kTimeoutMs)) {
        Log(1, "X11: the clipboard owner did not answer");
        return Answer::Silent;
    }
    if (event.xselection.property == None) return Answer::Refused;
    AtomId type = None;
    out = TakeProperty(c, property, type);
    if (type == c.atoms.incr) out = ReadIncremental(c, property);
    return Answer::Data;
}

void Serve(Connection& c, const XSelectionRequestEvent& request) {
    XSelectionEvent reply{};
    reply.type = SelectionNotify;
    reply.display = request.display;
    reply.requestor = request.requestor;
    reply.selection = request.selection;
    reply.target = request.target;
    reply.time = request.time;
    // Obsolete clients name no property: the target then serves as one.
    AtomId property = request.property == None ? request.target : request.property;
    reply.property = property;
    const auto& a = c.atoms;
    if (request.selection != a.clipboard) {
        reply.property = None;
    } else if (request.target == a.targets) {
        Atom targets[] = {a.targets, a.utf8String, XA_STRING, a.text};
        XChangeProperty(c.display, request.requestor, property, XA_ATOM, 32, PropModeReplace,
                        reinterpret_cast<unsigned char*>(targets), 4);
    } else if (request.target == a.utf8String || request.target == a.text) {
        XChangeProperty(c.display, request.requestor, property, a.utf8String, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(c.clipboardText.data()),
                        static_cast<int>(c.clipboardText.size()));
    } else if (request.target == XA_STRING) {
        std::string latin1 = Utf8ToLatin1(c.clipboardText);
        XChangeProperty(c.display, request.requestor, property, XA_STRING, 8, PropModeReplace,
                        reinterpret_cast<const unsigned char*>(latin1.data()),
                        static_cast<int>(latin1.size()));
    } else {
        reply.property = None;
    }
    XSendEvent(c.display, request.requestor, False, NoEventMask, reinterpret_cast<XEvent*>(&reply));
}

}  // namespace

void HandleClipboardEvent(Connection& c, XEvent& event) {
    if (event.type == SelectionRequest) {
        Serve(c, event.xselectionrequest);
    } else if (event.type == SelectionClear && event.xselectionclear.selection == c.atoms.clipboard &&
               XGetSelectionOwner(c.display, c.atoms.clipboard) != c.utilityWindow) {
        // A notice queued before we took the clipboard back is stale: only a real loss clears.
        c.clipboardText.clear();
    }
}

void SetClipboardText(const std::string& text) {
    Connection* c = Connection::Get();
    if (!c) return;
    c->clipboardText = text;
    // The time of the triggering event is not known here; CurrentTime cannot lose to an
    // older owner's time stamp.
    XSetSelectionOwner(c->display, c->atoms.clipboard, c->utilityWindow, CurrentTime);
    if (XGetSelectionOwner(c->display, c->atoms.clipboard) != c->utilityWindow)
        Log(1, "X11: could not take the clipboard");
    XFlush(c->display);
}

std::string ClipboardText() {
    Connection* c = Connection::Get();
    if (!c) return {};
    Window owner = XGetSelectionOwner(c->display, c->atoms.clipboard);
    if (owner == None) return {};
    if (owner == c->utilityWindow) return c->clipboardText;
    std::string text;
    Answer answer = Convert(*c, c->atoms.utf8String, text);
    if (answer == Answer::Data) return text;
    if (answer == Answer::Refused && Convert(*c, XA_STRING, text) == Answer::Data) return Latin1ToUtf8(text);
    return {};
}

}  // namespace G::x11
