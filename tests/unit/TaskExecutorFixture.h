// One attempt of one task, and its reports.
//
// Threads: everything runs on the test's own thread, in run().
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Classes/TaskExecutor.h"
#include "unit/UploadFixture.h"

namespace qx {

inline constexpr const char* kLongId = "Tracking_GetLongIdWithCompletion:";

class TaskExecutorTest : public UploadFixture {
 protected:
  struct Report {
    std::shared_ptr<TaskExecutor> executor;
    std::optional<std::string> url;
    AWSCallbackStatus status;
    std::int64_t itemId = 0;
    /// The queue of the report. Empty for the test's own thread.
    std::string queue;
  };

  std::shared_ptr<TaskExecutor> make(std::shared_ptr<Task> task) {
    auto executor =
        std::make_shared<TaskExecutor>(library.platform, library.configure, library.events,
                                       UploadKind::background, std::move(task));
    executor->uploadWorker = platform.uploadClients.make({}, 30);
    executor->complete = [this](const std::shared_ptr<TaskExecutor>& reporter,
                                const std::optional<std::string>& url,
                                const AWSCallbackStatus& status, std::int64_t itemId) {
      reports.push_back({reporter, url, status, itemId, platform.dispatch.currentQueueLabel()});
    };
    return executor;
  }
  static std::shared_ptr<DataTask> dataTask(AWSParameterMap extra = {}) {
    return std::make_shared<DataTask>("a.b.jpg", "avatar", Data("bytes"), std::move(extra));
  }
  /// Makes one attempt and runs it to its end.
  std::shared_ptr<TaskExecutor> attempt(std::shared_ptr<Task> task) {
    auto executor = make(std::move(task));
    executor->execute();
    run();
    return executor;
  }
  void resizeOnServer() { library.configure.needServerResize = true; }

  void expectFailure(AWSErrorCode code, const std::string& message,
                     const std::optional<std::string>& url, const std::string& queue) {
    ASSERT_EQ(reports.size(), 1U);
    EXPECT_EQ(reports[0].status, AWSCallbackStatus::failure(code, message));
    EXPECT_EQ(reports[0].url, url);
    EXPECT_EQ(reports[0].itemId, 0);
    EXPECT_EQ(reports[0].queue, queue);
  }

  std::vector<Report> reports;
};

}  // namespace qx
