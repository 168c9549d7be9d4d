// The networking layer: backend messages, the upload server's multipart requests, reachability.
//
//     auto client = platform.messageClients.make(baseUrl, {{"USER-ID", "42"}}, std::nullopt, true);
//     client->request(message, std::nullopt, /*timeoutSeconds=*/30, nullptr,
//                     [](const QXNetworkingResponse& response) { use(response.value); });
//
// Threads: every operation may be called from any thread. A completion runs once, after the call
// that takes it has returned, on a thread of the platform that no transfer needs. It may block for
// as long as a file write takes.
// Errors: a message that the backend refused has the domain "QXNetworking" and the HTTP status as
// code. A transfer that got no whole answer has the domain "Transport" and a code outside
// AWSErrorCode. Descriptions never hold a header value, a token or a signature.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Data.h"
#include "platform/Error.h"
#include "platform/Formats.h"
#include "platform/Http.h"
#include "platform/Url.h"
#include "platform/Value.h"

namespace qx {

/// The domain of errors that stand for an HTTP answer. Their code is the HTTP status.
inline constexpr std::string_view kNetworkingErrorDomain = "QXNetworking";

/// A fraction in 0...1.
using ProgressCallback = std::function<void(double)>;

// ---- Backend messages

/// Takes the fields of a message in the message's order, without optional fields that are absent.
class APIEncoder {
 public:
  virtual ~APIEncoder() = default;
  virtual OrderedMembers encode(OrderedMembers fields) const = 0;
};

/// Reads a response body. Errors: domain "APIDecoder".
class APIDecoder {
 public:
  virtual ~APIDecoder() = default;
  /// Reads the body.
  virtual Result<Value> decode(const Data& body) const = 0;
  /// Reads a date as the backend writes it (RFC 3339 with a zone).
  virtual Result<Date> date(const Value& value) const = 0;
};

/// The base of all decoded response messages.
class APIResponse {
 public:
  virtual ~APIResponse() = default;
};

/// A multipart part of a message.
struct MimeBody {
  std::string name;
  Data data;
};

/// A request message.
class APIRequest {
 public:
  virtual ~APIRequest() = default;
  /// The path below the base URL, "v3/storage/get_upload_config".
  virtual std::string api() const = 0;
  /// A list of one entry, the HTTP method.
  virtual std::vector<std::string> methods() const = 0;
  virtual std::vector<MimeBody> mimeBodies() const { return {}; }
  virtual OrderedMembers parseParamater(const APIEncoder& encoder) const = 0;
  /// Decodes the response message of this request from the body of a successful answer.
  virtual Result<std::shared_ptr<const APIResponse>> decodeResponse(
      const Data& body, const APIDecoder& decoder) const = 0;
};

struct QXNetworkingResponse {
  std::optional<Error> error;
  /// The response message; null with an error.
  std::shared_ptr<const APIResponse> value;
};

/// A client for the messages of one backend and identity. It is a few settings, so that making one
/// costs next to nothing, and requests that are under way go on when it is destroyed.
class QXMessageAPINetworkingManager {
 public:
  using Completion = std::function<void(const QXNetworkingResponse&)>;
  virtual ~QXMessageAPINetworkingManager() = default;
  /// Sends a message once, without a retry. `headers` are added to those of the client.
  virtual void request(std::shared_ptr<const APIRequest> message,
                       const std::optional<HTTPHeaders>& headers, double timeoutSeconds,
                       ProgressCallback progress, Completion completion) = 0;
};

class MessageClients {
 public:
  virtual ~MessageClients() = default;
  /// Every message has the `headers`. With `addSignature` every message is signed.
  virtual std::shared_ptr<QXMessageAPINetworkingManager> make(
      const Url& baseURL, HTTPHeaders headers, std::optional<double> timeoutForRequest,
      bool addSignature) = 0;
  /// The host's text for a key ("SUCCESS", "INTERNAL_ERROR") in its language.
  virtual std::string localisedText(std::string_view key) = 0;
};

// ---- The upload server

/// A multipart form whose parts are sent in the order in which they were appended.
class MultipartFormData {
 public:
  struct Part {
    std::string name;
    Data data;
    std::optional<std::string> fileName;
    std::optional<std::string> mimeType;
  };
  void append(Data data, std::string withName, std::optional<std::string> fileName = {},
              std::optional<std::string> mimeType = {}) {
    parts_.push_back(
        {std::move(withName), std::move(data), std::move(fileName), std::move(mimeType)});
  }
  const std::vector<Part>& parts() const { return parts_; }

 private:
  std::vector<Part> parts_;
};

struct QXNetworkingUploadRequest {
  /// The address as the host gave it. A text that is no URL ends in a Transport error.
  std::string url;
  HTTPHeaders headers;
  std::optional<Dictionary> parameters;
  std::optional<std::vector<std::string>> acceptableContentTypes;
  /// Fills the form. Called once, before upload() returns.
  std::function<void(MultipartFormData&)> multipartFormData;
};

struct HTTPURLResponse {
  int statusCode = 0;
};

struct QXNetworkingUploadResponse {
  /// Set only when no whole HTTP answer has come. No HTTP status counts as an error here.
  std::optional<Error> error;
  std::optional<HTTPURLResponse> httpURLResponse;
};

/// A client for the upload server. It is a few settings, like the message client above.
class QXNetworkingManager {
 public:
  using Completion = std::function<void(const QXNetworkingUploadResponse&)>;
  virtual ~QXNetworkingManager() = default;
  /// Sends the form as one POST, without a copy of the bytes of its parts. The request is complete
  /// when the head of the answer has come; the answer's body is not used. The returned handle,
  /// which may be null, ends the request early; its completion then gets a Transport error.
  virtual std::shared_ptr<Cancellable> upload(const QXNetworkingUploadRequest& request,
                                              ProgressCallback progress, Completion completion) = 0;
};

class UploadClients {
 public:
  virtual ~UploadClients() = default;
  /// A request fails after `timeoutForRequest` seconds in which no byte has moved.
  virtual std::shared_ptr<QXNetworkingManager> make(HTTPHeaders headers,
                                                    double timeoutForRequest) = 0;
  /// The headers that the HTTP client sends by default.
  virtual HTTPHeaders defaultHeaders() = 0;
  /// The library's user agent, "name/version".
  virtual std::string QXNetworkingUserAgent() = 0;
};

// ---- Reachability

class QXNetworkingReachabilityTool {
 public:
  /// Called on any thread with the new reachability and a second flag that is not used.
  using Listener = std::function<void(bool, bool)>;
  virtual ~QXNetworkingReachabilityTool() = default;
  virtual bool isReachable() = 0;
  /// Adds a listener that stays until the process ends. It is called on every change.
  virtual void startListening(Listener listener) = 0;
};

}  // namespace qx
