#include "Classes/TaskScheduler.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Classes/TaskQueue.h"
#include "unit/TaskSchedulerFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Operation = MemoryFiles::Operation;

TEST_F(TaskSchedulerTest, NewSchedulerEmptiesTheSharedQueueAndOpensTheDirectory) {
  const auto& queue = library.taskQueue;
  for (int i = 0; i < 8; ++i) queue->add(dataExecutor(std::to_string(i)));
  queue->start();
  ASSERT_EQ(queue->concurrentCount(), 6);
  const auto scheduler = library.makeScheduler("u1");
  EXPECT_TRUE(queue->idle());
  EXPECT_EQ(queue->total(), 0);
  EXPECT_EQ(platform.files.kind(kDirectory), PathKind::directory);
  EXPECT_EQ(&scheduler->taskQueue(), queue.get());
}

TEST_F(TaskSchedulerTest, UploadRunsFromTheStoredFileAndSuccessDeletesFileAndEntry) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  const auto scheduler = library.makeScheduler("u1");
  const auto given = dataExecutor("a.jpg", {{"itemId", "42"}});
  platform.reachability.setReachable(false);
  scheduler->add(given);
  EXPECT_EQ(platform.files.text(kDirectory + "/a.jpg"), "bytes");
  EXPECT_EQ(loggedCount("a.jpg"), 0);
  // The stored file is uploaded, not the bytes that the given executor holds.
  platform.files.put(kDirectory + "/a.jpg", "stored bytes");
  platform.reachability.setReachable(true);
  run();

  ASSERT_THAT(platform.objectStore.uploads(), SizeIs(1));
  EXPECT_EQ(platform.objectStore.uploads()[0].key, "u/7/a.jpg");
  EXPECT_EQ(platform.objectStore.uploads()[0].data.text(), "stored bytes");
  EXPECT_FALSE(platform.files.text(kDirectory + "/a.jpg"));
  EXPECT_EQ(loggedCount("a.jpg"), std::nullopt);
  ASSERT_THAT(reports, SizeIs(2));
  EXPECT_EQ(reports[0].callback, "host");
  EXPECT_EQ(reports[1].callback, "item");
  for (const Report& report : reports) {
    EXPECT_EQ(report.scope, "avatar");
    EXPECT_EQ(report.url, "https://cdn.test/u/7/a.jpg");
    EXPECT_EQ(report.extra, (AWSParameterMap{{"imageUrl", "https://cdn.test/u/7/a.jpg"},
                                             {"itemId", std::int64_t{42}}}));
    EXPECT_FALSE(report.error);
  }
  EXPECT_TRUE(library.taskQueue->idle());
}

TEST_F(TaskSchedulerTest, GivenExecutorIsReplacedByOneOverTheStoredFile) {
  const auto scheduler = library.makeScheduler("u1");
  const auto given = dataExecutor("a.jpg", {{"ratio", 2.0}});
  const auto queued = scheduler->syncLocl(given);
  EXPECT_NE(queued, given);
  EXPECT_TRUE(queued->task->hasPath());
  EXPECT_EQ(queued->task->filename(), "a.jpg");
  EXPECT_EQ(queued->task->scope(), "avatar");
  EXPECT_EQ(queued->task->extra(), (AWSParameterMap{{"ratio", 2.0}}));
  EXPECT_EQ(queued->uploadTime, std::nullopt);
  EXPECT_TRUE(queued->uploadWorker);
}

TEST_F(TaskSchedulerTest, GivenCompletionIsKeptBehindTheStorage) {
  const auto scheduler = library.makeScheduler("u1");
  const auto given = dataExecutor("a.jpg");
  int calls = 0;
  given->complete = [&](const auto&, const std::optional<std::string>& url,
                        const AWSCallbackStatus& status, std::int64_t itemId) {
    ++calls;
    EXPECT_EQ(url, "https://cdn.test/x");
    EXPECT_TRUE(status.succeeded());
    EXPECT_EQ(itemId, 7);
    EXPECT_FALSE(platform.files.text(kDirectory + "/a.jpg")) << "deleted before it is reported";
  };
  report(scheduler->syncLocl(given), AWSCallbackStatus::success());
  EXPECT_EQ(calls, 1);
}

TEST_F(TaskSchedulerTest, StoredTaskKeepsItsExecutorWhichIsBoundToTheStorage) {
  putStoredTasks(1);
  const auto scheduler = library.makeScheduler("u1");
  const auto executor = scheduler->localTaskExecutor().front();
  EXPECT_EQ(scheduler->syncLocl(executor), executor);
  report(executor, failure());
  EXPECT_EQ(loggedCount("1000.jpg"), 1);
}

TEST_F(TaskSchedulerTest, BoundTaskInMemoryIsLeftAloneByAFailure) {
  const auto scheduler = library.makeScheduler("u1");
  const auto executor = dataExecutor("a.jpg");
  int told = 0;
  executor->complete = [&](const auto&, const auto&, const auto&, std::int64_t) { ++told; };
  scheduler->bindStorageComplete(*executor);
  report(executor, failure());
  EXPECT_EQ(told, 1);
  EXPECT_THAT(platform.files.paths(), IsEmpty());
}

TEST_F(TaskSchedulerTest, FirstFailureOfAStoredTaskIsTrackedAsItsFirstAttempt) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  storeUnavailable();
  const auto scheduler = library.makeScheduler("u1");
  add(*scheduler, "a.jpg");
  run();
  scheduler->retryLocalTask();
  run();
  const auto events = platform.mediator.trackedEvents();
  ASSERT_THAT(events, SizeIs(2));
  EXPECT_EQ(readText(events[0], "mode"), "1") << "counted before it is tracked";
  EXPECT_EQ(readText(events[1], "mode"), std::nullopt);
}

TEST_F(TaskSchedulerTest, OutcomeIsTrackedWithTimeAndItemBeforeTheCallbacksHear) {
  const auto executor = dataExecutor("a.jpg", {{"itemType", "lot"},
                                               {"imageUrl", "https://cdn.test/x"},
                                               {"itemId", std::int64_t{7}},
                                               {"imageFrom", "2"}});
  executor->uploadTime = 1.25;
  std::size_t trackedBefore = 0;
  library.configure.backgroundUploadCallback.store(
      [&](const auto&, const auto&, const auto&, const auto&) {
        trackedBefore = platform.mediator.trackedEvents().size();
      });
  library.makeScheduler("u1")->reporter()(executor, "https://cdn.test/x",
                                          AWSCallbackStatus::success(), 7);
  EXPECT_EQ(trackedBefore, 1U);
  const auto events = platform.mediator.trackedEvents();
  ASSERT_THAT(events, SizeIs(1));
  EXPECT_EQ(events[0].at("time"), Value(1.25));
  EXPECT_EQ(readText(events[0], "type"), "background_upload");
  EXPECT_THAT(platform.trackingEvents.tagged(), SizeIs(1));
}

TEST_F(TaskSchedulerTest, SuccessWhoseFileCannotBeRemovedIsReportedAndRetriedLater) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  const auto scheduler = library.makeScheduler("u1");
  platform.files.fail(Operation::remove, kDirectory + "/a.jpg");
  add(*scheduler, "a.jpg");
  run();
  ASSERT_THAT(reports, SizeIs(2));
  EXPECT_FALSE(reports[0].error);
  EXPECT_EQ(loggedCount("a.jpg"), 0);
  platform.files.clearFaults();
  scheduler->retryLocalTask();
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(2));
  EXPECT_EQ(loggedCount("a.jpg"), std::nullopt);
}

TEST_F(TaskSchedulerTest, FailureWhoseCountCannotBeWrittenIsReported) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  storeUnavailable();
  const auto scheduler = library.makeScheduler("u1");
  platform.reachability.setReachable(false);
  add(*scheduler, "a.jpg");
  platform.files.fail(Operation::write, kLog);
  platform.reachability.setReachable(true);
  run();
  ASSERT_THAT(reports, SizeIs(2));
  EXPECT_EQ(reports[0].error->code, 3);
  EXPECT_EQ(loggedCount("a.jpg"), 0);
}

TEST_F(TaskSchedulerTest, RetryStartsTheTasksInTheOrderOfTheList) {
  putStoredTasks(5);
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  library.configure.maxBackgroundConcurrentCount = 1;
  const auto scheduler = library.makeScheduler("u1");
  std::vector<std::string> listed;
  for (const auto& executor : scheduler->localTaskExecutor()) {
    listed.push_back("u/7/" + executor->task->filename());
  }
  scheduler->retryLocalTask();
  run();
  std::vector<std::string> sent;
  for (const auto& upload : platform.objectStore.uploads()) sent.push_back(upload.key);
  EXPECT_THAT(listed, SizeIs(5));
  EXPECT_EQ(sent, listed);
}

TEST_F(TaskSchedulerTest, AddDropsTheCompletionThatWasThere) {
  const auto scheduler = library.makeScheduler("u1");
  const auto given = dataExecutor("a.jpg");
  int calls = 0;
  given->complete = [&](const auto&, const auto&, const auto&, std::int64_t) { ++calls; };
  scheduler->add(given);
  run();
  EXPECT_EQ(calls, 0);
  EXPECT_THAT(reports, SizeIs(2));
}

TEST_F(TaskSchedulerTest, NineFailuresKeepTheEntryWithCountNine) {
  const auto scheduler = library.makeScheduler("u1");
  const auto executor = scheduler->syncLocl(dataExecutor("a.jpg"));
  for (int i = 1; i <= 9; ++i) {
    report(executor, failure());
    EXPECT_EQ(loggedCount("a.jpg"), i);
  }
  EXPECT_EQ(platform.files.text(kDirectory + "/a.jpg"), "bytes");
}

TEST_F(TaskSchedulerTest, TenthFailureDeletesFileAndEntry) {
  const auto scheduler = library.makeScheduler("u1");
  const auto executor = scheduler->syncLocl(dataExecutor("a.jpg"));
  for (int i = 1; i <= 10; ++i) report(executor, failure());
  EXPECT_EQ(loggedCount("a.jpg"), std::nullopt);
  EXPECT_FALSE(platform.files.text(kDirectory + "/a.jpg"));
}

TEST_F(TaskSchedulerTest, RetriesCarryTheCountAndEveryAttemptIsReported) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  storeUnavailable();
  const auto scheduler = library.makeScheduler("u1");
  add(*scheduler, "a.jpg");
  run();
  EXPECT_EQ(loggedCount("a.jpg"), 1);
  for (int i = 2; i <= 9; ++i) {
    scheduler->retryLocalTask();
    run();
    EXPECT_EQ(loggedCount("a.jpg"), i);
  }
  EXPECT_THAT(reports, SizeIs(18));
  scheduler->retryLocalTask();
  run();
  EXPECT_THAT(reports, SizeIs(20));
  EXPECT_THAT(platform.files.paths(), ElementsAre(kLog));
  scheduler->retryLocalTask();
  run();
  EXPECT_THAT(reports, SizeIs(20));
}

TEST_F(TaskSchedulerTest, CountFromAnEarlierRunCounts) {
  putStoredTasks(1, 9);
  const auto scheduler = library.makeScheduler("u1");
  const auto executors = scheduler->localTaskExecutor();
  ASSERT_THAT(executors, SizeIs(1));
  scheduler->bindStorageComplete(*executors[0]);
  report(executors[0], failure());
  // The tenth failure deletes a task. But the log of this run does not know this task, so it stays.
  EXPECT_EQ(loggedCount("1000.jpg"), 9);
  EXPECT_TRUE(platform.files.text(kDirectory + "/1000.jpg"));
}

TEST_F(TaskSchedulerTest, FailureOfATaskOfAnEarlierRunStoresItAgain) {
  putStoredTasks(2);
  const auto scheduler = library.makeScheduler("u1");
  const auto executors = scheduler->localTaskExecutor();
  ASSERT_THAT(executors, SizeIs(2));
  scheduler->bindStorageComplete(*executors[0]);
  report(executors[0], failure());
  EXPECT_EQ(loggedCount("1000.jpg"), 1);
  EXPECT_EQ(loggedCount("1001.jpg"), std::nullopt) << "the first write drops earlier entries";
}

TEST_F(TaskSchedulerTest, CounterOverflowStopsTheProcess) {
  const auto scheduler = library.makeScheduler("u1");
  const auto executor = library.uploader.makeExecutor(
      std::make_shared<FileTask>(platform.files, "a.jpg", "avatar", "aws-0011/u1/a.jpg",
                                 std::numeric_limits<std::int64_t>::max(), AWSParameterMap()));
  scheduler->bindStorageComplete(*executor);
  EXPECT_DEATH(report(executor, failure()), "overflow");
}

TEST_F(TaskSchedulerTest, TaskWhoseFileCannotBeWrittenRunsFromMemoryUnlogged) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  const auto scheduler = library.makeScheduler("u1");
  platform.files.fail(Operation::write, kDirectory + "/a.jpg");
  const auto given = dataExecutor("a.jpg");
  EXPECT_EQ(scheduler->syncLocl(given), given);
  scheduler->add(given);
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(1));
  EXPECT_THAT(reports, SizeIs(2));
  EXPECT_THAT(platform.files.paths(), IsEmpty());
}

TEST_F(TaskSchedulerTest, TaskThatCannotBeLoggedRunsFromMemoryAndLeavesNothing) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  const auto scheduler = library.makeScheduler("u1");
  platform.files.fail(Operation::write, kLog);
  add(*scheduler, "a.jpg");
  EXPECT_THAT(platform.files.paths(), IsEmpty());
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(1));
  EXPECT_THAT(reports, SizeIs(2));
}

TEST_F(TaskSchedulerTest, TaskWhoseValuesCannotBeWrittenRunsFromMemoryBesideTheOthers) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  const auto scheduler = library.makeScheduler("u1");
  const auto good = scheduler->syncLocl(dataExecutor("good.jpg"));
  const auto bad = dataExecutor("bad.jpg", {{"text", std::string("\x02")}});
  EXPECT_EQ(scheduler->syncLocl(bad), bad);
  EXPECT_THAT(platform.files.paths(), ElementsAre(kDirectory + "/good.jpg", kLog));
  EXPECT_EQ(loggedCount("good.jpg"), 0);
  EXPECT_EQ(loggedCount("bad.jpg"), std::nullopt);
}

TEST_F(TaskSchedulerTest, FailureOfAnUnstoredTaskIsReportedAndForgotten) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  storeUnavailable();
  const auto scheduler = library.makeScheduler("u1");
  platform.files.fail(Operation::write, kDirectory + "/a.jpg");
  add(*scheduler, "a.jpg");
  run();
  ASSERT_THAT(reports, SizeIs(2));
  EXPECT_EQ(reports[0].error->code, 3);
  EXPECT_THAT(scheduler->localTaskExecutor(), IsEmpty());
}

TEST_F(TaskSchedulerTest, RetryWhileOneIsQueuedOrRunsDoesNothing) {
  putStoredTasks(3);
  const auto scheduler = library.makeScheduler("u1");
  platform.reachability.setReachable(false);
  library.taskQueue->add(dataExecutor("waiting.jpg"));
  scheduler->retryLocalTask();
  EXPECT_EQ(library.taskQueue->total(), 1);
  platform.reachability.setReachable(true);
  ASSERT_EQ(library.taskQueue->concurrentCount(), 1);
  scheduler->retryLocalTask();
  EXPECT_EQ(library.taskQueue->total(), 1);
}

TEST_F(TaskSchedulerTest, RetryQueuesTwoHundredOfTwoHundredAndFifty) {
  putStoredTasks(250);
  const auto scheduler = library.makeScheduler("u1");
  scheduler->retryLocalTask();
  EXPECT_EQ(library.taskQueue->total(), 200);
  EXPECT_EQ(library.taskQueue->concurrentCount(), 6);
}

TEST_F(TaskSchedulerTest, RetryWithoutStoredTasksQueuesNothing) {
  const auto scheduler = library.makeScheduler("u1");
  scheduler->retryLocalTask();
  EXPECT_EQ(library.taskQueue->total(), 0);
}

TEST_F(TaskSchedulerTest, AfterTheSchedulerIsGoneTheReportArrivesAndTheStorageStays) {
  auto scheduler = library.makeScheduler("u1");
  const auto given = dataExecutor("a.jpg");
  given->complete = library.makeScheduler("u1")->reporter();
  const auto executor = scheduler->syncLocl(given);
  scheduler.reset();
  report(executor, AWSCallbackStatus::success());
  EXPECT_THAT(reports, SizeIs(2));
  EXPECT_EQ(platform.files.text(kDirectory + "/a.jpg"), "bytes");
  EXPECT_EQ(loggedCount("a.jpg"), 0);
}

TEST_F(TaskSchedulerTest, FailureReachesBothCallbacksAsTheSameError) {
  const auto executor = dataExecutor("a.jpg", {{"k", "v"}});
  library.makeScheduler("u1")->reporter()(
      executor, "https://cdn.test/would-be",
      AWSCallbackStatus::failure(AWSErrorCode::noConfigured, "not yet"), 0);
  ASSERT_THAT(reports, SizeIs(2));
  EXPECT_EQ(reports[0].callback, "host");
  EXPECT_EQ(reports[1].callback, "item");
  for (const Report& report : reports) {
    EXPECT_EQ(report.scope, "avatar");
    EXPECT_EQ(report.url, "https://cdn.test/would-be");
    EXPECT_EQ(report.extra, (AWSParameterMap{{"k", "v"}}));
    EXPECT_EQ(report.error, (Error{"AWSUploaderError", 100, "not yet"}));
  }
}

TEST_F(TaskSchedulerTest, OutcomesAreTrackedAlsoWithoutCallbacks) {
  library.configure.backgroundUploadCallback.store(nullptr);
  library.configure.backgroundUploadItemCallback.store(nullptr);
  library.makeScheduler("u1")->reporter()(dataExecutor("a.jpg"), std::nullopt, failure(), 0);
  EXPECT_THAT(platform.mediator.trackedEvents(), SizeIs(1));
}

}  // namespace
}  // namespace qx
