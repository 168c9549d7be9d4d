// The background uploads of one user: stored before they run, retried, reported.
//
// Threads: every operation may be called from any thread; it has no lock of its own.
// Ownership: AWSConfigure holds the current one; storage wrappers hold it weakly.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Classes/TaskExecutor.h"

namespace qx {

class TaskQueue;
class UserTaskStorage;

class TaskScheduler : public std::enable_shared_from_this<TaskScheduler> {
 public:
  /// Resets the shared queue and opens the user's storage.
  static std::shared_ptr<TaskScheduler> make(const std::string& userId);
  ~TaskScheduler();

  /// Stores the executor's task, queues it and starts the queue. The executor's completion is
  /// replaced by reportResult.
  void add(const std::shared_ptr<TaskExecutor>& executor);
  /// Makes sure that the executor's task is stored and its completion bound to the storage. Yields
  /// the executor to queue: a new one over the stored file, or the given one when its task is
  /// stored already or cannot be.
  std::shared_ptr<TaskExecutor> syncLocl(const std::shared_ptr<TaskExecutor>& executor);
  /// Queues stored tasks again, 200 at most, when the queue is idle.
  void retryLocalTask();
  /// One new executor per task in the stored log.
  std::vector<std::shared_ptr<TaskExecutor>> localTaskExecutor();
  /// Wraps the executor's completion: a success deletes the stored task; a failure counts, the
  /// tenth deletes it.
  void bindStorageComplete(TaskExecutor& executor);

  /// The queue that runs this scheduler's executors: the shared one.
  TaskQueue& taskQueue() { return *taskQueue_; }

  /// Tracks the outcome of an attempt and calls the two background callbacks.
  static void reportResult(const std::shared_ptr<TaskExecutor>& executor,
                           const std::optional<std::string>& url, const AWSCallbackStatus& status,
                           std::int64_t itemId);

 private:
  explicit TaskScheduler(const std::string& userId);
  TaskExecutor::Complete storageComplete(TaskExecutor::Complete previous);

  const std::unique_ptr<UserTaskStorage> taskStorage_;
  const std::shared_ptr<TaskQueue> taskQueue_;
};

}  // namespace qx
