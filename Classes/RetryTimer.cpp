#include "Classes/RetryTimer.h"

#include <utility>

namespace qx {
namespace {

constexpr double kIntervalSeconds = 60;
constexpr double kLeewaySeconds = 2e-9;

}  // namespace

RetryTimer::RetryTimer(Dispatch& dispatch, Clock& clock, std::function<void()> tick)
    : clock_(clock), tick_(std::move(tick)), timer_(dispatch.makeTimer(dispatch.globalQueue())) {}

void RetryTimer::fireIfNeed() {
  std::call_once(started_, [this] {
    timer_->setEventHandler([this] {
      lastTick_ = clock_.now();
      tick_();
    });
    timer_->scheduleNow(kIntervalSeconds, kLeewaySeconds);
    timer_->resume();
  });
}

std::optional<double> RetryTimer::nextTick() const {
  const double last = lastTick_;
  return last > 0 ? std::optional(last + kIntervalSeconds) : std::nullopt;
}

}  // namespace qx
