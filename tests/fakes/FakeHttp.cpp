#include "fakes/FakeHttp.h"

#include <algorithm>
#include <utility>

namespace qx {

class FakeHttp::Exchange : public Cancellable {
 public:
  Exchange(FakeHttp& http, std::weak_ptr<Pending> pending)
      : http_(http), pending_(std::move(pending)) {}
  void cancel() override {
    MutexLock lock(http_.mutex_);
    if (const auto pending = pending_.lock()) pending->cancelled = true;
  }

 private:
  FakeHttp& http_;
  const std::weak_ptr<Pending> pending_;
};

void FakeHttp::answer(HttpAnswer answer) {
  MutexLock lock(mutex_);
  answers_.push_back(std::move(answer));
}

std::shared_ptr<Cancellable> FakeHttp::send(HttpRequest request, AnswerHandler answered) {
  MutexLock lock(mutex_);
  requests_.push_back(request);
  pending_.push_back(
      std::make_shared<Pending>(Pending{std::move(request), std::move(answered), false}));
  return std::make_shared<Exchange>(*this, pending_.back());
}

std::vector<HttpRequest> FakeHttp::requests() const {
  MutexLock lock(mutex_);
  return requests_;
}

void FakeHttp::run() {
  while (true) {
    std::shared_ptr<Pending> next;
    HttpAnswer answer;
    {
      MutexLock lock(mutex_);
      const auto cancelled = std::find_if(pending_.begin(), pending_.end(),
                                          [](const auto& one) { return one->cancelled; });
      if (cancelled != pending_.end()) {
        next = *cancelled;
        pending_.erase(cancelled);
        answer.failure = HttpFailure::other;
        answer.error = Error{"Transport", kCancelled, "the request was cancelled"};
      } else if (!pending_.empty() && !answers_.empty()) {
        next = pending_.front();
        pending_.pop_front();
        answer = std::move(answers_.front());
        answers_.pop_front();
      } else {
        return;
      }
    }
    finish(*next, std::move(answer));
  }
}

void FakeHttp::finish(Pending& pending, HttpAnswer answer) {
  const HttpRequest& request = pending.request;
  if (request.sink && answer.status == 200 && !answer.error) {
    const auto size = static_cast<std::int64_t>(answer.body.size());
    if (!request.sink(answer.body)) {
      answer.failure = HttpFailure::other;
      answer.error = Error{"Transport", kTransportErrorBase + 23, "the answer cannot be stored"};
    } else if (request.progress) {
      request.progress(size, size);
    }
    answer.body.clear();
  }
  const AnswerHandler answered = std::exchange(pending.answered, nullptr);
  answered(std::move(answer));
}

}  // namespace qx
