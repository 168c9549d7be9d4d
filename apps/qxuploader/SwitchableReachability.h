// The platform's reachability, unless the host says otherwise.
//
// Threads: any thread.
#pragma once

#include <optional>
#include <vector>

#include "platform/Mutex.h"
#include "platform/Networking.h"

namespace qx::app {

class SwitchableReachability : public QXNetworkingReachabilityTool {
 public:
  /// `platform` must outlive this object, which listens to it for good.
  explicit SwitchableReachability(QXNetworkingReachabilityTool& platform);

  /// What isReachable answers from now on; nothing: the platform's own answer again. Listeners hear
  /// of it on the calling thread when it is a change.
  void override(std::optional<bool> reachable);

  bool isReachable() override;
  void startListening(Listener listener) override;

 private:
  void notify(bool reachable);

  QXNetworkingReachabilityTool& platform_;
  Mutex mutex_;
  std::optional<bool> override_ QX_GUARDED_BY(mutex_);
  std::vector<Listener> listeners_ QX_GUARDED_BY(mutex_);
};

}  // namespace qx::app
