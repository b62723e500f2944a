// The soak's JACK side: a private server on the dummy driver, so no sound card is needed
// and nothing else can disturb it, and a listening client that checks every sample vrok
// sends out.
#pragma once

#include <jack/jack.h>
#include <sys/types.h>

#include <atomic>
#include <string>

namespace soak {

// jackd under `name` with the dummy driver; JACK_DEFAULT_SERVER then names it. Stopped with
// SIGTERM, never SIGKILL: a server killed outright keeps its slot in JACK's registry of
// servers. It also gets SIGTERM if the soak dies first.
class JackServer {
public:
    JackServer(const std::string& name, int rate, int bufferFrames, const std::string& logFile);
    ~JackServer();
    JackServer(const JackServer&) = delete;
    JackServer& operator=(const JackServer&) = delete;

    // False when the server exited or did not take a client within `seconds`.
    bool WaitUntilUp(double seconds);
    // False once the server has gone.
    bool Running();

private:
    pid_t pid = -1;
    bool exited = false;
};

// A client with two inputs wired from vrok:out_L and vrok:out_R that counts samples that
// are not finite numbers and keeps the loudest. Its callback allocates nothing.
class OutputMonitor {
public:
    // Throws std::runtime_error when it cannot join the server.
    OutputMonitor();
    ~OutputMonitor();
    OutputMonitor(const OutputMonitor&) = delete;
    OutputMonitor& operator=(const OutputMonitor&) = delete;

    // Waits until vrok's outputs exist and are wired to ours. False on timeout.
    bool Connect(double seconds);

    std::atomic<long> frames{0};
    std::atomic<long> nonFinite{0};
    std::atomic<float> peak{0.0f};

private:
    static int OnProcess(jack_nframes_t frames, void* self);

    jack_client_t* client = nullptr;
    jack_port_t* inputs[2] = {};
};

}  // namespace soak
