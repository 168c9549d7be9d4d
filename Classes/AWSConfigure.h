// The configuration and credential service: who the user is, and what each scope may upload with.
//
// Threads: every operation may be called from any thread. Three serial queues of its own:
// "com.aws.get.config" runs the credential requests one at a time and blocks while a fetch is out,
// which is what keeps one fetch from starting while another runs; "com.aws.fetch" sends the fetch;
// "com.aws.change.config" applies identities.
// Ownership: one shared instance for the life of the process; it owns the current scheduler and
// message client.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Classes/AWSBasicParameter.h"
#include "Classes/AWSCallbackStatus.h"
#include "Classes/ConfigParameters.h"
#include "Classes/UploadTokenModel.h"
#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/Networking.h"

namespace qx {

class TaskScheduler;

class AWSConfigure {
 public:
  /// Called once, on "com.aws.get.config": (record, success) or (nothing, failure). Must not wait
  /// for another getConfig.
  using ConfigCallback =
      std::function<void(const std::optional<UploadTokenModel>&, const AWSCallbackStatus&)>;
  /// The outcome of one attempt of a background upload: (scope, URL, extra values, error), on the
  /// thread on which the attempt ended.
  using BackgroundUploadCallback =
      std::function<void(const std::string& scope, const std::optional<std::string>& url,
                         const AWSParameterMap& extra, const std::optional<Error>& error)>;
  struct FetchResult {
    bool success = true;
    std::optional<std::string> message;
  };

  static AWSConfigure& shared();

  /// Applies an identity and returns when it is applied; the one in force changes nothing. Neither
  /// fetches nor discards credentials. Never call it from "com.aws.change.config".
  void full(const ConfigParameters& configParameters);

  /// The credentials of a scope. Reads the identity from the host each time and fetches the map
  /// when it is missing, belongs to another identity, or the scope's credential has expired (to the
  /// very instant), unless `skipCheckExpiration`.
  void getConfig(std::string scope, bool skipCheckExpiration, ConfigCallback callback);

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
  /// The identity applied last.
  Guarded<std::optional<ConfigParameters>> configParameters;
  /// Made anew with each successful fetch; part of the keys of its transfer utilities.
  Guarded<std::optional<std::string>> configUUID;
  /// The message client of the current identity.
  Guarded<std::shared_ptr<QXMessageAPINetworkingManager>> networkingManager;

 private:
  using ConfigMap = std::map<std::string, UploadTokenModel>;

  AWSConfigure();
  void answerConfigRequest(const std::string& scope, bool skipCheckExpiration,
                           const ConfigCallback& callback);
  FetchResult applyFetchedConfig(const QXNetworkingResponse& response);

  /// Credentials per scope; replaced as a whole by each successful fetch.
  Guarded<std::shared_ptr<const ConfigMap>> configMap_;
  const std::shared_ptr<DispatchQueue> fetchQeue_;
  const std::shared_ptr<DispatchQueue> getConfigQeue_;
  const std::shared_ptr<DispatchQueue> changeConfigQeue_;
};

}  // namespace qx
