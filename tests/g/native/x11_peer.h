// A second X client for the native-layer tests: it plays the user through XTest and the other
// applications (clipboard owners, drag sources), and it drives modal loops from a thread so a
// test never hangs. Xlib types stay forward-declared here.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

struct _XDisplay;

namespace test {

using WindowId = unsigned long;

class Peer {
public:
    Peer();
    ~Peer();
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    void MoveTo(int x, int y);
    void Button(int button, bool down);
    void Click(int button);
    // Presses and releases the key of `keysym`, with the key of `modifier` held when non-zero.
    void Key(unsigned long keysym, unsigned long modifier = 0);
    // Lower-case ASCII; '\r' is Return.
    void Type(const std::string& ascii);
    void Focus(WindowId window);
    void SendClose(WindowId window);
    void Sync();

    bool Shown(WindowId window);
    // A viewable top-level window titled `title`, other than `except`; 0 after the timeout.
    WindowId WaitForWindow(const std::string& title, int timeoutMs, WindowId except = 0);
    // True once `window` is no longer shown (unmapped or destroyed).
    bool WaitForGone(WindowId window, int timeoutMs);
    // True once some client holds the pointer grab (a popup menu is up).
    bool WaitForPointerGrab(int timeoutMs);
    // The pixel at a window point as 0xRRGGBB.
    unsigned long Pixel(WindowId window, int x, int y);
    // Screen position of a window's origin.
    void Origin(WindowId window, int& x, int& y);
    // The bytes of a window property, or "" when it is missing; `remove` deletes it after reading.
    std::string Property(WindowId window, const char* name, bool remove = false);

    _XDisplay* display = nullptr;
};

int64_t NowMs();
// Calls `done` every `napMs` until it holds or the timeout passes; true when it held.
bool WaitUntil(const std::function<bool()>& done, int timeoutMs, int napMs = 5);

// Pumps the toolkit's messages until `done` or the timeout; true when done.
bool PumpUntil(const std::function<bool()>& done, int timeoutMs = 3000);

// Runs `script` with its own Peer on a thread while the test thread sits in a modal loop.
// When the script has finished and `Finish` has not been called within a grace period, it
// presses Escape until it is, so a failed script ends the modal loop instead of hanging.
class ModalDriver {
public:
    explicit ModalDriver(std::function<void(Peer&)> script);
    // Marks the modal loop as ended and joins the thread.
    void Finish();
    ~ModalDriver();

private:
    std::atomic<bool> finished{false};
    std::thread thread;
};

}  // namespace test
