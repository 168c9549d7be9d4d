#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "Classes/TaskQueue.h"
#include "unit/TaskSchedulerFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Operation = MemoryFiles::Operation;

// ---- Resuming the tasks of earlier runs

class TaskSchedulerResumeTest : public TaskSchedulerTest {
 protected:
  TaskSchedulerResumeTest() { library.configure.resumeStoredTasks = true; }

  /// Applies the identity of "u1" with this token and yields the new scheduler.
  std::shared_ptr<TaskScheduler> signIn(const std::string& token) {
    platform.mediator.signIn("u1", token, "https://backend.test");
    library.configure.userDidChange();
    return library.configure.scheduler.load();
  }
};

TEST_F(TaskSchedulerResumeTest, TaskOfAnEarlierRunIsGoneAfterItsSuccess) {
  putStoredTasks(2);
  const auto scheduler = library.makeScheduler("u1");
  const auto executors = scheduler->localTaskExecutor();
  scheduler->bindStorageComplete(*executors[0]);
  report(executors[0], AWSCallbackStatus::success());
  EXPECT_THAT(platform.files.paths(), ElementsAre(kDirectory + "/1001.jpg", kLog));
  EXPECT_EQ(loggedCount("1000.jpg"), std::nullopt);
  EXPECT_EQ(loggedCount("1001.jpg"), 0);
}

TEST_F(TaskSchedulerResumeTest, AllOfTwoHundredAndFiftyGoUpAfterOneTick) {
  putStoredTasks(250);
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  const auto scheduler = library.makeScheduler("u1");
  scheduler->retryLocalTask();
  EXPECT_EQ(library.taskQueue->total(), 200);
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(250));
  EXPECT_THAT(platform.files.paths(), ElementsAre(kLog));
  EXPECT_THAT(scheduler->localTaskExecutor(), IsEmpty());
}

TEST_F(TaskSchedulerResumeTest, FailedTasksWaitForTheNextTick) {
  putStoredTasks(450);
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  storeUnavailable();
  const auto scheduler = library.makeScheduler("u1");
  scheduler->retryLocalTask();
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(450)) << "each once";
  EXPECT_EQ(loggedCount("1000.jpg"), 1);
  EXPECT_EQ(loggedCount("1449.jpg"), 1);
  scheduler->retryLocalTask();
  run();
  EXPECT_EQ(loggedCount("1449.jpg"), 2);
}

TEST_F(TaskSchedulerTest, WithoutTheSwitchTheRestWaitsForTheNextTick) {
  putStoredTasks(250);
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  const auto scheduler = library.makeScheduler("u1");
  scheduler->retryLocalTask();
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(200));
}

TEST_F(TaskSchedulerResumeTest, BackgroundUploadReturnsAfterDataAndThenLogAreSynced) {
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  platform.reachability.setReachable(false);
  const std::size_t before = platform.files.calls().size();
  library.uploader.backgroundUpload(Data("bytes"), "jpg", {}, "avatar");
  const auto calls = platform.files.calls();
  ASSERT_THAT(calls, SizeIs(before + 2));
  const auto& data = calls[before];
  const auto& log = calls[before + 1];
  EXPECT_TRUE(data.path.ends_with(".jpg"));
  EXPECT_EQ(log.path.substr(log.path.rfind('/')), "/logs.plist");
  for (const auto& call : {data, log}) {
    EXPECT_EQ(call.operation, Operation::write);
    EXPECT_EQ(call.durability, Durability::synced);
    EXPECT_TRUE(call.succeeded);
  }
}

TEST_F(TaskSchedulerResumeTest, TaskQueuedTwiceDoesNotComeBackAfterItsSuccess) {
  putStoredTasks(1);
  const auto scheduler = library.makeScheduler("u1");
  const auto first = scheduler->localTaskExecutor();
  const auto second = scheduler->localTaskExecutor();
  scheduler->bindStorageComplete(*first[0]);
  scheduler->bindStorageComplete(*second[0]);
  report(first[0], AWSCallbackStatus::success());
  report(second[0], failure());
  EXPECT_THAT(platform.files.paths(), ElementsAre(kLog));
  EXPECT_EQ(loggedCount("1000.jpg"), std::nullopt);
}

TEST_F(TaskSchedulerResumeTest, NewIdentityOfTheSameUserKeepsWhatTheOldOneStores) {
  const auto old = library.makeScheduler("u1");
  const auto current = library.makeScheduler("u1");
  old->syncLocl(dataExecutor("a.jpg"));
  current->syncLocl(dataExecutor("b.jpg"));
  EXPECT_EQ(loggedCount("a.jpg"), 0);
  EXPECT_EQ(loggedCount("b.jpg"), 0);
}

TEST_F(TaskSchedulerResumeTest, TaskUnderWayAtANewIdentityIsGoneAfterItsSuccessAndNotSentTwice) {
  platform.objectStore.hold();
  add(*signIn("token"), "a.jpg");
  run();
  ASSERT_THAT(platform.objectStore.uploads(), SizeIs(1));

  const auto current = signIn("renewed");
  current->retryLocalTask();
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(1)) << "while the first one is under way";

  platform.objectStore.release();
  run();
  EXPECT_THAT(platform.files.paths(), ElementsAre(kLog));
  EXPECT_THAT(current->localTaskExecutor(), IsEmpty());
  EXPECT_THAT(reports, SizeIs(2)) << "one outcome, two callbacks";
  current->retryLocalTask();
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(1));
}

TEST_F(TaskSchedulerResumeTest, FailureUnderWayAtANewIdentityCounts) {
  platform.objectStore.hold();
  add(*signIn("token"), "a.jpg");
  run();
  signIn("renewed");
  storeUnavailable();
  platform.objectStore.release();
  run();
  EXPECT_EQ(loggedCount("a.jpg"), 1);
}

TEST_F(TaskSchedulerResumeTest, TheNextOnesFollowAlsoWhenAnUnstoredUploadEndsLast) {
  putStoredTasks(250);
  const auto scheduler = signIn("token");
  scheduler->retryLocalTask();
  platform.files.fail(Operation::write, kDirectory + "/unstored.jpg");
  add(*scheduler, "unstored.jpg");
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(251));
}

/// Calls `onLogged` whenever the log has been written.
class WatchedFiles : public MemoryFiles {
 public:
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override {
    auto error = MemoryFiles::write(path, pieces, mode, durability);
    if (path == kLog && onLogged) std::exchange(onLogged, nullptr)();
    return error;
  }
  std::function<void()> onLogged;
};

TEST(TaskSchedulerTickTest, TickBetweenLogAndQueueDoesNotQueueTheTaskASecondTime) {
  FakePlatform& platform = FakePlatform::kept();
  WatchedFiles files;
  Library& library = keptLibrary(platform.seams().with(files));
  platform.reachability.setReachable(false);
  library.configure.resumeStoredTasks = true;
  const auto scheduler = library.makeScheduler("u1");
  std::size_t listed = 0;
  files.onLogged = [&] {
    listed = scheduler->localTaskExecutor().size();
    scheduler->retryLocalTask();
  };
  scheduler->add(library.uploader.makeExecutor(
      std::make_shared<DataTask>("a.jpg", "avatar", Data("bytes"), AWSParameterMap())));
  EXPECT_EQ(listed, 1U) << "the log had it already";
  EXPECT_EQ(library.taskQueue->waitingCount(), 1U);
}

}  // namespace
}  // namespace qx
