// With "resumeStoredTasks": the stored tasks that follow the first two hundred of a tick.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "Classes/AWSConfigure.h"
#include "Classes/TaskQueue.h"
#include "Classes/TaskScheduler.h"
#include "Classes/UserTaskStorage.h"
#include "unit/UploadFixture.h"

namespace qx {
namespace {

using testing::Contains;
using testing::Each;
using testing::EndsWith;
using testing::Not;
using testing::SizeIs;

class FollowingTasksTest : public UploadFixture {
 protected:
  FollowingTasksTest() {
    library.configure.resumeStoredTasks = true;
    library.configure.backgroundUploadCallback.store(
        [this](const std::string&, const std::optional<std::string>& url, const AWSParameterMap&,
               const std::optional<Error>& error) {
          outcomes_.push_back(url ? *url : error->description);
        });
  }

  /// Stores "1000.jpg" and so on, as an earlier run has left them.
  void putStoredTasks(int count) {
    const std::string folder = "aws-0011/u1/";
    std::string log = "<plist version=\"1.0\"><dict>";
    for (int i = 0; i < count; ++i) {
      const std::string name = std::to_string(1000 + i) + ".jpg";
      log += "<key>" + name + "</key><dict><key>base</key><dict><key>file_path</key><string>" +
             folder + name + "</string><key>module_key</key><string>avatar</string>" +
             "<key>upload_count</key><integer>0</integer></dict><key>extra</key><dict/></dict>";
      platform.files.put("/documents/" + folder + name, "bytes");
    }
    platform.files.put("/documents/" + folder + "logs.plist", log + "</dict></plist>");
  }

  /// The URL or the error of every attempt, in order.
  std::vector<std::string> outcomes_;
};

TEST_F(FollowingTasksTest, TaskThatIsDeletedMeanwhileIsNotQueuedAgain) {
  putStoredTasks(250);
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  const auto scheduler = library.makeScheduler("u1");
  scheduler->retryLocalTask();
  ASSERT_EQ(library.taskQueue->total(), 200);
  ASSERT_TRUE(library.storages.open("u1", StoredTasks::resume)->remove("1230.jpg"))
      << "one of those to follow";
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(249));
  EXPECT_THAT(outcomes_, SizeIs(249)) << "not even an attempt";
  EXPECT_EQ(library.taskQueue->total(), 249);
  EXPECT_THAT(outcomes_, Each(EndsWith(".jpg")));
  EXPECT_THAT(outcomes_, Not(Contains(EndsWith("1230.jpg"))));
}

}  // namespace
}  // namespace qx
