// The user's stored background uploads, as the log on disk lists them.
//
// Threads: the main thread. Reading takes no lock, for the log is always replaced as a whole; who
// changes it has the documents directory to itself and has not opened the library's storage yet.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "platform/Error.h"
#include "platform/Files.h"
#include "platform/Formats.h"
#include "platform/Value.h"

namespace qx::app {

struct StoredTask {
  /// The object's name, which is also the entry's key.
  std::string filename;
  std::string scope;
  /// The data file.
  std::string path;
  /// The data file is the one of this name in the user's directory; the library takes no other.
  bool inUserDirectory = false;
  std::int64_t attempts = 0;
  Dictionary extra;
  /// Of the data file; nothing when it is missing.
  std::optional<std::uint64_t> bytes;
  /// When it was stored, seconds since 1970; nothing when the data file is missing.
  std::optional<double> time;

  /// The extra value of this key as text, when there is one.
  std::string extraText(std::string_view key) const;
  /// The file that was handed over, or the object's name when nobody noted it.
  std::string label() const;
};

struct StoredTasks {
  std::vector<StoredTask> tasks;
  /// Why the log could not be read; a missing log is an empty one.
  std::optional<std::string> fault;

  std::uint64_t bytes() const;
};

/// The extra value under which this program notes which file a task came from.
inline constexpr std::string_view kFileExtra = "qxuploaderFile";
/// The extra value by which this program tells the tasks of one file from each other.
inline constexpr std::string_view kTaskExtra = "qxuploaderTask";

class StoredLog {
 public:
  /// `documents` is the documents directory. The seams must outlive the log.
  StoredLog(Files& files, PropertyLists& propertyLists, const std::string& documents,
            const std::string& userId);

  StoredTasks read() const;
  /// Removes the data files and the entries of these tasks. After an error some may be gone.
  std::optional<Error> drop(const std::vector<StoredTask>& tasks) const;
  /// Gives these tasks all their attempts back.
  std::optional<Error> resetAttempts(const std::vector<StoredTask>& tasks) const;

 private:
  /// The entries by file name. A log that is not there has none; a symbolic link is not followed.
  Result<Dictionary> entries() const;
  std::optional<Error> write(const Dictionary& entries) const;

  Files& files_;
  PropertyLists& propertyLists_;
  const std::string documents_;
  const std::string folder_;
  const std::string log_;
};

}  // namespace qx::app
