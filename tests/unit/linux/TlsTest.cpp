// TLS of the HTTP engine and the transfer utility.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "fakes/FakeClock.h"
#include "platforms/shared/HttpEngine.h"
#include "platforms/shared/OpenSslDigests.h"
#include "platforms/shared/PosixDispatch.h"
#include "platforms/shared/PosixPartFiles.h"
#include "platforms/shared/SystemClock.h"
#include "s3/S3ObjectStore.h"
#include "unit/linux/TlsServer.h"

namespace qx {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

/// libcurl's code for "peer failed verification".
constexpr std::int64_t kRefusedCertificate = kTransportErrorBase + 60;

class TlsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string name = ::testing::TempDir() + "qx-tls-XXXXXX";
    ASSERT_NE(::mkdtemp(name.data()), nullptr);
    folder_ = name;
    std::ofstream(folder_ + "/ca.pem") << authority_.pem();
  }
  void TearDown() override { std::filesystem::remove_all(folder_); }

  HttpEngineSettings trusting() const { return {folder_ + "/ca.pem", std::nullopt, std::nullopt}; }

  static HttpAnswer exchange(const HttpEngineSettings& settings, const std::string& url) {
    HttpEngine engine(settings);
    HttpRequest request;
    request.method = "POST";
    request.url = url;
    request.headers = {{"ACCESS-TOKEN", "the-token"}};
    request.body.emplace_back(std::string("the-body"));
    std::promise<HttpAnswer> promise;
    engine.send(std::move(request),
                [&](HttpAnswer answer) { promise.set_value(std::move(answer)); });
    return promise.get_future().get();
  }

  std::optional<Error> upload(const std::string& endpoint) {
    FakeClock clock{1795219560};
    PosixDispatch dispatch;
    HttpEngine engine(trusting());
    OpenSslDigests digests;
    PosixPartFiles files;
    S3ObjectStore store({engine, digests, files, dispatch.globalQueue(), clock},
                        "https://store.example");
    auto configuration = store.makeServiceConfiguration(AWSRegionType{1}, "us-east-1", {endpoint},
                                                        {"AKID", "secret", "token"});
    configuration->maxRetryCount = 1;
    store.registerS3TransferUtility(*configuration, "key");
    std::promise<std::optional<Error>> promise;
    store.S3TransferUtilityForKey("key")->uploadData(
        Data(std::string("payload")), "bucket", "k", "", {},
        [&](const auto& error) { promise.set_value(error); });
    return promise.get_future().get();
  }

  const TestAuthority authority_;
  std::string folder_;
};

TEST_F(TlsTest, CertificateOfTheNamedAuthorityIsTrusted) {
  TlsServer server(authority_.issue("DNS:localhost"));
  const HttpAnswer answer = exchange(trusting(), server.url() + "/path");
  EXPECT_EQ(answer.error, std::nullopt);
  EXPECT_EQ(answer.status, 200);
  ASSERT_EQ(server.requests().size(), 1u);
  EXPECT_THAT(server.requests()[0], StartsWith("POST /path HTTP/1.1\r\n"));
  EXPECT_THAT(server.requests()[0], HasSubstr("the-body"));
}

void expectRefused(const HttpAnswer& answer, const TlsServer& server) {
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->domain, "Transport");
  EXPECT_EQ(answer.error->code, kRefusedCertificate);
  EXPECT_THAT(answer.error->description, Not(HasSubstr("the-token")));
  // Another attempt would get the same certificate.
  EXPECT_EQ(answer.failure, HttpFailure::other);
  EXPECT_GE(server.handshakes(), 1);
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(TlsTest, CertificateForAnotherNameIsRefusedAndNothingSent) {
  TlsServer server(authority_.issue("DNS:other.example"));
  expectRefused(exchange(trusting(), server.url() + "/"), server);
}

TEST_F(TlsTest, CertificateOfAnUnknownAuthorityIsRefusedAndNothingSent) {
  const TestAuthority stranger("Another authority");
  TlsServer server(stranger.issue("DNS:localhost"));
  expectRefused(exchange(trusting(), server.url() + "/"), server);
}

TEST_F(TlsTest, SystemStoreDoesNotTrustTheTestsAuthority) {
  TlsServer server(authority_.issue("DNS:localhost"));
  expectRefused(exchange({}, server.url() + "/"), server);
}

TEST_F(TlsTest, ExpiredCertificateIsRefusedAndNothingSent) {
  TlsServer server(authority_.issue("DNS:localhost", -60));
  expectRefused(exchange(trusting(), server.url() + "/"), server);
}

TEST_F(TlsTest, MissingCaFileIsAnErrorAndNothingSent) {
  TlsServer server(authority_.issue("DNS:localhost"));
  const HttpAnswer answer =
      exchange({folder_ + "/none.pem", std::nullopt, std::nullopt}, server.url() + "/");
  ASSERT_TRUE(answer.error);
  EXPECT_EQ(answer.error->domain, "Transport");
  EXPECT_THAT(server.requests(), IsEmpty());
}

TEST_F(TlsTest, PayloadGoesUnsignedAndTheTokenSigned) {
  TlsServer server(authority_.issue("DNS:localhost"));
  EXPECT_EQ(upload(server.url()), std::nullopt);
  ASSERT_EQ(server.requests().size(), 1u);
  const std::string request = server.requests()[0];
  EXPECT_THAT(request, StartsWith("PUT /bucket/k HTTP/1.1\r\n"));
  EXPECT_THAT(request, HasSubstr("\r\nx-amz-content-sha256: UNSIGNED-PAYLOAD\r\n"));
  EXPECT_THAT(request, HasSubstr("\r\nx-amz-security-token: token\r\n"));
  EXPECT_THAT(request, HasSubstr("SignedHeaders=host;x-amz-content-sha256;x-amz-date;"
                                 "x-amz-security-token, "));
}

TEST_F(TlsTest, UploadToAWrongCertificateIsOneTransportErrorWithoutAnotherAttempt) {
  TlsServer server(authority_.issue("DNS:other.example"));
  const auto error = upload(server.url());
  ASSERT_TRUE(error);
  EXPECT_EQ(error->domain, "Transport");
  EXPECT_EQ(error->code, kRefusedCertificate);
  EXPECT_EQ(server.handshakes(), 1);
  EXPECT_THAT(server.requests(), IsEmpty());
}

}  // namespace
}  // namespace qx
