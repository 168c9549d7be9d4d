// The user's stored background uploads, read from the log on disk.
//
// Threads: pure functions; reading takes no lock, for the log is always replaced as a whole.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Output.h"
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

/// Reads the log of a user; `documents` is the documents directory.
StoredTasks readStoredTasks(Files& files, PropertyLists& propertyLists,
                            const std::string& documents, const std::string& userId);

}  // namespace qx::app
