// Changes of the kernel's routes, in a network namespace of its own; the rest is in the contract.
#include "platforms/linux/LinuxReachability.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "contract/TemporaryDirectory.h"

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

/// A name server on loopback that never answers, the only one that this process asks from now on.
class SilentNameServer {
 public:
  SilentNameServer() : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(53);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ready_ = ::bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
             ::unshare(CLONE_NEWNS) == 0 &&
             ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
             ::mount(resolv_.path().c_str(), "/etc/resolv.conf", nullptr, MS_BIND, nullptr) == 0;
  }
  ~SilentNameServer() { ::close(socket_); }
  SilentNameServer(const SilentNameServer&) = delete;
  SilentNameServer& operator=(const SilentNameServer&) = delete;

  bool ready() const { return ready_; }
  /// Waits until somebody asks.
  void waitForQuestion() const {
    char byte = 0;
    EXPECT_GT(::recv(socket_, &byte, 1, 0), 0);
  }

 private:
  /// Asks the server on loopback, and waits for it as long as the system does by default.
  class Resolv {
   public:
    Resolv() { std::ofstream(path()) << "nameserver 127.0.0.1\n"; }
    std::string path() const { return directory_.path() + "/resolv.conf"; }

   private:
    const TemporaryDirectory directory_;
  };

  const Resolv resolv_;
  const int socket_;
  bool ready_ = false;
};

TEST(LinuxReachabilityTest, NameServerThatDoesNotAnswerDelaysNoStop) {
  if (!isInEmptyNetwork()) return;
  ASSERT_TRUE(bringLoopbackUp());
  const SilentNameServer server;
  ASSERT_TRUE(server.ready());
  LinuxReachability tool({"store.example"});
  server.waitForQuestion();
  const auto start = std::chrono::steady_clock::now();
  tool.stop();
  // The system gives a name server up after 5 seconds and asks twice.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(3));
}

}  // namespace
}  // namespace qx
