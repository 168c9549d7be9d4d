// Data files that the log does not name, when a storage opens with "resumeStoredTasks".
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "Classes/AWSConfigure.h"
#include "Classes/UserTaskStorage.h"
#include "unit/UploadFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Operation = MemoryFiles::Operation;

const std::string kDirectory = "/documents/aws-0011/u1";
const std::string kLog = kDirectory + "/logs.plist";
constexpr const char* kEmptyLog = "<plist version=\"1.0\"><dict/></plist>";

class UnloggedFilesTest : public UploadFixture {
 protected:
  UnloggedFilesTest() {
    for (const auto& [name, bytes] : payloads) platform.files.put(kDirectory + "/" + name, bytes);
  }
  std::unique_ptr<UserTaskStorage> open() {
    return std::make_unique<UserTaskStorage>(library.platform, "u1", StoredTasks::resume);
  }
  /// The payloads lie in this folder and nowhere else.
  void expectAllIn(const std::string& folder) {
    for (const auto& [name, bytes] : payloads) {
      EXPECT_EQ(platform.files.text(folder + "/" + name), bytes);
    }
    std::size_t others = platform.files.text(kLog) ? 1 : 0;
    if (platform.files.text(kLog + ".damaged-1")) ++others;
    EXPECT_THAT(platform.files.paths(), SizeIs(payloads.size() + others));
  }

  const std::map<std::string, std::string> payloads = {
      {"0.jpg", "zero"}, {"1.jpg", "one"}, {"2.jpg", "two"}};
};

TEST_F(UnloggedFilesTest, MissingLogLosesNoPayloadAndOneRecordCounts) {
  const auto storage = open();
  expectAllIn(kDirectory + "/unlogged-1");
  ASSERT_THAT(platform.logger.messages(),
              ElementsAre("[Error] data files without a log entry: 3 moved to unlogged-1"));
  EXPECT_EQ(platform.logger.records()[0].level, 5);
}

TEST_F(UnloggedFilesTest, EmptyDictionaryLosesNoPayloadAndOneRecordCounts) {
  platform.files.put(kLog, kEmptyLog);
  const auto storage = open();
  expectAllIn(kDirectory + "/unlogged-1");
  EXPECT_THAT(platform.logger.messages(),
              ElementsAre("[Error] data files without a log entry: 3 moved to unlogged-1"));
}

TEST_F(UnloggedFilesTest, EmptyFileIsADamagedLogThatNamedEveryPayload) {
  platform.files.put(kLog, "");
  open();
  EXPECT_EQ(platform.files.text(kLog + ".damaged-1"), "");
  EXPECT_THAT(platform.logger.messages(),
              ElementsAre("[Error] damaged log set aside, 0 kept, 3 lost"));
  expectAllIn(kDirectory);
  open();
  expectAllIn(kDirectory);
}

TEST_F(UnloggedFilesTest, EmptyDictionaryWithoutDataFilesIsNoFault) {
  for (const auto& [name, bytes] : payloads) platform.files.erase(kDirectory + "/" + name);
  platform.files.put(kLog, kEmptyLog);
  const auto storage = open();
  EXPECT_THAT(platform.logger.messages(), IsEmpty());
  EXPECT_THAT(platform.files.calls(), IsEmpty());
}

TEST_F(UnloggedFilesTest, LaterOpeningsUseFoldersOfTheirOwn) {
  open();
  platform.files.put(kDirectory + "/0.jpg", "another zero");
  open();
  EXPECT_EQ(platform.files.text(kDirectory + "/unlogged-1/0.jpg"), "zero");
  EXPECT_EQ(platform.files.text(kDirectory + "/unlogged-2/0.jpg"), "another zero");
}

TEST_F(UnloggedFilesTest, FilesThatCannotBeMovedStayAndAreCounted) {
  platform.files.fail(Operation::rename, kDirectory + "/1.jpg");
  open();
  EXPECT_EQ(platform.files.text(kDirectory + "/1.jpg"), "one");
  EXPECT_EQ(platform.files.text(kDirectory + "/unlogged-1/0.jpg"), "zero");
  EXPECT_THAT(platform.logger.messages(),
              ElementsAre("[Error] data files without a log entry: 2 moved to unlogged-1, 1 could "
                          "not be moved"));
}

TEST_F(UnloggedFilesTest, WithoutAFolderAllStay) {
  platform.files.failAll(Operation::createDirectory);
  open();
  expectAllIn(kDirectory);
}

TEST_F(UnloggedFilesTest, WithoutTheSwitchNothingIsMoved) {
  const UserTaskStorage storage(library.platform, "u1");
  expectAllIn(kDirectory);
  EXPECT_THAT(platform.logger.messages(), IsEmpty());
}

/// The entry of a file as a run without "resumeStoredTasks" writes it.
std::string entryOf(const std::string& name, const std::string& count = "0") {
  return "<key>" + name + "</key><dict><key>base</key><dict><key>file_path</key><string>" +
         "aws-0011/u1/" + name + "</string><key>module_key</key><string>avatar</string>" +
         "<key>upload_count</key><integer>" + count +
         "</integer></dict><key>extra</key><dict/></dict>";
}

TEST_F(UnloggedFilesTest, EntriesOfARunWithoutTheSwitchGoUpAndTheRestIsMovedAside) {
  platform.files.put(kLog, "<plist version=\"1.0\"><dict>" + entryOf("1.jpg") + "</dict></plist>");
  platform.mediator.signIn("u1", "token", "https://backend.test");
  library.configure.resumeStoredTasks = true;
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  run();
  ASSERT_THAT(platform.objectStore.uploads(), SizeIs(1));
  EXPECT_EQ(platform.objectStore.uploads()[0].data.text(), "one");
  EXPECT_THAT(platform.files.paths(), ElementsAre(kLog, kDirectory + "/unlogged-1/0.jpg",
                                                  kDirectory + "/unlogged-1/2.jpg"));
}

}  // namespace
}  // namespace qx
