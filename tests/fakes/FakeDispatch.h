// Runs all queues on the test's own thread, always in the same order.
//
// async() only enqueues. runUntilIdle() then runs the work of all queues in the order in which it
// was enqueued. A blocking wait (sync, Semaphore::wait) runs the work of those queues that are not
// themselves waiting further up the stack, and is fatal when no work is left that could end the
// wait. A deadlock therefore fails with one line instead of a test that hangs.
//
//     FakeClock clock;
//     FakeDispatch dispatch(clock);
//     dispatch.globalQueue().async([] { std::puts("runs below"); });
//     dispatch.runUntilIdle();
//
// Threads: async() and signal() may be called from any thread. The other operations belong to the
// test's thread.
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
  /// Timers tick when `clock` advances.
  explicit FakeDispatch(FakeClock& clock);
  ~FakeDispatch() override;

  std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override;
  DispatchQueue& mainQueue() override;
  DispatchQueue& globalQueue() override;
  std::shared_ptr<Semaphore> makeSemaphore(int count) override;
  std::unique_ptr<Timer> makeTimer(DispatchQueue& queue) override;

  /// Runs all enqueued work, and the work that this work enqueues, until nothing is left.
  void runUntilIdle();
  /// Runs the oldest piece of work that may run. False when there is none.
  bool runNext();
  /// The number of enqueued pieces of work, on all queues or on one.
  std::size_t pendingCount();
  std::size_t pendingCount(std::string_view label);

  /// The label of the queue whose work runs now. Empty when the test itself runs.
  std::string currentQueueLabel() const;
  /// The labels of the queues of all work that has run, in order.
  const std::vector<std::string>& history() const { return history_; }

  /// Called when a semaphore is waited for and no work could signal it. A test can release an
  /// answer here that it has held back. A wait that still cannot end afterwards is fatal.
  std::function<void()> onIdle;

 private:
  class Queue;
  class FakeSemaphore;
  class FakeTimer;
  struct Item {
    /// Keeps the queue alive until the work has run. Null for the main and the global queue.
    std::shared_ptr<Queue> keep;
    Queue* queue = nullptr;
    Work work;
  };

  void enqueue(Item item);
  /// Removes the oldest piece of work that `wanted` accepts and runs it. False when there is none.
  bool runFirst(const std::function<bool(const Queue&)>& wanted);
  bool isExecuting(const Queue& queue) const;
  void runOn(Queue& queue, Work work);
  void sync(Queue& queue, Work work);

  FakeClock& clock_;
  std::shared_ptr<Queue> main_;
  std::shared_ptr<Queue> global_;
  /// The queues whose work is on the stack, the innermost one last.
  std::vector<const Queue*> executing_;
  std::vector<std::string> history_;

  Mutex mutex_;
  std::deque<Item> items_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
