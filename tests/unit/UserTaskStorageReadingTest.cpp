#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "unit/UserTaskStorageFixture.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using Operation = MemoryFiles::Operation;

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

}  // namespace
}  // namespace qx
