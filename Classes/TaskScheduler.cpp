#include "Classes/TaskScheduler.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <set>
#include <utility>

#include "Classes/AWSConfigure.h"
#include "Classes/AWSTracking.h"
#include "Classes/AWSUploader.h"
#include "Classes/TaskQueue.h"
#include "Classes/UserTaskStorage.h"

namespace qx {
namespace {

/// Failed attempts after which a stored task is given up.
constexpr std::int64_t kMaxUploadCount = 10;
/// Stored tasks queued at once.
constexpr std::size_t kMaxRetriedTasks = 200;

}  // namespace

std::shared_ptr<TaskScheduler> TaskScheduler::make(const std::string& userId) {
  return std::shared_ptr<TaskScheduler>(new TaskScheduler(userId));
}

TaskScheduler::TaskScheduler(const std::string& userId)
    : resumes_(AWSConfigure::shared().resumeStoredTasks), taskQueue_(TaskQueue::shared()) {
  // Without the switch the storage hears nothing of what outlives its scheduler, so a tick of the
  // new one queues it again.
  if (!resumes_) taskQueue_->forgetRunning();
  taskQueue_->reset();
  taskStorage_ =
      resumes_ ? UserTaskStorage::resumed(userId) : std::make_shared<UserTaskStorage>(userId);
}

TaskScheduler::~TaskScheduler() = default;

void TaskScheduler::add(const std::shared_ptr<TaskExecutor>& executor) {
  executor->complete = reporting();
  // Before it is in the log, where a tick could find it and queue it as well.
  taskQueue_->announce(executor->task->filename());
  taskQueue_->add(syncLocl(executor));
  taskQueue_->start();
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
      UserTaskStorage::task(executor->task->filename(), entry ? &*entry : nullptr);
  if (!rebuilt) return executor;
  const std::shared_ptr<TaskExecutor> replacement = AWSUploader::makeExecutor(rebuilt);
  replacement->complete = storageComplete(executor->complete);
  return replacement;
}

void TaskScheduler::bindStorageComplete(TaskExecutor& executor) {
  executor.complete = storageComplete(std::move(executor.complete));
}

TaskExecutor::Complete TaskScheduler::reporting() {
  if (!resumes_) return &TaskScheduler::reportResult;
  return [weak = weak_from_this()](const std::shared_ptr<TaskExecutor>& executor,
                                   const std::optional<std::string>& url,
                                   const AWSCallbackStatus& status, std::int64_t itemId) {
    // A copy: the callback may replace the executor's completion, and this closure with it.
    const std::weak_ptr<TaskScheduler> keptWeak = weak;
    reportResult(executor, url, status, itemId);
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
    const TaskQueue::Watch watch(*taskQueue_);
    if (!taskQueue_->idle()) return;
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
  const std::set<std::string> underWay = taskQueue_->filenames();
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
        taskQueue_->announceUnlessUnderWay(list.front()->task->filename())) {
      next.push_back(std::move(list.front()));
    }
    list.pop_front();
  }
  return next;
}

void TaskScheduler::queueStored(const std::vector<std::shared_ptr<TaskExecutor>>& executors) {
  for (const std::shared_ptr<TaskExecutor>& executor : executors) {
    executor->complete = reporting();
    taskQueue_->add(syncLocl(executor));
    taskQueue_->start();
  }
}

void TaskScheduler::queueFollowing() {
  if (!resumes_ || !taskQueue_->idle()) return;
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
    executors.push_back(AWSUploader::makeExecutor(task));
  }
  return executors;
}

void TaskScheduler::reportResult(const std::shared_ptr<TaskExecutor>& executor,
                                 const std::optional<std::string>& url,
                                 const AWSCallbackStatus& status, std::int64_t /*itemId*/) {
  const Task& task = *executor->task;
  AWSTracking::tracking(status, task, AWSTracking::ENVType::backgroundUpload, executor->uploadTime,
                        &task.extra());
  std::optional<Error> error;
  if (!status.succeeded()) error = uploaderError(status.code(), status.message());
  AWSConfigure& configure = AWSConfigure::shared();
  if (const auto callback = configure.backgroundUploadCallback.load()) {
    callback(task.scope(), url, task.extra(), error);
  }
  if (const auto callback = configure.backgroundUploadItemCallback.load()) {
    callback(task.scope(), url, task.extra(), error);
  }
}

}  // namespace qx
