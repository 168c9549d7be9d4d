// The entry that turns an upload request into running work.
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

/// The progress of an upload, as the object store counts it.
using UploadProgress = std::function<void(const TransferProgress&)>;

class AWSUploader {
 public:
  /// Everything given must outlive the uploader and its executors.
  AWSUploader(const Platform& platform, AWSConfigure& configure, const AWSTracking& tracking,
              UploadEvents& events)
      : platform_(platform), configure_(configure), tracking_(tracking), events_(events) {}

  /// Counts the file names made so far; part of each of them.
  std::atomic<std::int64_t> generateFileCount = 0;

  /// An executor whose report is tracked and then passed to `complete` in the public shape. The
  /// caller starts it. `progress` is not used: an upload reports its bytes as events.
  std::shared_ptr<TaskExecutor> createExecutor(std::shared_ptr<Task> task,
                                               const UploadProgress& progress,
                                               UploadCompletion complete);

  /// Names the bytes, stores them and queues their upload. Results come through the background
  /// callbacks of AWSConfigure. While no identity has been applied there is no scheduler, and the
  /// upload is dropped without a report.
  void backgroundUpload(const Data& data, const std::string& suffix, const AWSParameterMap& extra,
                        const std::string& scope);

  /// An executor for `task` with a networking manager of 30 seconds' time-out and no completion.
  std::shared_ptr<TaskExecutor> makeExecutor(std::shared_ptr<Task> task,
                                             UploadKind kind = UploadKind::background);

  /// A fresh object name: time, a random number, the counter, with dashes for dots, then "." and
  /// `suffix`. Increases generateFileCount; its overflow is fatal.
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
