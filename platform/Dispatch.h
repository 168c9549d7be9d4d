// Queues, semaphores and timers: where work runs.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace qx {

using Work = std::function<void()>;

/// Runs work in the order it came (a serial queue, the main queue) or several at once (the global
/// queue).
class DispatchQueue {
 public:
  virtual ~DispatchQueue() = default;
  /// "com.aws.fetch" and the like; "main" for the main queue, "global" for the global queue.
  virtual std::string_view label() const = 0;
  /// Enqueues `work` and returns at once; the work never runs before async returns on the queue's
  /// own thread, and its captures are destroyed on the queue.
  virtual void async(Work work) = 0;
  /// Runs `work` on the queue, behind what is already there, and returns when it is done. Calling
  /// it from the queue itself is fatal: it could never return.
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

/// A repeating timer. Made suspended; set it up, then resume it. Destroying it stops it: no handler
/// runs after the destructor has returned.
class Timer {
 public:
  virtual ~Timer() = default;
  virtual void setEventHandler(Work handler) = 0;
  /// First tick at once after resume, then every `intervalSeconds`; late by `leewaySeconds` at most
  /// as far as the system keeps up. Ticks that fall due while the handler still runs become one.
  virtual void scheduleNow(double intervalSeconds, double leewaySeconds) = 0;
  virtual void resume() = 0;
};

class Dispatch {
 public:
  virtual ~Dispatch() = default;
  /// A queue that runs one piece of work at a time, on a worker of its own. The queue lives as long
  /// as it is held; what was enqueued before the last handle went still runs.
  virtual std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) = 0;
  /// The host's main queue.
  virtual DispatchQueue& mainQueue() = 0;
  /// A small pool; work runs concurrently.
  virtual DispatchQueue& globalQueue() = 0;
  virtual std::shared_ptr<Semaphore> makeSemaphore(int count) = 0;
  /// A timer whose handler runs on `queue`, which must outlive it.
  virtual std::unique_ptr<Timer> makeTimer(DispatchQueue& queue) = 0;
};

}  // namespace qx
