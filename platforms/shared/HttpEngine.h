// The one HTTP engine of the process: messages, the upload server and the object store all send
// through it.
//
// One thread ("qx.http") drives one libcurl multi handle with one connection pool, TLS session and
// DNS cache. No retry, no redirect: both are decided above. (libcurl itself sends a request anew
// when a reused connection ends before a byte of its answer has come.)
//
// Threads: send may be called from any thread, also from an answer handler. The handlers of a
// request (answer, sink, progress) run on the engine's thread, where every other transfer waits for
// them: they hand work on and return.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Data.h"
#include "platform/Error.h"
#include "platform/Networking.h"

namespace qx {

/// What is the same for every request of the process.
struct HttpEngineSettings {
  /// PEM file of the certificate authorities to trust; absent: the system's.
  std::optional<std::string> caFile;
  /// "http://proxy:3128" and the hosts to reach without it, comma-separated. Absent: no proxy; the
  /// environment is not read.
  std::optional<std::string> proxy;
  std::optional<std::string> noProxy;
};

/// "QXAwsUploader/<version>", sent with every request that brings no User-Agent of its own.
std::string libraryUserAgent();

/// Codes of Transport errors are this plus libcurl's own, so that none of them is an AWSErrorCode.
inline constexpr std::int64_t kTransportErrorBase = 1000;
/// The code of an answer whose body went beyond its limit; its status and headers stand.
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
  std::optional<std::string_view> header(std::string_view name) const;
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

/// Why a header field or URL cannot be sent, or nothing: CR, LF and NUL never reach the wire.
std::optional<Error> checkSendable(const std::string& url, const HTTPHeaders& headers);

/// Seconds since 1970 of a Date header, or nothing.
std::optional<double> parseHttpDate(std::string_view text);

/// Adds a header field, replacing those of the same name.
void setHeader(HTTPHeaders& headers, const std::string& name, std::string value);

class HttpEngine {
 public:
  using AnswerHandler = std::function<void(HttpAnswer)>;

  explicit HttpEngine(HttpEngineSettings settings);
  /// Stops it.
  ~HttpEngine();
  HttpEngine(const HttpEngine&) = delete;
  HttpEngine& operator=(const HttpEngine&) = delete;

  /// Starts a request; `answered` is called exactly once.
  void send(HttpRequest request, AnswerHandler answered);
  /// Ends what is under way with a Transport error each, and joins the thread. What is sent later
  /// ends the same way, on the sender's thread. A second time does nothing.
  void stop();

 private:
  class Loop;
  std::unique_ptr<Loop> loop_;
};

}  // namespace qx
