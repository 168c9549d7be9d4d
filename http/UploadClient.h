// The upload server's multipart requests over the HTTP seam.
//
// Threads: as in Networking.h. Completions and progress run on the completion queue.
#pragma once

#include <memory>
#include <string>

#include "platform/Clock.h"
#include "platform/Dispatch.h"
#include "platform/Http.h"
#include "platform/Networking.h"

namespace qx {

class HttpUploadClients : public UploadClients {
 public:
  /// All arguments must outlive all uploads, and the queue must outlive the HTTP.
  HttpUploadClients(Http& http, Random& random, DispatchQueue& completions)
      : http_(http), random_(random), completions_(completions) {}

  std::shared_ptr<QXNetworkingManager> make(HTTPHeaders headers, double timeoutForRequest) override;
  HTTPHeaders defaultHeaders() override;
  std::string QXNetworkingUserAgent() override;

 private:
  Http& http_;
  Random& random_;
  DispatchQueue& completions_;
};

}  // namespace qx
