// The file manager: the documents directory, and reading and writing of whole files.
//
//     const std::string path = documentPath(files) + "/note.txt";
//     const std::string_view text = "hello";
//     const auto error = files.write(path, {&text, 1}, WriteMode::atomic, Durability::synced);
//
// Threads: every operation may be called from any thread. Callers that write to one path see to the
// order of their writes.
// Errors: the domain is "Files", the code an errno, and the description names the path and the
// reason.
// Links: below a documents directory no symbolic link is followed. An operation fails with ELOOP
// and names the link when its path leads through a link or ends at one. Only rename() and remove()
// accept a link at the end of the path; they rename or remove the link itself. The documents
// directory may be reached through links.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Data.h"
#include "platform/Error.h"
#include "platform/Export.h"

namespace qx {

enum class PathKind {
  absent,
  file,
  directory,
  /// The path leads through a symbolic link or ends at one, and the link is not followed.
  link,
};

enum class WriteMode {
  /// Writes straight into the file. A failure may leave a part of the content.
  plain,
  /// Writes another file in the same directory, which then takes the place of the file in one step.
  /// A reader sees the old content or the new one, never a mixture, and a failure leaves the old
  /// content and nothing else. A crash may leave the other file behind, as ".qx-<anything>.tmp".
  atomic,
};

enum class Durability {
  /// The system writes the file to the disk when it likes.
  cached,
  /// The file and its entry in the directory are on the disk before the call returns.
  synced,
};

/// The size and time of a regular file.
struct FileFacts {
  std::uint64_t size = 0;
  /// The time when its content was changed last, in seconds since 1970.
  double modified = 0;
};

/// A lock that is held until it is destroyed, or until the process ends.
class FileLock {
 public:
  virtual ~FileLock() = default;
};

class Files {
 public:
  virtual ~Files() = default;
  /// The user's documents directories, the best one first. The list may be empty.
  virtual std::vector<std::string> documentDirectories() = 0;
  /// What stands at `path`. A path that cannot be examined counts as absent.
  virtual PathKind kind(const std::string& path) = 0;
  /// The size and time of the regular file at `path`.
  virtual Result<FileFacts> facts(const std::string& path) = 0;
  /// Locks the directory at `path` against other processes and against other locks of this process.
  /// Fails with EWOULDBLOCK when the directory is locked already.
  virtual Result<std::unique_ptr<FileLock>> lock(const std::string& path) = 0;
  /// Creates a directory and the missing ones above it, for this user alone (mode 0700). Succeeds
  /// when the directory exists.
  virtual std::optional<Error> createDirectory(const std::string& path) = 0;
  /// The names in a directory in no particular order, without "." and "..".
  virtual Result<std::vector<std::string>> list(const std::string& path) = 0;
  /// Reads the whole file. The result does not change when the file does.
  virtual Result<Data> read(const std::string& path) = 0;
  /// Makes the pieces, one after the other, the whole content of the file, for this user alone
  /// (mode 0600).
  virtual std::optional<Error> write(const std::string& path,
                                     std::span<const std::string_view> pieces, WriteMode mode,
                                     Durability durability) = 0;
  /// Renames within one file system and replaces the file at `to`.
  virtual std::optional<Error> rename(const std::string& from, const std::string& to) = 0;
  /// Removes a file.
  virtual std::optional<Error> remove(const std::string& path) = 0;
};

/// The first of the user's documents directories, or an empty text when there is none.
QX_EXPORT std::string documentPath(Files& files);

/// True when `name` can be one component of a path below a directory: it is not empty, not "." or
/// "..", and has no separator and no NUL. A name that fails this test never reaches the file
/// system.
QX_EXPORT bool isPlainPathComponent(std::string_view name);

}  // namespace qx
