// The one HTTP engine of the process: messages, the upload server and the object store all send
// through it.
//
// One thread ("qx.http") drives one libcurl multi handle with one connection pool, TLS session and
// DNS cache. No retry, no redirect: both are decided above. (libcurl itself sends a request anew
// when a reused connection ends before a byte of its answer has come.)
//
// Threads: as in Http.h; the handlers of requests run on the engine's thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Http.h"

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

class HttpEngine : public Http {
 public:
  explicit HttpEngine(HttpEngineSettings settings);
  /// Stops it.
  ~HttpEngine() override;
  HttpEngine(const HttpEngine&) = delete;
  HttpEngine& operator=(const HttpEngine&) = delete;

  /// Codes of its errors are kTransportErrorBase plus libcurl's own.
  std::shared_ptr<HttpExchange> send(HttpRequest request, AnswerHandler answered) override;
  /// Ends what is under way with a Transport error each, and joins the thread. What is sent later
  /// ends the same way, on the sender's thread. A second time does nothing.
  void stop();

 private:
  class Loop;
  std::unique_ptr<Loop> loop_;
};

}  // namespace qx
