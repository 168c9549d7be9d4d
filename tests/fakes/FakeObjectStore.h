// A scripted object store in memory. It records configurations, registrations and transfers, keeps
// what is uploaded, and answers from a script.
//
//     FakeObjectStore store;
//     store.failOnce({"ObjectStore", 3, "HTTP 503"});  // The next transfer fails.
//     upload(store);                                    // Code that uploads twice.
//     EXPECT_EQ(store.uploads().size(), 2);
//
// Threads: as in FakeMessageClients.h. A completion runs on the queue that was given to answerOn(),
// or else on the caller's thread before the transfer call returns; a held completion runs on the
// thread that calls release().
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/ObjectStore.h"

namespace qx {

class FakeObjectStore : public ObjectStore {
 public:
  struct Registration {
    std::string key;
    AWSServiceConfiguration configuration;
  };
  struct Upload {
    /// The key of the utility that was used.
    std::string utility;
    Data data;
    std::string bucket;
    std::string key;
    std::string contentType;
  };
  struct Download {
    std::string utility;
    std::string location;
    std::string bucket;
    std::string key;
  };
  /// Takes a finished download: the path of its destination and its bytes. False means that the
  /// file could not be written; the download then fails with code 0.
  using FileWriter = std::function<bool(const std::string& path, const Data& bytes)>;

  // ---- The script. Without one, every region that has a type or a name fit for a signature yields
  // a configuration (if the endpoint is a URL), uploads succeed, and downloads yield what was
  // uploaded or fail with code 2.

  /// From now on no configuration can be made, whatever the region.
  void refuseConfigurations(bool refuse = true);
  /// The next transfers, one for each error, never start. The task carries the error, and no
  /// completion runs.
  void failAtOnce(Error error);
  /// The next transfers, one for each error, end with that error in their completion.
  void failOnce(Error error);
  /// From now on every transfer ends with this error. Without an error transfers succeed again.
  void failAll(std::optional<Error> error);
  /// Sets the progress reports before the completion of a transfer.
  void reportProgress(std::vector<TransferProgress> reports);
  /// Keeps transfers unfinished until release() ends them, the oldest first, by the script of that
  /// moment. A held transfer that is cancelled ends at once, on the cancelling thread.
  void hold();
  void release();
  void answerOn(DispatchQueue& queue);
  /// Takes the downloads. Without it they succeed and leave no file.
  void writeFilesWith(FileWriter writer);
  /// Puts an object into the store without the library.
  void put(const std::string& bucket, const std::string& key, Data data);

  // ---- The record

  /// The bytes that are stored under a bucket and key.
  std::optional<Data> object(const std::string& bucket, const std::string& key) const;
  /// The regions for which a configuration was asked.
  std::vector<AWSRegionType> askedRegions() const;
  std::vector<Registration> registrations() const;
  std::vector<Upload> uploads() const;
  std::vector<Download> downloads() const;
  std::size_t held() const;

  /// The text "https://store.example".
  std::string globalEndpoint() override;
  std::optional<AWSServiceConfiguration> makeServiceConfiguration(
      AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
      AWSBasicSessionCredentialsProvider credentials) override;
  void registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                 const std::string& key) override;
  std::shared_ptr<AWSS3TransferUtility> S3TransferUtilityForKey(const std::string& key) override;
  void removeS3TransferUtility(const std::string& key) override;

 private:
  class Utility;
  class Held;
  using ObjectName = std::pair<std::string, std::string>;

  /// Starts a transfer whose end is `finish`. `finish` gets the scripted error if there is one.
  AWSTask start(std::function<void(std::optional<Error>)> finish);
  void end(const std::function<void(std::optional<Error>)>& finish);
  void finishUpload(const Upload& upload, std::optional<Error> error,
                    const AWSS3TransferUtilityUploadExpression& expression,
                    const AWSS3TransferUtility::UploadCompletion& completion);
  void finishDownload(const Download& download, const Url& location, std::optional<Error> error,
                      const AWSS3TransferUtilityDownloadExpression& expression,
                      const AWSS3TransferUtility::DownloadCompletion& completion);

  mutable Mutex mutex_;
  bool refuseConfigurations_ QX_GUARDED_BY(mutex_) = false;
  bool holding_ QX_GUARDED_BY(mutex_) = false;
  std::deque<Error> atOnce_ QX_GUARDED_BY(mutex_);
  std::deque<Error> once_ QX_GUARDED_BY(mutex_);
  std::optional<Error> all_ QX_GUARDED_BY(mutex_);
  std::vector<TransferProgress> progress_ QX_GUARDED_BY(mutex_);
  std::deque<std::shared_ptr<Held>> held_ QX_GUARDED_BY(mutex_);
  DispatchQueue* queue_ QX_GUARDED_BY(mutex_) = nullptr;
  FileWriter writer_ QX_GUARDED_BY(mutex_);
  std::map<ObjectName, Data> objects_ QX_GUARDED_BY(mutex_);
  std::vector<AWSRegionType> askedRegions_ QX_GUARDED_BY(mutex_);
  std::vector<Registration> registrations_ QX_GUARDED_BY(mutex_);
  std::map<std::string, std::shared_ptr<AWSS3TransferUtility>> utilities_ QX_GUARDED_BY(mutex_);
  std::vector<Upload> uploads_ QX_GUARDED_BY(mutex_);
  std::vector<Download> downloads_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
