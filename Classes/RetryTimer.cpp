#include "Classes/RetryTimer.h"

#include <utility>

namespace qx {
namespace {

constexpr double kIntervalSeconds = 60;
constexpr double kLeewaySeconds = 2e-9;

}  // namespace

RetryTimer::RetryTimer(Dispatch& dispatch, std::function<void()> tick)
    : tick_(std::move(tick)), timer_(dispatch.makeTimer(dispatch.globalQueue())) {}

void RetryTimer::fireIfNeed() {
  std::call_once(started_, [this] {
    timer_->setEventHandler(tick_);
    timer_->scheduleNow(kIntervalSeconds, kLeewaySeconds);
    timer_->resume();
  });
}

}  // namespace qx
