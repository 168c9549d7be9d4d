// Fetches stored objects into the cache directory.
//
// Threads: no state; download returns at once, its callbacks are documented there.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Classes/AWSTracking.h"
#include "Classes/Credentials.h"
#include "platform/Error.h"
#include "platform/Networking.h"
#include "platform/Platform.h"
#include "platform/Url.h"

namespace qx {

class AWSDownloader {
 public:
  /// (file URL, no error) or (no URL, error); at most once.
  using Completion = std::function<void(const std::optional<Url>&, const std::optional<Error>&)>;

  /// Everything given must outlive the downloads.
  AWSDownloader(const Platform& platform, Credentials& credentials, const AWSTracking& tracking)
      : platform_(platform), credentials_(credentials), tracking_(tracking) {}

  /// The file URL of a name in the cache directory, which is created when needed. A symbolic link
  /// in its place is not followed: downloads fail, with a log record.
  Url cachePath(const std::string& filename) const;

  /// Fetches the object that the last path component of `url` names under the scope's authorised
  /// path. `progress` (may be empty) runs on the main queue. `complete` (may be empty) runs on
  /// "com.aws.get.config" when there are no credentials or the transfer does not start, else on the
  /// object store's thread; an error of the transfer is the object store's own. It is never called
  /// when `url` does not parse or ends in no usable file name, or no transfer utility is
  /// registered.
  void download(const std::string& url, const std::string& scope, const ProgressCallback& progress,
                const Completion& complete);

 private:
  /// What the host asked for, as far as it is known before the credentials are.
  struct Request;

  void fetch(const std::shared_ptr<const Request>& request, const UploadTokenModel& model);

  const Platform& platform_;
  Credentials& credentials_;
  const AWSTracking& tracking_;
};

}  // namespace qx
