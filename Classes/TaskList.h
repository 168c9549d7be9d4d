// What "Action_List:" tells of an upload, and why an upload is not moving.
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
  /// In the queue.
  queued,
  /// On disk, for a later attempt.
  stored,
};

/// All that decides whether an upload moves.
struct TaskFacts {
  TaskStage stage = TaskStage::stored;
  /// The host has cancelled it.
  bool held = false;
  bool paused = false;
  bool reachable = true;
  bool bytesMissing = false;
  /// Why the scope has no credentials, as the backend said.
  std::optional<std::string> refusal = {};
  /// Of a queued one: how many wait before it, run, and may run.
  std::int64_t before = 0;
  std::int64_t running = 0;
  std::int64_t limit = 1;
  /// Of a stored one, in seconds since 1970, and now.
  std::optional<double> nextTry = {};
  double now = 0;
};

/// The one reason why an upload is not moving; two empty texts when it moves.
struct Standstill {
  /// "cancelled", "bytes", "paused", "network", "credentials", "slot" or "retry".
  std::string why;
  /// The same as a sentence without its full stop.
  std::string reason;

  friend bool operator==(const Standstill&, const Standstill&) = default;
};

/// Of several reasons the one that has to go first: a host can see what to do next.
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
