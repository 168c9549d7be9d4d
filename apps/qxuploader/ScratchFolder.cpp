#include "ScratchFolder.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "platforms/shared/PosixFiles.h"

namespace qx::app {
namespace {

namespace fs = std::filesystem;

/// The library's threads may still be writing: what they add while the folder is emptied is found
/// by the next round.
constexpr int kRounds = 10;

constexpr std::string_view kPrefix = ".qxuploader-";
constexpr std::string_view kPattern = "XXXXXX";

Error failure(const std::string& path, int code) {
  return {"Files", code, path + ": " + std::generic_category().message(code)};
}

/// A name that mkdtemp may have made of the pattern.
bool isScratchName(std::string_view name) {
  return name.size() == kPrefix.size() + kPattern.size() && name.starts_with(kPrefix) &&
         std::all_of(name.begin() + kPrefix.size(), name.end(),
                     [](unsigned char c) { return c < 0x80 && std::isalnum(c) != 0; });
}

/// Locks a folder of this user until the process ends or the descriptor is closed; the descriptor,
/// or -1 when it is no such folder or another process has it.
int lockedFolder(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return -1;
  struct stat info {};
  const bool own = ::fstat(fd, &info) == 0 && info.st_uid == ::geteuid();
  if (own && ::flock(fd, LOCK_EX | LOCK_NB) == 0) return fd;
  ::close(fd);
  return -1;
}

void removeAll(const std::string& path) {
  std::error_code code;
  for (int round = 0; round < kRounds && fs::exists(path, code); ++round) {
    fs::remove_all(path, code);
  }
}

void sweep(const std::string& documents) {
  std::error_code code;
  fs::directory_iterator entry(documents, code);
  for (; !code && entry != fs::directory_iterator(); entry.increment(code)) {
    if (!isScratchName(entry->path().filename().string())) continue;
    const int fd = lockedFolder(entry->path().string());
    if (fd < 0) continue;
    removeAll(entry->path().string());
    ::close(fd);
  }
}

/// True when the folder is still there: a sweep may have had it between its making and its lock.
bool exists(int fd) {
  struct stat info {};
  return ::fstat(fd, &info) == 0 && info.st_nlink > 0;
}

}  // namespace

Result<std::unique_ptr<ScratchFolder>> ScratchFolder::make(const std::string& documents) {
  if (auto error = PosixFiles({}).createDirectory(documents)) return *std::move(error);
  sweep(documents);
  std::error_code code;
  const fs::path absolute = fs::absolute(documents, code);
  if (code) return failure(documents, code.value());
  for (;;) {
    std::string path = (absolute / kPrefix).string() + std::string(kPattern);
    if (::mkdtemp(path.data()) == nullptr) return failure(documents, errno);
    const int fd = lockedFolder(path);
    // A file system without locks: no sweep can lock the folder either.
    if (fd < 0 || exists(fd)) {
      return std::unique_ptr<ScratchFolder>(new ScratchFolder(documents, std::move(path)));
    }
    ::close(fd);
  }
}

void ScratchFolder::remove() const {
  removeAll(path_);
}

}  // namespace qx::app
