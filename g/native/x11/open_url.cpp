// Opening a web address: the desktop's own opener, started detached so the editor never waits
// for a browser and never leaves a zombie behind.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <thread>

#include "engine/log.h"
#include "g/native/x11/x11_internal.h"

extern char** environ;

namespace G::x11 {

bool OpenUrl(const std::string& address) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (int fd : {0, 1, 2}) {
        posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", fd == 0 ? O_RDONLY : O_WRONLY, 0);
    }
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A session of its own: closing the editor's terminal does not take the browser along.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    std::string program = "xdg-open";
    std::string argument = address;
    char* argv[] = {program.data(), argument.data(), nullptr};
    pid_t pid = -1;
    const int failed = posix_spawnp(&pid, program.c_str(), &actions, &attributes, argv, environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) {
        Log(1, "cannot start xdg-open to open the web page");
        return false;
    }
    std::thread([pid] { waitpid(pid, nullptr, 0); }).detach();
    return true;
}

}  // namespace G::x11
