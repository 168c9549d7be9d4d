#include "http/MessageSignature.h"

#include "platform/Hex.h"

namespace qx {

std::pair<std::string, std::string> hmacMessageSignature(Digests& digests,
                                                         const MessageToSign& message) {
  const std::string time = std::to_string(message.time);
  std::string text(message.method);
  text += '\n';
  text += message.pathAndQuery;
  text += '\n';
  text += time;
  text += '\n';
  text += hex(digests.sha256(message.body));
  return {"QX-SIGNATURE",
          "t=" + time + ",v1=" + hex(digests.hmacSha256(message.accessToken, text))};
}

}  // namespace qx
