// A stored background upload from "Action_List:", and its form for people and for scripts.
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Output.h"
#include "UnknownScopes.h"
#include "platform/Value.h"

namespace qx::app {

struct ListedTask {
  /// The name of the object.
  std::string name;
  std::string scope;
  std::string tag;
  /// The file that was passed to the library, or the name of the object when the file is unknown.
  std::string label;
  /// True for an item's image, which is reported to the backend after its upload.
  bool isImage = false;
  std::int64_t attempts = 0;
  /// The size. Nothing when the stored bytes are missing.
  std::optional<std::uint64_t> bytes;
  /// The time when it was stored, in seconds since 1970. Nothing when the stored bytes are missing.
  std::optional<double> time;
  /// The reason why it has no bytes that can be uploaded. Empty when it has.
  std::string fault;
  /// True when its entry names a file outside the user's directory, which is never uploaded.
  bool stray = false;
};

/// The stored tasks of the list, the oldest first.
std::vector<ListedTask> storedTasks(const Array& list);
std::uint64_t bytesOf(const std::vector<ListedTask>& tasks);

/// The reason why no attempt of this task can succeed, as far as that is known. Empty when one may.
std::string whyStuck(const ListedTask& task, const UnknownScopes& scopes);
/// The text "3 failed attempts".
std::string attemptsText(std::int64_t attempts);
/// The line "/photos/a.jpg  avatar  512 B  2026-11-21T00:30:00Z  3 failed attempts".
std::string taskLine(const ListedTask& task);
/// The event "task". `reason` is the result of whyStuck().
Event taskEvent(const ListedTask& task, const std::string& reason);
/// The time as a text, or null.
Event timeOrNull(const std::optional<double>& time);

}  // namespace qx::app
