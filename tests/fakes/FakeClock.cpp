#include "fakes/FakeClock.h"

#include <algorithm>

namespace qx {

double FakeClock::now() {
  MutexLock lock(mutex_);
  return now_;
}

void FakeClock::set(double secondsSince1970) {
  MutexLock lock(mutex_);
  now_ = secondsSince1970;
}

void FakeClock::advance(double seconds) {
  double end = 0;
  {
    MutexLock lock(mutex_);
    end = now_ + seconds;
  }
  for (;;) {
    std::function<void()> ring;
    {
      MutexLock lock(mutex_);
      if (alarms_.empty() || alarms_.begin()->first.first > end) {
        now_ = end;
        return;
      }
      auto first = alarms_.extract(alarms_.begin());
      now_ = std::max(now_, first.key().first);
      ring = std::move(first.mapped());
    }
    ring();
  }
}

FakeClock::AlarmId FakeClock::addAlarm(double time, std::function<void()> ring) {
  MutexLock lock(mutex_);
  const AlarmId id = nextId_++;
  alarms_.emplace(std::pair(time, id), std::move(ring));
  return id;
}

void FakeClock::cancelAlarm(AlarmId id) {
  MutexLock lock(mutex_);
  std::erase_if(alarms_, [id](const auto& alarm) { return alarm.first.second == id; });
}

}  // namespace qx
