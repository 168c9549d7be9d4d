// A scripted upload server. It records the forms that it gets and answers them from a script.
//
//     FakeUploadClients clients;
//     clients.answerOnce({std::nullopt, HTTPURLResponse{503}});  // The next form fails.
//     EXPECT_EQ(clients.uploads().front().parts.front().name, "image_size");
//
// Threads: as in FakeMessageClients.h. An answer runs on the queue that was given to answerOn(), or
// else on the sender's thread before upload() returns; a held answer runs on the thread that calls
// release().
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
  /// A form that was sent.
  struct Upload {
    /// The headers and the timeout of the manager that sent the form.
    HTTPHeaders managerHeaders;
    double timeoutForRequest = 0;
    std::string url;
    HTTPHeaders headers;
    std::optional<Dictionary> parameters;
    std::optional<std::vector<std::string>> acceptableContentTypes;
    std::vector<MultipartFormData::Part> parts;
    bool hasProgress = false;
  };

  // ---- The script. Without one every form is answered with status 200. `Once` answers come first,
  // in the order in which they were given.

  void answer(QXNetworkingUploadResponse response);
  void answerOnce(QXNetworkingUploadResponse response);
  /// Answers with this status, with no HTTP part at all, or with an error.
  void answerStatus(int status) { answer({std::nullopt, HTTPURLResponse{status}}); }
  void answerWithoutHttp() { answer({std::nullopt, std::nullopt}); }
  void fail(Error error) { answer({std::move(error), std::nullopt}); }
  /// Sets the fractions that are reported for each form before its answer.
  void reportProgress(std::vector<double> fractions);
  /// Keeps forms unanswered until release() answers them, the oldest first, by the script of that
  /// moment. A held form that is cancelled is answered at once, on the cancelling thread.
  void hold();
  void release();
  void answerOn(DispatchQueue& queue);

  // ---- The record

  std::vector<Upload> uploads() const;
  /// The number of managers that were made.
  std::size_t made() const;
  std::size_t held() const;

  std::shared_ptr<QXNetworkingManager> make(HTTPHeaders headers, double timeoutForRequest) override;
  /// The headers "Accept-Language: fake" and "User-Agent: default", so that a test sees which of
  /// them were replaced.
  HTTPHeaders defaultHeaders() override;
  /// The text "FakeAgent/1".
  std::string QXNetworkingUserAgent() override;

 private:
  class Client;
  using Completion = QXNetworkingManager::Completion;
  class Held;
  std::shared_ptr<Cancellable> sent(Upload upload, ProgressCallback progress,
                                    Completion completion);
  void complete(const Completion& completion);

  mutable Mutex mutex_;
  std::deque<QXNetworkingUploadResponse> once_ QX_GUARDED_BY(mutex_);
  QXNetworkingUploadResponse standing_ QX_GUARDED_BY(mutex_) = {std::nullopt, HTTPURLResponse{200}};
  std::deque<std::shared_ptr<Held>> held_ QX_GUARDED_BY(mutex_);
  std::vector<Upload> uploads_ QX_GUARDED_BY(mutex_);
  std::vector<double> progress_ QX_GUARDED_BY(mutex_);
  std::size_t made_ QX_GUARDED_BY(mutex_) = 0;
  bool holding_ QX_GUARDED_BY(mutex_) = false;
  DispatchQueue* queue_ QX_GUARDED_BY(mutex_) = nullptr;
};

}  // namespace qx
