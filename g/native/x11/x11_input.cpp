// Input translation that needs no server: keysyms to Windows-style virtual keys and to
// characters, X modifier state to toolkit modifiers, double clicks (X has none), UTF-8.
#include <X11/X.h>
#include <X11/keysym.h>

#include <cstdlib>

#include "g/keys.h"
#include "g/native/x11/x11_internal.h"

namespace G::x11 {

namespace {

struct KeyRow {
    unsigned long keysym;
    int virtualKey;
};

constexpr KeyRow kKeys[] = {
    {XK_BackSpace, vk::kBack},
    {XK_Tab, vk::kTab},
    {XK_ISO_Left_Tab, vk::kTab},
    {XK_Return, vk::kReturn},
    {XK_KP_Enter, vk::kReturn},
    {XK_Shift_L, vk::kShift},
    {XK_Shift_R, vk::kShift},
    {XK_Control_L, vk::kControl},
    {XK_Control_R, vk::kControl},
    {XK_Alt_L, vk::kMenu},
    {XK_Alt_R, vk::kMenu},
    {XK_Pause, 0x13},
    {XK_Caps_Lock, 0x14},
    {XK_Escape, vk::kEscape},
    {XK_space, vk::kSpace},
    {XK_Prior, vk::kPrior},
    {XK_Next, vk::kNext},
    {XK_End, vk::kEnd},
    {XK_Home, vk::kHome},
    {XK_Left, vk::kLeft},
    {XK_Up, vk::kUp},
    {XK_Right, vk::kRight},
    {XK_Down, vk::kDown},
    {XK_Insert, vk::kInsert},
    {XK_Delete, vk::kDelete},
    // With NumLock off the keypad sends the navigation keys.
    {XK_KP_Prior, vk::kPrior},
    {XK_KP_Next, vk::kNext},
    {XK_KP_End, vk::kEnd},
    {XK_KP_Home, vk::kHome},
    {XK_KP_Left, vk::kLeft},
    {XK_KP_Up, vk::kUp},
    {XK_KP_Right, vk::kRight},
    {XK_KP_Down, vk::kDown},
    {XK_KP_Insert, vk::kInsert},
    {XK_KP_Delete, vk::kDelete},
    {XK_KP_Begin, 0x0C},
    {XK_KP_Multiply, vk::kMultiply},
    {XK_KP_Add, 0x6B},
    {XK_KP_Separator, 0x6C},
    {XK_KP_Subtract, 0x6D},
    {XK_KP_Decimal, 0x6E},
    {XK_KP_Divide, vk::kDivide},
    {XK_Num_Lock, 0x90},
    {XK_Scroll_Lock, 0x91},
    {XK_semicolon, 0xBA},
    {XK_equal, 0xBB},
    {XK_comma, 0xBC},
    {XK_minus, 0xBD},
    {XK_period, vk::kOemPeriod},
    {XK_slash, 0xBF},
    {XK_grave, 0xC0},
    {XK_bracketleft, 0xDB},
    {XK_backslash, 0xDC},
    {XK_bracketright, 0xDD},
    {XK_apostrophe, 0xDE},
};

}  // namespace

int VirtualKeyFromKeysym(unsigned long keysym) {
    if (keysym >= XK_a && keysym <= XK_z) return static_cast<int>(keysym - XK_a + 'A');
    if (keysym >= XK_A && keysym <= XK_Z) return static_cast<int>(keysym);
    if (keysym >= XK_0 && keysym <= XK_9) return static_cast<int>(keysym);
    if (keysym >= XK_KP_0 && keysym <= XK_KP_9) return static_cast<int>(keysym - XK_KP_0 + 0x60);
    if (keysym >= XK_F1 && keysym <= XK_F24) return static_cast<int>(keysym - XK_F1 + vk::kF1);
    for (const KeyRow& row : kKeys) {
        if (row.keysym == keysym) return row.virtualKey;
    }
    return 0;
}

unsigned ModifiersFromState(unsigned state) {
    unsigned modifiers = 0;
    if (state & ShiftMask) modifiers |= kShiftDown;
    if (state & ControlMask) modifiers |= kCtrlDown;
    if (state & Mod1Mask) modifiers |= kAltDown;
    return modifiers;
}

int CharacterFromKey(unsigned long keysym, const char* bytes, int count) {
    // Keysyms of the form 0x01xxxxxx carry a Unicode code point directly.
    if (keysym >= 0x01000100 && keysym <= 0x0110FFFF) return static_cast<int>(keysym - 0x01000000);
    if (count != 1) return 0;
    int code = static_cast<unsigned char>(bytes[0]);
    return code == 0x7F ? 0 : code;
}

bool ClickTracker::Press(int button, unsigned long timeMs, int x, int y) {
    // Server times are 32-bit and wrap; the difference is taken in 32 bits.
    uint32_t elapsed = static_cast<uint32_t>(timeMs - lastTime);
    bool isDouble = button == lastButton && elapsed <= kIntervalMs && std::abs(x - lastX) <= kDistance &&
                    std::abs(y - lastY) <= kDistance;
    lastButton = isDouble ? 0 : button;
    lastTime = timeMs;
    lastX = x;
    lastY = y;
    return isDouble;
}

}  // namespace G::x11
