// The timer that makes the scheduler retry stored background uploads every 60 seconds.
//
// Threads: fireIfNeed() may be called from any thread. The tick runs on the global queue.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "platform/Clock.h"
#include "platform/Dispatch.h"

namespace qx {

class RetryTimer {
 public:
  /// Each tick calls `tick`. `dispatch` and `clock` must outlive the timer.
  RetryTimer(Dispatch& dispatch, Clock& clock, std::function<void()> tick);

  /// The timer of the process.
  static RetryTimer& shared();

  /// Starts the timer: it ticks at once, then every 60 seconds as long as it lives. Later calls do
  /// nothing.
  void fireIfNeed();
  /// The time of the next tick in seconds since 1970. Nothing before the first tick.
  std::optional<double> nextTick() const;

 private:
  Clock& clock_;
  const std::function<void()> tick_;
  /// The time of the latest tick in seconds since 1970; 0 before the first tick.
  std::atomic<double> lastTick_ = 0;
  std::once_flag started_;
  /// The last member, because its handler uses all members above.
  const std::unique_ptr<Timer> timer_;
};

}  // namespace qx
