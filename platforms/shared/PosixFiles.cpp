#include "platforms/shared/PosixFiles.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <sys/file.h>
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
#include "platforms/shared/FileSizeSignal.h"

namespace qx {
namespace {

/// An open file, which is closed at the end of its scope.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(Descriptor&& other) noexcept : fd_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }

  int get() const { return fd_; }
  /// Yields the file to a caller who closes it.
  int release() { return std::exchange(fd_, -1); }
  explicit operator bool() const { return fd_ >= 0; }
  /// Closes the file and yields the result, because a network file system may report an error only
  /// here.
  int close() { return ::close(release()); }

 private:
  int fd_;
};

template <typename Call>
auto retried(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

Descriptor opened(int directory, const std::string& name, int flags, mode_t mode = 0) {
  return Descriptor(
      retried([&] { return ::openat(directory, name.c_str(), flags | O_CLOEXEC, mode); }));
}

/// The lock of a directory. The system releases it when the descriptor is closed.
class DescriptorLock : public FileLock {
 public:
  explicit DescriptorLock(Descriptor descriptor) : descriptor_(std::move(descriptor)) {}

 private:
  const Descriptor descriptor_;
};

Error failure(const std::string& path, int code) {
  // The system's own text speaks of too many levels of links.
  if (code == ELOOP) return {"Files", code, path + " is a symbolic link, which is not followed"};
  return {"Files", code, path + ": " + std::generic_category().message(code)};
}

/// The system calls would take a path with a NUL for the shorter path in front of it.
bool hasNul(const std::string& path) {
  return path.find('\0') != std::string::npos;
}

/// The path without separators at its end. The root keeps its separator.
std::string trimmed(std::string path) {
  while (path.size() > 1 && path.back() == '/') path.pop_back();
  return path;
}

std::string parentOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : trimmed(path.substr(0, slash));
}

std::string nameOf(const std::string& path) {
  return path == "/" ? "." : path.substr(path.rfind('/') + 1);
}

bool isLink(int directory, const std::string& name) {
  struct stat status;
  return ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
         S_ISLNK(status.st_mode);
}

/// Opens a directory only to reach its content. Sets errno on failure: ELOOP when the name is a
/// link.
Descriptor openedDirectory(int above, const std::string& name) {
  Descriptor directory = opened(above, name, O_PATH | O_DIRECTORY | O_NOFOLLOW);
  if (directory) return directory;
  const int code = errno;
  errno = code == ENOTDIR && isLink(above, name) ? ELOOP : code;
  return directory;
}

/// Returns 0 or an errno.
int syncDirectory(int directory) {
  const Descriptor readable = opened(directory, ".", O_RDONLY | O_DIRECTORY);
  if (!readable) return errno;
  // Some file systems cannot sync a directory, and say so with EINVAL.
  if (retried([&] { return ::fsync(readable.get()); }) < 0 && errno != EINVAL) return errno;
  return 0;
}

/// Makes one directory. Returns 0 or an errno.
int makeDirectory(int above, const std::string& name) {
  if (::mkdirat(above, name.c_str(), 0700) < 0) return errno == EEXIST ? 0 : errno;
  // The directory is synced, so that a crash cannot remove it together with a synced file in it.
  const int code = syncDirectory(above);
  // A directory that may be written but not read cannot be synced. Its content exists all the same.
  return code == EACCES ? 0 : code;
}

/// Writes all pieces. Returns 0 or an errno.
int writeAll(int fd, std::span<const std::string_view> pieces) {
  const FileSizeSignalBlock noSignal;
  std::array<iovec, IOV_MAX> vectors;
  std::size_t next = 0;    // The first piece that has not been written completely.
  std::size_t offset = 0;  // The number of bytes of it that have been written.
  for (;;) {
    std::size_t count = 0;
    std::size_t piece = next;
    std::size_t skip = offset;
    for (; piece < pieces.size() && count < vectors.size(); ++piece, skip = 0) {
      const std::string_view rest = pieces[piece].substr(skip);
      if (rest.empty()) continue;
      // writev does not change these bytes.
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

/// Writes and closes the file. Returns 0 or an errno.
int fill(Descriptor& file, std::span<const std::string_view> pieces, Durability durability) {
  if (const int code = writeAll(file.get(), pieces)) return code;
  if (durability == Durability::synced && retried([&] { return ::fdatasync(file.get()); }) < 0) {
    return errno;
  }
  return file.close() < 0 ? errno : 0;
}

int writePlain(int directory, const std::string& name, std::span<const std::string_view> pieces,
               Durability durability) {
  Descriptor file =
      opened(directory, name, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK, 0600);
  if (!file) return errno;
  struct stat status;
  if (::fstat(file.get(), &status) < 0) return errno;
  if (!S_ISREG(status.st_mode)) return EINVAL;
  if ((status.st_mode & 07777) != 0600 && ::fchmod(file.get(), 0600) < 0) return errno;
  const int code = fill(file, pieces, durability);
  // A part of the content is of no use, least of all on a full disk.
  if (code != 0) ::unlinkat(directory, name.c_str(), 0);
  return code;
}

/// Exchanges the names of two regular files, and removes the file that is then at `aside`. False
/// when nothing was done. This is meant for content that need not be synced: when rename() replaces
/// a file, ext4 writes the new file to the disk and makes the caller wait for the previous one;
/// here it does neither.
bool swapNames(int directory, const std::string& aside, const std::string& name) {
  struct stat status;
  if (::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) < 0 ||
      !S_ISREG(status.st_mode)) {
    return false;
  }
  if (!exchangeNames(directory, aside, name)) return false;
  ::unlinkat(directory, aside.c_str(), 0);
  return true;
}

int writeAside(int directory, const std::string& name, std::span<const std::string_view> pieces,
               Durability durability) {
  if (isLink(directory, name)) return ELOOP;
  static std::atomic<std::uint64_t> counter = 0;
  const std::string prefix = ".qx-" + std::to_string(::getpid()) + "-";
  std::string aside;
  for (;;) {
    aside = prefix + std::to_string(++counter) + ".tmp";
    Descriptor file = opened(directory, aside, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600);
    // A process with the same number has crashed and left this file behind.
    if (!file && errno == EEXIST) continue;
    if (!file) return errno;
    if (const int code = fill(file, pieces, durability)) {
      ::unlinkat(directory, aside.c_str(), 0);
      return code;
    }
    break;
  }
  if ((durability == Durability::synced || !swapNames(directory, aside, name)) &&
      ::renameat(directory, aside.c_str(), directory, name.c_str()) < 0) {
    const int code = errno;
    ::unlinkat(directory, aside.c_str(), 0);
    return code;
  }
  return 0;
}

}  // namespace

std::optional<std::string> defaultDocumentsDirectory() {
  // The variable counts only when it holds an absolute path, by the XDG base directory standard.
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

/// The directory that holds the last component of a path, and the name of that component.
struct PosixFiles::Place {
  Descriptor directory;
  std::string name;
  /// True for a path below a documents directory.
  bool ours;

  /// The flags for examining and for opening the name.
  int lookFlags() const { return ours ? AT_SYMLINK_NOFOLLOW : 0; }
  int openFlags() const { return ours ? O_NOFOLLOW : 0; }
};

std::optional<PosixFiles::Below> PosixFiles::belowDocuments(const std::string& path) const {
  for (const std::string& documents : documentDirectories_) {
    const std::string base = trimmed(documents.empty() ? "/" : documents);
    const std::size_t size = base == "/" ? 0 : base.size();
    if (!path.starts_with(base) || path.size() <= size || path[size] != '/') continue;
    Below below{base, {}};
    for (std::size_t at = size; at < path.size();) {
      const std::size_t end = std::min(path.find('/', at), path.size());
      if (end > at) below.components.push_back(path.substr(at, end - at));
      at = end + 1;
    }
    if (!below.components.empty()) return below;
  }
  return std::nullopt;
}

Result<PosixFiles::Place> PosixFiles::placeOf(const std::string& path) const {
  if (hasNul(path)) return failure(path, EINVAL);
  const std::optional<Below> below = belowDocuments(path);
  if (!below) {
    const std::string plain = trimmed(path);
    Descriptor parent = opened(AT_FDCWD, parentOf(plain), O_PATH | O_DIRECTORY);
    if (!parent) return failure(path, errno);
    return Place{std::move(parent), nameOf(plain), /*ours=*/false};
  }
  Descriptor directory = opened(AT_FDCWD, below->base, O_PATH | O_DIRECTORY);
  if (!directory) return failure(path, errno);
  std::string reached = below->base == "/" ? "" : below->base;
  for (std::size_t i = 0; i + 1 < below->components.size(); ++i) {
    reached += "/" + below->components[i];
    Descriptor next = openedDirectory(directory.get(), below->components[i]);
    if (!next) return failure(errno == ELOOP ? reached : path, errno);
    directory = std::move(next);
  }
  return Place{std::move(directory), below->components.back(), /*ours=*/true};
}

PathKind PosixFiles::kind(const std::string& path) {
  const Result<Place> place = placeOf(path);
  if (!place) return place.error().code == ELOOP ? PathKind::link : PathKind::absent;
  struct stat status;
  if (::fstatat(place->directory.get(), place->name.c_str(), &status, place->lookFlags()) < 0) {
    return PathKind::absent;
  }
  if (S_ISLNK(status.st_mode)) return PathKind::link;
  return S_ISDIR(status.st_mode) ? PathKind::directory : PathKind::file;
}

Result<FileFacts> PosixFiles::facts(const std::string& path) {
  const Result<Place> place = placeOf(path);
  if (!place) return place.error();
  struct stat status;
  if (::fstatat(place->directory.get(), place->name.c_str(), &status, place->lookFlags()) < 0) {
    return failure(path, errno);
  }
  if (S_ISLNK(status.st_mode)) return failure(path, ELOOP);
  if (!S_ISREG(status.st_mode)) return failure(path, S_ISDIR(status.st_mode) ? EISDIR : EINVAL);
  return FileFacts{static_cast<std::uint64_t>(status.st_size),
                   static_cast<double>(status.st_mtim.tv_sec) +
                       static_cast<double>(status.st_mtim.tv_nsec) / 1e9};
}

Result<std::unique_ptr<FileLock>> PosixFiles::lock(const std::string& path) {
  const Result<Place> place = placeOf(path);
  if (!place) return place.error();
  Descriptor directory =
      opened(place->directory.get(), place->name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
  if (!directory) {
    const int code = errno;
    return failure(path, isLink(place->directory.get(), place->name) ? ELOOP : code);
  }
  if (retried([&] { return ::flock(directory.get(), LOCK_EX | LOCK_NB); }) < 0) {
    return failure(path, errno);
  }
  return std::unique_ptr<FileLock>(std::make_unique<DescriptorLock>(std::move(directory)));
}

std::optional<Error> PosixFiles::createDirectory(const std::string& path) {
  if (hasNul(path)) return failure(path, EINVAL);
  const std::optional<Below> below = belowDocuments(path);
  if (!below) return createElsewhere(path);
  if (auto error = createElsewhere(below->base)) return error;
  Descriptor directory = opened(AT_FDCWD, below->base, O_PATH | O_DIRECTORY);
  if (!directory) return failure(path, errno);
  std::string reached = below->base == "/" ? "" : below->base;
  for (const std::string& name : below->components) {
    reached += "/" + name;
    if (const int code = makeDirectory(directory.get(), name)) return failure(path, code);
    Descriptor next = openedDirectory(directory.get(), name);
    if (!next) {
      const bool isFile = errno == ENOTDIR && &name == &below->components.back();
      return failure(errno == ELOOP ? reached : path, isFile ? EEXIST : errno);
    }
    directory = std::move(next);
  }
  return std::nullopt;
}

std::optional<Error> PosixFiles::createElsewhere(const std::string& path) {
  // Goes up to the first directory that can be made, then down again.
  std::vector<std::string> missing = {trimmed(path)};
  while (!missing.empty()) {
    const std::string at = missing.back();
    const Result<Place> place = placeOf(at);
    if (!place) {
      if (place.error().code != ENOENT || parentOf(at) == at || at.empty()) {
        return failure(path, static_cast<int>(place.error().code));
      }
      missing.push_back(parentOf(at));
      continue;
    }
    if (const int code = makeDirectory(place->directory.get(), place->name)) {
      return failure(path, code);
    }
    if (kind(at) != PathKind::directory)
      return failure(path, at == trimmed(path) ? EEXIST : ENOTDIR);
    missing.pop_back();
  }
  return std::nullopt;
}

Result<std::vector<std::string>> PosixFiles::list(const std::string& path) {
  const Result<Place> place = placeOf(path);
  if (!place) return place.error();
  Descriptor readable =
      opened(place->directory.get(), place->name, O_RDONLY | O_DIRECTORY | place->openFlags());
  if (!readable) {
    const int code = errno;
    const bool link = place->ours && isLink(place->directory.get(), place->name);
    return failure(path, link ? ELOOP : code);
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::fdopendir(readable.get()), &::closedir);
  if (directory == nullptr) return failure(path, errno);
  readable.release();
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

Result<Data> PosixFiles::read(const std::string& path) {
  const Result<Place> place = placeOf(path);
  if (!place) return place.error();
  // Without O_NONBLOCK, opening a pipe would wait for a writer.
  const Descriptor file =
      opened(place->directory.get(), place->name, O_RDONLY | O_NONBLOCK | place->openFlags());
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
  // The file is read as it was when it was opened. A file that shrinks meanwhile is read to its new
  // end.
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

std::optional<Error> PosixFiles::write(const std::string& path,
                                       std::span<const std::string_view> pieces, WriteMode mode,
                                       Durability durability) {
  const Result<Place> place = placeOf(path);
  if (!place) return place.error();
  const int directory = place->directory.get();
  int code = mode == WriteMode::atomic ? writeAside(directory, place->name, pieces, durability)
                                       : writePlain(directory, place->name, pieces, durability);
  if (code == 0 && durability == Durability::synced) code = syncDirectory(directory);
  if (code != 0) return failure(path, code);
  return std::nullopt;
}

std::optional<Error> PosixFiles::rename(const std::string& from, const std::string& to) {
  const Result<Place> source = placeOf(from);
  if (!source) return source.error();
  const Result<Place> target = placeOf(to);
  if (!target) return target.error();
  if (::renameat(source->directory.get(), source->name.c_str(), target->directory.get(),
                 target->name.c_str()) < 0) {
    return failure(from, errno);
  }
  return std::nullopt;
}

std::optional<Error> PosixFiles::remove(const std::string& path) {
  const Result<Place> place = placeOf(path);
  if (!place) return place.error();
  if (::unlinkat(place->directory.get(), place->name.c_str(), 0) < 0) return failure(path, errno);
  return std::nullopt;
}

}  // namespace qx
