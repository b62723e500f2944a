// The private JACK server and the listening client of the soak.
#include "soak_jack.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <vector>

namespace soak {
namespace {

void Quiet(const char*) {}

}  // namespace

JackServer::JackServer(const std::string& name, int rate, int bufferFrames, const std::string& logFile) {
    const std::vector<std::string> argv = {"jackd", "-n",
                                           name,    "--no-realtime",
                                           "-d",    "dummy",
                                           "-r",    std::to_string(rate),
                                           "-p",    std::to_string(bufferFrames)};
    pid = fork();
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGTERM);
        const int fd = ::open(logFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        const int nothing = ::open("/dev/null", O_RDONLY);
        dup2(nothing, 0);
        dup2(fd, 1);
        dup2(fd, 2);
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execvp(args[0], args.data());
        _exit(127);
    }
    setenv("JACK_DEFAULT_SERVER", name.c_str(), 1);
    jack_set_error_function(&Quiet);
    jack_set_info_function(&Quiet);
}

JackServer::~JackServer() {
    if (pid <= 0 || !Running()) return;
    kill(pid, SIGTERM);
    for (int i = 0; i < 500 && Running(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (Running()) {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
}

bool JackServer::Running() {
    if (exited || pid <= 0) return false;
    if (waitpid(pid, nullptr, WNOHANG) == pid) exited = true;
    return !exited;
}

bool JackServer::WaitUntilUp(double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (std::chrono::steady_clock::now() < deadline) {
        if (!Running()) return false;
        jack_status_t status{};
        if (jack_client_t* c = jack_client_open("vrok-soak-wait", JackNoStartServer, &status)) {
            jack_client_close(c);
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

OutputMonitor::OutputMonitor() {
    jack_status_t status{};
    client = jack_client_open("vrok-soak-ear", JackNoStartServer, &status);
    if (!client) throw std::runtime_error("the monitor cannot join the JACK server");
    inputs[0] = jack_port_register(client, "in_L", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    inputs[1] = jack_port_register(client, "in_R", JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0);
    jack_set_process_callback(client, &OutputMonitor::OnProcess, this);
    if (!inputs[0] || !inputs[1] || jack_activate(client) != 0) {
        jack_client_close(client);
        throw std::runtime_error("the monitor cannot start");
    }
}

OutputMonitor::~OutputMonitor() {
    jack_deactivate(client);
    jack_client_close(client);
}

bool OutputMonitor::Connect(double seconds) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    for (const auto& [from, to] :
         {std::pair{"vrok:out_L", "vrok-soak-ear:in_L"}, {"vrok:out_R", "vrok-soak-ear:in_R"}}) {
        for (;;) {
            const int result = jack_connect(client, from, to);
            if (result == 0 || result == EEXIST) break;
            if (std::chrono::steady_clock::now() > deadline) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
    }
    return true;
}

int OutputMonitor::OnProcess(jack_nframes_t count, void* self) {
    auto& monitor = *static_cast<OutputMonitor*>(self);
    long bad = 0;
    float loudest = monitor.peak.load(std::memory_order_relaxed);
    for (jack_port_t* port : monitor.inputs) {
        const float* samples = static_cast<const float*>(jack_port_get_buffer(port, count));
        for (jack_nframes_t i = 0; i < count; ++i) {
            if (!std::isfinite(samples[i]))
                ++bad;
            else
                loudest = std::max(loudest, std::fabs(samples[i]));
        }
    }
    monitor.peak.store(loudest, std::memory_order_relaxed);
    if (bad) monitor.nonFinite.fetch_add(bad, std::memory_order_relaxed);
    monitor.frames.fetch_add(long(count), std::memory_order_relaxed);
    return 0;
}

}  // namespace soak
