// Lists, pauses, cancels, retries and drops uploads for a host.
//
// Threads: every operation may be called from any thread and returns at once. Work that reads or
// changes files runs on the queue of the events.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Classes/AWSConfigure.h"
#include "Classes/DirectUploads.h"
#include "Classes/IdleWatch.h"
#include "Classes/RetryTimer.h"
#include "Classes/TaskList.h"
#include "Classes/TaskQueue.h"
#include "Classes/UploadEvents.h"
#include "Classes/UserTaskStorage.h"
#include "platform/Mutex.h"
#include "platform/Platform.h"

namespace qx {

/// The parts that the control uses. All of them must outlive the control and its work.
struct ControlParts {
  const Platform& platform;
  UploadEvents& events;
  UserTaskStorages& storages;
  AWSConfigure& configure;
  const RetryTimer& retryTimer;
  TaskQueue& queue;
  DirectUploads& directUploads;
  /// Called when an upload was cancelled or dropped.
  IdleWatch& idle;
};

class UploadControl {
 public:
  explicit UploadControl(ControlParts parts) : parts_(parts) {}

  /// Passes the list to `complete`, on the queue of the events.
  void list(std::function<void(Array)> complete);
  void pause(bool cancelRunning);
  void resume();
  void cancel(const std::vector<std::string>& names);
  void retry(const std::vector<std::string>& names);
  void drop(const std::vector<std::string>& names);
  /// True when nothing waits in the queue and nothing is stored that will be tried again. Reads the
  /// stored log when the queue is empty.
  bool nothingWaits();

 private:
  Array tasks();
  /// The storage of the current user. Before an identity was applied, a storage that only reads,
  /// for the user whom the host names. Null when the host names no user.
  std::shared_ptr<UserTaskStorage> storageToRead();
  /// Ends the running uploads among these, removes the waiting ones from the queue, and holds the
  /// stored ones back.
  void stop(const std::vector<std::string>& names);
  TaskFacts facts(TaskStage stage, const Task& task, double now);

  const ControlParts parts_;
  /// The uploads that a pause has ended.
  Guarded<std::vector<std::string>> endedByPause_;
};

}  // namespace qx
