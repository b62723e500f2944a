// WriteFileAtomically: mkstemp, write, fsync, rename, then sync the directory; devices and
// pipes are written in place, links are followed to their targets.
#include "engine/atomic_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace {

std::string DirectoryOf(const std::string& path) {
    const size_t slash = path.find_last_of('/');
    return slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
}

// The same limit the kernel applies to a chain of links.
constexpr int kMaxLinks = 40;

}  // namespace

bool ResolveWriteTarget(const std::string& path, WriteTarget* target, std::string* error) {
    // Devices and pipes are opened through whatever names them, /dev/fd links included.
    struct stat followed {};
    if (::stat(path.c_str(), &followed) == 0 && (S_ISCHR(followed.st_mode) || S_ISFIFO(followed.st_mode))) {
        target->path = path;
        target->inPlace = true;
        return true;
    }
    std::string current = path;
    for (int hops = 0;; ++hops) {
        struct stat info {};
        if (::lstat(current.c_str(), &info) != 0) break;  // a new file: written as itself
        if (S_ISLNK(info.st_mode)) {
            if (hops == kMaxLinks) {
                if (error) *error = path + ": too many levels of symbolic links";
                return false;
            }
            char link[4096];
            const ssize_t length = ::readlink(current.c_str(), link, sizeof link - 1);
            if (length < 0) break;
            const std::string next(link, size_t(length));
            current = next.front() == '/' ? next : DirectoryOf(current) + "/" + next;
            continue;
        }
        if (S_ISDIR(info.st_mode)) {
            if (error) *error = path + ": is a directory";
            return false;
        }
        break;
    }
    // An existing regular file, or a new one.
    target->path = current;
    target->inPlace = false;
    return true;
}

bool WriteFileAtomically(const std::string& path, const std::function<bool(std::FILE*)>& write,
                         std::string* error) {
    auto fail = [&](const char* step) {
        if (error) *error = std::string(step) + " " + path + ": " + std::strerror(errno);
        return false;
    };
    WriteTarget target;
    if (!ResolveWriteTarget(path, &target, error)) return false;
    if (target.inPlace) {
        std::FILE* file = std::fopen(target.path.c_str(), "wb");
        if (!file) return fail("cannot write");
        const bool written = write(file) && std::fflush(file) == 0;
        return (std::fclose(file) == 0 && written) || fail("cannot write");
    }

    // Saved files are as readable as the user's other files, or keep the mode they had.
    mode_t mode = 0644;
    struct stat existing {};
    if (::stat(target.path.c_str(), &existing) == 0) mode = existing.st_mode & 07777;

    std::string temporary = target.path + ".XXXXXX";
    const int fd = ::mkstemp(temporary.data());
    if (fd < 0) return fail("cannot create a temporary file for");
    std::FILE* file = ::fdopen(fd, "wb");
    if (!file) {
        ::close(fd);
        ::unlink(temporary.c_str());
        return fail("cannot write");
    }
    bool written = write(file) && std::fflush(file) == 0 && ::fsync(fd) == 0;
    written = written && ::fchmod(fd, mode) == 0;
    written = std::fclose(file) == 0 && written;
    if (!written) {
        const int cause = errno;
        ::unlink(temporary.c_str());
        errno = cause;
        return fail("cannot write");
    }
    if (std::rename(temporary.c_str(), target.path.c_str()) != 0) {
        const int cause = errno;
        ::unlink(temporary.c_str());
        errno = cause;
        return fail("cannot move into place");
    }
    // Make the rename itself durable; failing here loses nothing already written.
    const int dirFd = ::open(DirectoryOf(target.path).c_str(), O_RDONLY | O_DIRECTORY);
    if (dirFd >= 0) {
        ::fsync(dirFd);
        ::close(dirFd);
    }
    return true;
}
