// A stored background upload as "Action_List:" tells it, and how it looks to a person and to a
// script.
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
  /// The object's name.
  std::string name;
  std::string scope;
  std::string tag;
  /// The file that was handed over, or the object's name when nobody noted it.
  std::string label;
  /// An item's image: the backend is told of it once it is uploaded.
  bool isImage = false;
  std::int64_t attempts = 0;
  /// Nothing when the stored bytes are missing.
  std::optional<std::uint64_t> bytes;
  /// When it was stored, seconds since 1970; nothing when the stored bytes are missing.
  std::optional<double> time;
  /// Why it has no bytes that could be uploaded; empty when it has.
  std::string fault;
  /// Its entry names a file that is none of the user's: nobody will ever upload it.
  bool stray = false;
};

/// The stored ones of the list, the oldest first.
std::vector<ListedTask> storedTasks(const Array& list);
std::uint64_t bytesOf(const std::vector<ListedTask>& tasks);

/// Why no attempt of this task can succeed, as far as that is known; empty when one may.
std::string whyStuck(const ListedTask& task, const UnknownScopes& scopes);
/// "3 failed attempts".
std::string attemptsText(std::int64_t attempts);
/// "/photos/a.jpg  avatar  512 B  2026-11-21T00:30:00Z  3 failed attempts".
std::string taskLine(const ListedTask& task);
/// The event "task"; `reason` is what whyStuck() says.
Event taskEvent(const ListedTask& task, const std::string& reason);
/// The time as a text, or null.
Event timeOrNull(const std::optional<double>& time);

}  // namespace qx::app
