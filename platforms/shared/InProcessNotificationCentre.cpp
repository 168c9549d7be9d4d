#include "platforms/shared/InProcessNotificationCentre.h"

#include <utility>

namespace qx {

void InProcessNotificationCentre::addObserver(std::string name, std::function<void()> handler) {
  MutexLock lock(mutex_);
  observers_[std::move(name)].push_back(std::move(handler));
}

void InProcessNotificationCentre::post(std::string_view name) {
  std::vector<std::function<void()>> handlers;
  {
    MutexLock lock(mutex_);
    const auto found = observers_.find(name);
    if (found != observers_.end()) handlers = found->second;
  }
  for (const auto& handler : handlers) handler();
}

}  // namespace qx
