// Downloads through the mediator, from the devstack's store.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "integration/TestHost.h"

namespace qx {
namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;

std::string cache(const TestHost& host) {
  return host.documents() + "/com.qxuploader.download.cache";
}

std::vector<std::string> cachedNames(const TestHost& host) {
  std::vector<std::string> names;
  if (!fs::exists(cache(host))) return names;
  for (const auto& entry : fs::directory_iterator(cache(host))) {
    names.push_back(entry.path().filename());
  }
  return names;
}

std::string nameOf(const std::string& url) {
  return url.substr(url.rfind('/') + 1);
}

TEST(Download, UploadedObjectComesBackByteIdenticalWithProgressOnTheMainQueue) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  std::string bytes;
  while (bytes.size() < std::size_t{5} << 20) bytes += std::to_string(bytes.size());
  const UploadOutcome uploaded = host.upload(Data(bytes));
  ASSERT_TRUE(uploaded.url);

  const DownloadOutcome downloaded = host.download(*uploaded.url);
  EXPECT_FALSE(downloaded.error);
  ASSERT_TRUE(downloaded.location);
  EXPECT_EQ(downloaded.location->decodedPath(), cache(host) + "/" + nameOf(*uploaded.url));
  EXPECT_TRUE(readFile(downloaded.location->decodedPath()) == bytes);
  ASSERT_FALSE(downloaded.progress.empty());
  EXPECT_TRUE(std::ranges::is_sorted(downloaded.progress));
  EXPECT_EQ(downloaded.progress.back(), 1.0);
  EXPECT_EQ(downloaded.progressThread, "main");
  EXPECT_THAT(cachedNames(host), ElementsAre(nameOf(*uploaded.url)));
}

TEST(Download, EarlierFileOfTheCacheIsReplaced) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  const UploadOutcome uploaded = host.upload(Data(std::string("the object")));
  ASSERT_TRUE(uploaded.url);
  fs::create_directories(cache(host));
  writeFile(cache(host) + "/" + nameOf(*uploaded.url), "an earlier and longer file");
  EXPECT_FALSE(host.download(*uploaded.url).error);
  EXPECT_EQ(readFile(cache(host) + "/" + nameOf(*uploaded.url)), "the object");
}

TEST(Download, UnicodeAndEncodedNamesRoundTrip) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  for (const char* suffix : {"\xC3\xA9t\xC3\xA9", "a b", "p%20c", "plus+and&"}) {
    const UploadOutcome uploaded = host.upload(Data(std::string("of ") + suffix), "avatar", suffix);
    ASSERT_TRUE(uploaded.url) << suffix;
    // The URL as an application has it: characters that a URL cannot hold are encoded.
    std::string url;
    for (const char c : *uploaded.url) {
      const bool plain = (c > ' ' && c != '%' && c < 0x7F) && c >= 0;
      char encoded[4];
      std::snprintf(encoded, sizeof encoded, "%%%02X", static_cast<unsigned char>(c));
      url += plain ? std::string(1, c) : encoded;
    }
    const DownloadOutcome downloaded = host.download(url);
    EXPECT_FALSE(downloaded.error) << downloaded.error->description;
    ASSERT_TRUE(downloaded.location) << suffix;
    EXPECT_THAT(downloaded.location->decodedPath(), EndsWith(nameOf(*uploaded.url)));
    EXPECT_EQ(readFile(downloaded.location->decodedPath()), std::string("of ") + suffix);
  }
}

/// The fault, and a part of the error text.
struct Fault {
  const char* file;
  const char* says;
};

class FailedDownload : public testing::TestWithParam<Fault> {};

TEST_P(FailedDownload, EndsInOneErrorAndLeavesTheEarlierFileAndNothingElse) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.transferTimeout = 2});
  host.setUp();
  const UploadOutcome uploaded = host.upload(Data(std::string(200000, 'x')));
  ASSERT_TRUE(uploaded.url);
  fs::create_directories(cache(host));
  writeFile(cache(host) + "/" + nameOf(*uploaded.url), "earlier");
  const int before = host.completions();

  devstack.fault(GetParam().file);
  const DownloadOutcome downloaded = host.download(*uploaded.url);
  EXPECT_GT(devstack.hits(GetParam().file), 0);
  devstack.clearFaults();
  EXPECT_FALSE(downloaded.location);
  ASSERT_TRUE(downloaded.error);
  EXPECT_THAT(downloaded.error->description, HasSubstr(GetParam().says));
  EXPECT_EQ(host.completions() - before, 1);
  EXPECT_THAT(cachedNames(host), ElementsAre(nameOf(*uploaded.url)));
  EXPECT_EQ(readFile(cache(host) + "/" + nameOf(*uploaded.url)), "earlier");

  // The store behaves again, so the next download succeeds.
  EXPECT_FALSE(host.download(*uploaded.url).error);
  EXPECT_EQ(readFile(cache(host) + "/" + nameOf(*uploaded.url)), std::string(200000, 'x'));
}

INSTANTIATE_TEST_SUITE_P(Faults, FailedDownload,
                         testing::Values(Fault{"store-truncated-download", ""},
                                         Fault{"store-stalled-download", "took too long"},
                                         Fault{"store-reset", ""}, Fault{"store-404", "404"},
                                         Fault{"store-503", "503"}));

TEST(Download, ObjectThatIsNotThereIsTheStoresError) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  const UploadOutcome uploaded = host.upload(Data(std::string("x")));
  ASSERT_TRUE(uploaded.url);
  const DownloadOutcome downloaded = host.download(*uploaded.url + ".not-there");
  ASSERT_TRUE(downloaded.error);
  EXPECT_EQ(downloaded.error->code, 2);
  // A store does not tell a client that may not list the bucket which object is missing.
  EXPECT_THAT(downloaded.error->description, HasSubstr("HTTP 40"));
  EXPECT_THAT(cachedNames(host), IsEmpty());
}

}  // namespace
}  // namespace qx
