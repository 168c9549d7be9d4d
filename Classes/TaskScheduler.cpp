#include "Classes/TaskScheduler.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <set>
#include <utility>

namespace qx {
namespace {

/// Failed attempts after which a stored task is given up.
constexpr std::int64_t kMaxUploadCount = 10;
/// Stored tasks queued at once.
constexpr std::size_t kMaxRetriedTasks = 200;

}  // namespace

std::shared_ptr<TaskScheduler> TaskScheduler::make(SchedulerParts parts, const std::string& userId,
                                                   StoredTasks storedTasks) {
  return std::shared_ptr<TaskScheduler>(new TaskScheduler(std::move(parts), userId, storedTasks));
}

TaskScheduler::TaskScheduler(SchedulerParts parts, const std::string& userId,
                             StoredTasks storedTasks)
    : parts_(std::move(parts)), resumes_(storedTasks == StoredTasks::resume) {
  // Without the switch the storage hears nothing of what outlives its scheduler, so a tick of the
  // new one queues it again.
  if (!resumes_) parts_.queue->forgetRunning();
  parts_.queue->reset();
  taskStorage_ = parts_.storages.open(userId, storedTasks);
}

void TaskScheduler::add(const std::shared_ptr<TaskExecutor>& executor) {
  executor->complete = reporting();
  // Before it is in the log, where a tick could find it and queue it as well.
  parts_.queue->announce(executor->task->filename());
  parts_.queue->add(syncLocl(executor));
  parts_.queue->start();
}

std::shared_ptr<TaskExecutor> TaskScheduler::syncLocl(
    const std::shared_ptr<TaskExecutor>& executor) {
  if (executor->task->hasPath()) {
    bindStorageComplete(*executor);
    return executor;
  }
  const std::shared_ptr<FileTask> stored = taskStorage_->storageFile(executor->task);
  if (!stored) return executor;
  if (!taskStorage_->storageLog(*stored)) {
    taskStorage_->remove(stored->filename());
    return executor;
  }
  const std::optional<AWSLogEntry> entry = taskStorage_->entry(executor->task->filename());
  const std::shared_ptr<FileTask> rebuilt =
      taskStorage_->task(executor->task->filename(), entry ? &*entry : nullptr);
  if (!rebuilt) return executor;
  const std::shared_ptr<TaskExecutor> replacement = parts_.makeExecutor(rebuilt);
  replacement->complete = storageComplete(executor->complete);
  return replacement;
}

void TaskScheduler::bindStorageComplete(TaskExecutor& executor) {
  executor.complete = storageComplete(std::move(executor.complete));
}

TaskExecutor::Complete TaskScheduler::reporting() {
  if (!resumes_) return reporter();
  return [weak = weak_from_this(), report = reporter()](
             const std::shared_ptr<TaskExecutor>& executor, const std::optional<std::string>& url,
             const AWSCallbackStatus& status, std::int64_t itemId) {
    // A copy: the callback may replace the executor's completion, and this closure with it.
    const std::weak_ptr<TaskScheduler> keptWeak = weak;
    report(executor, url, status, itemId);
    if (const std::shared_ptr<TaskScheduler> alive = keptWeak.lock()) alive->queueFollowing();
  };
}

TaskExecutor::Complete TaskScheduler::storageComplete(TaskExecutor::Complete previous) {
  if (resumes_) {
    // The storage itself: what has arrived must go, also when the scheduler is gone.
    return [storage = taskStorage_, previous = std::move(previous)](
               const std::shared_ptr<TaskExecutor>& executor, const std::optional<std::string>& url,
               const AWSCallbackStatus& status, std::int64_t itemId) {
      const TaskExecutor::Complete keptPrevious = previous;  // A copy, as above.
      recordOutcome(*storage, *executor->task, status);
      if (keptPrevious) keptPrevious(executor, url, status, itemId);
    };
  }
  return [weak = weak_from_this(), previous = std::move(previous)](
             const std::shared_ptr<TaskExecutor>& executor, const std::optional<std::string>& url,
             const AWSCallbackStatus& status, std::int64_t itemId) {
    const TaskExecutor::Complete keptPrevious = previous;  // A copy, as above.
    if (const std::shared_ptr<TaskScheduler> scheduler = weak.lock()) {
      recordOutcome(*scheduler->taskStorage_, *executor->task, status);
    }
    if (keptPrevious) keptPrevious(executor, url, status, itemId);
  };
}

void TaskScheduler::recordOutcome(UserTaskStorage& storage, Task& task,
                                  const AWSCallbackStatus& status) {
  // What the storage answers is ignored: a task that could not be deleted is retried later.
  if (status.succeeded()) {
    storage.remove(task.filename());
    return;
  }
  auto* const stored = dynamic_cast<FileTask*>(&task);
  if (stored == nullptr) return;
  // It may be gone for good by now: it must not come back.
  if (storage.resumes() && !storage.contains(stored->filename())) return;
  if (stored->uploadCount() == std::numeric_limits<std::int64_t>::max()) {
    fatal("the number of failed attempts of an upload overflows");
  }
  stored->setUploadCount(stored->uploadCount() + 1);
  if (stored->uploadCount() >= kMaxUploadCount) {
    storage.remove(stored->filename());
  } else {
    storage.storageLog(*stored);
  }
}

void TaskScheduler::retryLocalTask() {
  std::vector<std::shared_ptr<TaskExecutor>> next;
  {
    const TaskQueue::Watch watch(*parts_.queue);
    if (!parts_.queue->idle()) return;
    taskStorage_->readLogAgain();
    std::deque<std::shared_ptr<TaskExecutor>> list = retryList();
    next = takeNext(list);
    if (resumes_) {
      // What failed before this tick is in the list again, so the earlier list is void.
      MutexLock lock(followingLock_);
      following_.swap(list);
    }
  }
  queueStored(next);
}

std::deque<std::shared_ptr<TaskExecutor>> TaskScheduler::retryList() {
  std::deque<std::shared_ptr<TaskExecutor>> list;
  std::ranges::move(localTaskExecutor(), std::back_inserter(list));
  const std::set<std::string> underWay = parts_.queue->filenames();
  std::erase_if(list, [&](const std::shared_ptr<TaskExecutor>& executor) {
    return underWay.contains(executor->task->filename()) || isGone(*executor);
  });
  return list;
}

bool TaskScheduler::isGone(const TaskExecutor& executor) const {
  return resumes_ && !taskStorage_->contains(executor.task->filename());
}

std::vector<std::shared_ptr<TaskExecutor>> TaskScheduler::takeNext(
    std::deque<std::shared_ptr<TaskExecutor>>& list) {
  std::vector<std::shared_ptr<TaskExecutor>> next;
  while (!list.empty() && next.size() < kMaxRetriedTasks) {
    // Another tick may have been faster.
    if (!isGone(*list.front()) &&
        parts_.queue->announceUnlessUnderWay(list.front()->task->filename())) {
      next.push_back(std::move(list.front()));
    }
    list.pop_front();
  }
  return next;
}

void TaskScheduler::queueStored(const std::vector<std::shared_ptr<TaskExecutor>>& executors) {
  for (const std::shared_ptr<TaskExecutor>& executor : executors) {
    executor->complete = reporting();
    parts_.queue->add(syncLocl(executor));
    parts_.queue->start();
  }
}

void TaskScheduler::queueFollowing() {
  if (!resumes_ || !parts_.queue->idle()) return;
  std::vector<std::shared_ptr<TaskExecutor>> next;
  {
    MutexLock lock(followingLock_);
    next = takeNext(following_);
  }
  queueStored(next);
}

std::vector<std::shared_ptr<TaskExecutor>> TaskScheduler::localTaskExecutor() {
  std::vector<std::shared_ptr<TaskExecutor>> executors;
  for (const std::shared_ptr<FileTask>& task : taskStorage_->localTasks()) {
    executors.push_back(parts_.makeExecutor(task));
  }
  return executors;
}

TaskExecutor::Complete TaskScheduler::reporter() const {
  return [&tracking = parts_.tracking, report = parts_.report](
             const std::shared_ptr<TaskExecutor>& executor, const std::optional<std::string>& url,
             const AWSCallbackStatus& status, std::int64_t /*itemId*/) {
    const Task& task = *executor->task;
    tracking.tracking(status, task, AWSTracking::ENVType::backgroundUpload, executor->uploadTime,
                      &task.extra());
    std::optional<Error> error;
    if (!status.succeeded()) error = uploaderError(status.code(), status.message());
    report(task.scope(), url, task.extra(), error);
  };
}

}  // namespace qx
