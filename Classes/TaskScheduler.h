// The background uploads of one user. They are stored before they run, tried again and reported.
//
// The life of a background task:
//
//     backgroundUpload
//           |  file written, entry logged with count 0      cannot be stored: runs from
//           v                                               memory, is reported, forgotten
//        stored ----------------> queued ----------------> running
//           ^        add,           the oldest first, while    |
//           |    retryLocalTask     slots are free and the     |
//           |                       network is there           |
//           |                                                  |
//           |   failed, fewer than 10 times:                   |
//           +------ entry rewritten with count + 1 ------------+
//                                                              |
//           file and entry deleted <---------------------------+
//                                   succeeded, or failed for the 10th time
//
// Every end of "running" is tracked and reported to the two background callbacks, after the storage
// has been updated. Only retryLocalTask() puts a failed task back into the queue. When the
// scheduler no longer exists because another identity was applied, running tasks are still
// reported, but the storage stays as it is.
//
// With StoredTasks::resume the storage begins with the tasks of earlier runs. Whenever the queue is
// empty, the next 200 tasks of the list that the last retryLocalTask() has read follow at once.
// Failed tasks are not in that list: they wait for the next tick. The storage is also updated when
// the scheduler no longer exists.
//
// A tick leaves out the tasks that are under way: on their way into the queue, waiting or running.
// Without the switch, tasks that have outlived their scheduler are queued a second time.
//
// Threads: every operation may be called from any thread. The only lock guards the list of tasks
// that follow.
// Ownership: AWSConfigure holds the current scheduler. The observers of the storage hold it weakly.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Classes/AWSTracking.h"
#include "Classes/RetryTimer.h"
#include "Classes/TaskExecutor.h"
#include "Classes/TaskQueue.h"
#include "Classes/UploadEvents.h"
#include "Classes/UserTaskStorage.h"
#include "platform/Mutex.h"

namespace qx {

/// The outcome of one attempt of a background upload: (scope, URL, extra values, error). Called on
/// the thread on which the attempt ended.
using BackgroundUploadCallback =
    std::function<void(const std::string& scope, const std::optional<std::string>& url,
                       const AWSParameterMap& extra, const std::optional<Error>& error)>;

/// The parts that all schedulers of a library use. The references must outlive every attempt.
struct SchedulerParts {
  const AWSTracking& tracking;
  UploadEvents& events;
  const RetryTimer& retryTimer;
  UserTaskStorages& storages;
  std::shared_ptr<TaskQueue> queue;
  ExecutorFactory makeExecutor;
  /// Called at the end of every attempt.
  BackgroundUploadCallback report;
};

class TaskScheduler : public std::enable_shared_from_this<TaskScheduler> {
 public:
  /// Resets the queue and opens the user's storage.
  static std::shared_ptr<TaskScheduler> make(SchedulerParts parts, const std::string& userId,
                                             StoredTasks storedTasks);

  /// Stores the executor's task, queues it and starts the queue. reporter() replaces the executor's
  /// completion.
  void add(const std::shared_ptr<TaskExecutor>& executor);
  /// Makes sure that the executor's task is stored and its end bound to the storage. Yields the
  /// executor to queue: a new one for the stored file, or the given one when its task is stored
  /// already or cannot be stored.
  std::shared_ptr<TaskExecutor> syncLocl(const std::shared_ptr<TaskExecutor>& executor) {
    return stored(executor).executor;
  }
  /// Queues stored tasks again, 200 at most, when the queue is idle.
  void retryLocalTask();
  /// Makes one executor for each task in the stored log.
  std::vector<std::shared_ptr<TaskExecutor>> localTaskExecutor();
  /// Makes the storage observe the end of the executor's attempt: a success deletes the stored
  /// task, a failure is counted, the tenth failure deletes the task, and a cancelled attempt
  /// changes nothing.
  void bindStorageComplete(TaskExecutor& executor);

  enum class Attempts { keep, giveBack };
  /// Queues stored tasks now, unless they are under way. `giveBack` forgets their failed attempts.
  void retry(const std::vector<std::string>& filenames, Attempts attempts);
  const std::shared_ptr<UserTaskStorage>& storage() const { return taskStorage_; }

  /// The queue that runs this scheduler's executors.
  TaskQueue& taskQueue() { return *parts_->queue; }

  /// Makes a completion that tracks and reports the outcome of an attempt. It does not need the
  /// scheduler.
  TaskExecutor::Complete reporter() const;

 private:
  TaskScheduler(SchedulerParts parts, const std::string& userId, StoredTasks storedTasks);
  struct Stored {
    std::shared_ptr<TaskExecutor> executor;
    /// The reason why the task runs from memory.
    std::optional<Error> whyNot;
  };
  /// syncLocl(), and the reason when the task is not stored.
  Stored stored(const std::shared_ptr<TaskExecutor>& executor);
  /// Sets the executor's completion to reporter(), and with the switch lets stored tasks follow.
  void bindReporter(TaskExecutor& executor);
  /// The changes that the attempt of a stored task has made in the storage.
  struct Outcome {
    std::int64_t attempts = 1;
    bool counted = false;
    bool givenUp = false;
  };
  static Outcome recordOutcome(UserTaskStorage& storage, const TaskExecutor& executor,
                               const AWSCallbackStatus& status);
  /// Tells the events of the end of an attempt. Without an `outcome` the task was not stored.
  static void tellEnd(const SchedulerParts& parts, const TaskExecutor& executor,
                      const std::optional<std::string>& url, const AWSCallbackStatus& status,
                      std::int64_t itemId, const std::optional<Outcome>& outcome);

  /// Makes executors for the stored tasks that are not under way.
  std::deque<std::shared_ptr<TaskExecutor>> retryList();
  /// With the switch: true when the storage no longer knows the executor's task.
  bool isGone(const TaskExecutor& executor) const;
  /// Takes the first 200 executors from the list and announces them to the queue. Drops executors
  /// of tasks that are gone or under way.
  std::vector<std::shared_ptr<TaskExecutor>> takeNext(
      std::deque<std::shared_ptr<TaskExecutor>>& list);
  void queue(const std::shared_ptr<TaskExecutor>& executor);
  void queueStored(const std::vector<std::shared_ptr<TaskExecutor>>& executors);
  /// Queues the next stored tasks when the queue is idle and the host wants them resumed.
  void queueFollowing();

  const std::shared_ptr<const SchedulerParts> parts_;
  const bool resumes_;
  /// Constant after construction.
  std::shared_ptr<UserTaskStorage> taskStorage_;
  Mutex followingLock_;
  /// The stored tasks of the last tick that have not been queued yet.
  std::deque<std::shared_ptr<TaskExecutor>> following_ QX_GUARDED_BY(followingLock_);
};

}  // namespace qx
