// A stored log that cannot be read for a while.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "Classes/AWSConfigure.h"
#include "unit/UploadFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Operation = MemoryFiles::Operation;

const std::string kDirectory = "/documents/aws-0011/u1";
const std::string kLog = kDirectory + "/logs.plist";

/// The entry of a file as a log has it.
std::string entryOf(const std::string& name, const std::string& count = "0") {
  return "<key>" + name + "</key><dict><key>base</key><dict><key>file_path</key><string>" +
         "aws-0011/u1/" + name + "</string><key>module_key</key><string>avatar</string>" +
         "<key>upload_count</key><integer>" + count +
         "</integer></dict><key>extra</key><dict/></dict>";
}

class UnreadableLogTest : public UploadFixture {
 protected:
  UnreadableLogTest() {
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

TEST_F(UnreadableLogTest, LogThatWasUnreadableAtTheStartIsReadByTheNextTick) {
  putLog(entryOf("0.jpg") + entryOf("1.jpg") + entryOf("2.jpg"));
  platform.files.fail(Operation::read, kLog);
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  run();
  EXPECT_THAT(platform.objectStore.uploads(), IsEmpty());
  platform.files.clearFaults();
  platform.clock.advance(60);
  run();
  EXPECT_THAT(platform.objectStore.uploads(), SizeIs(3));
  EXPECT_THAT(platform.files.paths(), ElementsAre(kLog));
}

}  // namespace
}  // namespace qx
