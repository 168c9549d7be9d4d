// The HTTP engine of the process, through which backend messages, the upload server and the object
// store send all their requests.
//
// One thread ("qx.http") drives one libcurl multi handle with one connection pool, one TLS session
// cache and one DNS cache. The engine repeats no request and follows no redirect; the layers above
// decide that. (libcurl itself sends a request again when a reused connection ends before the first
// byte of the answer.)
//
// Threads: as in Http.h. The handlers of requests run on the engine's thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Http.h"

namespace qx {

/// The settings that are the same for all requests of the process.
struct HttpEngineSettings {
  /// The PEM file of the certificate authorities to trust. Absent: the system's authorities.
  std::optional<std::string> caFile;
  /// The proxy ("http://proxy:3128"), and the hosts that are reached without it (comma-separated).
  /// Absent: no proxy. The environment is not read.
  std::optional<std::string> proxy;
  std::optional<std::string> noProxy;
};

class HttpEngine : public Http {
 public:
  explicit HttpEngine(HttpEngineSettings settings);
  /// Stops the engine.
  ~HttpEngine() override;
  HttpEngine(const HttpEngine&) = delete;
  HttpEngine& operator=(const HttpEngine&) = delete;

  /// The codes of its errors are kTransportErrorBase plus libcurl's own codes.
  std::shared_ptr<Cancellable> send(HttpRequest request, AnswerHandler answered) override;
  /// Ends every request with a Transport error, and joins the thread. A request that is sent later
  /// ends in the same way, on the sender's thread. A second call does nothing.
  void stop();

 private:
  class Loop;
  std::unique_ptr<Loop> loop_;
};

}  // namespace qx
