// Numbers of failed attempts in a stored log that no run can have written.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Classes/AWSConfigure.h"
#include "Classes/TaskScheduler.h"
#include "unit/UploadFixture.h"

namespace qx {
namespace {

using testing::Contains;
using testing::SizeIs;

const std::string kDirectory = "/documents/aws-0011/u1";
const std::string kLog = kDirectory + "/logs.plist";

/// The entry of a file as a log has it.
std::string entryOf(const std::string& name, const std::string& count = "0") {
  return "<key>" + name + "</key><dict><key>base</key><dict><key>file_path</key><string>" +
         "aws-0011/u1/" + name + "</string><key>module_key</key><string>avatar</string>" +
         "<key>upload_count</key><integer>" + count +
         "</integer></dict><key>extra</key><dict/></dict>";
}

class StoredCountTest : public UploadFixture {
 protected:
  StoredCountTest() {
    library.configure.resumeStoredTasks = true;
    platform.mediator.signIn("u1", "token", "https://backend.test");
    for (const char* name : {"0.jpg", "1.jpg", "2.jpg"}) {
      platform.files.put(kDirectory + "/" + name, "bytes");
    }
  }
  void putLog(const std::string& entries) {
    platform.files.put(kLog, "<plist version=\"1.0\"><dict>" + entries + "</dict></plist>");
  }
};

/// Counts in a log from which a process cannot go on counting.
class ImpossibleCount : public StoredCountTest, public testing::WithParamInterface<const char*> {};

TEST_P(ImpossibleCount, IsADamagedEntryAndStopsNothing) {
  putLog(entryOf("0.jpg", GetParam()) + entryOf("1.jpg") + entryOf("2.jpg"));
  platform.objectStore.failAll(Error{"ObjectStore", 3, "down"});
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  run();
  EXPECT_THAT(platform.logger.messages(),
              Contains("[Error] damaged log set aside, 2 kept, 1 lost"));
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(2));
  EXPECT_EQ(platform.files.text(kDirectory + "/0.jpg"), "bytes") << "for a person to look at";
}

INSTANTIATE_TEST_SUITE_P(Counts, ImpossibleCount,
                         testing::Values("9223372036854775807", "9223372036854775806",
                                         "9223372036854775808", "-9223372036854775808", "-1"));

TEST_F(StoredCountTest, LogThatAnotherProgramChangesUnderneathStopsNothing) {
  putLog(entryOf("0.jpg") + entryOf("1.jpg") + entryOf("2.jpg"));
  platform.objectStore.failAll(Error{"ObjectStore", 3, "down"});
  const auto scheduler = library.makeScheduler("u1");
  putLog(entryOf("0.jpg", "9223372036854775807"));
  scheduler->retryLocalTask();
  run();
  EXPECT_EQ(platform.files.text(kDirectory + "/0.jpg"), "bytes");
}

}  // namespace
}  // namespace qx
