// Tells a host's developer on standard error what the host does wrong: one line for each mistake,
// and the same line never twice.
//
//     qxawsuploader: Nobody answers "Account_GetUserId": without it nothing is fetched or uploaded.
//
// A line names targets, actions, selectors, keys and types; never what a value holds, for it may be
// a secret.
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
  /// Writes to standard error.
  DeveloperMistakes();
  /// `write` gets each line, without an end of line, on the thread that found the mistake.
  explicit DeveloperMistakes(std::function<void(const std::string& line)> write);

  void tell(std::string_view sentence);

  void unknownTarget(std::string_view target);
  void unknownAction(std::string_view target, std::string_view action);
  /// The host has no answer to `selector`. Selectors that a host may leave out are no mistake.
  void unanswered(std::string_view selector, bool hasLogger);
  /// The host's answer to `selector`: null is no mistake, for it may mean "signed out".
  void answered(std::string_view selector, const Value& answer);

  /// How much work has been put on the main queue so far, and how much has been started. Work that
  /// waited at one call and still waits at the next while none was started is a mistake.
  void mainQueueAt(std::uint64_t put, std::uint64_t started);
  /// The same when the platform ends: work that nobody ever ran is a mistake.
  void mainQueueAtTheEnd(std::uint64_t put, std::uint64_t started);

 private:
  const std::function<void(const std::string&)> write_;
  Mutex mutex_;
  std::set<std::string> told_ QX_GUARDED_BY(mutex_);
  /// How much had been started when work was last seen waiting.
  std::optional<std::uint64_t> startedWhileWaiting_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
