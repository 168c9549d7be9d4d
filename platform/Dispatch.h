// Queues, semaphores and timers: where work runs.
//
//     const auto queue = dispatch.makeSerialQueue("com.example.import");
//     queue->async([&dispatch] { dispatch.mainQueue().async([] { std::puts("imported"); }); });
//
// Threads: every operation may be called from any thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace qx {

using Work = std::function<void()>;

/// Runs work. A serial queue and the main queue run one piece at a time, in the order in which it
/// was enqueued; the global queue runs several pieces at once.
class DispatchQueue {
 public:
  virtual ~DispatchQueue() = default;
  /// The label given to makeSerialQueue(), or "main", or "global".
  virtual std::string_view label() const = 0;
  /// Enqueues `work` and returns at once. When called on the queue's own thread, it never runs the
  /// work before it returns. The captures of the work are destroyed on the queue.
  virtual void async(Work work) = 0;
  /// Runs `work` on the queue after all work that is already there, and returns when `work` has
  /// ended. Calling it from the queue itself is fatal, because it could never return.
  virtual void sync(Work work) = 0;
};

/// A counting semaphore.
class Semaphore {
 public:
  virtual ~Semaphore() = default;
  virtual void signal() = 0;
  /// Blocks the calling thread until the count is above 0, then takes one.
  virtual void wait() = 0;
};

/// A repeating timer. It is made suspended: set it up, then resume it. No handler runs after its
/// destructor has returned.
class Timer {
 public:
  virtual ~Timer() = default;
  virtual void setEventHandler(Work handler) = 0;
  /// The timer ticks at once after resume(), then every `intervalSeconds`. A tick may be late by
  /// `leewaySeconds`. Ticks that fall due while the handler still runs become one tick.
  virtual void scheduleNow(double intervalSeconds, double leewaySeconds) = 0;
  virtual void resume() = 0;
};

class Dispatch {
 public:
  virtual ~Dispatch() = default;
  /// Makes a queue that runs one piece of work at a time, on a thread of its own. Work that was
  /// enqueued before the last handle to the queue was destroyed still runs.
  virtual std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) = 0;
  /// The host's main queue.
  virtual DispatchQueue& mainQueue() = 0;
  /// A queue whose work runs on a small pool of threads.
  virtual DispatchQueue& globalQueue() = 0;
  virtual std::shared_ptr<Semaphore> makeSemaphore(int count) = 0;
  /// Makes a timer whose handler runs on `queue`. The queue must outlive the timer.
  virtual std::unique_ptr<Timer> makeTimer(DispatchQueue& queue) = 0;
};

}  // namespace qx
