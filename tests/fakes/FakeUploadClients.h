// A scripted upload server: records the forms it is sent and answers from a script.
//
// Threads: as FakeMessageClients: answers run on the sender's thread before upload() returns, or on
// the queue given to answerOn; held ones on the thread that calls release().
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Dispatch.h"
#include "platform/Mutex.h"
#include "platform/Networking.h"

namespace qx {

class FakeUploadClients : public UploadClients {
 public:
  /// One form that was sent.
  struct Upload {
    /// Of the manager it was sent with.
    HTTPHeaders managerHeaders;
    double timeoutForRequest = 0;
    std::string url;
    HTTPHeaders headers;
    std::optional<Dictionary> parameters;
    std::optional<std::vector<std::string>> acceptableContentTypes;
    std::vector<MultipartFormData::Part> parts;
    bool hasProgress = false;
  };

  // ---- The script; status 200 without one. `Once` answers come first, in the order given.

  void answer(QXNetworkingUploadResponse response);
  void answerOnce(QXNetworkingUploadResponse response);
  /// Answers with this status, with no HTTP part at all, or with an error.
  void answerStatus(int status) { answer({std::nullopt, HTTPURLResponse{status}}); }
  void answerWithoutHttp() { answer({std::nullopt, std::nullopt}); }
  void fail(Error error) { answer({std::move(error), std::nullopt}); }
  /// Keeps forms unanswered until release(), which answers them, oldest first, by the script of
  /// that moment.
  void hold();
  void release();
  void answerOn(DispatchQueue& queue);

  // ---- The record

  std::vector<Upload> uploads() const;
  /// How many managers were made.
  std::size_t made() const;
  std::size_t held() const;

  std::shared_ptr<QXNetworkingManager> make(HTTPHeaders headers, double timeoutForRequest) override;
  /// "Accept-Language: fake" and "User-Agent: default", so that a test sees what was replaced.
  HTTPHeaders defaultHeaders() override;
  /// "FakeAgent/1".
  std::string QXNetworkingUserAgent() override;

 private:
  class Client;
  using Completion = QXNetworkingManager::Completion;
  void sent(Upload upload, Completion completion);
  void complete(const Completion& completion);

  mutable Mutex mutex_;
  std::deque<QXNetworkingUploadResponse> once_ QX_GUARDED_BY(mutex_);
  QXNetworkingUploadResponse standing_ QX_GUARDED_BY(mutex_) = {std::nullopt, HTTPURLResponse{200}};
  std::deque<Completion> held_ QX_GUARDED_BY(mutex_);
  std::vector<Upload> uploads_ QX_GUARDED_BY(mutex_);
  std::size_t made_ QX_GUARDED_BY(mutex_) = 0;
  bool holding_ QX_GUARDED_BY(mutex_) = false;
  DispatchQueue* queue_ QX_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace qx
