#include "http/UploadClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <future>

#include "http/Multipart.h"
#include "platforms/shared/HttpEngine.h"
#include "platforms/shared/OpenSslDigests.h"
#include "platforms/shared/PosixDispatch.h"
#include "platforms/shared/PosixPartFiles.h"
#include "platforms/shared/SystemClock.h"
#include "unit/linux/ScriptedServer.h"

namespace qx {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

Data data(std::string text) {
  return Data(std::move(text));
}

std::string joined(const std::vector<Data>& pieces) {
  std::string all;
  for (const Data& piece : pieces) all += piece.text();
  return all;
}

class UploadClientTest : public ::testing::Test {
 protected:
  QXNetworkingUploadResponse send(QXNetworkingUploadRequest request, double timeout = 30,
                                  ProgressCallback progress = nullptr) {
    HttpUploadClients clients(engine_, random_, dispatch_.globalQueue());
    const auto manager = clients.make({}, timeout);
    std::promise<QXNetworkingUploadResponse> promise;
    manager->upload(request, std::move(progress), [&](const QXNetworkingUploadResponse& response) {
      promise.set_value(response);
    });
    return promise.get_future().get();
  }

  PosixDispatch dispatch_;
  SystemRandom random_;
  HttpEngine engine_{{}};
};

TEST_F(UploadClientTest, FormArrivesInOrderWithItsExactLength) {
  ScriptedServer server({Turn()});
  QXNetworkingUploadRequest request;
  request.url = server.url() + "/upload?x=1";
  request.headers = {{"User-Agent", "agent/9"}};
  const std::string image(300000, '\xff');
  request.multipartFormData = [&](MultipartFormData& form) {
    form.append(data("1024"), "image_size");
    form.append(data("webp"), "format");
    form.append(data(image), "img", "img");
    form.append(data("s"), "s3_key");
  };
  const auto response = send(request);
  EXPECT_EQ(response.error, std::nullopt);
  EXPECT_EQ(response.httpURLResponse->statusCode, 200);
  const SeenRequest seen = server.requests()[0];
  EXPECT_EQ(seen.method, "POST");
  EXPECT_EQ(seen.target, "/upload?x=1");
  EXPECT_EQ(seen.headers.at("user-agent"), "agent/9");
  const std::string type = seen.headers.at("content-type");
  ASSERT_THAT(type, StartsWith("multipart/form-data; boundary="));
  const std::string boundary = "--" + type.substr(type.find('=') + 1);
  EXPECT_EQ(
      seen.body,
      boundary + "\r\nContent-Disposition: form-data; name=\"image_size\"\r\n\r\n1024\r\n" +
          boundary + "\r\nContent-Disposition: form-data; name=\"format\"\r\n\r\nwebp\r\n" +
          boundary + "\r\nContent-Disposition: form-data; name=\"img\"; filename=\"img\"\r\n\r\n" +
          image + "\r\n" + boundary +
          "\r\nContent-Disposition: form-data; name=\"s3_key\"\r\n\r\ns\r\n" + boundary + "--\r\n");
  EXPECT_EQ(seen.headers.at("content-length"), std::to_string(seen.body.size()));
}

TEST_F(UploadClientTest, EveryStatusIsAnAnswerAndNoError) {
  for (const int status : {201, 302, 413, 500}) {
    ScriptedServer server({answerWith(status, "body")});
    const auto response = send({server.url() + "/", {}, {}, {}, {}});
    EXPECT_EQ(response.error, std::nullopt);
    EXPECT_EQ(response.httpURLResponse->statusCode, status);
  }
}

TEST_F(UploadClientTest, ParametersAndAcceptableTypesAreSent) {
  ScriptedServer server({Turn()});
  QXNetworkingUploadRequest request;
  request.url = server.url() + "/";
  request.parameters = Dictionary{{"a", "text"}, {"b", std::int64_t{5}}};
  request.acceptableContentTypes = {{"application/json", "text/plain"}};
  request.multipartFormData = [](MultipartFormData& form) { form.append(data("v"), "own"); };
  send(request);
  const SeenRequest seen = server.requests()[0];
  EXPECT_EQ(seen.headers.at("accept"), "application/json, text/plain");
  EXPECT_THAT(seen.body, HasSubstr("name=\"a\"\r\n\r\ntext\r\n"));
  EXPECT_THAT(seen.body, HasSubstr("name=\"b\"\r\n\r\n5\r\n"));
  EXPECT_THAT(seen.body, HasSubstr("name=\"own\"\r\n\r\nv\r\n"));
}

TEST_F(UploadClientTest, AddressThatIsNoUrlIsATransportError) {
  for (const char* url : {"", "not a url", "http://", "/relative", "ftp://127.0.0.1/"}) {
    const auto response = send({url, {}, {}, {}, {}});
    ASSERT_TRUE(response.error) << url;
    EXPECT_EQ(response.error->domain, "Transport");
    EXPECT_FALSE(response.httpURLResponse);
  }
}

TEST_F(UploadClientTest, StalledServerRunsIntoTheRequestTimeout) {
  Turn turn;
  turn.answer.clear();
  turn.then = Turn::Then::stall;
  ScriptedServer server({turn});
  const auto response = send({server.url() + "/", {}, {}, {}, {}}, 0.2);
  EXPECT_EQ(response.error->code, kTransportErrorBase + 28);
}

TEST_F(UploadClientTest, ProgressEndsAtOneBeforeTheCompletion) {
  ScriptedServer server({Turn()});
  QXNetworkingUploadRequest request;
  request.url = server.url() + "/";
  request.multipartFormData = [](MultipartFormData& form) {
    form.append(data(std::string(500000, 'x')), "img");
  };
  std::vector<double> fractions;
  send(request, 30, [&](double fraction) { fractions.push_back(fraction); });
  ASSERT_FALSE(fractions.empty());
  EXPECT_TRUE(std::is_sorted(fractions.begin(), fractions.end()));
  EXPECT_EQ(fractions.back(), 1.0);
}

TEST(UploadClients, UserAgentIsNameAndVersion) {
  PosixDispatch dispatch;
  SystemRandom random;
  HttpEngine engine({});
  HttpUploadClients clients(engine, random, dispatch.globalQueue());
  EXPECT_THAT(clients.QXNetworkingUserAgent(), StartsWith("QXAwsUploader/"));
  EXPECT_THAT(clients.defaultHeaders(), ::testing::Contains(std::pair<std::string, std::string>(
                                            "User-Agent", clients.QXNetworkingUserAgent())));
}

TEST(Multipart, NamesCannotBreakOutOfTheirQuotesOrLine) {
  const MultipartBody body =
      makeMultipartBody({{"a\"b\r\nX: y", data("v"), "c\"\n", "text/plain\r\nX: y"}}, "B");
  EXPECT_EQ(joined(body.pieces),
            "--B\r\nContent-Disposition: form-data; name=\"a%22b%0D%0AX: y\"; "
            "filename=\"c%22%0A\"\r\nContent-Type: text/plainX: y\r\n\r\nv\r\n--B--\r\n");
}

TEST(Multipart, PayloadIsNotCopied) {
  const Data image(std::string(1000, 'x'));
  const MultipartBody body = makeMultipartBody({{"img", image, {}, {}}}, "B");
  EXPECT_THAT(body.pieces, ::testing::Contains(::testing::Property(&Data::bytes, image.bytes())));
}

TEST(Multipart, FormWithoutPartsIsItsEnd) {
  EXPECT_EQ(joined(makeMultipartBody({}, "B").pieces), "--B--\r\n");
}

TEST(Multipart, BoundariesDiffer) {
  SystemRandom random;
  EXPECT_NE(makeBoundary(random), makeBoundary(random));
}

}  // namespace
}  // namespace qx
