// A tick of the retry timer while an upload is on its way into the queue or out of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "Classes/AWSConfigure.h"
#include "Classes/AWSUploader.h"
#include "Classes/TaskQueue.h"
#include "Classes/TaskScheduler.h"
#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

using testing::SizeIs;

const std::string kDirectory = "/documents/aws-0011/u1";
const std::string kLog = kDirectory + "/logs.plist";

/// Calls the function that the test has set, once, in the middle of a change or a read.
class InterruptedFiles : public MemoryFiles {
 public:
  Result<Data> read(const std::string& path) override {
    if (path == kLog) call(beforeLogRead);
    auto data = MemoryFiles::read(path);
    if (path == kLog) call(afterLogRead);
    return data;
  }
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override {
    auto error = MemoryFiles::write(path, pieces, mode, durability);
    if (path == kLog) call(afterLogWrite);
    return error;
  }
  std::optional<Error> remove(const std::string& path) override {
    call(beforeRemove);
    return MemoryFiles::remove(path);
  }

  std::function<void()> beforeLogRead;
  std::function<void()> afterLogRead;
  std::function<void()> afterLogWrite;
  std::function<void()> beforeRemove;

 private:
  static void call(std::function<void()>& interruption) {
    if (const auto once = std::exchange(interruption, nullptr)) once();
  }
};

/// The parameter is the value of "resumeStoredTasks".
class TickRace : public testing::TestWithParam<bool> {
 protected:
  TickRace() {
    library.configure.resumeStoredTasks = GetParam();
    platform.messageClients.answer(
        "v3/storage/get_upload_config",
        Dictionary{{"upload_token_map",
                    Dictionary{{"avatar", Dictionary{{"access_key_id", "KEY"},
                                                     {"access_key_secret", "SECRET"},
                                                     {"security_token", "SESSION"},
                                                     {"expiration", 1'800'000'000},
                                                     {"bucket", "photos"},
                                                     {"region", "eu-west-1"},
                                                     {"authorized_path", "u/7/"},
                                                     {"download_url_prefix", "https://c"}}}}}});
    scheduler = signIn("token");
    run();
  }

  std::shared_ptr<TaskScheduler> signIn(const std::string& token) {
    platform.mediator.signIn("u1", token, "https://backend.test");
    library.configure.full(ConfigParameters::readFromHost(platform.mediator));
    return library.configure.scheduler.load();
  }
  void add(const std::string& filename) {
    scheduler->add(library.uploader.makeExecutor(
        std::make_shared<DataTask>(filename, "avatar", Data("bytes"), AWSParameterMap())));
  }
  /// Stores a task that is not in the queue, without a network.
  void storeAlone(const std::string& filename) {
    platform.reachability.setReachable(false);
    add(filename);
    scheduler = signIn("renewed");
  }
  void run() { platform.dispatch.runUntilIdle(); }

  FakePlatform& platform = FakePlatform::kept();
  InterruptedFiles files;
  Library& library = keptLibrary(platform.seams().with(files));
  std::shared_ptr<TaskScheduler> scheduler;
};

TEST_P(TickRace, TickBetweenLogAndQueueQueuesTheTaskOnce) {
  platform.reachability.setReachable(false);
  std::size_t listed = 0;
  files.afterLogWrite = [&] {
    listed = scheduler->localTaskExecutor().size();
    scheduler->retryLocalTask();
  };
  add("a.jpg");
  EXPECT_EQ(listed, 1U) << "the log had it already";
  EXPECT_EQ(library.taskQueue->waitingCount(), 1U);
}

TEST_P(TickRace, TaskThatIsQueuedBeforeATickReadsTheLogIsQueuedOnce) {
  platform.reachability.setReachable(false);
  files.beforeLogRead = [&] { add("a.jpg"); };
  scheduler->retryLocalTask();
  EXPECT_EQ(library.taskQueue->waitingCount(), 1U);
}

TEST_P(TickRace, TaskThatRunsAndEndsAfterATickHasReadTheLogGoesUpOnce) {
  platform.reachability.setReachable(false);
  files.beforeLogRead = [&] { add("a.jpg"); };
  files.afterLogRead = [&] {
    platform.reachability.setReachable(true);
    run();
  };
  scheduler->retryLocalTask();
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(1));
  EXPECT_EQ(library.taskQueue->total(), 1);
}

TEST_P(TickRace, TaskWhoseSuccessIsBeingRecordedGoesUpOnce) {
  bool ticked = false;
  files.beforeRemove = [&] {
    ticked = true;
    scheduler->retryLocalTask();
  };
  add("a.jpg");
  run();
  EXPECT_TRUE(ticked);
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(1));
}

TEST_P(TickRace, TwoTicksAtATimeQueueATaskOnce) {
  storeAlone("a.jpg");
  files.afterLogRead = [&] { scheduler->retryLocalTask(); };
  scheduler->retryLocalTask();
  EXPECT_EQ(library.taskQueue->waitingCount(), 1U);
}

TEST_P(TickRace, TaskThatOneTickHasSentIsNotSentByAnotherOneThatBeganBefore) {
  storeAlone("a.jpg");
  platform.reachability.setReachable(true);
  files.afterLogRead = [&] {
    scheduler->retryLocalTask();
    run();
  };
  scheduler->retryLocalTask();
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(1));
}

TEST_P(TickRace, TaskOnItsWayIntoTheQueueAtANewIdentityIsQueuedOnce) {
  platform.reachability.setReachable(false);
  files.afterLogWrite = [&] { signIn("another")->retryLocalTask(); };
  add("a.jpg");
  EXPECT_EQ(library.taskQueue->waitingCount(), 1U);
}

TEST_P(TickRace, TaskThatRunsAtANewIdentityIsQueuedAgainWithoutTheSwitchAlone) {
  platform.objectStore.hold();
  add("a.jpg");
  run();
  ASSERT_THAT(platform.objectStore.uploads(), SizeIs(1));
  signIn("renewed")->retryLocalTask();
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(GetParam() ? 1 : 2));
}

INSTANTIATE_TEST_SUITE_P(Modes, TickRace, testing::Bool());

}  // namespace
}  // namespace qx
