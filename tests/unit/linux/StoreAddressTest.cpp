#include "s3/StoreAddress.h"

#include <gtest/gtest.h>

namespace qx {
namespace {

StoreEndpoint endpoint(std::string_view url) {
  return StoreEndpoint::parse(url).value();
}

TEST(StoreEndpoint, TakesSchemeHostAndPort) {
  EXPECT_EQ(endpoint("https://S3.example.com").authority(), "s3.example.com");
  EXPECT_EQ(endpoint("HTTPS://s3.example.com:443/").authority(), "s3.example.com");
  EXPECT_EQ(endpoint("http://127.0.0.1:8000").authority(), "127.0.0.1:8000");
  EXPECT_EQ(endpoint("http://[::1]:8000").authority(), "[::1]:8000");
  EXPECT_EQ(endpoint("http://store:80").authority(), "store");
}

TEST(StoreEndpoint, RefusesEverythingElse) {
  for (const char* url :
       {"", "store.example.com", "ftp://store", "https://", "https:///", "https://store/path",
        "https://user@store", "https://store:0", "https://store:65536", "https://store:x",
        "https://store:", "http://[::1", "http://[zz]", "http://st ore", "http://store?q",
        "http://store#f", "http://a..b", "http://st\r\nore"}) {
    EXPECT_FALSE(StoreEndpoint::parse(url)) << url;
  }
}

TEST(StoreEndpoint, RefusesANulInAnAddress) {
  using namespace std::string_view_literals;
  for (const std::string_view url : {"http://[::18\0]"sv, "http://[::1\0.example.com]:8000"sv,
                                     "http://[\0]"sv, "http://127.0.0.1\0"sv, "http://store\0"sv}) {
    EXPECT_FALSE(StoreEndpoint::parse(url)) << url;
  }
}

TEST(StoreAddress, BucketBecomesPartOfADnsHost) {
  EXPECT_EQ(addressOf(endpoint("https://s3.example.com"), "bucket", "a/b").url(),
            "https://bucket.s3.example.com/a/b");
  EXPECT_EQ(addressOf(endpoint("http://store.example.com:8080"), "dotted.bucket", "k").url(),
            "http://dotted.bucket.store.example.com:8080/k");
}

TEST(StoreAddress, BucketStaysInThePathAtAddressesAndLocalhost) {
  EXPECT_EQ(addressOf(endpoint("http://127.0.0.1:8000"), "bucket", "k").url(),
            "http://127.0.0.1:8000/bucket/k");
  EXPECT_EQ(addressOf(endpoint("https://[::1]"), "bucket", "k").url(), "https://[::1]/bucket/k");
  EXPECT_EQ(addressOf(endpoint("http://localhost:1"), "bucket", "k").url(),
            "http://localhost:1/bucket/k");
}

TEST(StoreAddress, BucketThatIsNoHostNamePartStaysInThePath) {
  const StoreEndpoint store = endpoint("https://s3.example.com");
  EXPECT_EQ(addressOf(store, "dotted.bucket", "k").url(), "https://s3.example.com/dotted.bucket/k");
  EXPECT_EQ(addressOf(store, "Upper", "k").url(), "https://s3.example.com/Upper/k");
  EXPECT_EQ(addressOf(store, "under_score", "k").url(), "https://s3.example.com/under_score/k");
  EXPECT_EQ(addressOf(store, "ab", "k").url(), "https://s3.example.com/ab/k");
  EXPECT_EQ(addressOf(store, "bad/../bucket", "k").url(),
            "https://s3.example.com/bad%2F..%2Fbucket/k");
  EXPECT_EQ(addressOf(endpoint("http://s3.example.com"), "10.0.0.1", "k").url(),
            "http://s3.example.com/10.0.0.1/k");
}

std::string redirected(std::string_view store, std::string_view target) {
  const StoreEndpoint from = endpoint(store);
  const auto address =
      redirectedAddress(from, addressOf(from, "bucket", "k"), "bucket", "k", target);
  return address ? address->url() : "refused";
}

TEST(StoreRedirect, StaysWithinTheStore) {
  constexpr std::string_view kStore = "https://s3.example.com";
  EXPECT_EQ(redirected(kStore, "/other/path"), "https://bucket.s3.example.com/k");
  EXPECT_EQ(redirected(kStore, "https://bucket.s3.example.com/k"),
            "https://bucket.s3.example.com/k");
  EXPECT_EQ(redirected(kStore, "https://s3.example.com/bucket/k"),
            "https://s3.example.com/bucket/k");
  EXPECT_EQ(redirected(kStore, "https://node1.s3.example.com/k?x"),
            "https://node1.s3.example.com/bucket/k");
  EXPECT_EQ(redirected(kStore, "https://bucket.s3.eu-west-1.example.com/k"),
            "https://bucket.s3.eu-west-1.example.com/k");
  EXPECT_EQ(redirected(kStore, "https://bucket.s3-eu-west-1.example.com"),
            "https://bucket.s3-eu-west-1.example.com/k");
  EXPECT_EQ(redirected(kStore, "https://s3.dualstack.ap-east-1.example.com/"),
            "https://s3.dualstack.ap-east-1.example.com/bucket/k");
}

TEST(StoreRedirect, BucketNamedLikeTheServiceIsNotTakenForAPartOfTheHost) {
  const StoreEndpoint from = endpoint("https://s3.example.com");
  const auto address = redirectedAddress(from, addressOf(from, "s3", "k"), "s3", "k",
                                         "https://s3.eu-west-1.example.com/s3/k");
  ASSERT_TRUE(address);
  EXPECT_EQ(address->url(), "https://s3.eu-west-1.example.com/s3/k");
}

TEST(StoreRedirect, NeverLeavesTheStore) {
  constexpr std::string_view kStore = "https://s3.example.com";
  for (const char* target :
       {"https://evil.com/", "https://s3.example.com.evil.com/", "https://evils3.example.com/",
        "https://other.example.com/", "https://example.com/", "https://s3.mars-1.example.com/",
        "https://s3-evil.elb.example.com/", "http://s3.example.com/",
        "https://s3.example.com:8443/", "https://s3.example.com@evil.com/", "//evil.com/",
        "ftp://s3.example.com/", "", "relative", "https://127.0.0.1/"}) {
    EXPECT_EQ(redirected(kStore, target), "refused") << target;
  }
}

TEST(StoreRedirect, AtAnAddressOnlyTheSameHostAndPortCount) {
  constexpr std::string_view kStore = "http://127.0.0.1:8000";
  EXPECT_EQ(redirected(kStore, "http://127.0.0.1:8000/x"), "http://127.0.0.1:8000/bucket/k");
  EXPECT_EQ(redirected(kStore, "http://127.0.0.1:8001/x"), "refused");
  EXPECT_EQ(redirected(kStore, "http://localhost:8000/x"), "refused");
  EXPECT_EQ(redirected(kStore, "http://127.0.0.2:8000/x"), "refused");
  EXPECT_EQ(redirected("http://localhost:8000", "http://bucket.localhost:8000/x"), "refused");
}

TEST(StoreRedirect, NeverGoesToAnotherPortOverTls) {
  EXPECT_EQ(redirected("https://s3.example.com:9000", "https://s3.example.com:9000/bucket/k"),
            "https://s3.example.com:9000/bucket/k");
  EXPECT_EQ(redirected("https://s3.example.com:9000", "https://s3.example.com/bucket/k"),
            "refused");
  EXPECT_EQ(redirected("https://127.0.0.1:9000", "https://127.0.0.1/bucket/k"), "refused");
}

TEST(StoreRedirect, MayGoFromHttpToHttps) {
  EXPECT_EQ(redirected("http://s3.example.com", "https://s3.example.com/bucket/k"),
            "https://s3.example.com/bucket/k");
  EXPECT_EQ(redirected("http://s3.example.com:8080", "https://s3.example.com:8443/"), "refused");
}

}  // namespace
}  // namespace qx
