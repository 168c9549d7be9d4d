#include "platforms/shared/Mediator.h"

#include <utility>

#include "platforms/shared/DeveloperMistakes.h"

namespace qx {
namespace {

constexpr std::string_view kProductionQuery = "QXConfig_currentEnvironmentIsProduction";
constexpr int kLogLevel = 5;

/// True while this thread writes a log line, so that no line is logged about an unknown question
/// that the logger asks the mediator meanwhile.
thread_local bool logging = false;

void logUnknown(QXMediator& mediator, QXLogger* logger, std::string message,
                std::string_view function, int line) {
  if (logger == nullptr || logging) return;
  logging = true;
  const Value production = mediator.perform(kProductionQuery, {});
  const bool* isProduction = production.asBool();
  if (isProduction != nullptr && !*isProduction && kLogLevel >= logger->threshold()) {
    logger->write({.level = kLogLevel,
                   .message = std::move(message),
                   .module = "QXAwsUploader",
                   .source = "QXAwsUploader/Mediator",
                   .function = std::string(function),
                   .line = line});
  }
  logging = false;
}

}  // namespace

Mediator::Mediator(QXLogger* logger, DeveloperMistakes* mistakes)
    : logger_(logger), mistakes_(mistakes) {}

void Mediator::answer(std::string selector, Answer answer) {
  MutexLock lock(mutex_);
  answers_.insert_or_assign(std::move(selector), std::move(answer));
}

void Mediator::answer(std::string selector, std::function<Value()> answer) {
  Mediator::answer(
      std::move(selector),
      Answer([answer = std::move(answer)](const std::vector<Value>&) { return answer(); }));
}

void Mediator::registerTarget(std::string name, TargetFactory make) {
  MutexLock lock(mutex_);
  targets_.insert_or_assign(std::move(name), std::move(make));
}

void Mediator::performTarget(std::string_view target, std::string_view action,
                             const Dictionary& parameters) {
  TargetFactory make;
  {
    MutexLock lock(mutex_);
    const auto found = targets_.find(target);
    if (found != targets_.end()) make = found->second;
  }
  const std::unique_ptr<MediatorTarget> made = make ? make() : nullptr;
  if (mistakes_ != nullptr && made != nullptr) {
    for (const std::string& mistake : made->mistakes(action, parameters)) mistakes_->tell(mistake);
  }
  if (made == nullptr) {
    if (mistakes_ != nullptr) mistakes_->unknownTarget(target);
    logUnknown(*this, logger_, "unknown target " + std::string(target),
               "performTarget(_:action:parameters:)", __LINE__);
  } else if (!made->performAction(action, parameters)) {
    if (mistakes_ != nullptr) mistakes_->unknownAction(target, action);
    logUnknown(*this, logger_,
               "unknown action " + std::string(action) + " of " + std::string(target),
               "performTarget(_:action:parameters:)", __LINE__);
  }
}

Value Mediator::perform(std::string_view selector, const std::vector<Value>& arguments) {
  Answer answer;
  {
    MutexLock lock(mutex_);
    const auto found = answers_.find(selector);
    if (found != answers_.end()) answer = found->second;
  }
  if (answer) {
    Value value = answer(arguments);
    if (mistakes_ != nullptr) mistakes_->answered(selector, value);
    return value;
  }
  if (mistakes_ != nullptr) mistakes_->unanswered(selector, logger_ != nullptr);
  // Without an answer to this question the environment counts as production, where nothing is
  // logged.
  if (selector != kProductionQuery) {
    logUnknown(*this, logger_, "unknown selector " + std::string(selector), "perform(_:arguments:)",
               __LINE__);
  }
  return {};
}

}  // namespace qx
