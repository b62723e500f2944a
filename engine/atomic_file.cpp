// WriteFileAtomically: mkstemp, write, fsync, rename, then sync the directory.
#include "engine/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

bool WriteFileAtomically(const std::string& path, const std::function<bool(std::FILE*)>& write,
                         std::string* error) {
    std::string temporary = path + ".XXXXXX";
    auto fail = [&](const char* step) {
        if (error) *error = std::string(step) + " " + path + ": " + std::strerror(errno);
        return false;
    };
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) return fail("cannot create a temporary file for");
    std::FILE* file = ::fdopen(fd, "wb");
    if (!file) {
        ::close(fd);
        ::unlink(temporary.c_str());
        return fail("cannot write");
    }
    bool written = write(file) && std::fflush(file) == 0 && ::fsync(fd) == 0;
    // mkstemp makes the file private; what we save is as readable as the user's other files.
    written = written && ::fchmod(fd, 0644) == 0;
    written = std::fclose(file) == 0 && written;
    if (!written) {
        const int cause = errno;
        ::unlink(temporary.c_str());
        errno = cause;
        return fail("cannot write");
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        const int cause = errno;
        ::unlink(temporary.c_str());
        errno = cause;
        return fail("cannot move into place");
    }
    // Make the rename itself durable; failing here loses nothing already written.
    const size_t slash = path.find_last_of('/');
    const std::string dir = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
    const int dirFd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return true;
}
