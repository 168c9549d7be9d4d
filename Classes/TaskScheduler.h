// The background uploads of one user: stored before they run, retried, reported.
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
// has been brought up to date. A failed task goes back to the queue with retryLocalTask() alone.
// When the scheduler is gone (another identity was applied), running tasks are still reported, but
// the storage stays as it is.
//
// With StoredTasks::resume the storage begins with the tasks of earlier runs, and each
// time the queue runs empty the next 200 of the list that the last retryLocalTask() has read follow
// at once. Failed ones are not in that list any more: they wait for the next tick. The storage is
// brought up to date also when the scheduler is gone.
//
// A tick leaves out the tasks that are under way: on their way into the queue, waiting, or running.
// Without the switch those that outlived their scheduler are queued a second time.
//
// Threads: every operation may be called from any thread; its one lock guards the list of tasks to
// follow.
// Ownership: AWSConfigure holds the current one; storage wrappers hold it weakly.
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

/// The outcome of one attempt of a background upload: (scope, URL, extra values, error), on the
/// thread on which the attempt ended.
using BackgroundUploadCallback =
    std::function<void(const std::string& scope, const std::optional<std::string>& url,
                       const AWSParameterMap& extra, const std::optional<Error>& error)>;

/// What all schedulers of a library work with. The references must outlive every attempt.
struct SchedulerParts {
  const AWSTracking& tracking;
  UploadEvents& events;
  const RetryTimer& retryTimer;
  UserTaskStorages& storages;
  std::shared_ptr<TaskQueue> queue;
  ExecutorFactory makeExecutor;
  /// Hears of the end of every attempt.
  BackgroundUploadCallback report;
};

class TaskScheduler : public std::enable_shared_from_this<TaskScheduler> {
 public:
  /// Resets the queue and opens the user's storage.
  static std::shared_ptr<TaskScheduler> make(SchedulerParts parts, const std::string& userId,
                                             StoredTasks storedTasks);

  /// Stores the executor's task, queues it and starts the queue. The executor's completion is
  /// replaced by reporter().
  void add(const std::shared_ptr<TaskExecutor>& executor);
  /// Makes sure that the executor's task is stored and its end bound to the storage. Yields the
  /// executor to queue: a new one over the stored file, or the given one when its task is stored
  /// already or cannot be.
  std::shared_ptr<TaskExecutor> syncLocl(const std::shared_ptr<TaskExecutor>& executor) {
    return stored(executor).executor;
  }
  /// Queues stored tasks again, 200 at most, when the queue is idle.
  void retryLocalTask();
  /// One new executor per task in the stored log.
  std::vector<std::shared_ptr<TaskExecutor>> localTaskExecutor();
  /// Makes the storage hear of the end of the executor's attempt: a success deletes the stored
  /// task; a failure counts, the tenth deletes it; a cancelled attempt changes nothing.
  void bindStorageComplete(TaskExecutor& executor);

  enum class Attempts { keep, giveBack };
  /// Queues stored tasks now, unless they are under way. `giveBack` forgets their failed attempts.
  void retry(const std::vector<std::string>& filenames, Attempts attempts);
  const std::shared_ptr<UserTaskStorage>& storage() const { return taskStorage_; }

  /// The queue that runs this scheduler's executors.
  TaskQueue& taskQueue() { return *parts_->queue; }

  /// A completion that tracks the outcome of an attempt and reports it; it does not need the
  /// scheduler any more.
  TaskExecutor::Complete reporter() const;

 private:
  TaskScheduler(SchedulerParts parts, const std::string& userId, StoredTasks storedTasks);
  struct Stored {
    std::shared_ptr<TaskExecutor> executor;
    /// Why the task runs from memory.
    std::optional<Error> whyNot;
  };
  /// syncLocl, and why the task is not stored if it is not.
  Stored stored(const std::shared_ptr<TaskExecutor>& executor);
  /// Sets the executor's completion to reporter(), and with the switch has stored tasks follow.
  void bindReporter(TaskExecutor& executor);
  /// What a stored task's attempt has changed in the storage.
  struct Outcome {
    std::int64_t attempts = 1;
    bool counted = false;
    bool givenUp = false;
  };
  static Outcome recordOutcome(UserTaskStorage& storage, const TaskExecutor& executor,
                               const AWSCallbackStatus& status);
  /// Tells the events of the end of an attempt; without an `outcome` the task was not stored.
  static void tellEnd(const SchedulerParts& parts, const TaskExecutor& executor,
                      const std::optional<std::string>& url, const AWSCallbackStatus& status,
                      std::int64_t itemId, const std::optional<Outcome>& outcome);

  /// New executors for the stored tasks that are not under way.
  std::deque<std::shared_ptr<TaskExecutor>> retryList();
  /// With the switch: the storage does not know the executor's task any more.
  bool isGone(const TaskExecutor& executor) const;
  /// Moves the first 200 out of the list, announced to the queue; drops what is gone or under way.
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
  /// Stored tasks of the last tick that have not been queued yet.
  std::deque<std::shared_ptr<TaskExecutor>> following_ QX_GUARDED_BY(followingLock_);
};

}  // namespace qx
