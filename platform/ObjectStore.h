// The object store: session credentials, endpoint, service configuration, transfer utility and its
// process-wide registry.
//
//     auto configuration = store.makeServiceConfiguration(
//         AWSRegionType::unknown, "garage", {store.globalEndpoint()}, {accessKey, secretKey, ""});
//     store.registerS3TransferUtility(*configuration, "images");
//     store.S3TransferUtilityForKey("images")->uploadData(data, "bucket", "a.jpg", "", completion);
//
// Threads: every operation may be called from any thread. Completions and progress blocks run on a
// thread of the platform, after the call that takes them has returned: a completion once, a
// progress block any number of times, in order and never after the completion.
// Errors: an answer of the store that is no success has the domain "ObjectStore", the code 1 (a 3xx
// that ended the transfer), 2 (4xx), 3 (5xx), 4 (a local file is missing) or 0 (anything else), and
// a description that names the store's code and message, the HTTP status and the request id. A
// transfer that got no whole answer has the domain "Transport" and a code outside 0...4 and
// 100...102.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/AWSRegion.h"
#include "platform/Cancellable.h"
#include "platform/Data.h"
#include "platform/Error.h"
#include "platform/Export.h"
#include "platform/Url.h"

namespace qx {

/// Static session credentials.
struct AWSBasicSessionCredentialsProvider {
  std::string accessKey;
  std::string secretKey;
  /// Empty when the credentials have no session token. Then none is sent.
  std::string sessionToken;
};

struct QX_EXPORT AWSEndpoint {
  std::string urlString;

  /// The region type of a region name, case-sensitive. `unknown` for a name that is not in the
  /// table.
  static AWSRegionType regionTypeFromRegionName(std::string_view name);
};

/// The settings of a transfer utility. Made by ObjectStore::makeServiceConfiguration.
struct AWSServiceConfiguration {
  AWSRegionType region = AWSRegionType::unknown;
  /// The name of the region, which signatures contain.
  std::string regionName;
  AWSEndpoint endpoint;
  AWSBasicSessionCredentialsProvider credentials;
  /// An attempt fails after so many seconds in which no byte has moved.
  double timeoutIntervalForRequest = 60;
  /// A transfer, all its attempts included, may take so many seconds.
  double timeoutIntervalForResource = 7 * 24 * 3600.0;
  /// The number of further attempts after a failure that another attempt may cure.
  int maxRetryCount = 0;
};

/// The result of starting a transfer. With an error the transfer has not started, and its
/// completion is never called.
struct AWSTask {
  std::optional<Error> error = {};
  /// Ends the transfer early. Its completion then gets an error, unless the transfer has ended.
  /// Null with an error, and when the store cannot end a transfer.
  std::shared_ptr<Cancellable> transfer = {};
};

struct TransferProgress {
  std::int64_t completedUnitCount = 0;
  /// 0 when the store does not tell the size.
  std::int64_t totalUnitCount = 0;
};

/// May be empty; then nothing is counted.
struct AWSS3TransferUtilityUploadExpression {
  std::function<void(const TransferProgress&)> progressBlock = {};
};

struct AWSS3TransferUtilityDownloadExpression {
  std::function<void(const TransferProgress&)> progressBlock;
};

/// Uploads and downloads objects with one service configuration. A utility is a few settings: the
/// connections belong to the process, and transfers that are under way go on when the utility is
/// destroyed.
class AWSS3TransferUtility {
 public:
  /// Hands the result on and returns at once, because all other transfers may wait for it.
  using UploadCompletion = std::function<void(const std::optional<Error>&)>;
  /// After a success it gets the file URL of the destination, which holds the whole object.
  using DownloadCompletion =
      std::function<void(const std::optional<Url>&, const std::optional<Error>&)>;

  virtual ~AWSS3TransferUtility() = default;
  /// Uploads `data` as one object, without a copy of the bytes. With an empty content type no
  /// Content-Type header is sent.
  virtual AWSTask uploadData(Data data, const std::string& bucket, const std::string& key,
                             const std::string& contentType,
                             AWSS3TransferUtilityUploadExpression expression,
                             UploadCompletion completionHandler) = 0;
  /// Downloads an object into a file. The destination keeps its earlier content until the object is
  /// whole, and after a failure.
  virtual AWSTask downloadToURL(const Url& location, const std::string& bucket,
                                const std::string& key,
                                AWSS3TransferUtilityDownloadExpression expression,
                                DownloadCompletion completionHandler) = 0;
};

class ObjectStore {
 public:
  virtual ~ObjectStore() = default;
  /// The URL of the store's global endpoint, which is the same for every region.
  virtual std::string globalEndpoint() = 0;
  /// Makes a configuration. `regionName` is the name of `region`, or the name of a region that is
  /// not in the table when `region` is unknown. Nothing when a signature cannot hold the name
  /// (canSignRegion), or when the endpoint is no URL.
  virtual std::optional<AWSServiceConfiguration> makeServiceConfiguration(
      AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
      AWSBasicSessionCredentialsProvider credentials) = 0;
  /// Registers a transfer utility under `key`, in place of an earlier one, until it is removed.
  virtual void registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                         const std::string& key) = 0;
  /// The utility registered under `key`, or null.
  virtual std::shared_ptr<AWSS3TransferUtility> S3TransferUtilityForKey(const std::string& key) = 0;
  /// Removes the utility registered under `key`, if there is one. Its credentials stay in memory
  /// until no handle to it is left and its transfers have ended.
  virtual void removeS3TransferUtility(const std::string& key) = 0;
};

}  // namespace qx
