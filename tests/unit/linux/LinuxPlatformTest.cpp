#include "platforms/linux/LinuxPlatform.h"

#include <dirent.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "contract/TemporaryDirectory.h"
#include "fakes/FakeHost.h"

namespace qx {
namespace {

using testing::ElementsAre;

LinuxSettings settingsFor(const TemporaryDirectory& directory) {
  LinuxSettings settings;
  settings.documentsDirectory = directory.path();
  settings.reachabilityHosts = {"127.0.0.1"};
  return settings;
}

int threadCount() {
  int count = 0;
  DIR* tasks = ::opendir("/proc/self/task");
  while (const dirent* entry = ::readdir(tasks)) count += entry->d_name[0] != '.' ? 1 : 0;
  ::closedir(tasks);
  return count;
}

TEST(LinuxPlatform, HandsOutSeamsThatWork) {
  const TemporaryDirectory directory;
  FakeLogger logger;
  FakeTrackingEvents tracking;
  LinuxSettings settings = settingsFor(directory);
  settings.logger = &logger;
  settings.trackingEvents = &tracking;
  LinuxPlatform platform(std::move(settings));
  const Platform seams = platform.seams();
  EXPECT_EQ(&seams.logger, &logger);
  EXPECT_EQ(&seams.trackingEvents, &tracking);
  EXPECT_EQ(&seams.mediator, &platform.mediator());
  EXPECT_EQ(&seams.notifications, &platform.notifications());
  EXPECT_THAT(seams.files.documentDirectories(), ElementsAre(directory.path()));
  EXPECT_EQ(seams.objectStore.globalEndpoint(), "https://s3.amazonaws.com");
  EXPECT_TRUE(seams.reachability.isReachable());
  EXPECT_EQ(seams.json.encode(Value(Array{1})), "[1]");
  platform.mediator().answer("Account_GetUserId", [] { return Value("42"); });
  EXPECT_EQ(seams.mediator.perform("Account_GetUserId", {}), Value("42"));
}

TEST(LinuxPlatform, WithoutALoggerNoRecordIsWanted) {
  const TemporaryDirectory directory;
  LinuxPlatform platform(settingsFor(directory));
  EXPECT_GT(platform.seams().logger.threshold(), 5);
}

TEST(LinuxPlatform, RunsTheMainQueueUntilItIsStopped) {
  const TemporaryDirectory directory;
  LinuxPlatform platform(settingsFor(directory));
  const Platform seams = platform.seams();
  std::thread::id ranOn;
  seams.dispatch.globalQueue().async([&] {
    seams.dispatch.mainQueue().async([&] {
      ranOn = std::this_thread::get_id();
      platform.stopMainQueue();
    });
  });
  platform.runMainQueue();
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TEST(LinuxPlatform, ItsThreadsEndWithIt) {
  const TemporaryDirectory directory;
  // ThreadSanitizer starts a thread of its own together with our first thread.
  std::thread([] {}).join();
  const int before = threadCount();
  std::shared_ptr<DispatchQueue> queue;
  bool ran = false;
  {
    LinuxPlatform platform(settingsFor(directory));
    queue = platform.seams().dispatch.makeSerialQueue("q");
    queue->async([&] { ran = true; });
    platform.seams().dispatch.globalQueue().async([] {});
    EXPECT_GT(threadCount(), before);
  }
  EXPECT_TRUE(ran);
  EXPECT_EQ(threadCount(), before);
}

TEST(LinuxPlatform, ShutDownEndsItsThreadsAndDropsTheWorkOfTheMainQueue) {
  const TemporaryDirectory directory;
  // ThreadSanitizer makes a thread of its own with the first of ours.
  std::thread([] {}).join();
  const int before = threadCount();
  LinuxPlatform platform(settingsFor(directory));
  Dispatch& dispatch = platform.seams().dispatch;
  const auto early = std::make_shared<int>();
  const auto late = std::make_shared<int>();
  bool ran = false;
  dispatch.mainQueue().async([early] { FAIL() << *early; });
  dispatch.globalQueue().async([&] { ran = true; });
  platform.shutDown();
  dispatch.mainQueue().async([late] { FAIL() << *late; });
  platform.shutDown();
  EXPECT_TRUE(ran);
  EXPECT_EQ(threadCount(), before);
  EXPECT_EQ(early.use_count(), 1);
  EXPECT_EQ(late.use_count(), 1);
}

}  // namespace
}  // namespace qx
