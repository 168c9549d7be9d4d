// The networking layer: backend messages, the upload server's multipart requests, reachability.
//
// Threads: every operation may be called from any thread. Completions run once, never inside the
// call that takes them: on a thread of the platform that is not the caller's and moves no other
// transfers' bytes. They may block for as long as a file write takes.
// Errors: an HTTP answer that is no success of the message has the domain "QXNetworking" and the
// HTTP status as code; a transfer that got no whole answer has the domain "Transport" and a code
// outside AWSErrorCode. Descriptions never hold a header value, a token or a signature.
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

/// A fraction in 0...1.
using ProgressCallback = std::function<void(double)>;

// ---- Backend messages

/// Takes a message's fields in its order; a missing optional is left out.
class APIEncoder {
 public:
  virtual ~APIEncoder() = default;
  virtual OrderedMembers encode(OrderedMembers fields) const = 0;
};

/// Reads a response body. Errors: domain "APIDecoder".
class APIDecoder {
 public:
  virtual ~APIDecoder() = default;
  /// The body as a value.
  virtual Result<Value> decode(const Data& body) const = 0;
  /// A date as the backend writes it (RFC 3339 with a zone).
  virtual Result<Date> date(const Value& value) const = 0;
};

/// A decoded response message; each kind derives from it.
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
  /// One entry: the HTTP method.
  virtual std::vector<std::string> methods() const = 0;
  virtual std::vector<MimeBody> mimeBodies() const { return {}; }
  virtual OrderedMembers parseParamater(const APIEncoder& encoder) const = 0;
  /// The response message that belongs to this request, decoded from the body of a success.
  virtual Result<std::shared_ptr<const APIResponse>> decodeResponse(
      const Data& body, const APIDecoder& decoder) const = 0;
};

struct QXNetworkingResponse {
  std::optional<Error> error;
  /// The response message; null with an error.
  std::shared_ptr<const APIResponse> value;
};

/// A client for the messages of one backend and identity. Settings only: making one costs nothing,
/// and requests under way go on when it is destroyed.
class QXMessageAPINetworkingManager {
 public:
  using Completion = std::function<void(const QXNetworkingResponse&)>;
  virtual ~QXMessageAPINetworkingManager() = default;
  /// Sends a message once; no retry. `headers` go on top of the manager's own.
  virtual void request(std::shared_ptr<const APIRequest> message,
                       const std::optional<HTTPHeaders>& headers, double timeoutSeconds,
                       ProgressCallback progress, Completion completion) = 0;
};

class MessageClients {
 public:
  virtual ~MessageClients() = default;
  /// `headers` go with every message; with `addSignature` each message is signed.
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
  /// As the host gave it; a text that is no URL ends in a transport error.
  std::string url;
  HTTPHeaders headers;
  std::optional<Dictionary> parameters;
  std::optional<std::vector<std::string>> acceptableContentTypes;
  /// Fills the form; called once, before upload returns.
  std::function<void(MultipartFormData&)> multipartFormData;
};

struct HTTPURLResponse {
  int statusCode = 0;
};

struct QXNetworkingUploadResponse {
  /// Set only when no whole HTTP answer came; an HTTP status of any kind is no error here.
  std::optional<Error> error;
  std::optional<HTTPURLResponse> httpURLResponse;
};

/// A networking manager. Settings only, as above.
class QXNetworkingManager {
 public:
  using Completion = std::function<void(const QXNetworkingUploadResponse&)>;
  virtual ~QXNetworkingManager() = default;
  /// Sends the form as one POST, streamed from the parts without a copy of their bytes. The head of
  /// the answer completes it; the answer's body is not read.
  virtual void upload(const QXNetworkingUploadRequest& request, ProgressCallback progress,
                      Completion completion) = 0;
};

class UploadClients {
 public:
  virtual ~UploadClients() = default;
  /// `timeoutForRequest`: seconds without any movement after which a request fails.
  virtual std::shared_ptr<QXNetworkingManager> make(HTTPHeaders headers,
                                                    double timeoutForRequest) = 0;
  /// HTTPHeaders.default: what the HTTP client sends unless told otherwise.
  virtual HTTPHeaders defaultHeaders() = 0;
  /// QXNetworkingUserAgent: "name/version".
  virtual std::string QXNetworkingUserAgent() = 0;
};

// ---- Reachability

class QXNetworkingReachabilityTool {
 public:
  /// (reachable, unused second flag), on any thread.
  using Listener = std::function<void(bool, bool)>;
  virtual ~QXNetworkingReachabilityTool() = default;
  virtual bool isReachable() = 0;
  /// Adds a listener for good; called on every change.
  virtual void startListening(Listener listener) = 0;
};

}  // namespace qx
