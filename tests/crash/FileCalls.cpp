#include "crash/FileCalls.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <string>

namespace {

int killAt = 0;
bool writesHalf = false;
int calls = 0;
qx::FileCallObserver* observer = nullptr;

bool isLast() {
  if (observer != nullptr) observer->before();
  return killAt > 0 && ++calls == killAt;
}

void die() {
  ::syscall(SYS_kill, ::getpid(), SIGKILL);
}

void count() {
  if (isLast()) die();
}

std::string wholePath(int directory, const std::string& path) {
  if (directory == AT_FDCWD || path.starts_with('/')) return path;
  char above[4096];
  const std::string link = "/proc/self/fd/" + std::to_string(directory);
  const ssize_t size = ::readlink(link.c_str(), above, sizeof above);
  const std::string folder(above, size > 0 ? static_cast<std::size_t>(size) : 0);
  return path == "." ? folder : folder + "/" + path;
}

}  // namespace

namespace qx {

void killAtFileCall(int n, bool half) {
  killAt = n;
  writesHalf = half;
  calls = 0;
}

void observeFileCalls(FileCallObserver* newObserver) {
  observer = newObserver;
}

}  // namespace qx

// Syncing is counted but not done: what has been written stays in the page cache when a process is
// killed.
extern "C" {

int openat(int directory, const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const int mode = (flags & O_CREAT) != 0 ? va_arg(arguments, int) : 0;
  va_end(arguments);
  if ((flags & O_ACCMODE) != O_RDONLY) count();
  const int fd = static_cast<int>(::syscall(SYS_openat, directory, path, flags, mode));
  if (fd >= 0 && observer != nullptr) observer->opened(fd, wholePath(directory, path), flags);
  return fd;
}

ssize_t writev(int fd, const iovec* vectors, int size) {
  if (isLast()) {
    if (writesHalf) {
      std::size_t total = 0;
      for (int i = 0; i < size; ++i) total += vectors[i].iov_len;
      std::size_t left = total / 2;
      for (int i = 0; i < size && left > 0; ++i) {
        const std::size_t part = vectors[i].iov_len < left ? vectors[i].iov_len : left;
        ::syscall(SYS_write, fd, vectors[i].iov_base, part);
        left -= part;
      }
    }
    die();
  }
  const ssize_t written = ::syscall(SYS_writev, fd, vectors, size);
  std::size_t left = written > 0 ? static_cast<std::size_t>(written) : 0;
  for (int i = 0; i < size && left > 0 && observer != nullptr; ++i) {
    const std::size_t part = vectors[i].iov_len < left ? vectors[i].iov_len : left;
    observer->wrote(fd, {static_cast<const char*>(vectors[i].iov_base), part});
    left -= part;
  }
  return written;
}

int fsync(int fd) {
  count();
  if (observer != nullptr) observer->synced(fd);
  return 0;
}

int fdatasync(int fd) {
  return fsync(fd);
}

int renameat2(int fromFd, const char* from, int toFd, const char* to, unsigned flags) noexcept {
  count();
  const int result = static_cast<int>(::syscall(SYS_renameat2, fromFd, from, toFd, to, flags));
  if (result == 0 && observer != nullptr) {
    observer->renamed(wholePath(fromFd, from), wholePath(toFd, to), (flags & RENAME_EXCHANGE) != 0);
  }
  return result;
}

int renameat(int fromFd, const char* from, int toFd, const char* to) noexcept {
  return renameat2(fromFd, from, toFd, to, 0);
}

int unlinkat(int directory, const char* path, int flags) noexcept {
  count();
  const int result = static_cast<int>(::syscall(SYS_unlinkat, directory, path, flags));
  if (result == 0 && observer != nullptr) observer->removed(wholePath(directory, path));
  return result;
}

int mkdirat(int directory, const char* path, mode_t mode) noexcept {
  count();
  const int result = static_cast<int>(::syscall(SYS_mkdirat, directory, path, mode));
  if (result == 0 && observer != nullptr) observer->madeDirectory(wholePath(directory, path));
  return result;
}

}  // extern "C"
