// Turns upload requests into running uploads.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "Classes/AWSBasicParameter.h"
#include "Classes/AWSCallbackStatus.h"
#include "Classes/AWSConfigure.h"
#include "Classes/AWSTracking.h"
#include "Classes/Task.h"
#include "Classes/TaskExecutor.h"
#include "platform/Data.h"
#include "platform/ObjectStore.h"
#include "platform/Platform.h"

namespace qx {

/// The progress of an upload as the object store counts it.
using UploadProgress = std::function<void(const TransferProgress&)>;

class AWSUploader {
 public:
  /// All arguments must outlive the uploader and its executors.
  AWSUploader(const Platform& platform, AWSConfigure& configure, const AWSTracking& tracking,
              UploadEvents& events)
      : platform_(platform), configure_(configure), tracking_(tracking), events_(events) {}

  /// The number of file names made so far, which is part of each name.
  std::atomic<std::int64_t> generateFileCount = 0;

  /// Makes an executor whose outcome is tracked and then passed to `complete` in its public form.
  /// The caller starts the executor. `progress` is not used.
  std::shared_ptr<TaskExecutor> createExecutor(std::shared_ptr<Task> task,
                                               const UploadProgress& progress,
                                               UploadCompletion complete);

  /// Names the bytes, stores them and queues their upload. The background callbacks of AWSConfigure
  /// get the results. While no identity has been applied there is no scheduler, and the upload is
  /// dropped without a report.
  void backgroundUpload(const Data& data, const std::string& suffix, const AWSParameterMap& extra,
                        const std::string& scope);

  /// Makes an executor for `task`, with a networking manager whose time-out is 30 seconds and
  /// without a completion.
  std::shared_ptr<TaskExecutor> makeExecutor(std::shared_ptr<Task> task,
                                             UploadKind kind = UploadKind::background);

  /// Makes a new object name: the time, a random number and the counter, with dashes in place of
  /// dots, then "." and `suffix`. Increases generateFileCount, whose overflow is fatal.
  std::string generateFileName(std::string_view suffix);

 private:
  const Platform& platform_;
  AWSConfigure& configure_;
  const AWSTracking& tracking_;
  UploadEvents& events_;
};

/// The completion and the progress callback that do nothing.
extern const UploadCompletion NilComplete;
extern const UploadProgress NilProgress;

}  // namespace qx
