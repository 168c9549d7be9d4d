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

namespace qx {
namespace {

/// A name that does not resolve may resolve later without a change of routes. As long as nothing is
/// reachable, the names are therefore looked up at this interval.
constexpr int kRetryMilliseconds = 5000;
constexpr std::chrono::seconds kFirstLookUpLimit{2};

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

LinuxReachability::LinuxReachability(std::vector<std::string> hosts)
    : hosts_(std::move(hosts)),
      firstLookUpDeadline_(std::chrono::steady_clock::now() + kFirstLookUpLimit),
      netlink_(openNetlink()),
      stop_(::eventfd(0, EFD_CLOEXEC)),
      thread_([this] { watch(); }) {}

LinuxReachability::~LinuxReachability() {
  {
    MutexLock lock(mutex_);
    stopping_ = true;
  }
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(stop_, &one, sizeof one);
  thread_.join();
  if (netlink_ >= 0) ::close(netlink_);
  if (stop_ >= 0) ::close(stop_);
}

bool LinuxReachability::isReachable() {
  MutexLock lock(mutex_);
  while (!isKnown_ && known_.waitUntil(mutex_, firstLookUpDeadline_)) {
  }
  return reachable_;
}

void LinuxReachability::startListening(Listener listener) {
  MutexLock lock(mutex_);
  listeners_.push_back(std::move(listener));
}

void LinuxReachability::watch() {
  ::pthread_setname_np(::pthread_self(), "qx.reachability");
  for (;;) {
    lookUp();
    bool reachable = false;
    {
      MutexLock lock(mutex_);
      reachable = reachable_;
    }
    // poll ignores a negative descriptor, which stands for one that could not be opened.
    std::array<pollfd, 2> events = {pollfd{stop_, POLLIN, 0}, pollfd{netlink_, POLLIN, 0}};
    const bool hearsAll = stop_ >= 0 && netlink_ >= 0;
    ::poll(events.data(), events.size(), reachable && hearsAll ? -1 : kRetryMilliseconds);
    {
      MutexLock lock(mutex_);
      if (stopping_) return;
    }
    if (events[1].revents != 0) drain(netlink_);
  }
}

void LinuxReachability::lookUp() {
  const bool now =
      hosts_.empty() ? hasNetwork() : std::any_of(hosts_.begin(), hosts_.end(), isHostReachable);
  std::vector<Listener> listeners;
  {
    MutexLock lock(mutex_);
    // The first look-up finds the state before any change, so listeners do not hear of it.
    if (isKnown_ && reachable_ != now) listeners = listeners_;
    reachable_ = now;
    isKnown_ = true;
    known_.notifyAll();
  }
  for (const Listener& listener : listeners) listener(now, false);
}

}  // namespace qx
