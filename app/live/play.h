// `vrok play` and `vrok devices`: a patch played live through JACK or ALSA, headless.
#pragma once

#include <string>
#include <vector>

namespace live {

struct PlayOptions {
    std::string patch;
    std::string audio = "jack";  // "jack" or "alsa"
    std::string device;          // JACK server or ALSA device; empty: the default
    int sampleRate = 0;          // 0: the device's
    int bufferFrames = 0;        // 0: the device's (JACK) or 256 (ALSA)
    std::vector<std::string> midiIn;
    int midiChannel = 0;  // 0: every channel, else 1..16
};

// Plays until SIGINT or SIGTERM (exit status 0) or until the device or server goes away
// (1). A patch, device, port or rate that cannot be used ends it with status 1 before
// anything plays, with one message naming it.
int RunPlay(const PlayOptions& options);
int RunDevices();

}  // namespace live
