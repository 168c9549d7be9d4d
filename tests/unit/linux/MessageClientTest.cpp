#include "http/MessageClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

#include <future>
#include <limits>
#include <thread>

#include "fakes/FakeClock.h"
#include "http/Headers.h"
#include "http/Rfc3339.h"
#include "platforms/shared/HttpEngine.h"
#include "platforms/shared/NlohmannJson.h"
#include "platforms/shared/OpenSslDigests.h"
#include "platforms/shared/PosixDispatch.h"
#include "platforms/shared/PosixPartFiles.h"
#include "platforms/shared/SystemClock.h"
#include "unit/linux/ScriptedServer.h"

namespace qx {
namespace {

using ::testing::HasSubstr;
using ::testing::Not;

struct TextResponse : APIResponse {
  std::string text;
  double date = 0;
};

/// A message whose response has the text "t" and may have the date "d".
struct TestMessage : APIRequest {
  std::string path = "v1/do";
  std::string method = "GET";
  OrderedMembers fields;

  std::string api() const override { return path; }
  std::vector<std::string> methods() const override { return {method}; }
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
    if (const auto found = members->find("d"); found != members->end()) {
      const auto date = decoder.date(found->second);
      if (!date) return date.error();
      response->date = date->secondsSince1970;
    }
    return std::shared_ptr<const APIResponse>(std::move(response));
  }
};

class MessageClientTest : public ::testing::Test {
 protected:
  QXNetworkingResponse send(const std::string& baseURL, std::shared_ptr<TestMessage> message,
                            bool sign = true, std::optional<HTTPHeaders> headers = {},
                            double timeout = 30, MessageSigner signer = {}) {
    HttpMessageClients clients(seams_, signer);
    const auto manager = clients.make(Url::parse(baseURL).value(),
                                      {{"USER-ID", "u1"}, {"ACCESS-TOKEN", "the-token-of-user-42"}},
                                      std::nullopt, sign);
    std::promise<QXNetworkingResponse> promise;
    manager->request(message, headers, timeout, nullptr, [&](const QXNetworkingResponse& response) {
      EXPECT_NE(std::this_thread::get_id(), test_);
      promise.set_value(response);
    });
    return promise.get_future().get();
  }

  static std::string text(const QXNetworkingResponse& response) {
    const auto* value = dynamic_cast<const TextResponse*>(response.value.get());
    return value ? value->text : "no value";
  }

  const std::thread::id test_ = std::this_thread::get_id();
  FakeClock clock_{1795219560.75};
  NlohmannJson json_;
  PosixDispatch dispatch_;
  HttpEngine engine_{{}};
  OpenSslDigests digests_;
  SystemRandom random_;
  const MessageSeams seams_ = {engine_, digests_, random_, dispatch_.globalQueue(), clock_, json_};
  std::shared_ptr<TestMessage> message_ = std::make_shared<TestMessage>();
};

TEST_F(MessageClientTest, GetSendsParametersInTheQueryAndDecodesTheBody) {
  ScriptedServer server({answerWith(200, R"({"t":"hello","d":"2026-11-21T00:06:00Z"})")});
  message_->fields = {{"b", "x y&z/\u00e9"}, {"a", std::int64_t{-5}}, {"c", true}, {"n", Value()}};
  const auto response = send(server.url(), message_);
  EXPECT_EQ(response.error, std::nullopt);
  EXPECT_EQ(text(response), "hello");
  EXPECT_EQ(dynamic_cast<const TextResponse&>(*response.value).date, 1795219560.0);
  const SeenRequest request = server.requests()[0];
  EXPECT_EQ(request.method, "GET");
  EXPECT_EQ(request.target, "/v1/do?b=x%20y%26z%2F%C3%A9&a=-5&c=true");
  EXPECT_EQ(request.body, "");
  EXPECT_EQ(request.headers.at("user-id"), "u1");
  EXPECT_EQ(request.headers.at("access-token"), "the-token-of-user-42");
  EXPECT_EQ(request.headers.at("user-agent"), libraryUserAgent());
  EXPECT_EQ(request.headers.count("content-type"), 0u);
}

TEST_F(MessageClientTest, PostSendsAJsonObjectInTheMessagesOrderWithoutAbsentFields) {
  ScriptedServer server({answerWith(200, R"({"t":""})")});
  message_->method = "POST";
  message_->fields = {{"item_id", std::int64_t{5000000000}},
                      {"absent", Value()},
                      {"a_url", "https://x/y\"\n"},
                      {"Z", false}};
  EXPECT_EQ(send(server.url(), message_).error, std::nullopt);
  const SeenRequest request = server.requests()[0];
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.target, "/v1/do");
  EXPECT_EQ(request.headers.at("content-type"), "application/json");
  EXPECT_EQ(request.body, R"({"item_id":5000000000,"a_url":"https:\/\/x\/y\"\n","Z":false})");
}

TEST_F(MessageClientTest, BaseUrlMayEndInASlashAndHaveAPath) {
  ScriptedServer server({answerWith(200, R"({"t":""})")});
  send(server.url() + "/", message_);
  send(server.url() + "/base", message_);
  send(server.url() + "/base//", message_);
  EXPECT_EQ(server.requests()[0].target, "/v1/do");
  EXPECT_EQ(server.requests()[1].target, "/base/v1/do");
  EXPECT_EQ(server.requests()[2].target, "/base/v1/do");
}

TEST_F(MessageClientTest, SignatureIsAnHmacKeyedByTheAccessToken) {
  ScriptedServer server({answerWith(200, R"({"t":""})")});
  message_->method = "POST";
  message_->fields = {{"a", 1}};
  send(server.url() + "/base", message_);
  const SeenRequest request = server.requests()[0];
  // This value was made with OpenSSL's own HMAC from the bytes on the wire.
  const auto hexOf = [](const unsigned char* bytes, unsigned size) {
    std::string digits;
    for (unsigned i = 0; i < size; ++i) {
      char pair[3];
      std::snprintf(pair, sizeof pair, "%02x", bytes[i]);
      digits += pair;
    }
    return digits;
  };
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  EVP_Digest(request.body.data(), request.body.size(), digest, &size, EVP_sha256(), nullptr);
  const std::string toSign = "POST\n" + request.target + "\n1795219560\n" + hexOf(digest, size);
  HMAC(EVP_sha256(), "the-token-of-user-42", 20,
       reinterpret_cast<const unsigned char*>(toSign.data()), toSign.size(), digest, &size);
  EXPECT_EQ(request.target, "/base/v1/do");
  EXPECT_EQ(request.headers.at("qx-signature"), "t=1795219560,v1=" + hexOf(digest, size));
}

TEST_F(MessageClientTest, SignatureOfAGetCoversTheQueryAndAnEmptyBody) {
  ScriptedServer server({answerWith(200, R"({"t":""})")});
  message_->fields = {{"a", "1"}};
  std::string signedPath;
  std::string signedBody = "unset";
  send(server.url(), message_, true, {}, 30, [&](const MessageToSign& message) {
    signedPath = message.pathAndQuery;
    signedBody = message.body;
    return std::pair<std::string, std::string>("X-SIGNED", std::string(message.accessToken));
  });
  EXPECT_EQ(signedPath, "/v1/do?a=1");
  EXPECT_EQ(signedBody, "");
  EXPECT_EQ(server.requests()[0].headers.at("x-signed"), "the-token-of-user-42");
  EXPECT_EQ(server.requests()[0].headers.count("qx-signature"), 0u);
}

TEST_F(MessageClientTest, WithoutAddSignatureThereIsNone) {
  ScriptedServer server({answerWith(200, R"({"t":""})")});
  send(server.url(), message_, false);
  EXPECT_EQ(server.requests()[0].headers.count("qx-signature"), 0u);
}

TEST_F(MessageClientTest, RequestHeadersReplaceTheManagersOwn) {
  ScriptedServer server({answerWith(200, R"({"t":""})")});
  send(server.url(), message_, false, HTTPHeaders{{"user-id", "u2"}, {"X-More", "m"}});
  EXPECT_EQ(server.requests()[0].headers.at("user-id"), "u2");
  EXPECT_EQ(server.requests()[0].headers.at("x-more"), "m");
  EXPECT_EQ(server.requests()[0].head.find("u1"), std::string::npos);
}

TEST_F(MessageClientTest, BackendsErrorRecordGivesTheDescription) {
  ScriptedServer server({answerWith(401, R"({"code":1000,"message":"wrong identity"})")});
  const auto response = send(server.url(), message_);
  EXPECT_EQ(response.error, (Error{"QXNetworking", 401, "wrong identity"}));
  EXPECT_EQ(response.value, nullptr);
}

TEST_F(MessageClientTest, TokenThatTheBackendRepeatsStaysOutOfTheError) {
  ScriptedServer server(
      {answerWith(401, R"({"code":1000,"message":"bad token the-token-of-user-42!"})")});
  EXPECT_EQ(send(server.url(), message_).error->description, "bad token ...!");
}

TEST_F(MessageClientTest, SignatureThatTheBackendRepeatsStaysOutOfTheError) {
  const MessageSigner signer = [](const MessageToSign&) {
    return std::pair<std::string, std::string>{"X-SIGN", "t=1,v1=0123456789abcdef"};
  };
  for (const auto& [said, told] : {std::pair{"bad t=1,v1=0123456789abcdef!", "bad ...!"},
                                   std::pair{"bad digest 0123456789abcdef!", "bad digest ...!"}}) {
    ScriptedServer server(
        {answerWith(401, std::string(R"({"code":1000,"message":")") + said + R"("})")});
    EXPECT_EQ(send(server.url(), message_, true, {}, 30, signer).error->description, told);
  }
}

TEST_F(MessageClientTest, DateIsSentInRfc3339) {
  ScriptedServer server({answerWith(200, R"({"t":""})")});
  message_->method = "POST";
  message_->fields = {{"until", Date{1795219560}}};
  ASSERT_EQ(send(server.url(), message_).error, std::nullopt);
  EXPECT_EQ(server.requests()[0].body, R"({"until":"2026-11-21T00:06:00Z"})");
}

TEST_F(MessageClientTest, StatusIsTheDescriptionWithoutAWholeErrorRecord) {
  for (const char* body : {"", "<html>", "[]", R"({"message":"m"})", R"({"code":1000})",
                           R"({"code":"1000","message":"m"})", R"({"code":1000,"message":5})",
                           R"({"code":2,"message":"m"})"}) {
    ScriptedServer server({answerWith(503, body)});
    EXPECT_EQ(send(server.url(), message_).error, (Error{"QXNetworking", 503, "HTTP 503"})) << body;
  }
}

TEST_F(MessageClientTest, RedirectIsAnErrorAndTheTokenStaysHere) {
  ScriptedServer elsewhere({answerWith(200, R"({"t":"stolen"})")});
  ScriptedServer server({answerWith(302, "", "Location: " + elsewhere.url() + "/\r\n")});
  EXPECT_EQ(send(server.url(), message_).error, (Error{"QXNetworking", 302, "HTTP 302"}));
  EXPECT_EQ(elsewhere.connections(), 0u);
}

TEST_F(MessageClientTest, BodyThatDoesNotDecodeIsADecoderError) {
  for (const char* body : {"", "garbage", "{}", R"({"t":"x","d":"tomorrow"})"}) {
    ScriptedServer server({answerWith(200, body)});
    const auto response = send(server.url(), message_);
    ASSERT_TRUE(response.error) << body;
    EXPECT_EQ(response.error->domain, "APIDecoder") << body;
    EXPECT_EQ(response.value, nullptr);
  }
}

TEST_F(MessageClientTest, DeeplyNestedBodyIsRefused) {
  ScriptedServer server({answerWith(200, std::string(100000, '['))});
  EXPECT_EQ(send(server.url(), message_).error->domain, "APIDecoder");
}

TEST_F(MessageClientTest, SilentBackendEndsInATransportError) {
  Turn turn;
  turn.answer.clear();
  turn.then = Turn::Then::stall;
  ScriptedServer server({turn});
  const auto response = send(server.url(), message_, true, {}, 0.2);
  EXPECT_EQ(response.error->domain, "Transport");
  EXPECT_EQ(response.error->code, kTransportErrorBase + 28);
  EXPECT_THAT(response.error->description, Not(HasSubstr("the-token-of-user-42")));
}

TEST_F(MessageClientTest, DrippingBackendEndsWithTheMessagesTime) {
  Turn turn;
  turn.answer = "HTTP/1.1 200 OK\r\nContent-Length: 100000\r\n\r\n";
  turn.piece = " ";
  turn.pieces = 100000;
  turn.pieceIntervalMs = 10;
  ScriptedServer server({turn});
  EXPECT_EQ(send(server.url(), message_, true, {}, 0.3).error->code, kTransportErrorBase + 28);
}

TEST_F(MessageClientTest, TokenWithALineBreakIsRefused) {
  ScriptedServer server({answerWith(200, R"({"t":""})")});
  const auto response =
      send(server.url(), message_, false, HTTPHeaders{{"ACCESS-TOKEN", "a\r\nX-Evil: 1"}});
  ASSERT_TRUE(response.error);
  EXPECT_THAT(response.error->description, Not(HasSubstr("Evil")));
  EXPECT_EQ(server.connections(), 0u);
}

TEST_F(MessageClientTest, LocalisedTextIsEnglishUnlessTheHostGivesIts) {
  HttpMessageClients plain(seams_);
  EXPECT_EQ(plain.localisedText("SUCCESS"), "Success");
  EXPECT_EQ(plain.localisedText("INTERNAL_ERROR"), "Internal error");
  HttpMessageClients french(seams_, {},
                            [](std::string_view key) { return "fr:" + std::string(key); });
  EXPECT_EQ(french.localisedText("SUCCESS"), "fr:SUCCESS");
}

TEST(Rfc3339, ReadsDatesWithAZone) {
  EXPECT_EQ(parseRfc3339("1970-01-01T00:00:00Z"), 0.0);
  EXPECT_EQ(parseRfc3339("2026-11-21T00:06:00Z"), 1795219560.0);
  EXPECT_EQ(parseRfc3339("2026-11-21t00:06:00z"), 1795219560.0);
  EXPECT_EQ(parseRfc3339("2026-11-21T05:36:00+05:30"), 1795219560.0);
  EXPECT_EQ(parseRfc3339("2026-11-20T16:06:00-08:00"), 1795219560.0);
  EXPECT_DOUBLE_EQ(parseRfc3339("2026-11-21T00:06:00.125Z").value(), 1795219560.125);
  EXPECT_EQ(parseRfc3339("2000-02-29T12:34:56Z"), 951827696.0);
  EXPECT_EQ(parseRfc3339("1990-12-31T23:59:60Z"), 662688000.0);
}

TEST(Rfc3339, WritesUtcToTheMicrosecond) {
  EXPECT_EQ(rfc3339Text(0), "1970-01-01T00:00:00Z");
  EXPECT_EQ(rfc3339Text(1795219560), "2026-11-21T00:06:00Z");
  EXPECT_EQ(rfc3339Text(1795219560.125), "2026-11-21T00:06:00.125000Z");
  EXPECT_EQ(rfc3339Text(-0.5), "1969-12-31T23:59:59.500000Z");
  EXPECT_EQ(rfc3339Text(-62167219200.0), "0000-01-01T00:00:00Z");
  EXPECT_EQ(rfc3339Text(253402300799.0), "9999-12-31T23:59:59Z");
}

TEST(Rfc3339, WritesNothingForAYearOfMoreThanFourDigits) {
  const double infinity = std::numeric_limits<double>::infinity();
  for (const double time : {-62167219201.0, 253402300800.0, infinity, -infinity,
                            std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(rfc3339Text(time), std::nullopt) << time;
  }
}

TEST(Rfc3339, RefusesEverythingElse) {
  for (const char* text : {"",
                           "2026-11-21",
                           "2026-11-21T00:06:00",
                           "2026-11-21 00:06:00Z",
                           "2026-11-21T00:06Z",
                           "2026-13-01T00:00:00Z",
                           "2026-02-29T00:00:00Z",
                           "2026-11-00T00:00:00Z",
                           "2026-11-21T24:00:00Z",
                           "2026-11-21T00:60:00Z",
                           "2026-11-21T00:00:61Z",
                           "2026-11-21T00:00:00.Z",
                           "2026-11-21T00:00:00+0530",
                           "2026-11-21T00:00:00+05",
                           "2026-11-21T00:00:00+24:00",
                           "2026-11-21T00:00:00Z ",
                           " 2026-11-21T00:00:00Z",
                           "26-11-21T00:00:00Z",
                           "2026-1-21T00:00:00Z",
                           "+026-11-21T00:00:00Z",
                           "1795219560"}) {
    EXPECT_EQ(parseRfc3339(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace qx
