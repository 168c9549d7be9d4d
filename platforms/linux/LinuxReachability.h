// Tells whether the network is reachable: whether there are routes to the configured hosts. The
// routes are looked up again whenever the kernel reports a change of links, addresses or routes.
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
  /// `hosts` are names or addresses. The network is reachable when there is a route to one of them,
  /// over loopback, too. Without hosts it is reachable when an interface other than loopback is up
  /// and has an address.
  explicit LinuxReachability(std::vector<std::string> hosts);
  /// Joins the thread, and waits for a look-up of a host name that is under way.
  ~LinuxReachability() override;
  LinuxReachability(const LinuxReachability&) = delete;
  LinuxReachability& operator=(const LinuxReachability&) = delete;

  /// The result of the latest look-up. Waits for the first look-up, but not beyond two seconds
  /// after construction; it then yields true, because an attempt is the better test.
  bool isReachable() override;
  void startListening(Listener listener) override;

 private:
  void watch();
  /// Looks up the routes, and tells the listeners of a change.
  void lookUp();

  const std::vector<std::string> hosts_;
  const std::chrono::steady_clock::time_point firstLookUpDeadline_;
  const int netlink_;
  /// Becomes readable when the thread shall end.
  const int stop_;

  Mutex mutex_;
  Condition known_;
  bool stopping_ QX_GUARDED_BY(mutex_) = false;
  bool isKnown_ QX_GUARDED_BY(mutex_) = false;
  bool reachable_ QX_GUARDED_BY(mutex_) = true;
  std::vector<Listener> listeners_ QX_GUARDED_BY(mutex_);

  /// The last member, because the thread uses all members above.
  std::thread thread_;
};

}  // namespace qx
