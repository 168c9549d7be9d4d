// The entries of "Action_List:", and the reason why an upload is not moving.
//
//     Standstill why = standstillOf({.stage = TaskStage::stored, .reachable = false});
//     // {"network", "waits for the network"}
//
// Threads: pure functions over values.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Classes/Task.h"
#include "Classes/UploadEvents.h"
#include "platform/Value.h"

namespace qx {

enum class TaskStage {
  running,
  /// The upload is in the queue.
  queued,
  /// The upload is on the disk and waits for a later attempt.
  stored,
};

/// The facts that decide whether an upload moves.
struct TaskFacts {
  TaskStage stage = TaskStage::stored;
  /// True when the host has cancelled the upload.
  bool held = false;
  bool paused = false;
  bool reachable = true;
  bool bytesMissing = false;
  /// True when its log entry names a file outside the directory of the user.
  bool stray = false;
  /// The reason of the backend because of which the scope has no credentials.
  std::optional<std::string> refusal = {};
  /// For a queued upload: the number of uploads that wait before it, that run, and that may run.
  std::int64_t before = 0;
  std::int64_t running = 0;
  std::int64_t limit = 1;
  /// For a stored upload: the time of the next attempt and the present time, in seconds since 1970.
  std::optional<double> nextTry = {};
  double now = 0;
};

/// The only reason why an upload is not moving. Both texts are empty when it moves.
struct Standstill {
  /// One of "stray", "bytes", "cancelled", "paused", "network", "credentials", "slot" and "retry".
  std::string why;
  /// The same reason as a sentence without its full stop.
  std::string reason;

  friend bool operator==(const Standstill&, const Standstill&) = default;
};

/// If there are several reasons, the one that must end first, so that a host sees what to do next.
Standstill standstillOf(const TaskFacts& facts);

/// The dictionary of an upload in the list.
struct ListedTask {
  UploadKind kind = UploadKind::background;
  bool stored = false;
  std::optional<std::uint64_t> size = {};
  /// Seconds since 1970.
  std::optional<double> accepted = {};
  std::int64_t attempts = 0;
  TaskFacts facts = {};
};
Dictionary listed(const Task& task, const ListedTask& told);

}  // namespace qx
