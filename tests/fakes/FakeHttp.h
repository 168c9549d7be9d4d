// HTTP without a network. It records requests and answers them from a script.
//
//     FakeHttp http;
//     http.answer({.begun = true, .status = 200, .body = "hello"});
//     http.send({.url = "https://store.test/a"}, [](HttpAnswer answer) { use(answer.body); });
//     http.run();  // Calls the handler.
//
// Threads: send and cancel may be called from any thread. Handlers run on the thread that calls
// run().
#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "platform/Http.h"
#include "platform/Mutex.h"

namespace qx {

class FakeHttp : public Http {
 public:
  /// Adds an answer for the oldest request that has none. With status 200 its body goes into the
  /// request's sink, if there is one. A sink that refuses the body ends the request with an error.
  void answer(HttpAnswer answer);
  /// Answers requests, the oldest first, while there are answers. Cancelled requests are answered
  /// with their error.
  void run();
  std::vector<HttpRequest> requests() const;

  std::shared_ptr<Cancellable> send(HttpRequest request, AnswerHandler answered) override;

 private:
  struct Pending {
    HttpRequest request;
    AnswerHandler answered;
    bool cancelled = false;
  };
  class Exchange;

  static void finish(Pending& pending, HttpAnswer answer);

  mutable Mutex mutex_;
  std::vector<HttpRequest> requests_ QX_GUARDED_BY(mutex_);
  std::deque<std::shared_ptr<Pending>> pending_ QX_GUARDED_BY(mutex_);
  std::deque<HttpAnswer> answers_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
