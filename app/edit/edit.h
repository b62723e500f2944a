// `vrok edit [PATCH]`: the patch editor in a top-level window, on a document and engine of its
// own. There is no audio output yet: the engine runs nothing until a live audio driver is joined
// to the session's document.
#pragma once

#include <string>

namespace app {

struct EditOptions {
    std::string patch;       // .vrkx or .vrk; empty opens the default patch
    std::string screenshot;  // write the window surface to this PNG, then exit
    int afterMs = 2000;      // when to take the screenshot, from the first tick
    int width = 900;
    int height = 600;
};

// Returns the process exit status: 0; 1 when there is no display, the patch cannot be read or
// the screenshot cannot be written.
int RunEdit(const EditOptions& options);

}  // namespace app
