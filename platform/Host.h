// The host application's services: mediator, logger, notification centre, item tags.
//
//     struct Log : QXLogger {
//       int threshold() override { return 0; }
//       void write(const LogRecord& record) override { std::puts(record.message.c_str()); }
//     };
//
// Threads: the library calls these services from any thread, so that implementations must be safe
// to call from any thread.
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
  /// Performs an action such as "Action_Upload:". False when the target has no such action.
  virtual bool performAction(std::string_view action, const Dictionary& parameters) = 0;
  /// Mistakes of the host in this action, one sentence each, for its developer. Called before the
  /// action is performed. The sentences name keys and types, never the content of a dictionary.
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
  /// Makes a target known under a name such as "Target_Uploader", in place of an earlier one of the
  /// same name. `make` makes a new target for each action.
  virtual void registerTarget(std::string name, TargetFactory make) = 0;
  /// Sends an action such as "Action_Upload:" to a target, on the calling thread. For an unknown
  /// target or action it only writes one log line.
  virtual void performTarget(std::string_view target, std::string_view action,
                             const Dictionary& parameters) = 0;
  /// Asks the host a question such as "Account_GetUserId". Null when the host gives no answer.
  virtual Value perform(std::string_view selector, const std::vector<Value>& arguments) = 0;
};

/// The argument of "Tracking_GetLongIdWithCompletion:", passed as Value::callback. The host calls
/// it once with a number or nothing, on any thread, and may do so before perform() returns.
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
  /// The logger wants records whose level is not below this number.
  virtual int threshold() = 0;
  virtual void write(const LogRecord& record) = 0;
};

/// The name under which the host announces that the signed-in user changed.
inline constexpr std::string_view kUserChangedNotification = "kUserChangedNotification";

class NotificationCentre {
 public:
  virtual ~NotificationCentre() = default;
  /// Registers a handler that stays until the process ends. A handler that is registered twice is
  /// called twice.
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
  /// The map with every value in a form that JSON can hold. Nothing when a value has no such form.
  virtual std::optional<Dictionary> anyCodable(const Dictionary& values) = 0;
};

}  // namespace qx
