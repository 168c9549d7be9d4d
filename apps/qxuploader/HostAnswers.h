// The host's answers to the library's questions: identity, addresses, environment, long id.
//
// Threads: any thread may read and replace an answer, each as a whole.
#pragma once

#include <array>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Mutex.h"
#include "platform/Value.h"
#include "platforms/shared/Mediator.h"

namespace qx::app {

class HostAnswers {
 public:
  /// The names of the answers, as "actions" spells them.
  static constexpr std::array<std::string_view, 6> kNames = {
      "userId", "token", "serverAddress", "uploadServerAddress", "production", "longId"};

  /// Answers the mediator's questions. The object must outlive the mediator.
  void registerWith(Mediator& mediator);
  /// Replaces an answer. Null removes it. False when no answer has this name.
  bool set(std::string_view name, Value value);
  Value get(std::string_view name) const;

 private:
  Value completeLongId(const std::vector<Value>& arguments) const;

  mutable Mutex mutex_;
  std::map<std::string, Value, std::less<>> values_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx::app
