// Writes the mistakes of a host to standard error for the host's developer: one line for each
// mistake, and the same line never twice.
//
//     qxawsuploader: Nobody answers "Account_GetUserId": without it nothing is fetched or uploaded.
//
// A line names targets, actions, selectors, keys and types. It never holds a value, because a value
// may be a secret.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "platform/Mutex.h"
#include "platform/Value.h"

namespace qx {

class DeveloperMistakes {
 public:
  /// Makes an object that writes to standard error.
  DeveloperMistakes();
  /// `write` gets each line, without an end of line, on the thread that found the mistake.
  explicit DeveloperMistakes(std::function<void(const std::string& line)> write);

  void tell(std::string_view sentence);

  void unknownTarget(std::string_view target);
  void unknownAction(std::string_view target, std::string_view action);
  /// The host has no answer to `selector`. For selectors that a host may leave out this is no
  /// mistake.
  void unanswered(std::string_view selector, bool hasLogger);
  /// The host has answered `selector` with this value. Null is no mistake, because it may mean that
  /// nobody is signed in.
  void answered(std::string_view selector, const Value& answer);

  /// The main queue has been given `put` pieces of work so far and has started `started` of them.
  /// It is a mistake if work waited at one call, still waits at the next, and none was started in
  /// between.
  void mainQueueAt(std::uint64_t put, std::uint64_t started);
  /// The same when the platform ends. Work that never ran is a mistake.
  void mainQueueAtTheEnd(std::uint64_t put, std::uint64_t started);

 private:
  const std::function<void(const std::string&)> write_;
  Mutex mutex_;
  std::set<std::string> told_ QX_GUARDED_BY(mutex_);
  /// The number of pieces that had been started when work was last seen waiting.
  std::optional<std::uint64_t> startedWhileWaiting_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
