// Whole-file writes that readers never see half done: the data goes to a unique
// temporary file beside the target, which is renamed over it only once complete.
#pragma once

#include <cstdio>
#include <functional>
#include <string>

// Writes `path` through `write`, which fills the open temporary file and returns false on
// failure (it must not close the file). On any failure the temporary is removed, `path`
// is left as it was, and `error` (if given) says what went wrong, naming the file.
// Allocates and does I/O; never on the audio thread.
bool WriteFileAtomically(const std::string& path, const std::function<bool(std::FILE*)>& write,
                         std::string* error = nullptr);
