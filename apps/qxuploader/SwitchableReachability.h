// The platform's reachability, unless the host sets another answer.
//
// Threads: every operation may be called from any thread.
#pragma once

#include <optional>
#include <vector>

#include "platform/Mutex.h"
#include "platform/Networking.h"

namespace qx::app {

class SwitchableReachability : public QXNetworkingReachabilityTool {
 public:
  /// `platform` must outlive this object, which listens to it until the process ends.
  explicit SwitchableReachability(QXNetworkingReachabilityTool& platform);

  /// Sets the answer of isReachable() from now on. Nothing means the platform's own answer. On a
  /// change, listeners are called on the calling thread.
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
