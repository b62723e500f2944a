// `vrok play` and `vrok devices`: a patch played live through JACK or ALSA, headless.
#pragma once

#include <string>

#include "app/live/live_rig.h"

namespace live {

struct PlayOptions {
    std::string patch;
    LiveOptions live;
};

// Plays until SIGINT or SIGTERM (exit status 0) or until the device or server goes away
// (1). A patch, device, port or rate that cannot be used ends it with status 1 before
// anything plays, with one message naming it.
int RunPlay(const PlayOptions& options);
int RunDevices();

}  // namespace live
