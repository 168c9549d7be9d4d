// Backend messages over the HTTP seam.
//
// A GET carries its parameters in the query, any other method as a JSON object body in the
// message's order, or as a form when the message has multipart bodies. A 2xx body is the response
// itself; any other status is an error whose description is the backend's own message, else
// "HTTP <status>".
//
// Threads: as in Networking.h; completions and progress run on the completion queue.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "http/MessageSignature.h"
#include "platform/Clock.h"
#include "platform/Digests.h"
#include "platform/Dispatch.h"
#include "platform/Formats.h"
#include "platform/Http.h"
#include "platform/Networking.h"

namespace qx {

/// What backend messages stand on. All of it must outlive all messages; the queue also the HTTP.
struct MessageSeams {
  Http& http;
  Digests& digests;
  Random& random;
  DispatchQueue& completions;
  Clock& clock;
  Json& json;
};

class HttpMessageClients : public MessageClients {
 public:
  /// An empty `signer` means hmacMessageSignature, an empty `localisedText` English.
  explicit HttpMessageClients(const MessageSeams& seams, MessageSigner signer = {},
                              std::function<std::string(std::string_view)> localisedText = {});

  std::shared_ptr<QXMessageAPINetworkingManager> make(const Url& baseURL, HTTPHeaders headers,
                                                      std::optional<double> timeoutForRequest,
                                                      bool addSignature) override;
  std::string localisedText(std::string_view key) override;

 private:
  const MessageSeams seams_;
  const MessageSigner signer_;
  const std::function<std::string(std::string_view)> localisedText_;
};

}  // namespace qx
