// The storage on real files, in a folder where somebody has put symbolic links.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "Classes/UserTaskStorage.h"
#include "contract/TemporaryDirectory.h"
#include "fakes/FakePlatform.h"
#include "platforms/shared/LibplistPropertyLists.h"
#include "platforms/shared/PosixFiles.h"

namespace qx {
namespace {

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

class StorageLinksOnDisk : public testing::TestWithParam<StoredTasks> {
 protected:
  StorageLinksOnDisk() {
    std::filesystem::create_directories(user_);
    std::filesystem::create_directory(elsewhere_);
    put(elsewhere_ + "/a.jpg", "theirs");
    put(elsewhere_ + "/logs.plist", "theirs, too");
  }
  ~StorageLinksOnDisk() override {
    EXPECT_THAT(names(elsewhere_), UnorderedElementsAre("a.jpg", "logs.plist"));
    EXPECT_EQ(contents(elsewhere_ + "/a.jpg"), "theirs");
    EXPECT_EQ(contents(elsewhere_ + "/logs.plist"), "theirs, too");
  }

  static void put(const std::string& path, const std::string& text) { std::ofstream(path) << text; }
  static std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  static std::vector<std::string> names(const std::string& folder) {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
      found.push_back(entry.path().filename());
    }
    return found;
  }
  static std::shared_ptr<DataTask> dataTask(const std::string& name) {
    return std::make_shared<DataTask>(name, "avatar", Data("bytes"), AWSParameterMap());
  }

  const TemporaryDirectory directory_;
  const std::string documents_ = directory_.path() + "/documents";
  const std::string elsewhere_ = directory_.path() + "/elsewhere";
  const std::string user_ = documents_ + "/aws-0011/u1";
  PosixFiles files_{{documents_}};
  LibplistPropertyLists propertyLists_;
  FakePlatform fakes_;
  const Platform platform_ = fakes_.seams().with(files_, propertyLists_);
};

TEST_P(StorageLinksOnDisk, UserDirectory) {
  std::filesystem::remove(user_);
  std::filesystem::create_directory_symlink(elsewhere_, user_);
  UserTaskStorage storage(platform_, "u1", GetParam());
  EXPECT_EQ(storage.storageFile(dataTask("b.jpg")), nullptr);
  EXPECT_EQ(storage.storageFile(dataTask("a.jpg")), nullptr);
  EXPECT_FALSE(storage.syncLog());
  EXPECT_FALSE(storage.deleteFile("aws-0011/u1/a.jpg"));
  EXPECT_THAT(fakes_.logger.messages(), Contains(HasSubstr(user_ + " is a symbolic link")));
}

TEST_P(StorageLinksOnDisk, DirectoryAboveTheUsers) {
  std::filesystem::remove_all(documents_ + "/aws-0011");
  std::filesystem::create_directory_symlink(directory_.path(), documents_ + "/aws-0011");
  UserTaskStorage storage(platform_, "elsewhere", GetParam());
  EXPECT_EQ(storage.storageFile(dataTask("b.jpg")), nullptr);
  EXPECT_FALSE(storage.deleteFile("aws-0011/elsewhere/a.jpg"));
  EXPECT_THAT(fakes_.logger.messages(),
              Contains(HasSubstr(documents_ + "/aws-0011 is a symbolic link")));
}

TEST_P(StorageLinksOnDisk, Log) {
  put(user_ + "/kept.jpg", "kept");
  for (const std::string& target : {elsewhere_ + "/logs.plist", elsewhere_ + "/missing"}) {
    std::filesystem::remove(user_ + "/logs.plist");
    std::filesystem::create_symlink(target, user_ + "/logs.plist");
    UserTaskStorage storage(platform_, "u1", GetParam());
    EXPECT_THAT(storage.localTasks(), IsEmpty());
    EXPECT_FALSE(storage.syncLog());
    EXPECT_TRUE(std::filesystem::is_symlink(user_ + "/logs.plist"));
    EXPECT_THAT(names(user_), UnorderedElementsAre("kept.jpg", "logs.plist"));
  }
  EXPECT_THAT(fakes_.logger.messages(),
              Contains(HasSubstr(user_ + "/logs.plist is a symbolic link")));
}

TEST_P(StorageLinksOnDisk, DataFile) {
  UserTaskStorage storage(platform_, "u1", GetParam());
  const auto task = storage.storageFile(dataTask("a.jpg"));
  ASSERT_TRUE(task && storage.storageLog(*task));
  std::filesystem::remove(user_ + "/a.jpg");
  std::filesystem::create_symlink(elsewhere_ + "/a.jpg", user_ + "/a.jpg");
  EXPECT_EQ(task->data(), std::nullopt);
  EXPECT_EQ(storage.storageFile(dataTask("a.jpg")), nullptr);
  EXPECT_TRUE(storage.remove("a.jpg"));
  EXPECT_THAT(names(user_), UnorderedElementsAre("logs.plist"));
}

INSTANTIATE_TEST_SUITE_P(Modes, StorageLinksOnDisk,
                         testing::Values(StoredTasks::startEmpty, StoredTasks::resume));

}  // namespace
}  // namespace qx
