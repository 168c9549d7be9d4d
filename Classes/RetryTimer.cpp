#include "Classes/RetryTimer.h"

#include <mutex>
#include <utility>

#include "Classes/TaskScheduler.h"
#include "platform/Platform.h"

namespace qx {
namespace {

constexpr double kIntervalSeconds = 60;
constexpr double kLeewaySeconds = 2e-9;

}  // namespace

RetryTimer::RetryTimer()
    : timer_(Platform::current().dispatch.makeTimer(Platform::current().dispatch.globalQueue())) {}

RetryTimer& RetryTimer::shared() {
  // Never destroyed: the timer ticks until the process ends.
  static RetryTimer& instance = *new RetryTimer;
  return instance;
}

void RetryTimer::setScheduler(std::shared_ptr<TaskScheduler> scheduler) {
  shared().scheduler_.store(std::move(scheduler));
}

void RetryTimer::fireIfNeed() {
  static std::once_flag started;
  std::call_once(started, [] {
    RetryTimer& self = shared();
    // The slot is read at each tick, so that a tick always serves the identity applied last.
    self.timer_->setEventHandler([&self] {
      if (const auto scheduler = self.scheduler_.load()) scheduler->retryLocalTask();
    });
    self.timer_->scheduleNow(kIntervalSeconds, kLeewaySeconds);
    self.timer_->resume();
  });
}

}  // namespace qx
