// The process-wide queue that runs background uploads a few at a time, oldest first.
//
// Threads: every operation may be called from any thread. `lock` guards the pool alone and is never
// held while an executor, a callback or the reachability check runs.
// Ownership: holds its executors until they have reported.
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
  /// How many executors may run; below 1 counts as 1. Asked at each start, under no lock.
  using Limit = std::function<std::int64_t()>;

  /// The queue of the process; it follows AWSConfigure's maxBackgroundConcurrentCount.
  static const std::shared_ptr<TaskQueue>& shared();

  /// A queue that listens to `reachability` as long as it lives.
  /// `ended` is called after each end of an attempt; it may be empty.
  static std::shared_ptr<TaskQueue> make(QXNetworkingReachabilityTool& reachability, Limit limit,
                                         std::function<void()> ended = nullptr);

  /// A task with this file name is about to be added.
  void announce(const std::string& filename);
  /// announce(), unless filenames() holds the name. Says whether it was announced.
  bool announceUnlessUnderWay(const std::string& filename);
  /// Appends an executor. Starts nothing: call start() next.
  void add(std::shared_ptr<TaskExecutor> executor);
  /// Starts waiting executors, first in, first out, while the network is reachable and fewer than
  /// the limit run. Returns at once.
  void start();
  /// Empties the pool and sets the counts to 0. Executors that run keep running; their late reports
  /// leave the count at 0, and filenames() still holds their names.
  void reset();
  /// From now on filenames() holds no name of an executor that runs at this moment.
  void forgetRunning();
  /// Nothing waits and nothing runs.
  bool idle() const;

  /// Starts nothing until resume(). What runs goes on.
  void pause() { paused_ = true; }
  /// Starts what may start.
  void resume();
  bool paused() const { return paused_; }
  /// Holds a task back: it does not start, and is not announced, until release().
  void hold(const std::string& filename);
  void release(const std::string& filename);
  bool isHeld(const std::string& filename) const;
  /// Takes the executors of these tasks out of the queue, as far as they wait.
  std::vector<std::shared_ptr<TaskExecutor>> takeWaiting(const std::set<std::string>& filenames);
  std::vector<std::shared_ptr<TaskExecutor>> running() const;
  /// The oldest first.
  std::vector<std::shared_ptr<TaskExecutor>> waiting() const;
  /// How many may run.
  std::int64_t limit() const;

  /// Executors started and not yet reported complete.
  std::int64_t concurrentCount() const { return concurrentCount_.load(); }
  std::size_t waitingCount() const;
  /// Executors added since the start or the last reset.
  std::int64_t total() const { return total_.load(); }
  /// The file names of the tasks that are announced, wait or run, until their completions have
  /// returned. While a Watch exists, also the names of those that have ended since it began.
  std::set<std::string> filenames() const;

  /// Whoever reads the stored log and then asks which of its tasks are under way holds one from
  /// before the reading to after the asking: a task may run and end in between.
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
  TaskQueue(QXNetworkingReachabilityTool& reachability, Limit limit,
            std::function<void()> ended);
  /// Starts the oldest executor when the network and the limit allow it.
  bool startNext();
  /// The oldest executor, with a slot taken for it; null when none waits or no slot is free. `era`
  /// becomes the one in which it starts. Forgets those that are held back.
  std::shared_ptr<TaskExecutor> takeFront(std::int64_t limit, std::uint64_t& era);
  void releaseSlot();
  /// Makes the queue hear of the end of the attempt.
  void watch(const std::shared_ptr<TaskExecutor>& executor, std::uint64_t era);
  /// The task's completion has returned.
  void noteEnd(const TaskExecutor* executor, const std::string& filename, std::uint64_t era);
  bool isUnderWay(const std::string& filename) const QX_REQUIRES(lock_);

  QXNetworkingReachabilityTool& reachability_;
  const Limit limit_;
  const std::function<void()> ended_;
  std::atomic<bool> paused_ = false;
  /// Raised and reset under the lock, together with the pool; lowered without it.
  std::atomic<std::int64_t> concurrentCount_ = 0;
  mutable Mutex lock_;
  std::deque<std::shared_ptr<TaskExecutor>> executorPool_ QX_GUARDED_BY(lock_);
  std::multiset<std::string> announced_ QX_GUARDED_BY(lock_);
  /// The names of the waiting and the running.
  std::multiset<std::string> queued_ QX_GUARDED_BY(lock_);
  /// Counts the calls of forgetRunning(): an end is noted only of what started after the last one.
  std::uint64_t era_ QX_GUARDED_BY(lock_) = 0;
  int watches_ QX_GUARDED_BY(lock_) = 0;
  /// What has ended since the first of the watches began.
  std::set<std::string> endedNames_ QX_GUARDED_BY(lock_);
  std::set<std::string> held_ QX_GUARDED_BY(lock_);
  /// Weak: an attempt under way keeps itself alive, and the queue with it.
  std::unordered_map<const TaskExecutor*, std::weak_ptr<TaskExecutor>> running_
      QX_GUARDED_BY(lock_);
  std::atomic<std::int64_t> total_ = 0;
};

}  // namespace qx
