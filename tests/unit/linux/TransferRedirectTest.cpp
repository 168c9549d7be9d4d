// The destination of a transfer when the store redirects it. A proxy sees the requests to hosts
// that do not exist.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <future>
#include <string>
#include <vector>

#include "s3/StoreAddress.h"
#include "unit/linux/ScriptedServer.h"
#include "unit/linux/TlsServer.h"
#include "unit/linux/TransferFixture.h"

namespace qx {
namespace {

using ::testing::HasSubstr;
using ::testing::SizeIs;
using ::testing::StartsWith;

class TransferRedirectTest : public TransferFixture {
 protected:
  static std::string body(const std::string& endpoint) {
    return "<Error><Code>PermanentRedirect</Code><Bucket>bucket</Bucket><Endpoint>" + endpoint +
           "</Endpoint></Error>";
  }
  /// An answer without a Location that names the bucket's own endpoint.
  static Turn elsewhere(const std::string& endpoint, const std::string& headers = "") {
    return answerWith(301, body(endpoint), headers);
  }
  std::optional<Error> uploadThrough(const ScriptedServer& proxy) {
    return TransferFixture::uploadThrough(proxy, "http://s3.amazonaws.com", "bucket");
  }
};

TEST_F(TransferRedirectTest, EndpointElementOfTheStoreIsFollowedAndSignedAnew) {
  ScriptedServer proxy(
      {elsewhere("bucket.s3.eu-west-3.amazonaws.com", "x-amz-bucket-region: eu-west-3\r\n"),
       Turn()});
  EXPECT_EQ(uploadThrough(proxy), std::nullopt);
  ASSERT_THAT(proxy.requests(), SizeIs(2));
  const SeenRequest request = proxy.requests()[1];
  EXPECT_EQ(request.method, "PUT");
  EXPECT_EQ(request.target, "http://bucket.s3.eu-west-3.amazonaws.com/a%20b");
  EXPECT_EQ(request.headers.at("host"), "bucket.s3.eu-west-3.amazonaws.com");
  EXPECT_EQ(request.body, "payload");
  EXPECT_THAT(request.headers.at("authorization"), HasSubstr("/20261121/eu-west-3/s3/"));
  EXPECT_NE(request.headers.at("authorization"), proxy.requests()[0].headers.at("authorization"));
}

TEST_F(TransferRedirectTest, EndpointElementWithoutTheBucketGetsItInThePath) {
  ScriptedServer proxy({elsewhere("s3.eu-west-3.amazonaws.com"), Turn()});
  EXPECT_EQ(uploadThrough(proxy), std::nullopt);
  ASSERT_THAT(proxy.requests(), SizeIs(2));
  EXPECT_EQ(proxy.requests()[1].target, "http://s3.eu-west-3.amazonaws.com/bucket/a%20b");
}

TEST_F(TransferRedirectTest, EndpointElementOfAnotherStoreIsNotFollowed) {
  for (const char* host : {"evil.example", "s3.amazonaws.com.evil.example", "s3.amazonaws.com:8080",
                           "s3.amazonaws.com@evil.example", "127.0.0.1"}) {
    ScriptedServer proxy({elsewhere(host), Turn()});
    const auto error = uploadThrough(proxy);
    ASSERT_TRUE(error) << host;
    EXPECT_EQ(error->code, 1) << host;
    EXPECT_THAT(proxy.requests(), SizeIs(1)) << host;
  }
}

TEST_F(TransferRedirectTest, LocationWinsOverTheEndpointElement) {
  ScriptedServer proxy({elsewhere("bucket.s3.eu-west-3.amazonaws.com",
                                  "Location: http://bucket.s3.eu-west-1.amazonaws.com/a%20b\r\n"),
                        Turn()});
  EXPECT_EQ(uploadThrough(proxy), std::nullopt);
  ASSERT_THAT(proxy.requests(), SizeIs(2));
  EXPECT_EQ(proxy.requests()[1].target, "http://bucket.s3.eu-west-1.amazonaws.com/a%20b");
}

TEST_F(TransferRedirectTest, EndpointElementIsReachedByTlsWhereTheStoreWas) {
  const TestAuthority authority;
  std::ofstream(path("ca.pem")) << authority.pem();
  TlsServer server(authority.issue("DNS:localhost"));
  const std::string text = body(server.url().substr(std::string("https://").size()));
  server.setFirstAnswer("HTTP/1.1 301 Moved\r\nContent-Length: " + std::to_string(text.size()) +
                        "\r\n\r\n" + text);
  HttpEngineSettings settings;
  settings.caFile = path("ca.pem");
  HttpEngine engine(settings);
  S3ObjectStore store({engine, digests_, files_, dispatch_.globalQueue(), clock_}, server.url());
  store.registerS3TransferUtility(
      store
          .makeServiceConfiguration(AWSRegionType{25}, "eu-north-1", {server.url()},
                                    {"AKID", "secret", "token"})
          .value(),
      "tls");
  std::promise<std::optional<Error>> promise;
  store.S3TransferUtilityForKey("tls")->uploadData(
      Data(std::string("payload")), "bucket", "a b", "", {},
      [&](const auto& error) { promise.set_value(error); });
  EXPECT_EQ(promise.get_future().get(), std::nullopt);
  ASSERT_THAT(server.requests(), SizeIs(2));
  EXPECT_THAT(server.requests()[1], StartsWith("PUT /bucket/a%20b HTTP/1.1\r\n"));
}

// ---- Addresses

TEST(TransferRedirectAddress, NeverComesBackFromTlsThatARedirectHasLedTo) {
  const auto store = StoreEndpoint::parse("http://s3.example.com");
  ASSERT_TRUE(store);
  const auto upgraded = redirectedAddress(*store, addressOf(*store, "bucket", "k"), "bucket", "k",
                                          "https://s3.example.com/bucket/k");
  ASSERT_TRUE(upgraded);
  ASSERT_EQ(upgraded->scheme, "https");
  for (const char* target : {"http://s3.example.com/bucket/k", "http://bucket.s3.example.com/k",
                             "HTTP://s3.example.com", "http://s3.eu-west-1.example.com/bucket/k"}) {
    EXPECT_FALSE(redirectedAddress(*store, *upgraded, "bucket", "k", target)) << target;
  }
  const auto within = redirectedAddress(*store, *upgraded, "bucket", "k",
                                        "https://s3.eu-west-1.example.com/bucket/k");
  ASSERT_TRUE(within);
  EXPECT_EQ(within->url(), "https://s3.eu-west-1.example.com/bucket/k");
}

}  // namespace
}  // namespace qx
