// The header that proves to the backend that a message comes from the holder of the access token.
//
//     const MessageToSign message = {"GET", "/v3/scopes", 1795219560, "", token};
//     const auto [name, value] = hmacMessageSignature(digests, message);
//     // "QX-SIGNATURE", "t=1795219560,v1=..."
//
// Threads: pure functions.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/Digests.h"
#include "platform/Export.h"

namespace qx {

/// The parts of a message that its signature covers, and the key.
struct MessageToSign {
  std::string_view method;
  /// The path and the query as they stand on the request line.
  std::string_view pathAndQuery;
  /// Whole seconds since 1970.
  std::int64_t time = 0;
  std::string_view body;
  std::string_view accessToken;
};

/// Makes the name and the value of the header field that is added to a message.
using MessageSigner = std::function<std::pair<std::string, std::string>(const MessageToSign&)>;

/// Makes the field "QX-SIGNATURE: t=<time>,v1=<hex>". <hex> is the lower-case hexadecimal
/// HMAC-SHA256, keyed by the access token, of: method LF pathAndQuery LF time LF
/// hex(SHA-256(body)).
QX_EXPORT std::pair<std::string, std::string> hmacMessageSignature(Digests& digests,
                                                                   const MessageToSign& message);

}  // namespace qx
