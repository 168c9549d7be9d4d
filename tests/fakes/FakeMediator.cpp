#include "fakes/FakeMediator.h"

#include <utility>

namespace qx {

void FakeMediator::answer(std::string selector, Answer answer) {
  MutexLock lock(mutex_);
  answers_.insert_or_assign(std::move(selector), std::move(answer));
}

void FakeMediator::answer(std::string selector, Value value) {
  answer(std::move(selector),
         Answer([value = std::move(value)](const std::vector<Value>&) { return value; }));
}

void FakeMediator::signIn(const std::string& userId, const std::string& accessToken,
                          const std::string& serverAddress) {
  answer("Account_GetUserId", Value(userId));
  answer("Account_GetAccessToken", Value(accessToken));
  answer("QXConfig_getServerAddress", Value(serverAddress));
}

void FakeMediator::signOut() {
  answer("Account_GetUserId", Value());
  answer("Account_GetAccessToken", Value());
}

void FakeMediator::setProduction(bool production) {
  answer("QXConfig_currentEnvironmentIsProduction", Value(production));
}

void FakeMediator::setLongId(std::optional<std::int64_t> id) {
  MutexLock lock(mutex_);
  longId_ = id;
}

void FakeMediator::holdLongIds() {
  MutexLock lock(mutex_);
  holdingLongIds_ = true;
}

std::size_t FakeMediator::releaseLongIds(std::optional<std::int64_t> id) {
  std::vector<std::function<LongIdCompletion>> held;
  {
    MutexLock lock(mutex_);
    held.swap(heldLongIds_);
  }
  for (const auto& complete : held) complete(id);
  return held.size();
}

std::vector<FakeMediator::Performed> FakeMediator::performed() {
  MutexLock lock(mutex_);
  return performed_;
}

std::vector<FakeMediator::Performed> FakeMediator::performed(std::string_view selector) {
  std::vector<Performed> matching;
  for (Performed& each : performed()) {
    if (each.selector == selector) matching.push_back(std::move(each));
  }
  return matching;
}

std::vector<Dictionary> FakeMediator::trackedEvents(std::string_view event) {
  std::vector<Dictionary> events;
  for (const Performed& each : performed("Tracking_Event:parameters:")) {
    if (each.arguments.size() != 2) continue;
    const std::string* name = each.arguments[0].asText();
    const Dictionary* parameters = each.arguments[1].asDictionary();
    if (name != nullptr && *name == event && parameters != nullptr) events.push_back(*parameters);
  }
  return events;
}

std::vector<std::string> FakeMediator::unknownActions() {
  MutexLock lock(mutex_);
  return unknownActions_;
}

void FakeMediator::registerTarget(std::string name, TargetFactory make) {
  MutexLock lock(mutex_);
  targets_.insert_or_assign(std::move(name), std::move(make));
}

void FakeMediator::performTarget(std::string_view target, std::string_view action,
                                 const Dictionary& parameters) {
  TargetFactory make;
  {
    MutexLock lock(mutex_);
    const auto found = targets_.find(target);
    if (found != targets_.end()) make = found->second;
  }
  const std::unique_ptr<MediatorTarget> made = make ? make() : nullptr;
  if (made != nullptr && made->performAction(action, parameters)) return;
  MutexLock lock(mutex_);
  unknownActions_.push_back(std::string(target) + "/" + std::string(action));
}

Value FakeMediator::perform(std::string_view selector, const std::vector<Value>& arguments) {
  Answer answer;
  {
    MutexLock lock(mutex_);
    performed_.push_back({std::string(selector), arguments});
    const auto found = answers_.find(selector);
    if (found != answers_.end()) answer = found->second;
  }
  if (answer) return answer(arguments);
  if (selector == "Tracking_GetLongIdWithCompletion:") performLongId(arguments);
  return {};
}

void FakeMediator::performLongId(const std::vector<Value>& arguments) {
  const HostObject* object = arguments.empty() ? nullptr : arguments[0].asHostObject();
  const auto* complete = object ? object->as<std::function<LongIdCompletion>>() : nullptr;
  if (complete == nullptr || !*complete) return;
  std::optional<std::int64_t> id;
  {
    MutexLock lock(mutex_);
    if (holdingLongIds_) {
      heldLongIds_.push_back(*complete);
      return;
    }
    id = longId_;
  }
  (*complete)(id);
}

}  // namespace qx
