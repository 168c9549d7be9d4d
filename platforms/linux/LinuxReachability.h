// Tells whether the network is reachable: whether there are routes to the configured hosts. The
// routes are looked up again whenever the kernel reports a change of links, addresses or routes.
//
// Threads: every operation may be called from any thread. One thread ("qx.reachability") waits for
// changes and calls the listeners, one after the other, outside the lock.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/Networking.h"

namespace qx {

class LinuxReachability : public QXNetworkingReachabilityTool {
 public:
  /// `hosts` are names or addresses. The network is reachable when there is a route to one of them,
  /// over loopback, too. Without hosts it is reachable when an interface other than loopback is up
  /// and has an address.
  explicit LinuxReachability(std::vector<std::string> hosts);
  /// Calls stop().
  ~LinuxReachability() override;
  LinuxReachability(const LinuxReachability&) = delete;
  LinuxReachability& operator=(const LinuxReachability&) = delete;

  /// The result of the latest look-up. Waits for the first look-up, but not beyond two seconds
  /// after construction; it then yields true, because an attempt is the better test.
  bool isReachable() override;
  void startListening(Listener listener) override;

  /// Ends the thread; no listener is called any more. A look-up of a host name may take long: after
  /// half a second the thread is left to itself and ends with its look-up. A second call does
  /// nothing.
  void stop();

 private:
  /// All that the thread uses. The thread keeps it, because it may outlive this object.
  struct Watch;

  const std::chrono::steady_clock::time_point firstLookUpDeadline_;
  const std::shared_ptr<Watch> watch_;
  std::thread thread_;
};

}  // namespace qx
