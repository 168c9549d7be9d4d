// Downloads objects into the cache directory, or to the path that the host gives.
//
// Threads: no state. download() returns at once; its comment says on which threads the callbacks
// run.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/AWSTracking.h"
#include "Classes/Credentials.h"
#include "Classes/IdleWatch.h"
#include "Classes/UploadEvents.h"
#include "platform/Error.h"
#include "platform/Networking.h"
#include "platform/Platform.h"
#include "platform/Url.h"

namespace qx {

class AWSDownloader {
 public:
  /// Called at most once, with (file URL, no error) or (no URL, error).
  using Completion = std::function<void(const std::optional<Url>&, const std::optional<Error>&)>;

  /// All arguments must outlive the downloads.
  AWSDownloader(const Platform& platform, Credentials& credentials, const AWSTracking& tracking,
                UploadEvents& events, IdleWatch& idle)
      : platform_(platform),
        credentials_(credentials),
        tracking_(tracking),
        events_(events),
        idle_(idle) {}

  /// The file URL of a name in the cache directory, which is created when needed. A symbolic link
  /// in the place of the directory is not followed: downloads fail and write a log record.
  Url cachePath(const std::string& filename) const;

  /// Downloads the object whose key is the scope's authorised path and the last path component of
  /// `url`. `progress` (may be empty) runs on the main queue. `complete` (may be empty) runs on
  /// "com.aws.get.config" when there are no credentials or the transfer does not start, else on the
  /// object store's thread. An error of the transfer is passed on as the object store made it.
  /// `complete` is never called when `url` is malformed or ends in no usable file name, or when no
  /// transfer utility is registered. `destination` is the absolute path of the file to write;
  /// without it the file is cachePath() of the name.
  void download(const std::string& url, const std::string& scope, const ProgressCallback& progress,
                const Completion& complete, const std::optional<std::string>& destination = {});

 private:
  /// The part of a download that is known before its credentials.
  struct Request;

  void fetch(const std::shared_ptr<const Request>& request, const UploadTokenModel& model);

  const Platform& platform_;
  Credentials& credentials_;
  const AWSTracking& tracking_;
  UploadEvents& events_;
  IdleWatch& idle_;
};

}  // namespace qx
