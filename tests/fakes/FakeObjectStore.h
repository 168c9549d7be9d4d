// A scripted object store in memory: records configurations, registrations and transfers, keeps
// what is put, and answers from a script.
//
// Threads: as FakeMessageClients: completions run on the caller's thread before the transfer call
// returns, or on the queue given to answerOn; held ones on the thread that calls release().
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
  /// Takes a finished download: the destination's path and the bytes. False: the file could not be
  /// written, and the download fails with code 0.
  using FileWriter = std::function<bool(const std::string& path, const Data& bytes)>;

  // ---- The script; without one every region that has a type or a name fit for a signature yields
  // a configuration (if the endpoint is a URL), uploads succeed, and downloads give what was put
  // and fail with code 2 otherwise.

  /// No configuration from now on, whatever the region.
  void refuseConfigurations(bool refuse = true);
  /// The next transfers, one each, never start: the task carries the error, no completion runs.
  void failAtOnce(Error error);
  /// The next transfers, one each, end with this error in their completion.
  void failOnce(Error error);
  /// Every transfer from now on ends with this error; nothing: they succeed again.
  void failAll(std::optional<Error> error);
  /// Progress reports before a download's completion.
  void reportProgress(std::vector<TransferProgress> reports);
  /// Keeps transfers unfinished until release(), which ends them, oldest first, by the script of
  /// that moment.
  void hold();
  void release();
  void answerOn(DispatchQueue& queue);
  /// Where downloads go; without one they succeed and leave no file.
  void writeFilesWith(FileWriter writer);
  /// Puts an object behind the library's back.
  void put(const std::string& bucket, const std::string& key, Data data);

  // ---- The record

  /// What is stored under bucket and key.
  std::optional<Data> object(const std::string& bucket, const std::string& key) const;
  /// Regions that a configuration was asked for.
  std::vector<AWSRegionType> askedRegions() const;
  std::vector<Registration> registrations() const;
  std::vector<Upload> uploads() const;
  std::vector<Download> downloads() const;
  std::size_t held() const;

  /// "https://store.example".
  std::string globalEndpoint() override;
  std::optional<AWSServiceConfiguration> makeServiceConfiguration(
      AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
      AWSBasicSessionCredentialsProvider credentials) override;
  void registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                 const std::string& key) override;
  std::shared_ptr<AWSS3TransferUtility> S3TransferUtilityForKey(const std::string& key) override;

 private:
  class Utility;
  using ObjectName = std::pair<std::string, std::string>;

  /// Starts a transfer whose end is `finish`, called with the scripted error if there is one.
  AWSTask start(std::function<void(std::optional<Error>)> finish);
  void end(const std::function<void(std::optional<Error>)>& finish);
  void finishUpload(const Upload& upload, std::optional<Error> error,
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
  std::deque<std::function<void(std::optional<Error>)>> held_ QX_GUARDED_BY(mutex_);
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
