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
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "Classes/TaskExecutor.h"
#include "platform/Mutex.h"

namespace qx {

class TaskQueue : public std::enable_shared_from_this<TaskQueue> {
 public:
  /// The queue of the process; it follows AWSConfigure's maxBackgroundConcurrentCount.
  static const std::shared_ptr<TaskQueue>& shared();

  /// A queue with a fixed limit, or with none of its own. Listens to reachability as long as it
  /// lives.
  static std::shared_ptr<TaskQueue> make(std::optional<std::int64_t> maxConcurrentCount);

  /// A task with this file name is about to be added.
  void announce(const std::string& filename);
  /// Appends an executor. Starts nothing: call start() next.
  void add(std::shared_ptr<TaskExecutor> executor);
  /// Starts waiting executors, first in, first out, while the network is reachable and fewer than
  /// the limit run. Returns at once.
  void start();
  /// Empties the pool and sets the counts to 0. Executors that run keep running; their late reports
  /// leave the count at 0.
  void reset();
  /// Nothing waits and nothing runs.
  bool idle() const;

  /// Executors started and not yet reported complete.
  std::int64_t concurrentCount() const { return concurrentCount_.load(); }
  std::size_t waitingCount() const;
  /// Executors added since the start or the last reset.
  std::int64_t total() const { return total_.load(); }
  /// The file names of the tasks that are announced, wait or run: until their completions have
  /// returned, and whatever a reset did meanwhile.
  std::set<std::string> filenames() const;

 private:
  explicit TaskQueue(std::optional<std::int64_t> maxConcurrentCount);
  std::int64_t limit() const;
  /// Starts the oldest executor when the network and the limit allow it.
  bool startNext();
  /// The oldest executor, with a slot taken for it; null when none waits or no slot is free.
  std::shared_ptr<TaskExecutor> takeFront(std::int64_t limit);
  void releaseSlot();
  void forgetRunning(const std::string& filename);
  void wrapCompletion(TaskExecutor& executor);

  const std::optional<std::int64_t> maxCount_;
  /// Raised and reset under the lock, together with the pool; lowered without it.
  std::atomic<std::int64_t> concurrentCount_ = 0;
  mutable Mutex lock_;
  std::deque<std::shared_ptr<TaskExecutor>> executorPool_ QX_GUARDED_BY(lock_);
  std::multiset<std::string> announced_ QX_GUARDED_BY(lock_);
  std::multiset<std::string> running_ QX_GUARDED_BY(lock_);
  std::atomic<std::int64_t> total_ = 0;
};

}  // namespace qx
