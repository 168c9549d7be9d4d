// The storage on the real files and the real property lists. Python's plistlib judges what is on
// the disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <vector>

#include "Classes/UserTaskStorage.h"
#include "contract/Python.h"
#include "contract/TemporaryDirectory.h"
#include "fakes/FakePlatform.h"
#include "platforms/shared/LibplistPropertyLists.h"
#include "platforms/shared/PosixFiles.h"

namespace qx {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::UnorderedElementsAre;

/// Writes a log that stores a.jpg and b.png, in the form that argv names.
std::string pythonLog(const std::string& form) {
  return runPython(R"(
import plistlib, sys
form = plistlib.FMT_BINARY if open(sys.argv[1]).read() == "binary" else plistlib.FMT_XML
def entry(name, count, extra):
    return {"base": {"file_path": "aws-0011/u1/" + name, "module_key": "avatar", "upload_count": count},
            "extra": extra}
plistlib.dump({"a.jpg": entry("a.jpg", 3, {"text": "<h\u00e9>", "whole": 2.0, "half": 2.5, "big": 2**64 - 1}),
               "b.png": entry("b.png", 0, {})}, open(sys.argv[2], "wb"), fmt=form)
)",
                   form);
}

class UserTaskStorageOnDiskTest : public testing::Test {
 protected:
  UserTaskStorageOnDiskTest() { std::filesystem::create_directories(user_); }

  static std::string contents(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }
  void put(const std::string& name, const std::string& text) const {
    std::ofstream(user_ + "/" + name, std::ios::binary) << text;
  }
  /// The names in the user's directory.
  std::vector<std::string> names() const {
    std::vector<std::string> found;
    for (const auto& entry : std::filesystem::directory_iterator(user_)) {
      found.push_back(entry.path().filename());
    }
    return found;
  }
  static void store(UserTaskStorage& storage, const std::string& name, AWSParameterMap extra = {}) {
    const auto task = storage.storageFile(
        std::make_shared<DataTask>(name, "avatar", Data("bytes of " + name), std::move(extra)));
    ASSERT_TRUE(task);
    ASSERT_TRUE(storage.storageLog(*task));
  }

  const TemporaryDirectory directory_;
  const std::string user_ = directory_.path() + "/aws-0011/u1";
  const std::string log_ = user_ + "/logs.plist";
  PosixFiles files_{{directory_.path()}};
  LibplistPropertyLists propertyLists_;
  FakePlatform fakes_;
  const Platform platform_ = fakes_.seams().with(files_, propertyLists_);
};

TEST_F(UserTaskStorageOnDiskTest, PythonReadsTheLogThatTheStorageWrites) {
  for (const StoredTasks mode : {StoredTasks::startEmpty, StoredTasks::resume}) {
    UserTaskStorage storage(platform_, "u1", mode);
    store(storage, "a&b.jpg",
          {{"text", "<h\xC3\xA9>\n\xF0\x9F\x93\xB7"},
           {"least", std::numeric_limits<std::int64_t>::min()},
           {"most", std::numeric_limits<std::uint64_t>::max()},
           {"float", 1.5F},
           {"double", 0.1}});
    store(storage, "gone.jpg");
    store(storage, "z.png");
    ASSERT_TRUE(storage.remove("gone.jpg"));
    EXPECT_EQ(runPython(R"(
import plistlib, sys
log = plistlib.load(open(sys.argv[1], "rb"))
def base(name):
    return {"file_path": "aws-0011/u1/" + name, "module_key": "avatar", "upload_count": 0}
assert log == {"a&b.jpg": {"base": base("a&b.jpg"),
                           "extra": {"text": "<h\u00e9>\n\U0001F4F7", "least": -2**63, "most": 2**64 - 1,
                                     "float": 1.5, "double": 0.1}},
               "z.png": {"base": base("z.png"), "extra": {}}}, log
open(sys.argv[2], "w").write("ok")
)",
                        contents(log_)),
              "ok");
    EXPECT_THAT(names(), UnorderedElementsAre("a&b.jpg", "logs.plist", "z.png"));
    EXPECT_EQ(contents(user_ + "/z.png"), "bytes of z.png");
  }
}

TEST_F(UserTaskStorageOnDiskTest, LogsThatPythonWritesAreReadInBothForms) {
  for (const char* form : {"xml", "binary"}) {
    put("logs.plist", pythonLog(form));
    UserTaskStorage storage(platform_, "u1");
    const AWSLogMap log = storage.localLogs();
    ASSERT_THAT(log, SizeIs(2)) << form;
    EXPECT_EQ(log.at("a.jpg").at("extra"),
              (AWSParameterMap{{"text", "<h\xC3\xA9>"},
                               {"whole", std::int64_t{2}},
                               {"half", 2.5},
                               {"big", std::numeric_limits<std::uint64_t>::max()}}))
        << form;
    const auto task = storage.task("a.jpg", &log.at("a.jpg"));
    ASSERT_TRUE(task);
    EXPECT_EQ(task->uploadCount(), 3);
    EXPECT_EQ(task->scope(), "avatar");
    EXPECT_EQ(task->filePath(), "aws-0011/u1/a.jpg");
    EXPECT_FALSE(storage.contains("a.jpg")) << "a run begins without the tasks of earlier ones";
  }
}

TEST_F(UserTaskStorageOnDiskTest, LogsThatPythonWritesAreResumedInBothForms) {
  for (const char* form : {"xml", "binary"}) {
    put("logs.plist", pythonLog(form));
    put("a.jpg", "bytes");
    put("b.png", "bytes");
    {
      UserTaskStorage storage(platform_, "u1", StoredTasks::resume);
      EXPECT_TRUE(storage.contains("a.jpg")) << form;
      EXPECT_TRUE(storage.remove("b.png")) << form;
      EXPECT_EQ(storage.entry("a.jpg")->at("base").at("upload_count").toInt(), 3);
    }
    EXPECT_THAT(UserTaskStorage(platform_, "u1").localTasks(), SizeIs(1)) << form;
    EXPECT_THAT(names(), UnorderedElementsAre("a.jpg", "logs.plist")) << form;
    EXPECT_THAT(fakes_.logger.records(), IsEmpty()) << "nothing was damaged";
  }
}

// The text looks like a tag, and the storage never writes a list of this type.
TEST_F(UserTaskStorageOnDiskTest, EntryWithForeignValuesIsResumedInBothForms) {
  for (const char* form : {"xml", "binary"}) {
    put("logs.plist", runPython(R"(
import plistlib, sys
log = {"a.jpg": {"base": {"file_path": "aws-0011/u1/a.jpg", "module_key": "avatar", "upload_count": 3},
                 "extra": {"note": "<key>", "tags": ["x"]}}}
form = plistlib.FMT_BINARY if open(sys.argv[1]).read() == "binary" else plistlib.FMT_XML
plistlib.dump(log, open(sys.argv[2], "wb"), fmt=form)
)",
                                form));
    put("a.jpg", "bytes");
    UserTaskStorage storage(platform_, "u1", StoredTasks::resume);
    const auto entry = storage.entry("a.jpg");
    ASSERT_TRUE(entry) << form;
    EXPECT_EQ(entry->at("base").at("upload_count").toInt(), 3) << form;
    EXPECT_EQ(entry->at("extra").at("note").toString(), "<key>") << form;
    EXPECT_EQ(entry->at("extra").at("tags").toString(), "") << form;
    EXPECT_THAT(storage.localTasks(), SizeIs(1)) << form;
  }
}

/// The log that Python writes in either form, truncated or with a flipped bit at every byte.
class DamagedLogOnDisk : public UserTaskStorageOnDiskTest,
                         public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    whole_ = pythonLog(GetParam());
    ASSERT_GT(whole_.size(), 100U);
  }
  /// Opens the damaged log in both modes. The data files lie beside the log.
  template <typename Look>
  void open(const std::string& damaged, Look look) {
    put("logs.plist", damaged);
    put("a.jpg", "bytes");
    put("b.png", "bytes");
    const std::size_t recordsBefore = fakes_.logger.messages().size();
    EXPECT_LE(UserTaskStorage(platform_, "u1").localTasks().size(), 2U);
    UserTaskStorage storage(platform_, "u1", StoredTasks::resume);
    look(storage);
    // The log on the disk now reads as the log in memory.
    std::size_t kept = 0;
    for (const char* name : {"a.jpg", "b.png"}) {
      if (storage.contains(name)) ++kept;
    }
    EXPECT_EQ(storage.localTasks().size(), kept);
    // A log that can be read but names fewer files than lie beside it is no damage. The files that
    // it does not name are moved aside, which has a log record of its own.
    const std::vector<std::string> records = fakes_.logger.messages();
    const bool toldDamage = std::any_of(
        records.begin() + static_cast<std::ptrdiff_t>(recordsBefore), records.end(),
        [](const std::string& text) { return text.starts_with("[Error] damaged log "); });
    if (toldDamage) {
      EXPECT_EQ(contents(log_ + ".damaged-1"), damaged);
    }
    std::filesystem::remove(log_ + ".damaged-1");
  }

  std::string whole_;
};

TEST_P(DamagedLogOnDisk, CutAtAnyByteCrashesNothing) {
  const std::size_t endOfFirst = whole_.find("<key>b.png</key>");
  for (std::size_t size = 0; size < whole_.size(); ++size) {
    open(whole_.substr(0, size), [&](const UserTaskStorage& storage) {
      // Nothing of a binary list can be read without its end.
      if (endOfFirst != std::string::npos && size >= endOfFirst) {
        EXPECT_TRUE(storage.contains("a.jpg")) << size;
      }
    });
  }
}

TEST_P(DamagedLogOnDisk, FlippedAnywhereCrashesNothing) {
  const std::size_t first = whole_.find("<key>a.jpg</key>");
  const std::size_t second = whole_.find("<key>b.png</key>");
  for (std::size_t at = 0; at < whole_.size(); ++at) {
    std::string damaged = whole_;
    damaged[at] = static_cast<char>(damaged[at] ^ (1 << (at % 8)));
    open(damaged, [&](const UserTaskStorage& storage) {
      if (first == std::string::npos) return;
      EXPECT_TRUE((at >= first && at < second) || storage.contains("a.jpg")) << at;
      EXPECT_TRUE(at >= second || storage.contains("b.png")) << at;
    });
  }
}

INSTANTIATE_TEST_SUITE_P(Forms, DamagedLogOnDisk, testing::Values("xml", "binary"));

TEST_F(UserTaskStorageOnDiskTest, NothingOutsideTheUsersDirectoryIsTouched) {
  std::filesystem::create_directories(directory_.path() + "/aws-0011/u2");
  std::ofstream(directory_.path() + "/aws-0011/u2/theirs.jpg") << "theirs";
  put("logs.plist", R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0"><dict>
<key>../u2/theirs.jpg</key><dict><key>base</key><dict>
<key>file_path</key><string>aws-0011/u1/../u2/theirs.jpg</string>
<key>module_key</key><string>avatar</string></dict></dict>
<key>b.jpg</key><dict><key>base</key><dict>
<key>file_path</key><string>aws-0011/u2/theirs.jpg</string>
<key>module_key</key><string>avatar</string></dict></dict></dict></plist>)");
  for (const char* user : {"u1", "../u2", "u1/../../aws-0011/u2", "..", ".", ""}) {
    UserTaskStorage storage(platform_, user, StoredTasks::resume);
    EXPECT_THAT(storage.localTasks(), IsEmpty()) << user;
    for (const char* name : {"../u2/theirs.jpg", "b.jpg", "theirs.jpg"}) {
      EXPECT_FALSE(storage.remove(name)) << user << " " << name;
    }
    EXPECT_FALSE(storage.deleteFile("aws-0011/u2/theirs.jpg")) << user;
    EXPECT_FALSE(storage.deleteFile("aws-0011/u1/../u2/theirs.jpg")) << user;
    EXPECT_FALSE(storage.storageFile(
        std::make_shared<DataTask>("../u2/new.jpg", "s", Data("x"), AWSParameterMap{})))
        << user;
  }
  EXPECT_EQ(contents(directory_.path() + "/aws-0011/u2/theirs.jpg"), "theirs");
  std::vector<std::string> users;
  for (const auto& entry : std::filesystem::directory_iterator(directory_.path() + "/aws-0011")) {
    users.push_back(entry.path().filename());
  }
  EXPECT_THAT(users, UnorderedElementsAre("u1", "u2"));
  const std::filesystem::directory_iterator documents(directory_.path());
  EXPECT_EQ(std::distance(begin(documents), end(documents)), 1) << "aws-0011 alone";
}

}  // namespace
}  // namespace qx
