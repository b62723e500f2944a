// The library's two exports, for the machine named by VROK_BUZZ_GENERATOR (1: the
// generator, 0: the effect). Built once per machine.
#include <new>

#include "machine/buzz/vrok_machine.h"

namespace {
constexpr buzz::Variant kVariant = VROK_BUZZ_GENERATOR ? buzz::Variant::Generator : buzz::Variant::Effect;
}

extern "C" {

__attribute__((visibility("default"))) buzz::CMachineInfo* GetInfo() {
    return &buzz::DescriptionOf(kVariant);
}

// Null when the machine cannot be made (out of memory); nothing escapes into the host.
__attribute__((visibility("default"))) buzz::CMachineInterface* CreateMachine() {
    try {
        return new buzz::VrokMachine(kVariant);
    } catch (...) {
        return nullptr;
    }
}
}
