// Queues, semaphores and timers on threads of the process.
//
// A serial queue owns one worker thread, made on first use and named after its label. The global
// queue is a pool of four. The main queue belongs to the host: run() on its main thread, or a
// poster into its own loop.
//
// Threads: every operation may be called from any thread.
// Ownership: queues, semaphores and timers may outlive the PosixDispatch; nothing runs on them any
// more.
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
  /// `mainQueuePoster` hands work to the host's main loop; absent: the host calls runMainQueue().
  explicit PosixDispatch(std::function<void(Work)> mainQueuePoster = {});
  /// Waits until no queue but the main one has work left, then stops the timers and joins all
  /// threads. From then on a queue drops the work it is given. Work of the main queue that has not
  /// run is dropped.
  ~PosixDispatch() override;
  PosixDispatch(const PosixDispatch&) = delete;
  PosixDispatch& operator=(const PosixDispatch&) = delete;

  std::shared_ptr<DispatchQueue> makeSerialQueue(std::string label) override;
  DispatchQueue& mainQueue() override;
  DispatchQueue& globalQueue() override;
  std::shared_ptr<Semaphore> makeSemaphore(int count) override;
  std::unique_ptr<Timer> makeTimer(DispatchQueue& queue) override;

  /// Runs the main queue on the calling thread until a stop comes up in it.
  void runMainQueue();
  /// Puts a stop into the main queue, behind the work that is already there.
  void stopMainQueue();
  /// How much work has been put on the main queue, and how much of it has been started.
  struct MainQueueUse {
    std::uint64_t put = 0;
    std::uint64_t started = 0;
  };
  MainQueueUse mainQueueUse() const;
  /// The same as the destructor; a second time does nothing. For an owner whose other parts must
  /// outlive all work. Not from a queue's own work.
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
