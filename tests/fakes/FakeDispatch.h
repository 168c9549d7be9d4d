// All queues on the test's own thread, in an order that is always the same.
//
// async() only enqueues; runUntilIdle() then runs everything, of whatever queue, in the order in
// which it was enqueued. A blocking wait (sync, Semaphore::wait) runs the work of the queues that
// are not themselves waiting up-stack, and is fatal when nothing is left that could end it: a
// deadlock shows as one line, not as a test that hangs.
//
// Threads: async() and signal() may be called from any thread; the rest belongs to the test's
// thread.
#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fakes/FakeClock.h"
#include "platform/Dispatch.h"
#include "platform/Mutex.h"

namespace qx {

class FakeDispatch : public Dispatch {
 public:
  /// Timers tick as `clock` advances.
  explicit FakeDispatch(FakeClock& clock);
  ~FakeDispatch() override;

  std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override;
  DispatchQueue& mainQueue() override;
  DispatchQueue& globalQueue() override;
  std::shared_ptr<Semaphore> makeSemaphore(int count) override;
  std::unique_ptr<Timer> makeTimer(DispatchQueue& queue) override;

  /// Runs everything that is enqueued, and what that enqueues, until nothing is left.
  void runUntilIdle();
  /// Runs the oldest piece of work that may run; false when there is none.
  bool runNext();
  /// How much is enqueued: in all, or on one queue.
  std::size_t pendingCount();
  std::size_t pendingCount(std::string_view label);

  /// The label of the queue whose work runs now; empty when the test itself runs.
  std::string currentQueueLabel() const;
  /// The labels of all work that has run, in order.
  const std::vector<std::string>& history() const { return history_; }

  /// Called when a semaphore is waited for and no work could signal it: the place to release an
  /// answer that the test held back. Still stuck after it: fatal.
  std::function<void()> onIdle;

 private:
  class Queue;
  class FakeSemaphore;
  class FakeTimer;
  struct Item {
    /// Keeps the queue until the work has run; null for the main and the global queue.
    std::shared_ptr<Queue> keep;
    Queue* queue = nullptr;
    Work work;
  };

  void enqueue(Item item);
  /// Takes out the oldest piece of work that `wanted` accepts and runs it; false when there is
  /// none.
  bool runFirst(const std::function<bool(const Queue&)>& wanted);
  bool isExecuting(const Queue& queue) const;
  void runOn(Queue& queue, Work work);
  void sync(Queue& queue, Work work);

  FakeClock& clock_;
  std::shared_ptr<Queue> main_;
  std::shared_ptr<Queue> global_;
  /// The queues whose work is on the stack, the innermost last.
  std::vector<const Queue*> executing_;
  std::vector<std::string> history_;

  Mutex mutex_;
  std::deque<Item> items_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
