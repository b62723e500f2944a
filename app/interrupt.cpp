// The handler may only make async-signal-safe calls: unlink, signal and raise.
#include "app/interrupt.h"

#include <unistd.h>

#include <csignal>
#include <cstring>
#include <initializer_list>

namespace app {
namespace {

char pendingPath[4096];
volatile std::sig_atomic_t hasPending = 0;

extern "C" void OnInterrupt(int signal) {
    if (hasPending) ::unlink(pendingPath);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

void InstallInterruptCleanup() {
    static bool installed = false;
    if (installed) return;
    installed = true;
    // A signal the caller chose to ignore (nohup, a background job) stays ignored.
    for (int signal : {SIGINT, SIGTERM})
        if (std::signal(signal, OnInterrupt) == SIG_IGN) std::signal(signal, SIG_IGN);
}

void RemoveOnInterrupt(const char* path) {
    hasPending = 0;
    if (!path || std::strlen(path) >= sizeof pendingPath) return;
    std::strcpy(pendingPath, path);
    hasPending = 1;
}

}  // namespace app
