// Ctrl-C and SIGTERM during a long render: the temporary output file goes with the process
// instead of being left beside the target.
#pragma once

namespace app {

// Installs the SIGINT and SIGTERM handlers once; on either signal the registered file is
// removed and the process ends as the signal would have ended it.
void InstallInterruptCleanup();
// The one file to remove on interrupt (a copy is kept), or null for none. Not thread-safe:
// the renderer has one output at a time.
void RemoveOnInterrupt(const char* path);

}  // namespace app
