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
// request (answer, sink, progress) run on one thread of the implementation, where all other
// exchanges wait for them: they hand work on and return.
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

#include "platform/Data.h"
#include "platform/Error.h"

namespace qx {

/// Header fields in the order they are sent.
using HTTPHeaders = std::vector<std::pair<std::string, std::string>>;

/// Codes of Transport errors are this or larger, so that none of them is an AWSErrorCode.
inline constexpr std::int64_t kTransportErrorBase = 1000;
/// Transport errors that every implementation tells apart.
inline constexpr std::int64_t kUnsupportedScheme = kTransportErrorBase + 1;
inline constexpr std::int64_t kMalformedUrl = kTransportErrorBase + 3;
inline constexpr std::int64_t kTimedOut = kTransportErrorBase + 28;
inline constexpr std::int64_t kCancelled = kTransportErrorBase + 42;
inline constexpr std::int64_t kMalformedHeader = kTransportErrorBase + 43;
/// The body went beyond its limit; the answer's status and headers stand.
inline constexpr std::int64_t kAnswerTooLarge = kTransportErrorBase + 63;

/// Why no whole answer came.
enum class HttpFailure {
  none,
  /// Not reached, or lost on the way: another attempt may succeed.
  connection,
  /// The idle or the total timeout.
  timeout,
  /// Anything else: a refused certificate, a malformed request, an answer beyond its limit.
  other,
};

struct HttpAnswer {
  HttpFailure failure = HttpFailure::none;
  /// Set with a failure; domain "Transport".
  std::optional<Error> error;
  /// True when at least a status line came (100 Continue does not count).
  bool begun = false;
  int status = 0;
  /// True when the answer says where its body ends and exactly that much came: by HTTP/2, by chunks
  /// alone, or by one Content-Length. Otherwise a connection that broke off may look like the end.
  bool framed = false;
  /// From the start of the request to its end; the wait before the start is not part of it.
  double elapsedSeconds = 0;
  /// The part of them after the last byte of a body moved: of the request's, or of what the sink
  /// took. All of them when no such byte moved.
  double standstillSeconds = 0;
  /// Names in lower case, in the order they came.
  HTTPHeaders headers;
  /// What did not go into the sink.
  std::string body;

  /// The first header of this name (in lower case), or none.
  std::optional<std::string_view> header(std::string_view name) const {
    for (const auto& [key, value] : headers) {
      if (key == name) return value;
    }
    return std::nullopt;
  }
};

struct HttpRequest {
  std::string method = "GET";
  /// Sent as it stands: "." segments and "//" stay.
  std::string url;
  HTTPHeaders headers;
  /// Sent one after the other from where they lie, with their exact length as Content-Length.
  std::vector<Data> body;
  /// Seconds in which no byte of the request and no byte of the answer's body moves; 0: no limit.
  /// Counted once the request is started.
  double idleTimeoutSeconds = 60;
  /// Seconds for the whole request, counted once it is started; 0: no limit.
  double totalTimeoutSeconds = 0;
  /// True: the total timeout begins anew with every byte of a body that moves (see
  /// HttpAnswer::standstillSeconds).
  bool totalTimeoutIsForStandstill = false;
  /// Seconds before the request is started.
  double delaySeconds = 0;
  /// The largest body to take into memory. A larger one is an error (kAnswerTooLarge); of an answer
  /// other than 2xx, or one that a sink does not take, the rest is left out instead.
  std::size_t bodyLimit = std::size_t{16} << 20;
  /// True: the head is the whole answer. It is handed over when the head has come and the request's
  /// body has been sent or refused. The answer's body is thrown away; it is read for as long as the
  /// idle timeout allows, so that the connection can serve another request.
  bool headIsAnswer = false;
  /// Takes the body of an answer with status 200 piece by piece; false ends the request.
  std::function<bool(std::string_view)> sink;
  /// Bytes of the body sent or, with a sink, received, and how many there will be (0: unknown).
  std::function<void(std::int64_t completed, std::int64_t total)> progress;
};

/// A request on its way. It goes on when its handle is let go.
class HttpExchange {
 public:
  virtual ~HttpExchange() = default;
  /// Ends the exchange, from any thread: it is answered with the error kCancelled, unless its
  /// answer has come. A second time does nothing.
  virtual void cancel() = 0;
};

class Http {
 public:
  using AnswerHandler = std::function<void(HttpAnswer)>;

  virtual ~Http() = default;
  /// Starts a request; `answered` is called exactly once, not before send has returned unless the
  /// implementation has been shut down.
  virtual std::shared_ptr<HttpExchange> send(HttpRequest request, AnswerHandler answered) = 0;
};

}  // namespace qx
