// `vrok edit [PATCH]`: the patch editor in a top-level window, on a document and engine of its
// own; with the live options the patch plays through JACK or ALSA while it is edited.
#pragma once

#include <string>

#include "app/live/live_rig.h"

namespace app {

struct EditOptions {
    std::string patch;       // .vrkx or .vrk; empty opens the default patch
    std::string screenshot;  // write the window surface to this PNG, then exit
    int afterMs = 2000;      // when to take the screenshot, from the first tick
    std::string manualPage;  // open the manual at this article; empty leaves it closed
    std::string manualFile;  // a manual XML shown in place of the built-in one
    int width = 900;
    int height = 600;
    // Play while editing, through the machine a host would drive: every edit and the
    // computer keyboard's piano are heard at once, and the top bar shows the meter.
    bool play = false;
    live::LiveOptions live;
};

// Returns the process exit status: 0; 1 when there is no display, the patch or manual cannot be read,
// the audio device cannot be used or the screenshot cannot be written; 2 for bad live options.
int RunEdit(const EditOptions& options);

}  // namespace app
