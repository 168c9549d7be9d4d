#include <algorithm>
#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "unit/UserTaskStorageFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using Operation = MemoryFiles::Operation;

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

}  // namespace
}  // namespace qx
