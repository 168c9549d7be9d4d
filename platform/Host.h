// The host application's services: mediator, logger, notification centre, item tags.
//
// Threads: the library calls these from any thread; implementations see to their own safety.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Value.h"

namespace qx {

/// A class that the mediator can send actions to.
class MediatorTarget {
 public:
  virtual ~MediatorTarget() = default;
  /// Performs "Action_Upload:" and the like. False when the target has no such action.
  virtual bool performAction(std::string_view action, const Dictionary& parameters) = 0;
  /// What a developer would want to know is wrong with this action, one sentence each, before it is
  /// performed. Names of keys and types only, never what a dictionary holds.
  virtual std::vector<std::string> mistakes(std::string_view /*action*/,
                                            const Dictionary& /*parameters*/) {
    return {};
  }
};

/// Routes named actions between the host's modules and the library.
class QXMediator {
 public:
  using TargetFactory = std::function<std::unique_ptr<MediatorTarget>()>;

  virtual ~QXMediator() = default;
  /// Makes `name` ("Target_Uploader") known; a fresh target serves each action. Replaces an earlier
  /// one of the same name.
  virtual void registerTarget(std::string name, TargetFactory make) = 0;
  /// Sends an action ("Action_Upload:") to a target, on the calling thread. An unknown target or
  /// action does nothing but write one log line.
  virtual void performTarget(std::string_view target, std::string_view action,
                             const Dictionary& parameters) = 0;
  /// Asks the host ("Account_GetUserId"). Null when the host gives no answer.
  virtual Value perform(std::string_view selector, const std::vector<Value>& arguments) = 0;
};

/// The argument of "Tracking_GetLongIdWithCompletion:": called once, on any thread, also before
/// perform returns, with the host's number or nothing. Passed as Value::callback.
using LongIdCompletion = void(std::optional<std::int64_t>);

struct LogRecord {
  int level = 0;
  std::string message;
  /// "QXAwsUploader".
  std::string module;
  /// "QXAwsUploader/AWSConfigure".
  std::string source;
  /// "full(configParameters:)".
  std::string function;
  int line = 0;
};

/// The host's default logger.
class QXLogger {
 public:
  virtual ~QXLogger() = default;
  /// The active threshold: a record is wanted when its level is not below it.
  virtual int threshold() = 0;
  virtual void write(const LogRecord& record) = 0;
};

/// The name under which the host announces that the signed-in user changed.
inline constexpr std::string_view kUserChangedNotification = "kUserChangedNotification";

class NotificationCentre {
 public:
  virtual ~NotificationCentre() = default;
  /// Registers a handler for good; registering twice means being called twice.
  virtual void addObserver(std::string name, std::function<void()> handler) = 0;
  /// Calls the handlers of `name` in the order of their registration, on the calling thread.
  virtual void post(std::string_view name) = 0;
};

/// The host's item-tag tracker and its conversion of values to encodable form.
class QXTrackingEvents {
 public:
  virtual ~QXTrackingEvents() = default;
  /// Full tagging of an item.
  virtual void tagItem(const std::string& itemType, std::int64_t itemId,
                       const std::string& imageUrl,
                       const std::optional<std::vector<std::string>>& tags,
                       std::int64_t imageSource, const std::optional<Dictionary>& fields) = 0;
  /// Update of an item's tags.
  virtual void updateItem(const std::optional<std::string>& itemType, std::int64_t itemId,
                          const std::optional<std::vector<std::string>>& tags,
                          const std::optional<Dictionary>& fields) = 0;
  /// The map with every value in a form that JSON can hold; nothing when one has no such form.
  virtual std::optional<Dictionary> anyCodable(const Dictionary& values) = 0;
};

}  // namespace qx
