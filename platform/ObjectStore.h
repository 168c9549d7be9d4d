// The object store: session credentials, endpoint, service configuration, transfer utility and its
// process-wide registry.
//
// Threads: every operation may be called from any thread. Completions and progress blocks run on a
// thread of the platform, as in Networking.h: once (progress: any number of times, in order, none
// after the completion), never inside the call that takes them.
// Errors: domain "ObjectStore" for what the store said, with code 1 (a 3xx that ended the
// transfer), 2 (4xx), 3 (5xx), 4 (a local file is missing) or 0 (anything else), and a description
// that names the store's code and message, the HTTP status and the request id; domain "Transport",
// with a code outside 0...4 and 100...102, when no whole answer came.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/AWSRegion.h"
#include "platform/Data.h"
#include "platform/Error.h"
#include "platform/Url.h"

namespace qx {

/// Static session credentials.
struct AWSBasicSessionCredentialsProvider {
  std::string accessKey;
  std::string secretKey;
  /// Empty: the credentials have none, and none is sent.
  std::string sessionToken;
};

struct AWSEndpoint {
  std::string urlString;

  /// The region type of a region name; exact and case-sensitive, 0 for any other text.
  static AWSRegionType regionTypeFromRegionName(std::string_view name);
};

/// How a transfer utility reaches the store. Made by ObjectStore::makeServiceConfiguration.
struct AWSServiceConfiguration {
  AWSRegionType region = AWSRegionType::unknown;
  /// The region's name, which requests are signed with.
  std::string regionName;
  AWSEndpoint endpoint;
  AWSBasicSessionCredentialsProvider credentials;
  /// Seconds without any movement after which an attempt fails.
  double timeoutIntervalForRequest = 60;
  /// Seconds the whole transfer may take, retries included.
  double timeoutIntervalForResource = 7 * 24 * 3600.0;
  /// Further attempts after a failure that another attempt may cure.
  int maxRetryCount = 0;
};

/// A started transfer. With an error it never started, and its completion is never called.
struct AWSTask {
  std::optional<Error> error;
};

struct TransferProgress {
  std::int64_t completedUnitCount = 0;
  /// 0 when the store does not say.
  std::int64_t totalUnitCount = 0;
};

struct AWSS3TransferUtilityDownloadExpression {
  std::function<void(const TransferProgress&)> progressBlock;
};

/// Moves objects under one service configuration. Settings only: the connections belong to the
/// process, and transfers under way go on when the utility is destroyed.
class AWSS3TransferUtility {
 public:
  /// Every other transfer may wait for it: it hands the result on and returns.
  using UploadCompletion = std::function<void(const std::optional<Error>&)>;
  /// On success the file URL of the destination, which then holds the whole object.
  using DownloadCompletion =
      std::function<void(const std::optional<Url>&, const std::optional<Error>&)>;

  virtual ~AWSS3TransferUtility() = default;
  /// Puts `data` as one object; the bytes are sent from where they lie. An empty content type sends
  /// no Content-Type header.
  virtual AWSTask uploadData(Data data, const std::string& bucket, const std::string& key,
                             const std::string& contentType,
                             UploadCompletion completionHandler) = 0;
  /// Fetches an object into a file, written aside and renamed when it is whole: the destination
  /// holds its earlier content until then, and after a failure.
  virtual AWSTask downloadToURL(const Url& location, const std::string& bucket,
                                const std::string& key,
                                AWSS3TransferUtilityDownloadExpression expression,
                                DownloadCompletion completionHandler) = 0;
};

class ObjectStore {
 public:
  virtual ~ObjectStore() = default;
  /// The URL text of the store's global endpoint, the same for every region.
  virtual std::string globalEndpoint() = 0;
  /// `regionName` is the name that `region` was made of; it stands for a region of its own when
  /// `region` is unknown. Nothing when no configuration can be made: the name of an unknown region
  /// cannot stand in a signature (canSignRegion), or the endpoint is no URL.
  virtual std::optional<AWSServiceConfiguration> makeServiceConfiguration(
      AWSRegionType region, const std::string& regionName, AWSEndpoint endpoint,
      AWSBasicSessionCredentialsProvider credentials) = 0;
  /// Registers a transfer utility for the life of the process; a later one of the same key replaces
  /// it.
  virtual void registerS3TransferUtility(const AWSServiceConfiguration& configuration,
                                         const std::string& key) = 0;
  /// The utility registered under `key`, or null.
  virtual std::shared_ptr<AWSS3TransferUtility> S3TransferUtilityForKey(const std::string& key) = 0;
};

}  // namespace qx
