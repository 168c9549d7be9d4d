// The storage of one user on files in memory, and the log that it writes.
//
// Threads: only for the test's own thread.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Classes/UserTaskStorage.h"
#include "fakes/FakePlatform.h"
#include "unit/KeptLibrary.h"

namespace qx {

inline const std::string kDirectory = "/documents/aws-0011/u1";
inline const std::string kLog = kDirectory + "/logs.plist";

/// The log of one task with these sections in its entry.
inline std::string logWith(const std::string& filename, const std::string& sections) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>" +
         filename + "</key><dict>" + sections + "</dict></dict></plist>";
}

inline std::string base(const std::string& path, const std::string& more = "") {
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

}  // namespace qx
