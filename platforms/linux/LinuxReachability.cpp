#include "platforms/linux/LinuxReachability.h"

#include <ifaddrs.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>

#include "platform/Mutex.h"

namespace qx {
namespace {

/// A name that does not resolve may resolve later without a change of routes. As long as nothing is
/// reachable, the names are therefore looked up at this interval.
constexpr int kRetryMilliseconds = 5000;
constexpr std::chrono::seconds kFirstLookUpLimit{2};
constexpr std::chrono::milliseconds kPatienceWithLookUp{500};

int openNetlink() {
  const int fd = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups =
      RTMGRP_LINK | RTMGRP_IPV4_IFADDR | RTMGRP_IPV6_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV6_ROUTE;
  if (fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) < 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

/// True when the kernel has a route to the address. Connecting a datagram socket looks the route up
/// and sends nothing.
bool hasRoute(const addrinfo& address) {
  const int fd = ::socket(address.ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return false;
  const bool routed = ::connect(fd, address.ai_addr, address.ai_addrlen) == 0;
  ::close(fd);
  return routed;
}

bool isHostReachable(const std::string& host) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  // The port only makes the address complete.
  if (::getaddrinfo(host.c_str(), "443", &hints, &found) != 0) return false;
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> owner(found, &::freeaddrinfo);
  for (const addrinfo* each = found; each != nullptr; each = each->ai_next) {
    if (hasRoute(*each)) return true;
  }
  return false;
}

bool isUsableAddress(const sockaddr* address) {
  if (address == nullptr) return false;
  if (address->sa_family == AF_INET) return true;
  if (address->sa_family != AF_INET6) return false;
  // Every interface that is up has a link-local address, even without a network behind it.
  const auto* v6 = reinterpret_cast<const sockaddr_in6*>(address);
  return !IN6_IS_ADDR_LINKLOCAL(&v6->sin6_addr);
}

bool hasNetwork() {
  ifaddrs* interfaces = nullptr;
  if (::getifaddrs(&interfaces) < 0) return true;  // Unknown, so an attempt shall find out.
  const std::unique_ptr<ifaddrs, decltype(&::freeifaddrs)> owner(interfaces, &::freeifaddrs);
  for (const ifaddrs* each = interfaces; each != nullptr; each = each->ifa_next) {
    const bool running = (each->ifa_flags & (IFF_UP | IFF_RUNNING)) == (IFF_UP | IFF_RUNNING);
    const bool loopback = (each->ifa_flags & IFF_LOOPBACK) != 0;
    if (running && !loopback && isUsableAddress(each->ifa_addr)) return true;
  }
  return false;
}

void drain(int fd) {
  std::array<char, 8192> buffer;
  // The content of the messages does not matter, and neither do lost messages (ENOBUFS), because
  // everything is looked up again.
  while (::recv(fd, buffer.data(), buffer.size(), MSG_DONTWAIT) > 0) {
  }
}

}  // namespace

struct LinuxReachability::Watch {
  explicit Watch(std::vector<std::string> names) : hosts(std::move(names)) {}
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
  ~Watch() {
    if (netlink >= 0) ::close(netlink);
    if (stop >= 0) ::close(stop);
  }

  /// The thread.
  void run();
  /// Looks up the routes, and tells the listeners of a change. False when the thread shall end.
  bool lookUp();

  const std::vector<std::string> hosts;
  const int netlink = openNetlink();
  /// Becomes readable when the thread shall end.
  const int stop = ::eventfd(0, EFD_CLOEXEC);

  Mutex mutex;
  /// `isKnown` or `isLookingUp` has changed.
  Condition changed;
  bool stopping QX_GUARDED_BY(mutex) = false;
  /// The thread may be waiting for a name server.
  bool isLookingUp QX_GUARDED_BY(mutex) = false;
  bool isKnown QX_GUARDED_BY(mutex) = false;
  bool reachable QX_GUARDED_BY(mutex) = true;
  std::vector<Listener> listeners QX_GUARDED_BY(mutex);
};

LinuxReachability::LinuxReachability(std::vector<std::string> hosts)
    : firstLookUpDeadline_(std::chrono::steady_clock::now() + kFirstLookUpLimit),
      watch_(std::make_shared<Watch>(std::move(hosts))),
      thread_([watch = watch_] { watch->run(); }) {}

LinuxReachability::~LinuxReachability() {
  stop();
}

void LinuxReachability::stop() {
  if (!thread_.joinable()) return;
  const auto deadline = std::chrono::steady_clock::now() + kPatienceWithLookUp;
  bool waitsForNames = false;
  {
    MutexLock lock(watch_->mutex);
    watch_->stopping = true;
    while (watch_->isLookingUp && watch_->changed.waitUntil(watch_->mutex, deadline)) {
    }
    waitsForNames = watch_->isLookingUp;
  }
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(watch_->stop, &one, sizeof one);
  if (waitsForNames) {
    // A name server that does not answer holds it up for longer than a person waits.
    thread_.detach();
  } else {
    thread_.join();
  }
}

bool LinuxReachability::isReachable() {
  MutexLock lock(watch_->mutex);
  while (!watch_->isKnown && watch_->changed.waitUntil(watch_->mutex, firstLookUpDeadline_)) {
  }
  return watch_->reachable;
}

void LinuxReachability::startListening(Listener listener) {
  MutexLock lock(watch_->mutex);
  watch_->listeners.push_back(std::move(listener));
}

void LinuxReachability::Watch::run() {
  ::pthread_setname_np(::pthread_self(), "qx.reachability");
  while (lookUp()) {
    bool isReachable = false;
    {
      MutexLock lock(mutex);
      isReachable = reachable;
    }
    // poll ignores a negative descriptor, which stands for one that could not be opened.
    std::array<pollfd, 2> events = {pollfd{stop, POLLIN, 0}, pollfd{netlink, POLLIN, 0}};
    const bool hearsAll = stop >= 0 && netlink >= 0;
    ::poll(events.data(), events.size(), isReachable && hearsAll ? -1 : kRetryMilliseconds);
    if (events[1].revents != 0) drain(netlink);
  }
}

bool LinuxReachability::Watch::lookUp() {
  {
    MutexLock lock(mutex);
    if (stopping) return false;
    isLookingUp = true;
  }
  const bool now =
      hosts.empty() ? hasNetwork() : std::any_of(hosts.begin(), hosts.end(), isHostReachable);
  std::vector<Listener> told;
  {
    MutexLock lock(mutex);
    isLookingUp = false;
    // The first look-up finds the state before any change, so listeners do not hear of it.
    if (!stopping && isKnown && reachable != now) told = listeners;
    reachable = now;
    isKnown = true;
    changed.notifyAll();
  }
  for (const Listener& listener : told) listener(now, false);
  return true;
}

}  // namespace qx
