// The join between one native window and its root control. Dispatch turns native messages
// into the tree's events (the same table for every windowing system); a subclass per system
// supplies the platform operations. Tests drive Dispatch through a fake subclass with no
// display. GUI thread only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "g/geometry.h"

namespace G {

class Control;
class MenuItem;
class RootControl;

enum class NativeEventKind {
    Destroy,
    Size,
    Paint,
    Close,
    KeyDown,
    KeyUp,
    Char,
    Timer,
    MouseMove,
    LeftDown,
    LeftUp,
    RightDown,
    RightUp,
    MiddleDown,
    MiddleUp,
    LeftDoubleClick,
    RightDoubleClick,
    MiddleDoubleClick,
    Wheel,
    HWheel,
    MouseLeave,
    DropFiles,
    User,
    Other,
};

struct NativeEvent {
    NativeEventKind kind = NativeEventKind::Other;
    int x = 0;  // client coordinates for mouse messages; new client size for Size
    int y = 0;
    int key = 0;         // virtual key (KeyDown, KeyUp) or character code (Char)
    int wheelDelta = 0;  // 120 per notch
    unsigned modifiers = 0;
    std::vector<std::string> files;  // DropFiles
    intptr_t wParam = 0;             // User
    intptr_t lParam = 0;
};

enum class MessageBoxKind { Ok, YesNo };
enum class MessageBoxResult { Ok, Yes, No };

struct FileDialogRequest {
    std::string title;
    std::string directory;                // start here; empty for the working directory
    std::string fileName;                 // proposed name (save)
    std::string filterLabel;              // "Vrok patches"
    std::vector<std::string> extensions;  // ".vrkx", ".vrk"; empty shows every file
};

class NativeWindow {
public:
    virtual ~NativeWindow() = default;

    // Runs one native message through the tree. Returns false when the platform should do its
    // default processing.
    // A handler may destroy the root and with it this object: callers must not touch the
    // NativeWindow after Dispatch returns unless they looked it up afresh.
    bool Dispatch(const NativeEvent& event);

    // Frees this object now, or at the end of the message being dispatched.
    void Release();

    bool running = true;
    RootControl* root = nullptr;
    // The window surface: 3 bytes a pixel, blue, green, red, bottom-up, `surfaceRowLength`
    // pixels a row. Empty until the first paint or size message.
    std::vector<uint8_t> surface;
    int surfaceRowLength = 0;
    int surfaceWidth = 0;
    int surfaceHeight = 0;
    Control* hovered = nullptr;
    int mouseX = 0;
    int mouseY = 0;
    bool mouseValid = false;
    uintptr_t handle = 0;

    // [SECTION] Platform operations
    virtual void SetClientSize(int w, int h) = 0;
    virtual void ClientSize(int& w, int& h) = 0;
    // Shows and raises without moving or sizing.
    virtual void ShowAndRaise() = 0;
    virtual void SetTitle(const std::wstring& title) = 0;
    virtual void SetCapture() = 0;
    virtual void ReleaseCapture() = 0;
    virtual void RequestMouseLeave() = 0;
    virtual void ClientToScreen(int& x, int& y) = 0;
    virtual void ScreenToClient(int& x, int& y) = 0;
    virtual void ScreenSize(int& w, int& h) = 0;
    virtual void CursorPosition(int& x, int& y) = 0;  // screen coordinates
    // Marks a client rectangle as needing paint, without erasing.
    virtual void InvalidateRect(const Rect& r) = 0;
    // Runs a Paint message now if anything was invalidated.
    virtual void PaintNow() = 0;
    // Copies `area` of the surface to the window.
    virtual void PresentSurface(const Rect& area) = 0;
    virtual void SetClipboardText(const std::string& text) = 0;
    virtual std::string ClipboardText() = 0;
    // Modal; returns the chosen id, 0 when dismissed.
    virtual int RunPopupMenu(const MenuItem& menu, int screenX, int screenY, unsigned flags) = 0;
    virtual MessageBoxResult ShowMessageBox(const std::string& text, const std::string& title,
                                            MessageBoxKind kind) = 0;
    // Modal; true with the chosen path, false when cancelled. Saving asks before overwriting.
    virtual bool OpenFileDialog(const FileDialogRequest& request, std::string& path) = 0;
    virtual bool SaveFileDialog(const FileDialogRequest& request, std::string& path) = 0;
    // Hands `address` to the user's web browser and returns at once; the browser outlives the
    // call and the program. False when no browser could be started, as on a platform without one.
    virtual bool OpenUrl(const std::string& address) { return false; }

private:
    void PaintPass();
    void ResizeSurface(int w, int h);
    void OfferKey(NativeEventKind kind, int code);
    void HoverTail();

    int dispatchDepth = 0;
    bool releasePending = false;
};

// Window style bits for CreateNativeWindow.
constexpr uint32_t kStyleChild = 1u << 30;
constexpr uint32_t kStylePopup = 1u << 31;

}  // namespace G
