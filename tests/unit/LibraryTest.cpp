#include "Classes/Library.h"

#include <gtest/gtest.h>

#include <memory>

#include "Classes/Target_Uploader.h"
#include "fakes/FakePlatform.h"

namespace qx {
namespace {

TEST(LibraryTest, UploadsThatWaitEndWithTheLibrary) {
  FakePlatform platform;
  platform.mediator.signIn("123456", "token", "https://backend.test");
  platform.reachability.setReachable(false);
  auto library = std::make_unique<Library>(platform.seams());
  Target_Uploader target(*library);
  target.Action_SetUp({{"needServerResize", false}, {"resumeStoredTasks", true}});
  target.Action_BackgroundUpload({{"scope", "avatar"}, {"data", Data("bytes")}, {"suffix", "jpg"}});
  platform.dispatch.runUntilIdle();
  ASSERT_EQ(library->taskQueue->waitingCount(), 1U);
  const std::weak_ptr<TaskQueue> queue = library->taskQueue;
  const std::weak_ptr<TaskScheduler> scheduler = library->configure.scheduler.load();
  library.reset();
  EXPECT_TRUE(queue.expired());
  EXPECT_TRUE(scheduler.expired());
}

}  // namespace
}  // namespace qx
