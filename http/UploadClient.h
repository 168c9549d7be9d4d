// The upload server's multipart requests over the HTTP engine.
//
// Threads: as in Networking.h; completions and progress run on the completion queue.
#pragma once

#include <memory>
#include <string>

#include "platform/Dispatch.h"
#include "platform/Networking.h"
#include "platforms/shared/HttpEngine.h"

namespace qx {

class LinuxUploadClients : public UploadClients {
 public:
  /// Both must outlive all uploads; the queue also the engine.
  LinuxUploadClients(HttpEngine& engine, DispatchQueue& completions)
      : engine_(engine), completions_(completions) {}

  std::shared_ptr<QXNetworkingManager> make(HTTPHeaders headers, double timeoutForRequest) override;
  HTTPHeaders defaultHeaders() override;
  std::string QXNetworkingUserAgent() override;

 private:
  HttpEngine& engine_;
  DispatchQueue& completions_;
};

}  // namespace qx
