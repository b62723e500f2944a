// `vrok gallery`: a real window holding every toolkit widget, wired to a listener that prints
// each call, so a person (or a script driving the mouse) can try them.
#pragma once

#include <string>

namespace app {

struct GalleryOptions {
    std::string screenshot;  // write the window surface to this PNG, then exit
    int afterMs = 2000;      // when to take the screenshot, from the first paint
};

// Returns the process exit status: 0, or 1 with a message when there is no display or the
// screenshot cannot be written.
int RunGallery(const GalleryOptions& options);

}  // namespace app
