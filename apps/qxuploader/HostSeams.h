// Two seams that this host puts in front of the platform's own.
//
// Threads: any thread.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Mutex.h"
#include "platform/Networking.h"
#include "platform/ObjectStore.h"

namespace qx::app {

/// The platform's reachability, unless the host says otherwise.
class SwitchableReachability : public QXNetworkingReachabilityTool {
 public:
  explicit SwitchableReachability(QXNetworkingReachabilityTool& platform);

  /// What isReachable answers from now on; nothing: the platform's own answer again. Listeners hear
  /// of it on the calling thread when it is a change.
  void override(std::optional<bool> reachable);

  bool isReachable() override;
  void startListening(Listener listener) override;

 private:
  void notify(bool reachable);

  QXNetworkingReachabilityTool& platform_;
  Mutex mutex_;
  std::optional<bool> override_ QX_GUARDED_BY(mutex_);
  std::vector<Listener> listeners_ QX_GUARDED_BY(mutex_);
};

/// Sees the bytes of each download go by: the library reports a fraction only, and a rate needs
/// bytes.
class ObservedStore : public ObjectStore {
 public:
  using Observer = std::function<void(const TransferProgress&)>;

  /// `observer` is called on the store's threads.
  ObservedStore(ObjectStore& platform, Observer observer);

  std::string globalEndpoint() override;
  std::optional<AWSServiceConfiguration> makeServiceConfiguration(
      AWSRegionType region, AWSEndpoint endpoint,
      AWSBasicSessionCredentialsProvider credentials) override;
  void registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                 const std::string& key) override;
  std::shared_ptr<AWSS3TransferUtility> S3TransferUtilityForKey(const std::string& key) override;

 private:
  ObjectStore& platform_;
  const Observer observer_;
};

}  // namespace qx::app
