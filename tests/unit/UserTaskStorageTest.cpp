#include "Classes/UserTaskStorage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Operation = MemoryFiles::Operation;

const std::string kDirectory = "/documents/aws-0011/u1";
const std::string kLog = kDirectory + "/logs.plist";

/// The log of one task with these sections in its entry.
std::string logWith(const std::string& filename, const std::string& sections) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>" +
         filename + "</key><dict>" + sections + "</dict></dict></plist>";
}

std::string base(const std::string& path, const std::string& more = "") {
  return "<key>base</key><dict><key>file_path</key><string>" + path +
         "</string><key>module_key</key><string>images</string>" + more + "</dict>";
}

class UserTaskStorageTest : public testing::Test {
 protected:
  static std::shared_ptr<DataTask> dataTask(const std::string& filename, AWSParameterMap extra = {},
                                            const std::string& bytes = "bytes") {
    return std::make_shared<DataTask>(filename, "images", Data(bytes), std::move(extra));
  }
  /// Stores the file and the log entry of a task.
  static std::shared_ptr<FileTask> store(UserTaskStorage& storage, const std::string& filename,
                                         AWSParameterMap extra = {}) {
    auto stored = storage.storageFile(dataTask(filename, std::move(extra)));
    EXPECT_TRUE(stored && storage.storageLog(*stored)) << filename;
    return stored;
  }
  std::vector<std::string> loggedNames(const UserTaskStorage& storage) {
    std::vector<std::string> names;
    for (const auto& [name, entry] : storage.localLogs()) names.push_back(name);
    return names;
  }
  /// The decoded log file, read without the code under test.
  Value logFile() {
    const auto text = platform.files.text(kLog);
    if (!text) return {};
    const Result<Value> value = platform.propertyLists.decode(Data(*text));
    return value ? *value : Value();
  }

  FakePlatform& platform = FakePlatform::kept();
  Library& library = keptLibrary(platform.seams());
};

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

// ---- Reading

TEST_F(UserTaskStorageTest, TaskIsRebuiltFromTheLog) {
  platform.files.put(kLog, logWith("a.jpg", base("aws-0011/u1/a.jpg",
                                                 "<key>upload_count</key><integer>3</integer>") +
                                                "<key>extra</key><dict><key>n</key>"
                                                "<integer>5</integer></dict>"));
  const auto tasks = UserTaskStorage(library.platform, "u1").localTasks();
  ASSERT_THAT(tasks, SizeIs(1));
  EXPECT_EQ(tasks[0]->filename(), "a.jpg");
  EXPECT_EQ(tasks[0]->scope(), "images");
  EXPECT_EQ(tasks[0]->filePath(), "aws-0011/u1/a.jpg");
  EXPECT_EQ(tasks[0]->uploadCount(), 3);
  EXPECT_EQ(tasks[0]->extra(), (AWSParameterMap{{"n", std::int64_t{5}}}));
}

TEST_F(UserTaskStorageTest, CountWrittenAsAnIntegralRealIsThatInteger) {
  platform.files.put(
      kLog, logWith("a.jpg", base("aws-0011/u1/a.jpg", "<key>upload_count</key><real>4.0</real>")));
  const auto tasks = UserTaskStorage(library.platform, "u1").localTasks();
  ASSERT_THAT(tasks, SizeIs(1));
  EXPECT_EQ(tasks[0]->uploadCount(), 4);
}

TEST_F(UserTaskStorageTest, MissingCountIsZeroAndMissingExtraIsEmpty) {
  platform.files.put(kLog, logWith("a.jpg", base("aws-0011/u1/a.jpg")));
  const auto tasks = UserTaskStorage(library.platform, "u1").localTasks();
  ASSERT_THAT(tasks, SizeIs(1));
  EXPECT_EQ(tasks[0]->uploadCount(), 0);
  EXPECT_THAT(tasks[0]->extra(), IsEmpty());
}

TEST_F(UserTaskStorageTest, CountThatNoIntegerCanHoldIsZero) {
  for (const char* count : {"<real>1e300</real>", "<real>nan</real>", "<real>-inf</real>",
                            "<integer>18446744073709551615</integer>", "<string>many</string>"}) {
    platform.files.put(kLog, logWith("a.jpg", base("aws-0011/u1/a.jpg", "<key>upload_count</key>" +
                                                                            std::string(count))));
    const auto tasks = UserTaskStorage(library.platform, "u1").localTasks();
    ASSERT_THAT(tasks, SizeIs(1)) << count;
    EXPECT_EQ(tasks[0]->uploadCount(), 0) << count;
  }
}

TEST_F(UserTaskStorageTest, EntryWithoutBasePathOrScopeIsSkipped) {
  const std::string scopeOnly =
      "<key>base</key><dict><key>module_key</key><string>images</string></dict>";
  const std::string pathOnly =
      "<key>base</key><dict><key>file_path</key><string>aws-0011/u1/a.jpg</string></dict>";
  for (const std::string& sections :
       {std::string(), std::string("<key>extra</key><dict/>"), scopeOnly, pathOnly}) {
    platform.files.put(kLog, logWith("a.jpg", sections));
    EXPECT_THAT(UserTaskStorage(library.platform, "u1").localTasks(), IsEmpty()) << sections;
  }
}

TEST_F(UserTaskStorageTest, AbsentAndEmptyInformationYieldNoTask) {
  const AWSLogEntry empty;
  EXPECT_EQ(UserTaskStorage(library.platform, "u1").task("a.jpg", nullptr), nullptr);
  EXPECT_EQ(UserTaskStorage(library.platform, "u1").task("a.jpg", &empty), nullptr);
}

TEST_F(UserTaskStorageTest, UnusableLogReadsAsEmpty) {
  const std::string head = "<plist version=\"1.0\">";
  for (const std::string& log :
       {std::string("no property list"), std::string(), head + "<array/></plist>",
        head + "<dict><key>a</key><string>x</string></dict></plist>",
        head + "<dict><key>a</key><dict><key>base</key><string>x</string></dict></dict></plist>",
        // One entry of another shape makes the whole log unusable.
        logWith("a.jpg", base("aws-0011/u1/a.jpg") + "<key>extra</key><array/>")}) {
    platform.files.put(kLog, log);
    UserTaskStorage storage(library.platform, "u1");
    EXPECT_THAT(storage.localLogs(), IsEmpty()) << log;
    EXPECT_THAT(storage.localTasks(), IsEmpty()) << log;
  }
}

TEST_F(UserTaskStorageTest, MissingOrUnreadableLogReadsAsEmpty) {
  UserTaskStorage storage(library.platform, "u1");
  EXPECT_THAT(storage.localLogs(), IsEmpty());
  store(storage, "a.jpg");
  platform.files.fail(Operation::read, kLog);
  EXPECT_THAT(storage.localLogs(), IsEmpty());
}

TEST_F(UserTaskStorageTest, ReadingTheLogLeavesTheMemoryEmpty) {
  platform.files.put(kLog, logWith("a.jpg", base("aws-0011/u1/a.jpg")));
  UserTaskStorage storage(library.platform, "u1");
  ASSERT_THAT(storage.localTasks(), SizeIs(1));
  EXPECT_FALSE(storage.filePath("a.jpg"));
  EXPECT_FALSE(storage.entry("a.jpg"));
}

TEST_F(UserTaskStorageTest, LogTruncatedAnywhereNeverYieldsAHalfEntry) {
  {
    UserTaskStorage storage(library.platform, "u1");
    store(storage, "a.jpg", {{"text", "value"}});
    store(storage, "b.jpg", {{"number", std::int64_t{5}}});
  }
  const std::string whole = *platform.files.text(kLog);
  for (std::size_t size = 0; size < whole.size(); ++size) {
    platform.files.put(kLog, whole.substr(0, size));
    const AWSLogMap log = UserTaskStorage(library.platform, "u1").localLogs();
    EXPECT_TRUE(log.empty() || log.size() == 2) << size;
  }
}

TEST_F(UserTaskStorageTest, LogWithAnyByteFlippedIsReadWithoutACrash) {
  {
    UserTaskStorage storage(library.platform, "u1");
    store(storage, "a.jpg", {{"text", "value"}, {"real", 2.5}});
  }
  const std::string whole = *platform.files.text(kLog);
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (int bit = 0; bit < 8; ++bit) {
      std::string damaged = whole;
      damaged[at] = static_cast<char>(damaged[at] ^ (1 << bit));
      platform.files.put(kLog, damaged);
      EXPECT_LE(UserTaskStorage(library.platform, "u1").localTasks().size(), 1U);
    }
  }
}

// ---- Names that lead elsewhere

TEST_F(UserTaskStorageTest, UserIdThatIsNoPlainNameNeverReachesTheFiles) {
  for (const std::string& user :
       {std::string(), std::string("."), std::string(".."), std::string("../u2"),
        std::string("a/b"), std::string("a\0b", 3)}) {
    testing::internal::CaptureStdout();
    UserTaskStorage storage(library.platform, user);
    EXPECT_THAT(testing::internal::GetCapturedStdout(), Not(IsEmpty()));
    EXPECT_FALSE(storage.userDirPathExist());
    EXPECT_EQ(storage.storageFile(dataTask("a.jpg")), nullptr);
    EXPECT_FALSE(storage.storageLog(FileTask(platform.files, "a.jpg", "images",
                                             "aws-0011/" + user + "/a.jpg", 0, AWSParameterMap())));
    EXPECT_FALSE(storage.syncLog());
    EXPECT_THAT(storage.localTasks(), IsEmpty());
    EXPECT_FALSE(storage.remove("a.jpg"));
    EXPECT_FALSE(storage.deleteFile("aws-0011/" + user + "/a.jpg"));
  }
  EXPECT_THAT(platform.files.calls(), IsEmpty());
}

TEST_F(UserTaskStorageTest, FileNameThatIsNoPlainNameIsNotStored) {
  UserTaskStorage storage(library.platform, "u1");
  for (const std::string& name :
       {std::string(), std::string(".."), std::string("../a.jpg"), std::string("a/b.jpg"),
        std::string("a\0.jpg", 6), std::string("logs.plist")}) {
    EXPECT_EQ(storage.storageFile(dataTask(name)), nullptr) << name;
    EXPECT_FALSE(storage.storageLog(
        FileTask(platform.files, name, "images", "aws-0011/u1/a.jpg", 0, AWSParameterMap())))
        << name;
  }
  EXPECT_THAT(platform.files.paths(), IsEmpty());
}

TEST_F(UserTaskStorageTest, EntryWhosePathLeavesTheDirectoryIsNeverUsed) {
  platform.files.put("/documents/aws-0011/u2/theirs.jpg", "theirs");
  platform.files.put("/etc/passwd", "root");
  for (const std::string& path :
       {std::string("/etc/passwd"), std::string("aws-0011/u2/theirs.jpg"),
        std::string("aws-0011/u1/../u2/theirs.jpg"), std::string("../etc/passwd"),
        std::string("aws-0011/u1/.."), std::string("aws-0011/u1/"), std::string("aws-0011/u1"),
        std::string("aws-0011/u1/logs.plist"), std::string()}) {
    platform.files.put(kLog, logWith("a.jpg", base(path)));
    UserTaskStorage storage(library.platform, "u1");
    EXPECT_THAT(storage.localTasks(), IsEmpty()) << path;
    EXPECT_FALSE(storage.storageLog(
        FileTask(platform.files, "a.jpg", "images", path, 0, AWSParameterMap())));
    EXPECT_FALSE(storage.remove("a.jpg")) << path;
    EXPECT_FALSE(storage.deleteFile(path)) << path;
  }
  EXPECT_EQ(platform.files.text("/documents/aws-0011/u2/theirs.jpg"), "theirs");
  EXPECT_EQ(platform.files.text("/etc/passwd"), "root");
  EXPECT_TRUE(platform.files.text(kLog));
}

TEST_F(UserTaskStorageTest, EntryWhoseNameLeavesTheDirectoryIsNeverUsed) {
  platform.files.put(kLog, logWith("../u2/a.jpg", base("aws-0011/u1/a.jpg")));
  EXPECT_THAT(UserTaskStorage(library.platform, "u1").localTasks(), IsEmpty());
}

// ---- Values that no property list can hold

TEST_F(UserTaskStorageTest, TaskThatCannotBeWrittenHarmsNoOther) {
  UserTaskStorage storage(library.platform, "u1");
  store(storage, "good.jpg");
  const auto bad = storage.storageFile(dataTask("bad.jpg", {{"text", std::string("\x01")}}));
  ASSERT_TRUE(bad);
  EXPECT_FALSE(storage.storageLog(*bad));
  store(storage, "later.jpg");
  EXPECT_THAT(loggedNames(storage), ElementsAre("good.jpg", "later.jpg"));

  EXPECT_TRUE(storage.remove("bad.jpg"));
  EXPECT_THAT(platform.files.paths(),
              ElementsAre(kDirectory + "/good.jpg", kDirectory + "/later.jpg", kLog));
  EXPECT_THAT(loggedNames(storage), ElementsAre("good.jpg", "later.jpg"));
}

TEST_F(UserTaskStorageTest, TextsThatXmlCannotHoldAreRefusedWhereverTheyStand) {
  UserTaskStorage storage(library.platform, "u1");
  const std::string invalid = "\xC3\x28";
  const auto refused = [&](const std::string& filename, const std::string& scope,
                           const AWSParameterMap& extra) {
    const auto stored =
        storage.storageFile(std::make_shared<DataTask>(filename, scope, Data("x"), extra));
    return stored && !storage.storageLog(*stored) && storage.remove(filename);
  };
  EXPECT_TRUE(refused("a.jpg", "images", {{"key", invalid}}));
  EXPECT_TRUE(refused("a.jpg", "images", {{invalid, "value"}}));
  EXPECT_TRUE(refused("a.jpg", invalid, {}));
  EXPECT_TRUE(refused(invalid + ".jpg", "images", {}));
  EXPECT_TRUE(refused("a.jpg", "images", {{"key", std::string("a\0b", 3)}}));
  EXPECT_THAT(platform.files.paths(), ElementsAre(kLog));
}

// ---- Many at once

TEST_F(UserTaskStorageTest, ThreadsStoreAndRemoveWithoutLosingAnEntry) {
  UserTaskStorage storage(library.platform, "u1");
  constexpr int kThreads = 4;
  constexpr int kPerThread = 100;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&storage, t] {
      for (int i = 0; i < kPerThread; ++i) {
        const std::string name = std::to_string(t) + "-" + std::to_string(i) + ".jpg";
        store(storage, name);
        EXPECT_TRUE(storage.filePath(name));
        const bool removed = i % 2 == 1 || storage.remove(name);
        EXPECT_TRUE(removed);
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(storage.localTasks(), SizeIs(kThreads * kPerThread / 2));
}

TEST_F(UserTaskStorageTest, EachAnsweredStoreIsInTheLogAtThatInstant) {
  UserTaskStorage storage(library.platform, "u1");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&storage, t] {
      for (int i = 0; i < 25; ++i) {
        const std::string name = std::to_string(t) + "-" + std::to_string(i) + ".jpg";
        store(storage, name);
        EXPECT_TRUE(storage.localLogs().contains(name)) << name;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST_F(UserTaskStorageTest, EachCallThatWaitsForNobodyWrites) {
  UserTaskStorage storage(library.platform, "u1");
  EXPECT_TRUE(storage.syncLog());
  EXPECT_TRUE(storage.syncLog());
  EXPECT_EQ(platform.files.writeCount(kLog), 2U);
}

// ---- Resuming

class UserTaskStorageResumeTest : public UserTaskStorageTest {
 protected:
  /// Three stored tasks, as a run with "resumeStoredTasks" leaves them.
  void storeThree() {
    UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
    for (const char* name : {"0.jpg", "1.jpg", "2.jpg"}) store(storage, name, {{"text", name}});
  }
  /// The place of an entry in the log: from its key to the key of the next entry, or to the end of
  /// the root.
  static std::pair<std::size_t, std::size_t> placeOf(const std::string& log,
                                                     const std::string& name) {
    const std::size_t begin = log.find("<key>" + name + "</key>");
    std::size_t end = log.rfind("</dict>");
    for (const char* other : {"0.jpg", "1.jpg", "2.jpg"}) {
      const std::size_t at = log.find("<key>" + std::string(other) + "</key>");
      if (at > begin) end = std::min(end, at);
    }
    return {begin, end};
  }
  std::optional<std::string> aside(int number = 1) {
    return platform.files.text(kLog + ".damaged-" + std::to_string(number));
  }
};

TEST_F(UserTaskStorageResumeTest, LaterWritesKeepTheEntriesOfEarlierRuns) {
  storeThree();
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_EQ(storage.filePath("1.jpg"), "aws-0011/u1/1.jpg");
  store(storage, "new.jpg");
  EXPECT_THAT(loggedNames(storage), ElementsAre("0.jpg", "1.jpg", "2.jpg", "new.jpg"));
  EXPECT_EQ(storage.entry("1.jpg")->at("extra"), (AWSParameterMap{{"text", "1.jpg"}}));
}

TEST_F(UserTaskStorageResumeTest, DeleteFindsTheTasksOfEarlierRuns) {
  storeThree();
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_TRUE(storage.remove("1.jpg"));
  EXPECT_THAT(loggedNames(storage), ElementsAre("0.jpg", "2.jpg"));
  EXPECT_FALSE(platform.files.text(kDirectory + "/1.jpg"));
}

TEST_F(UserTaskStorageResumeTest, OpeningAnIntactLogWritesNothing) {
  storeThree();
  const std::size_t calls = platform.files.calls().size();
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_THAT(platform.files.calls(), SizeIs(calls));
  EXPECT_THAT(platform.logger.records(), IsEmpty());
}

TEST_F(UserTaskStorageResumeTest, DataAndThenLogAreSynced) {
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  store(storage, "a.jpg");
  const auto calls = platform.files.calls();
  ASSERT_THAT(calls, SizeIs(3));
  EXPECT_EQ(calls[1].path, kDirectory + "/a.jpg");
  EXPECT_EQ(calls[1].durability, Durability::synced);
  EXPECT_EQ(calls[2].path, kLog);
  EXPECT_EQ(calls[2].durability, Durability::synced);
}

TEST_F(UserTaskStorageResumeTest, DataFilesWithoutAnEntryAreMovedAsideWhenTheStorageOpens) {
  storeThree();
  platform.files.put(kDirectory + "/orphan.jpg", "bytes");
  platform.files.put(kDirectory + "/.qx-17-3.tmp", "half a log");
  platform.files.put(kDirectory + "/.foreign", "not ours");
  platform.files.put(kDirectory + "/folder/file", "not ours");
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_THAT(platform.files.paths(),
              ElementsAre(kDirectory + "/.foreign", kDirectory + "/0.jpg", kDirectory + "/1.jpg",
                          kDirectory + "/2.jpg", kDirectory + "/folder/file", kLog,
                          kDirectory + "/unlogged-1/orphan.jpg"));
}

TEST_F(UserTaskStorageResumeTest, DataFilesWithoutAnEntryStayBesideADamagedLog) {
  storeThree();
  platform.files.put(kDirectory + "/orphan.jpg", "bytes");
  platform.files.put(kDirectory + "/.qx-17-3.tmp", "half a log");
  platform.files.put(kLog + ".damaged-1", "an earlier one");
  const auto before = platform.files.paths();
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_EQ(platform.files.paths(), before);
}

TEST_F(UserTaskStorageResumeTest, EntryWhoseDataFileIsGoneIsDroppedWhenTheStorageOpens) {
  storeThree();
  platform.files.erase(kDirectory + "/1.jpg");
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_FALSE(storage.filePath("1.jpg"));
  EXPECT_THAT(loggedNames(storage), ElementsAre("0.jpg", "2.jpg"));
  EXPECT_THAT(platform.logger.records(), IsEmpty());
}

TEST_F(UserTaskStorageResumeTest, DirectoryThatCannotBeListedCostsNoEntryAndNoFile) {
  storeThree();
  platform.files.put(kDirectory + "/orphan.jpg", "bytes");
  platform.files.erase(kDirectory + "/1.jpg");
  platform.files.fail(Operation::list, kDirectory);
  const auto before = platform.files.paths();
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_THAT(loggedNames(storage), ElementsAre("0.jpg", "1.jpg", "2.jpg"));
  EXPECT_EQ(platform.files.paths(), before);
}

TEST_F(UserTaskStorageResumeTest, LogThatCannotBeReadIsNeverWrittenOver) {
  storeThree();
  platform.files.put(kDirectory + "/orphan.jpg", "bytes");
  const auto before = platform.files.paths();
  const auto log = platform.files.text(kLog);
  platform.files.fail(Operation::read, kLog);
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_EQ(platform.files.paths(), before);
  const auto task = storage.storageFile(dataTask("new.jpg"));
  ASSERT_TRUE(task);
  EXPECT_FALSE(storage.storageLog(*task));
  EXPECT_FALSE(storage.syncLog());
  EXPECT_EQ(platform.files.text(kLog), log);

  // Once the log can be read again, it has its own entries and those of this run.
  platform.files.clearFaults();
  EXPECT_TRUE(storage.storageLog(*task));
  EXPECT_THAT(loggedNames(storage), ElementsAre("0.jpg", "1.jpg", "2.jpg", "new.jpg"));
  EXPECT_TRUE(storage.remove("1.jpg"));
  EXPECT_THAT(loggedNames(storage), ElementsAre("0.jpg", "2.jpg", "new.jpg"));
}

TEST_F(UserTaskStorageResumeTest, DamagedLogThatCannotBeSetAsideIsNeverWrittenOver) {
  storeThree();
  std::string damaged = *platform.files.text(kLog);
  const std::size_t second = damaged.find("<key>1.jpg</key>");
  damaged.replace(damaged.find("<string>images", second), 8, "<strinh>");
  platform.files.put(kLog, damaged);
  platform.files.fail(Operation::write, kLog + ".damaged-1");
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_THAT(platform.logger.messages(),
              ElementsAre("[Error] damaged log could not be set aside, 2 kept, 1 lost"));
  EXPECT_FALSE(storage.syncLog());
  EXPECT_EQ(platform.files.text(kLog), damaged);

  platform.files.clearFaults();
  EXPECT_TRUE(storage.syncLog());
  EXPECT_EQ(aside(), damaged);
  EXPECT_THAT(loggedNames(storage), ElementsAre("0.jpg", "2.jpg"));
  EXPECT_THAT(platform.logger.messages(), SizeIs(2));
  EXPECT_TRUE(platform.files.text(kDirectory + "/1.jpg")) << "stays for a person to look at";
}

// A logger of a host whose records are uploaded in the background.
TEST_F(UserTaskStorageResumeTest, LoggerThatHearsOfTheDamageMayUseTheStorage) {
  storeThree();
  platform.files.put(kLog, platform.files.text(kLog)->substr(0, 700));
  platform.files.fail(Operation::write, kLog + ".damaged-1");
  const auto storage = library.storages.open("u1", StoredTasks::resume);
  platform.files.clearFaults();
  int asked = 0;
  // The host is asked this for each record.
  platform.mediator.answer("QXConfig_currentEnvironmentIsProduction",
                           [&](const std::vector<Value>&) {
                             ++asked;
                             EXPECT_EQ(library.storages.open("u1", StoredTasks::resume), storage);
                             EXPECT_TRUE(storage->syncLog());
                             return Value(false);
                           });
  EXPECT_TRUE(storage->syncLog());
  EXPECT_EQ(asked, 1);
}

TEST_F(UserTaskStorageResumeTest, DamagedLogIsSetAsideAndItsWholeEntriesAreKept) {
  storeThree();
  std::string damaged = *platform.files.text(kLog);
  // The tag of the second entry's scope.
  const std::size_t second = damaged.find("<key>1.jpg</key>");
  damaged.replace(damaged.find("<string>images", second), 8, "<strinh>");
  platform.files.put(kLog, damaged);
  platform.files.put(kLog + ".damaged-1", "an earlier one");
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_EQ(aside(2), damaged);
  EXPECT_THAT(loggedNames(storage), ElementsAre("0.jpg", "2.jpg"));
  EXPECT_EQ(storage.entry("2.jpg")->at("extra"), (AWSParameterMap{{"text", "2.jpg"}}));
  EXPECT_THAT(platform.logger.messages(),
              ElementsAre("[Error] damaged log set aside, 2 kept, 1 lost"));
  EXPECT_TRUE(platform.files.text(kDirectory + "/1.jpg")) << "stays for a person to look at";
}

TEST_F(UserTaskStorageResumeTest, LogTruncatedAnywhereKeepsEveryWholeEntry) {
  storeThree();
  const std::string whole = *platform.files.text(kLog);
  for (std::size_t size = 1; size < whole.size(); ++size) {
    platform.files.put(kLog, whole.substr(0, size));
    UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
    std::size_t kept = 0;
    for (const char* name : {"0.jpg", "1.jpg", "2.jpg"}) {
      if (storage.filePath(name)) ++kept;
      EXPECT_TRUE(size < placeOf(whole, name).second || storage.filePath(name)) << size;
    }
    EXPECT_EQ(storage.localLogs().size(), kept) << size;
    for (const std::string& path : platform.files.paths()) {
      if (path.find(".damaged-") != std::string::npos) platform.files.erase(path);
    }
  }
}

TEST_F(UserTaskStorageResumeTest, LogWithAnyByteFlippedKeepsEveryOtherEntry) {
  storeThree();
  const std::string whole = *platform.files.text(kLog);
  for (std::size_t at = 0; at < whole.size(); ++at) {
    for (const int bits : {1 << (at % 8), 0xFF}) {
      std::string damaged = whole;
      damaged[at] = static_cast<char>(damaged[at] ^ bits);
      platform.files.put(kLog, damaged);
      UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
      for (const char* name : {"0.jpg", "1.jpg", "2.jpg"}) {
        const auto [begin, end] = placeOf(whole, name);
        EXPECT_TRUE((at >= begin && at < end) || storage.contains(name)) << at << " " << name;
      }
      platform.files.erase(kLog + ".damaged-1");
    }
  }
}

TEST_F(UserTaskStorageResumeTest, MovedDocumentsDirectoryChangesNothing) {
  storeThree();
  for (const std::string& path : platform.files.paths()) {
    platform.files.put("/elsewhere" + path, *platform.files.text(path));
  }
  platform.files.erase("/documents");
  platform.files.setDocumentDirectories({"/elsewhere/documents"});
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_THAT(storage.localTasks(), SizeIs(3));
  EXPECT_EQ(storage.localTasks()[0]->data()->text(), "bytes");
  EXPECT_TRUE(storage.remove("0.jpg"));
  EXPECT_FALSE(platform.files.text("/elsewhere" + kDirectory + "/0.jpg"));
}

TEST_F(UserTaskStorageResumeTest, EntryThatLeavesTheDirectoryIsNotResumed) {
  platform.files.put("/documents/aws-0011/u2/theirs.jpg", "theirs");
  platform.files.put(kLog, logWith("a.jpg", base("aws-0011/u2/theirs.jpg")));
  UserTaskStorage storage(library.platform, "u1", StoredTasks::resume);
  EXPECT_FALSE(storage.filePath("a.jpg"));
  EXPECT_FALSE(storage.remove("a.jpg"));
  EXPECT_EQ(platform.files.text("/documents/aws-0011/u2/theirs.jpg"), "theirs");
}

TEST_F(UserTaskStorageResumeTest, StorageInUseIsTheOneThatIsResumed) {
  const auto first = library.storages.open("u1", StoredTasks::resume);
  EXPECT_EQ(library.storages.open("u1", StoredTasks::resume), first);
  EXPECT_NE(library.storages.open("u2", StoredTasks::resume), first);
}

/// The progress of the four threads of a test.
struct Crowd {
  /// The number of entries whose text has been made.
  std::atomic<std::size_t> made = 0;
  /// The number of entries in the log file.
  std::atomic<std::size_t> logged = 0;
  std::atomic<std::size_t> finishedThreads = 0;
};

/// Lets a write of the log begin only when every thread has something to log, as a slow disk would,
/// or after a while, because a thread may wait for the next write with its entry in the log
/// already. The log holds one piece per entry, between two pieces at either end.
class CrowdedFiles : public MemoryFiles {
 public:
  explicit CrowdedFiles(Crowd& crowd) : crowd_(crowd) {}
  std::optional<Error> write(const std::string& path, std::span<const std::string_view> pieces,
                             WriteMode mode, Durability durability) override {
    if (path != kLog) return MemoryFiles::write(path, pieces, mode, durability);
    for (int i = 0; i < 2000; ++i) {
      if (crowd_.made - crowd_.logged + crowd_.finishedThreads >= 4) break;
      std::this_thread::yield();
    }
    crowd_.logged = pieces.size() - 4;
    return MemoryFiles::write(path, pieces, mode, durability);
  }

 private:
  Crowd& crowd_;
};

/// Notices that the text of an entry is made, which is the last step before it goes into the log.
class CrowdedPropertyLists : public SimplePropertyLists {
 public:
  explicit CrowdedPropertyLists(Crowd& crowd) : crowd_(crowd) {}
  std::optional<std::string> element(const Value& value) override {
    auto text = SimplePropertyLists::element(value);
    ++crowd_.made;
    return text;
  }

 private:
  Crowd& crowd_;
};

TEST(UserTaskStorageSharingTest, FourThreadsThatStoreFourHundredTasksShareWrites) {
  FakePlatform& platform = FakePlatform::kept();
  Crowd crowd;
  CrowdedFiles files(crowd);
  CrowdedPropertyLists propertyLists(crowd);
  Library& library = keptLibrary(platform.seams().with(files, propertyLists));
  UserTaskStorage storage(library.platform, "u1");
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&crowd, &storage, t] {
      for (int i = 0; i < 100; ++i) {
        const auto stored = storage.storageFile(
            std::make_shared<DataTask>(std::to_string(t) + "-" + std::to_string(i), "images",
                                       Data("bytes"), AWSParameterMap()));
        EXPECT_TRUE(stored && storage.storageLog(*stored));
      }
      ++crowd.finishedThreads;
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_THAT(storage.localLogs(), SizeIs(400));
  EXPECT_LT(files.writeCount(kLog), 280U);
}

}  // namespace
}  // namespace qx
