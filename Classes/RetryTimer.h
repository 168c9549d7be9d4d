// The process-wide timer that has stored background uploads retried every 60 seconds.
//
// Threads: fireIfNeed and setScheduler from any thread; the handler runs on the global queue.
#pragma once

#include <memory>

#include "platform/Dispatch.h"
#include "platform/Mutex.h"

namespace qx {

class TaskScheduler;

class RetryTimer {
 public:
  /// Whose stored tasks the next tick retries.
  static void setScheduler(std::shared_ptr<TaskScheduler> scheduler);
  /// Starts the timer: first tick at once, then every 60 seconds for the life of the process. Once
  /// per process; later calls do nothing.
  static void fireIfNeed();

 private:
  RetryTimer();
  static RetryTimer& shared();

  Guarded<std::shared_ptr<TaskScheduler>> scheduler_;
  const std::unique_ptr<Timer> timer_;
};

}  // namespace qx
