#include "Classes/IdleWatch.h"

#include <utility>

namespace qx {

IdleWatch::IdleWatch(UploadEvents& events, std::function<bool()> nothingWaits)
    : events_(events), nothingWaits_(std::move(nothingWaits)) {}

void IdleWatch::end() {
  if (--underWay_ == 0) changed();
}

void IdleWatch::changed() {
  if (somebodyWaits_) events_.afterEvents([this] { look(); });
}

void IdleWatch::whenIdle(std::function<void()> complete) {
  {
    MutexLock lock(lock_);
    waiting_.push_back(std::move(complete));
    somebodyWaits_ = true;
  }
  changed();
}

void IdleWatch::look() {
  if (underWay_ > 0 || !nothingWaits_()) return;
  std::vector<std::function<void()>> told;
  {
    MutexLock lock(lock_);
    told.swap(waiting_);
    somebodyWaits_ = false;
  }
  for (const auto& complete : told) complete();
}

}  // namespace qx
