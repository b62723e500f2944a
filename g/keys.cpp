// Key translation and the per-message modifier state.
#include "g/keys.h"

namespace G {
namespace {

struct KeyMapping {
    int virtualKey;
    int code;
};

constexpr KeyMapping kTranslated[] = {
    {vk::kLeft, key::kLeft},
    {vk::kRight, key::kRight},
    {vk::kUp, key::kUp},
    {vk::kDown, key::kDown},
    {vk::kBack, key::kBackspace},
    {vk::kDelete, key::kDelete},
    {vk::kPrior, key::kPageUp},
    {vk::kNext, key::kPageDown},
    {vk::kHome, key::kHome},
    {vk::kEnd, key::kEnd},
    {vk::kInsert, key::kInsert},
    {vk::kDivide, key::kNumDivide},
    {vk::kMultiply, key::kNumMultiply},
    {vk::kReturn, key::kReturn},
    {vk::kOemPeriod, key::kFullStop},
};

unsigned modifierState = 0;

}  // namespace

int TranslateKey(int virtualKey) {
    for (const KeyMapping& m : kTranslated) {
        if (m.virtualKey == virtualKey) return m.code;
    }
    return virtualKey;
}

unsigned CurrentModifiers() { return modifierState; }
void SetCurrentModifiers(unsigned modifiers) { modifierState = modifiers; }

}  // namespace G
