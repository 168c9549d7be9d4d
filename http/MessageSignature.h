// The header that proves to the backend that a message comes from the holder of the access token.
//
// Threads: pure functions, callable from any thread.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Digests.h"

namespace qx {

/// What a signature covers.
struct MessageToSign {
  std::string_view method;
  /// As on the request line, query included.
  std::string_view pathAndQuery;
  /// Whole seconds since 1970.
  std::int64_t time = 0;
  std::string_view body;
  std::string_view accessToken;
};

/// Yields the header field to add.
using MessageSigner = std::function<std::pair<std::string, std::string>(const MessageToSign&)>;

/// "QX-SIGNATURE: t=<time>,v1=<hex>", where hex is HMAC-SHA256 keyed by the access token over
/// method LF pathAndQuery LF time LF hex(SHA-256(body)), in lower-case hexadecimal.
std::pair<std::string, std::string> hmacMessageSignature(Digests& digests,
                                                         const MessageToSign& message);

}  // namespace qx
