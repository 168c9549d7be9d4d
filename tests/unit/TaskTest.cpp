#include "Classes/Task.h"

#include <gtest/gtest.h>

#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

TEST(DataTask, KeepsItsFields) {
  const DataTask task("a.jpg", "avatar", Data("bytes"), {{"k", "v"}});
  EXPECT_EQ(task.filename(), "a.jpg");
  EXPECT_EQ(task.scope(), "avatar");
  EXPECT_EQ(task.extra(), (AWSParameterMap{{"k", "v"}}));
}

TEST(DataTask, YieldsItsBytesWithoutACopy) {
  const Data bytes("bytes");
  const DataTask task("a.jpg", "avatar", bytes, {});
  ASSERT_TRUE(task.data());
  EXPECT_EQ(task.data()->bytes(), bytes.bytes());
  EXPECT_EQ(task.data()->text(), "bytes");
}

TEST(DataTask, YieldsAnEmptyBuffer) {
  const DataTask task("a.jpg", "avatar", Data(), {});
  ASSERT_TRUE(task.data());
  EXPECT_TRUE(task.data()->empty());
}

TEST(DataTask, HasNoPathWhateverItsFieldsHold) {
  EXPECT_FALSE(DataTask("", "", Data(), {}).hasPath());
  EXPECT_FALSE(DataTask("aws-0011/u/a.jpg", "avatar", Data("b"), {{"file_path", "x"}}).hasPath());
}

TEST(DataTask, TakesNewExtraValues) {
  DataTask task("a.jpg", "avatar", Data(), {{"k", "v"}});
  task.extra().insert_or_assign("k", std::int64_t{7});
  EXPECT_EQ(task.extra(), (AWSParameterMap{{"k", std::int64_t{7}}}));
}

class FileTaskTest : public testing::Test {
 protected:
  FakePlatform& platform = FakePlatform::kept();
  Library& library = keptLibrary(platform.seams());
};

TEST_F(FileTaskTest, KeepsItsFields) {
  FileTask task(platform.files, "a.jpg", "avatar", "aws-0011/u/a.jpg", 3, {{"k", "v"}});
  EXPECT_EQ(task.filename(), "a.jpg");
  EXPECT_EQ(task.scope(), "avatar");
  EXPECT_EQ(task.filePath(), "aws-0011/u/a.jpg");
  EXPECT_EQ(task.uploadCount(), 3);
  EXPECT_EQ(task.extra(), (AWSParameterMap{{"k", "v"}}));
  task.setUploadCount(4);
  EXPECT_EQ(task.uploadCount(), 4);
  task.extra().insert_or_assign("k", std::int64_t{7});
  EXPECT_EQ(task.extra(), (AWSParameterMap{{"k", std::int64_t{7}}}));
}

TEST_F(FileTaskTest, HasAPathWhateverItsFieldsHold) {
  EXPECT_TRUE(FileTask(platform.files, "", "", "", 0, {}).hasPath());
  EXPECT_TRUE(FileTask(platform.files, "a.jpg", "avatar", "a.jpg", 9, {}).hasPath());
}

TEST_F(FileTaskTest, ReadsItsPathBelowTheDocumentsDirectory) {
  platform.files.put("/documents/aws-0011/u/a.jpg", "content");
  const FileTask task(platform.files, "other-name", "avatar", "aws-0011/u/a.jpg", 0, {});
  ASSERT_TRUE(task.data());
  EXPECT_EQ(task.data()->text(), "content");
}

TEST_F(FileTaskTest, YieldsNothingUntilTheFileExists) {
  const FileTask task(platform.files, "a.jpg", "avatar", "a.jpg", 0, {});
  EXPECT_FALSE(task.data());
  platform.files.put("/documents/a.jpg", "now");
  ASSERT_TRUE(task.data());
  EXPECT_EQ(task.data()->text(), "now");
}

TEST_F(FileTaskTest, ReadsTheFileAfreshEachTime) {
  platform.files.put("/documents/a.jpg", "first");
  const FileTask task(platform.files, "a.jpg", "avatar", "a.jpg", 0, {});
  EXPECT_EQ(task.data()->text(), "first");
  platform.files.put("/documents/a.jpg", "second");
  EXPECT_EQ(task.data()->text(), "second");
  platform.files.erase("/documents/a.jpg");
  EXPECT_FALSE(task.data());
}

TEST_F(FileTaskTest, YieldsNothingWhenTheFileCannotBeRead) {
  platform.files.put("/documents/a.jpg", "content");
  platform.files.fail(MemoryFiles::Operation::read, "/documents/a.jpg");
  EXPECT_FALSE(FileTask(platform.files, "a.jpg", "avatar", "a.jpg", 0, {}).data());
  EXPECT_TRUE(platform.logger.records().empty());
}

TEST_F(FileTaskTest, YieldsNothingForAnEmptyPath) {
  platform.files.put("/documents/a.jpg", "content");
  EXPECT_FALSE(FileTask(platform.files, "a.jpg", "avatar", "", 0, {}).data());
}

TEST_F(FileTaskTest, ReadsFromTheRootWithoutADocumentsDirectory) {
  platform.files.setDocumentDirectories({});
  platform.files.put("/a.jpg", "at the root");
  const FileTask task(platform.files, "a.jpg", "avatar", "a.jpg", 0, {});
  ASSERT_TRUE(task.data());
  EXPECT_EQ(task.data()->text(), "at the root");
}

}  // namespace
}  // namespace qx
