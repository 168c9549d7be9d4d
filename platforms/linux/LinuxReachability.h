// Whether the network is there: routes towards the configured hosts, looked up again whenever the
// kernel reports a change of links, addresses or routes.
//
// Threads: every operation may be called from any thread. One thread ("qx.reachability") waits for
// changes and calls the listeners, one after the other, outside the lock.
#pragma once

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "platform/Mutex.h"
#include "platform/Networking.h"

namespace qx {

class LinuxReachability : public QXNetworkingReachabilityTool {
 public:
  /// `hosts`: names or addresses; reachable when there is a route towards one of them, loopback
  /// included. Empty: when an interface other than loopback is up and has an address.
  explicit LinuxReachability(std::vector<std::string> hosts);
  /// Joins the thread; a look-up of a host name that is under way is waited for.
  ~LinuxReachability() override;
  LinuxReachability(const LinuxReachability&) = delete;
  LinuxReachability& operator=(const LinuxReachability&) = delete;

  /// What the latest look-up found. Before the first one has ended: waits for it, but not beyond
  /// two seconds after construction, then says true, for an attempt is the better test.
  bool isReachable() override;
  void startListening(Listener listener) override;

 private:
  void watch();
  /// Looks up and tells the listeners of a change.
  void lookUp();

  const std::vector<std::string> hosts_;
  const std::chrono::steady_clock::time_point firstLookUpDeadline_;
  const int netlink_;
  /// Readable when the thread is to end.
  const int stop_;

  Mutex mutex_;
  Condition known_;
  bool stopping_ QX_GUARDED_BY(mutex_) = false;
  bool isKnown_ QX_GUARDED_BY(mutex_) = false;
  bool reachable_ QX_GUARDED_BY(mutex_) = true;
  std::vector<Listener> listeners_ QX_GUARDED_BY(mutex_);

  /// Last: it uses all of the above.
  std::thread thread_;
};

}  // namespace qx
