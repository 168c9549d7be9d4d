#include "DocumentsLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "platforms/shared/PosixFiles.h"

namespace qx::app {

std::optional<DocumentsLockFault> lockDocuments(const std::string& documents) {
  if (PosixFiles({}).createDirectory(documents)) return std::nullopt;
  const std::string path = documents + "/.qxuploader.lock";
  // Never closed and never removed: the lock goes with the process, and a removed file could be
  // locked by one process while another makes it anew.
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (fd < 0 && errno == ELOOP) {
    return DocumentsLockFault{path + " is a symbolic link, which is not followed",
                              "remove the link or name another directory with --documents"};
  }
  if (fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    return DocumentsLockFault{documents + " is in use by another qxuploader",
                              "wait for its end or name another directory with --documents"};
  }
  return std::nullopt;
}

}  // namespace qx::app
