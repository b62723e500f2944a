// A program under test started as a child process, its standard output going to a file that
// the test reads while it runs. For the end-to-end tests that drive a window with xdotool.
#pragma once

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

namespace e2e {

inline std::string ReadAll(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class ChildProcess {
public:
    ChildProcess(std::vector<std::string> args, const std::filesystem::path& output) : out(output) {
        std::vector<char*> argv;
        for (auto& a : args) argv.push_back(a.data());
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 1, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        started = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0;
        posix_spawn_file_actions_destroy(&actions);
    }
    ~ChildProcess() {
        if (started && status < 0) kill(pid, SIGKILL), Wait(std::chrono::seconds(1));
    }
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    // True once the output holds `line` as a whole line.
    bool WaitForLine(const std::string& line, std::chrono::milliseconds timeout) const {
        for (auto end = std::chrono::steady_clock::now() + timeout; std::chrono::steady_clock::now() < end;) {
            if (("\n" + ReadAll(out)).find("\n" + line + "\n") != std::string::npos) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return false;
    }
    // Exit status (128 for a signal), or -1 when it did not end in time.
    int Wait(std::chrono::milliseconds timeout) {
        for (auto end = std::chrono::steady_clock::now() + timeout; started && status < 0;) {
            int raw = 0;
            if (waitpid(pid, &raw, WNOHANG) == pid) {
                status = WIFEXITED(raw) ? WEXITSTATUS(raw) : 128;
                break;
            }
            if (std::chrono::steady_clock::now() >= end) return -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        return status;
    }
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        std::istringstream in(ReadAll(out));
        for (std::string line; std::getline(in, line);) lines.push_back(line);
        return lines;
    }

private:
    std::filesystem::path out;
    pid_t pid = -1;
    bool started = false;
    int status = -1;
};

}  // namespace e2e
