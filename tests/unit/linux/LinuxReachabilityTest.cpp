// Changes of the kernel's routes, in a network namespace of its own; the rest is in the contract.
#include "platforms/linux/LinuxReachability.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

namespace qx {
namespace {

constexpr char kInside[] = "QX_TEST_INSIDE_EMPTY_NETWORK";

/// True in a process whose network has only a loopback interface that is down. In any other process
/// it runs the current test again in such a process and expects it to pass there.
bool isInEmptyNetwork() {
  if (std::getenv(kInside) != nullptr) return true;
  const auto* test = testing::UnitTest::GetInstance()->current_test_info();
  // An ordinary user may have a network of its own as the root of a user namespace.
  const std::string command = std::string(kInside) + "=1 unshare --net " +
                              (::geteuid() == 0 ? "" : "--user --map-root-user ") + "'" +
                              std::filesystem::read_symlink("/proc/self/exe").string() +
                              "' --gtest_filter=" + test->test_suite_name() + "." + test->name();
  EXPECT_EQ(std::system(command.c_str()), 0) << command;
  return false;
}

/// The kernel gives the interface its address, and with it the route.
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
  request.ifr_addr.sa_family = AF_INET;  // 0.0.0.0 removes the address.
  const bool done = ::ioctl(fd, SIOCSIFADDR, &request) == 0;
  ::close(fd);
  return done;
}

/// Collects the reports to a listener.
class Told {
 public:
  void add(bool reachable) {
    const std::lock_guard lock(mutex_);
    told_.push_back(reachable);
    changed_.notify_all();
  }
  /// Waits until `count` reports have come, half a minute at most, and yields all of them.
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

TEST(LinuxReachabilityTest, RoutesThatComeAndGoAreReportedOnceEach) {
  if (!isInEmptyNetwork()) return;
  Told told;
  LinuxReachability tool({"127.0.0.1"});
  tool.startListening([&told](bool reachable, bool) { told.add(reachable); });
  EXPECT_FALSE(tool.isReachable());
  ASSERT_TRUE(bringLoopbackUp());
  EXPECT_EQ(told.waitFor(1), std::vector{true});
  EXPECT_TRUE(tool.isReachable());
  ASSERT_TRUE(removeLoopbackAddress());
  EXPECT_EQ(told.waitFor(2), (std::vector{true, false}));
  EXPECT_FALSE(tool.isReachable());
}

TEST(LinuxReachabilityTest, WithoutHostsLoopbackAloneIsNoNetwork) {
  if (!isInEmptyNetwork()) return;
  ASSERT_TRUE(bringLoopbackUp());
  EXPECT_FALSE(LinuxReachability({}).isReachable());
}

}  // namespace
}  // namespace qx
