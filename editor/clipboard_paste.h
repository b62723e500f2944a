// Pasting clipboard text into a document, apart from any window so it can be tested and
// fuzzed alone. The text is "[Block]" and one "Block" element, "[Patch]" and a "storables"
// document, or a whole patch file's text with no prefix. Text that does not parse, or that
// holds neither, changes nothing. GUI thread; one undo step.
#pragma once

#include <string>
#include <string_view>

class VrokDoc;

namespace editor {

constexpr std::string_view kBlockPrefix = "[Block]";
constexpr std::string_view kPatchPrefix = "[Patch]";

// Pastes `text` with its top left block at canvas position `x`, `y` (scrolling already
// taken off; negative positions end at 0).
void PasteClipboardText(VrokDoc& doc, const std::string& text, int x, int y);

}  // namespace editor
