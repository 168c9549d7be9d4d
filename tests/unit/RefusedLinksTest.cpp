// Symbolic links in the place of the library's files and directories are refused, and log records
// name them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "Classes/TaskExecutor.h"
#include "Classes/UserTaskStorage.h"
#include "unit/UploadFixture.h"

namespace qx {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Field;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

const std::string kDirectory = "/documents/aws-0011/u1";
const std::string kLog = kDirectory + "/logs.plist";

class RefusedLinksTest : public UploadFixture, public testing::WithParamInterface<StoredTasks> {
 protected:
  std::unique_ptr<UserTaskStorage> open() {
    return std::make_unique<UserTaskStorage>(library.platform, "u1", GetParam());
  }
  static std::shared_ptr<DataTask> dataTask(const std::string& filename) {
    return std::make_shared<DataTask>(filename, "avatar", Data("bytes"), AWSParameterMap());
  }
  /// A log record of an error about the link at this path.
  auto recordOf(const std::string& link) {
    return Contains(
        AllOf(Field(&LogRecord::level, 5),
              Field(&LogRecord::message, StartsWith("[Error] " + link + " is a symbolic link"))));
  }
};

TEST_P(RefusedLinksTest, UserDirectory) {
  platform.files.putLink(kDirectory);
  testing::internal::CaptureStdout();
  const auto storage = open();
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr(kDirectory));
  EXPECT_THAT(platform.logger.records(), recordOf(kDirectory));
  EXPECT_FALSE(storage->userDirPathExist());
  EXPECT_EQ(storage->storageFile(dataTask("a.jpg")), nullptr);
  EXPECT_FALSE(storage->syncLog());
  EXPECT_FALSE(storage->deleteFile("aws-0011/u1/a.jpg"));
  EXPECT_THAT(storage->localTasks(), IsEmpty());
  EXPECT_THAT(platform.files.paths(), IsEmpty());
}

TEST_P(RefusedLinksTest, DirectoryAboveTheUsers) {
  platform.files.putLink("/documents/aws-0011");
  testing::internal::CaptureStdout();
  const auto storage = open();
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("/documents/aws-0011"));
  EXPECT_THAT(platform.logger.records(), recordOf("/documents/aws-0011"));
  EXPECT_EQ(storage->storageFile(dataTask("a.jpg")), nullptr);
}

TEST_P(RefusedLinksTest, Log) {
  platform.files.put(kDirectory + "/kept.jpg", "kept");
  platform.files.putLink(kLog);
  const auto storage = open();
  const auto task = storage->storageFile(dataTask("a.jpg"));
  ASSERT_TRUE(task);
  EXPECT_FALSE(storage->storageLog(*task));
  EXPECT_THAT(platform.logger.records(), recordOf(kLog));
  EXPECT_EQ(platform.files.kind(kLog), PathKind::link);
  EXPECT_EQ(platform.files.text(kDirectory + "/kept.jpg"), "kept") << "the log may name it";
}

TEST_P(RefusedLinksTest, LogIsNotReadForATick) {
  platform.files.putLink(kLog);
  const auto storage = open();
  EXPECT_THAT(storage->localTasks(), IsEmpty());
  EXPECT_THAT(platform.logger.records(), recordOf(kLog));
}

TEST_P(RefusedLinksTest, DataFileThatIsWritten) {
  const auto storage = open();
  platform.files.putLink(kDirectory + "/a.jpg");
  EXPECT_EQ(storage->storageFile(dataTask("a.jpg")), nullptr);
  EXPECT_THAT(platform.logger.records(), recordOf(kDirectory + "/a.jpg"));
}

TEST_P(RefusedLinksTest, DataFileThatIsUploaded) {
  const auto storage = open();
  const auto task = storage->storageFile(dataTask("a.jpg"));
  ASSERT_TRUE(task && storage->storageLog(*task));
  platform.files.putLink(kDirectory + "/a.jpg");
  std::make_shared<TaskExecutor>(library.platform, library.configure, library.events,
                                 UploadKind::background, task)
      ->execute();
  EXPECT_THAT(platform.logger.records(), recordOf(kDirectory + "/a.jpg"));
  EXPECT_THAT(platform.objectStore.uploads(), IsEmpty());
  EXPECT_TRUE(storage->remove("a.jpg")) << "the link goes, not what it leads to";
}

TEST_P(RefusedLinksTest, LinkAmongTheDataFilesStaysWhereItIs) {
  platform.files.putLink(kDirectory + "/stray.jpg");
  const auto storage = open();
  EXPECT_EQ(platform.files.kind(kDirectory + "/stray.jpg"), PathKind::link);
}

INSTANTIATE_TEST_SUITE_P(Modes, RefusedLinksTest,
                         testing::Values(StoredTasks::startEmpty, StoredTasks::resume));

class RefusedCacheTest : public UploadFixture {};

TEST_F(RefusedCacheTest, DownloadFailsWithAnErrorThatNamesTheLink) {
  const std::string cache = "/documents/com.qxuploader.download.cache";
  platform.files.putLink(cache);
  library.configure.full(ConfigParameters::readFromHost(platform.mediator));
  std::optional<Error> error;
  int completions = 0;
  testing::internal::CaptureStdout();
  library.downloader.download(
      "https://cdn.test/a.jpg", "avatar", nullptr,
      [&](const std::optional<Url>& location, const std::optional<Error>& why) {
        ++completions;
        EXPECT_FALSE(location);
        error = why;
      });
  run();
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr(cache));
  EXPECT_EQ(completions, 1);
  ASSERT_TRUE(error);
  EXPECT_EQ(error->code, ELOOP);
  EXPECT_THAT(error->description, HasSubstr(cache));
  EXPECT_THAT(platform.objectStore.downloads(), IsEmpty());
  EXPECT_THAT(platform.logger.messages(), Contains(HasSubstr(cache)));
}

}  // namespace
}  // namespace qx
