#include "HostSeams.h"

#include <cerrno>
#include <utility>

namespace qx::app {
namespace {

class ObservedUtility : public AWSS3TransferUtility {
 public:
  ObservedUtility(std::shared_ptr<AWSS3TransferUtility> inner, ObservedStore::Observer observer)
      : inner_(std::move(inner)), observer_(std::move(observer)) {}

  AWSTask uploadData(Data data, const std::string& bucket, const std::string& key,
                     const std::string& contentType,
                     AWSS3TransferUtilityUploadExpression expression,
                     UploadCompletion completionHandler) override {
    return inner_->uploadData(std::move(data), bucket, key, contentType, std::move(expression),
                              std::move(completionHandler));
  }

  AWSTask downloadToURL(const Url& location, const std::string& bucket, const std::string& key,
                        AWSS3TransferUtilityDownloadExpression expression,
                        DownloadCompletion completionHandler) override {
    auto observed = [observer = observer_, inner = std::move(expression.progressBlock)](
                        const TransferProgress& progress) {
      observer(progress);
      if (inner) inner(progress);
    };
    return inner_->downloadToURL(location, bucket, key, {std::move(observed)},
                                 std::move(completionHandler));
  }

 private:
  const std::shared_ptr<AWSS3TransferUtility> inner_;
  const ObservedStore::Observer observer_;
};

class CountedClient : public QXMessageAPINetworkingManager {
 public:
  CountedClient(std::shared_ptr<QXMessageAPINetworkingManager> inner,
                std::shared_ptr<CountedMessages::Shared> shared)
      : inner_(std::move(inner)), shared_(std::move(shared)) {}

  void request(std::shared_ptr<const APIRequest> message, const std::optional<HTTPHeaders>& headers,
               double timeoutSeconds, ProgressCallback progress, Completion completion) override {
    ++shared_->underWay;
    inner_->request(message, headers, timeoutSeconds, std::move(progress),
                    [shared = shared_, message,
                     completion = std::move(completion)](const QXNetworkingResponse& response) {
                      // Told first: whoever hears of it from the library, or waits for the count
                      // to fall, must have heard.
                      shared->observer(*message, response.error);
                      if (completion) completion(response);
                      --shared->underWay;
                    });
  }

 private:
  const std::shared_ptr<QXMessageAPINetworkingManager> inner_;
  const std::shared_ptr<CountedMessages::Shared> shared_;
};

thread_local std::optional<Error> failureHere;

}  // namespace

std::optional<Error> WatchedFiles::takeFailureOfThisThread() {
  return std::exchange(failureHere, std::nullopt);
}

std::vector<std::string> WatchedFiles::documentDirectories() {
  return platform_.documentDirectories();
}

PathKind WatchedFiles::kind(const std::string& path) {
  return platform_.kind(path);
}

Result<FileFacts> WatchedFiles::facts(const std::string& path) {
  return platform_.facts(path);
}

Result<std::unique_ptr<FileLock>> WatchedFiles::lock(const std::string& path) {
  return platform_.lock(path);
}

std::optional<Error> WatchedFiles::createDirectory(const std::string& path) {
  return platform_.createDirectory(path);
}

Result<std::vector<std::string>> WatchedFiles::list(const std::string& path) {
  return platform_.list(path);
}

Result<Data> WatchedFiles::read(const std::string& path) {
  auto data = platform_.read(path);
  if (!data && data.error().code != ENOENT && path.ends_with("/logs.plist")) {
    failureHere = data.error();
  }
  return data;
}

std::optional<Error> WatchedFiles::write(const std::string& path,
                                         std::span<const std::string_view> pieces, WriteMode mode,
                                         Durability durability) {
  auto error = platform_.write(path, pieces, mode, durability);
  if (error) failureHere = error;
  return error;
}

std::optional<Error> WatchedFiles::rename(const std::string& from, const std::string& to) {
  return platform_.rename(from, to);
}

std::optional<Error> WatchedFiles::remove(const std::string& path) {
  return platform_.remove(path);
}

CountedMessages::CountedMessages(MessageClients& platform, Observer observer)
    : platform_(platform), shared_(std::make_shared<Shared>()) {
  shared_->observer = std::move(observer);
}

std::shared_ptr<QXMessageAPINetworkingManager> CountedMessages::make(
    const Url& baseURL, HTTPHeaders headers, std::optional<double> timeoutForRequest,
    bool addSignature) {
  return std::make_shared<CountedClient>(
      platform_.make(baseURL, std::move(headers), timeoutForRequest, addSignature), shared_);
}

std::string CountedMessages::localisedText(std::string_view key) {
  return platform_.localisedText(key);
}

SwitchableReachability::SwitchableReachability(QXNetworkingReachabilityTool& platform)
    : platform_(platform) {
  platform_.startListening([this](bool reachable, bool) {
    {
      MutexLock lock(mutex_);
      if (override_) return;
    }
    notify(reachable);
  });
}

void SwitchableReachability::override(std::optional<bool> reachable) {
  const bool before = isReachable();
  {
    MutexLock lock(mutex_);
    override_ = reachable;
  }
  const bool after = isReachable();
  if (after != before) notify(after);
}

bool SwitchableReachability::isReachable() {
  {
    MutexLock lock(mutex_);
    if (override_) return *override_;
  }
  return platform_.isReachable();
}

void SwitchableReachability::startListening(Listener listener) {
  MutexLock lock(mutex_);
  listeners_.push_back(std::move(listener));
}

void SwitchableReachability::notify(bool reachable) {
  std::vector<Listener> listeners;
  {
    MutexLock lock(mutex_);
    listeners = listeners_;
  }
  for (const Listener& listener : listeners) listener(reachable, false);
}

ObservedStore::ObservedStore(ObjectStore& platform, Observer observer)
    : platform_(platform), observer_(std::move(observer)) {}

std::string ObservedStore::globalEndpoint() {
  return platform_.globalEndpoint();
}

std::optional<AWSServiceConfiguration> ObservedStore::makeServiceConfiguration(
    AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
    AWSBasicSessionCredentialsProvider credentials) {
  return platform_.makeServiceConfiguration(region, regionName, std::move(endpoint),
                                            std::move(credentials));
}

void ObservedStore::registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                              const std::string& key) {
  platform_.registerS3TransferUtility(configuration, key);
}

std::shared_ptr<AWSS3TransferUtility> ObservedStore::S3TransferUtilityForKey(
    const std::string& key) {
  auto inner = platform_.S3TransferUtilityForKey(key);
  if (!inner) return nullptr;
  return std::make_shared<ObservedUtility>(std::move(inner), observer_);
}

void ObservedStore::removeS3TransferUtility(const std::string& key) {
  platform_.removeS3TransferUtility(key);
}

}  // namespace qx::app
