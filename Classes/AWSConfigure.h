// The configuration and credential service: who the user is, and what each scope may upload with.
//
// Threads: every operation may be called from any thread. Three serial queues of its own:
// "com.aws.get.config" runs the credential requests one at a time and blocks while a fetch is out,
// which is what keeps one fetch from starting while another runs; "com.aws.fetch" sends the fetch;
// "com.aws.change.config" applies identities.
// Ownership: one instance per library; it owns the current scheduler and the session. Requests that
// are under way use it, so it is destroyed after they have ended, or never.
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
  /// A new scheduler for a user.
  using SchedulerFactory = std::function<std::shared_ptr<TaskScheduler>(const std::string& userId)>;
  struct FetchResult {
    bool success = true;
    std::optional<std::string> message;
    /// The error behind the message, if there is one.
    std::optional<Error> error = {};
  };

  /// Everything given must outlive the instance.
  AWSConfigure(const Platform& platform, const AWSTracking& tracking, UploadEvents& events,
               IdleWatch& idle, RetryTimer& retryTimer, SchedulerFactory makeScheduler);
  /// The instance of the process.
  static AWSConfigure& shared();

  /// Applies an identity and returns when it is applied; the one in force changes nothing. Neither
  /// fetches nor discards credentials. Never call it from "com.aws.change.config".
  void full(const ConfigParameters& configParameters);

  void getConfig(std::string scope, bool skipCheckExpiration, ConfigCallback callback) override;
  std::shared_ptr<AWSS3TransferUtility> transferUtility(const std::string& scope) override;
  bool resizesOnServer() const override { return needServerResize; }

  /// Fetches the credential map, blocking the calling thread until the backend has answered. Only
  /// from work on "com.aws.get.config". Without a message client it reports success, having sent
  /// nothing.
  FetchResult fetchServerConfig();

  /// Registers a transfer utility for a scope under scope + configUUID; a configuration that cannot
  /// be made is tracked.
  void generateAWSConfiguration(const std::string& key, const UploadTokenModel& model);

  /// Reads the identity from the host and applies it when it is complete; otherwise logs and
  /// tracks.
  void retryFire();
  /// The host's user-changed notification: retryFire().
  void userDidChange();

  /// Tells the backend where an item's original image now lies; the outcome is only logged.
  void backgroundUploadItem(const std::optional<std::string>& imageUrl,
                            const AWSParameterMap& extra);

  /// Why uploads of a scope get no credentials, as the backend said last; nothing when they do, or
  /// when it was not asked yet.
  std::optional<std::string> refusal(const std::string& scope) const;

  /// Calls the two background callbacks, each if it is set.
  void reportBackgroundUpload(const std::string& scope, const std::optional<std::string>& url,
                              const AWSParameterMap& extra, const std::optional<Error>& error);

  /// Limit of concurrent background uploads; below 1 counts as 1 where it is used.
  std::atomic<std::int64_t> maxBackgroundConcurrentCount = 6;
  /// True from a successful fetch until the next one starts.
  std::atomic<bool> configured = false;
  /// Uploads go through the host's upload server.
  std::atomic<bool> needServerResize = false;
  /// Stored background uploads outlive their process; read when an identity is applied.
  std::atomic<bool> resumeStoredTasks = false;
  /// The current user's scheduler; replaced with every identity.
  Guarded<std::shared_ptr<TaskScheduler>> scheduler;
  /// The host's callback for background uploads, and the library's own that follows it.
  Guarded<BackgroundUploadCallback> backgroundUploadCallback;
  Guarded<BackgroundUploadCallback> backgroundUploadItemCallback;
  /// Never null. Replaced as a whole by an applied identity and by a successful fetch.
  Guarded<std::shared_ptr<const Session>> session{std::make_shared<const Session>()};

 private:
  void answerConfigRequest(const std::string& scope, bool skipCheckExpiration,
                           const ConfigCallback& callback);
  FetchResult applyFetchedConfig(const QXNetworkingResponse& response);

  /// Remembers and tells how a fetch has ended.
  FetchResult ended(FetchResult result);
  void trackConfigError(const std::string& message) const;
  /// Replaces the session by a copy of it that `change` has changed.
  void changeSession(const std::function<void(Session&)>& change);

  const Platform& platform_;
  const AWSTracking& tracking_;
  UploadEvents& events_;
  IdleWatch& idle_;
  /// Of the latest fetch.
  Guarded<std::optional<std::string>> refusal_;
  RetryTimer& retryTimer_;
  const SchedulerFactory makeScheduler_;
  const std::shared_ptr<DispatchQueue> fetchQeue_;
  const std::shared_ptr<DispatchQueue> getConfigQeue_;
  const std::shared_ptr<DispatchQueue> changeConfigQeue_;
};

}  // namespace qx
