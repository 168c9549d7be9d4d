// Changes of the kernel's routes, in a network namespace of its own; the rest is in the contract.
#include "platform/linux/LinuxReachability.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <vector>

namespace qx {
namespace {

/// Gives the calling thread and those it makes a network with a loopback interface that is down, as
/// an ordinary user in a user namespace of its own. 0, or errno.
int enterEmptyNetwork() {
  const int user = ::geteuid() == 0 ? 0 : CLONE_NEWUSER;
  return ::unshare(CLONE_NEWNET | user) == 0 ? 0 : errno;
}

/// The kernel gives it its address, and with that the route.
bool bringLoopbackUp() {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP;
  const bool done = ::ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  ::close(fd);
  return done;
}

bool removeLoopbackAddress() {
  const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_addr.sa_family = AF_INET;  // 0.0.0.0 takes the address away.
  const bool done = ::ioctl(fd, SIOCSIFADDR, &request) == 0;
  ::close(fd);
  return done;
}

/// Collects what a listener is told.
class Told {
 public:
  void add(bool reachable) {
    const std::lock_guard lock(mutex_);
    told_.push_back(reachable);
    changed_.notify_all();
  }
  /// Waits until `count` reports have come, half a minute at most; yields them all.
  std::vector<bool> waitFor(std::size_t count) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(30), [&] { return told_.size() >= count; });
    return told_;
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<bool> told_;
};

[[noreturn]] void watchLoopbackComeAndGo() {
  const auto require = [](bool holds, const char* what) {
    if (holds) return;
    std::fprintf(stderr, "%s does not hold\n", what);
    std::_Exit(1);
  };
  if (const int code = enterEmptyNetwork()) {
    std::fprintf(stderr, "unshare: %s\n", std::strerror(code));
    std::_Exit(1);
  }
  {
    Told told;
    LinuxReachability tool({"127.0.0.1"});
    tool.startListening([&told](bool reachable, bool) { told.add(reachable); });
    require(!tool.isReachable(), "unreachable at first");
    require(bringLoopbackUp(), "loopback up");
    require(told.waitFor(1) == std::vector{true}, "one report of the route that came");
    require(tool.isReachable(), "reachable with the route");
    require(removeLoopbackAddress(), "loopback without its address");
    require(told.waitFor(2) == std::vector{true, false}, "one report of the route that went");
    require(!tool.isReachable(), "unreachable without the route");
  }
  std::_Exit(0);
}

// In a process of its own: a user namespace is for processes with a single thread.
TEST(LinuxReachabilityTest, RoutesThatComeAndGoAreReportedOnceEach) {
  EXPECT_EXIT(watchLoopbackComeAndGo(), testing::ExitedWithCode(0), "");
}

TEST(LinuxReachabilityTest, WithoutHostsLoopbackAloneIsNoNetwork) {
  EXPECT_EXIT(
      {
        const bool entered = enterEmptyNetwork() == 0 && bringLoopbackUp();
        std::_Exit(entered && !LinuxReachability({}).isReachable() ? 0 : 1);
      },
      testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace qx
