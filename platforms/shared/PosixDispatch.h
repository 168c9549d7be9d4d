// Queues, semaphores and timers on threads of the process.
//
// A serial queue owns one thread, which is made on first use and named after the queue's label. The
// global queue is a pool of four threads. The main queue belongs to the host, which calls
// runMainQueue() on its main thread or has a poster into its own loop.
//
// Threads: every operation may be called from any thread.
// Ownership: queues, semaphores and timers may outlive the PosixDispatch. Nothing runs on them
// after its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/Dispatch.h"

namespace qx {

class PosixDispatch : public Dispatch {
 public:
  /// `mainQueuePoster` hands work to the host's main loop. Without it the host calls
  /// runMainQueue().
  explicit PosixDispatch(std::function<void(Work)> mainQueuePoster = {});
  /// Waits until no queue except the main queue has work left, then stops the timers and joins all
  /// threads. From then on queues drop the work that they are given, and so does the main queue
  /// with work that has not run.
  ~PosixDispatch() override;
  PosixDispatch(const PosixDispatch&) = delete;
  PosixDispatch& operator=(const PosixDispatch&) = delete;

  std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override;
  DispatchQueue& mainQueue() override;
  DispatchQueue& globalQueue() override;
  std::shared_ptr<Semaphore> makeSemaphore(int count) override;
  std::unique_ptr<Timer> makeTimer(DispatchQueue& queue) override;

  /// Runs the main queue on the calling thread until it comes to a stop in the queue.
  void runMainQueue();
  /// Puts a stop into the main queue, after the work that is already there.
  void stopMainQueue();
  /// The number of pieces of work that the main queue has been given, and the number that it has
  /// started.
  struct MainQueueUse {
    std::uint64_t put = 0;
    std::uint64_t started = 0;
  };
  MainQueueUse mainQueueUse() const;
  /// Does the same as the destructor. A second call does nothing. It is meant for an owner whose
  /// other parts must outlive all work, and must not be called by work on a queue.
  void shutDown();

 private:
  class Workers;
  class QueueState;
  class WorkerQueue;
  class MainQueue;
  class ThreadSemaphore;
  class ThreadTimer;
  struct TimerState;

  const std::shared_ptr<Workers> workers_;
  const std::unique_ptr<MainQueue> main_;
  const std::unique_ptr<WorkerQueue> global_;
};

}  // namespace qx
