#include "Classes/AWSDownloader.h"

#include <cstdint>
#include <ostream>

#include "unit/UploadFixture.h"

namespace qx {
namespace {

constexpr const char* kCacheDirectory = "/documents/com.qxuploader.download.cache";

class AWSDownloaderTest : public UploadFixture {
 protected:
  struct Completed {
    std::optional<Url> location;
    std::optional<Error> error;
    std::string queue;
    /// The number of events that had been tracked by then.
    std::size_t tracked = 0;
  };

  AWSDownloaderTest() {
    platform.objectStore.put("photos", "u/7/a.jpg", Data("image"));
    platform.objectStore.writeFilesWith([this](const std::string& path, const Data& bytes) {
      platform.files.put(path, std::string(bytes.text()));
      return true;
    });
  }

  void download(const std::string& url, const std::string& scope = "avatar") {
    library.downloader.download(
        url, scope,
        [this](double fraction) {
          fractions.push_back(fraction);
          progressQueues.push_back(platform.dispatch.currentQueueLabel());
        },
        [this](const std::optional<Url>& location, const std::optional<Error>& error) {
          completed.push_back({location, error, platform.dispatch.currentQueueLabel(),
                               platform.mediator.trackedEvents().size()});
        });
    run();
  }
  static Dictionary failureEvent(std::optional<std::string> name, std::optional<std::string> code,
                                 const std::string& message) {
    Dictionary event{{"status", "error"}, {"type", "download"}, {"message", message}};
    if (name) event["name"] = *name;
    if (code) event["code"] = *code;
    return event;
  }

  std::vector<Completed> completed;
  std::vector<double> fractions;
  std::vector<std::string> progressQueues;
};

// ---- cachePath

TEST_F(AWSDownloaderTest, CachePathCreatesTheDirectory) {
  const Url path = library.downloader.cachePath("a.jpg");
  EXPECT_EQ(path, Url::file(std::string(kCacheDirectory) + "/a.jpg"));
  EXPECT_EQ(platform.files.kind(kCacheDirectory), PathKind::directory);
}

TEST_F(AWSDownloaderTest, CachePathCreatesMissingParentsToo) {
  platform.files.setDocumentDirectories({"/home/someone/documents"});
  library.downloader.cachePath("a.jpg");
  EXPECT_EQ(platform.files.kind("/home/someone/documents/com.qxuploader.download.cache"),
            PathKind::directory);
}

TEST_F(AWSDownloaderTest, CachePathLeavesAnExistingDirectoryAlone) {
  library.downloader.cachePath("a.jpg");
  library.downloader.cachePath("b.jpg");
  EXPECT_EQ(platform.files.calls().size(), 1U);
}

TEST_F(AWSDownloaderTest, CachePathPrintsWhyTheDirectoryCannotBeMadeAndGoesOn) {
  platform.files.fail(MemoryFiles::Operation::createDirectory, kCacheDirectory);
  testing::internal::CaptureStdout();
  const Url path = library.downloader.cachePath("a.jpg");
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(path.decodedPath(), std::string(kCacheDirectory) + "/a.jpg");
  const auto error = platform.files.createDirectory(kCacheDirectory);
  ASSERT_TRUE(error);
  EXPECT_EQ(printed, error->description + "\n");
}

TEST_F(AWSDownloaderTest, CachePathOfAUnicodeNameDecodesToIt) {
  EXPECT_EQ(library.downloader.cachePath("a b%ü.jpg").decodedPath(),
            std::string(kCacheDirectory) + "/a b%ü.jpg");
}

// ---- download

TEST_F(AWSDownloaderTest, ObjectLandsInTheCacheAndIsReportedWithItsLocation) {
  platform.objectStore.answerOn(platform.dispatch.globalQueue());
  download("https://cdn.test/u/7/a.jpg");
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_EQ(completed[0].location, Url::file(std::string(kCacheDirectory) + "/a.jpg"));
  EXPECT_FALSE(completed[0].error);
  EXPECT_EQ(completed[0].queue, "global");
  EXPECT_EQ(completed[0].tracked, 1U);
  EXPECT_EQ(platform.files.text(std::string(kCacheDirectory) + "/a.jpg"), "image");
}

TEST_F(AWSDownloaderTest, TransferIsAskedForBucketKeyAndDestination) {
  download("https://cdn.test/u/7/a.jpg");
  const auto downloads = platform.objectStore.downloads();
  ASSERT_EQ(downloads.size(), 1U);
  EXPECT_EQ(downloads[0].utility, utilityKey());
  EXPECT_EQ(downloads[0].bucket, "photos");
  EXPECT_EQ(downloads[0].key, "u/7/a.jpg");
  EXPECT_EQ(downloads[0].location, Url::file(std::string(kCacheDirectory) + "/a.jpg").text());
}

TEST_F(AWSDownloaderTest, SuccessIsTrackedWithNameAndDuration) {
  platform.objectStore.hold();
  download("https://cdn.test/u/7/a.jpg");
  platform.clock.advance(2.5);
  platform.objectStore.release();
  run();
  EXPECT_EQ(platform.mediator.trackedEvents(),
            (std::vector<Dictionary>{
                {{"status", "success"}, {"type", "download"}, {"name", "a.jpg"}, {"time", 2.5}}}));
}

TEST_F(AWSDownloaderTest, ExistingCacheFileIsFetchedAgainAndReplaced) {
  platform.files.put(std::string(kCacheDirectory) + "/a.jpg", "old");
  download("https://cdn.test/u/7/a.jpg");
  EXPECT_EQ(platform.objectStore.downloads().size(), 1U);
  EXPECT_EQ(platform.files.text(std::string(kCacheDirectory) + "/a.jpg"), "image");
}

TEST_F(AWSDownloaderTest, CacheDirectoryThatCannotBeMadeDoesNotStopTheDownload) {
  platform.files.fail(MemoryFiles::Operation::createDirectory, kCacheDirectory);
  testing::internal::CaptureStdout();
  download("https://cdn.test/u/7/a.jpg");
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(platform.objectStore.downloads().size(), 1U);
  EXPECT_EQ(completed.size(), 1U);
}

struct KeyOfUrl {
  const char* url;
  const char* filename;
  friend std::ostream& operator<<(std::ostream& out, const KeyOfUrl& each) {
    return out << each.url;
  }
};

class DownloadUrl : public AWSDownloaderTest, public testing::WithParamInterface<KeyOfUrl> {};

TEST_P(DownloadUrl, GivesItsLastComponentAsNameAndKey) {
  download(GetParam().url);
  const auto downloads = platform.objectStore.downloads();
  ASSERT_EQ(downloads.size(), 1U);
  EXPECT_EQ(downloads[0].key, std::string("u/7/") + GetParam().filename);
  EXPECT_EQ(Url::parse(downloads[0].location)->decodedPath(),
            std::string(kCacheDirectory) + "/" + GetParam().filename);
  EXPECT_EQ(platform.mediator.trackedEvents().at(0).at("name"), Value(GetParam().filename));
}

INSTANTIATE_TEST_SUITE_P(Urls, DownloadUrl,
                         testing::Values(KeyOfUrl{"https://cdn.test/u/7/a.jpg", "a.jpg"},
                                         KeyOfUrl{"https://cdn.test/elsewhere/deep/a.jpg", "a.jpg"},
                                         KeyOfUrl{"https://cdn.test/a.jpg?x=/b.jpg", "a.jpg"},
                                         KeyOfUrl{"https://cdn.test/a.jpg#/b.jpg", "a.jpg"},
                                         KeyOfUrl{"https://cdn.test/a.jpg/", "a.jpg"},
                                         KeyOfUrl{"https://cdn.test/a%20b%25.jpg", "a b%.jpg"},
                                         KeyOfUrl{"https://cdn.test/%C3%BC.jpg", "ü.jpg"},
                                         KeyOfUrl{"https://cdn.test/ü.jpg", "ü.jpg"},
                                         KeyOfUrl{"https://cdn.test/a+b.jpg", "a+b.jpg"},
                                         KeyOfUrl{"https://cdn.test/...", "..."},
                                         KeyOfUrl{"a.jpg", "a.jpg"}));

class UnusableUrl : public AWSDownloaderTest, public testing::WithParamInterface<const char*> {};

TEST_P(UnusableUrl, IsTrackedWithoutNameAndNeverCompletes) {
  download(GetParam());
  EXPECT_EQ(
      platform.mediator.trackedEvents(),
      std::vector<Dictionary>{failureEvent(std::nullopt, std::nullopt, "[Error] not found url")});
  EXPECT_TRUE(completed.empty());
  EXPECT_TRUE(platform.messageClients.requests().empty());
  EXPECT_TRUE(platform.objectStore.downloads().empty());
  EXPECT_TRUE(platform.files.calls().empty());
}

INSTANTIATE_TEST_SUITE_P(Urls, UnusableUrl,
                         testing::Values("", " ", "https://cdn.test/a b.jpg", "http://[::1/a.jpg",
                                         "https://cdn.test/%zz.jpg", "https://cdn.test",
                                         "https://cdn.test/", "https://cdn.test?x=a.jpg",
                                         "https://cdn.test/u/.", "https://cdn.test/u/..",
                                         "https://cdn.test/u/%2E%2e",
                                         "https://cdn.test/u/..%2F..%2Fetc",
                                         "https://cdn.test/u/a%2Fb.jpg",
                                         "https://cdn.test/u/a%00.jpg", "https://cdn.test/%2f"));

TEST_F(AWSDownloaderTest, ConfigurationFailureCompletesFirstAndIsTrackedWithItsCode) {
  platform.mediator.signOut();
  download("https://cdn.test/u/7/a.jpg");
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_FALSE(completed[0].location);
  EXPECT_EQ(completed[0].error,
            (Error{"AWSUploaderError", 102, "[Error] miss userId or accessToken"}));
  EXPECT_EQ(completed[0].queue, "com.aws.get.config");
  EXPECT_EQ(completed[0].tracked, 0U);
  EXPECT_EQ(
      platform.mediator.trackedEvents(),
      std::vector<Dictionary>{failureEvent("a.jpg", "102", "[Error] miss userId or accessToken")});
}

TEST_F(AWSDownloaderTest, UnknownScopeIsAConfigurationFailure) {
  download("https://cdn.test/u/7/a.jpg", "cellar");
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_EQ(completed[0].error,
            (Error{"AWSUploaderError", 101, "[Error] not found config with key:cellar"}));
  EXPECT_EQ(platform.mediator.trackedEvents(),
            std::vector<Dictionary>{
                failureEvent("a.jpg", "101", "[Error] not found config with key:cellar")});
}

TEST_F(AWSDownloaderTest, ScopeWithoutTransferUtilityIsTrackedAndNeverCompletes) {
  platform.objectStore.refuseConfigurations();
  download("https://cdn.test/u/7/a.jpg");
  EXPECT_TRUE(completed.empty());
  EXPECT_EQ(platform.mediator.trackedEvents().back(),
            failureEvent("a.jpg", std::nullopt, "[Error] config s3 failed"));
  EXPECT_EQ(platform.files.kind(kCacheDirectory), PathKind::absent);
}

TEST_F(AWSDownloaderTest, TransferErrorIsTrackedAndThenGivenAsItIs) {
  platform.objectStore.failOnce(Error{"Transport", 28, "timed out"});
  download("https://cdn.test/u/7/a.jpg");
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_FALSE(completed[0].location);
  EXPECT_EQ(completed[0].error, (Error{"Transport", 28, "timed out"}));
  EXPECT_EQ(completed[0].tracked, 1U);
  EXPECT_EQ(platform.mediator.trackedEvents(),
            std::vector<Dictionary>{failureEvent("a.jpg", "28", "timed out")});
}

TEST_F(AWSDownloaderTest, TransferThatNeverStartsIsTrackedAndThenGivenAsItIs) {
  platform.objectStore.failAtOnce(Error{"ObjectStore", 4, "no such folder"});
  download("https://cdn.test/u/7/a.jpg");
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_FALSE(completed[0].location);
  EXPECT_EQ(completed[0].error, (Error{"ObjectStore", 4, "no such folder"}));
  EXPECT_EQ(completed[0].queue, "com.aws.get.config");
  EXPECT_EQ(completed[0].tracked, 1U);
  EXPECT_EQ(platform.mediator.trackedEvents(),
            std::vector<Dictionary>{failureEvent("a.jpg", "4", "no such folder")});
}

TEST_F(AWSDownloaderTest, ProgressComesAsAFractionOnTheMainQueue) {
  platform.objectStore.reportProgress({{0, 8}, {2, 8}, {8, 8}});
  download("https://cdn.test/u/7/a.jpg");
  EXPECT_EQ(fractions, (std::vector<double>{0, 0.25, 1}));
  EXPECT_EQ(progressQueues, (std::vector<std::string>{"main", "main", "main"}));
}

TEST_F(AWSDownloaderTest, ProgressOfAnUnknownTotalIsOne) {
  platform.objectStore.reportProgress({{5, 0}, {5, -1}, {1, 1}});
  download("https://cdn.test/u/7/a.jpg");
  EXPECT_EQ(fractions, (std::vector<double>{1, 1, 1}));
}

TEST_F(AWSDownloaderTest, EveryOutcomeIsFineWithoutCallbacks) {
  platform.objectStore.reportProgress({{1, 2}});
  const auto silent = [this](const std::string& scope) {
    library.downloader.download("https://cdn.test/a.jpg", scope, nullptr, nullptr);
    run();
  };
  silent("avatar");
  EXPECT_EQ(platform.dispatch.pendingCount(), 0U);
  silent("cellar");
  platform.objectStore.failOnce(Error{"ObjectStore", 2, "no"});
  silent("avatar");
  platform.objectStore.failAtOnce(Error{"ObjectStore", 2, "no"});
  silent("avatar");
  EXPECT_EQ(platform.mediator.trackedEvents().size(), 4U);
  for (const std::string& label : platform.dispatch.history()) EXPECT_NE(label, "main");
}

TEST_F(AWSDownloaderTest, FinishedDownloadLetsGoOfItsCallbacks) {
  const auto token = std::make_shared<int>(0);
  platform.objectStore.reportProgress({{1, 2}});
  library.downloader.download(
      "https://cdn.test/a.jpg", "avatar", [token](double) { ++*token; },
      [token](const auto&, const auto&) { ++*token; });
  run();
  EXPECT_EQ(*token, 2);
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(AWSDownloaderTest, TwoUrlsWithOneLastComponentShareTheCacheFile) {
  download("https://cdn.test/one/a.jpg");
  platform.objectStore.put("photos", "u/7/a.jpg", Data("newer"));
  download("https://cdn.test/two/a.jpg");
  ASSERT_EQ(completed.size(), 2U);
  EXPECT_EQ(completed[0].location, completed[1].location);
  EXPECT_EQ(platform.files.text(std::string(kCacheDirectory) + "/a.jpg"), "newer");
}

}  // namespace
}  // namespace qx
