// Toolkit key codes and the modifier state. Native layers deliver Windows-style virtual-key
// numbers (letters as upper-case ASCII, digits as ASCII, space 32, left arrow 37 ...); the
// dispatcher translates the keys below to the toolkit's codes and passes all others unchanged.
#pragma once

namespace G {

namespace key {
constexpr int kLeft = 1000;
constexpr int kRight = 1001;
constexpr int kUp = 1002;
constexpr int kDown = 1003;
constexpr int kBackspace = 1004;
constexpr int kDelete = 1006;
constexpr int kPageUp = 1007;
constexpr int kPageDown = 1008;
constexpr int kHome = 1009;
constexpr int kEnd = 1010;
constexpr int kInsert = 1011;
constexpr int kNumDivide = 1012;
constexpr int kNumMultiply = 1013;
constexpr int kReturn = 1014;
constexpr int kFullStop = 1015;
}  // namespace key

// Virtual-key numbers native layers use for the keys that have no character.
namespace vk {
constexpr int kBack = 0x08;
constexpr int kTab = 0x09;
constexpr int kReturn = 0x0D;
constexpr int kShift = 0x10;
constexpr int kControl = 0x11;
constexpr int kMenu = 0x12;  // Alt
constexpr int kEscape = 0x1B;
constexpr int kSpace = 0x20;
constexpr int kPrior = 0x21;
constexpr int kNext = 0x22;
constexpr int kEnd = 0x23;
constexpr int kHome = 0x24;
constexpr int kLeft = 0x25;
constexpr int kUp = 0x26;
constexpr int kRight = 0x27;
constexpr int kDown = 0x28;
constexpr int kInsert = 0x2D;
constexpr int kDelete = 0x2E;
constexpr int kMultiply = 0x6A;
constexpr int kDivide = 0x6F;
constexpr int kF1 = 0x70;
constexpr int kOemPeriod = 0xBE;
}  // namespace vk

// Virtual key to toolkit code.
int TranslateKey(int virtualKey);

// Summed as the editor compares them: "exactly Shift" is a state of 2.
enum Modifier : unsigned { kCtrlDown = 1, kShiftDown = 2, kAltDown = 4 };

// The modifier state of the message being handled; native layers set it per message.
unsigned CurrentModifiers();
void SetCurrentModifiers(unsigned modifiers);
inline bool IsCtrlDown() { return (CurrentModifiers() & kCtrlDown) != 0; }
inline bool IsShiftDown() { return (CurrentModifiers() & kShiftDown) != 0; }
inline bool IsAltDown() { return (CurrentModifiers() & kAltDown) != 0; }

}  // namespace G
