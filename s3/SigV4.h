// AWS Signature Version 4, header form.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "platform/Digests.h"
#include "platform/Http.h"
#include "platform/Mutex.h"

namespace qx {

/// What stands in the payload's place when only TLS protects it.
inline constexpr std::string_view kUnsignedPayload = "UNSIGNED-PAYLOAD";

/// A request as its signature covers it.
struct SigV4Request {
  std::string_view method;
  /// Percent-encoded, exactly as sent.
  std::string_view path;
  /// Percent-encoded pairs, sorted by name, joined with "&"; as sent.
  std::string_view query;
  /// Every header to sign, "host" and "x-amz-date" among them; names in lower case, in any order.
  HTTPHeaders headers;
  /// Lower-case hex SHA-256 of the body, or kUnsignedPayload.
  std::string_view payloadHash;
  std::string_view region;
  std::string_view service = "s3";
};

/// "20261121T000600Z".
std::string sigV4Time(std::int64_t secondsSince1970);

class SigV4Signer {
 public:
  /// `digests` must outlive it.
  explicit SigV4Signer(Digests& digests) : digests_(digests) {}

  /// The value of the Authorization header. `time` is the request's "x-amz-date".
  std::string authorization(const SigV4Request& request, const std::string& time,
                            std::string_view accessKey, std::string_view secretKey);

 private:
  Sha256Digest signingKey(std::string_view secretKey, std::string_view date,
                          std::string_view region, std::string_view service);

  Digests& digests_;
  Mutex mutex_;
  /// Four HMACs saved per request. Bounded; credentials and days pass, so it is emptied when full.
  std::map<std::string, Sha256Digest, std::less<>> keys_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
