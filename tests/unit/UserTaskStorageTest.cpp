#include "Classes/UserTaskStorage.h"

#include <atomic>
#include <cstdint>
#include <limits>
#include <memory>
#include <optional>
#include <string>

#include "unit/UserTaskStorageFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using Operation = MemoryFiles::Operation;

// ---- The directory

TEST_F(UserTaskStorageTest, OpeningCreatesTheDirectoryAndTouchesNoLog) {
  platform.files.put(kLog, "whatever");
  platform.files.erase(kDirectory);
  UserTaskStorage storage(library.platform, "u1");
  EXPECT_EQ(platform.files.kind(kDirectory), PathKind::directory);
  EXPECT_TRUE(storage.userDirPathExist());
  EXPECT_THAT(platform.files.paths(), IsEmpty());
}

TEST_F(UserTaskStorageTest, ExistingDirectoryIsLeftAlone) {
  platform.files.put(kLog, "whatever");
  UserTaskStorage storage(library.platform, "u1");
  EXPECT_THAT(platform.files.calls(), IsEmpty());
}

TEST_F(UserTaskStorageTest, DirectoryThatIsAFileDoesNotExist) {
  platform.files.put(kDirectory, "a file");
  testing::internal::CaptureStdout();
  UserTaskStorage storage(library.platform, "u1");
  EXPECT_THAT(testing::internal::GetCapturedStdout(), HasSubstr("File exists"));
  EXPECT_FALSE(storage.userDirPathExist());
}

TEST_F(UserTaskStorageTest, FailedCreationPrintsTheDescriptionAlone) {
  platform.files.failAll(Operation::createDirectory);
  testing::internal::CaptureStdout();
  UserTaskStorage storage(library.platform, "u1");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), kDirectory + ": Input/output error\n");
  EXPECT_FALSE(storage.userDirPathExist());
}

TEST_F(UserTaskStorageTest, EmptyDocumentsPathStartsAtTheRoot) {
  platform.files.setDocumentDirectories({});
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "a.jpg");
  EXPECT_THAT(platform.files.paths(), ElementsAre("/aws-0011/u1/a.jpg", "/aws-0011/u1/logs.plist"));
}

// ---- Storing

TEST_F(UserTaskStorageTest, StoredTaskIsAFileWithItsBytesAndOneEntry) {
  UserTaskStorage storage(library.platform, "u1");
  const auto stored = store(storage, "a.jpg", {{"itemId", "42"}});
  EXPECT_EQ(stored->filePath(), "aws-0011/u1/a.jpg");
  EXPECT_EQ(platform.files.text(kDirectory + "/a.jpg"), "bytes");
  EXPECT_EQ(
      logFile(),
      Value(Dictionary{{"a.jpg", Dictionary{{"base", Dictionary{{"file_path", "aws-0011/u1/a.jpg"},
                                                                {"module_key", "images"},
                                                                {"upload_count", 0}}},
                                            {"extra", Dictionary{{"itemId", "42"}}}}}}));
}

TEST_F(UserTaskStorageTest, TaskWithoutExtraValuesHasAnEmptyExtraSection) {
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "a.jpg");
  const Value log = logFile();
  const Dictionary& entry = *log.asDictionary()->at("a.jpg").asDictionary();
  EXPECT_EQ(entry.at("extra"), Value(Dictionary()));
}

TEST_F(UserTaskStorageTest, DataIsWrittenPlainlyAndTheLogAtomically) {
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "a.jpg");
  const auto calls = platform.files.calls();
  ASSERT_THAT(calls, SizeIs(3));
  EXPECT_EQ(calls[1].path, kDirectory + "/a.jpg");
  EXPECT_EQ(calls[1].mode, WriteMode::plain);
  EXPECT_EQ(calls[1].durability, Durability::cached);
  EXPECT_EQ(calls[2].path, kLog);
  EXPECT_EQ(calls[2].mode, WriteMode::atomic);
  EXPECT_EQ(calls[2].durability, Durability::cached);
}

TEST_F(UserTaskStorageTest, StorageFileAloneLeavesTheLogUntouched) {
  UserTaskStorage storage(library.platform, "u1");
  ASSERT_TRUE(storage.storageFile(dataTask("a.jpg")));
  EXPECT_FALSE(platform.files.text(kLog));
  EXPECT_FALSE(storage.filePath("a.jpg"));
}

TEST_F(UserTaskStorageTest, StoredTaskComesBackAsItselfAndWritesNothing) {
  UserTaskStorage storage(library.platform, "u1");
  const auto task = std::make_shared<FileTask>(platform.files, "a.jpg", "images",
                                               "aws-0011/u1/a.jpg", 4, AWSParameterMap());
  EXPECT_EQ(storage.storageFile(task), task);
  EXPECT_THAT(platform.files.paths(), IsEmpty());
}

/// The library makes neither of these kinds of task: one on the disk without a path, and one
/// without bytes.
class OddTask : public Task {
 public:
  explicit OddTask(bool hasPath) : hasPath_(hasPath) {}
  const std::string& scope() const override { return scope_; }
  bool hasPath() const override { return hasPath_; }
  const std::string& filename() const override { return filename_; }
  const AWSParameterMap& extra() const override { return extra_; }
  AWSParameterMap& extra() override { return extra_; }
  std::optional<Data> data() const override { return std::nullopt; }

 private:
  const bool hasPath_;
  std::string filename_ = "a.jpg";
  std::string scope_ = "images";
  AWSParameterMap extra_;
};

TEST_F(UserTaskStorageTest, TaskThatOnlySaysItIsStoredYieldsNoTask) {
  UserTaskStorage storage(library.platform, "u1");
  EXPECT_EQ(storage.storageFile(std::make_shared<OddTask>(/*hasPath=*/true)), nullptr);
  EXPECT_THAT(platform.files.paths(), IsEmpty());
}

TEST_F(UserTaskStorageTest, TaskWithoutBytesYieldsNoTask) {
  UserTaskStorage storage(library.platform, "u1");
  EXPECT_EQ(storage.storageFile(std::make_shared<OddTask>(/*hasPath=*/false)), nullptr);
  EXPECT_THAT(platform.files.paths(), IsEmpty());
}

TEST_F(UserTaskStorageTest, FailedDataWriteYieldsNoTaskAndNoEntry) {
  UserTaskStorage storage(library.platform, "u1");
  platform.files.fail(Operation::write, kDirectory + "/a.jpg");
  EXPECT_EQ(storage.storageFile(dataTask("a.jpg")), nullptr);
  EXPECT_THAT(platform.files.paths(), IsEmpty());
}

TEST_F(UserTaskStorageTest, RemovedDirectoryIsNotCreatedAgain) {
  UserTaskStorage storage(library.platform, "u1");
  platform.files.erase(kDirectory);
  EXPECT_EQ(storage.storageFile(dataTask("a.jpg")), nullptr);
  EXPECT_FALSE(storage.syncLog());
  EXPECT_EQ(platform.files.kind(kDirectory), PathKind::absent);
}

TEST_F(UserTaskStorageTest, SameNameTwiceKeepsTheLaterEntry) {
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "a.jpg", {{"turn", std::int64_t{1}}});
  store(storage, "a.jpg", {{"turn", std::int64_t{2}}});
  const AWSLogMap log = storage.localLogs();
  ASSERT_THAT(log, SizeIs(1));
  EXPECT_EQ(log.at("a.jpg").at("extra").at("turn"), AWSBasicParameter(std::int64_t{2}));
}

TEST_F(UserTaskStorageTest, FailedLogWriteAnswersFalseAndKeepsTheEntryInMemory) {
  UserTaskStorage storage(library.platform, "u1");
  const auto stored = storage.storageFile(dataTask("a.jpg"));
  platform.files.fail(Operation::write, kLog);
  EXPECT_FALSE(storage.storageLog(*stored));
  EXPECT_EQ(storage.filePath("a.jpg"), "aws-0011/u1/a.jpg");
  EXPECT_FALSE(storage.remove("a.jpg"));
  EXPECT_FALSE(storage.filePath("a.jpg"));
  EXPECT_THAT(platform.files.paths(), IsEmpty());
}

TEST_F(UserTaskStorageTest, MemoryEntryKeepsTheKindsOfItsValues) {
  UserTaskStorage storage(library.platform, "u1");
  const AWSParameterMap extra = {{"double", 2.0},
                                 {"float", 0.1F},
                                 {"int", std::int64_t{-5}},
                                 {"text", "a\r\n<&>\xC3\xA4"},
                                 {"uint", std::uint64_t{7}}};
  store(storage, "a.jpg", extra);
  const auto entry = storage.entry("a.jpg");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->at("extra"), extra);
}

/// Counts the texts that are read.
class CountedPropertyLists : public SimplePropertyLists {
 public:
  Result<Value> decode(const Data& bytes) override {
    ++decoded;
    return SimplePropertyLists::decode(bytes);
  }

  std::atomic<int> decoded = 0;
};

TEST_F(UserTaskStorageTest, StoringReadsNothing) {
  CountedPropertyLists lists;
  Library& counted = keptLibrary(platform.seams().with(lists));
  UserTaskStorage storage(counted.platform, "u1");
  store(storage, "a.jpg", {{"text", "a"}, {"float", 0.1F}});
  EXPECT_EQ(lists.decoded, 0);
}

TEST_F(UserTaskStorageTest, LogBringsValuesBackAsTheirNarrowestKind) {
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "a.jpg",
        {{"double", 2.5},
         {"float", 0.1F},
         {"huge", std::numeric_limits<std::uint64_t>::max()},
         {"integral", 2.0},
         {"text", "a\r\n<&>\xC3\xA4"},
         {"uint", std::uint64_t{7}}});
  EXPECT_EQ(storage.localLogs().at("a.jpg").at("extra"),
            (AWSParameterMap{{"double", 2.5},
                             {"float", static_cast<double>(0.1F)},
                             {"huge", std::numeric_limits<std::uint64_t>::max()},
                             {"integral", std::int64_t{2}},
                             {"text", "a\r\n<&>\xC3\xA4"},
                             {"uint", std::int64_t{7}}}));
}

// ---- Deleting

TEST_F(UserTaskStorageTest, RemovedTaskLeavesNeitherFileNorEntry) {
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "a.jpg");
  store(storage, "b.jpg");
  EXPECT_TRUE(storage.remove("a.jpg"));
  EXPECT_THAT(platform.files.paths(), ElementsAre(kDirectory + "/b.jpg", kLog));
  EXPECT_THAT(loggedNames(storage), ElementsAre("b.jpg"));
}

TEST_F(UserTaskStorageTest, RemovingTheLastTaskLeavesAnEmptyLog) {
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "a.jpg");
  EXPECT_TRUE(storage.remove("a.jpg"));
  EXPECT_EQ(logFile(), Value(Dictionary()));
}

TEST_F(UserTaskStorageTest, RemoveOfATaskOfAnEarlierRunChangesNothing) {
  {
    UserTaskStorage earlier(library.platform, "u1");
    store(earlier, "a.jpg");
  }
  UserTaskStorage storage(library.platform, "u1");
  const auto before = platform.files.text(kLog);
  EXPECT_FALSE(storage.remove("a.jpg"));
  EXPECT_FALSE(storage.remove("never.jpg"));
  EXPECT_EQ(platform.files.text(kLog), before);
  EXPECT_TRUE(platform.files.text(kDirectory + "/a.jpg"));
}

TEST_F(UserTaskStorageTest, FirstWriteOfARunDropsEarlierEntriesAndKeepsTheirFiles) {
  {
    UserTaskStorage earlier(library.platform, "u1");
    store(earlier, "a.jpg");
  }
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "b.jpg");
  EXPECT_THAT(loggedNames(storage), ElementsAre("b.jpg"));
  EXPECT_TRUE(platform.files.text(kDirectory + "/a.jpg"));
}

TEST_F(UserTaskStorageTest, FileThatCannotBeRemovedKeepsItsEntry) {
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "a.jpg");
  platform.files.fail(Operation::remove, kDirectory + "/a.jpg");
  EXPECT_FALSE(storage.remove("a.jpg"));
  EXPECT_THAT(loggedNames(storage), ElementsAre("a.jpg"));
  EXPECT_EQ(storage.filePath("a.jpg"), "aws-0011/u1/a.jpg");
}

TEST_F(UserTaskStorageTest, EntryOfAMissingFileIsRemoved) {
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "a.jpg");
  platform.files.erase(kDirectory + "/a.jpg");
  EXPECT_TRUE(storage.remove("a.jpg"));
  EXPECT_THAT(loggedNames(storage), IsEmpty());
}

TEST_F(UserTaskStorageTest, DeletingAMissingFileSucceeds) {
  UserTaskStorage storage(library.platform, "u1");
  EXPECT_TRUE(storage.deleteFile("aws-0011/u1/gone.jpg"));
}

}  // namespace
}  // namespace qx
