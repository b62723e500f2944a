// Puts 3-byte BGR pixels on a window: one XImage in the visual's format, kept across paints
// and remade when the size changes, in shared memory (MIT-SHM) when the server offers it.
#include <X11/Xlib.h>
#include <X11/Xutil.h>
#include <X11/extensions/XShm.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include <algorithm>

#include "engine/log.h"
#include "g/native/x11/x11_internal.h"

namespace G::x11 {

namespace {

bool shmAttachFailed = false;

int NoteShmError(Display*, XErrorEvent*) {
    shmAttachFailed = true;
    return 0;
}

int ShiftOf(unsigned long mask) {
    int shift = 0;
    while (mask && !(mask & 1)) {
        mask >>= 1;
        ++shift;
    }
    return shift;
}

int BitsOf(unsigned long mask) {
    int bits = 0;
    for (; mask; mask >>= 1) bits += mask & 1;
    return bits;
}

}  // namespace

struct ImagePresenter::State {
    WindowId window = 0;
    GC gc = nullptr;
    XImage* image = nullptr;
    XShmSegmentInfo shm{};
    bool usesShm = false;
    // Whether the pixel format is 32-bit little-endian x8r8g8b8, the common case copied directly.
    bool isXrgb = false;

    void Release(Display* display) {
        if (!image) return;
        if (usesShm) {
            XShmDetach(display, &shm);
            XSync(display, False);
            XDestroyImage(image);
            shmdt(shm.shmaddr);
        } else {
            XDestroyImage(image);  // frees the data malloc'd in Create
        }
        image = nullptr;
        usesShm = false;
    }

    bool CreateShared(Connection& c, Visual* visual, int depth, int w, int h) {
        image = XShmCreateImage(c.display, visual, depth, ZPixmap, nullptr, &shm, w, h);
        if (!image) return false;
        shm.shmid = shmget(IPC_PRIVATE, static_cast<size_t>(image->bytes_per_line) * h, IPC_CREAT | 0600);
        if (shm.shmid < 0) {
            XDestroyImage(image);
            image = nullptr;
            return false;
        }
        shm.shmaddr = image->data = static_cast<char*>(shmat(shm.shmid, nullptr, 0));
        shm.readOnly = False;
        // A remote server cannot attach our segment; it tells so only through an error.
        shmAttachFailed = false;
        XErrorHandler previous = XSetErrorHandler(NoteShmError);
        XShmAttach(c.display, &shm);
        XSync(c.display, False);
        XSetErrorHandler(previous);
        shmctl(shm.shmid, IPC_RMID, nullptr);  // freed once both sides detach
        if (shmAttachFailed || shm.shmaddr == reinterpret_cast<char*>(-1)) {
            if (shm.shmaddr != reinterpret_cast<char*>(-1)) shmdt(shm.shmaddr);
            image->data = nullptr;
            XDestroyImage(image);
            image = nullptr;
            c.hasShm = false;
            Log(1, "X11: shared memory images unavailable, using XPutImage");
            return false;
        }
        usesShm = true;
        return true;
    }

    bool Create(Connection& c, int w, int h) {
        Release(c.display);
        Visual* visual = DefaultVisual(c.display, c.screen);
        int depth = DefaultDepth(c.display, c.screen);
        if (!(c.hasShm && CreateShared(c, visual, depth, w, h))) {
            image = XCreateImage(c.display, visual, depth, ZPixmap, 0, nullptr, w, h, 32, 0);
            if (!image) return false;
            image->data = static_cast<char*>(malloc(static_cast<size_t>(image->bytes_per_line) * h));
            if (!image->data) {
                XDestroyImage(image);
                image = nullptr;
                return false;
            }
        }
        isXrgb = image->bits_per_pixel == 32 && image->byte_order == LSBFirst &&
                 image->red_mask == 0xFF0000 && image->green_mask == 0xFF00 && image->blue_mask == 0xFF;
        return true;
    }

    void Convert(const uint8_t* source, int x0, int x1, int y) {
        if (isXrgb) {
            auto* out = reinterpret_cast<uint8_t*>(image->data + y * image->bytes_per_line) + x0 * 4;
            for (int x = x0; x < x1; ++x, source += 3, out += 4) {
                out[0] = source[0];
                out[1] = source[1];
                out[2] = source[2];
                out[3] = 0;
            }
            return;
        }
        const unsigned long masks[3] = {image->blue_mask, image->green_mask, image->red_mask};
        for (int x = x0; x < x1; ++x, source += 3) {
            unsigned long pixel = 0;
            for (int channel = 0; channel < 3; ++channel) {
                int bits = BitsOf(masks[channel]);
                unsigned long value = bits >= 8 ? source[channel] : source[channel] >> (8 - bits);
                pixel |= (value << ShiftOf(masks[channel])) & masks[channel];
            }
            XPutPixel(image, x, y, pixel);
        }
    }
};

ImagePresenter::ImagePresenter(WindowId window) : state(std::make_unique<State>()) { state->window = window; }

ImagePresenter::~ImagePresenter() {
    Connection* c = Connection::Get();
    if (!c) return;
    state->Release(c->display);
    if (state->gc) XFreeGC(c->display, state->gc);
}

void ImagePresenter::Present(const uint8_t* pixels, int width, int height, int rowLength, bool bottomUp,
                             const Rect& area) {
    Connection* c = Connection::Get();
    if (!c || !pixels || width <= 0 || height <= 0) return;
    int x0 = std::max(area.x, 0);
    int y0 = std::max(area.y, 0);
    int x1 = std::min(area.x + area.w, width);
    int y1 = std::min(area.y + area.h, height);
    if (x0 >= x1 || y0 >= y1) return;
    State& s = *state;
    if (!s.image || s.image->width != width || s.image->height != height) {
        if (!s.Create(*c, width, height)) return;
    }
    if (!s.gc) s.gc = XCreateGC(c->display, s.window, 0, nullptr);
    for (int y = y0; y < y1; ++y) {
        int row = bottomUp ? height - 1 - y : y;
        s.Convert(pixels + (static_cast<size_t>(row) * rowLength + x0) * 3, x0, x1, y);
    }
    if (s.usesShm) {
        XShmPutImage(c->display, s.window, s.gc, s.image, x0, y0, x0, y0, x1 - x0, y1 - y0, False);
        // The server reads the segment after the request; wait so the next paint cannot race it.
        XSync(c->display, False);
    } else {
        XPutImage(c->display, s.window, s.gc, s.image, x0, y0, x0, y0, x1 - x0, y1 - y0);
    }
}

}  // namespace G::x11
