// The background uploads of one user, and the calls of both background callbacks.
//
// Threads: everything runs on the test's own thread, in run().
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Classes/AWSConfigure.h"
#include "Classes/AWSUploader.h"
#include "Classes/TaskScheduler.h"
#include "Classes/UserTaskStorage.h"
#include "unit/UploadFixture.h"

namespace qx {

inline const std::string kDirectory = "/documents/aws-0011/u1";
inline const std::string kLog = kDirectory + "/logs.plist";

struct Report {
  std::string callback;
  std::string scope;
  std::optional<std::string> url;
  AWSParameterMap extra;
  std::optional<Error> error;
};

class TaskSchedulerTest : public UploadFixture {
 protected:
  TaskSchedulerTest() {
    const auto recorder = [this](std::string name) {
      return [this, name](const std::string& scope, const std::optional<std::string>& url,
                          const AWSParameterMap& extra, const std::optional<Error>& error) {
        reports.push_back({name, scope, url, extra, error});
      };
    };
    library.configure.backgroundUploadCallback.store(recorder("host"));
    library.configure.backgroundUploadItemCallback.store(recorder("item"));
  }

  std::shared_ptr<TaskExecutor> dataExecutor(const std::string& filename,
                                             AWSParameterMap extra = {}) {
    return library.uploader.makeExecutor(
        std::make_shared<DataTask>(filename, "avatar", Data("bytes"), std::move(extra)));
  }
  /// Queues a stored task whose attempts end when run() is called.
  void add(TaskScheduler& scheduler, const std::string& filename) {
    scheduler.add(dataExecutor(filename));
  }
  static void report(const std::shared_ptr<TaskExecutor>& executor,
                     const AWSCallbackStatus& status) {
    // The observers are kept, so that a test may have one executor report again and again.
    const TaskExecutor::Observers observers = executor->observers;
    executor->deliver(
        status.succeeded() ? std::optional<std::string>("https://cdn.test/x") : std::nullopt,
        status, status.succeeded() ? 7 : 0);
    executor->observers = observers;
  }
  static AWSCallbackStatus failure() {
    return AWSCallbackStatus::failure(AWSErrorCode::serverError, "no");
  }
  void storeUnavailable() { platform.objectStore.failAll(Error{"ObjectStore", 3, "down"}); }
  std::optional<std::int64_t> loggedCount(const std::string& filename) {
    const auto tasks = UserTaskStorage(library.platform, "u1").localTasks();
    for (const auto& task : tasks) {
      if (task->filename() == filename) return task->uploadCount();
    }
    return std::nullopt;
  }
  void putStoredTasks(int count, std::int64_t uploadCount = 0) {
    std::string log = "<plist version=\"1.0\"><dict>";
    for (int i = 0; i < count; ++i) {
      const std::string name = std::to_string(1000 + i) + ".jpg";
      log += "<key>" + name + "</key><dict><key>base</key><dict><key>file_path</key><string>" +
             "aws-0011/u1/" + name + "</string><key>module_key</key><string>avatar</string>" +
             "<key>upload_count</key><integer>" + std::to_string(uploadCount) +
             "</integer></dict><key>extra</key><dict/></dict>";
      platform.files.put(kDirectory + "/" + name, "bytes");
    }
    platform.files.put(kLog, log + "</dict></plist>");
  }

  std::vector<Report> reports;
};

}  // namespace qx
