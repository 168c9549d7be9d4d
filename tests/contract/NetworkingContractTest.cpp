// The contract of message and upload clients, for the fakes and the real ones.
#include "platform/Networking.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "fakes/FakeClock.h"
#include "fakes/FakeMessageClients.h"
#include "fakes/FakeUploadClients.h"
#include "http/MessageClient.h"
#include "http/UploadClient.h"
#include "platforms/shared/HttpEngine.h"
#include "platforms/shared/NlohmannJson.h"
#include "platforms/shared/OpenSslDigests.h"
#include "platforms/shared/PosixDispatch.h"
#include "platforms/shared/PosixPartFiles.h"
#include "platforms/shared/SystemClock.h"
#include "unit/linux/ScriptedServer.h"

namespace qx {
namespace {

using ::testing::ElementsAre;

/// The `names` that occur in `text`, in the order of their first places.
std::vector<std::string> inOrder(const std::string& text, const std::vector<std::string>& names) {
  std::map<std::size_t, std::string> places;
  for (const std::string& name : names) {
    const std::size_t at = text.find(name);
    if (at != std::string::npos) places[at] = name;
  }
  std::vector<std::string> found;
  for (const auto& [at, name] : places) found.push_back(name);
  return found;
}

struct TextResponse : APIResponse {
  std::string text;
};

struct TextMessage : APIRequest {
  OrderedMembers fields = {{"b", 1}, {"absent", Value()}, {"a", 2}};

  std::string api() const override { return "v1/do"; }
  std::vector<std::string> methods() const override { return {"POST"}; }
  OrderedMembers parseParamater(const APIEncoder& encoder) const override {
    return encoder.encode(fields);
  }
  Result<std::shared_ptr<const APIResponse>> decodeResponse(
      const Data& body, const APIDecoder& decoder) const override {
    auto value = decoder.decode(body);
    if (!value) return value.error();
    const Dictionary* members = value->asDictionary();
    const auto text = members ? readText(*members, "t") : std::nullopt;
    if (!text) return Error{"APIDecoder", 7, "no t"};
    auto response = std::make_shared<TextResponse>();
    response->text = *text;
    return std::shared_ptr<const APIResponse>(std::move(response));
  }
};

// ---- Messages

struct FakeBackend {
  void answers(const std::string& name, const std::string& text) {
    clients.answer("v1/do", Dictionary{{name, text}});
  }
  void refuses(int status, const std::string& message) {
    clients.fail("v1/do", {"QXNetworking", status, message});
  }
  std::string url() const { return "http://backend.example"; }
  std::vector<std::string> sentFields() const {
    std::vector<std::string> names;
    const auto request = clients.requests().at(0);
    for (const auto& field : request.parameters) names.push_back(field.first);
    return names;
  }
  std::vector<std::string> sentHeaders() const {
    std::vector<std::string> names;
    const auto manager = clients.managers().at(0);
    const auto request = clients.requests().at(0);
    for (const auto& field : manager.headers) names.push_back(field.first);
    for (const auto& field : *request.headers) names.push_back(field.first);
    return names;
  }

  FakeBackend() { clients.answerOn(dispatch.globalQueue()); }
  PosixDispatch dispatch;
  FakeMessageClients clients;
};

struct RealBackend {
  void answers(const std::string& name, const std::string& text) {
    server.emplace(std::vector<Turn>{answerWith(200, "{\"" + name + "\":\"" + text + "\"}")});
  }
  void refuses(int status, const std::string& message) {
    server.emplace(
        std::vector<Turn>{answerWith(status, "{\"code\":1000,\"message\":\"" + message + "\"}")});
  }
  std::string url() const { return server->url(); }
  std::vector<std::string> sentFields() const {
    return inOrder(server->requests().at(0).body, {"a", "absent", "b"});
  }
  std::vector<std::string> sentHeaders() const {
    return inOrder(server->requests().at(0).head, {"ACCESS-TOKEN", "USER-ID", "X-MORE"});
  }

  std::optional<ScriptedServer> server;
  FakeClock clock{1795219560};
  NlohmannJson json;
  PosixDispatch dispatch;
  HttpEngine engine{{}};
  OpenSslDigests digests;
  SystemRandom random;
  HttpMessageClients clients{{engine, digests, random, dispatch.globalQueue(), clock, json}};
};

template <typename T>
class MessageClientsContract : public ::testing::Test {
 protected:
  /// Sends one message with a manager that is destroyed before the answer, and waits for the end of
  /// the message.
  QXNetworkingResponse send() {
    struct Record {
      std::promise<QXNetworkingResponse> response;
      int completions = 0;
    };
    // A second completion would break the contract.
    auto record = std::make_shared<Record>();
    const auto caller = std::this_thread::get_id();
    auto manager = backend_.clients.make(Url::parse(backend_.url()).value(),
                                         {{"USER-ID", "u1"}, {"ACCESS-TOKEN", "t1"}}, {}, false);
    manager->request(std::make_shared<TextMessage>(), HTTPHeaders{{"X-MORE", "1"}}, 30, nullptr,
                     [record, caller](const QXNetworkingResponse& response) {
                       EXPECT_NE(std::this_thread::get_id(), caller);
                       EXPECT_EQ(++record->completions, 1);
                       record->response.set_value(response);
                     });
    manager.reset();
    return record->response.get_future().get();
  }

  T backend_;
};

using Backends = ::testing::Types<FakeBackend, RealBackend>;
TYPED_TEST_SUITE(MessageClientsContract, Backends);

TYPED_TEST(MessageClientsContract, SuccessYieldsTheDecodedResponse) {
  this->backend_.answers("t", "hello");
  const auto response = this->send();
  EXPECT_EQ(response.error, std::nullopt);
  const auto* value = dynamic_cast<const TextResponse*>(response.value.get());
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value->text, "hello");
}

TYPED_TEST(MessageClientsContract, RefusalYieldsTheStatusAndTheBackendsMessage) {
  this->backend_.refuses(401, "wrong identity");
  const auto response = this->send();
  EXPECT_EQ(response.error, (Error{"QXNetworking", 401, "wrong identity"}));
  EXPECT_EQ(response.value, nullptr);
}

TYPED_TEST(MessageClientsContract, BodyThatDoesNotDecodeYieldsTheMessagesError) {
  this->backend_.answers("other", "hello");
  const auto response = this->send();
  EXPECT_EQ(response.error, (Error{"APIDecoder", 7, "no t"}));
  EXPECT_EQ(response.value, nullptr);
}

TYPED_TEST(MessageClientsContract, FieldsGoInTheMessagesOrderWithoutAbsentOnes) {
  this->backend_.answers("t", "");
  this->send();
  EXPECT_THAT(this->backend_.sentFields(), ElementsAre("b", "a"));
}

TYPED_TEST(MessageClientsContract, HeadersGoInTheirOrderTheRequestsOnTop) {
  this->backend_.answers("t", "");
  this->send();
  EXPECT_THAT(this->backend_.sentHeaders(), ElementsAre("USER-ID", "ACCESS-TOKEN", "X-MORE"));
}

TYPED_TEST(MessageClientsContract, EachMessageHasItsOwnCompletion) {
  this->backend_.answers("t", "hello");
  for (int i = 0; i < 20; ++i) EXPECT_EQ(this->send().error, std::nullopt);
}

// ---- Forms

struct FakeServer {
  void answers(int status) { clients.answerStatus(status); }
  void isGone() { clients.fail({"Transport", 1007, "no connection"}); }
  std::string url() const { return "http://server.example/"; }
  std::vector<std::string> sentParts() const {
    std::vector<std::string> names;
    const auto upload = clients.uploads().at(0);
    for (const auto& part : upload.parts) names.push_back(part.name);
    return names;
  }

  FakeServer() { clients.answerOn(dispatch.globalQueue()); }
  PosixDispatch dispatch;
  FakeUploadClients clients;
};

struct RealServer {
  void answers(int status) { server.emplace(std::vector<Turn>{answerWith(status)}); }
  void isGone() {
    answers(200);
    url_ = server->url() + "/";
    server.reset();
  }
  std::string url() const { return server ? server->url() + "/" : url_; }
  std::vector<std::string> sentParts() const {
    return inOrder(server->requests().at(0).body, {"first", "img", "last"});
  }

  std::string url_;
  std::optional<ScriptedServer> server;
  PosixDispatch dispatch;
  HttpEngine engine{{}};
  SystemRandom random;
  HttpUploadClients clients{engine, random, dispatch.globalQueue()};
};

template <typename T>
class UploadClientsContract : public ::testing::Test {
 protected:
  QXNetworkingUploadResponse send() {
    struct Record {
      std::promise<QXNetworkingUploadResponse> response;
      int completions = 0;
    };
    auto record = std::make_shared<Record>();
    const auto caller = std::this_thread::get_id();
    int filled = 0;
    QXNetworkingUploadRequest request;
    request.url = server_.url();
    request.multipartFormData = [&filled, caller](MultipartFormData& form) {
      EXPECT_EQ(std::this_thread::get_id(), caller);
      ++filled;
      form.append(Data(std::string("1")), "first");
      form.append(Data(std::string("2")), "img", "file");
      form.append(Data(std::string("3")), "last");
    };
    auto manager = server_.clients.make({}, 30);
    manager->upload(request, nullptr, [record, caller](const QXNetworkingUploadResponse& response) {
      EXPECT_NE(std::this_thread::get_id(), caller);
      EXPECT_EQ(++record->completions, 1);
      record->response.set_value(response);
    });
    EXPECT_EQ(filled, 1);
    manager.reset();
    return record->response.get_future().get();
  }

  T server_;
};

using Servers = ::testing::Types<FakeServer, RealServer>;
TYPED_TEST_SUITE(UploadClientsContract, Servers);

TYPED_TEST(UploadClientsContract, EveryStatusIsAnAnswer) {
  for (const int status : {200, 201, 413, 500}) {
    this->server_.answers(status);
    const auto response = this->send();
    EXPECT_EQ(response.error, std::nullopt);
    ASSERT_TRUE(response.httpURLResponse);
    EXPECT_EQ(response.httpURLResponse->statusCode, status);
  }
}

TYPED_TEST(UploadClientsContract, ServerThatIsGoneIsATransportErrorWithoutAnAnswer) {
  this->server_.isGone();
  const auto response = this->send();
  ASSERT_TRUE(response.error);
  EXPECT_EQ(response.error->domain, "Transport");
  EXPECT_FALSE(response.httpURLResponse);
}

TYPED_TEST(UploadClientsContract, PartsGoInTheOrderInWhichTheyWereAppended) {
  this->server_.answers(200);
  this->send();
  EXPECT_THAT(this->server_.sentParts(), ElementsAre("first", "img", "last"));
}

TYPED_TEST(UploadClientsContract, UserAgentIsANameAndAVersion) {
  EXPECT_THAT(this->server_.clients.QXNetworkingUserAgent(),
              ::testing::MatchesRegex("[A-Za-z]+/[0-9.]+"));
}

}  // namespace
}  // namespace qx
