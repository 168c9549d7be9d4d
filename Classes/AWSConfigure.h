// The configuration and credential service: the user's identity, and the credentials of each scope.
//
// Threads: every operation may be called from any thread. The service has four serial queues:
// "com.aws.get.config" runs the credential requests one at a time and blocks during a fetch, so
// that no second fetch starts meanwhile; "com.aws.fetch" sends the fetch; "com.aws.change.config"
// applies identities; "com.aws.hand.over" signs and sends uploads.
// Ownership: a library has one instance, which owns the current scheduler and the session. Running
// requests use the instance, so it is destroyed after they have ended, or never.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/AWSBasicParameter.h"
#include "Classes/AWSCallbackStatus.h"
#include "Classes/AWSTracking.h"
#include "Classes/ConfigParameters.h"
#include "Classes/Credentials.h"
#include "Classes/IdleWatch.h"
#include "Classes/RetryTimer.h"
#include "Classes/Session.h"
#include "Classes/TaskScheduler.h"
#include "Classes/UploadEvents.h"
#include "Classes/UploadTokenModel.h"
#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/Networking.h"
#include "platform/Platform.h"

namespace qx {

class AWSConfigure : public Credentials {
 public:
  /// Makes a scheduler for a user.
  using SchedulerFactory = std::function<std::shared_ptr<TaskScheduler>(const std::string& userId)>;
  struct FetchResult {
    bool success = true;
    std::optional<std::string> message;
    /// The error that caused the message, if there is one.
    std::optional<Error> error = {};
  };

  /// All arguments must outlive the instance.
  AWSConfigure(const Platform& platform, const AWSTracking& tracking, UploadEvents& events,
               IdleWatch& idle, RetryTimer& retryTimer, SchedulerFactory makeScheduler);
  /// The instance of the process.
  static AWSConfigure& shared();

  /// Applies an identity and returns when it is applied. Does nothing for the identity that is in
  /// force. Neither fetches nor drops credentials. Must not be called on "com.aws.change.config".
  void full(const ConfigParameters& configParameters);

  void getConfig(std::string scope, bool skipCheckExpiration, ConfigCallback callback) override;
  std::shared_ptr<AWSS3TransferUtility> transferUtility(const std::string& scope) override;
  DispatchQueue& handOverQueue() override { return *handOverQueue_; }
  bool resizesOnServer() const override { return needServerResize; }

  /// Fetches the credentials of all scopes and blocks the calling thread until the backend has
  /// answered. May be called only by work on "com.aws.get.config". Without a message client it
  /// sends nothing and reports success.
  FetchResult fetchServerConfig();

  /// Registers a transfer utility for a scope under the key scope + configUUID. A configuration
  /// that cannot be made is tracked.
  void generateAWSConfiguration(const std::string& key, const UploadTokenModel& model);

  /// Reads the identity from the host and applies it when it is complete. Otherwise it writes a log
  /// record and tracks the failure.
  void retryFire();
  /// Handles the host's user-changed notification: calls retryFire().
  void userDidChange();

  /// Tells the backend the URL of an item's original image. The outcome is only logged.
  void backgroundUploadItem(const std::optional<std::string>& imageUrl,
                            const AWSParameterMap& extra);

  /// The backend's last reason for giving no credentials for a scope. Nothing when it gave them or
  /// was not asked yet.
  std::optional<std::string> refusal(const std::string& scope) const;

  /// Calls each of the two background callbacks that is set.
  void reportBackgroundUpload(const std::string& scope, const std::optional<std::string>& url,
                              const AWSParameterMap& extra, const std::optional<Error>& error);

  /// The number of background uploads that may run at once; below 1 counts as 1.
  std::atomic<std::int64_t> maxBackgroundConcurrentCount = 6;
  /// True from a successful fetch until the next one starts.
  std::atomic<bool> configured = false;
  /// True when uploads go through the host's upload server.
  std::atomic<bool> needServerResize = false;
  /// True when stored background uploads outlive their process. Read when an identity is applied.
  std::atomic<bool> resumeStoredTasks = false;
  /// The scheduler of the current user. Every applied identity replaces it.
  Guarded<std::shared_ptr<TaskScheduler>> scheduler;
  /// The host's callback for background uploads, and the library's own callback that follows it.
  Guarded<BackgroundUploadCallback> backgroundUploadCallback;
  Guarded<BackgroundUploadCallback> backgroundUploadItemCallback;
  /// Never null. An applied identity and a successful fetch replace it as a whole.
  Guarded<std::shared_ptr<const Session>> session{std::make_shared<const Session>()};

 private:
  void answerConfigRequest(const std::string& scope, bool skipCheckExpiration,
                           const ConfigCallback& callback);
  FetchResult applyFetchedConfig(const QXNetworkingResponse& response);

  /// Remembers and tells how a fetch has ended.
  FetchResult ended(FetchResult result);
  void trackConfigError(const std::string& message) const;
  /// Replaces the session by a copy that `change` has changed.
  void changeSession(const std::function<void(Session&)>& change);

  const Platform& platform_;
  const AWSTracking& tracking_;
  UploadEvents& events_;
  IdleWatch& idle_;
  /// The outcome of the latest fetch.
  Guarded<std::optional<std::string>> refusal_;
  RetryTimer& retryTimer_;
  const SchedulerFactory makeScheduler_;
  const std::shared_ptr<DispatchQueue> fetchQeue_;
  const std::shared_ptr<DispatchQueue> getConfigQeue_;
  const std::shared_ptr<DispatchQueue> changeConfigQeue_;
  const std::shared_ptr<DispatchQueue> handOverQueue_;
};

}  // namespace qx
