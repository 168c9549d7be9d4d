#include "Classes/TaskQueue.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace qx {
namespace {

// Marks that start() of a queue runs on this thread. An executor may report inside execute(), and
// its report calls start() again. That call returns at once, because the loop around it goes on.
// Other threads run loops of their own.
class StartFrame {
 public:
  explicit StartFrame(const TaskQueue* queue) : queue_(queue), outer_(innermost) {
    innermost = this;
  }
  ~StartFrame() { innermost = outer_; }
  StartFrame(const StartFrame&) = delete;
  StartFrame& operator=(const StartFrame&) = delete;

  static bool activeFor(const TaskQueue* queue) {
    for (const StartFrame* frame = innermost; frame != nullptr; frame = frame->outer_) {
      if (frame->queue_ == queue) return true;
    }
    return false;
  }

 private:
  static thread_local const StartFrame* innermost;
  const TaskQueue* const queue_;
  const StartFrame* const outer_;
};

thread_local const StartFrame* StartFrame::innermost = nullptr;

void eraseOne(std::multiset<std::string>& names, const std::string& name) {
  if (const auto one = names.find(name); one != names.end()) names.erase(one);
}

}  // namespace

std::shared_ptr<TaskQueue> TaskQueue::make(QXNetworkingReachabilityTool& reachability, Limit limit,
                                           std::function<void()> ended) {
  const std::shared_ptr<TaskQueue> queue(
      new TaskQueue(reachability, std::move(limit), std::move(ended)));
  reachability.startListening([weak = std::weak_ptr<TaskQueue>(queue)](bool reachable, bool) {
    const auto alive = weak.lock();
    if (reachable && alive) alive->start();
  });
  return queue;
}

TaskQueue::TaskQueue(QXNetworkingReachabilityTool& reachability, Limit limit,
                     std::function<void()> ended)
    : reachability_(reachability), limit_(std::move(limit)), ended_(std::move(ended)) {}

void TaskQueue::add(std::shared_ptr<TaskExecutor> executor) {
  if (total_.fetch_add(1) == std::numeric_limits<std::int64_t>::max()) {
    fatal("the number of queued executors overflows");
  }
  MutexLock lock(lock_);
  eraseOne(announced_, executor->task->filename());
  queued_.insert(executor->task->filename());
  executorPool_.push_back(std::move(executor));
}

void TaskQueue::announce(const std::string& filename) {
  MutexLock lock(lock_);
  announced_.insert(filename);
}

bool TaskQueue::announceUnlessUnderWay(const std::string& filename) {
  MutexLock lock(lock_);
  if (isUnderWay(filename) || held_.contains(filename)) return false;
  announced_.insert(filename);
  return true;
}

bool TaskQueue::isUnderWay(const std::string& filename) const {
  return announced_.contains(filename) || queued_.contains(filename) ||
         endedNames_.contains(filename);
}

void TaskQueue::start() {
  if (StartFrame::activeFor(this)) return;
  const StartFrame frame(this);
  // A report may destroy the last other handle of this queue.
  const auto self = shared_from_this();
  while (startNext()) {
  }
}

bool TaskQueue::startNext() {
  if (paused_ || !reachability_.isReachable()) return false;
  std::uint64_t era = 0;
  const std::shared_ptr<TaskExecutor> executor = takeFront(limit(), era);
  if (!executor) return false;
  watch(executor, era);
  executor->execute();
  return true;
}

std::int64_t TaskQueue::limit() const {
  return std::max<std::int64_t>(limit_(), 1);
}

std::shared_ptr<TaskExecutor> TaskQueue::takeFront(std::int64_t limit, std::uint64_t& era) {
  // Destroyed after the lock is released, because an executor's destructor may do anything.
  std::vector<std::shared_ptr<TaskExecutor>> heldBack;
  // The executor and its slot are taken in one step, so that no race takes a slot too many, and
  // nobody sees the pool empty while an executor is on its way to its slot.
  MutexLock lock(lock_);
  while (!executorPool_.empty() && held_.contains(executorPool_.front()->task->filename())) {
    eraseOne(queued_, executorPool_.front()->task->filename());
    heldBack.push_back(std::move(executorPool_.front()));
    executorPool_.pop_front();
  }
  if (executorPool_.empty()) return nullptr;
  std::int64_t running = concurrentCount_.load();
  do {
    if (running >= limit) return nullptr;
  } while (!concurrentCount_.compare_exchange_weak(running, running + 1));
  std::shared_ptr<TaskExecutor> executor = std::move(executorPool_.front());
  executorPool_.pop_front();
  running_.emplace(executor.get(), executor);
  era = era_;
  return executor;
}

void TaskQueue::releaseSlot() {
  std::int64_t running = concurrentCount_.load();
  // The count stays at 0 on purpose, because it may have been reset while the executor was running.
  while (running > 0 && !concurrentCount_.compare_exchange_weak(running, running - 1)) {
  }
}

void TaskQueue::watch(const std::shared_ptr<TaskExecutor>& executor, std::uint64_t era) {
  executor->observers.freeSlot = [queue = shared_from_this()] { queue->releaseSlot(); };
  executor->observers.over = [queue = shared_from_this(), era, ended = executor.get(),
                              filename = executor->task->filename()] {
    queue->noteEnd(ended, filename, era);
    queue->start();
    if (queue->ended_) queue->ended_();
  };
}

void TaskQueue::noteEnd(const TaskExecutor* executor, const std::string& filename,
                        std::uint64_t era) {
  MutexLock lock(lock_);
  running_.erase(executor);
  if (era != era_) return;
  eraseOne(queued_, filename);
  if (watches_ > 0) endedNames_.insert(filename);
}

void TaskQueue::resume() {
  paused_ = false;
  start();
}

void TaskQueue::hold(const std::string& filename) {
  MutexLock lock(lock_);
  held_.insert(filename);
}

void TaskQueue::release(const std::string& filename) {
  MutexLock lock(lock_);
  held_.erase(filename);
}

bool TaskQueue::isHeld(const std::string& filename) const {
  MutexLock lock(lock_);
  return held_.contains(filename);
}

std::vector<std::shared_ptr<TaskExecutor>> TaskQueue::takeWaiting(
    const std::set<std::string>& filenames) {
  std::vector<std::shared_ptr<TaskExecutor>> taken;
  MutexLock lock(lock_);
  std::erase_if(executorPool_, [&](const std::shared_ptr<TaskExecutor>& executor) {
    if (!filenames.contains(executor->task->filename())) return false;
    taken.push_back(executor);
    return true;
  });
  for (const auto& executor : taken) eraseOne(queued_, executor->task->filename());
  return taken;
}

std::vector<std::shared_ptr<TaskExecutor>> TaskQueue::running() const {
  std::vector<std::shared_ptr<TaskExecutor>> executors;
  MutexLock lock(lock_);
  for (const auto& [executor, weak] : running_) {
    if (auto alive = weak.lock()) executors.push_back(std::move(alive));
  }
  return executors;
}

std::vector<std::shared_ptr<TaskExecutor>> TaskQueue::waiting() const {
  MutexLock lock(lock_);
  return {executorPool_.begin(), executorPool_.end()};
}

std::set<std::string> TaskQueue::filenames() const {
  MutexLock lock(lock_);
  std::set<std::string> names(announced_.begin(), announced_.end());
  names.insert(queued_.begin(), queued_.end());
  names.insert(endedNames_.begin(), endedNames_.end());
  return names;
}

TaskQueue::Watch::Watch(TaskQueue& queue) : queue_(queue) {
  MutexLock lock(queue_.lock_);
  ++queue_.watches_;
}

TaskQueue::Watch::~Watch() {
  MutexLock lock(queue_.lock_);
  if (--queue_.watches_ == 0) queue_.endedNames_.clear();
}

void TaskQueue::reset() {
  // Destroyed after the lock is released, because an executor's destructor may do anything.
  std::deque<std::shared_ptr<TaskExecutor>> dropped;
  MutexLock lock(lock_);
  dropped.swap(executorPool_);
  for (const auto& executor : dropped) eraseOne(queued_, executor->task->filename());
  total_ = 0;
  concurrentCount_ = 0;
}

void TaskQueue::forgetRunning() {
  MutexLock lock(lock_);
  queued_.clear();
  for (const auto& executor : executorPool_) queued_.insert(executor->task->filename());
  ++era_;
}

bool TaskQueue::idle() const {
  MutexLock lock(lock_);
  return executorPool_.empty() && concurrentCount_.load() == 0;
}

std::size_t TaskQueue::waitingCount() const {
  MutexLock lock(lock_);
  return executorPool_.size();
}

}  // namespace qx
