// The timer that makes the scheduler retry stored background uploads every 60 seconds.
//
// Threads: fireIfNeed() may be called from any thread. The tick runs on the global queue.
#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "platform/Dispatch.h"

namespace qx {

class RetryTimer {
 public:
  /// Each tick calls `tick`. `dispatch` must outlive the timer.
  RetryTimer(Dispatch& dispatch, std::function<void()> tick);

  /// The timer of the process.
  static RetryTimer& shared();

  /// Starts the timer: it ticks at once, then every 60 seconds as long as it lives. Later calls do
  /// nothing.
  void fireIfNeed();

 private:
  const std::function<void()> tick_;
  const std::unique_ptr<Timer> timer_;
  std::once_flag started_;
};

}  // namespace qx
