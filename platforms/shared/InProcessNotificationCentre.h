// The notification centre, which finds handlers by the name of a notification.
//
// Threads: every operation may be called from any thread. Handlers run on the thread that posts,
// outside the lock, so that they may add observers and post.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "platform/Host.h"
#include "platform/Mutex.h"

namespace qx {

class InProcessNotificationCentre : public NotificationCentre {
 public:
  void addObserver(std::string name, std::function<void()> handler) override;
  void post(std::string_view name) override;

 private:
  Mutex mutex_;
  std::map<std::string, std::vector<std::function<void()>>, std::less<>> observers_
      QX_GUARDED_BY(mutex_);
};

}  // namespace qx
