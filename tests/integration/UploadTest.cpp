// Direct uploads through the mediator and the real platform to the devstack's store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <string>

#include "integration/TestHost.h"

namespace qx {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

std::string randomBytes(std::size_t size) {
  std::string bytes(size, '\0');
  unsigned state = 12345;
  for (char& byte : bytes) {
    state = state * 1664525 + 1013904223;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

std::string contractImage(const std::string& name) {
  return readFile(QX_SOURCE_DIR "/tests/contract/data/" + name);
}

TEST(DirectUpload, ObjectArrivesByteIdenticalAndIsReportedOnTheMainQueue) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  const std::string bytes = randomBytes(300'000);
  const UploadOutcome outcome = host.upload(Data(bytes), "avatar", "jpg");
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  EXPECT_EQ(outcome.thread, "main");
  EXPECT_EQ(outcome.itemId, 7000000001);
  const std::string key = host.keyOf(*outcome.url);
  EXPECT_THAT(key, StartsWith("avatars/" + devstack.user(0).userId + "/"));
  EXPECT_THAT(key, testing::EndsWith(".jpg"));
  const Devstack::Object object = devstack.object(key);
  EXPECT_TRUE(object.bytes == bytes);
}

TEST(DirectUpload, ItemIdOfTheHostComesBack) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  const UploadOutcome outcome = host.upload(Data("x"), "avatar", "txt", {{"itemId", "42"}});
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  EXPECT_EQ(outcome.itemId, 42);
}

TEST(DirectUpload, EmptyBufferIsUploaded) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  const UploadOutcome outcome = host.upload(Data());
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  EXPECT_EQ(devstack.object(host.keyOf(*outcome.url)).bytes, "");
}

TEST(DirectUpload, LargeObjectWithExpectArrivesByteIdentical) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  const std::string bytes = randomBytes(24 << 20);
  const UploadOutcome outcome = host.upload(Data(bytes));
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  EXPECT_TRUE(devstack.object(host.keyOf(*outcome.url)).bytes == bytes);
}

TEST(DirectUpload, SuffixesWithAwkwardCharactersRoundTrip) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  for (const char* suffix :
       {"tar.gz", "a b", "a+b", "a%2Fb", "a=b&c", "(1)", "\xC3\xA4\xE2\x82\xAC", "a/b", "a//b",
        "x/./y", "x/../y", "a?b#c", "a:b;c,d", "~'!*\"<>|"}) {
    SCOPED_TRACE(suffix);
    const std::string bytes = std::string("bytes of ") + suffix;
    const UploadOutcome outcome = host.upload(Data(bytes), "avatar", suffix);
    ASSERT_FALSE(outcome.error) << outcome.error->description;
    const std::string key = host.keyOf(*outcome.url);
    EXPECT_THAT(key, testing::EndsWith(std::string(".") + suffix));
    EXPECT_EQ(devstack.object(key).bytes, bytes);
  }
}

TEST(DirectUpload, KeyOf1024BytesRoundTrips) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  const UploadOutcome probe = host.upload(Data("x"), "avatar", "");
  ASSERT_FALSE(probe.error) << probe.error->description;
  // The counter and the random number may have a digit more or less next time.
  const std::size_t room = 1024 - host.keyOf(*probe.url).size() - 4;
  const UploadOutcome outcome = host.upload(Data("long"), "avatar", std::string(room, 'k'));
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  EXPECT_GE(host.keyOf(*outcome.url).size(), 1016U);
  EXPECT_EQ(devstack.object(host.keyOf(*outcome.url)).bytes, "long");
}

TEST(DirectUpload, UploadsAtOnceGetDifferentNamesFromOneFetch) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  std::vector<Data> payloads;
  for (int i = 0; i < 40; ++i) payloads.emplace_back("payload " + std::to_string(i));
  const std::vector<UploadOutcome> outcomes = host.uploadAll(payloads);
  std::set<std::string> urls;
  for (std::size_t i = 0; i < outcomes.size(); ++i) {
    ASSERT_FALSE(outcomes[i].error) << outcomes[i].error->description;
    urls.insert(*outcomes[i].url);
  }
  EXPECT_EQ(urls.size(), 40U);
  EXPECT_EQ(devstack.object(host.keyOf(*outcomes[17].url)).bytes, "payload 17");
  int fetches = 0;
  for (const auto& event : devstack.events()) {
    if (event.at("path") == "/v3/storage/get_upload_config") ++fetches;
  }
  EXPECT_EQ(fetches, 1);
}

TEST(DirectUpload, ServerRouteStoresAnUprightWebPOfAtMost1024Pixels) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.needServerResize = true});
  host.setUp();
  const std::string image = contractImage("jpeg-orientation-6-30x40.jpg");
  const UploadOutcome outcome = host.upload(Data(image), "item-image", "jpg");
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  const std::string key = host.keyOf(*outcome.url);
  EXPECT_THAT(key, testing::EndsWith(".webp"));
  const Devstack::Object object = devstack.object(key);
  EXPECT_EQ(object.contentType, "image/webp");
  const auto size = devstack.imageSize(object.bytes);
  EXPECT_EQ(size.at("format"), "webp");
  // The image is stored lying on its side and shown upright.
  EXPECT_EQ(size.at("width"), 30);
  EXPECT_EQ(size.at("height"), 40);
}

TEST(DirectUpload, ReportsOneTrackingEventPerOutcome) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  host.upload(Data("x"));
  host.upload(Data("x"), "no-such-scope");
  const std::vector<Dictionary> events = host.trackingEvents();
  ASSERT_EQ(events.size(), 2U);
  EXPECT_EQ(readText(events[0], "status"), "success");
  EXPECT_EQ(readText(events[0], "type"), "upload");
  ASSERT_NE(events[0].find("time"), events[0].end());
  EXPECT_GT(*events[0].at("time").asDouble(), 0);
  EXPECT_EQ(readText(events[1], "status"), "error");
  EXPECT_EQ(readText(events[1], "code"), "101");
  EXPECT_EQ(readText(events[1], "message"), "[Error] not found config with key:no-such-scope");
}

TEST(DirectUpload, PayloadGoesUnsignedOverVerifiedTls) {
  Devstack devstack;
  TestHost& host = TestHost::start(
      devstack, {.storeEndpoint = devstack.url("storeTls"), .caFile = devstack.url("caFile")});
  host.setUp();
  const UploadOutcome outcome = host.upload(Data("over TLS"));
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  EXPECT_EQ(devstack.object(host.keyOf(*outcome.url)).bytes, "over TLS");
}

TEST(DirectUpload, CredentialsThatExpireBetweenUploadsAreFetchedAnew) {
  Devstack devstack;
  devstack.credentialLifetime(5);
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  const auto begin = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  };
  int uploads = 0;
  bool lastSucceeded = false;
  // Uploads one after the other until well after the first expiry.
  while (elapsed() < 7) {
    const UploadOutcome outcome = host.upload(Data(randomBytes(1000)));
    lastSucceeded = !outcome.error;
    if (lastSucceeded) {
      ++uploads;
      continue;
    }
    // The library uses a credential until the instant of its expiry, so that an upload that leaves
    // just before may reach the store just after. Such an upload is refused, and the next one has a
    // new credential.
    EXPECT_EQ(outcome.error->code, 2) << outcome.error->description;
    EXPECT_GT(elapsed(), 3.5);
    EXPECT_LT(elapsed(), 6.5);
  }
  EXPECT_TRUE(lastSucceeded);
  EXPECT_GT(uploads, 10);
  int fetches = 0;
  for (const auto& event : devstack.events()) {
    if (event.at("path") == "/v3/storage/get_upload_config") ++fetches;
  }
  EXPECT_EQ(fetches, 2);
}

}  // namespace
}  // namespace qx
