// The table of block types: the permanent type number stored in files, the palette code
// by which the editor creates a block, the display name, and the creation function.
// Name, category and parameters stay with the block classes.
#pragma once

#include <span>

class CAudioBlock;
class VrokInstance;

struct BlockType {
    int type;         // stored in files; never reused
    int paletteCode;  // high byte is the palette submenu; -5 selects nothing, 0 none at all
    const char* displayName;
    // Null while the type's block class is not part of the build: inserting it fails
    // like an unknown type.
    CAudioBlock* (*create)(VrokInstance& engine, float sampleRate);
};

// Palette submenus, from the high byte of a palette code.
enum PaletteMenu : int {
    kPaletteGenerators = 0x01,
    kPaletteModifiers = 0x02,
    kPaletteControllers = 0x08,
    kPaletteOutputs = 0x10,
    kPaletteDisplays = 0x40,
};

std::span<const BlockType> BlockTypes();
// The row of `type`, or null if no such type exists.
const BlockType* FindBlockType(int type);
// The engine's BlockFactory: makes a block of `type` and stores the type number in it.
// Null for unknown or not-yet-built types and for a second arpeggiator.
CAudioBlock* CreateBlock(VrokInstance& engine, int type, float sampleRate);
