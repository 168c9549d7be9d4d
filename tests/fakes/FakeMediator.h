// A mediator whose answers a test sets beforehand. It remembers the questions that it was asked.
//
//     FakeMediator mediator;
//     mediator.signIn("u1", "token", "https://backend.test");
//     mediator.answer("QXConfig_GetAwsUploaderServerAddress", "https://upload.test");
//
// Threads: every operation may be called from any thread. Answers and actions run on the calling
// thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Host.h"
#include "platform/Mutex.h"

namespace qx {

class FakeMediator : public QXMediator {
 public:
  using Answer = std::function<Value(const std::vector<Value>& arguments)>;
  struct Performed {
    std::string selector;
    std::vector<Value> arguments;
  };

  // The host's side.
  void answer(std::string selector, Answer answer);
  /// Answers the selector with this value every time. Null: the selector has no answer.
  void answer(std::string selector, Value value);
  /// Sets the answers of a host with a signed-in user: "Account_GetUserId",
  /// "Account_GetAccessToken" and "QXConfig_getServerAddress".
  void signIn(const std::string& userId, const std::string& accessToken,
              const std::string& serverAddress);
  /// Removes the answers of "Account_GetUserId" and "Account_GetAccessToken".
  void signOut();
  /// Sets the answer of "QXConfig_currentEnvironmentIsProduction".
  void setProduction(bool production);

  /// Sets the number that "Tracking_GetLongIdWithCompletion:" brings before perform() returns. By
  /// default it brings nothing.
  void setLongId(std::optional<std::int64_t> id);
  /// From now on the completions of "Tracking_GetLongIdWithCompletion:" are kept. releaseLongIds()
  /// calls them.
  void holdLongIds();
  /// Calls every kept completion with `id`, and returns how many there were.
  std::size_t releaseLongIds(std::optional<std::int64_t> id);

  // The actions and questions of the library.
  std::vector<Performed> performed();
  std::vector<Performed> performed(std::string_view selector);
  /// The parameters of each "Tracking_Event:parameters:" with the name `event`, in order.
  std::vector<Dictionary> trackedEvents(std::string_view event = "qx_aws");
  /// The text "Target_X/Action_Y:" of each action that no target had.
  std::vector<std::string> unknownActions();

  void registerTarget(std::string name, TargetFactory make) override;
  void performTarget(std::string_view target, std::string_view action,
                     const Dictionary& parameters) override;
  Value perform(std::string_view selector, const std::vector<Value>& arguments) override;

 private:
  void performLongId(const std::vector<Value>& arguments);

  Mutex mutex_;
  std::map<std::string, Answer, std::less<>> answers_ QX_GUARDED_BY(mutex_);
  std::map<std::string, TargetFactory, std::less<>> targets_ QX_GUARDED_BY(mutex_);
  std::vector<Performed> performed_ QX_GUARDED_BY(mutex_);
  std::vector<std::string> unknownActions_ QX_GUARDED_BY(mutex_);
  std::optional<std::int64_t> longId_ QX_GUARDED_BY(mutex_);
  bool holdingLongIds_ QX_GUARDED_BY(mutex_) = false;
  std::vector<std::function<LongIdCompletion>> heldLongIds_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
