// One process at a time on a documents directory: each keeps the log of stored tasks in memory and
// writes it as a whole, so two would lose each other's tasks.
//
// Threads: the main thread only.
#pragma once

#include <optional>
#include <string>

namespace qx::app {

/// Why the directory cannot be used.
struct DocumentsLockFault {
  std::string why;
  /// What to do about it.
  std::string advice;
};

/// Takes the directory until the process ends; a fault when another process has it, or when the
/// lock file is a symbolic link. A directory that cannot be made or locked counts as taken: nothing
/// can be stored there, which the library reports task by task, or the file system has no locks.
std::optional<DocumentsLockFault> lockDocuments(const std::string& documents);

}  // namespace qx::app
