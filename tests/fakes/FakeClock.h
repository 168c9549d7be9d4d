// A clock that moves only when a test moves it.
//
//     FakeClock clock(1000);
//     clock.addAlarm(1060, [] { std::puts("a minute later"); });
//     clock.advance(60);  // Rings the alarm; clock.now() is 1060 then.
//
// Threads: now() may be called from any thread. The other operations belong to the test's thread.
#pragma once

#include <functional>
#include <map>
#include <utility>

#include "platform/Clock.h"
#include "platform/Mutex.h"

namespace qx {

class FakeClock : public Clock {
 public:
  /// The name of an alarm, for cancelAlarm().
  using AlarmId = int;

  explicit FakeClock(double secondsSince1970 = 1'700'000'000.25) : now_(secondsSince1970) {}

  double now() override;

  /// Moves the time forward. Alarms that fall due meanwhile ring at their own times, the earliest
  /// first.
  void advance(double seconds);
  /// Sets the time to any value, as an operator or a time server may. No alarm rings.
  void set(double secondsSince1970);

  /// Calls `ring` once when advance() reaches `time`.
  AlarmId addAlarm(double time, std::function<void()> ring);
  void cancelAlarm(AlarmId id);

 private:
  Mutex mutex_;
  double now_ QX_GUARDED_BY(mutex_);
  AlarmId nextId_ QX_GUARDED_BY(mutex_) = 1;
  /// The alarms, ordered by time, then by age.
  std::map<std::pair<double, AlarmId>, std::function<void()>> alarms_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx
