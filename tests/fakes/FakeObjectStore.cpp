#include "fakes/FakeObjectStore.h"

#include <atomic>

#include "platform/Http.h"
#include "platform/Url.h"

namespace qx {

class FakeObjectStore::Utility : public AWSS3TransferUtility {
 public:
  Utility(FakeObjectStore& store, std::string name) : store_(store), name_(std::move(name)) {}

  AWSTask uploadData(Data data, const std::string& bucket, const std::string& key,
                     const std::string& contentType,
                     AWSS3TransferUtilityUploadExpression expression,
                     UploadCompletion completion) override {
    const Upload upload{name_, std::move(data), bucket, key, contentType};
    {
      MutexLock lock(store_.mutex_);
      store_.uploads_.push_back(upload);
    }
    return store_.start(
        [&store = store_, upload, expression, completion](std::optional<Error> error) {
          store.finishUpload(upload, std::move(error), expression, completion);
        });
  }

  AWSTask downloadToURL(const Url& location, const std::string& bucket, const std::string& key,
                        AWSS3TransferUtilityDownloadExpression expression,
                        DownloadCompletion completion) override {
    const Download download{name_, location.text(), bucket, key};
    {
      MutexLock lock(store_.mutex_);
      store_.downloads_.push_back(download);
    }
    return store_.start(
        [&store = store_, download, location, expression, completion](std::optional<Error> error) {
          store.finishDownload(download, location, std::move(error), expression, completion);
        });
  }

 private:
  FakeObjectStore& store_;
  const std::string name_;
};

/// A transfer that waits for release().
class FakeObjectStore::Held : public Cancellable {
 public:
  Held(FakeObjectStore& store, std::function<void(std::optional<Error>)> finish)
      : store_(store), finish_(std::move(finish)) {}
  void cancel() override {
    if (over_.exchange(true)) return;
    {
      MutexLock lock(store_.mutex_);
      std::erase_if(store_.held_, [this](const auto& one) { return one.get() == this; });
    }
    finish_(Error{"Transport", kCancelled, "the transfer was cancelled"});
  }
  void release() {
    if (!over_.exchange(true)) store_.end(finish_);
  }

 private:
  FakeObjectStore& store_;
  const std::function<void(std::optional<Error>)> finish_;
  std::atomic<bool> over_ = false;
};

void FakeObjectStore::refuseConfigurations(bool refuse) {
  MutexLock lock(mutex_);
  refuseConfigurations_ = refuse;
}

void FakeObjectStore::failAtOnce(Error error) {
  MutexLock lock(mutex_);
  atOnce_.push_back(std::move(error));
}

void FakeObjectStore::failOnce(Error error) {
  MutexLock lock(mutex_);
  once_.push_back(std::move(error));
}

void FakeObjectStore::failAll(std::optional<Error> error) {
  MutexLock lock(mutex_);
  all_ = std::move(error);
}

void FakeObjectStore::reportProgress(std::vector<TransferProgress> reports) {
  MutexLock lock(mutex_);
  progress_ = std::move(reports);
}

void FakeObjectStore::hold() {
  MutexLock lock(mutex_);
  holding_ = true;
}

void FakeObjectStore::release() {
  std::deque<std::shared_ptr<Held>> held;
  {
    MutexLock lock(mutex_);
    holding_ = false;
    held.swap(held_);
  }
  for (const auto& transfer : held) transfer->release();
}

void FakeObjectStore::answerOn(DispatchQueue& queue) {
  MutexLock lock(mutex_);
  queue_ = &queue;
}

void FakeObjectStore::writeFilesWith(FileWriter writer) {
  MutexLock lock(mutex_);
  writer_ = std::move(writer);
}

void FakeObjectStore::put(const std::string& bucket, const std::string& key, Data data) {
  MutexLock lock(mutex_);
  objects_[{bucket, key}] = std::move(data);
}

std::optional<Data> FakeObjectStore::object(const std::string& bucket,
                                            const std::string& key) const {
  MutexLock lock(mutex_);
  const auto found = objects_.find({bucket, key});
  if (found == objects_.end()) return std::nullopt;
  return found->second;
}

std::vector<AWSRegionType> FakeObjectStore::askedRegions() const {
  MutexLock lock(mutex_);
  return askedRegions_;
}

std::vector<FakeObjectStore::Registration> FakeObjectStore::registrations() const {
  MutexLock lock(mutex_);
  return registrations_;
}

std::vector<FakeObjectStore::Upload> FakeObjectStore::uploads() const {
  MutexLock lock(mutex_);
  return uploads_;
}

std::vector<FakeObjectStore::Download> FakeObjectStore::downloads() const {
  MutexLock lock(mutex_);
  return downloads_;
}

std::size_t FakeObjectStore::held() const {
  MutexLock lock(mutex_);
  return held_.size();
}

std::string FakeObjectStore::globalEndpoint() {
  return "https://store.example";
}

std::optional<AWSServiceConfiguration> FakeObjectStore::makeServiceConfiguration(
    AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
    AWSBasicSessionCredentialsProvider credentials) {
  MutexLock lock(mutex_);
  askedRegions_.push_back(region);
  if (refuseConfigurations_) return std::nullopt;
  if (region == AWSRegionType::unknown && !canSignRegion(regionName)) return std::nullopt;
  if (!endpoint.urlString.starts_with("http")) return std::nullopt;
  AWSServiceConfiguration configuration;
  configuration.region = region;
  configuration.regionName = regionName;
  configuration.endpoint = std::move(endpoint);
  configuration.credentials = std::move(credentials);
  return configuration;
}

void FakeObjectStore::registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                                const std::string& key) {
  MutexLock lock(mutex_);
  registrations_.push_back({key, configuration});
  utilities_[key] = std::make_shared<Utility>(*this, key);
}

std::shared_ptr<AWSS3TransferUtility> FakeObjectStore::S3TransferUtilityForKey(
    const std::string& key) {
  MutexLock lock(mutex_);
  const auto found = utilities_.find(key);
  return found == utilities_.end() ? nullptr : found->second;
}

void FakeObjectStore::removeS3TransferUtility(const std::string& key) {
  MutexLock lock(mutex_);
  utilities_.erase(key);
}

AWSTask FakeObjectStore::start(std::function<void(std::optional<Error>)> finish) {
  DispatchQueue* queue = nullptr;
  {
    MutexLock lock(mutex_);
    if (!atOnce_.empty()) {
      AWSTask task{.error = std::move(atOnce_.front())};
      atOnce_.pop_front();
      return task;
    }
    if (holding_) {
      held_.push_back(std::make_shared<Held>(*this, std::move(finish)));
      return {.transfer = held_.back()};
    }
    queue = queue_;
  }
  if (queue == nullptr) {
    end(finish);
  } else {
    queue->async([this, finish] { end(finish); });
  }
  return {};
}

void FakeObjectStore::end(const std::function<void(std::optional<Error>)>& finish) {
  std::optional<Error> error;
  {
    MutexLock lock(mutex_);
    error = all_;
    if (!once_.empty()) {
      error = std::move(once_.front());
      once_.pop_front();
    }
  }
  finish(std::move(error));
}

void FakeObjectStore::finishUpload(const Upload& upload, std::optional<Error> error,
                                   const AWSS3TransferUtilityUploadExpression& expression,
                                   const AWSS3TransferUtility::UploadCompletion& completion) {
  std::vector<TransferProgress> reports;
  {
    MutexLock lock(mutex_);
    reports = progress_;
  }
  if (expression.progressBlock) {
    for (const TransferProgress& report : reports) expression.progressBlock(report);
  }
  if (!error) put(upload.bucket, upload.key, upload.data);
  if (completion) completion(error);
}

void FakeObjectStore::finishDownload(const Download& download, const Url& location,
                                     std::optional<Error> error,
                                     const AWSS3TransferUtilityDownloadExpression& expression,
                                     const AWSS3TransferUtility::DownloadCompletion& completion) {
  std::vector<TransferProgress> reports;
  FileWriter writer;
  {
    MutexLock lock(mutex_);
    reports = progress_;
    writer = writer_;
  }
  if (expression.progressBlock) {
    for (const TransferProgress& report : reports) expression.progressBlock(report);
  }
  const auto bytes = object(download.bucket, download.key);
  if (!error && !bytes) {
    error = Error{"ObjectStore", 2, "NoSuchKey: no such object (HTTP 404, request id fake)"};
  }
  if (!error && writer && !writer(location.decodedPath(), *bytes)) {
    error = Error{"ObjectStore", 0, "the file cannot be written"};
  }
  if (!completion) return;
  if (error) {
    completion(std::nullopt, error);
  } else {
    completion(location, std::nullopt);
  }
}

}  // namespace qx
