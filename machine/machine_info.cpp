// The machine's description for the host.
#include "machine/machine_info.h"

namespace machine {
namespace {

#define VROK_KNOB(text) \
    {ParameterKind::Byte, text, text, 0, kKnobMax, kNoValueByte, kParameterState, 0x40}

const ParameterInfo kParameters[] = {
    VROK_KNOB("Knob 1"), VROK_KNOB("Knob 2"), VROK_KNOB("Knob 3"), VROK_KNOB("Knob 4"),
    VROK_KNOB("Knob 5"), VROK_KNOB("Knob 6"), VROK_KNOB("Knob 7"), VROK_KNOB("Knob 8"),
    {ParameterKind::Note, "Note", "Note", 1, 0x9C, kNoteNoValue, 0, 0},
    {ParameterKind::Byte, "Velocity", "Velocity", 0, 0x80, kNoValueByte, 0, 0x80},
};

#undef VROK_KNOB

// Zero means that no channel is selected.
const AttributeInfo kAttributes[] = {
    {"Midi Channel", 0, 16, 0},
};

const MachineInfo kInfo = {
    kMachineTypeEffect,
    kInterfaceVersion,
    kMachineFlags,
    1,
    kMaxTracks,
    kNumKnobs,
    2,
    kParameters,
    kAttributes,
    "Qorvat Vrok Modular FX (2013.0.1)",
    "[VROK] fx",
    "The Vrok developers",
    "Open Gui\nLoad Vrokfile",
};

}  // namespace

const MachineInfo& GetInfo() { return kInfo; }

}  // namespace machine
