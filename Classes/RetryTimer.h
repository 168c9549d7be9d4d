// The timer that has stored background uploads retried every 60 seconds.
//
// Threads: fireIfNeed from any thread; the tick runs on the global queue.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "platform/Dispatch.h"

namespace qx {

class RetryTimer {
 public:
  /// `tick` is called at each tick. `dispatch` must outlive the timer.
  RetryTimer(Dispatch& dispatch, std::function<void()> tick);

  /// The timer of the process.
  static RetryTimer& shared();

  /// Starts the timer: first tick at once, then every 60 seconds as long as the timer lives. Later
  /// calls do nothing.
  void fireIfNeed();

 private:
  const std::function<void()> tick_;
  const std::unique_ptr<Timer> timer_;
  std::once_flag started_;
};

}  // namespace qx
