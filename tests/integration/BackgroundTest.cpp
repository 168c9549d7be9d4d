// Background uploads on the real platform against the devstack: an outage, two users, a disk that
// does not take the files, and a host process that is killed.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <thread>

#include "integration/HostProcess.h"
#include "integration/TestHost.h"
#include "platforms/shared/LibplistPropertyLists.h"
#include "platforms/shared/PosixFiles.h"

namespace qx {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::StartsWith;

/// The stored log of a user.
Result<Value> readLog(const std::string& userDirectory) {
  const Result<Data> bytes = PosixFiles({}).read(userDirectory + "/logs.plist");
  if (!bytes) return bytes.error();
  return LibplistPropertyLists().decode(*bytes);
}

std::string userDirectory(const std::string& documents, const Devstack::User& user) {
  return documents + "/aws-0011/" + user.userId;
}

std::size_t dataFiles(const std::string& directory) {
  std::size_t count = 0;
  for (const auto& entry : fs::directory_iterator(directory)) {
    if (entry.path().filename() != "logs.plist") ++count;
  }
  return count;
}

int succeeded(const std::vector<BackgroundOutcome>& outcomes) {
  int count = 0;
  for (const BackgroundOutcome& outcome : outcomes) count += outcome.error ? 0 : 1;
  return count;
}

Dictionary backgroundUpload(const std::string& bytes, const std::string& name = "") {
  return {{"scope", "private-file"},
          {"data", Data(bytes)},
          {"suffix", "txt"},
          {"extra", Dictionary{{"name", name}}}};
}

TEST(BackgroundUpload, StoredThroughAnOutageThenArrivesThreeAtATime) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.timerSpeed = 30});
  const std::string directory = userDirectory(host.documents(), devstack.user(0));
  devstack.down("store");
  host.setUp();
  host.perform("Action_SetMaxBackgroundConcurrent:", {{"count", 3}});
  const std::string image =
      readFile(QX_SOURCE_DIR "/tests/contract/data/jpeg-orientation-6-30x40.jpg");
  for (int i = 0; i < 40; ++i) {
    host.perform("Action_BackgroundUpload:",
                 backgroundUpload("payload " + std::to_string(i), "task " + std::to_string(i)));
  }
  for (int i = 0; i < 4; ++i) {
    host.perform("Action_BackgroundUploadImage:", {{"scope", "item-image"},
                                                   {"data", Data(image)},
                                                   {"itemId", std::to_string(900 + i)},
                                                   {"suffix", "jpg"},
                                                   {"useDetUpload", i == 3 ? "true" : "false"}});
  }
  // An accepted upload is on the disk before the action returns.
  EXPECT_EQ(dataFiles(directory), 44U);
  const Result<Value> log = readLog(directory);
  ASSERT_TRUE(log) << log.error().description;
  EXPECT_EQ(log->asDictionary()->size(), 44U);

  ASSERT_TRUE(host.waitUntil([&] { return host.backgroundOutcomes().size() >= 44; }));
  EXPECT_EQ(succeeded(host.backgroundOutcomes()), 0);
  EXPECT_EQ(dataFiles(directory), 44U);

  devstack.up("store");
  ASSERT_TRUE(host.waitUntil([&] { return succeeded(host.backgroundOutcomes()) == 44; }));
  EXPECT_LE(devstack.stats().at("store").at("maxInFlight").get<int>(), 3);
  ASSERT_TRUE(host.waitUntil([&] { return dataFiles(directory) == 0; }));
  EXPECT_TRUE(readLog(directory)->asDictionary()->empty());

  std::set<std::string> names;
  for (const BackgroundOutcome& outcome : host.backgroundOutcomes()) {
    if (outcome.error) {
      EXPECT_EQ(outcome.error->domain, "AWSUploaderError");
      EXPECT_FALSE(outcome.url && outcome.extra.contains("imageUrl"));
    } else if (outcome.scope == "private-file") {
      names.insert(outcome.extra.at("name"));
      const std::string number = outcome.extra.at("name").substr(5);
      if (number == "7") {
        EXPECT_EQ(devstack.object(host.keyOf(*outcome.url)).bytes, "payload 7");
      }
    }
  }
  EXPECT_EQ(names.size(), 40U);

  ASSERT_TRUE(host.waitUntil([&] {
    int reports = 0;
    for (const auto& event : devstack.events()) {
      const auto path = event.at("path").get<std::string>();
      if (path.starts_with("/v3/item/")) ++reports;
    }
    return reports == 4;
  }));
  const std::string det = "/v3/item/update_item_original_det_image_url";
  int detReports = 0;
  for (const auto& event : devstack.events()) {
    const auto path = event.at("path").get<std::string>();
    if (!path.starts_with("/v3/item/")) continue;
    const auto& fields = event.at("body");
    const bool isDet = path == det;
    detReports += isDet ? 1 : 0;
    EXPECT_EQ(fields.at("item_id").get<int>() == 903, isDet);
    EXPECT_TRUE(fields.contains(isDet ? "original_det_image_url" : "original_image_url"));
    // The file holds 40 x 30 pixels and an orientation of a quarter turn.
    EXPECT_EQ(fields.at("original_image_width"), 30);
    EXPECT_EQ(fields.at("original_image_height"), 40);
    EXPECT_EQ(fields.at("original_image_file_size"), image.size());
    EXPECT_EQ(fields.at("original_image_file_format"), "jpg");
    EXPECT_EQ(fields.at("original_image_sha1").get<std::string>().size(), 40U);
  }
  EXPECT_EQ(detReports, 1);
}

TEST(BackgroundUpload, TasksOfOneUserNeverRunForTheNext) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.timerSpeed = 60});
  const Devstack::User first = devstack.user(0);
  const Devstack::User second = devstack.user(1);
  devstack.down("backend");  // Without credentials, tasks stay stored.
  host.setUp();
  for (int i = 0; i < 5; ++i) host.perform("Action_BackgroundUpload:", backgroundUpload("first"));
  ASSERT_TRUE(host.waitUntil([&] { return host.backgroundOutcomes().size() >= 5; }));
  host.signIn(second);
  const std::size_t before = host.backgroundOutcomes().size();
  for (int i = 0; i < 3; ++i) host.perform("Action_BackgroundUpload:", backgroundUpload("second"));
  ASSERT_TRUE(host.waitUntil([&] { return host.backgroundOutcomes().size() >= before + 3; }));
  devstack.up("backend");
  ASSERT_TRUE(host.waitUntil([&] { return succeeded(host.backgroundOutcomes()) == 3; }));
  for (const BackgroundOutcome& outcome : host.backgroundOutcomes()) {
    if (outcome.error) continue;
    const std::string key = host.keyOf(*outcome.url);
    EXPECT_THAT(key, StartsWith("private/" + second.userId + "/"));
    EXPECT_EQ(devstack.object(key).bytes, "second");
  }
  EXPECT_EQ(dataFiles(userDirectory(host.documents(), first)), 5U);
  EXPECT_EQ(dataFiles(userDirectory(host.documents(), second)), 0U);
}

// ---- Disks that do not take the files

/// Mounts a tmpfs over `directory` that only this process sees. As an ordinary user in a user
/// namespace of its own. Before any other thread runs.
void mountSmallDisk(const std::string& directory, const char* options, unsigned long flags = 0) {
  const int uid = static_cast<int>(getuid());
  const int gid = static_cast<int>(getgid());
  const bool root = geteuid() == 0;
  ASSERT_EQ(unshare(CLONE_NEWNS | (root ? 0 : CLONE_NEWUSER)), 0) << strerror(errno);
  if (!root) {
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << uid << " " << uid << " 1";
    std::ofstream("/proc/self/gid_map") << gid << " " << gid << " 1";
  }
  ASSERT_EQ(mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr), 0) << strerror(errno);
  ASSERT_EQ(mount("tmpfs", directory.c_str(), "tmpfs", flags, options), 0) << strerror(errno);
}

TEST(BackgroundUpload, FullDiskUploadsFromMemoryAndLeavesNothing) {
  const TemporaryDirectory documents;
  ASSERT_NO_FATAL_FAILURE(mountSmallDisk(documents.path(), "size=256k"));
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.documentsDirectory = documents.path()});
  host.setUp();
  const std::string bytes(1 << 20, 'x');
  host.perform("Action_BackgroundUpload:", backgroundUpload(bytes));
  ASSERT_TRUE(host.waitUntil([&] { return host.backgroundOutcomes().size() == 1; }));
  const BackgroundOutcome outcome = host.backgroundOutcomes()[0];
  ASSERT_FALSE(outcome.error) << outcome.error->description;
  EXPECT_TRUE(devstack.object(host.keyOf(*outcome.url)).bytes == bytes);
  EXPECT_EQ(dataFiles(userDirectory(documents.path(), devstack.user(0))), 0U);
  // Uploads that fit are stored again.
  host.perform("Action_BackgroundUpload:", backgroundUpload("small"));
  ASSERT_TRUE(host.waitUntil([&] { return succeeded(host.backgroundOutcomes()) == 2; }));
}

TEST(BackgroundUpload, ReadOnlyDiskUploadsFromMemory) {
  const TemporaryDirectory documents;
  ASSERT_NO_FATAL_FAILURE(mountSmallDisk(documents.path(), "size=256k", MS_RDONLY));
  Devstack devstack;
  TestHost& host = TestHost::start(devstack, {.documentsDirectory = documents.path()});
  host.setUp();
  host.perform("Action_BackgroundUpload:", backgroundUpload("read-only"));
  ASSERT_TRUE(host.waitUntil([&] { return succeeded(host.backgroundOutcomes()) == 1; }));
}

TEST(BackgroundUpload, DirectoryRemovedWhileRunningLosesNoUploadInMemory) {
  Devstack devstack;
  TestHost& host = TestHost::start(devstack);
  host.setUp();
  for (int i = 0; i < 20; ++i) {
    if (i == 10) fs::remove_all(host.documents() + "/aws-0011");
    host.perform("Action_BackgroundUpload:", backgroundUpload(std::to_string(i)));
  }
  ASSERT_TRUE(host.waitUntil([&] { return host.backgroundOutcomes().size() >= 20; }));
  // The last ten uploads could not be stored and ran from memory. Of the others, those whose data
  // file had been removed before it was read report that.
  EXPECT_GE(succeeded(host.backgroundOutcomes()), 10);
  for (const BackgroundOutcome& outcome : host.backgroundOutcomes()) {
    if (outcome.error) {
      EXPECT_EQ(outcome.error->description, "[Error] not found file or data");
    }
  }
}

// ---- A host that is killed

TEST(BackgroundUpload, KilledHostLeavesAReadableLogWhoseTasksAllArriveLater) {
  Devstack devstack;
  const TemporaryDirectory documents;
  const std::string directory = userDirectory(documents.path(), devstack.user(0));
  std::mt19937 random(20261121);
  for (int round = 0; round < 3; ++round) {
    SCOPED_TRACE("round " + std::to_string(round));
    fs::remove_all(documents.path() + "/aws-0011");
    HostProcess host([&] {
      TestHost& inner = TestHost::start(devstack, {.documentsDirectory = documents.path()});
      inner.setUp();
      for (int i = 0; i < 200; ++i) {
        inner.perform("Action_BackgroundUpload:", backgroundUpload("task " + std::to_string(i)));
      }
      inner.waitUntil([&] { return succeeded(inner.backgroundOutcomes()) == 200; });
    });
    while (!fs::exists(directory + "/logs.plist")) std::this_thread::yield();
    // The log can be read at every instant, however often the test reads it.
    const auto end = std::chrono::steady_clock::now() +
                     std::chrono::milliseconds(std::uniform_int_distribution(1, 400)(random));
    int looks = 0;
    while (std::chrono::steady_clock::now() < end) {
      const Result<Value> log = readLog(directory);
      ASSERT_TRUE(log) << log.error().description;
      ++looks;
    }
    EXPECT_GT(looks, 0);
    host.kill();
    EXPECT_TRUE(host.onlyKilled());

    const Result<Value> log = readLog(directory);
    ASSERT_TRUE(log) << log.error().description;
    std::set<std::string> left;
    for (const auto& [name, entry] : *log->asDictionary()) {
      const Dictionary* sections = entry.asDictionary();
      ASSERT_TRUE(sections);
      EXPECT_EQ(readDictionary(*sections, "base")->size(), 3U);
      // An entry is written after its file and removed after it. The file of an entry may be
      // missing if the task was being removed.
      if (fs::exists(directory + "/" + name)) left.insert(name);
    }
    HostProcess again([&] {
      TestHost& inner = TestHost::start(devstack, {.documentsDirectory = documents.path()});
      inner.setUp();
      inner.waitUntil([&] { return false; }, 3600);
    });
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const std::string prefix = "private/" + devstack.user(0).userId + "/";
    std::set<std::string> missing = left;
    while (!missing.empty() && std::chrono::steady_clock::now() < deadline) {
      for (const std::string& key : devstack.keys(prefix)) missing.erase(key.substr(prefix.size()));
    }
    EXPECT_TRUE(missing.empty()) << missing.size() << " of " << left.size() << " did not arrive";
    again.kill();
    EXPECT_TRUE(again.onlyKilled());
  }
}

}  // namespace
}  // namespace qx
