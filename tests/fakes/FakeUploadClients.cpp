#include "fakes/FakeUploadClients.h"

#include <utility>

namespace qx {

class FakeUploadClients::Client : public QXNetworkingManager {
 public:
  Client(FakeUploadClients& owner, HTTPHeaders headers, double timeoutForRequest)
      : owner_(owner), headers_(std::move(headers)), timeoutForRequest_(timeoutForRequest) {}
  void upload(const QXNetworkingUploadRequest& request, ProgressCallback progress,
              Completion completion) override {
    MultipartFormData form;
    if (request.multipartFormData) request.multipartFormData(form);
    owner_.sent({headers_, timeoutForRequest_, request.url, request.headers, request.parameters,
                 request.acceptableContentTypes, form.parts(), static_cast<bool>(progress)},
                std::move(completion));
  }

 private:
  FakeUploadClients& owner_;
  const HTTPHeaders headers_;
  const double timeoutForRequest_;
};

void FakeUploadClients::answer(QXNetworkingUploadResponse response) {
  MutexLock lock(mutex_);
  standing_ = std::move(response);
}

void FakeUploadClients::answerOnce(QXNetworkingUploadResponse response) {
  MutexLock lock(mutex_);
  once_.push_back(std::move(response));
}

void FakeUploadClients::hold() {
  MutexLock lock(mutex_);
  holding_ = true;
}

void FakeUploadClients::release() {
  std::deque<Completion> held;
  {
    MutexLock lock(mutex_);
    holding_ = false;
    held.swap(held_);
  }
  for (const Completion& completion : held) complete(completion);
}

void FakeUploadClients::answerOn(DispatchQueue& queue) {
  MutexLock lock(mutex_);
  queue_ = &queue;
}

std::vector<FakeUploadClients::Upload> FakeUploadClients::uploads() const {
  MutexLock lock(mutex_);
  return uploads_;
}

std::size_t FakeUploadClients::made() const {
  MutexLock lock(mutex_);
  return made_;
}

std::size_t FakeUploadClients::held() const {
  MutexLock lock(mutex_);
  return held_.size();
}

std::shared_ptr<QXNetworkingManager> FakeUploadClients::make(HTTPHeaders headers,
                                                             double timeoutForRequest) {
  MutexLock lock(mutex_);
  ++made_;
  return std::make_shared<Client>(*this, std::move(headers), timeoutForRequest);
}

HTTPHeaders FakeUploadClients::defaultHeaders() {
  return {{"Accept-Language", "fake"}, {"User-Agent", "default"}};
}

std::string FakeUploadClients::QXNetworkingUserAgent() {
  return "FakeAgent/1";
}

void FakeUploadClients::sent(Upload upload, Completion completion) {
  DispatchQueue* queue = nullptr;
  {
    MutexLock lock(mutex_);
    uploads_.push_back(std::move(upload));
    if (holding_) {
      held_.push_back(std::move(completion));
      return;
    }
    queue = queue_;
  }
  if (queue == nullptr) return complete(completion);
  queue->async([this, completion] { complete(completion); });
}

void FakeUploadClients::complete(const Completion& completion) {
  QXNetworkingUploadResponse response;
  {
    MutexLock lock(mutex_);
    response = standing_;
    if (!once_.empty()) {
      response = std::move(once_.front());
      once_.pop_front();
    }
  }
  if (completion) completion(response);
}

}  // namespace qx
