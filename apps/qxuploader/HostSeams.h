// Seams that this host puts in front of the platform's own.
//
// Threads: any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Error.h"
#include "platform/Files.h"
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
      AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
      AWSBasicSessionCredentialsProvider credentials) override;
  void registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                 const std::string& key) override;
  std::shared_ptr<AWSS3TransferUtility> S3TransferUtilityForKey(const std::string& key) override;
  void removeS3TransferUtility(const std::string& key) override;

 private:
  ObjectStore& platform_;
  const Observer observer_;
};

/// Notes what goes wrong when the library stores a task: it tells nobody, and uploads from memory.
class WatchedFiles : public Files {
 public:
  explicit WatchedFiles(Files& platform) : platform_(platform) {}

  /// The last failure to write, or to read the log that is there, on the calling thread since the
  /// last call.
  static std::optional<Error> takeFailureOfThisThread();

  std::vector<std::string> documentDirectories() override;
  PathKind kind(const std::string& path) override;
  Result<FileFacts> facts(const std::string& path) override;
  Result<std::unique_ptr<FileLock>> lock(const std::string& path) override;
  std::optional<Error> createDirectory(const std::string& path) override;
  Result<std::vector<std::string>> list(const std::string& path) override;
  Result<Data> read(const std::string& path) override;
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override;
  std::optional<Error> rename(const std::string& from, const std::string& to) override;
  std::optional<Error> remove(const std::string& path) override;

 private:
  Files& platform_;
};

/// Counts the messages to the backend that are under way: the library sends some that nobody
/// calls back for, and ending the process would cut them off.
class CountedMessages : public MessageClients {
 public:
  /// A message that ended, and its error if it failed; on the messages' threads, before the library
  /// is told.
  using Observer =
      std::function<void(const APIRequest& message, const std::optional<Error>& error)>;

  CountedMessages(MessageClients& platform, Observer observer);

  std::int64_t underWay() const { return shared_->underWay; }

  std::shared_ptr<QXMessageAPINetworkingManager> make(const Url& baseURL, HTTPHeaders headers,
                                                      std::optional<double> timeoutForRequest,
                                                      bool addSignature) override;
  std::string localisedText(std::string_view key) override;

  /// What the clients share with this object.
  struct Shared {
    std::atomic<std::int64_t> underWay = 0;
    Observer observer;
  };

 private:
  MessageClients& platform_;
  const std::shared_ptr<Shared> shared_;
};

}  // namespace qx::app
