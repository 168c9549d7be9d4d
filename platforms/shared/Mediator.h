// The mediator: it finds targets and actions by name, and the host's answers among functions that
// the host has registered.
//
//     mediator.answer("Account_GetUserId", [] { return Value("42"); });
//     mediator.performTarget("Target_Uploader", "Action_SetUp:", {{"needServerResize", false}});
//     mediator.perform("Account_GetUserId", {});  // Value("42")
//
// Threads: every operation may be called from any thread. Answers and actions run on the calling
// thread, outside the mediator's lock.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Export.h"
#include "platform/Host.h"
#include "platform/Mutex.h"

namespace qx {

class DeveloperMistakes;

class QX_EXPORT Mediator : public QXMediator {
 public:
  using Answer = std::function<Value(const std::vector<Value>& arguments)>;

  /// `logger` gets the lines about unknown targets, actions and selectors, outside production only.
  /// `mistakes` gets the mistakes that the host's developer should correct, also in production.
  /// Both may be null.
  explicit Mediator(QXLogger* logger, DeveloperMistakes* mistakes = nullptr);

  /// Registers the host's answer to a selector, in place of an earlier one.
  void answer(std::string selector, Answer answer);
  /// Registers an answer that needs no arguments.
  void answer(std::string selector, std::function<Value()> answer);

  void registerTarget(std::string name, TargetFactory make) override;
  void performTarget(std::string_view target, std::string_view action,
                     const Dictionary& parameters) override;
  Value perform(std::string_view selector, const std::vector<Value>& arguments) override;

 private:
  QXLogger* const logger_;
  DeveloperMistakes* const mistakes_;
  Mutex mutex_;
  std::map<std::string, TargetFactory, std::less<>> targets_ QX_GUARDED_BY(mutex_);
  std::map<std::string, Answer, std::less<>> answers_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
