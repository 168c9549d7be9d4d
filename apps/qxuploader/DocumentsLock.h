// One process at a time on a documents directory: each keeps the log of stored tasks in memory and
// writes it as a whole, so two would lose each other's tasks.
//
// Threads: the main thread only.
#pragma once

#include <string>

namespace qx::app {

enum class DocumentsLock { taken, inUse };

/// Takes the directory until the process ends. `inUse` when another process has it. A directory
/// that cannot be made or locked counts as taken: nothing can be stored there, which the library
/// reports task by task, or the file system has no locks.
DocumentsLock lockDocuments(const std::string& documents);

}  // namespace qx::app
