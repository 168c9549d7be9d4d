#include "SwitchableReachability.h"

#include <utility>

namespace qx::app {

SwitchableReachability::SwitchableReachability(QXNetworkingReachabilityTool& platform)
    : platform_(platform) {
  platform_.startListening([this](bool reachable, bool) {
    {
      MutexLock lock(mutex_);
      if (override_) return;
    }
    notify(reachable);
  });
}

void SwitchableReachability::override(std::optional<bool> reachable) {
  const bool before = isReachable();
  {
    MutexLock lock(mutex_);
    override_ = reachable;
  }
  const bool after = isReachable();
  if (after != before) notify(after);
}

bool SwitchableReachability::isReachable() {
  {
    MutexLock lock(mutex_);
    if (override_) return *override_;
  }
  return platform_.isReachable();
}

void SwitchableReachability::startListening(Listener listener) {
  MutexLock lock(mutex_);
  listeners_.push_back(std::move(listener));
}

void SwitchableReachability::notify(bool reachable) {
  std::vector<Listener> listeners;
  {
    MutexLock lock(mutex_);
    listeners = listeners_;
  }
  for (const Listener& listener : listeners) listener(reachable, false);
}

}  // namespace qx::app
