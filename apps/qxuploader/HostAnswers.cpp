#include "HostAnswers.h"

#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

#include "platform/Host.h"

namespace qx::app {

void HostAnswers::registerWith(Mediator& mediator) {
  const auto answer = [&](std::string selector, std::string name) {
    mediator.answer(std::move(selector), [this, name = std::move(name)] { return get(name); });
  };
  answer("Account_GetUserId", "userId");
  answer("Account_GetAccessToken", "token");
  answer("QXConfig_getServerAddress", "serverAddress");
  answer("QXConfig_GetAwsUploaderServerAddress", "uploadServerAddress");
  answer("QXConfig_currentEnvironmentIsProduction", "production");
  mediator.answer("Tracking_GetLongIdWithCompletion:", [this](const std::vector<Value>& arguments) {
    return completeLongId(arguments);
  });
}

bool HostAnswers::set(std::string_view name, Value value) {
  if (std::find(kNames.begin(), kNames.end(), name) == kNames.end()) return false;
  MutexLock lock(mutex_);
  values_[std::string(name)] = std::move(value);
  return true;
}

Value HostAnswers::get(std::string_view name) const {
  MutexLock lock(mutex_);
  const auto found = values_.find(name);
  return found == values_.end() ? Value() : found->second;
}

/// With a number as the answer the completion gets the number, with any other value it gets none.
/// Without an answer the completion is never called, as in a host that does not know the selector.
Value HostAnswers::completeLongId(const std::vector<Value>& arguments) const {
  const Value longId = get("longId");
  if (longId.isNull() || arguments.empty()) return {};
  const HostObject* object = arguments.front().asHostObject();
  const auto* complete = object ? object->as<std::function<LongIdCompletion>>() : nullptr;
  if (complete == nullptr || !*complete) return {};
  const std::int64_t* number = longId.asInt();
  (*complete)(number ? std::optional(*number) : std::nullopt);
  return {};
}

}  // namespace qx::app
