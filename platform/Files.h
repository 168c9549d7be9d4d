// The file manager: the documents directory, whole-file reading and writing.
//
// Threads: every operation may be called from any thread; callers order writes to one path.
// Errors: domain "Files", code errno, a description that names the path and the reason.
// Links: below a documents directory no symbolic link is followed. An operation whose path leads
// over one, or ends at one, fails with ELOOP and names the link; rename() and remove() take a link
// at the end of the path for the file they are about. The documents directory itself may be reached
// through links.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Data.h"
#include "platform/Error.h"

namespace qx {

enum class PathKind {
  absent,
  file,
  directory,
  /// A symbolic link stands there, or on the way there, that is not followed.
  link,
};

enum class WriteMode {
  /// Straight into the file. A failure may leave a part of it.
  plain,
  /// Aside, then renamed over the path: a reader sees the old content or the new, never a mixture,
  /// and a failure leaves the old content and nothing else. A crash may leave the file aside, in
  /// the same directory: ".qx-<anything>.tmp".
  atomic,
};

enum class Durability {
  /// The system writes it out when it likes.
  cached,
  /// File and folder entry are on the disk before the call returns.
  synced,
};

class Files {
 public:
  virtual ~Files() = default;
  /// The user's document directories, the best first. May be empty.
  virtual std::vector<std::string> documentDirectories() = 0;
  /// What stands at `path`; absent also when it cannot be examined.
  virtual PathKind kind(const std::string& path) = 0;
  /// Creates a directory and those above it, for this user alone (0700). An existing one is
  /// success.
  virtual std::optional<Error> createDirectory(const std::string& path) = 0;
  /// The names in a directory, without "." and "..", in no order.
  virtual Result<std::vector<std::string>> list(const std::string& path) = 0;
  /// The whole file, read now; later changes of the file do not show.
  virtual Result<Data> read(const std::string& path) = 0;
  /// Writes the pieces one after the other as the file's whole content, for this user alone (0600).
  virtual std::optional<Error> write(const std::string& path,
                                     std::span<const std::string_view> pieces, WriteMode mode,
                                     Durability durability) = 0;
  /// Renames within one file system, replacing what is at `to`.
  virtual std::optional<Error> rename(const std::string& from, const std::string& to) = 0;
  /// Removes a file.
  virtual std::optional<Error> remove(const std::string& path) = 0;
};

/// The first of the user's documents directories; empty when there is none.
std::string documentPath(Files& files);

/// True when `name` can be one component of a path below a directory: not empty, not "." or "..",
/// no separator, no NUL. What fails this never reaches the file system.
bool isPlainPathComponent(std::string_view name);

}  // namespace qx
