// The queue of the process, which runs a few background uploads at a time, the oldest first.
//
// Threads: every operation may be called from any thread. `lock` guards the pool alone and is never
// held while an executor, a callback or the reachability check runs.
// Ownership: the queue holds its executors until they have reported.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "Classes/TaskExecutor.h"
#include "platform/Mutex.h"
#include "platform/Networking.h"

namespace qx {

class TaskQueue : public std::enable_shared_from_this<TaskQueue> {
 public:
  /// The number of executors that may run; below 1 counts as 1. Called at each start, under no
  /// lock.
  using Limit = std::function<std::int64_t()>;

  /// The queue of the process. It follows AWSConfigure's maxBackgroundConcurrentCount.
  static const std::shared_ptr<TaskQueue>& shared();

  /// Makes a queue that listens to `reachability` as long as it lives. `ended` is called after each
  /// end of an attempt and may be empty.
  static std::shared_ptr<TaskQueue> make(QXNetworkingReachabilityTool& reachability, Limit limit,
                                         std::function<void()> ended = nullptr);

  /// Says that a task with this file name will be added soon.
  void announce(const std::string& filename);
  /// Calls announce() unless filenames() has the name. True when the task was announced.
  bool announceUnlessUnderWay(const std::string& filename);
  /// Appends an executor. It starts nothing: call start() next.
  void add(std::shared_ptr<TaskExecutor> executor);
  /// Starts waiting executors, first in, first out, while the network is reachable and fewer than
  /// the limit run. Returns at once.
  void start();
  /// Empties the pool and sets the counts to 0. Executors that run go on; their late reports leave
  /// the count at 0, and filenames() still has their names.
  void reset();
  /// From now on filenames() has no name of an executor that runs at this moment.
  void forgetRunning();
  /// True when no executor waits or runs.
  bool idle() const;

  /// Starts no executor until resume() is called. Running executors go on.
  void pause() { paused_ = true; }
  /// Starts executors again.
  void resume();
  bool paused() const { return paused_; }
  /// Holds a task back: it does not start, and is not announced, until release() is called.
  void hold(const std::string& filename);
  void release(const std::string& filename);
  bool isHeld(const std::string& filename) const;
  /// Removes the waiting executors of these tasks from the queue.
  std::vector<std::shared_ptr<TaskExecutor>> takeWaiting(const std::set<std::string>& filenames);
  std::vector<std::shared_ptr<TaskExecutor>> running() const;
  /// The waiting executors, the oldest first.
  std::vector<std::shared_ptr<TaskExecutor>> waiting() const;
  /// The number of executors that may run.
  std::int64_t limit() const;

  /// The number of executors that have started and have not reported.
  std::int64_t concurrentCount() const { return concurrentCount_.load(); }
  std::size_t waitingCount() const;
  /// The number of executors that were added since the start or the last reset.
  std::int64_t total() const { return total_.load(); }
  /// The file names of the tasks that are announced, wait or run, until their completions have
  /// returned. While a Watch exists, also the names of the tasks that have ended since it began.
  std::set<std::string> filenames() const;

  /// Code that reads the stored log and then asks which of its tasks are under way keeps a Watch
  /// from before the reading to after the asking, because a task may run and end in between.
  class Watch {
   public:
    explicit Watch(TaskQueue& queue);
    ~Watch();
    Watch(const Watch&) = delete;
    Watch& operator=(const Watch&) = delete;

   private:
    TaskQueue& queue_;
  };

 private:
  TaskQueue(QXNetworkingReachabilityTool& reachability, Limit limit, std::function<void()> ended);
  /// Starts the oldest executor when the network and the limit allow it.
  bool startNext();
  /// The waiting executors, the oldest first.
  std::shared_ptr<TaskExecutor> takeFront(std::int64_t limit, std::uint64_t& era);
  void releaseSlot();
  /// Makes the queue observe the end of the attempt.
  void watch(const std::shared_ptr<TaskExecutor>& executor, std::uint64_t era);
  /// Called when the task's completion has returned.
  void noteEnd(const TaskExecutor* executor, const std::string& filename, std::uint64_t era);
  bool isUnderWay(const std::string& filename) const QX_REQUIRES(lock_);

  QXNetworkingReachabilityTool& reachability_;
  const Limit limit_;
  const std::function<void()> ended_;
  std::atomic<bool> paused_ = false;
  /// Increased and reset under the lock, together with the pool. Decreased without it.
  std::atomic<std::int64_t> concurrentCount_ = 0;
  mutable Mutex lock_;
  std::deque<std::shared_ptr<TaskExecutor>> executorPool_ QX_GUARDED_BY(lock_);
  std::multiset<std::string> announced_ QX_GUARDED_BY(lock_);
  /// The names of the waiting and the running executors.
  std::multiset<std::string> queued_ QX_GUARDED_BY(lock_);
  /// The number of calls of forgetRunning(). An end is noted only for an executor that started
  /// after the last call.
  std::uint64_t era_ QX_GUARDED_BY(lock_) = 0;
  int watches_ QX_GUARDED_BY(lock_) = 0;
  /// The names of the tasks that have ended since the first of the watches began.
  std::set<std::string> endedNames_ QX_GUARDED_BY(lock_);
  std::set<std::string> held_ QX_GUARDED_BY(lock_);
  /// Weak handles: an attempt that is under way keeps itself and the queue alive.
  std::unordered_map<const TaskExecutor*, std::weak_ptr<TaskExecutor>> running_
      QX_GUARDED_BY(lock_);
  std::atomic<std::int64_t> total_ = 0;
};

}  // namespace qx
