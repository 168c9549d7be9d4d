// The contract of HTTP, for the fake and the real implementation.
#include "platform/Http.h"

#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "fakes/FakeHttp.h"
#include "platforms/shared/HttpEngine.h"
#include "unit/linux/ScriptedServer.h"

namespace qx {
namespace {

struct Scripted {
  void answers(int status, const std::string& body) {
    HttpAnswer answer;
    answer.begun = true;
    answer.status = status;
    answer.body = body;
    http.answer(std::move(answer));
  }
  void staysSilent() {}
  std::string url() const { return "http://server.example/"; }
  void run() { http.run(); }

  FakeHttp http;
};

struct Real {
  void answers(int status, const std::string& body) {
    server.emplace(std::vector<Turn>{answerWith(status, body)});
  }
  void staysSilent() {
    Turn turn;
    turn.answer.clear();
    turn.then = Turn::Then::stall;
    server.emplace(std::vector<Turn>{turn});
  }
  std::string url() const { return server->url() + "/"; }
  void run() {}

  std::optional<ScriptedServer> server;
  HttpEngine http{{}};
};

template <typename T>
class HttpContract : public testing::Test {
 protected:
  struct Sent {
    std::promise<HttpAnswer> promise;
    int answers = 0;
  };
  HttpRequest request() const {
    HttpRequest request;
    request.url = underTest_.url();
    return request;
  }
  std::shared_ptr<Cancellable> send(HttpRequest request) {
    return underTest_.http.send(std::move(request), [sent = sent_](HttpAnswer answer) {
      EXPECT_EQ(++sent->answers, 1);
      sent->promise.set_value(std::move(answer));
    });
  }
  HttpAnswer answer() {
    underTest_.run();
    return sent_->promise.get_future().get();
  }

  std::shared_ptr<Sent> sent_ = std::make_shared<Sent>();
  T underTest_;
};

using Implementations = testing::Types<Scripted, Real>;
TYPED_TEST_SUITE(HttpContract, Implementations);

TYPED_TEST(HttpContract, AnswerCarriesStatusAndBody) {
  this->underTest_.answers(404, "said");
  this->send(this->request());
  const HttpAnswer answer = this->answer();
  EXPECT_EQ(answer.error, std::nullopt);
  EXPECT_TRUE(answer.begun);
  EXPECT_EQ(answer.status, 404);
  EXPECT_EQ(answer.body, "said");
}

TYPED_TEST(HttpContract, SinkTakesTheBodyOfTwoHundredAlone) {
  for (const int status : {200, 206, 404}) {
    this->sent_ = std::make_shared<typename HttpContract<TypeParam>::Sent>();
    this->underTest_.answers(status, "said");
    HttpRequest request = this->request();
    std::string taken;
    request.sink = [&taken](std::string_view bytes) {
      taken += bytes;
      return true;
    };
    this->send(std::move(request));
    const HttpAnswer answer = this->answer();
    EXPECT_EQ(taken, status == 200 ? "said" : "") << status;
    EXPECT_EQ(answer.body, status == 200 ? "" : "said") << status;
  }
}

TYPED_TEST(HttpContract, SinkThatRefusesIsATransportError) {
  this->underTest_.answers(200, "said");
  HttpRequest request = this->request();
  request.sink = [](std::string_view) { return false; };
  this->send(std::move(request));
  const HttpAnswer answer = this->answer();
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->domain, "Transport");
  EXPECT_GE(answer.error->code, kTransportErrorBase);
}

TYPED_TEST(HttpContract, CancelledRequestIsAnsweredOnceWithItsError) {
  this->underTest_.staysSilent();
  const auto exchange = this->send(this->request());
  exchange->cancel();
  exchange->cancel();
  const HttpAnswer answer = this->answer();
  EXPECT_EQ(answer.failure, HttpFailure::other);
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->domain, "Transport");
  EXPECT_EQ(answer.error->code, kCancelled);
}

TYPED_TEST(HttpContract, CancelAfterTheAnswerDoesNothing) {
  this->underTest_.answers(200, "");
  const auto exchange = this->send(this->request());
  EXPECT_EQ(this->answer().status, 200);
  exchange->cancel();
  this->underTest_.run();
}

TYPED_TEST(HttpContract, RequestGoesOnWithoutItsHandle) {
  this->underTest_.answers(200, "said");
  this->send(this->request());
  EXPECT_EQ(this->answer().body, "said");
}

// ---- Of the engine alone

TEST(HttpCancel, RequestIsEndedWhereverItIs) {
  Turn turn;
  turn.answer.clear();
  turn.then = Turn::Then::stall;
  ScriptedServer server({turn});
  HttpEngine engine({});
  std::vector<std::future<HttpAnswer>> answers;
  std::vector<std::shared_ptr<Cancellable>> exchanges;
  // 32 requests are under way, 8 wait for them, and one has yet to begin.
  for (int i = 0; i < 41; ++i) {
    HttpRequest request;
    request.url = server.url() + "/";
    if (i == 40) request.delaySeconds = 3600;
    auto promise = std::make_shared<std::promise<HttpAnswer>>();
    answers.push_back(promise->get_future());
    exchanges.push_back(engine.send(std::move(request), [promise](HttpAnswer answer) {
      promise->set_value(std::move(answer));
    }));
  }
  server.waitForRequests(32);
  for (auto i = exchanges.rbegin(); i != exchanges.rend(); ++i) (*i)->cancel();
  for (auto& answer : answers) EXPECT_EQ(answer.get().error->code, kCancelled);
}

TEST(HttpCancel, HandleMayOutliveTheEngine) {
  std::shared_ptr<Cancellable> exchange;
  {
    HttpEngine engine({});
    HttpRequest request;
    request.url = "http://127.0.0.1:9/";
    request.delaySeconds = 3600;
    exchange = engine.send(std::move(request), [](const HttpAnswer&) {});
  }
  exchange->cancel();
}

}  // namespace
}  // namespace qx
