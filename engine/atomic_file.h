// Whole-file writes that readers never see half done: the data goes to a unique
// temporary file beside the target, which is renamed over it only once complete.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

// Where bytes written to a path really land. A symbolic link is followed to its final
// target, so replacing the file keeps the link; a character device (/dev/null) or a pipe
// cannot be replaced at all and is written in place.
struct WriteTarget {
    std::string path;     // the file that is replaced, or the device or pipe written to
    bool inPlace = false;  // a device or pipe: no temporary file, no rename
};

// False, with `error` naming `path`, for a directory or a link loop.
bool ResolveWriteTarget(const std::string& path, WriteTarget* target, std::string* error);

// Writes `path` through `write`, which fills the open file and returns false on failure
// (it must not close the file). A regular file is written to a temporary beside the
// target and renamed over it; an existing file keeps its permissions. On any failure the
// temporary is removed, `path` is left as it was, and `error` (if given) says what went
// wrong, naming the file. Allocates and does I/O; never on the audio thread.
bool WriteFileAtomically(const std::string& path, const std::function<bool(std::FILE*)>& write,
                         std::string* error = nullptr);
