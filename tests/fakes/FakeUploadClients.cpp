#include "fakes/FakeUploadClients.h"

#include <atomic>
#include <utility>

namespace qx {

class FakeUploadClients::Client : public QXNetworkingManager {
 public:
  Client(FakeUploadClients& owner, HTTPHeaders headers, double timeoutForRequest)
      : owner_(owner), headers_(std::move(headers)), timeoutForRequest_(timeoutForRequest) {}
  std::shared_ptr<Cancellable> upload(const QXNetworkingUploadRequest& request,
                                      ProgressCallback progress, Completion completion) override {
    MultipartFormData form;
    if (request.multipartFormData) request.multipartFormData(form);
    const bool hasProgress = static_cast<bool>(progress);
    return owner_.sent(
        {headers_, timeoutForRequest_, request.url, request.headers, request.parameters,
         request.acceptableContentTypes, form.parts(), hasProgress},
        std::move(progress), std::move(completion));
  }

 private:
  FakeUploadClients& owner_;
  const HTTPHeaders headers_;
  const double timeoutForRequest_;
};

/// A form that waits for release().
class FakeUploadClients::Held : public Cancellable {
 public:
  Held(FakeUploadClients& owner, Completion completion)
      : owner_(owner), completion_(std::move(completion)) {}
  void cancel() override {
    if (over_.exchange(true)) return;
    {
      MutexLock lock(owner_.mutex_);
      std::erase_if(owner_.held_, [this](const auto& one) { return one.get() == this; });
    }
    if (!completion_) return;
    completion_({Error{"Transport", kCancelled, "the request was cancelled"}, std::nullopt});
  }
  void release() {
    if (!over_.exchange(true)) owner_.complete(completion_);
  }

 private:
  FakeUploadClients& owner_;
  const Completion completion_;
  std::atomic<bool> over_ = false;
};

void FakeUploadClients::answer(QXNetworkingUploadResponse response) {
  MutexLock lock(mutex_);
  standing_ = std::move(response);
}

void FakeUploadClients::answerOnce(QXNetworkingUploadResponse response) {
  MutexLock lock(mutex_);
  once_.push_back(std::move(response));
}

void FakeUploadClients::reportProgress(std::vector<double> fractions) {
  MutexLock lock(mutex_);
  progress_ = std::move(fractions);
}

void FakeUploadClients::hold() {
  MutexLock lock(mutex_);
  holding_ = true;
}

void FakeUploadClients::release() {
  std::deque<std::shared_ptr<Held>> held;
  {
    MutexLock lock(mutex_);
    holding_ = false;
    held.swap(held_);
  }
  for (const auto& form : held) form->release();
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

std::shared_ptr<Cancellable> FakeUploadClients::sent(Upload upload, ProgressCallback progress,
                                                     Completion completion) {
  DispatchQueue* queue = nullptr;
  std::vector<double> fractions;
  {
    MutexLock lock(mutex_);
    uploads_.push_back(std::move(upload));
    if (holding_) {
      held_.push_back(std::make_shared<Held>(*this, std::move(completion)));
      return held_.back();
    }
    queue = queue_;
    fractions = progress_;
  }
  if (progress) {
    for (const double fraction : fractions) progress(fraction);
  }
  if (queue == nullptr) {
    complete(completion);
  } else {
    queue->async([this, completion] { complete(completion); });
  }
  return nullptr;
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
