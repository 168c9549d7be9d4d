// A clock that moves only when a test moves it.
//
// Threads: now() may be called from any thread; the rest belongs to the test's thread.
#pragma once

#include <functional>
#include <map>
#include <utility>

#include "platform/Clock.h"
#include "platform/Mutex.h"

namespace qx {

class FakeClock : public Clock {
 public:
  /// Names an alarm, for cancelAlarm.
  using AlarmId = int;

  explicit FakeClock(double secondsSince1970 = 1'700'000'000.25) : now_(secondsSince1970) {}

  double now() override;

  /// Moves the time forward, ringing the alarms that fall due on the way, the earliest first, each
  /// at its own time.
  void advance(double seconds);
  /// Moves the time anywhere, as an operator or a time server may; rings nothing.
  void set(double secondsSince1970);

  /// Calls `ring` once when advance() reaches `time`.
  AlarmId addAlarm(double time, std::function<void()> ring);
  void cancelAlarm(AlarmId id);

 private:
  Mutex mutex_;
  double now_ QX_GUARDED_BY(mutex_);
  AlarmId nextId_ QX_GUARDED_BY(mutex_) = 1;
  /// Ordered by time, then by age.
  std::map<std::pair<double, AlarmId>, std::function<void()>> alarms_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
