// One HTTP exchange: a request, its answer, and a handle that ends it early.
//
// An implementation makes one attempt and decides nothing: it repeats no request, follows no
// redirect and adds no credentials. It keeps connections, TLS sessions and names for all requests
// of the process.
//
//     auto exchange = http.send({.url = "https://store.example/key"},
//                               [](HttpAnswer answer) { use(answer.status); });
//     exchange->cancel();
//
// Threads: send may be called from any thread, also from an answer handler. The handlers of a
// request (answer, sink, progress) run on one thread of the implementation. All other exchanges
// wait for a handler that runs, so that handlers hand their work on and return.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/Cancellable.h"
#include "platform/Data.h"
#include "platform/Error.h"

namespace qx {

/// Header fields in the order they are sent.
using HTTPHeaders = std::vector<std::pair<std::string, std::string>>;

/// The codes of Transport errors begin here, so that none of them is an AWSErrorCode.
inline constexpr std::int64_t kTransportErrorBase = 1000;
/// The Transport errors that every implementation tells apart.
inline constexpr std::int64_t kUnsupportedScheme = kTransportErrorBase + 1;
inline constexpr std::int64_t kMalformedUrl = kTransportErrorBase + 3;
inline constexpr std::int64_t kTimedOut = kTransportErrorBase + 28;
inline constexpr std::int64_t kCancelled = kTransportErrorBase + 42;
inline constexpr std::int64_t kMalformedHeader = kTransportErrorBase + 43;
/// The body of the answer is larger than its limit. The answer's status and headers are valid.
inline constexpr std::int64_t kAnswerTooLarge = kTransportErrorBase + 63;

/// The reason why no whole answer came.
enum class HttpFailure {
  none,
  /// The server was not reached or the connection was lost. Another attempt may succeed.
  connection,
  /// The idle timeout or the total timeout has passed.
  timeout,
  /// Any other reason, such as a refused certificate, a malformed request or an answer that is
  /// larger than its limit.
  other,
};

struct HttpAnswer {
  HttpFailure failure = HttpFailure::none;
  /// Set with a failure; domain "Transport".
  std::optional<Error> error;
  /// True when a status line has come. 100 Continue does not count.
  bool begun = false;
  int status = 0;
  /// True when the answer says where its body ends (by HTTP/2, by chunks alone, or by exactly one
  /// Content-Length) and the body has come up to that place. Otherwise a lost connection may look
  /// like the end of the body.
  bool framed = false;
  /// Seconds from the start of the request to its end, without the wait before the start.
  double elapsedSeconds = 0;
  /// Seconds at the end of the request in which no byte of a body moved: neither of the request's
  /// body nor of what the sink takes. Equals elapsedSeconds when no such byte has moved at all.
  double standstillSeconds = 0;
  /// The header fields in the order in which they came, their names in lower case.
  HTTPHeaders headers;
  /// The body, except what went into the sink.
  std::string body;

  /// The value of the first header of this name. `name` is in lower case.
  std::optional<std::string_view> header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
      if (key == name) return value;
    }
    return std::nullopt;
  }
};

struct HttpRequest {
  std::string method = "GET";
  /// The URL is sent unchanged: "." segments and "//" stay.
  std::string url;
  HTTPHeaders headers;
  /// The pieces of the body. They are sent one after the other without a copy, with their exact
  /// length as Content-Length.
  std::vector<Data> body;
  /// The request fails after so many seconds in which no byte of the request and no byte of the
  /// answer's body has moved. 0: no limit. The time counts from the start of the request.
  double idleTimeoutSeconds = 60;
  /// Seconds for the whole request, counted from its start. 0: no limit.
  double totalTimeoutSeconds = 0;
  /// True: the total timeout starts again whenever a byte of a body moves (see
  /// HttpAnswer::standstillSeconds).
  bool totalTimeoutIsForStandstill = false;
  /// Seconds to wait before the start of the request.
  double delaySeconds = 0;
  /// The size of the largest body to keep in memory. A larger body is an error (kAnswerTooLarge).
  /// If the status is not 2xx, or the request has a sink, the rest of the body is dropped instead.
  std::size_t bodyLimit = std::size_t{16} << 20;
  /// True: the head is the whole answer. The answer handler is called when the head has come and
  /// the request's body has been sent or refused. The answer's body is read and thrown away, for as
  /// long as the idle timeout allows, so that the connection can serve another request.
  bool headIsAnswer = false;
  /// Takes the body of an answer with status 200 piece by piece. Returning false ends the request.
  std::function<bool(std::string_view)> sink;
  /// Hears how many bytes of the request's body have been sent or, with a sink, how many bytes of
  /// the answer's body have come, and of how many in total (0: unknown).
  std::function<void(std::int64_t completed, std::int64_t total)> progress;
};

class Http {
 public:
  using AnswerHandler = std::function<void(HttpAnswer)>;

  virtual ~Http() = default;
  /// Starts a request. `answered` is called exactly once. It may be called before send returns only
  /// if the implementation has been shut down. A request that is cancelled before its answer has
  /// come is answered with the error kCancelled.
  virtual std::shared_ptr<Cancellable> send(HttpRequest request, AnswerHandler answered) = 0;
};

}  // namespace qx
