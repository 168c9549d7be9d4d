// Backend messages over the HTTP seam.
//
// A GET carries its parameters in the query. Any other method carries them in the body: as a JSON
// object in the order of the message, or as a form when the message has multipart bodies. A body of
// status 2xx is the response itself. Any other status is an error whose description is the message
// of the backend's error record, or "HTTP <status>" when the body is no such record.
//
// Threads: as in Networking.h. Completions and progress run on the completion queue.
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

/// The seams that backend messages use. All of them must outlive all messages, and the queue must
/// outlive the HTTP.
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
  /// An empty `signer` stands for hmacMessageSignature, an empty `localisedText` for English texts.
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
