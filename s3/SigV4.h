// AWS Signature Version 4 in the Authorization header.
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

/// Takes the place of the payload's hash when only TLS protects the payload.
inline constexpr std::string_view kUnsignedPayload = "UNSIGNED-PAYLOAD";

/// The parts of a request that its signature covers.
struct SigV4Request {
  std::string_view method;
  /// The percent-encoded path, exactly as it is sent.
  std::string_view path;
  /// The query as it is sent: percent-encoded pairs, sorted by name, joined with "&".
  std::string_view query;
  /// All headers to sign, "host" and "x-amz-date" among them, in any order, their names in lower
  /// case.
  HTTPHeaders headers;
  /// The SHA-256 of the body in lower-case hexadecimal, or kUnsignedPayload.
  std::string_view payloadHash;
  std::string_view region;
  std::string_view service = "s3";
};

/// The time in the form "20261121T000600Z".
std::string sigV4Time(std::int64_t secondsSince1970);

class SigV4Signer {
 public:
  /// `digests` must outlive the signer.
  explicit SigV4Signer(Digests& digests) : digests_(digests) {}

  /// Makes the value of the Authorization header. `time` is the "x-amz-date" of the request.
  std::string authorization(const SigV4Request& request, const std::string& time,
                            std::string_view accessKey, std::string_view secretKey);

 private:
  Sha256Digest signingKey(std::string_view secretKey, std::string_view date,
                          std::string_view region, std::string_view service);

  Digests& digests_;
  Mutex mutex_;
  /// Derived keys, each of which saves four HMACs per request. The map is emptied when it is full,
  /// because credentials and days pass.
  std::map<std::string, Sha256Digest, std::less<>> keys_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
