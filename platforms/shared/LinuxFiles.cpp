#include "platforms/shared/LinuxFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <system_error>

#include "platforms/shared/ExchangeNames.h"

namespace qx {
namespace {

/// An open file; closed at the end of its scope.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;

  int get() const { return fd_; }
  explicit operator bool() const { return fd_ >= 0; }
  /// Closes now; the result of close, for what a network file system reports only here.
  int close() { return ::close(std::exchange(fd_, -1)); }

 private:
  int fd_;
};

template <typename Call>
auto retried(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

Descriptor opened(const std::string& path, int flags, mode_t mode = 0) {
  return Descriptor(retried([&] { return ::open(path.c_str(), flags | O_CLOEXEC, mode); }));
}

Error failure(const std::string& path, int code) {
  return {"Files", code, path + ": " + std::generic_category().message(code)};
}

/// The system calls would see such a path end at its NUL, and touch another file.
bool hasNul(const std::string& path) {
  return path.find('\0') != std::string::npos;
}

std::string parentOf(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

/// 0, or errno.
int syncDirectory(const std::string& path) {
  Descriptor directory = opened(path, O_RDONLY | O_DIRECTORY);
  if (!directory) return errno;
  // Some file systems cannot sync a directory, and say so with EINVAL.
  if (retried([&] { return ::fsync(directory.get()); }) < 0 && errno != EINVAL) return errno;
  return 0;
}

/// Writes all pieces; 0, or errno.
int writeAll(int fd, std::span<const std::string_view> pieces) {
  std::array<iovec, IOV_MAX> vectors;
  std::size_t next = 0;    // The first piece that is not written out whole.
  std::size_t offset = 0;  // What of it is written already.
  for (;;) {
    std::size_t count = 0;
    std::size_t piece = next;
    std::size_t skip = offset;
    for (; piece < pieces.size() && count < vectors.size(); ++piece, skip = 0) {
      const std::string_view rest = pieces[piece].substr(skip);
      if (rest.empty()) continue;
      // writev only reads from there.
      vectors[count++] = {const_cast<char*>(rest.data()), rest.size()};
    }
    if (count == 0) return 0;
    const ssize_t written =
        retried([&] { return ::writev(fd, vectors.data(), static_cast<int>(count)); });
    if (written < 0) return errno;
    auto left = static_cast<std::size_t>(written);
    while (next < pieces.size() && left >= pieces[next].size() - offset) {
      left -= pieces[next].size() - offset;
      offset = 0;
      ++next;
    }
    offset += left;
  }
}

/// Fills and closes the file behind `file`; 0, or errno.
int fill(Descriptor& file, std::span<const std::string_view> pieces, Durability durability) {
  if (const int code = writeAll(file.get(), pieces)) return code;
  if (durability == Durability::synced && retried([&] { return ::fdatasync(file.get()); }) < 0) {
    return errno;
  }
  return file.close() < 0 ? errno : 0;
}

int writePlain(const std::string& path, std::span<const std::string_view> pieces,
               Durability durability) {
  Descriptor file = opened(path, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (!file) return errno;
  struct stat status;
  if (::fstat(file.get(), &status) < 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  if ((status.st_mode & 07777) != 0600 && ::fchmod(file.get(), 0600) < 0) return errno;
  const int code = fill(file, pieces, durability);
  // Half a file is of no use to anybody, least of all on a full disk.
  if (code != 0) ::unlink(path.c_str());
  return code;
}

/// Swaps two names, both of regular files, and removes what is then at `aside`. False when nothing
/// was done. For content that need not be on the disk: ext4 writes out what replaces a file by
/// rename(), and lets the caller wait for the previous write-out; it does neither here.
bool swapNames(const std::string& aside, const std::string& path) {
  struct stat status;
  if (::lstat(path.c_str(), &status) < 0 || !S_ISREG(status.st_mode)) return false;
  if (!exchangeNames(aside, path)) return false;
  ::unlink(aside.c_str());
  return true;
}

int writeAside(const std::string& path, std::span<const std::string_view> pieces,
               Durability durability) {
  static std::atomic<std::uint64_t> counter = 0;
  const std::string prefix = parentOf(path) + "/.qx-" + std::to_string(::getpid()) + "-";
  std::string aside;
  for (;;) {
    aside = prefix + std::to_string(++counter) + ".tmp";
    Descriptor file = opened(aside, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    // Left behind by a process of the same number that crashed.
    if (!file && errno == EEXIST) continue;
    if (!file) return errno;
    if (const int code = fill(file, pieces, durability)) {
      ::unlink(aside.c_str());
      return code;
    }
    break;
  }
  if ((durability == Durability::synced || !swapNames(aside, path)) &&
      ::rename(aside.c_str(), path.c_str()) < 0) {
    const int code = errno;
    ::unlink(aside.c_str());
    return code;
  }
  return 0;
}

}  // namespace

std::optional<std::string> defaultDocumentsDirectory() {
  // The variable counts only when it holds an absolute path, says the XDG base directory standard.
  const char* data = std::getenv("XDG_DATA_HOME");
  if (data != nullptr && data[0] == '/') return std::string(data) + "/qxawsuploader";
  const char* home = std::getenv("HOME");
  if (home != nullptr && home[0] == '/') {
    return std::string(home) + "/.local/share/qxawsuploader";
  }
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 4096> buffer;
  if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found) != 0 ||
      found == nullptr || entry.pw_dir == nullptr || entry.pw_dir[0] != '/') {
    return std::nullopt;
  }
  return std::string(entry.pw_dir) + "/.local/share/qxawsuploader";
}

PathKind LinuxFiles::kind(const std::string& path) {
  struct stat status;
  if (hasNul(path) || ::stat(path.c_str(), &status) < 0) return PathKind::absent;
  return S_ISDIR(status.st_mode) ? PathKind::directory : PathKind::file;
}

std::optional<Error> LinuxFiles::createDirectory(const std::string& path) {
  if (hasNul(path)) return failure(path, EINVAL);
  // Upwards to the first directory that can be made, then down again.
  std::vector<std::string> missing = {path};
  while (!missing.empty()) {
    const std::string at = missing.back();
    if (::mkdir(at.c_str(), 0700) == 0) {
      // So that a crash cannot take the directory away from under a file that was synced.
      const int code = syncDirectory(parentOf(at));
      // One that may be written but not read cannot be synced; what it holds is there all the same.
      if (code != 0 && code != EACCES) return failure(path, code);
      missing.pop_back();
      continue;
    }
    const int code = errno;
    if (code == EEXIST && kind(at) == PathKind::directory) {
      missing.pop_back();
    } else if (code == ENOENT && parentOf(at) != at && !at.empty() &&
               kind(parentOf(at)) == PathKind::absent) {
      missing.push_back(parentOf(at));
    } else {
      return failure(path, code);
    }
  }
  return std::nullopt;
}

Result<std::vector<std::string>> LinuxFiles::list(const std::string& path) {
  if (hasNul(path)) return failure(path, EINVAL);
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), &::closedir);
  if (directory == nullptr) return failure(path, errno);
  std::vector<std::string> names;
  for (;;) {
    errno = 0;
    const dirent* entry = ::readdir(directory.get());
    if (entry == nullptr) break;
    const std::string_view name = entry->d_name;
    if (name != "." && name != "..") names.emplace_back(name);
  }
  if (errno != 0) return failure(path, errno);
  return names;
}

Result<Data> LinuxFiles::read(const std::string& path) {
  if (hasNul(path)) return failure(path, EINVAL);
  // Without O_NONBLOCK the opening of a pipe would wait for its writer.
  const Descriptor file = opened(path, O_RDONLY | O_NONBLOCK);
  if (!file) return failure(path, errno);
  struct stat status;
  if (::fstat(file.get(), &status) < 0) return failure(path, errno);
  if (S_ISDIR(status.st_mode)) return failure(path, EISDIR);
  if (!S_ISREG(status.st_mode)) return failure(path, EINVAL);

  const auto size = static_cast<std::size_t>(status.st_size);
  std::shared_ptr<char[]> bytes;
  try {
    bytes = std::make_shared_for_overwrite<char[]>(size);
  } catch (const std::bad_alloc&) {
    return failure(path, ENOMEM);
  }
  // The file as it was when it was opened; a file that shrinks meanwhile ends where it ends.
  std::size_t got = 0;
  while (got < size) {
    const ssize_t count =
        retried([&] { return ::read(file.get(), bytes.get() + got, size - got); });
    if (count < 0) return failure(path, errno);
    if (count == 0) break;
    got += static_cast<std::size_t>(count);
  }
  const char* const begin = bytes.get();
  return Data(std::move(bytes), begin, got);
}

std::optional<Error> LinuxFiles::write(const std::string& path,
                                       std::span<const std::string_view> pieces, WriteMode mode,
                                       Durability durability) {
  if (hasNul(path)) return failure(path, EINVAL);
  int code = mode == WriteMode::atomic ? writeAside(path, pieces, durability)
                                       : writePlain(path, pieces, durability);
  if (code == 0 && durability == Durability::synced) code = syncDirectory(parentOf(path));
  if (code != 0) return failure(path, code);
  return std::nullopt;
}

std::optional<Error> LinuxFiles::rename(const std::string& from, const std::string& to) {
  if (hasNul(from) || hasNul(to)) return failure(from, EINVAL);
  if (::rename(from.c_str(), to.c_str()) < 0) return failure(from, errno);
  return std::nullopt;
}

std::optional<Error> LinuxFiles::remove(const std::string& path) {
  if (hasNul(path)) return failure(path, EINVAL);
  if (::unlink(path.c_str()) < 0) return failure(path, errno);
  return std::nullopt;
}

}  // namespace qx
