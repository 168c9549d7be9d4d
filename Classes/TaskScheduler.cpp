#include "Classes/TaskScheduler.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>
#include <set>
#include <utility>

namespace qx {
namespace {

/// The number of failed attempts after which a stored task is given up.
constexpr std::int64_t kMaxUploadCount = 10;
/// The number of stored tasks that are queued at once.
constexpr std::size_t kMaxRetriedTasks = 200;

}  // namespace

std::shared_ptr<TaskScheduler> TaskScheduler::make(SchedulerParts parts, const std::string& userId,
                                                   StoredTasks storedTasks) {
  return std::shared_ptr<TaskScheduler>(new TaskScheduler(std::move(parts), userId, storedTasks));
}

TaskScheduler::TaskScheduler(SchedulerParts parts, const std::string& userId,
                             StoredTasks storedTasks)
    : parts_(std::make_shared<const SchedulerParts>(std::move(parts))),
      resumes_(storedTasks == StoredTasks::resume) {
  // Without the switch the storage hears nothing of an attempt that outlives its scheduler, so a
  // tick of the new scheduler queues the task again.
  if (!resumes_) parts_->queue->forgetRunning();
  parts_->queue->reset();
  taskStorage_ = parts_->storages.open(userId, storedTasks);
  if (const auto fault = taskStorage_->fault()) parts_->events.storeUnavailable(*fault);
}

void TaskScheduler::add(const std::shared_ptr<TaskExecutor>& executor) {
  bindReporter(*executor);
  // The task is announced before it is in the log, where a tick could find it and queue it as well.
  parts_->queue->announce(executor->task->filename());
  const std::optional<Data> data =
      parts_->events.observed() ? executor->task->data() : std::nullopt;
  const Stored result = stored(executor);
  parts_->events.accepted(UploadKind::background, *result.executor->task, data ? data->size() : 0,
                          !result.whyNot, result.whyNot);
  queue(result.executor);
}

void TaskScheduler::queue(const std::shared_ptr<TaskExecutor>& executor) {
  parts_->events.queued(*executor->task);
  parts_->queue->add(executor);
  parts_->queue->start();
}

TaskScheduler::Stored TaskScheduler::stored(const std::shared_ptr<TaskExecutor>& executor) {
  if (executor->task->hasPath()) {
    bindStorageComplete(*executor);
    return {executor, std::nullopt};
  }
  const auto fromMemory = [&](Error why) -> Stored {
    executor->observers.record = [parts = parts_](const std::shared_ptr<TaskExecutor>& ended,
                                                  const std::optional<std::string>& url,
                                                  const AWSCallbackStatus& status,
                                                  std::int64_t itemId) {
      tellEnd(*parts, *ended, url, status, itemId, std::nullopt);
    };
    return {executor, std::move(why)};
  };
  const Result<std::shared_ptr<FileTask>> stored = taskStorage_->store(executor->task);
  if (!stored) return fromMemory(stored.error());
  const std::optional<AWSLogEntry> entry = taskStorage_->entry(executor->task->filename());
  const std::shared_ptr<FileTask> rebuilt =
      taskStorage_->task(executor->task->filename(), entry ? &*entry : nullptr);
  if (!rebuilt) return fromMemory({"Files", 0, "the log entry does not read"});
  const std::shared_ptr<TaskExecutor> replacement = parts_->makeExecutor(rebuilt);
  replacement->complete = executor->complete;
  replacement->observers = executor->observers;
  bindStorageComplete(*replacement);
  return {replacement, std::nullopt};
}

void TaskScheduler::bindReporter(TaskExecutor& executor) {
  executor.complete = reporter();
  if (!resumes_) return;
  executor.observers.follow = [weak = weak_from_this()] {
    if (const std::shared_ptr<TaskScheduler> alive = weak.lock()) alive->queueFollowing();
  };
}

void TaskScheduler::bindStorageComplete(TaskExecutor& executor) {
  // With the switch the storage itself is kept, so that a task that has arrived is deleted even
  // when the scheduler no longer exists.
  executor.observers.record =
      [parts = parts_, weak = weak_from_this(), storage = resumes_ ? taskStorage_ : nullptr](
          const std::shared_ptr<TaskExecutor>& ended, const std::optional<std::string>& url,
          const AWSCallbackStatus& status, std::int64_t itemId) {
        const std::shared_ptr<TaskScheduler> alive = storage ? nullptr : weak.lock();
        const std::shared_ptr<UserTaskStorage>& kept = alive ? alive->taskStorage_ : storage;
        const Outcome outcome = kept ? recordOutcome(*kept, *ended, status) : Outcome();
        tellEnd(*parts, *ended, url, status, itemId, outcome);
      };
}

TaskScheduler::Outcome TaskScheduler::recordOutcome(UserTaskStorage& storage,
                                                    const TaskExecutor& executor,
                                                    const AWSCallbackStatus& status) {
  // The result is ignored, because a task that could not be deleted is tried again later.
  auto* const stored = dynamic_cast<FileTask*>(executor.task.get());
  Outcome outcome;
  if (stored != nullptr) outcome.attempts = stored->uploadCount() + 1;
  if (status.succeeded()) {
    storage.remove(executor.task->filename());
    return outcome;
  }
  if (stored == nullptr || executor.wasCancelled()) return outcome;
  // The task may have been deleted for good, and must not come back.
  if (storage.resumes() && !storage.contains(stored->filename())) return outcome;
  if (stored->uploadCount() == std::numeric_limits<std::int64_t>::max()) {
    fatal("the number of failed attempts of an upload overflows");
  }
  stored->setUploadCount(stored->uploadCount() + 1);
  outcome.counted = true;
  outcome.givenUp = stored->uploadCount() >= kMaxUploadCount;
  if (outcome.givenUp) {
    storage.remove(stored->filename());
  } else {
    storage.storageLog(*stored);
  }
  return outcome;
}

void TaskScheduler::tellEnd(const SchedulerParts& parts, const TaskExecutor& executor,
                            const std::optional<std::string>& url, const AWSCallbackStatus& status,
                            std::int64_t itemId, const std::optional<Outcome>& outcome) {
  const Task& task = *executor.task;
  if (!parts.events.observed()) return;
  if (status.succeeded()) {
    parts.events.uploaded(UploadKind::background, task, url, itemId);
    return;
  }
  UploadEvents::FailedAttempt attempt;
  attempt.number = outcome ? outcome->attempts : 1;
  attempt.counted = outcome && outcome->counted;
  attempt.stored = outcome.has_value();
  attempt.cancelled = executor.wasCancelled();
  const bool over = !outcome || outcome->givenUp;
  if (!over && !parts.queue->isHeld(task.filename())) attempt.nextTry = parts.retryTimer.nextTick();
  parts.events.attemptFailed(UploadKind::background, task, status, attempt);
  if (over) parts.events.givenUp(task, status, attempt.number);
}

void TaskScheduler::retryLocalTask() {
  if (parts_->queue->paused()) return;
  std::vector<std::shared_ptr<TaskExecutor>> next;
  {
    const TaskQueue::Watch watch(*parts_->queue);
    if (!parts_->queue->idle()) return;
    taskStorage_->readLogAgain();
    std::deque<std::shared_ptr<TaskExecutor>> list = retryList();
    next = takeNext(list);
    if (resumes_) {
      // Tasks that failed before this tick are in the list again, so the earlier list is void.
      MutexLock lock(followingLock_);
      following_.swap(list);
    }
  }
  queueStored(next);
}

std::deque<std::shared_ptr<TaskExecutor>> TaskScheduler::retryList() {
  std::deque<std::shared_ptr<TaskExecutor>> list;
  std::ranges::move(localTaskExecutor(), std::back_inserter(list));
  const std::set<std::string> underWay = parts_->queue->filenames();
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
        parts_->queue->announceUnlessUnderWay(list.front()->task->filename())) {
      next.push_back(std::move(list.front()));
    }
    list.pop_front();
  }
  return next;
}

void TaskScheduler::queueStored(const std::vector<std::shared_ptr<TaskExecutor>>& executors) {
  for (const std::shared_ptr<TaskExecutor>& executor : executors) {
    bindReporter(*executor);
    queue(syncLocl(executor));
  }
}

void TaskScheduler::retry(const std::vector<std::string>& filenames, Attempts attempts) {
  const std::set<std::string> wanted(filenames.begin(), filenames.end());
  std::vector<std::shared_ptr<TaskExecutor>> again;
  bool changed = false;
  for (const std::shared_ptr<FileTask>& task : taskStorage_->localTasks()) {
    if (!wanted.contains(task->filename())) continue;
    parts_->queue->release(task->filename());
    if (!parts_->queue->announceUnlessUnderWay(task->filename())) continue;
    if (attempts == Attempts::giveBack) task->setUploadCount(0);
    // Without the switch, an entry of an earlier process is only in the log file, and a write would
    // drop it.
    if (attempts == Attempts::giveBack && taskStorage_->contains(task->filename())) {
      changed |= taskStorage_->update(*task);
    }
    again.push_back(parts_->makeExecutor(task));
  }
  if (changed) taskStorage_->syncLog();
  queueStored(again);
}

void TaskScheduler::queueFollowing() {
  if (!resumes_ || !parts_->queue->idle()) return;
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
    executors.push_back(parts_->makeExecutor(task));
  }
  return executors;
}

TaskExecutor::Complete TaskScheduler::reporter() const {
  return [parts = parts_](const std::shared_ptr<TaskExecutor>& executor,
                          const std::optional<std::string>& url, const AWSCallbackStatus& status,
                          std::int64_t /*itemId*/) {
    const Task& task = *executor->task;
    parts->tracking.tracking(status, task, AWSTracking::ENVType::backgroundUpload,
                             executor->uploadTime, &task.extra());
    std::optional<Error> error;
    if (!status.succeeded()) error = uploaderError(status.code(), status.message());
    parts->report(task.scope(), url, task.extra(), error);
  };
}

}  // namespace qx
