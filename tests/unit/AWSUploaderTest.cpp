#include "Classes/AWSUploader.h"

#include <cstdint>
#include <limits>
#include <set>
#include <thread>

#include "Classes/ConfigParameters.h"
#include "Classes/TaskQueue.h"
#include "Classes/TaskScheduler.h"
#include "unit/UploadFixture.h"

namespace qx {
namespace {

class AWSUploaderTest : public UploadFixture {
 protected:
  struct Completed {
    std::optional<std::string> url;
    std::int64_t itemId = 0;
    std::optional<Error> error;
    /// The number of events that had been tracked by then.
    std::size_t tracked = 0;
  };
  UploadCompletion recorder() {
    return [this](const std::optional<std::string>& url, std::int64_t itemId,
                  const std::optional<Error>& error) {
      completed.push_back({url, itemId, error, platform.mediator.trackedEvents().size()});
    };
  }
  static std::shared_ptr<DataTask> dataTask(AWSParameterMap extra = {{"itemId", "42"}}) {
    return std::make_shared<DataTask>("a.jpg", "avatar", Data("bytes"), std::move(extra));
  }
  void upload(const UploadCompletion& complete) {
    library.uploader.createExecutor(dataTask(), nullptr, complete)->execute();
    run();
  }
  /// Applies the host's identity, as "Action_SetUp:" does.
  void setUp() {
    library.configure.full(ConfigParameters::readFromHost(platform.mediator));
    run();
  }

  std::vector<Completed> completed;
};

// ---- createExecutor

TEST_F(AWSUploaderTest, ExecutorIsNotStartedByItsCreation) {
  library.uploader.createExecutor(dataTask(), nullptr, recorder());
  run();
  EXPECT_TRUE(completed.empty());
  EXPECT_TRUE(platform.messageClients.requests().empty());
}

TEST_F(AWSUploaderTest, SuccessGivesUrlAndItemIdAfterItWasTracked) {
  upload(recorder());
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_EQ(completed[0].url, "https://cdn.test/u/7/a.jpg");
  EXPECT_EQ(completed[0].itemId, 42);
  EXPECT_FALSE(completed[0].error);
  EXPECT_EQ(completed[0].tracked, 1U);
  EXPECT_EQ(platform.mediator.trackedEvents().at(0),
            (Dictionary{{"status", "success"}, {"type", "upload"}, {"time", 0.0}}));
}

TEST_F(AWSUploaderTest, FailureGivesAnErrorObjectAfterItWasTracked) {
  platform.mediator.signOut();
  upload(recorder());
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_FALSE(completed[0].url);
  EXPECT_EQ(completed[0].itemId, 0);
  EXPECT_EQ(completed[0].error,
            (Error{"AWSUploaderError", 102, "[Error] miss userId or accessToken"}));
  EXPECT_EQ(completed[0].tracked, 1U);
  EXPECT_EQ(platform.mediator.trackedEvents().at(0),
            (Dictionary{{"code", "102"},
                        {"message", "[Error] miss userId or accessToken"},
                        {"status", "error"},
                        {"type", "upload"}}));
}

TEST_F(AWSUploaderTest, FailureDropsTheUrlThatTheExecutorGave) {
  platform.objectStore.failOnce(Error{"ObjectStore", 2, "AccessDenied"});
  upload(recorder());
  ASSERT_EQ(completed.size(), 1U);
  EXPECT_FALSE(completed[0].url);
  EXPECT_EQ(completed[0].error, (Error{"AWSUploaderError", 2, "AccessDenied"}));
}

TEST_F(AWSUploaderTest, TrackingSeesWhatTheUploadAddedToTheExtraValues) {
  library.uploader
      .createExecutor(dataTask({{"itemId", "42"}, {"itemType", "avatar"}, {"imageFrom", "1"}}),
                      nullptr, recorder())
      ->execute();
  run();
  const auto tagged = platform.trackingEvents.tagged();
  ASSERT_EQ(tagged.size(), 1U);
  EXPECT_EQ(tagged[0].itemId, 42);
  EXPECT_EQ(tagged[0].imageUrl, "https://cdn.test/u/7/a.jpg");
}

TEST_F(AWSUploaderTest, AbsentCompletionIsStillTracked) {
  upload(nullptr);
  platform.mediator.signOut();
  upload(nullptr);
  EXPECT_EQ(platform.mediator.trackedEvents().size(), 2U);
}

TEST_F(AWSUploaderTest, ProgressIsNeverReported) {
  bool reported = false;
  library.uploader
      .createExecutor(
          dataTask(), [&reported](const TransferProgress&) { reported = true; }, recorder())
      ->execute();
  run();
  EXPECT_EQ(completed.size(), 1U);
  EXPECT_FALSE(reported);
}

TEST_F(AWSUploaderTest, ExecutorHasNoUploadTimeAndAWorkerOfThirtySecondsWithoutHeaders) {
  library.configure.needServerResize = true;
  const auto executor = library.uploader.createExecutor(dataTask(), nullptr, recorder());
  EXPECT_FALSE(executor->uploadTime);
  executor->execute();
  run();
  const auto uploads = platform.uploadClients.uploads();
  ASSERT_EQ(uploads.size(), 1U);
  EXPECT_TRUE(uploads[0].managerHeaders.empty());
  EXPECT_EQ(uploads[0].timeoutForRequest, 30);
}

TEST_F(AWSUploaderTest, MadeExecutorHasTaskAndWorkerAndNoCompletion) {
  const auto task = dataTask();
  const auto executor = library.uploader.makeExecutor(task);
  EXPECT_EQ(executor->task, task);
  EXPECT_FALSE(executor->complete);
  EXPECT_FALSE(executor->uploadTime);
  EXPECT_NE(executor->uploadWorker, nullptr);
}

TEST_F(AWSUploaderTest, FinishedUploadLetsGoOfTheCompletion) {
  const auto token = std::make_shared<int>(0);
  upload([token](const auto&, std::int64_t, const auto&) { ++*token; });
  EXPECT_EQ(*token, 1);
  EXPECT_EQ(token.use_count(), 1);
}

TEST_F(AWSUploaderTest, NilCallbacksDoNothing) {
  NilComplete("url", 1, std::nullopt);
  NilComplete(std::nullopt, 0, Error{});
  NilProgress({1, 2});
  EXPECT_TRUE(platform.mediator.performed().empty());
}

// ---- File names

TEST_F(AWSUploaderTest, NameIsTimeRandomAndCountWithDashesForDots) {
  platform.clock.set(1'700'000'000.5);
  platform.random.push(42);
  library.uploader.generateFileCount = 7;
  EXPECT_EQ(library.uploader.generateFileName("jpg"), "1700000000-5427.jpg");
  EXPECT_EQ(library.uploader.generateFileCount, 8);
}

TEST_F(AWSUploaderTest, NameHoldsTheTimeInFull) {
  platform.clock.set(1'700'000'000.123456);
  platform.random.push(4821);
  library.uploader.generateFileCount = 7;
  EXPECT_EQ(library.uploader.generateFileName("jpg"), "1700000000-12345648217.jpg");
}

TEST_F(AWSUploaderTest, NameOfAWholeSecondKeepsItsZero) {
  platform.clock.set(1'700'000'000);
  platform.random.push(3);
  EXPECT_EQ(library.uploader.generateFileName("png"), "1700000000-030.png");
}

TEST_F(AWSUploaderTest, RandomPartIsTakenModuloTenThousandWithoutPadding) {
  platform.clock.set(1'700'000'000.5);
  platform.random.push(4294967295);
  platform.random.push(10000);
  platform.random.push(20007);
  EXPECT_EQ(library.uploader.generateFileName("a"), "1700000000-572950.a");
  EXPECT_EQ(library.uploader.generateFileName("a"), "1700000000-501.a");
  EXPECT_EQ(library.uploader.generateFileName("a"), "1700000000-572.a");
}

TEST_F(AWSUploaderTest, SuffixKeepsItsDots) {
  platform.clock.set(1'700'000'000.5);
  platform.random.push(1);
  EXPECT_EQ(library.uploader.generateFileName("tar.gz"), "1700000000-510.tar.gz");
}

TEST_F(AWSUploaderTest, EmptySuffixLeavesTheDot) {
  platform.clock.set(1'700'000'000.5);
  platform.random.push(1);
  EXPECT_EQ(library.uploader.generateFileName(""), "1700000000-510.");
}

TEST_F(AWSUploaderTest, NamesOfOneTickDifferByTheCountAlone) {
  platform.random.push(5);
  platform.random.push(5);
  EXPECT_NE(library.uploader.generateFileName("jpg"), library.uploader.generateFileName("jpg"));
}

TEST_F(AWSUploaderTest, NamesMadeOnTwoThreadsInOneTickDiffer) {
  constexpr int kNames = 1000;
  for (int i = 0; i < 2 * kNames; ++i) platform.random.push(5);
  std::vector<std::string> first(kNames);
  std::vector<std::string> second(kNames);
  const auto fill = [this](std::vector<std::string>& names) {
    for (std::string& name : names) name = library.uploader.generateFileName("jpg");
  };
  std::thread other(fill, std::ref(first));
  fill(second);
  other.join();
  std::set<std::string> all(first.begin(), first.end());
  all.insert(second.begin(), second.end());
  EXPECT_EQ(all.size(), 2U * kNames);
  EXPECT_EQ(library.uploader.generateFileCount, 2 * kNames);
}

TEST_F(AWSUploaderTest, CountThatOverflowsStopsTheProcess) {
  library.uploader.generateFileCount = std::numeric_limits<std::int64_t>::max();
  EXPECT_DEATH(library.uploader.generateFileName("jpg"), "QXAwsUploader: fatal: ");
}

// ---- backgroundUpload

TEST_F(AWSUploaderTest, BackgroundUploadWithoutASchedulerOnlyCounts) {
  library.uploader.backgroundUpload(Data("bytes"), "jpg", {}, "avatar");
  run();
  EXPECT_EQ(library.uploader.generateFileCount, 1);
  EXPECT_TRUE(platform.files.paths().empty());
  EXPECT_EQ(platform.uploadClients.made(), 0U);
  EXPECT_TRUE(platform.messageClients.requests().empty());
  EXPECT_TRUE(platform.mediator.trackedEvents().empty());
  EXPECT_EQ(library.taskQueue->total(), 0);
}

TEST_F(AWSUploaderTest, BackgroundUploadStoresRunsAndReports) {
  std::vector<std::string> scopes;
  std::vector<std::optional<std::string>> urls;
  std::vector<AWSParameterMap> extras;
  library.configure.backgroundUploadCallback.store(
      [&](const std::string& scope, const std::optional<std::string>& url,
          const AWSParameterMap& extra, const std::optional<Error>& error) {
        EXPECT_FALSE(error);
        scopes.push_back(scope);
        urls.push_back(url);
        extras.push_back(extra);
      });
  setUp();
  platform.clock.set(1'700'000'000.5);
  platform.random.push(42);
  platform.objectStore.hold();
  library.uploader.backgroundUpload(Data("bytes"), "jpg", {{"itemId", "9"}}, "avatar");
  EXPECT_EQ(platform.files.text("/documents/aws-0011/123456/1700000000-5420.jpg"), "bytes");
  run();
  platform.objectStore.release();
  run();
  EXPECT_EQ(platform.objectStore.object("photos", "u/7/1700000000-5420.jpg"), Data("bytes"));
  EXPECT_EQ(scopes, std::vector<std::string>{"avatar"});
  EXPECT_EQ(urls,
            std::vector<std::optional<std::string>>{"https://cdn.test/u/7/1700000000-5420.jpg"});
  ASSERT_EQ(extras.size(), 1U);
  EXPECT_EQ(extras[0].at("itemId"), AWSBasicParameter(std::int64_t{9}));
  ASSERT_EQ(platform.mediator.trackedEvents().size(), 1U);
  EXPECT_EQ(platform.mediator.trackedEvents()[0].at("type"), Value("background_upload"));
  EXPECT_FALSE(platform.files.text("/documents/aws-0011/123456/1700000000-5420.jpg"));
  EXPECT_TRUE(library.taskQueue->idle());
}

TEST_F(AWSUploaderTest, BackgroundUploadThatCannotBeStoredRunsFromMemory) {
  std::vector<std::optional<std::string>> urls;
  library.configure.backgroundUploadCallback.store(
      [&urls](const auto&, const std::optional<std::string>& url, const auto&, const auto&) {
        urls.push_back(url);
      });
  setUp();
  platform.files.failAll(MemoryFiles::Operation::write);
  platform.clock.set(1'700'000'000.5);
  platform.random.push(1);
  TracedBytes bytes("bytes");
  library.uploader.backgroundUpload(bytes.give(), "jpg", {}, "avatar");
  run();
  ASSERT_EQ(platform.objectStore.uploads().size(), 1U);
  EXPECT_EQ(platform.objectStore.uploads()[0].data.bytes(), bytes.place);
  EXPECT_EQ(urls,
            std::vector<std::optional<std::string>>{"https://cdn.test/u/7/1700000000-510.jpg"});
}

TEST_F(AWSUploaderTest, BackgroundUploadsWaitForTheNetwork) {
  setUp();
  platform.reachability.setReachable(false);
  library.uploader.backgroundUpload(Data("bytes"), "jpg", {}, "avatar");
  run();
  EXPECT_TRUE(platform.objectStore.uploads().empty());
  EXPECT_EQ(library.taskQueue->waitingCount(), 1U);
  platform.reachability.setReachable(true);
  run();
  EXPECT_EQ(platform.objectStore.uploads().size(), 1U);
}

TEST_F(AWSUploaderTest, StoredBackgroundUploadLetsGoOfItsBytes) {
  setUp();
  platform.reachability.setReachable(false);
  TracedBytes bytes("bytes");
  library.uploader.backgroundUpload(bytes.give(), "jpg", {}, "avatar");
  EXPECT_TRUE(bytes.alive.expired());
}

// ---- documentPath

TEST_F(AWSUploaderTest, DocumentPathIsTheFirstDirectory) {
  platform.files.setDocumentDirectories({"/first", "/second"});
  EXPECT_EQ(documentPath(platform.files), "/first");
}

TEST_F(AWSUploaderTest, DocumentPathIsEmptyWithoutADirectory) {
  platform.files.setDocumentDirectories({});
  EXPECT_EQ(documentPath(platform.files), "");
}

}  // namespace
}  // namespace qx
