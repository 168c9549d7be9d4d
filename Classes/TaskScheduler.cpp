#include "Classes/TaskScheduler.h"

#include <algorithm>
#include <cstddef>
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
  taskQueue_->reset();
  taskStorage_ =
      resumes_ ? UserTaskStorage::resumed(userId) : std::make_shared<UserTaskStorage>(userId);
}

TaskScheduler::~TaskScheduler() = default;

void TaskScheduler::add(const std::shared_ptr<TaskExecutor>& executor) {
  executor->complete = reporting();
  // Before it is in the log, where a tick could find it and queue it as well.
  if (resumes_) taskQueue_->announce(executor->task->filename());
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
  if (!taskQueue_->idle()) return;
  std::vector<std::shared_ptr<TaskExecutor>> executors = localTaskExecutor();
  if (resumes_) {
    leaveOutUnderWay(executors);
    // What failed before this tick is in the list again, so the earlier list is void.
    std::deque<std::shared_ptr<TaskExecutor>> following;
    if (executors.size() > kMaxRetriedTasks) {
      const auto rest = executors.begin() + static_cast<std::ptrdiff_t>(kMaxRetriedTasks);
      following.assign(rest, executors.end());
    }
    MutexLock lock(followingLock_);
    following_.swap(following);
  }
  executors.resize(std::min(executors.size(), kMaxRetriedTasks));
  queueStored(executors);
}

void TaskScheduler::queueStored(const std::vector<std::shared_ptr<TaskExecutor>>& executors) {
  for (const std::shared_ptr<TaskExecutor>& executor : executors) {
    executor->complete = reporting();
    taskQueue_->add(syncLocl(executor));
    taskQueue_->start();
  }
}

void TaskScheduler::leaveOutUnderWay(std::vector<std::shared_ptr<TaskExecutor>>& executors) {
  const std::set<std::string> underWay = taskQueue_->filenames();
  std::erase_if(executors, [&](const std::shared_ptr<TaskExecutor>& executor) {
    const std::string& filename = executor->task->filename();
    return underWay.contains(filename) || !taskStorage_->contains(filename);
  });
}

void TaskScheduler::queueFollowing() {
  if (!resumes_ || !taskQueue_->idle()) return;
  std::vector<std::shared_ptr<TaskExecutor>> next;
  {
    MutexLock lock(followingLock_);
    while (!following_.empty() && next.size() < kMaxRetriedTasks) {
      // Unless it is gone since the list was read.
      if (taskStorage_->contains(following_.front()->task->filename())) {
        next.push_back(std::move(following_.front()));
      }
      following_.pop_front();
    }
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
