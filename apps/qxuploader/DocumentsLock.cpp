#include "DocumentsLock.h"

#include <fcntl.h>
#include <sys/file.h>

#include <cerrno>

#include "platforms/shared/LinuxFiles.h"

namespace qx::app {

DocumentsLock lockDocuments(const std::string& documents) {
  if (LinuxFiles({}).createDirectory(documents)) return DocumentsLock::taken;
  const std::string path = documents + "/.qxuploader.lock";
  // Never closed and never removed: the lock goes with the process, and a removed file could be
  // locked by one process while another makes it anew.
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
    return DocumentsLock::inUse;
  }
  return DocumentsLock::taken;
}

}  // namespace qx::app
